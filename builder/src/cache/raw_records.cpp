// SPDX-License-Identifier: MIT
#include "cache/raw_records.hpp"

#include "base/bytes.hpp"
#include "base/file.hpp"
#include "cache/tidying.hpp"
#include "support/own_file.hpp"

#include <cerrno>
#include <ctime>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace builder {

namespace {

constexpr char kMagic[8] = {'T', 'N', 'K', 'R', 'E', 'C', '0', '3'};
constexpr uint64_t kLimitDivisor = 16; // the records may use this fraction of the cache's limit

// An advisory lock on a folder. Without it, one of two builds that save at the same time loses its new records. That
// isn't worth a long wait for a process that was stopped, or for a file system without locks.
base::FileDescriptor lockFolder(const std::string& path, const std::stop_token& stop)
{
    constexpr int kAttempts = 100;
    base::FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int attempt = 0; folder && attempt < kAttempts; ++attempt) {
        if (flock(folder.get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK || stop.stop_requested())
            break;
        usleep(2000);
    }
    return folder;
}

} // namespace

// A record in the table consists of the offset of the data and the serialised form.
std::optional<RawRecord> RawRecords::find(const ContentHash& key)
{
    if (!mUseRecords)
        return std::nullopt;
    const std::lock_guard lock(mMutex);
    if (!mTable)
        mTable = readTable();
    std::optional<DatedRecord> found = mTable->find(key);
    if (!found || found->bytes.size() < sizeof(uint64_t))
        return std::nullopt;
    const auto dataOffset = base::loadLittle<uint64_t>(found->bytes.data());
    RawRecord record{dataOffset, {found->bytes.begin() + sizeof dataOffset, found->bytes.end()}};
    const int64_t now = time(nullptr);
    if (found->wantsRenewal(now))
        mNew[key] = {now, std::move(found->bytes)};
    return record;
}

void RawRecords::store(const ContentHash& key, uint64_t dataOffset, std::span<const uint8_t> record)
{
    std::vector<uint8_t> bytes;
    base::appendLittle(bytes, dataOffset);
    bytes.insert(bytes.end(), record.begin(), record.end());
    const std::lock_guard lock(mMutex);
    mNew[key] = {time(nullptr), std::move(bytes)};
}

void RawRecords::forget(const ContentHash& key)
{
    const std::lock_guard lock(mMutex);
    mNew[key] = {};
}

void RawRecords::save(const std::stop_token& stop)
{
    const std::lock_guard lock(mMutex);
    if (mNew.empty())
        return;
    mTable.reset(); // the table may be large, and nothing is looked up any more
    const base::FileDescriptor lockedFolder = lockFolder(mFolder.path(), stop);
    const RecordTable table = readTable();
    const int64_t now = time(nullptr);
    const std::vector<uint8_t> bytes =
        RecordTable::merge({&table, 1}, mNew, kMagic, {now, mFolder.limit() / kLimitDivisor, now - kInUseFor});
    mNew.clear();
    base::Result<base::TemporaryFile> file = mFolder.newFile();
    if (!file)
        return;
    const std::string path = mFolder.recordsPath();
    rmdir(path.c_str()); // an empty folder contains nothing to lose
    if (isForeign(path, kMagic)) {
        mFolder.remarkNotStored(
            {base::ErrorCode::Invalid, path + " is not a file of the cache and was left unchanged"});
        return;
    }
    base::Result<> done = base::writeAt(file->descriptor(), bytes, 0);
    if (done)
        done = file->commit(path);
    if (!done)
        mFolder.remarkNotStored(base::fileError("storing", path, done.error().systemError));
}

RecordTable RawRecords::readTable() const
{
    const base::Result<base::OpenedFile> file = base::openRegular(mFolder.recordsPath());
    if (!file || file->stamp.size > RecordTable::kMaximumTableBytes)
        return {};
    std::vector<uint8_t> bytes(file->stamp.size);
    if (!base::readAt(file->descriptor.get(), bytes, 0))
        return {};
    return RecordTable::parse(std::move(bytes), kMagic).value_or(RecordTable());
}

} // namespace builder
