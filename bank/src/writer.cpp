// SPDX-License-Identifier: MIT
#include "bank/writer.hpp"

#include "bank/checksum.hpp"
#include "base/utf8.hpp"
#include "encryption.hpp"
#include "layout.hpp"

#include <algorithm>
#include <cassert>
#include <map>

namespace bank {

using namespace layout;
using base::Error;
using base::ErrorCode;
using base::Result;

namespace {

// Small enough to stay in the processor's cache while it is checked and written.
constexpr size_t kPartBytes = 256 * 1024;

// Writes at rising offsets and fills the gaps with zeros.
class Assembler
{
public:
    Assembler(base::ByteSink& sink, std::stop_token stop)
        : mSink(sink)
        , mStop(std::move(stop))
    { }

    Result<> pad(uint64_t offset)
    {
        static constexpr std::array<uint8_t, kDataAlignment> zeros{};
        assert(offset >= mOffset && offset - mOffset < zeros.size());
        return write(std::span(zeros).first(static_cast<size_t>(offset - mOffset)));
    }

    Result<> write(std::span<const uint8_t> bytes)
    {
        if (mStop.stop_requested())
            return Error{ErrorCode::Cancelled};
        mOffset += bytes.size();
        return bytes.empty() ? Result<>() : mSink.write(bytes);
    }

    // Computes the checksum of exactly the bytes that are written. With a separate pass before or after, they could
    // change in between.
    Result<> copy(const base::ByteSource& source, uint64_t offset, uint64_t size, uint64_t expected)
    {
        RunningChecksum found;
        mPart.resize(kPartBytes);
        while (size > 0) {
            const std::span part = std::span(mPart).first(static_cast<size_t>(std::min<uint64_t>(size, kPartBytes)));
            if (const Result<> result = source.readAt(offset, part); !result)
                return result.error();
            found.add(part);
            if (const Result<> result = write(part); !result)
                return result.error();
            offset += part.size();
            size -= part.size();
        }
        if (found.value() != expected)
            return Error{ErrorCode::Damaged};
        return {};
    }

private:
    base::ByteSink& mSink;
    std::stop_token mStop;
    uint64_t mOffset = 0;
    std::vector<uint8_t> mPart;
};

} // namespace

// What was added, and the layout of the bank.
struct BankWriter::Plan
{
    BankSettings settings;
    std::vector<Row> rows; // setup and name are filled in, the other offsets aren't yet
    std::string names;
    std::vector<std::vector<uint8_t>> setups;
    std::map<std::vector<uint8_t>, uint32_t> setupIndex;

    // Everything before the sounds, and the offset of each sound.
    struct Laid
    {
        std::vector<uint8_t> front; // header and tables
        std::vector<uint64_t> setupOffsets;
        std::vector<Row> rows;
        std::array<uint8_t, 16> guid{};
        uint64_t fileBytes = 0;
    };
    [[nodiscard]] Laid lay() const;

private:
    void layTables(Header* header, Laid* laid) const;
    void layNameIndex(uint8_t* index) const;
    void laySounds(uint64_t offset, Laid* laid) const;
    [[nodiscard]] std::array<uint8_t, 16> makeGuid(const std::vector<uint8_t>& front) const;
};

BankWriter::Plan::Laid BankWriter::Plan::lay() const
{
    Laid laid;
    laid.rows = rows;
    Header header;
    header.prefix.headerBytes = kHeaderBytes;
    header.prefix.flags = (settings.guid ? kFlagGuid : 0) | (settings.names ? kFlagNames : 0);
    header.format = static_cast<uint32_t>(settings.format);
    header.quality = settings.quality;
    header.soundCount = static_cast<uint32_t>(rows.size());
    layTables(&header, &laid);

    header.prefix.fileBytes = laid.fileBytes;
    header.tablesBytes = laid.front.size() - kHeaderBytes;
    header.tablesChecksum = checksum(std::span(laid.front).subspan(kHeaderBytes));
    store(header, laid.front.data());
    if (settings.guid) {
        laid.guid = makeGuid(laid.front);
        header.guid = laid.guid;
        store(header, laid.front.data());
    }
    return laid;
}

void BankWriter::Plan::layTables(Header* header, Laid* laid) const
{
    header->rowsOffset = kHeaderBytes;
    header->rowBytes = kSoundRecordBytes;
    header->setupRowsOffset = header->rowsOffset + rows.size() * kSoundRecordBytes;
    header->setupCount = static_cast<uint32_t>(setups.size());
    header->nameIndexOffset = header->setupRowsOffset + setups.size() * kSetupRowBytes;
    header->nameIndexCount = settings.names ? static_cast<uint32_t>(rows.size()) : 0;
    header->namesOffset = header->nameIndexOffset + header->nameIndexCount * kNameIndexBytes;
    header->namesBytes = names.size();
    laid->front.resize(static_cast<size_t>(alignedUp(header->namesOffset + names.size(), 8)));

    uint64_t offset = laid->front.size();
    for (size_t i = 0; i < setups.size(); ++i) {
        offset = alignedUp(offset, kDataAlignment);
        store(SetupRow{offset, checksum(setups[i]), static_cast<uint32_t>(setups[i].size())},
              laid->front.data() + header->setupRowsOffset + i * kSetupRowBytes);
        laid->setupOffsets.push_back(offset);
        offset += setups[i].size();
    }
    laySounds(offset, laid);
    for (size_t i = 0; i < rows.size(); ++i)
        store(laid->rows[i], laid->front.data() + header->rowsOffset + i * kSoundRecordBytes);
    if (header->nameIndexCount > 0)
        layNameIndex(laid->front.data() + header->nameIndexOffset);
    std::copy(names.begin(), names.end(), laid->front.begin() + static_cast<ptrdiff_t>(header->namesOffset));
}

void BankWriter::Plan::laySounds(uint64_t offset, Laid* laid) const
{
    for (Row& row : laid->rows) {
        offset = alignedUp(offset, 8);
        row.chunksOffset = offset;
        offset = alignedUp(offset + row.chunksBytes, kDataAlignment);
        row.dataOffset = offset;
        offset += row.dataBytes;
    }
    laid->fileBytes = offset;
}

void BankWriter::Plan::layNameIndex(uint8_t* index) const
{
    std::vector<NameIndexRow> sorted;
    sorted.reserve(rows.size());
    for (uint32_t i = 0; i < rows.size(); ++i)
        sorted.push_back({nameHash(base::textBytes(names).subspan(rows[i].nameOffset, rows[i].nameBytes)), i});
    std::sort(sorted.begin(), sorted.end());
    for (const NameIndexRow& row : sorted) {
        store(row, index);
        index += kNameIndexBytes;
    }
}

// The tables contain the checksums of all chunks, setups and data, so their digest depends on the whole content.
std::array<uint8_t, 16> BankWriter::Plan::makeGuid(const std::vector<uint8_t>& front) const
{
    DigestSink digest;
    (void)digest.write(front);
    std::array<uint8_t, 16> guid;
    std::copy_n(digest.tag().begin(), guid.size(), guid.begin());
    // Version 8 (vendor-specific) and variant of RFC 9562, in the byte order in which a GUID is printed.
    guid[6] = static_cast<uint8_t>((guid[6] & 0x0f) | 0x80);
    guid[8] = static_cast<uint8_t>((guid[8] & 0x3f) | 0x80);
    return guid;
}

BankWriter::BankWriter(const BankSettings& settings)
    : mPlan(std::make_unique<Plan>())
{
    mPlan->settings = settings;
}

BankWriter::~BankWriter() = default;

void BankWriter::add(std::string_view name, const Sound& sound)
{
    Row row = makeRow(sound, packChunks(sound));
    assert(plausible(row) && name.find('\0') == std::string_view::npos);
    row.setup = kNoSetup;
    if (!sound.setup.empty()) {
        const auto [entry, added] = mPlan->setupIndex.emplace(sound.setup, static_cast<uint32_t>(mPlan->setups.size()));
        if (added)
            mPlan->setups.push_back(sound.setup);
        row.setup = entry->second;
    }
    if (mPlan->settings.names) {
        name = base::cutAtCharacter(name, kMaximumNameBytes);
        row.nameOffset = static_cast<uint32_t>(mPlan->names.size());
        row.nameBytes = static_cast<uint32_t>(name.size());
        mPlan->names += name;
    }
    mPlan->rows.push_back(row);
}

uint64_t BankWriter::fileBytes() const
{
    return mPlan->lay().fileBytes;
}

uint64_t BankWriter::encryptedFileBytes() const
{
    return encryptedBytes(fileBytes());
}

namespace {

// Checks that the stored sound is the one whose row was made when it was added.
Result<> checkStored(const StoredSound& stored, Row row)
{
    std::array<uint8_t, kSoundRecordBytes> record;
    if (const Result<> result = stored.source->readAt(stored.recordOffset, record); !result)
        return result.error();
    row.setup = 0;
    row.nameOffset = 0;
    row.nameBytes = 0;
    row.chunksOffset = 0;
    row.dataOffset = 0;
    if (loadRow(record.data()) != row)
        return Error{ErrorCode::Damaged};
    return {};
}

Result<> writeSound(Assembler& assembler, StoredSounds& sounds, size_t index, const Row& row, size_t setupBytes)
{
    if (const Result<> result = assembler.pad(row.chunksOffset); !result)
        return result.error();
    const Result<StoredSound> stored = sounds.open(index);
    if (!stored)
        return stored.error();
    if (const Result<> result = checkStored(*stored, row); !result)
        return result.error();
    const uint64_t chunks = stored->recordOffset + kSerialisedHeadBytes + setupBytes;
    if (const Result<> result = assembler.copy(*stored->source, chunks, row.chunksBytes, row.chunksChecksum); !result)
        return result.error();
    if (const Result<> result = assembler.pad(row.dataOffset); !result)
        return result.error();
    const base::ByteSource& data = stored->dataSource ? *stored->dataSource : *stored->source;
    return assembler.copy(data, stored->dataOffset, row.dataBytes, row.dataChecksum);
}

} // namespace

Result<> BankWriter::write(base::ByteSink& sink, StoredSounds& stored, std::stop_token stop) const
{
    const Plan::Laid laid = mPlan->lay();
    if (laid.front.size() - kHeaderBytes > kMaximumTablesBytes)
        return Error{ErrorCode::Invalid, "the names of the sounds take more space than a bank has for its tables"};
    Assembler assembler(sink, std::move(stop));
    if (const Result<> result = assembler.write(laid.front); !result)
        return result.error();
    for (size_t i = 0; i < mPlan->setups.size(); ++i) {
        if (const Result<> result = assembler.pad(laid.setupOffsets[i]); !result)
            return result.error();
        if (const Result<> result = assembler.write(mPlan->setups[i]); !result)
            return result.error();
    }
    for (size_t i = 0; i < laid.rows.size(); ++i) {
        const Row& row = laid.rows[i];
        const size_t setupBytes = row.setup == kNoSetup ? 0 : mPlan->setups[row.setup].size();
        if (const Result<> result = writeSound(assembler, stored, i, row, setupBytes); !result)
            return result.error();
    }
    return {};
}

Result<> BankWriter::writeEncrypted(base::ByteSink& sink, StoredSounds& stored, std::string_view key,
                                    const std::stop_token& stop) const
{
    if (key.empty())
        return Error{ErrorCode::Invalid};
    DigestSink digest;
    if (const Result<> result = write(digest, stored, stop); !result)
        return result.error();

    EncryptedHeader header = makeEncryptedHeader(digest.bytes(), digest.tag());
    const Result<std::shared_ptr<const PieceKeys>> keys = PieceKeys::derive(header, key);
    if (!keys)
        return keys.error();
    header.keyCheck = (*keys)->check();
    if (const Result<> result = sink.write(pack(header)); !result)
        return result.error();

    EncryptingSink encrypting(sink, *keys, digest.tag());
    if (const Result<> result = write(encrypting, stored, stop); !result)
        return result.error();
    return encrypting.finish();
}

} // namespace bank
