// SPDX-License-Identifier: MIT
// What the engine reports about each kind of file, and what it decodes from it.
#include "source_kinds.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

using namespace test;

TEST(EveryKindOfFile, ReportsItsFactsAndDecodesToItsLengthFromAnyPosition)
{
    for (const SourceKind& kind : sourceKinds()) {
        SCOPED_TRACE(kind.name);
        const auto frames = size_t(kind.rate * 1.234);
        const Signal source = sine(kind.channels, kind.rate, frames);
        kind.make(kind.name, source);

        const SoundPointer sound = engine().open(kind.name);
        const Facts facts = readFacts(*sound);
        EXPECT_EQ(std::tuple(facts.type, facts.format, facts.channels, facts.rate),
                  std::tuple(kind.type, kind.format, kind.channels, float(kind.rate)));
        EXPECT_NEAR(double(facts.samples), double(frames), double(kind.tolerance));
        EXPECT_EQ(facts.milliseconds, facts.samples * 1000 / uint64_t(kind.rate));

        const std::vector<float> decoded = readFloats(*sound);
        ASSERT_EQ(decoded.size(), facts.samples * uint64_t(kind.channels));
        EXPECT_GE(signalToNoise(source.samples, decoded), kind.leastSnr);
        unsigned got = 1;
        float spare = 0;
        EXPECT_EQ(sound->readFloat(&spare, 1, &got), KESS_ERR_FILE_EOF);
        EXPECT_EQ(got, 0u);

        std::mt19937 random(7);
        for (int trial = 0; trial < 25; ++trial) {
            const uint64_t target = trial == 0 ? facts.samples - 1 : trial == 1 ? 0 : random() % facts.samples;
            ASSERT_EQ(sound->seekData(target), KESS_OK) << target;
            const std::vector<float> piece = readFloats(*sound, 500);
            ASSERT_EQ(piece.size(), std::min<uint64_t>(500, facts.samples - target) * uint64_t(kind.channels));
            for (size_t i = 0; i < piece.size(); ++i)
                ASSERT_NEAR(piece[i], decoded[target * uint64_t(kind.channels) + i], 1e-6) << target;
        }
        EXPECT_EQ(sound->seekData(facts.samples), KESS_OK);
        EXPECT_EQ(sound->seekData(facts.samples + 1), KESS_ERR_INVALID_POSITION);

        // With the same type as suggestion the file opens too; with another one it doesn't.
        EXPECT_EQ(engine().tryOpen(kind.name, kind.type), KESS_OK);
        const int other = kind.type == KESS_SOUND_TYPE_WAV ? KESS_SOUND_TYPE_MPEG : KESS_SOUND_TYPE_WAV;
        EXPECT_EQ(engine().tryOpen(kind.name, other), KESS_ERR_FORMAT);
    }
}

TEST(RawSamples, AreLocatedWhereTheFileStoresWhatIsDelivered)
{
    using Range = std::pair<uint64_t, uint64_t>; // offset and bytes; 0 if they aren't reported
    const auto readRange = [](const std::string& path) {
        Range range;
        SoundPointer sound;
        if (engine().open(path, &sound) == KESS_OK) {
            const KESS_RESULT result = sound->getRawSamples(&range.first, &range.second);
            EXPECT_EQ(result, range.second ? KESS_OK : KESS_ERR_UNSUPPORTED) << path;
        }
        return range;
    };
    size_t found = 0;
    for (const SourceKind& kind : sourceKinds()) {
        const std::string path = exampleFile(kind);
        const auto [offset, bytes] = readRange(path);
        if (bytes == 0)
            continue;
        ++found;
        const std::vector<uint8_t> file = readFile(path);
        ASSERT_LE(offset + bytes, file.size()) << path;
        EXPECT_TRUE(std::ranges::equal(readBytes(*engine().open(path)), std::span(file).subspan(offset, bytes)))
            << path;
    }
    EXPECT_GE(found, 4u);

    // Values in a header that change the meaning of the bytes, or leave it undefined. The format begins at byte 20 of
    // such a file: encoding, channels, rate, bytes per second, bytes per frame, bits.
    const std::vector<std::pair<size_t, uint16_t>> changes = {{20, 3}, {20, 6}, {20, 0xfffe}, {22, 1},  {22, 4},
                                                              {32, 2}, {32, 8}, {34, 8},      {34, 12}, {34, 24}};
    writeIntegers("plain.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 44100, randomIntegers(2000));
    EXPECT_EQ(readRange("plain.wav"), Range(44, 4000));
    std::vector<uint8_t> file = readFile("plain.wav");
    for (const auto& [offset, value] : changes) {
        std::vector<uint8_t> changed = file;
        std::memcpy(&changed[offset], &value, sizeof value);
        writeFile("changed.wav", changed);
        EXPECT_EQ(readRange("changed.wav"), Range()) << offset << " " << value;
    }
    // An incomplete frame doesn't count.
    file.resize(file.size() - 3);
    writeFile("cut.wav", file);
    EXPECT_EQ(readRange("cut.wav"), Range(44, 3996));
}

TEST(UncompressedSounds, AreDecodedBitForBitWhateverTheirDepth)
{
    const std::pair<int, int> cases[] = {
        {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 1},  {SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_24, 3},  {SF_FORMAT_WAV | SF_FORMAT_PCM_32, 4},
        {SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, 1}, {SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 2},
        {SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 3}, {SF_FORMAT_AIFF | SF_FORMAT_PCM_32, 4},
        {SF_FORMAT_FLAC | SF_FORMAT_PCM_S8, 1}, {SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2},
        {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 3}, {SF_FORMAT_W64 | SF_FORMAT_PCM_24, 3},
    };
    const std::vector<int32_t> numbers = randomIntegers(2 * 20011);
    for (const auto& [format, depth] : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << format);
        writeIntegers("bits", format, 2, 44100, numbers);
        std::vector<uint8_t> expected;
        for (int32_t number : numbers) {
            for (int byte = 4 - depth; byte < 4; ++byte)
                expected.push_back(uint8_t(uint32_t(number) >> 8 * byte));
        }
        const SoundPointer sound = engine().open("bits");
        unsigned bytes = 0;
        ASSERT_EQ(sound->getLength(&bytes, KESS_TIMEUNIT_PCMBYTES), KESS_OK);
        EXPECT_EQ(bytes, expected.size());
        EXPECT_TRUE(readBytes(*sound) == expected);
    }

    // So do floats beyond full scale.
    const Signal loud{2, 44100, tones(5000, 2, {0.01, 0.0237}, 3)};
    for (const int format : {SF_FORMAT_WAV, SF_FORMAT_AIFF}) {
        const SoundPointer sound = engine().open(writeSound("loud", format | SF_FORMAT_FLOAT, loud));
        EXPECT_TRUE(std::ranges::equal(readBytes(*sound), std::as_bytes(std::span(loud.samples)), {}, {},
                                       [](std::byte byte) { return uint8_t(byte); }));
    }
}

TEST(MpegAudio, HasItsExactLengthWithoutATagAndWithAnyTagsAround)
{
    if (!canEncode())
        GTEST_SKIP();
    encodeSound("plain.mp3", "mp3", "libmp3lame", sine(2, 44100, 100000));
    EXPECT_EQ(readFacts(*engine().open("plain.mp3")).samples, 100000u);

    // Without the tag and the frame with the encoder's information, only bare frames are left.
    const std::string plain = readText("plain.mp3");
    const size_t tag = plain.find("Info");
    ASSERT_NE(tag, std::string::npos);
    constexpr size_t kSideInformation = 36;
    constexpr size_t kFrame = 417; // 128 kbit/s
    const std::string frames = plain.substr(tag - kSideInformation + kFrame);
    writeFile("bare.mp3", frames);
    const SoundPointer bare = engine().open("bare.mp3");
    const uint64_t samples = readFacts(*bare).samples;
    EXPECT_EQ(samples % 1152, 0u);
    EXPECT_EQ(readFloats(*bare).size(), samples * 2);

    // An ID3v2 tag of a megabyte with zeros after it, and ID3v1 and APE tags at the end, change nothing.
    const std::string head = std::string("ID3\4\0\0\0\x40\0\0", 10) + std::string((1u << 20) + 300, '\0');
    const std::string ape = "APETAGEX" + std::string("\xd0\x07\0\0\x20\0\0\0\0\0\0\0\0\0\0\0", 16);
    writeFile("tagged.mp3", head + frames + ape + std::string(8, '\0') + "TAG" + std::string(125, ' '));
    EXPECT_EQ(engine().tryOpen("tagged.mp3", KESS_SOUND_TYPE_MPEG), KESS_OK);
    EXPECT_EQ(readFacts(*engine().open("tagged.mp3")).samples, samples);
}

TEST(FlacFromAPipe, HasItsLengthAlthoughTheHeaderLacksIt)
{
    // Frames, and bytes to cut off the end, which remove part of the last block of samples.
    using Case = std::pair<size_t, size_t>;
    for (const auto& [frames, cut] : {Case{100, 0}, {123'457, 0}, {600'000, 0}, {600'000, 100}}) {
        writeSound("pipe.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, noise(2, 44100, frames));
        std::vector<uint8_t> bytes = readFile("pipe.flac");
        // The number of samples is in the lowest 36 bits of the 8 bytes at offset 18.
        bytes[21] &= 0xf0;
        std::fill(bytes.begin() + 22, bytes.begin() + 26, uint8_t{0});
        bytes.resize(bytes.size() - cut);
        writeFile("pipe.flac", bytes);
        constexpr size_t kBlock = 4096;
        const size_t whole = cut == 0 ? frames : frames / kBlock * kBlock;
        const SoundPointer sound = engine().open("pipe.flac");
        EXPECT_EQ(readFacts(*sound).samples, whole);
        EXPECT_EQ(readFloats(*sound).size(), whole * 2);
    }
}

TEST(VorbisInAWavFile, IsDecodedLikeTheOggFileThatItHolds)
{
    const std::string ogg = readText(writeSound("plain.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, sine(1, 44100, 30000)));
    // The tag of Ogg Vorbis, one channel, rate, bytes per second, bytes per frame and bits.
    const std::string format = littleEndian({0x1'674f, 44100, 88200, 0x10'0002});
    writeFile("held.wav", chunk("RIFF", "WAVE" + chunk("fmt ", format) + chunk("data", ogg)));
    const SoundPointer held = engine().open("held.wav");
    EXPECT_EQ(readFacts(*held).samples, 30000u);
    EXPECT_EQ(readFloats(*held), readFloats(*engine().open("plain.ogg")));
}

TEST(OpusBesideAnotherStream, HasTheSameLengthAsAlone)
{
    if (!canEncode())
        GTEST_SKIP();
    for (const size_t frames : {500, 96'000, 100'123}) {
        encodeSound("opus.ogg", "ogg", "libopus", sine(1, 48000, frames));
        const std::vector<std::string> opus = oggPages(readText("opus.ogg"));
        const std::vector<std::string> vorbis =
            oggPages(readText(writeSound("vorbis.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, sine(1, 48000, 100))));
        std::vector<std::string> both{opus[0], vorbis[0]};
        both.insert(both.end(), opus.begin() + 1, opus.end());
        both.insert(both.end(), vorbis.begin() + 1, vorbis.end());
        writeFile("both.ogg", joined(both));
        const SoundPointer sound = engine().open("both.ogg");
        const std::vector<float> alone = readFloats(*engine().open("opus.ogg"));
        EXPECT_EQ(alone.size(), frames);
        EXPECT_EQ(readFacts(*sound).samples, frames);
        EXPECT_GT(signalToNoise(alone, readFloats(*sound)), 60) << frames;
    }
}

namespace {

// Files of those signals, one after the other.
std::string writeChain(int codec, const std::vector<Signal>& parts)
{
    std::string chain;
    for (const Signal& part : parts)
        chain += readText(writeSound("part.ogg", SF_FORMAT_OGG | codec, part));
    writeFile("chain.ogg", chain);
    return "chain.ogg";
}

} // namespace

TEST(AChainOfUnlikeSounds, IsReadUpToTheFirstUnlikeOneAndRemarkedOn)
{
    constexpr size_t kFrames = 48000;
    const Signal mono = sine(1, 48000, kFrames);
    const Signal stereo = sine(2, 48000, kFrames);
    const std::string only = "only the first of its chained sounds is read, because the next one ";
    const std::tuple<int, std::vector<Signal>, size_t, std::string> cases[] = {
        {SF_FORMAT_VORBIS, {stereo}, 1, ""},
        {SF_FORMAT_VORBIS, {stereo, stereo}, 2, ""},
        {SF_FORMAT_VORBIS, {stereo, mono}, 1, only + "has 1 channel instead of 2"},
        {SF_FORMAT_VORBIS, {mono, sine(1, 44100, 100)}, 1, only + "has 44100 Hz instead of 48000"},
        {SF_FORMAT_VORBIS,
         {mono, mono, stereo, mono},
         2,
         "only the first 2 of its chained sounds are read, because the next one has 2 channels instead of 1"},
        {SF_FORMAT_OPUS, {stereo, stereo}, 2, ""},
        {SF_FORMAT_OPUS, {stereo, mono, stereo}, 1, only + "has 1 channel instead of 2"},
    };
    for (const auto& [codec, parts, read, remark] : cases) {
        const SoundPointer sound = engine().open(writeChain(codec, parts));
        EXPECT_EQ(readFacts(*sound).samples, read * kFrames) << remark;
        const std::vector<float> all = readFloats(*sound);
        EXPECT_EQ(all.size(), read * parts[0].samples.size());
        for (const size_t from : {kFrames - 500, kFrames * read / 2 - 10, kFrames * read / 2 + 10, size_t(100)}) {
            ASSERT_EQ(sound->seekData(from), KESS_OK);
            const std::span<const float> piece = std::span(all).subspan(from * parts[0].channels, 500);
            EXPECT_GT(signalToNoise(piece, readFloats(*sound, 500)), codec == SF_FORMAT_VORBIS ? 200 : 40) << from;
        }
        char text[256];
        EXPECT_EQ(sound->getRemark(text, sizeof text), KESS_OK);
        EXPECT_EQ(text, remark);
        EXPECT_EQ(sound->getRemark(text, 10), remark.empty() ? KESS_OK : KESS_ERR_TRUNCATED);
        EXPECT_EQ(text, remark.substr(0, 9));
    }
}
