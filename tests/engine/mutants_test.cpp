// SPDX-License-Identifier: MIT
// Files of every kind with random damage.
#include "source_kinds.hpp"
#include "support/bank_maker.hpp"
#include "support/engine_use.hpp"

#include <algorithm>

using namespace test;

namespace {

// Damages the bytes in one way, mostly in the headers: modifies, cuts, removes or duplicates some of them.
void mutate(std::vector<uint8_t>& bytes, bank_test::Noise& noise)
{
    const size_t reach = noise.next() % 4 ? std::min<size_t>(bytes.size(), 256) : bytes.size();
    const auto begin = bytes.begin() + ptrdiff_t(noise.next() % reach);
    const auto end = begin + std::min<ptrdiff_t>(noise.next() % 64, bytes.end() - begin);
    const uint32_t way = noise.next() % 6;
    if (way == 0) {
        bytes.erase(begin + 1, bytes.end());
    } else if (way == 1) {
        bytes.erase(begin, end);
    } else if (way == 2) {
        const std::vector<uint8_t> copy(begin, end);
        bytes.insert(bytes.begin() + ptrdiff_t(noise.next() % bytes.size()), copy.begin(), copy.end());
    } else {
        bank_test::tamper(std::span(bytes).first(reach), noise);
    }
    if (bytes.empty())
        bytes.push_back(0);
}

} // namespace

TEST(DamagedFiles, GiveOnlyResultsThatMeanAFaultyFile)
{
    constexpr int kMutantsOfEach = 60;
    std::vector<std::vector<uint8_t>> originals;
    for (const SourceKind& kind : sourceKinds())
        originals.push_back(readFile(exampleFile(kind)));
    sourceKinds()[1].make("tagged.wav", sine(2, 44100, 3000));
    addWavTags("tagged.wav", {{{10, 2000}}, {{5, "a"}, {900, "name"}}});
    originals.push_back(readFile("tagged.wav"));
    for (const std::string_view key : {"", "key"}) {
        bank_test::MemorySound sound(2, 48000, tones(3000, 2, {0.01}, 0.5f));
        originals.push_back(bank_test::makeBank({bank_test::encode(bank::Codec::Vorbis, sound)}, {}, key));
    }
    for (const char* stub : {"MThd", "IMPM", "Extended Module: ", "#EXTM3U\n", "[playlist]\n", "RIFF\x10\1\1\1RMID"}) {
        originals.emplace_back(stub, stub + std::string(stub).size());
        originals.back().resize(1200);
    }

    bank_test::Noise noise(20260101);
    int count = 0;
    for (const std::vector<uint8_t>& original : originals) {
        for (int i = 0; i < kMutantsOfEach; ++i, ++count) {
            std::vector<uint8_t> bytes = original;
            for (uint32_t damages = 1 + noise.next() % 4; damages > 0; --damages)
                mutate(bytes, noise);
            writeFile("mutant", bytes);
            ASSERT_EQ(useFile("mutant"), "") << "mutant " << count;
        }
    }
    EXPECT_GE(count, 2000);
}
