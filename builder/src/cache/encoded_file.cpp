#include "cache/encoded_file.hpp"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tarnok {

namespace {

// Packets come in hundreds of bytes; the system is asked in pieces that are worth a call.
constexpr size_t kBufferBytes = 128 << 10;

} // namespace

base::Result<> FilePart::readAt(uint64_t offset, std::span<uint8_t> bytes) const
{
    if (!base::rangeInside(offset, bytes.size(), mSize))
        return base::Error{base::ErrorCode::Damaged};
    const int error = tarnok::readAt(mFile->get(), std::as_writable_bytes(bytes), mOffset + offset);
    if (error != 0)
        return base::Error{error < 0 ? base::ErrorCode::Damaged : base::ErrorCode::Io};
    return {};
}

StoredPlace StoredPlace::of(const ContentHash& key, uint64_t dataBytes, std::span<const uint8_t> record)
{
    StoredPlace place;
    place.key = key;
    place.dataBytes = dataBytes;
    if (record.size() <= kLongestKeptRecord)
        place.record.assign(record.begin(), record.end());
    return place;
}

Result<SpillFiles::Position> SpillFiles::position()
{
    if (!mCurrent.file)
        return nextFolder();
    return mCurrent;
}

Result<SpillFiles::Position> SpillFiles::nextFolder()
{
    Fault last{TARNOK_ERR_FILE_OS, "no disk has room for the encoded sounds (tried: " + listed(mFolders) + ")"};
    while (mNextFolder < mFolders.size()) {
        Result<FileDescriptor> file = TemporaryFile::createUnnamed(mFolders[mNextFolder++]);
        if (file) {
            mCurrent = {std::make_shared<FileDescriptor>(std::move(*file)), 0};
            return mCurrent;
        }
        last = file.fault();
    }
    return last;
}

// The header is known last, and its place is kept free by zeros: so the file has no hole and can be moved as it is.
EncodedFile::EncodedFile(Cache* cache, SpillFiles& spill, std::stop_token stop)
    : mCache(cache)
    , mSpill(spill)
    , mStop(std::move(stop))
{
    mBuffer.reserve(kBufferBytes);
    mBuffer.resize(sizeof(EntryHeader));
}

base::Result<> EncodedFile::write(std::span<const uint8_t> bytes)
{
    if (mBuffer.size() + bytes.size() > kBufferBytes && !flush())
        return base::Error{base::ErrorCode::Io};
    if (bytes.size() >= kBufferBytes)
        return put(std::as_bytes(bytes), mWritten) ? base::Result<>() : base::Error{base::ErrorCode::Io};
    mBuffer.insert(mBuffer.end(), bytes.begin(), bytes.end());
    return {};
}

Result<StoredPlace> EncodedFile::finish(const ContentHash& key, const bank::Sound& sound)
{
    const std::vector<uint8_t> record = bank::serialise(sound);
    // What can't be read again must not get into the cache, where it would stay.
    if (!bank::deserialise(record))
        return Fault{TARNOK_ERR_ENCODER, "the encoder says impossible things about its data"};
    const EntryHeader header = EntryHeader::make(key, sound.dataBytes, sound.dataChecksum, record);
    if (!flush() || !put(std::as_bytes(std::span(record)), mWritten))
        return mFault;
    if (mWritten != sizeof header + sound.dataBytes + record.size())
        return Fault{TARNOK_ERR_ENCODER, "the encoder wrote a different number of bytes than it said"};
    if (!put(std::as_bytes(std::span(&header, 1)), 0))
        return mFault;

    StoredPlace place = StoredPlace::of(key, sound.dataBytes, record);
    if (!mSpilled && !mCache->store(&mEntry, key) && !moveToSpill(EROFS))
        return mFault;
    if (mSpilled) {
        place.spilled = std::make_shared<FilePart>(mSpilled->file, mSpilled->end, mWritten);
        mSpill.advance(mWritten);
    }
    return place;
}

bool EncodedFile::flush()
{
    const bool done = put(std::as_bytes(std::span(mBuffer)), mWritten);
    mBuffer.clear();
    return done;
}

// Writes at a position counted from the start of this sound, in whatever file takes it.
bool EncodedFile::put(std::span<const std::byte> bytes, uint64_t position)
{
    if (!mEntry && !mSpilled) {
        if (Result<TemporaryFile> entry = mCache ? mCache->newEntry() : TemporaryFile())
            mEntry = std::move(*entry);
        if (!mEntry && !moveToSpill(EROFS))
            return false;
    }
    for (;;) {
        const int error = writeAt(descriptor(), bytes, start() + position);
        if (error == 0)
            break;
        if (!anotherDiskMayHelp(error)) {
            mFault = keepingFault(error);
            return false;
        }
        if (!moveToSpill(error))
            return false;
    }
    mWritten = std::max(mWritten, position + bytes.size());
    return true;
}

Fault EncodedFile::keepingFault(int error) const
{
    Fault fault = fileFault("keeping an encoded sound for", "the bank", error);
    if (anotherDiskMayHelp(error))
        fault.text += " (in " + listed(mSpill.folders()) + ")";
    return fault;
}

bool EncodedFile::moveToSpill(int error)
{
    if (!mSpilled && mCache && mEntry)
        mCache->cannotKeep(fileFault("keeping an encoded sound in", mCache->directory(), error));
    bool currentIsFull = mSpilled.has_value();
    for (;;) {
        const Result<SpillFiles::Position> next = currentIsFull ? mSpill.nextFolder() : mSpill.position();
        if (!next) {
            mFault = error == EROFS ? next.fault() : keepingFault(error);
            return false;
        }
        currentIsFull = true;
        if (mWritten > 0)
            error = copyRange(descriptor(), start(), next->file->get(), next->end, mWritten,
                              [this] { return !mStop.stop_requested(); });
        if (mWritten == 0 || error == 0) {
            mSpilled = *next;
            mEntry = TemporaryFile();
            return true;
        }
        if (!anotherDiskMayHelp(error)) {
            mFault = error == ECANCELED ? cancelled() : keepingFault(error);
            return false;
        }
    }
}

} // namespace tarnok
