// SPDX-License-Identifier: MIT
// Files of every kind with random damage.
#include "source_kinds.hpp"
#include "support/bank_maker.hpp"
#include "support/engine_use.hpp"

#include <algorithm>

using namespace test;

namespace {

// Damages the bytes in one way, mostly in the headers: modifies, cuts, removes or duplicates some of them.
void mutate(std::vector<uint8_t>& bytes, std::mt19937& random)
{
    const size_t reach = random() % 4 ? std::min<size_t>(bytes.size(), 256) : bytes.size();
    const auto begin = bytes.begin() + ptrdiff_t(random() % reach);
    const auto end = begin + std::min(ptrdiff_t(random() % 64), bytes.end() - begin);
    const auto way = random() % 6;
    if (way == 0) {
        bytes.erase(begin + 1, bytes.end());
    } else if (way == 1) {
        bytes.erase(begin, end);
    } else if (way == 2) {
        const std::vector<uint8_t> copy(begin, end);
        bytes.insert(bytes.begin() + ptrdiff_t(random() % bytes.size()), copy.begin(), copy.end());
    } else {
        bank_test::tamper(std::span(bytes).first(reach), random);
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
        originals.push_back(
            bank_test::makeBank({bank_test::encode(bank::Codec::Vorbis, sine(2, 48000, 3000))}, {}, key));
    }
    for (const char* stub : {"MThd", "IMPM", "Extended Module: ", "#EXTM3U\n", "[playlist]\n", "RIFF\x10\1\1\1RMID"}) {
        originals.emplace_back(stub, stub + std::string(stub).size());
        originals.back().resize(1200);
    }

    std::mt19937 random(20260101);
    int count = 0;
    for (const std::vector<uint8_t>& original : originals) {
        for (int i = 0; i < kMutantsOfEach; ++i, ++count) {
            std::vector<uint8_t> bytes = original;
            for (auto damages = 1 + random() % 4; damages > 0; --damages)
                mutate(bytes, random);
            writeFile("mutant", bytes);
            ASSERT_EQ(useBank("mutant", nullptr), "") << "mutant " << count;
        }
    }
    EXPECT_GE(count, 2000);
}
