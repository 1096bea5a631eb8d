// SPDX-License-Identifier: MIT
#include "bank_seal.hpp"

#include "bank/checksum.hpp"
#include "encryption.hpp"
#include "layout.hpp"

#include <cstdlib>

namespace bank_test {

using namespace bank::layout;

void sealBank(std::vector<uint8_t>* bytes)
{
    const uint64_t end = bytes->size();
    if (end < kHeaderBytes)
        return;
    const auto put = [&](uint64_t position, uint64_t offset, uint64_t size) {
        if (base::rangeInside(position, 8, end) && base::rangeInside(offset, size, end))
            base::storeLittle(&(*bytes)[position], bank::checksum(std::span(*bytes).subspan(offset, size)));
    };
    const Header header = loadHeader(bytes->data());
    uint64_t position = header.setupRowsOffset;
    for (uint32_t i = 0; i < header.setupCount && base::rangeInside(position, kSetupRowBytes, end); ++i) {
        const SetupRow row = loadSetupRow(&(*bytes)[position]);
        put(position + 8, row.offset, row.bytes);
        position += kSetupRowBytes;
    }
    position = header.rowsOffset;
    const uint32_t rows = header.rowBytes >= bank::kSoundRecordBytes ? header.soundCount : 0;
    for (uint32_t i = 0; i < rows && base::rangeInside(position, bank::kSoundRecordBytes, end); ++i) {
        const Row row = loadRow(&(*bytes)[position]);
        put(position + 32, row.chunksOffset, row.chunksBytes);
        put(position + 64, row.dataOffset, row.dataBytes);
        position += header.rowBytes;
    }
    base::storeLittle<uint64_t>(&(*bytes)[32], end);
    const uint64_t headerBytes = header.prefix.headerBytes;
    put(120, headerBytes, header.tablesBytes);
    if (headerBytes >= 8)
        put(headerBytes - 8, 0, headerBytes - 8);
}

std::vector<uint8_t> encryptBank(const std::vector<uint8_t>& plain, std::string_view key)
{
    bank::DigestSink digest;
    (void)digest.write(plain);
    bank::EncryptedHeader header = bank::makeEncryptedHeader(plain.size(), digest.tag());
    header.passes = 1;
    header.memoryKiB = 8;
    header = loadEncryptedHeader(pack(header));

    const auto keys = bank::PieceKeys::derive(header, key);
    if (!keys)
        std::abort();
    header.keyCheck = (*keys)->check();
    base::MemorySink sink;
    bank::EncryptingSink encrypting(sink, *keys, digest.tag());
    if (!sink.write(pack(header)) || !encrypting.write(plain) || !encrypting.finish())
        std::abort();
    return sink.take();
}

} // namespace bank_test
