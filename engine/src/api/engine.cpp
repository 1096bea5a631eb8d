// SPDX-License-Identifier: MIT
#include "api/call.hpp"
#include "api/open_sound.hpp"
#include "banks/bank_verification.hpp"
#include "kess.hpp"

#include <new>

namespace engine {

namespace {

using SoundPointer = KESS::SoundAccess::Pointer;

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

KESS_RESULT openSound(base::Result<MediumPointer> medium, KESS_SOUND_TYPE suggested, SoundPointer& sound)
{
    if (!medium)
        return fail(std::move(medium.error()));
    const auto file = std::make_shared<const InputFile>(std::move(*medium));
    base::Result<SoundPointer> opened = openAsSound(file, suggested);
    base::Result<> failure = file->takeReadError();
    if (!opened) {
        if (!failure) {
            opened.error().text = std::move(failure.error().text);
            opened.error().systemError = failure.error().systemError;
        }
        return fail(std::move(opened.error()));
    }
    // The readable part is delivered. The system error shows the caller why the file seems to be cut short.
    if (!failure)
        note(std::move(failure.error()));
    sound = std::move(*opened);
    return KESS_OK;
}

base::Result<std::unique_ptr<BankFile>> openUnlocked(const char* path, const char* key)
{
    base::Result<MediumPointer> medium = openFile(path);
    if (!medium)
        return std::move(medium.error());
    base::Result<std::unique_ptr<BankFile>> bank = BankFile::open(std::move(*medium));
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

    // Opens the sound in the medium that open() returns. isValid: whether the arguments are right that only the caller
    // knows.
    template <typename Open>
    KESS_RESULT create(bool isValid, Open open, unsigned int mode, const KESS_CREATESOUNDEXINFO* info,
                       Sound** sound) const;
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

template <typename Open>
KESS_RESULT System::Impl::create(bool isValid, Open open, unsigned int mode, const KESS_CREATESOUNDEXINFO* info,
                                 Sound** sound) const
{
    if (!sound)
        return KESS_ERR_INVALID_PARAM;
    *sound = nullptr;
    if (!initialised)
        return KESS_ERR_UNINITIALIZED;
    if (!isValid || (info && info->cbsize != static_cast<int32_t>(sizeof *info)))
        return KESS_ERR_INVALID_PARAM;
    return engine::asFileFault(engine::guarded([&] {
        SoundAccess::Pointer opened;
        const KESS_RESULT result =
            engine::openSound(open(), info ? info->suggestedsoundtype : KESS_SOUND_TYPE_UNKNOWN, opened);
        if (opened && (mode & KESS_MODE_OPENONLY))
            SoundAccess::deferDecoders(*opened);
        *sound = opened.release();
        return result;
    }));
}

KESS_RESULT System::createSound(const char* path, unsigned int mode, const KESS_CREATESOUNDEXINFO* info, Sound** sound)
{
    return mImpl->create(
        path, [&] { return engine::openFile(path); }, mode, info, sound);
}

KESS_RESULT System::createSoundFromMemory(const void* data, uint64_t bytes, unsigned int mode,
                                          const KESS_CREATESOUNDEXINFO* info, Sound** sound)
{
    const bool isValid = data && bytes <= KESS_MAX_SOURCE_BYTES;
    return mImpl->create(
        isValid, [&] { return engine::useMemory(data, bytes); }, mode, info, sound);
}

KESS_RESULT System::createSoundFromCallbacks(const KESS_SOURCE* source, unsigned int mode,
                                             const KESS_CREATESOUNDEXINFO* info, Sound** sound)
{
    const bool isValid = source && source->cbsize == static_cast<int32_t>(sizeof *source) && source->read
        && source->size <= KESS_MAX_SOURCE_BYTES;
    std::shared_ptr<engine::CallbackMedium> medium;
    const auto open = [&]() -> base::Result<engine::MediumPointer> {
        base::Result<std::shared_ptr<engine::CallbackMedium>> made = engine::CallbackMedium::make(*source);
        if (!made)
            return std::move(made.error());
        medium = std::move(*made);
        return engine::MediumPointer(medium);
    };
    const KESS_RESULT result = mImpl->create(isValid, open, mode, info, sound);
    if (result == KESS_OK)
        medium->isKept = true;
    return result;
}

KESS_RESULT System::createSoundFromRange(const char* path, uint64_t offset, uint64_t bytes, unsigned int mode,
                                         const KESS_CREATESOUNDEXINFO* info, Sound** sound)
{
    const bool isValid = path && bytes <= KESS_MAX_SOURCE_BYTES;
    return mImpl->create(
        isValid, [&] { return engine::openFileRange(path, offset, bytes); }, mode, info, sound);
}

KESS_RESULT System::verifyBank(const char* path, const char* key, KESS_FINDING_CALLBACK finding, void* userData)
{
    if (!mImpl->initialised)
        return KESS_ERR_UNINITIALIZED;
    if (!path)
        return KESS_ERR_INVALID_PARAM;
    return engine::guarded(
        [&] { return engine::finish(engine::verifyBank(path, key, engine::reportTo(finding, userData))); });
}

struct SystemAccess
{
    static System* make() { return new (std::nothrow) System; }
};

} // namespace KESS

namespace {

static_assert(KESS_VERSION <= KESS_LIBRARY_VERSION && KESS_VERSION >> 16 == KESS_LIBRARY_VERSION >> 16,
              "the header is newer than the release: CHANGELOG");

// The first released header. It stays accepted, whatever the library's version.
constexpr unsigned int kFirstVersion = 0x00020308;

bool accepts(unsigned int headerVersion)
{
    return headerVersion == kFirstVersion
        || (headerVersion >> 16 == KESS_LIBRARY_VERSION >> 16 && headerVersion <= KESS_LIBRARY_VERSION);
}

} // namespace

extern "C" KESS_RESULT KESS_GetVersion(unsigned int* version)
{
    if (!version)
        return KESS_ERR_INVALID_PARAM;
    *version = KESS_LIBRARY_VERSION;
    return KESS_OK;
}

extern "C" KESS_RESULT KESS_System_Create(KESS::System** system, unsigned int headerVersion)
{
    if (!system)
        return KESS_ERR_INVALID_PARAM;
    *system = nullptr;
    if (!accepts(headerVersion))
        return KESS_ERR_HEADER_MISMATCH;
    try {
        *system = KESS::SystemAccess::make();
    } catch (const std::bad_alloc&) { }
    return *system ? KESS_OK : KESS_ERR_MEMORY;
}
