// SPDX-License-Identifier: MIT
// Thousands of banks with modified bytes, most of them with all checksums corrected.
#include "bank/checksum.hpp"
#include "layout.hpp"
#include "support/bank_maker.hpp"
#include "support/bank_seal.hpp"
#include "support/engine_use.hpp"
#include "support/limit.hpp"
#include "support/sound_files.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include <unistd.h>

using namespace bank_test;
using bank::Codec;

namespace {

constexpr const char* kKey = "key";

// How many mutants of each kind are made of each bank; TARNOK_MUTANTS multiplies the number for a longer run.
int mutants()
{
    constexpr int kUsual = 680; // about 20,700 mutants in all
    const char* factor = std::getenv("TARNOK_MUTANTS");
    return kUsual * (factor ? std::max(std::atoi(factor), 1) : 1);
}

// A small bank may take as much memory as the decoders and Argon2id need, whatever numbers it contains. A larger
// allocation fails, and the engine reports that. The sanitizers need unlimited memory.
test::Limit limitMemory()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return {RLIMIT_AS, RLIM_INFINITY};
#else
    constexpr rlim_t kMaximumBytes = 80 << 20;
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return {RLIMIT_AS, pages * rlim_t(sysconf(_SC_PAGESIZE)) + kMaximumBytes};
#endif
}

std::vector<EncodedSound> makeSounds(Codec codec)
{
    std::vector<EncodedSound> sounds;
    const int rate = codec == Codec::Opus ? 48'000 : 44'100;
    for (const int channels : {1, 2}) {
        MemorySound sound({channels, rate, tones(3'000, channels, {0.01, 0.033}, 0.5f)});
        sound.setLoop(base::Loop{500, 2'900});
        sounds.push_back(encode(codec, sound, 30, "sound " + std::to_string(channels)));
        sounds.back().sound.syncPoints = {{10, "first"}, {2'999, "last"}};
        sounds.back().sound.peak = 0.5f;
    }
    return sounds;
}

// The parts of a bank that are modified one at a time: header, tables, chunks, setup and data.
std::vector<std::span<uint8_t>> findParts(std::vector<uint8_t>& bytes)
{
    using namespace bank::layout;
    const std::span all = bytes;
    const Header header = loadHeader(bytes.data());
    std::vector<std::span<uint8_t>> parts = {all.first(152),
                                             all.subspan(header.prefix.headerBytes, size_t(header.tablesBytes))};
    for (uint32_t i = 0; i < header.soundCount; ++i) {
        const Row row = loadRow(&bytes[size_t(header.rowsOffset) + i * bank::kSoundRecordBytes]);
        parts.push_back(all.subspan(size_t(row.chunksOffset), row.chunksBytes));
        parts.push_back(all.subspan(size_t(row.dataOffset), size_t(row.dataBytes)));
    }
    if (header.setupCount > 0) {
        const SetupRow row = loadSetupRow(&bytes[size_t(header.setupRowsOffset)]);
        parts.push_back(all.subspan(size_t(row.offset), row.bytes));
    }
    return parts;
}

// Writes the bytes to a file, and has the engine use and verify it.
void tryBank(const std::vector<uint8_t>& bytes)
{
    test::writeFile("mutant.tnb", bytes);
    ASSERT_EQ(test::useBank("mutant.tnb", kKey), "");
}

} // namespace

using HostileBank = testing::TestWithParam<Codec>;

TEST_P(HostileBank, GivesAnErrorOrSamplesWhicheverPartIsModified)
{
    const std::vector<uint8_t> bytes = makeBank(makeSounds(GetParam()));
    const std::vector<uint8_t> encrypted = makeBank(makeSounds(GetParam()), {}, kKey);
    tryBank(bytes);
    tryBank(encrypted);
    const test::Limit limit = limitMemory();
    std::mt19937 random(uint32_t(GetParam()) + 1);
    for (int i = 0; i < mutants() && !HasFatalFailure(); ++i) {
        std::vector<uint8_t> mutant = bytes;
        const size_t count = findParts(mutant).size();
        for (size_t part = 0; part < count; ++part) {
            mutant = bytes;
            std::span<uint8_t> tampered = findParts(mutant)[part];
            for (auto hits = random() % 3 + 1; hits > 0; --hits)
                tamper(tampered, random);
            if (i % 4)
                sealBank(&mutant);
            else
                base::storeLittle(mutant.data() + 152, bank::checksum(std::span(mutant).first(152)));
            // Some mutants are made with the key.
            tryBank(i % 6 ? mutant : encryptBank(mutant, kKey));
        }
        mutant.assign(bytes.begin(), bytes.begin() + ptrdiff_t(random() % bytes.size()));
        sealBank(&mutant);
        tryBank(mutant);
        if (i % 8 == 0) {
            mutant = encrypted;
            tamper(std::span(mutant).first(i % 16 ? 120 : mutant.size()), random);
            base::storeLittle(mutant.data() + 120, bank::checksum(std::span(mutant).first(120)));
            tryBank(mutant);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, HostileBank, testing::ValuesIn(kCodecs));
