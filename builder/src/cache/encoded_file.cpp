// SPDX-License-Identifier: MIT
#include "cache/encoded_file.hpp"

#include "base/bytes.hpp"
#include "base/file.hpp"
#include "cache/cache_entry_header.hpp"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace builder {

namespace {

// Packets have some hundred bytes. They are gathered into pieces that are worth a system call.
constexpr size_t kBufferBytes = 128 << 10;

} // namespace

// The header is known only at the end. Zeros are written in its position first, so that the file has no hole and can be
// moved as it is.
EncodedFile::EncodedFile(Cache* cache, SpillFiles& spill, std::stop_token stop)
    : mCache(cache)
    , mSpill(spill)
    , mStop(std::move(stop))
{
    mBuffer.reserve(kBufferBytes);
    mBuffer.resize(sizeof(CacheEntryHeader));
}

base::Result<> EncodedFile::write(std::span<const uint8_t> bytes)
{
    if (mBuffer.size() + bytes.size() > kBufferBytes) {
        if (base::Result<> done = flush(); !done)
            return done;
    }
    if (bytes.size() >= kBufferBytes)
        return put(bytes, mWritten);
    mBuffer.insert(mBuffer.end(), bytes.begin(), bytes.end());
    return {};
}

base::Result<EncodedLocation> EncodedFile::finish(const ContentHash& key, const bank::Sound& sound)
{
    const std::vector<uint8_t> record = bank::serialise(sound);
    // A record that can't be read back must not get into the cache, where it would remain.
    if (!bank::deserialise(record))
        return base::Error{base::ErrorCode::Codec, "the encoder described its data incorrectly"};
    const CacheEntryHeader header = CacheEntryHeader::make(key, sound.dataBytes, sound.dataChecksum, record);
    if (const base::Result<> done = flush(); !done)
        return done.error();
    if (const base::Result<> done = put(record, mWritten); !done)
        return done.error();
    if (mWritten != sizeof header + sound.dataBytes + record.size())
        return base::Error{base::ErrorCode::Codec, "the encoder wrote a different number of bytes than it reported"};
    if (const base::Result<> done = put(base::asBytes(std::span(&header, 1)), 0); !done)
        return done.error();

    EncodedLocation location = EncodedLocation::make(key, sound.dataBytes, record);
    if (!mSpilled && !mCache->store(&mEntry, key)) {
        if (const base::Result<> moved = moveToSpill(EROFS); !moved)
            return moved.error();
    }
    if (mSpilled) {
        location.spilled = std::make_shared<FilePart>(mSpilled->file, mSpilled->end, mWritten);
        mSpill.advance(mWritten);
    }
    return location;
}

base::Result<> EncodedFile::flush()
{
    base::Result<> done = put(mBuffer, mWritten);
    mBuffer.clear();
    return done;
}

// Writes at an offset from the start of this sound, to the entry or to the spill file.
base::Result<> EncodedFile::put(std::span<const uint8_t> bytes, uint64_t position)
{
    if (!mEntry && !mSpilled) {
        if (base::Result<base::TemporaryFile> entry = mCache ? mCache->folder().newFile() : base::TemporaryFile())
            mEntry = std::move(*entry);
        if (!mEntry) {
            if (base::Result<> moved = moveToSpill(EROFS); !moved)
                return moved;
        }
    }
    for (;;) {
        const base::Result<> written = base::writeAt(descriptor(), bytes, start() + position);
        if (written)
            break;
        const int systemError = written.error().systemError;
        if (!base::anotherDiskMayHelp(systemError))
            return storingError(systemError);
        if (base::Result<> moved = moveToSpill(systemError); !moved)
            return moved;
    }
    mWritten = std::max(mWritten, position + bytes.size());
    return {};
}

base::Error EncodedFile::storingError(int systemError) const
{
    return mSpill.folders().fileError("storing an encoded sound for", systemError);
}

// systemError: why the sound can't stay in its file; EROFS if the cache refused it.
base::Result<> EncodedFile::moveToSpill(int systemError)
{
    if (!mSpilled && mCache && mEntry) {
        CacheFolder& folder = mCache->folder();
        folder.remarkNotStored(base::fileError("storing an encoded sound in", folder.path(), systemError));
    }
    bool currentIsFull = mSpilled.has_value();
    for (;;) {
        const base::Result<SpillFiles::Position> next = currentIsFull ? mSpill.nextFolder() : mSpill.position();
        if (!next)
            return systemError == EROFS ? next.error() : storingError(systemError);
        currentIsFull = true;
        base::Result<> copied;
        if (mWritten > 0) {
            copied = base::copyRange(descriptor(), start(), next->file->get(), next->end, mWritten,
                                     [this] { return !mStop.stop_requested(); });
        }
        if (copied) {
            mSpilled = *next;
            mEntry = base::TemporaryFile();
            return {};
        }
        if (copied.error().code == base::ErrorCode::Cancelled)
            return base::cancelled();
        // The copied file has become shorter, which means to the user that its disk has failed.
        systemError = copied.error().code == base::ErrorCode::Damaged ? EIO : copied.error().systemError;
        if (!base::anotherDiskMayHelp(systemError))
            return storingError(systemError);
    }
}

} // namespace builder
