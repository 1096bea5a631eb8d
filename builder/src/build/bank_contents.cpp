// SPDX-License-Identifier: MIT
#include "build/bank_contents.hpp"

#include "bank/writer.hpp"
#include "base/file.hpp"
#include "base/path.hpp"
#include "build/describe_error.hpp"
#include "cache/cache_entry_header.hpp"
#include "support/moments.hpp"

#include <memory>
#include <utility>
#include <vector>

namespace builder {

namespace {

// Passes the encoded sounds to the writer of the bank, one at a time.
class EncodedSounds final : public bank::StoredSounds
{
public:
    EncodedSounds(const BuildRequest& request, const SoundResults& results, const Cache& cache)
        : mRequest(request)
        , mResults(results)
        , mCache(cache)
    { }

    // ErrorCode::NotFound: the sound was encoded but is missing now.
    base::Result<bank::StoredSound> open(size_t index) override
    {
        if (onCopy)
            onCopy(index);
        const EncodedLocation* location = mResults.find(index);
        mOpened = index;
        if (!location)
            return bank::StoredSound{std::make_shared<base::MemorySource>(bank::serialise(bank::emptySound())), 0, 0};
        if (location->inSource)
            return openSource(index, *location);
        std::shared_ptr<const FilePart> part = location->spilled;
        if (!part) {
            uint64_t size = 0;
            auto file = std::make_shared<base::FileDescriptor>(mCache.reopen(location->key, &size));
            if (!*file)
                return base::Error{base::ErrorCode::NotFound};
            part = std::make_shared<FilePart>(std::move(file), 0, size);
        }
        return bank::StoredSound{part, sizeof(CacheEntryHeader) + location->dataBytes, sizeof(CacheEntryHeader)};
    }

    // The complete record of a sound.
    base::Result<bank::Sound> sound(size_t index)
    {
        const EncodedLocation* location = mResults.find(index);
        if (!location)
            return bank::emptySound();
        if (!location->record.empty())
            return bank::deserialise(location->record);
        const base::Result<bank::StoredSound> stored = open(index);
        if (!stored)
            return stored.error();
        if (stored->recordOffset > stored->source->size())
            return base::Error{base::ErrorCode::Damaged};
        std::vector<uint8_t> record(stored->source->size() - stored->recordOffset);
        if (const base::Result<> read = stored->source->readAt(stored->recordOffset, record); !read)
            return read.error();
        return bank::deserialise(record);
    }

    // The sound that must be encoded again after the writer has failed with error, if any.
    std::optional<size_t> staleSound(const base::Error& error) const
    {
        const EncodedLocation* location = mOpened ? mResults.find(*mOpened) : nullptr;
        if (!location)
            return std::nullopt;
        // An error with a text concerns the file that is written, not the sound.
        const bool isOfSound = error.text.empty();
        const bool isMissing = error.code == base::ErrorCode::NotFound;
        const bool mayHaveChanged = error.code == base::ErrorCode::Io || error.code == base::ErrorCode::Damaged;
        return isOfSound && (isMissing || (location->inSource && mayHaveChanged)) ? mOpened : std::nullopt;
    }

private:
    base::Result<bank::StoredSound> openSource(size_t index, const EncodedLocation& location)
    {
        base::Result<base::OpenedFile> file = base::openRegular(sourcePaths(mRequest.subsounds[index]).front());
        if (!file)
            return base::Error{base::ErrorCode::Io};
        auto descriptor = std::make_shared<base::FileDescriptor>(std::move(file->descriptor));
        return bank::StoredSound{std::make_shared<base::MemorySource>(location.record), 0,
                                 location.inSource->dataOffset,
                                 std::make_shared<FilePart>(std::move(descriptor), 0, file->stamp.size)};
    }

    const BuildRequest& mRequest;
    const SoundResults& mResults;
    const Cache& mCache;
    std::optional<size_t> mOpened; // the sound that was opened last
};

base::Result<> write(AtomicOutput& output, EncodedSounds& sounds, const BuildRequest& request,
                     const std::stop_token& stop)
{
    const unsigned flags = request.settings.flags;
    bank::BankWriter writer({.format = bank::Codec(request.settings.format),
                             .quality = request.settings.quality,
                             .guid = !(flags & TARNOK_BUILD_NOGUID),
                             .names = !(flags & TARNOK_BUILD_TNB5_DONTWRITENAMES)});
    for (size_t index = 0; index < request.subsounds.size(); ++index) {
        if (stop.stop_requested())
            return base::Error{base::ErrorCode::Cancelled};
        const base::Result<bank::Sound> sound = sounds.sound(index);
        if (!sound)
            return sound.error();
        writer.add(soundName(request.subsounds[index]), *sound);
    }
    return request.encryptionKey ? writer.writeEncrypted(output, sounds, *request.encryptionKey, stop)
                                 : writer.write(output, sounds, stop);
}

} // namespace

std::optional<ContentsError> writeContents(AtomicOutput& output, const BuildRequest& request,
                                           const SoundResults& results, const Cache& cache, const std::stop_token& stop)
{
    EncodedSounds sounds(request, results, cache);
    const base::Result<> written = write(output, sounds, request, stop);
    if (written)
        return std::nullopt;
    return ContentsError{describeError(written.error(), base::baseName(request.outputFile)),
                         sounds.staleSound(written.error())};
}

} // namespace builder
