// SPDX-License-Identifier: MIT
// The resources that opening files takes, and whether they are freed.
#include "source_kinds.hpp"

#include <malloc.h>

#include <atomic>
#include <filesystem>
#include <thread>

using namespace test;

namespace {

const std::string kBadFile("RIFF\x24\x01\0\0WAVEfmt \x10", 17);

ptrdiff_t openDescriptors()
{
    using Iterator = std::filesystem::directory_iterator;
    return std::distance(Iterator("/proc/self/fd"), Iterator());
}

} // namespace

TEST(TenThousandFiles, LeakNoDescriptorAndNoMemory)
{
    writeFile("bad.wav", kBadFile);
    writeFile("text.wav", "nothing");
    const auto pass = [&] {
        for (const SourceKind& kind : sourceKinds()) {
            const SoundPointer sound = engine().open(exampleFile(kind));
            float frame[32];
            EXPECT_EQ(sound->readFloat(frame, 1, nullptr), KESS_OK);
            EXPECT_EQ(sound->seekData(0), KESS_OK);
        }
        EXPECT_EQ(engine().tryOpen("bad.wav"), KESS_ERR_FILE_BAD);
        EXPECT_EQ(engine().tryOpen("text.wav"), KESS_ERR_FORMAT);
    };
    // The libraries allocate permanent tables on first use.
    for (int i = 0; i < 20; ++i)
        pass();
    const ptrdiff_t descriptors = openDescriptors();
    malloc_trim(0);
    const size_t memory = mallinfo2().uordblks;
    const size_t passes = 10000 / (sourceKinds().size() + 2);
    for (size_t i = 0; i < passes; ++i)
        pass();
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_LE(mallinfo2().uordblks, memory + 65536);
}

TEST(OneEngine, OpensAndDecodesOnSeveralThreadsAtOnce)
{
    std::vector<std::vector<float>> expected;
    for (const SourceKind& kind : sourceKinds())
        expected.push_back(readFloats(*engine().open(exampleFile(kind))));
    writeFile("bad.wav", kBadFile);
    std::atomic<int> differences = 0;
    std::vector<std::jthread> threads;
    for (size_t thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            const size_t count = sourceKinds().size();
            for (size_t i = 0; i < count; ++i) {
                const size_t kind = (i + thread * count / 8) % count;
                differences += readFloats(*engine().open(exampleFile(sourceKinds()[kind]))) != expected[kind];
                differences += engine().tryOpen("bad.wav") != KESS_ERR_FILE_BAD;
            }
        });
    }
    threads.clear(); // waits until they have ended
    EXPECT_EQ(differences, 0);
}
