// Files of every kind, damaged at random.
#include "source_kinds.hpp"
#include "support/bank_maker.hpp"
#include "support/engine_use.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace test;

namespace {

// One kind of damage to the bytes, mostly where headers are.
void mutate(std::vector<uint8_t>& bytes, std::mt19937& random)
{
    const auto below = [&](size_t limit) {
        return limit == 0 ? 0 : random() % limit;
    };
    const size_t reach = random() % 4 ? std::min<size_t>(bytes.size(), 256) : bytes.size();
    const size_t place = below(reach);
    constexpr uint32_t kEdges[] = {0, 1, 0x7f, 0x80, 0xff, 0x7fff, 0x8000, 0xffff, 0x7fffffff, 0x80000000, 0xffffffff};
    switch (random() % 6) {
    case 0:
        bytes[place] ^= static_cast<uint8_t>(1u << random() % 8);
        break;
    case 1:
        bytes[place] = static_cast<uint8_t>(random());
        break;
    case 2: {
        const uint32_t edge = kEdges[below(std::size(kEdges))];
        for (size_t i = 0; i < 4 && place + i < bytes.size(); ++i)
            bytes[place + i] = static_cast<uint8_t>(edge >> 8 * i);
        break;
    }
    case 3:
        bytes.resize(std::max<size_t>(place, 1));
        break;
    case 4: {
        const size_t count = std::min(below(64), bytes.size() - place);
        bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(place),
                    bytes.begin() + static_cast<std::ptrdiff_t>(place + count));
        if (bytes.empty())
            bytes.push_back(0);
        break;
    }
    default: {
        const std::vector<uint8_t> copy(bytes.begin() + static_cast<std::ptrdiff_t>(below(bytes.size())), bytes.end());
        bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(place), copy.begin(),
                     copy.begin() + static_cast<std::ptrdiff_t>(std::min<size_t>(copy.size(), 64)));
        break;
    }
    }
}

} // namespace

TEST(DamagedFiles, GiveOnlyTheResultsThatStandForAFilesFault)
{
    constexpr int kMutantsOfEach = 60;
    std::vector<std::vector<uint8_t>> originals;
    for (const SourceKind& kind : sourceKinds()) {
        kind.make("original", sine(kind.channels, kind.rate, 3000));
        originals.push_back(readFile("original"));
    }
    sourceKinds()[1].make("tagged.wav", sine(2, 44100, 3000));
    addWavTags("tagged.wav", {{{10, 2000}}, {{5, "a"}, {900, "name"}}});
    originals.push_back(readFile("tagged.wav"));
    for (const std::string_view key : {"", "key"}) {
        const Signal tone = sine(2, 48000, 3000);
        auto sound = bank_test::MemorySound::ofFloats(2, 48000, tone.samples);
        originals.push_back(bank_test::makeBank({bank_test::encode(bank::Codec::Vorbis, sound)}, {}, key));
    }
    for (const char* stub : {"MThd", "IMPM", "Extended Module: ", "#EXTM3U\n", "[playlist]\n", "RIFF\x10\1\1\1RMID"}) {
        std::vector<uint8_t> bytes(stub, stub + std::string(stub).size());
        bytes.resize(1200);
        originals.push_back(bytes);
    }

    std::mt19937 random(20260101);
    int count = 0;
    for (const std::vector<uint8_t>& original : originals) {
        for (int i = 0; i < kMutantsOfEach; ++i, ++count) {
            std::vector<uint8_t> bytes = original;
            for (uint32_t damages = 1 + random() % 4; damages > 0; --damages)
                mutate(bytes, random);
            writeFile("mutant", bytes);
            ASSERT_EQ(useFile("mutant"), "") << "mutant " << count;
        }
    }
    EXPECT_GE(count, 2000);
}
