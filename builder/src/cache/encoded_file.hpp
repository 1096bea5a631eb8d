// Where the bytes of an encoded sound are put, and from where they go into the bank.
#pragma once

#include "bank/sound.hpp"
#include "base/bytes.hpp"
#include "cache/cache.hpp"
#include "support/content_hash.hpp"
#include "support/file.hpp"

#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace tarnok {

// A part of an open file as a source of bytes. Safe to read from several threads.
class FilePart final : public base::ByteSource
{
public:
    FilePart(std::shared_ptr<const FileDescriptor> file, uint64_t offset, uint64_t size)
        : mFile(std::move(file))
        , mOffset(offset)
        , mSize(size)
    { }

    [[nodiscard]] uint64_t size() const override { return mSize; }
    base::Result<> readAt(uint64_t offset, std::span<uint8_t> bytes) const override;

private:
    std::shared_ptr<const FileDescriptor> mFile;
    uint64_t mOffset;
    uint64_t mSize;
};

// Where one encoded sound lies until the bank is written: in the cache, or in a file without a name when the cache
// couldn't take it. The layout is the same in both: header, encoded data, serialised form. Or the data is in the source
// file, where it may change, and the serialised form is here.
struct StoredPlace
{
    struct InSource
    {
        uint64_t dataOffset = 0;
        FileStamp stamp; // of the file when it was read
    };

    ContentHash key;
    std::shared_ptr<const FilePart> spilled; // null: in the cache or the source
    std::optional<InSource> inSource;
    uint64_t dataBytes = 0;
    std::vector<uint8_t> record; // the serialised form, if it is short

    // Longer forms (those with a seek table) are read again when needed, so that memory doesn't grow with the sounds.
    static constexpr size_t kLongestKeptRecord = 512;

    bool inCache() const { return !spilled && !inSource; }

    static StoredPlace of(const ContentHash& key, uint64_t dataBytes, std::span<const uint8_t> record);
};

// The files of one worker that take what the cache doesn't: sound behind sound, without a name, gone with the build.
class SpillFiles
{
public:
    // folders are tried in this order; the next one when a disk is full.
    explicit SpillFiles(std::vector<std::string> folders)
        : mFolders(std::move(folders))
    { }

    struct Position
    {
        std::shared_ptr<const FileDescriptor> file;
        uint64_t end = 0;
    };

    const std::vector<std::string>& folders() const { return mFolders; }

    // Where the next sound begins. Fails when no folder is left.
    Result<Position> position();

    // The sound that began at position() takes so many bytes.
    void advance(uint64_t bytes) { mCurrent.end += bytes; }

    // The disk of the current file is full: goes on in the next folder. Fails when none is left.
    Result<Position> nextFolder();

private:
    std::vector<std::string> mFolders;
    size_t mNextFolder = 0;
    Position mCurrent;
};

// Takes the data of one sound from its encoder. Begins in the cache, moves to the spill files with all that it has when
// the cache can't take more, and ends as an entry of the cache or as a part of a spill file.
class EncodedFile final : public base::ByteSink
{
public:
    // cache: null for a sound that isn't to lie there.
    EncodedFile(Cache* cache, SpillFiles& spill, std::stop_token stop);

    base::Result<> write(std::span<const uint8_t> bytes) override;

    // Puts header and serialised form around the data and makes it available under key. sound is complete.
    Result<StoredPlace> finish(const ContentHash& key, const bank::Sound& sound);

    // Why write or finish failed.
    const Fault& fault() const { return mFault; }

private:
    bool flush();
    bool put(std::span<const std::byte> bytes, uint64_t position);
    bool moveToSpill(int error);
    Fault keepingFault(int error) const;
    int descriptor() const { return mSpilled ? mSpilled->file->get() : mEntry.descriptor(); }
    uint64_t start() const { return mSpilled ? mSpilled->end : 0; }

    Cache* mCache;
    SpillFiles& mSpill;
    std::stop_token mStop;
    TemporaryFile mEntry;
    std::optional<SpillFiles::Position> mSpilled; // set once the cache is left
    uint64_t mWritten = 0; // bytes of this sound in the file, the header's place included
    std::vector<uint8_t> mBuffer; // data behind them
    Fault mFault;
};

} // namespace tarnok
