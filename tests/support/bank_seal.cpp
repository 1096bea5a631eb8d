#include "bank_seal.hpp"

#include "bank/checksum.hpp"
#include "encryption.hpp"
#include "layout.hpp"

#include <algorithm>
#include <cstdlib>

namespace bank_test {

namespace {

using namespace bank::layout;

class Sealer
{
public:
    explicit Sealer(std::vector<uint8_t>& bytes)
        : mBytes(bytes)
        , mHeader(loadHeader(bytes.data()))
    { }

    void sealRows()
    {
        const uint64_t count = std::min<uint64_t>(mHeader.soundCount, mBytes.size());
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t place = mHeader.rowsOffset + i * mHeader.rowBytes;
            if (mHeader.rowBytes < bank::kSoundRecordBytes || !isInside(place, bank::kSoundRecordBytes))
                return;
            const Row row = loadRow(&mBytes[size_t(place)]);
            put(place + 32, row.chunksOffset, row.chunksBytes);
            put(place + 64, row.dataOffset, row.dataBytes);
        }
    }

    void sealSetups()
    {
        const uint64_t count = std::min<uint64_t>(mHeader.setupCount, mBytes.size());
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t place = mHeader.setupRowsOffset + i * kSetupRowBytes;
            if (!isInside(place, kSetupRowBytes))
                return;
            const SetupRow row = loadSetupRow(&mBytes[size_t(place)]);
            put(place + 8, row.offset, row.bytes);
        }
    }

    void sealHeader()
    {
        bank::storeLittle<uint64_t>(&mBytes[32], mBytes.size());
        const uint64_t headerBytes = mHeader.prefix.headerBytes;
        put(120, headerBytes, mHeader.tablesBytes);
        if (headerBytes >= 8)
            put(headerBytes - 8, 0, headerBytes - 8);
    }

private:
    [[nodiscard]] bool isInside(uint64_t offset, uint64_t size) const
    {
        return bank::rangeInside(offset, size, mBytes.size());
    }

    void put(uint64_t place, uint64_t offset, uint64_t size)
    {
        if (!isInside(place, 8) || !isInside(offset, size))
            return;
        const uint64_t sum = bank::checksum(std::span(mBytes).subspan(size_t(offset), size_t(size)));
        bank::storeLittle(&mBytes[size_t(place)], sum);
    }

    std::vector<uint8_t>& mBytes;
    Header mHeader;
};

} // namespace

void sealBank(std::vector<uint8_t>* bytes)
{
    if (bytes->size() < kHeaderBytes)
        return;
    Sealer sealer(*bytes);
    sealer.sealSetups();
    sealer.sealRows();
    sealer.sealHeader();
}

std::vector<uint8_t> encryptBank(const std::vector<uint8_t>& plain, std::string_view key)
{
    bank::DigestSink digest;
    (void)digest.write(plain);
    bank::EncryptedHeader header = bank::makeEncryptedHeader(plain.size(), digest.tag());
    header.passes = 1;
    header.memoryKiB = 8;
    const std::vector<uint8_t> front = pack(header);
    std::copy_n(front.begin(), header.bound.size(), header.bound.begin());

    const auto keys = bank::PieceKeys::derive(header, key);
    if (!keys)
        std::abort();
    header.keyCheck = (*keys)->check();
    bank::MemorySink sink;
    bank::EncryptingSink encrypting(sink, *keys, digest.tag());
    if (sink.write(pack(header)) != bank::Error::None || encrypting.write(plain) != bank::Error::None
        || encrypting.finish() != bank::Error::None)
        std::abort();
    return sink.take();
}

} // namespace bank_test
