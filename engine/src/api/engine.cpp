#include "api/sound.hpp"
#include "banks/bank_verification.hpp"
#include "decode/decoders.hpp"
#include "kess.hpp"
#include "parse/declared_length.hpp"
#include "parse/source_file.hpp"

#include <algorithm>
#include <cerrno>
#include <new>

namespace kess {

namespace {

KESS_RESULT openBank(const char* path, KESS::SoundAccess::Pointer* sound)
{
    base::Result<std::unique_ptr<BankFile>> bank = BankFile::open(path);
    return bank ? KESS::SoundAccess::fromBank(std::move(*bank), sound) : resultOf(bank.error());
}

KESS_RESULT openPlain(const FilePointer& file, const FileKind& kind, KESS::SoundAccess::Pointer* sound)
{
    SoundFacts facts;
    facts.type = kind.type;
    DecoderPointer decoder;
    if (kind.reader != Reader::None) {
        const KESS_RESULT result = openDecoder(file, kind, &decoder);
        if (result != KESS_OK)
            return result;
        facts = decoder->facts();
        facts.declaredCount = std::max(facts.declaredCount, declaredSampleCount(file, kind, facts));
    }
    *sound = KESS::SoundAccess::fromFile(std::move(facts), std::move(decoder));
    return KESS_OK;
}

KESS_RESULT openSound(const char* path, KESS_SOUND_TYPE suggested, KESS::SoundAccess::Pointer* sound)
{
    FilePointer file;
    KESS_RESULT result = SourceFile::open(path, &file);
    if (result != KESS_OK)
        return result;
    FileKind kind;
    result = recognise(*file, &kind);
    if (result != KESS_OK)
        return result;
    if (suggested != KESS_SOUND_TYPE_UNKNOWN && suggested != kind.type)
        return KESS_ERR_FORMAT;
    if (kind.reader == Reader::Bank)
        return openBank(path, sound);
    return openPlain(file, kind, sound);
}

KESS_RESULT verifyBank(const char* path, const char* key, const TellFinding& tell)
{
    const base::Result<std::unique_ptr<BankFile>> bank = BankFile::open(path);
    base::Result<> opened = bank ? base::Result<>() : bank.error();
    if (opened && (*bank)->locked()) {
        if (!key)
            return KESS_ERR_KEY_MISSING;
        opened = (*bank)->unlock(key);
    }
    if (opened)
        return BankVerification(**bank, tell).run();
    const KESS_RESULT result = resultOf(opened.error());
    if (result == KESS_ERR_FILE_BAD && !opened.error().text.empty())
        tell(-1, result, opened.error().text);
    return result;
}

// The results that stand for a file's fault. Anything else would count as a fault of the program.
KESS_RESULT asFileFault(KESS_RESULT result)
{
    switch (result) {
    case KESS_OK:
    case KESS_ERR_FILE_COULDNOTSEEK:
    case KESS_ERR_FILE_NOTFOUND:
    case KESS_ERR_FORMAT:
    case KESS_ERR_TOOMANYCHANNELS:
    case KESS_ERR_VERSION:
        return result;
    case KESS_ERR_MEMORY:
        noteSystemError(ENOMEM);
        return KESS_ERR_FILE_BAD;
    default:
        return KESS_ERR_FILE_BAD;
    }
}

} // namespace

} // namespace kess

namespace KESS {

struct System::Impl
{
    bool initialised = false;
};

System::System()
    : mImpl(new Impl)
{ }

System::~System()
{
    delete mImpl;
}

KESS_RESULT System::release()
{
    delete this;
    return KESS_OK;
}

KESS_RESULT System::setOutput(KESS_OUTPUTTYPE output)
{
    return output == KESS_OUTPUTTYPE_NOSOUND_NRT ? KESS_OK : KESS_ERR_INVALID_PARAM;
}

KESS_RESULT System::init(int, unsigned int, void*)
{
    mImpl->initialised = true;
    return KESS_OK;
}

KESS_RESULT System::createSound(const char* path, unsigned int mode, const KESS_CREATESOUNDEXINFO* info, Sound** sound)
{
    if (!sound)
        return KESS_ERR_INVALID_PARAM;
    *sound = nullptr;
    if (!mImpl->initialised)
        return KESS_ERR_UNINITIALIZED;
    if (!path || (info && info->cbsize != static_cast<int32_t>(sizeof *info)))
        return KESS_ERR_INVALID_PARAM;
    kess::noteSystemError(0);
    try {
        SoundAccess::Pointer opened;
        const KESS_RESULT result =
            kess::openSound(path, info ? info->suggestedsoundtype : KESS_SOUND_TYPE_UNKNOWN, &opened);
        if (opened && (mode & KESS_MODE_OPENONLY))
            SoundAccess::deferDecoders(*opened);
        *sound = opened.release();
        return kess::asFileFault(result);
    } catch (...) {
        // The files' own lengths are checked before memory is asked for; what remains is a machine at its limit.
        return kess::asFileFault(KESS_ERR_MEMORY);
    }
}

KESS_RESULT System::verifyBank(const char* path, const char* key, KESS_FINDING_CALLBACK finding, void* userData)
{
    if (!mImpl->initialised)
        return KESS_ERR_UNINITIALIZED;
    if (!path)
        return KESS_ERR_INVALID_PARAM;
    kess::noteSystemError(0);
    try {
        return kess::verifyBank(path, key, [&](int sound, KESS_RESULT result, const std::string& text) {
            return !finding || finding(userData, sound, result, text.c_str()) != 0;
        });
    } catch (...) {
        return KESS_ERR_MEMORY;
    }
}

struct SystemAccess
{
    static System* make() { return new (std::nothrow) System; }
};

} // namespace KESS

extern "C" int KESS_SystemError(void)
{
    return kess::systemError();
}

extern "C" KESS_RESULT KESS_System_Create(KESS::System** system, unsigned int headerVersion)
{
    if (!system)
        return KESS_ERR_INVALID_PARAM;
    *system = nullptr;
    if (headerVersion != KESS_VERSION)
        return KESS_ERR_HEADER_MISMATCH;
    try {
        *system = KESS::SystemAccess::make();
    } catch (const std::bad_alloc&) { }
    return *system ? KESS_OK : KESS_ERR_MEMORY;
}
