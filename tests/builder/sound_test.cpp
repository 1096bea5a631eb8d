// SPDX-License-Identifier: MIT
// What a build makes of its sounds: samples, channels, loops, markers, and sounds that can't be built.
#include "builder_test.hpp"
#include "support/limit.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace test;

namespace {

using Sound = BuilderTest;

// Builds a bank of one sound, and returns that sound.
DecodedSound buildAndRead(const BuildArguments& arguments)
{
    mustBuild(arguments);
    const std::vector<DecodedSound> sounds = readSounds(arguments.output);
    EXPECT_EQ(sounds.size(), 1u);
    return sounds.at(0);
}

} // namespace

TEST_F(Sound, InterleavesFilesAsChannelsInOrderPaddedToTheLongestInTheWidestFormat)
{
    const std::string files[] = {fullPath("left.wav"), fullPath("pair.wav"), fullPath("float.wav")};
    writeIntegers(files[0], wav16, 1, 44100, randomIntegers(70'000, 1));
    writeIntegers(files[1], SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, 44100, randomIntegers(2 * 90'000, 2));
    writeSound(files[2], SF_FORMAT_WAV | SF_FORMAT_FLOAT, sine(1, 44100, 1000));
    for (const size_t count : {2, 3}) {
        BuildArguments arguments = makeArguments({});
        arguments.sounds.emplace_back(files, files + count);
        const DecodedSound built = buildAndRead(arguments);
        ASSERT_EQ(built.channels, int(count) + 1);
        EXPECT_EQ(built.format, count == 2 ? KESS_SOUND_FORMAT_PCM24 : KESS_SOUND_FORMAT_PCMFLOAT);
        ASSERT_EQ(built.samples, 90'000u);
        size_t channel = 0;
        for (size_t part = 0; part < count; ++part) {
            DecodedSound source = readSounds(files[part]).at(0);
            const auto width = size_t(source.channels);
            source.floats.resize(built.samples * width);
            for (size_t i = 0; i < source.floats.size(); ++i) {
                const size_t index = i / width * (count + 1) + channel + i % width;
                ASSERT_EQ(built.floats[index], source.floats[i]) << part << " " << i;
            }
            channel += width;
        }
    }
}

TEST_F(Sound, KeepsMoreThanAMegabyteOfMarkersAndReportsThoseAboveTheLimit)
{
    const std::string file = makeSound("marked.wav", sine(1, 44100, 80'000), wav16);
    WavTags tags;
    for (uint32_t sample = 0; sample < 70'000; ++sample)
        tags.markers.emplace_back(sample, "the marker of sample " + std::to_string(sample));
    addWavTags(file, tags);
    const BuildArguments arguments = makeArguments({file});
    const std::vector<std::string> remarks = mustBuild(arguments).remarks;
    ASSERT_EQ(remarks.size(), 1u);
    EXPECT_EQ(remarks[0], "marked.wav: 4464 of its markers were left out, because a sound can't have more than 65536");

    const DecodedSound built = readSounds(arguments.output).at(0);
    ASSERT_EQ(built.syncPoints.size(), 65'536u);
    EXPECT_EQ(built.syncPoints.back().second, "the marker of sample 65535");
}

// The second channel is the first one at another rate. So both must be alike, around the loop too.
TEST_F(Sound, ResamplesInterleavedFilesToTheRateOfTheFirst)
{
    constexpr int wavFloat = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    for (const int rate : {32000, 44100}) {
        for (const uint32_t start : {0, 9600}) {
            const std::string first = makeSound("a.wav", sine(1, 48000, 48000, 500), wavFloat);
            const std::string second = makeSound("b.wav", sine(1, rate, size_t(rate), 500), wavFloat);
            if (start > 0)
                addWavTags(first, {std::pair<uint32_t, uint32_t>(start, 47999), {}});
            BuildArguments arguments = makeArguments({first});
            arguments.sounds[0].push_back(second);
            const DecodedSound built = buildAndRead(arguments);
            EXPECT_EQ(built.rate, 48000);
            ASSERT_EQ(built.samples, 48000u);
            ASSERT_EQ(built.loop, (std::pair<uint64_t, uint64_t>(start, 48000)));
            for (size_t frame = start > 0 ? 1000 : 0; frame < 48000; ++frame)
                ASSERT_NEAR(built.floats[2 * frame], built.floats[2 * frame + 1], 1e-5) << rate << " " << frame;
        }
    }
}

TEST_F(Sound, KeepsLoopsMarkersAndPeakAccordingToTheFlagsOfBuildAndSound)
{
    const std::string file = makeSound("looped.wav", sine(1, 44100, 44100));
    addWavTags(file, {std::pair<uint32_t, uint32_t>(4410, 22049), {{100, "in"}, {30000, "out"}}});
    const std::string plain = makeSound("plain.wav", sine(1, 44100, 500));

    const SyncPoints both = {{100, "in"}, {30000, "out"}};
    const unsigned all = TARNOK_BUILD_DONTLOOP | TARNOK_BUILD_DISABLESYNCPOINTS | TARNOK_BUILD_WRITEPEAKVOLUME;
    const std::tuple<std::string, unsigned, unsigned, float, Loop, SyncPoints, bool> cases[] = {
        {file, 0, 0, 0, {{4410, 22050}}, both, false},
        {file, 0, 0, 22050, {{2205, 11025}}, {{50, "in"}, {15000, "out"}}, false},
        {file, all, 0, 0, {}, {}, true},
        {file, all, all, 0, {{4410, 22050}}, both, false},
        {file, 0, all, 0, {}, {}, true},
        {file, 0, TARNOK_BUILD_NOGUID | TARNOK_BUILD_FILTERHIGHFREQ, 0, {{4410, 22050}}, both, false},
        {plain, 0, 0, 0, {{0, 500}}, {}, false},
    };
    for (const auto& [source, flags, reversed, rate, loop, markers, hasPeak] : cases) {
        for (const TARNOK_FORMAT format : {TARNOK_FORMAT_PCM, TARNOK_FORMAT_KADPCM, TARNOK_FORMAT_VORBIS}) {
            SCOPED_TRACE(testing::Message() << flags << " " << reversed << " " << rate << " " << format);
            BuildArguments arguments = makeArguments({source});
            arguments.format = format;
            arguments.flags = flags;
            arguments.each.overrideFlags = reversed;
            arguments.each.desiredSampleRate = rate;
            const DecodedSound built = buildAndRead(arguments);
            EXPECT_EQ(built.loop, loop);
            EXPECT_EQ(built.syncPoints, markers);
            EXPECT_EQ(built.peak.has_value(), hasPeak);
            EXPECT_NEAR(built.peak.value_or(0.5f), 0.5, 0.001);
            EXPECT_EQ(built.name, source == file ? "looped" : "plain");
        }
    }
}

TEST_F(Sound, FollowsQualityOfBuildAndSound)
{
    const std::string file = makeSound("noise.wav", noise(1, 44100, 30000));
    const auto bytes = [&](unsigned quality, unsigned own, TARNOK_FORMAT format = TARNOK_FORMAT_VORBIS) {
        BuildArguments arguments = makeArguments({file});
        arguments.format = format;
        arguments.quality = quality;
        arguments.each.overrideQuality = own;
        return mustBuild(arguments).bank.size();
    };
    for (const unsigned quality : {1, 25, 50, 75}) {
        EXPECT_LT(bytes(quality, 0), bytes(quality + 25, 0));
        EXPECT_LT(bytes(quality, 0, TARNOK_FORMAT_OPUS), bytes(quality + 25, 0, TARNOK_FORMAT_OPUS));
    }
    EXPECT_EQ(bytes(10, 90), bytes(90, 0));
    EXPECT_EQ(bytes(10, 1000), bytes(10, 100));
    EXPECT_EQ(bytes(0, 0), bytes(1, 0));
}

TEST_F(Sound, SoundsLikeItsSourceInEveryFormatAndAtOtherRates)
{
    // A whole number of periods, because the sound loops.
    const std::string file = makeSound("tone.wav", sine(1, 44100, 44100, 300));
    const std::tuple<TARNOK_FORMAT, float, int, double> cases[] = {
        {TARNOK_FORMAT_PCM, 44100, 44100, 80},    {TARNOK_FORMAT_PCM, 8000, 8000, 80},
        {TARNOK_FORMAT_PCM, 96000, 96000, 80},    {TARNOK_FORMAT_PCM, 44099, 44099, 80},
        {TARNOK_FORMAT_KADPCM, 22050, 22050, 35}, {TARNOK_FORMAT_VORBIS, 0, 44100, 20},
        {TARNOK_FORMAT_OPUS, 0, 48000, 20},       {TARNOK_FORMAT_OPUS, 11025, 12000, 20}};
    for (const auto& [format, wanted, rate, decibels] : cases) {
        BuildArguments arguments = makeArguments({file});
        arguments.format = format;
        arguments.quality = 90;
        arguments.each.desiredSampleRate = wanted;
        const DecodedSound built = buildAndRead(arguments);
        EXPECT_EQ(built.rate, rate);
        const Signal expected = sine(1, rate, size_t(rate), 300);
        ASSERT_EQ(built.floats.size(), expected.samples.size());
        EXPECT_GT(signalToNoise(expected.samples, built.floats), decibels) << format << " " << rate;
    }
}

// One sound that can be built, followed by some that can't.
struct FailingSounds : BuilderTest
{
    ~FailingSounds() override { fs::current_path(fullPath("..")); }

    void SetUp() override
    {
        for (const auto& [files, result, text] : cases)
            arguments.sounds.push_back(files);
        fs::current_path(fullPath("."));
        writeFile("text.wav", "this is no sound at all, whatever its name says");
        writeFile("empty.wav", "");
        writeSound("good.wav", wav16, sine(2, 44100, 500));
        writeSound("silent.wav", wav16, Signal{1, 44100, {}});
        writeSound("slow.wav", wav16, noise(1, 600, 100));
        fs::create_directory("folder.wav");
        writeFile("song.mid", std::string("MThd\0\0\0\6\0\0\0\1\0\x60MTrk\0\0\0\4\0\xff\x2f\0", 26));
        writeFile("song.xm", "Extended Module: " + std::string(400, '\0'));
        writeFile("songs.m3u", "#EXTM3U\nsong.mp3\n");
        writeSound("many.wav", wav16, sine(33, 44100, 10));
        writeSound("damaged.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, noise(1, 44100, 100'000));
        fs::resize_file("damaged.flac", fs::file_size("damaged.flac") / 2);
        fs::resize_file(writeSound("cut.wav", wav16, noise(1, 10'000, 30'000)), 44 + 2 * 12'345);

        ASSERT_EQ(mknod("pipe.wav", S_IFIFO | 0600, 0), 0);
        ASSERT_EQ(mknod("socket.wav", S_IFSOCK | 0600, 0), 0);
    }

    static constexpr auto bad = TARNOK_ERR_INVALID_FORMAT, gone = TARNOK_ERR_FILE_NOT_FOUND,
                          system = TARNOK_ERR_FILE_OS;
    const std::vector<std::tuple<std::vector<std::string>, TARNOK_RESULT, const char*>> cases = {
        {{"good.wav"}, TARNOK_OK, ""},
        {{"good.wav", "missing.wav"}, gone, "missing.wav: the file does not exist"},
        {{"Song.xm"},
         gone,
         "Song.xm: the file does not exist (Song.xm); song.xm is there: upper and lower case must match"},
        {{"good.wav/deeper.wav"}, gone, "good.wav is a file, not a folder"},
        {{"text.wav"}, bad, "text.wav: this is not a supported sound file"},
        {{"empty.wav"}, bad, "empty.wav: the file is empty"},
        {{"silent.wav"}, bad, "silent.wav: the file contains no samples"},
        {{"folder.wav"}, system, "folder.wav: this is a folder"},
        {{"/dev/null"}, system, "null: this is a device"},
        {{"pipe.wav"}, system, "pipe.wav: this is a device, a pipe"},
        {{"socket.wav"}, system, "socket.wav: this is a device, a pipe or a socket"},
        {{"song.mid"}, bad, "song.mid: this is MIDI music"},
        {{"song.xm"}, bad, "song.xm: this is tracker music"},
        {{"songs.m3u"}, bad, "songs.m3u: this is a playlist"},
        {{"many.wav"}, bad, "many.wav: the file has more than 32 channels"},
        {{"damaged.flac"}, bad, "damaged.flac: the file is damaged or cut short"},
        {{"cut.wav"}, bad, "cut short: its sound ends after 1.234 of 3"},
        {{"good.wav", "slow.wav"}, bad, "slow.wav: its sample rate of 600 Hz"},
        {std::vector<std::string>(17, "good.wav"), bad, "34 channels"},
    };
    const int faults = int(cases.size()) - 1;
    BuildArguments arguments = makeArguments({});
};

TEST_F(FailingSounds, AreAllTriedAndEachReportsItsReasonAndTheBankTheFirstFive)
{
    for (const TARNOK_FORMAT format : allFormats) {
        arguments.format = format;
        const Outcome all = build(arguments);
        EXPECT_EQ(all.result, TARNOK_ERR_FILE_NOT_FOUND) << "the first sound in the list determines it";
        EXPECT_EQ(all.countReports(TARNOK_STATE_FINISHED), 1);
        EXPECT_EQ(all.countReports(TARNOK_STATE_FAILED), faults);
        EXPECT_FALSE(fs::exists(arguments.output));
        const Report& last = all.reports.back();
        EXPECT_EQ(last.sound, -1);
        EXPECT_EQ(last.code, all.result);
        EXPECT_TRUE(last.text.starts_with(std::to_string(faults) + " of " + std::to_string(faults + 1) + " sounds"));
        EXPECT_EQ(std::ranges::count(last.text, '\n'), 6) << last.text;
        EXPECT_NE(last.text.find("\n  and " + std::to_string(faults - 5) + " more"), std::string::npos) << last.text;
        for (const Report& report : all.reports) {
            if (report.state != TARNOK_STATE_FAILED || report.sound < 0)
                continue;
            const auto& [files, result, text] = cases[size_t(report.sound)];
            EXPECT_EQ(report.code, result) << report.text;
            EXPECT_NE(report.text.find(text), std::string::npos) << report.text;
            EXPECT_EQ(last.text.find(report.text) != std::string::npos, report.sound <= 5) << report.text;
        }
    }
}

TEST_F(FailingSounds, BecomeEmptyWhereErrorsAreIgnoredUnlessNoSoundIsLeft)
{
    arguments.initFlags |= TARNOK_INIT_IGNORE_ERRORS;
    const Outcome ignored = build(arguments);
    EXPECT_EQ(ignored.result, TARNOK_OK);
    EXPECT_EQ(ignored.countReports(TARNOK_STATE_FAILED), faults);
    const std::vector<DecodedSound> sounds = readSounds(arguments.output);
    ASSERT_EQ(sounds.size(), arguments.sounds.size());
    for (size_t i = 0; i < sounds.size(); ++i)
        EXPECT_EQ(sounds[i].samples, i == 0 ? 500u : 0u);

    arguments.sounds.erase(arguments.sounds.begin());
    const Outcome none = build(arguments);
    EXPECT_EQ(none.result, TARNOK_ERR_CANNOT_CONTINUE);
    EXPECT_EQ(none.reportedStates(-1), std::vector{TARNOK_STATE_FAILED});
}

TEST_F(Sound, FailsAtALimitOfTheProcessWhichContinues)
{
    const std::string file = makeSound("long.flac", noise(1, 44100, 400'000), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    const int next = open("/dev/null", O_RDONLY);
    close(next);
    const std::tuple<__rlimit_resource, rlim_t, size_t, const char*> limits[] = {
        {RLIMIT_FSIZE, 50'000, 1, "largest allowed file size"},
        {RLIMIT_NOFILE, rlim_t(next) + 12, 16, "too many open files while opening long.flac"},
    };
    for (const auto& [resource, most, files, text] : limits) {
        BuildArguments arguments = makeArguments({});
        arguments.sounds = {std::vector(files, file)};
        for (const TARNOK_FORMAT format : allFormats) {
            arguments.format = format;
            auto limit = std::make_unique<Limit>(resource, most);
            const Outcome outcome = build(arguments);
            limit.reset();
            EXPECT_TRUE(outcome.failed(TARNOK_ERR_FILE_OS, text)) << format;
            mustBuild(arguments);
        }
    }
}

TEST_F(Sound, IsResampledByLargeFactorsWithinLimits)
{
    const std::tuple<int, float, bool> cases[] = {{750, 48000, true}, {749, 48000, false},  {1, 48000, false},
                                                  {1, 1, true},       {192'000, 200, true}, {768'000, 700, false}};
    for (const auto& [from, to, isPossible] : cases) {
        BuildArguments arguments = makeArguments({makeSound("rate.wav", noise(1, from, 500))});
        arguments.each.desiredSampleRate = to;
        const Outcome outcome = build(arguments);
        EXPECT_TRUE(isPossible ? outcome.failed(TARNOK_OK, "")
                               : outcome.failed(TARNOK_ERR_INVALID_FORMAT, "rate.wav: its sample rate of "))
            << from;
    }
}

TEST_F(Sound, ComesFromABankOnlyIfItHasOneUnencryptedSound)
{
    const std::vector<std::string> files = makeSounds(2);
    const auto buildBank = [&](const char* name, const std::vector<std::string>& sounds, const char* key = nullptr) {
        BuildArguments arguments = makeArguments(sounds);
        arguments.output = fullPath(name);
        arguments.key = key;
        mustBuild(arguments);
        return arguments.output;
    };
    EXPECT_TRUE(buildAndRead(makeArguments({buildBank("one.tnb", {files[0]})})).bytes
                == readSounds(files[0]).at(0).bytes);
    const Outcome two = build(makeArguments({buildBank("two.tnb", files)}));
    EXPECT_TRUE(two.failed(TARNOK_ERR_INVALID_FORMAT, "two.tnb: this bank contains 2 sounds"));
    const Outcome locked = build(makeArguments({buildBank("locked.tnb", {files[0]}, "key")}));
    EXPECT_TRUE(locked.failed(TARNOK_ERR_INVALID_FORMAT, "encrypted"));
}

TEST_F(Sound, LowersTheRateToWhatIsAudibleWhenAsked)
{
    const auto builtRate = [&](const Signal& signal, TARNOK_FORMAT format = TARNOK_FORMAT_PCM, int kind = wav16) {
        BuildArguments arguments = makeArguments({makeSound("source.wav", signal, kind)});
        arguments.flags = TARNOK_BUILD_OPTIMIZESAMPLERATE;
        arguments.format = format;
        return buildAndRead(arguments).rate;
    };
    const double low = builtRate(sine(1, 44100, 50'000, 4900));
    EXPECT_TRUE(low == 11025 || low == 12000) << low;
    EXPECT_EQ(builtRate(sine(1, 44100, 50'000, 440), TARNOK_FORMAT_OPUS), 8000);
    EXPECT_EQ(builtRate(noise(1, 44100, 50'000)), 44100);
    EXPECT_EQ(builtRate(noise(1, 44100, 20)), 44100);
    Signal quiet = noise(1, 44100, 50'000);
    for (float& sample : quiet.samples)
        sample *= 0.002f;
    EXPECT_EQ(builtRate(quiet, TARNOK_FORMAT_PCM, SF_FORMAT_WAV | SF_FORMAT_PCM_24), 44100);
}
