// SPDX-License-Identifier: MIT
#include "cache/cache.hpp"

#include "bank/checksum.hpp"
#include "base/bytes.hpp"
#include "base/file.hpp"
#include "base/path.hpp"
#include "cache/cache_entry_header.hpp"
#include "cache/tidying.hpp"
#include "support/own_file.hpp"

#include <algorithm>
#include <cerrno>
#include <ctime>

#include <sys/stat.h>
#include <unistd.h>

namespace builder {

namespace {

constexpr size_t kReadBlock = 256 << 10;
constexpr int64_t kRecordUseAfter = 600; // seconds after which another use is recorded

// Records that an entry is in use. In a folder that we can't write to, the entries of other users can't be marked; only
// those users remove them.
void recordUse(int descriptor, const struct stat& status)
{
    if (status.st_mtim.tv_sec + kRecordUseAfter < time(nullptr))
        futimens(descriptor, nullptr);
}

// Reads count bytes and returns whether their checksum matches.
bool verify(int descriptor, uint64_t offset, uint64_t count, uint64_t expected, const std::stop_token& stop)
{
    bank::RunningChecksum checksum;
    std::vector<uint8_t> buffer(std::min<uint64_t>(count, kReadBlock));
    while (count > 0) {
        const std::span piece(buffer.data(), std::min<uint64_t>(count, buffer.size()));
        if (stop.stop_requested() || !base::readAt(descriptor, piece, offset))
            return false;
        checksum.add(piece);
        offset += piece.size();
        count -= piece.size();
    }
    return checksum.value() == expected;
}

// Whether a record is exactly what we would write for the data that the header describes. Any other record comes from
// elsewhere, and would make every bank that uses it fail or be damaged.
bool fits(std::span<const uint8_t> record, const CacheEntryHeader& header, bank::Codec* codec)
{
    const base::Result<bank::Sound> sound = bank::deserialise(record);
    if (!sound)
        return false;
    *codec = sound->codec;
    return sound->dataBytes == header.dataBytes && sound->dataChecksum == header.dataChecksum
        && std::ranges::equal(bank::serialise(*sound), record);
}

// Renames file to path, and creates missing folders.
base::Result<> commitEntry(base::TemporaryFile* file, const std::string& path, const std::string& soundsPath)
{
    base::Result<> done = file->commit(path);
    if (done)
        return done;
    if (done.error().systemError == ENOENT) {
        if (base::Result<> sounds = base::makeFolder(soundsPath); !sounds)
            return sounds;
        if (base::Result<> folder = base::makeFolder(base::parentFolder(path)); !folder)
            return folder;
        return file->commit(path);
    }
    if (done.error().systemError == EISDIR && rmdir(path.c_str()) == 0)
        return file->commit(path);
    return done;
}

} // namespace

std::optional<CacheEntry> Cache::find(const ContentHash& key, const std::stop_token& stop)
{
    if (!mUseEntries)
        return std::nullopt;
    CacheEntry entry;
    entry.file = reopen(key);
    struct stat status;
    CacheEntryHeader header;
    if (!entry.file || fstat(entry.file.get(), &status) != 0)
        return std::nullopt;

    const int descriptor = entry.file.get();
    bool intact = base::readAt(descriptor, base::asWritableBytes(std::span(&header, 1)), 0)
        && header.valid(key, uint64_t(status.st_size));
    if (intact) {
        entry.dataBytes = header.dataBytes;
        entry.record.resize(header.recordBytes);
        intact = base::readAt(descriptor, entry.record, sizeof header + header.dataBytes)
            && bank::checksum(std::span<const uint8_t>(entry.record)) == header.recordChecksum
            && fits(entry.record, header, &entry.codec)
            && verify(descriptor, sizeof header, header.dataBytes, header.dataChecksum, stop);
    }
    // A damaged entry is kept until store() replaces it. Removing it here could remove the good entry with which
    // another process has replaced it in the meantime, and which that process relies on.
    if (!intact || stop.stop_requested())
        return std::nullopt;
    recordUse(descriptor, status);
    return entry;
}

base::FileDescriptor Cache::reopen(const ContentHash& key, uint64_t* fileBytes) const
{
    base::FileDescriptor file = openOwn(entryPath(key));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return {};
    if (fileBytes)
        *fileBytes = uint64_t(status.st_size);
    return file;
}

bool Cache::store(base::TemporaryFile* file, const ContentHash& key)
{
    const std::string path = entryPath(key);
    struct stat status;
    const uint64_t bytes = fstat(file->descriptor(), &status) == 0 ? uint64_t(status.st_size) : 0;
    if (const base::Result<> done = commitEntry(file, path, mFolder.soundsPath()); !done) {
        mFolder.remarkNotStored(base::fileError("storing", path, done.error().systemError));
        return false;
    }
    mStoredBytes += bytes;
    return true;
}

void Cache::markUsed(const ContentHash& key) const
{
    if (const base::FileDescriptor file = reopen(key))
        futimens(file.get(), nullptr);
}

void Cache::tidy(const std::stop_token& stop)
{
    tidyEntries(mFolder, mStoredBytes.exchange(0), stop);
}

// Two levels, so that no folder contains too many files for a slow file system, and few enough folders that the time to
// create them doesn't matter in the first build.
std::string Cache::entryPath(const ContentHash& key) const
{
    const std::string name = key.hex();
    return mFolder.soundsPath() + "/" + name.substr(0, 1) + "/" + name.substr(1);
}

} // namespace builder
