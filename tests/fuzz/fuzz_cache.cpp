// SPDX-License-Identifier: MIT
// Reads the fuzzer's input as a file of a cache: the first byte selects its kind, and the others follow its header. The
// header is made to match, because otherwise its checksums would reject everything.
#include "bank/checksum.hpp"
#include "bank/sound.hpp"
#include "base/bytes.hpp"
#include "cache/cache.hpp"
#include "cache/cache_entry_header.hpp"
#include "cache/cache_folder.hpp"
#include "source/source_index.hpp"
#include "support/record_table.hpp"
#include "support/sound_files.hpp"

#include "fail.hpp"

#include <algorithm>
#include <filesystem>
#include <limits>

#include <unistd.h>

namespace {

using namespace builder;
using fuzz::fail;
using Bytes = std::vector<uint8_t>;

// The folder of a cache, removed at the end.
struct Folder
{
    Folder()
    {
        std::filesystem::create_directories(path + "/index");
        std::filesystem::create_directories(path + "/sounds/0");
    }
    ~Folder() { std::filesystem::remove_all(path); }

    const std::string path = "/tmp/fuzz_cache." + std::to_string(getpid());
};
const Folder folder;

// A table: its magic, the checksum of the records, and these.
Bytes makeTable(const char (&magic)[8], std::span<const uint8_t> content)
{
    Bytes file(magic, magic + sizeof magic);
    base::appendLittle(file, bank::checksum(content));
    file.insert(file.end(), content.begin(), content.end());
    return file;
}

// A table that was read and written is the same again, and finds a record that was added.
void readRecords(std::span<const uint8_t> content)
{
    constexpr char kMagic[8] = {'T', 'N', 'K', 'R', 'E', 'C', '0', '3'};
    const Bytes file = makeTable(kMagic, content);
    const std::optional<RecordTable> table = RecordTable::parse(file, kMagic);
    if (!table)
        return;
    ContentHash key;
    std::copy_n(content.begin(), std::min(content.size(), key.bytes.size()), key.bytes.begin());
    const std::optional<DatedRecord> first = table->find(key);
    if (!first && !content.empty())
        fail("the first record of a table isn't found");
    const DatedRecords newer{{key, {1, {3}}}};
    constexpr int64_t kDistantPast = std::numeric_limits<int64_t>::min() / 2;
    const RecordTable::Limits limits{kDistantPast, RecordTable::kMaximumTableBytes, INT64_MAX};
    const Bytes merged = RecordTable::merge({&*table, 1}, newer, kMagic, limits);
    const auto again = RecordTable::parse(merged, kMagic);
    if (!again)
        fail("a table that was written can't be read");
    const auto added = again->find(key);
    if (!added || added->bytes != Bytes{3})
        fail("a record that was added isn't found");
    if (RecordTable::merge({&*again, 1}, {}, kMagic, limits) != merged)
        fail("a table that was read is another one when it is written");
}

void readIndex(std::span<const uint8_t> content)
{
    constexpr char kMagic[8] = {'T', 'N', 'K', 'I', 'N', 'D', 'X', '3'};
    test::writeFile(folder.path + "/index/" + std::string(64, '0') + ".index", makeTable(kMagic, content));
    SourceIndex index(folder.path + "/index");
    // The fuzzer finds the hash under which this is looked up.
    const std::optional<ContentHash> known = index.find("/no/such/file.wav", base::FileStamp());
    if (known && std::search(content.begin(), content.end(), known->bytes.begin(), known->bytes.end()) == content.end())
        fail("a file is known by a hash that is in no record");
}

// 16 bits with the size of the encoded data, the data, and the record of the sound.
void readEntry(std::span<const uint8_t> content)
{
    if (content.size() < 2)
        return;
    const size_t dataBytes = std::min<size_t>(base::loadLittle<uint16_t>(content.data()), content.size() - 2);
    const auto data = content.subspan(2, dataBytes);
    const auto rest = content.subspan(2 + dataBytes);
    Bytes record(rest.begin(), rest.end());
    const uint64_t checksum = bank::checksum(data);
    if (record.size() >= bank::kSoundRecordBytes + 8) {
        const uint64_t setupBytes = base::loadLittle<uint64_t>(&record[bank::kSoundRecordBytes]);
        const uint64_t chunksAt = bank::kSoundRecordBytes + 8 + setupBytes;
        if (setupBytes < record.size() && chunksAt <= record.size())
            base::storeLittle(&record[32], bank::checksum(std::span(record).subspan(chunksAt)));
        base::storeLittle(&record[56], uint64_t(dataBytes));
        base::storeLittle(&record[64], checksum);
    }
    const ContentHash key;
    const CacheEntryHeader made = CacheEntryHeader::make(key, dataBytes, checksum, record);
    Bytes file;
    base::appendLittle(file, made);
    file.insert(file.end(), data.begin(), data.end());
    file.insert(file.end(), record.begin(), record.end());
    test::writeFile(folder.path + "/sounds/0/" + std::string(63, '0'), file);

    Remarks remarks;
    CacheFolder cacheFolder(folder.path, remarks);
    Cache cache(cacheFolder, true);
    const std::optional<CacheEntry> entry = cache.find(key, {});
    const base::Result<bank::Sound> sound = bank::deserialise(record);
    if (bool(entry) != (sound && bank::serialise(*sound) == record))
        fail("an entry is there without a sound in it, or the other way round");
    if (entry && (entry->record != record || entry->dataBytes != dataBytes || entry->codec != sound->codec))
        fail("an entry is read as another one");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const std::span content(data + 1, size - 1);
    constexpr void (*kReaders[])(std::span<const uint8_t>) = {readEntry, readRecords, readIndex};
    kReaders[data[0] % 3](content);
    return 0;
}
