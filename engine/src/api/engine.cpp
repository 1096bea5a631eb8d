// SPDX-License-Identifier: MIT
#include "api/call.hpp"
#include "api/sound.hpp"
#include "banks/bank_verification.hpp"
#include "decode/decoders.hpp"
#include "kess.hpp"
#include "parse/declared_length.hpp"

#include <algorithm>
#include <new>

namespace engine {

namespace {

using SoundPointer = KESS::SoundAccess::Pointer;

base::Result<SoundPointer> openPlain(const RecognisedFile& file)
{
    SoundFacts facts;
    facts.type = file.kind.type;
    if (file.kind.reader == Reader::None)
        return KESS::SoundAccess::fromFile(file.file, std::move(facts), nullptr);
    base::Result<DecoderPointer> decoder = openDecoder(file);
    if (!decoder)
        return std::move(decoder.error());
    facts = (*decoder)->facts();
    facts.declaredCount = std::max(facts.declaredCount, declaredSampleCount(file, facts));
    return KESS::SoundAccess::fromFile(file.file, std::move(facts), std::move(*decoder));
}

base::Result<SoundPointer> openRecognised(const FilePointer& file, KESS_SOUND_TYPE suggested)
{
    base::Result<RecognisedFile> recognised = recognise(file);
    if (!recognised)
        return std::move(recognised.error());
    if (suggested != KESS_SOUND_TYPE_UNKNOWN && suggested != recognised->kind.type)
        return base::Error{base::ErrorCode::Format, "it is of another kind"};
    if (recognised->kind.reader != Reader::Bank)
        return openPlain(*recognised);
    base::Result<std::unique_ptr<BankFile>> bank = BankFile::open(file);
    if (!bank)
        return std::move(bank.error());
    return KESS::SoundAccess::fromBank(std::move(*bank));
}

// Reduces a result to those that createSound() documents for a faulty file.
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
    default:
        return KESS_ERR_FILE_BAD;
    }
}

KESS_RESULT openSound(const char* path, KESS_SOUND_TYPE suggested, SoundPointer& sound)
{
    base::Result<FilePointer> file = InputFile::open(path);
    if (!file)
        return fail(std::move(file.error()));
    base::Result<SoundPointer> opened = openRecognised(*file, suggested);
    base::Result<> medium = (*file)->takeReadError();
    if (!opened) {
        if (!medium) {
            opened.error().text = std::move(medium.error().text);
            opened.error().systemError = medium.error().systemError;
        }
        return fail(std::move(opened.error()));
    }
    // The readable part is delivered. The system error shows the caller why the file seems to be cut short.
    if (!medium)
        note(std::move(medium.error()));
    sound = std::move(*opened);
    return KESS_OK;
}

KESS_RESULT asResult(Finding::Kind kind)
{
    switch (kind) {
    case Finding::Kind::Damage:
        return KESS_ERR_FILE_BAD;
    case Finding::Kind::NotVerified:
        return KESS_ERR_UNSUPPORTED;
    case Finding::Kind::Remark:
        break;
    }
    return KESS_OK;
}

base::Result<std::unique_ptr<BankFile>> openUnlocked(const char* path, const char* key)
{
    base::Result<FilePointer> file = InputFile::open(path);
    if (!file)
        return std::move(file.error());
    base::Result<std::unique_ptr<BankFile>> bank = BankFile::open(std::move(*file));
    if (!bank || !(*bank)->locked())
        return bank;
    if (!key)
        return base::Error{base::ErrorCode::KeyMissing};
    if (base::Result<> unlocked = (*bank)->unlock(key); !unlocked)
        return std::move(unlocked.error());
    return bank;
}

base::Result<> verifyBank(const char* path, const char* key, const ReportFinding& report)
{
    base::Result<std::unique_ptr<BankFile>> bank = openUnlocked(path, key);
    if (bank)
        return BankVerification(**bank, report).run();
    // An unreadable or empty file isn't a finding.
    const base::Error& error = bank.error();
    if (error.code == base::ErrorCode::Damaged && !error.text.empty())
        report({-1, Finding::Kind::Damage, error.text});
    return error;
}

} // namespace

} // namespace engine

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
    return engine::asFileFault(engine::guarded([&] {
        SoundAccess::Pointer opened;
        const KESS_RESULT result =
            engine::openSound(path, info ? info->suggestedsoundtype : KESS_SOUND_TYPE_UNKNOWN, opened);
        if (opened && (mode & KESS_MODE_OPENONLY))
            SoundAccess::deferDecoders(*opened);
        *sound = opened.release();
        return result;
    }));
}

KESS_RESULT System::verifyBank(const char* path, const char* key, KESS_FINDING_CALLBACK finding, void* userData)
{
    if (!mImpl->initialised)
        return KESS_ERR_UNINITIALIZED;
    if (!path)
        return KESS_ERR_INVALID_PARAM;
    return engine::guarded([&] {
        return engine::finish(engine::verifyBank(path, key, [&](const engine::Finding& found) {
            return !finding || finding(userData, found.sound, engine::asResult(found.kind), found.text.c_str()) != 0;
        }));
    });
}

struct SystemAccess
{
    static System* make() { return new (std::nothrow) System; }
};

} // namespace KESS

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
