// SPDX-License-Identifier: MIT
// Loops and markers: found in each format, and used in playback.
#include "source_kinds.hpp"

#include <cstring>
#include <numeric>

using namespace test;

namespace {

// Samples whose values are their positions.
void writeRamp(const std::string& path, int format, size_t frames)
{
    std::vector<int32_t> samples(frames);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = int32_t(i << 16);
    writeIntegers(path, format, 1, 44100, samples);
}

} // namespace

TEST(WavTags, GiveLoopAndMarkersAndThoseOutsideTheSoundAreLeftOut)
{
    writeRamp("tags.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1000);
    addWavTags(
        "tags.wav",
        {{{100, 499}}, {{700, "late"}, {5, "caf\xc3\xa9"}, {1000, "end"}, {1001, "after"}, {0, ""}, {6, "caf\xe9"}}});
    const SoundPointer sound = engine().open("tags.wav");
    EXPECT_EQ(readLoop(*sound), std::pair(uint64_t{100}, uint64_t{500}));
    EXPECT_EQ(readSyncPoints(*sound),
              (SyncPoints{{0, ""}, {5, "caf\xc3\xa9"}, {6, "caf\xc3\xa9"}, {700, "late"}, {1000, "end"}}));

    // A name that is too long is cut between characters.
    char name[5];
    EXPECT_EQ(sound->getSyncPoint(1, nullptr, name, sizeof name), KESS_ERR_TRUNCATED);
    EXPECT_STREQ(name, "caf");

    for (const std::pair<uint32_t, uint32_t>& wrong :
         {std::pair(1000u, 1000u), std::pair(10u, 8u), std::pair(~0u, ~0u)}) {
        writeRamp("wrong.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1000);
        addWavTags("wrong.wav", {wrong, {}});
        EXPECT_EQ(engine().open("wrong.wav")->getLoopPoints(nullptr, nullptr), KESS_ERR_TAGNOTFOUND);
    }
}

TEST(ALoopThatEndsPastTheSound, EndsWithItWhicheverTagGivesIt)
{
    constexpr uint64_t kFrames = 1000;
    for (const uint32_t last : {998u, 999u, 1000u, 5000u, ~0u}) {
        SCOPED_TRACE(last);
        const std::pair<uint64_t, uint64_t> expected{100, std::min<uint64_t>(uint64_t{last} + 1, kFrames)};
        writeRamp("far.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, kFrames);
        addWavTags("far.wav", {{{100, last}}, {}});
        EXPECT_EQ(readLoop(*engine().open("far.wav")), expected);
        if (!canEncode())
            continue;
        const uint64_t end = uint64_t{last} + 1;
        for (const FileTags& tags : {FileTags{{"LOOPSTART", "100"}, {"LOOPEND", std::to_string(end)}},
                                     FileTags{{"LOOPSTART", "100"}, {"LOOPLENGTH", std::to_string(end - 100)}}}) {
            encodeSound("far", "flac", "flac", sine(1, 44100, kFrames), tags);
            EXPECT_EQ(readLoop(*engine().open("far")), expected);
        }
    }
}

TEST(AiffTags, GiveTheSustainLoopAndTheMarkersThatAreNoLoop)
{
    writeRamp("tags.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 1000);
    using namespace std::string_literals;
    const auto bigChunk = [](const std::string& id, const std::string& data) {
        return id + "\0\0\0"s + char(data.size()) + data;
    };
    const std::string instrument = "\x3c\0\0\x7f\1\x7f\0\0"s + "\0\1\0\1\0\2"s + "\0\0\0\0\0\0"s;
    const std::string plain = readText("tags.aiff");
    // A marker of the end may be directly after the last sample, but not further.
    for (const auto& [last, end] :
         {std::pair("\1\xf4"s, 500), std::pair("\3\xe8"s, 1000), std::pair("\3\xe9"s, 1000)}) {
        const std::string markers = "\0\4"s + "\0\1\0\0\0\x64\4loop\0"s + "\0\2\0\0"s + last + "\3end"s
            + "\0\7\0\0\0\x0a\2hi\0"s + "\0\3\0\xff\0\0\1x"s;
        writeFile("tags.aiff", plain + bigChunk("MARK", markers) + bigChunk("INST", instrument));
        const SoundPointer sound = engine().open("tags.aiff");
        EXPECT_EQ(readLoop(*sound), std::pair(uint64_t{100}, uint64_t(end)));
        EXPECT_EQ(readSyncPoints(*sound), (SyncPoints{{10, "hi"}}));
    }
}

TEST(Comments, GiveLoopAndChaptersInEachFormatThatHasThem)
{
    if (!canEncode())
        GTEST_SKIP();
    const FileTags chapters{{"CHAPTER001", "00:00:00.500"},
                            {"CHAPTER001NAME", "bridge"},
                            {"CHAPTER002", "00:00:01.25"},
                            {"CHAPTER003", "99:00:00.000"},
                            {"CHAPTER004", "nonsense"}};
    const FileTags loops[] = {{{"LoopStart", "1000"}, {"LOOPLENGTH", "2000"}},
                              {{"LOOPSTART", "1000"}, {"loopend", "3000"}}};
    const std::tuple<const char*, const char*, int> formats[] = {{"flac", "flac", 48000},
                                                                 {"ogg", "libvorbis", 48000},
                                                                 {"ogg", "libopus", 48000},
                                                                 {"ogg", "flac", 48000},
                                                                 {"ogg", "libspeex", 32000}};
    for (const auto& [container, encoder, rate] : formats) {
        for (const auto& loop : loops) {
            SCOPED_TRACE(encoder);
            auto tags = chapters;
            tags.insert(tags.end(), loop.begin(), loop.end());
            encodeSound("tagged", container, encoder, sine(2, rate, size_t(2 * rate)), tags);
            const SoundPointer sound = engine().open("tagged");
            EXPECT_EQ(readLoop(*sound), std::pair(uint64_t{1000}, uint64_t{3000}));
            const auto second = uint64_t(rate);
            EXPECT_EQ(readSyncPoints(*sound), (SyncPoints{{second / 2, "bridge"}, {second * 5 / 4, ""}}));
        }
    }
}

TEST(Reading, RepeatsTheLoopAsOftenAsRequestedWhateverTheSizeOfTheReads)
{
    writeRamp("loop.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 100);
    addWavTags("loop.wav", {{{10, 12}}, {}});
    const auto expected = [](int loops) {
        std::vector<int16_t> samples(100);
        std::iota(samples.begin(), samples.end(), int16_t{0});
        for (int i = 0; i < loops; ++i)
            samples.insert(samples.begin() + 13, {10, 11, 12});
        return samples;
    };
    for (const int loops : {0, 1, 5}) {
        for (const unsigned size : {2u, 6u, 10u, 26u, 1000u}) {
            const SoundPointer sound = engine().open("loop.wav");
            ASSERT_EQ(sound->setLoopCount(loops), KESS_OK);
            const std::vector<uint8_t> bytes = readBytes(*sound, size);
            std::vector<int16_t> samples(bytes.size() / 2);
            std::memcpy(samples.data(), bytes.data(), bytes.size());
            EXPECT_EQ(samples, expected(loops)) << loops << " loops, reads of " << size;
        }
    }

    // Without end, until the count is set back. A start after the loop never enters it.
    const SoundPointer sound = engine().open("loop.wav");
    ASSERT_EQ(sound->setLoopCount(-1), KESS_OK);
    EXPECT_EQ(readFloats(*sound, 10000).back(), float(10 + (9999 - 10) % 3) / 32768);
    ASSERT_EQ(sound->setLoopCount(0), KESS_OK);
    EXPECT_LT(readFloats(*sound).size(), 100u);
    ASSERT_EQ(sound->setLoopCount(-1), KESS_OK);
    ASSERT_EQ(sound->seekData(13), KESS_OK);
    EXPECT_EQ(readFloats(*sound).size(), 87u);
}
