// What becomes of the sounds: samples, channels, loops, markers, and those that can't be built.
#include "workshop.hpp"

#include <filesystem>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace test;

namespace {

// The one sound of a bank built from files that are interleaved.
Heard buildOne(const Workshop& workshop, const std::vector<std::string>& files,
               const std::function<void(Order&)>& adjust = {})
{
    Order order = workshop.order({});
    order.sounds = {files};
    if (adjust)
        adjust(order);
    const Outcome outcome = build(order);
    EXPECT_EQ(outcome.result, TARNOK_OK) << outcome.texts();
    std::vector<Heard> heard = hear(order.output, order.key);
    EXPECT_EQ(heard.size(), 1u);
    return heard.empty() ? Heard() : heard.front();
}

} // namespace

TEST(Sound, InterleavesFilesAsChannelsInOrderPaddedToTheLongestInTheWidestFormat)
{
    const Workshop workshop;
    const std::string files[] = {workshop.path("left.wav"), workshop.path("pair.wav"), workshop.path("float.wav")};
    writeIntegers(files[0], SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 44100, randomIntegers(70'000, 1));
    writeIntegers(files[1], SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, 44100, randomIntegers(2 * 90'000, 2));
    writeSound(files[2], SF_FORMAT_WAV | SF_FORMAT_FLOAT, sine(1, 44100, 1000));
    for (const size_t count : {2, 3}) {
        const Heard built = buildOne(workshop, {files, files + count});
        ASSERT_EQ(built.channels, int(count) + 1);
        EXPECT_EQ(built.format, count == 2 ? KESS_SOUND_FORMAT_PCM24 : KESS_SOUND_FORMAT_PCMFLOAT);
        ASSERT_EQ(built.samples, 90'000u);
        int channel = 0;
        for (size_t part = 0; part < count; ++part) {
            const Heard source = hear(files[part]).at(0);
            for (int own = 0; own < source.channels; ++own, ++channel) {
                for (size_t frame = 0; frame < built.samples; ++frame) {
                    const float expected =
                        frame < source.samples ? source.floats[frame * size_t(source.channels) + size_t(own)] : 0;
                    ASSERT_EQ(built.floats[frame * size_t(built.channels) + size_t(channel)], expected)
                        << part << " " << frame;
                }
            }
        }
    }
}

// The second channel is the first one as another rate tells it, so both must be alike, all around the loop too.
TEST(Sound, BringsInterleavedFilesOfAnotherRateToTheFirstOnes)
{
    const Workshop workshop;
    const std::string first = workshop.path("a.wav");
    for (const int rate : {32000, 44100}) {
        for (const uint32_t start : {0, 9600}) {
            writeSound(first, SF_FORMAT_WAV | SF_FORMAT_FLOAT, sine(1, 48000, 48000, 500));
            if (start > 0)
                addWavTags(first, {std::pair<uint32_t, uint32_t>(start, 47999), {}});
            const Heard built = buildOne(workshop,
                                         {first,
                                          writeSound(workshop.path("b.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT,
                                                     sine(1, rate, size_t(rate), 500))});
            EXPECT_EQ(built.rate, 48000);
            ASSERT_EQ(built.samples, 48000u);
            ASSERT_EQ(built.loop, (std::pair<uint64_t, uint64_t>(start, 48000)));
            for (size_t frame = start > 0 ? 1000 : 0; frame < 48000; ++frame)
                ASSERT_NEAR(built.floats[2 * frame], built.floats[2 * frame + 1], 1e-5) << rate << " " << frame;
        }
    }
}

TEST(Sound, KeepsLoopsMarkersAndPeakAsTheFlagsOfBuildAndSoundTogetherSay)
{
    const Workshop workshop;
    const std::string file = workshop.path("looped.wav");
    writeSound(file, SF_FORMAT_WAV | SF_FORMAT_PCM_16, sine(1, 44100, 44100));
    addWavTags(file, {std::pair<uint32_t, uint32_t>(4410, 22049), {{100, "in"}, {30000, "out"}}});
    const std::string plain = workshop.path("plain.wav");
    writeSound(plain, SF_FORMAT_WAV | SF_FORMAT_PCM_16, sine(1, 44100, 500));

    struct Case
    {
        std::string file;
        unsigned flags;
        unsigned reversed;
        float rate;
        Loop loop;
        SyncPoints markers;
        bool peak;
    };
    const SyncPoints both = {{100, "in"}, {30000, "out"}};
    const unsigned all = TARNOK_BUILD_DONTLOOP | TARNOK_BUILD_DISABLESYNCPOINTS | TARNOK_BUILD_WRITEPEAKVOLUME;
    const Case cases[] = {
        {file, 0, 0, 0, {{4410, 22050}}, both, false},
        {file, 0, 0, 22050, {{2205, 11025}}, {{50, "in"}, {15000, "out"}}, false},
        {file, all, 0, 0, {}, {}, true},
        {file, all, all, 0, {{4410, 22050}}, both, false},
        {file, 0, all, 0, {}, {}, true},
        {file, 0, TARNOK_BUILD_NOGUID | TARNOK_BUILD_FILTERHIGHFREQ, 0, {{4410, 22050}}, both, false},
        {plain, 0, 0, 0, {{0, 500}}, {}, false},
    };
    for (const Case& each : cases) {
        for (const TARNOK_FORMAT format : {TARNOK_FORMAT_PCM, TARNOK_FORMAT_KADPCM, TARNOK_FORMAT_VORBIS}) {
            const Heard built = buildOne(workshop, {each.file}, [&](Order& order) {
                order.format = format;
                order.flags = each.flags;
                order.each.overrideFlags = each.reversed;
                order.each.desiredSampleRate = each.rate;
            });
            EXPECT_EQ(built.loop, each.loop) << each.flags << " " << each.reversed;
            EXPECT_EQ(built.syncPoints, each.markers);
            EXPECT_EQ(built.peak.has_value(), each.peak);
            EXPECT_NEAR(built.peak.value_or(0.5f), 0.5, 0.001);
            EXPECT_EQ(built.name, each.file == file ? "looped" : "plain");
        }
    }
}

TEST(Sound, FollowsQualityOfBuildAndSound)
{
    const Workshop workshop;
    const std::string file = workshop.path("noise.wav");
    writeSound(file, SF_FORMAT_WAV | SF_FORMAT_PCM_16, noise(1, 44100, 30000));
    const auto bytes = [&](unsigned quality, unsigned own) {
        buildOne(workshop, {file}, [&](Order& order) {
            order.format = TARNOK_FORMAT_VORBIS;
            order.quality = quality;
            order.each.overrideQuality = own;
        });
        return std::filesystem::file_size(workshop.path("bank.tnb"));
    };
    EXPECT_LT(bytes(10, 0), bytes(90, 0));
    EXPECT_EQ(bytes(10, 90), bytes(90, 0));
    EXPECT_EQ(bytes(10, 1000), bytes(10, 100));
    EXPECT_EQ(bytes(0, 0), bytes(1, 0));
}

TEST(Sound, SoundsLikeItsSourceInEveryFormatAndAtOtherRates)
{
    const Workshop workshop;
    const std::string file = workshop.path("tone.wav");
    // A whole number of periods, since the sound loops.
    writeSound(file, SF_FORMAT_WAV | SF_FORMAT_PCM_16, sine(1, 44100, 44100, 300));
    const std::tuple<TARNOK_FORMAT, float, int, double> cases[] = {
        {TARNOK_FORMAT_PCM, 44100, 44100, 80},    {TARNOK_FORMAT_PCM, 8000, 8000, 80},
        {TARNOK_FORMAT_PCM, 96000, 96000, 80},    {TARNOK_FORMAT_PCM, 44099, 44099, 80},
        {TARNOK_FORMAT_KADPCM, 22050, 22050, 35}, {TARNOK_FORMAT_VORBIS, 0, 44100, 20},
        {TARNOK_FORMAT_OPUS, 0, 48000, 20},       {TARNOK_FORMAT_OPUS, 11025, 12000, 20}};
    for (const auto& [format, wanted, rate, decibels] : cases) {
        const Heard built = buildOne(workshop, {file}, [&](Order& order) {
            order.format = format;
            order.quality = 90;
            order.each.desiredSampleRate = wanted;
        });
        EXPECT_EQ(built.rate, rate);
        const Signal expected = sine(1, rate, size_t(rate), 300);
        ASSERT_EQ(built.floats.size(), expected.samples.size());
        EXPECT_GT(signalToNoise(expected.samples, built.floats), decibels) << format << " " << rate;
    }
}

TEST(Sound, TellsWhichFileFailsAndWhyAndTriesAllOthers)
{
    const Workshop workshop;
    std::filesystem::current_path(workshop.folder());
    constexpr int kWav = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    writeFile("text.wav", std::string("this is no sound at all, whatever its name says"));
    writeFile("empty.wav", std::string());
    writeSound("good.wav", kWav, sine(2, 44100, 500));
    writeSound("silent.wav", kWav, Signal{1, 44100, {}});
    writeSound("slow.wav", kWav, noise(1, 600, 100));
    std::filesystem::create_directory("folder.wav");
    writeFile("song.mid", std::string("MThd\0\0\0\6\0\0\0\1\0\x60MTrk\0\0\0\4\0\xff\x2f\0", 26));
    writeFile("song.xm", "Extended Module: " + std::string(400, '\0'));
    writeFile("songs.m3u", std::string("#EXTM3U\nsong.mp3\n"));
    writeSound("many.wav", kWav, sine(33, 44100, 10));
    writeSound("damaged.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, noise(1, 44100, 100'000));
    std::filesystem::resize_file("damaged.flac", std::filesystem::file_size("damaged.flac") / 2);
    std::filesystem::resize_file(writeSound("cut.wav", kWav, noise(1, 10'000, 30'000)), 44 + 2 * 12'345);

    struct Case
    {
        std::vector<std::string> files;
        TARNOK_RESULT result;
        const char* text;
    };
    const Case cases[] = {
        {{"good.wav"}, TARNOK_OK, ""},
        {{"good.wav", "missing.wav"}, TARNOK_ERR_FILE_NOT_FOUND, "missing.wav: the file does not exist"},
        {{"good.wav/deeper.wav"}, TARNOK_ERR_FILE_NOT_FOUND, "good.wav is a file, not a folder"},
        {{"text.wav"}, TARNOK_ERR_INVALID_FORMAT, "text.wav: this is not a kind of sound file"},
        {{"empty.wav"}, TARNOK_ERR_INVALID_FORMAT, "empty.wav: the file is empty"},
        {{"silent.wav"}, TARNOK_ERR_INVALID_FORMAT, "silent.wav: the file holds no samples"},
        {{"folder.wav"}, TARNOK_ERR_FILE_OS, "folder.wav: this is a folder"},
        {{"/dev/null"}, TARNOK_ERR_FILE_OS, "null: this is a device"},
        {{"song.mid"}, TARNOK_ERR_INVALID_FORMAT, "song.mid: this is MIDI music"},
        {{"song.xm"}, TARNOK_ERR_INVALID_FORMAT, "song.xm: this is tracker music"},
        {{"songs.m3u"}, TARNOK_ERR_INVALID_FORMAT, "songs.m3u: this is a playlist"},
        {{"many.wav"}, TARNOK_ERR_INVALID_FORMAT, "many.wav: the file has more than 32 channels"},
        {{"damaged.flac"}, TARNOK_ERR_INVALID_FORMAT, "damaged.flac: the file is damaged or cut short"},
        {{"cut.wav"}, TARNOK_ERR_INVALID_FORMAT, "cut short: its sound ends after 1.234 of 3"},
        {{"good.wav", "slow.wav"}, TARNOK_ERR_INVALID_FORMAT, "slow.wav: its sample rate of 600 Hz"},
        {std::vector<std::string>(17, "good.wav"), TARNOK_ERR_INVALID_FORMAT, "34 channels"},
    };
    const int faults = int(std::size(cases)) - 1;
    Order order = workshop.order({});
    for (const Case& each : cases)
        order.sounds.push_back(each.files);
    for (const TARNOK_FORMAT format : allFormats) {
        order.format = format;
        const Outcome all = build(order);
        EXPECT_EQ(all.result, cases[1].result) << "the first in the list decides";
        EXPECT_EQ(all.countOf(TARNOK_STATE_FINISHED), 1);
        EXPECT_EQ(all.countOf(TARNOK_STATE_FAILED), faults);
        EXPECT_FALSE(std::filesystem::exists(order.output));
        for (const Report& report : all.reports) {
            if (report.state != TARNOK_STATE_FAILED)
                continue;
            EXPECT_EQ(report.code, cases[report.sound].result) << report.text;
            EXPECT_NE(report.text.find(cases[report.sound].text), std::string::npos) << report.text;
        }
    }

    order.format = TARNOK_FORMAT_PCM;
    order.initFlags |= TARNOK_INIT_IGNORE_ERRORS;
    const Outcome ignored = build(order);
    EXPECT_EQ(ignored.result, TARNOK_OK);
    EXPECT_EQ(ignored.countOf(TARNOK_STATE_FAILED), faults);
    const std::vector<Heard> heard = hear(order.output);
    ASSERT_EQ(heard.size(), order.sounds.size());
    for (size_t i = 0; i < heard.size(); ++i)
        EXPECT_EQ(heard[i].samples, i == 0 ? 500u : 0u);

    order.sounds.erase(order.sounds.begin());
    const Outcome none = build(order);
    EXPECT_EQ(none.result, TARNOK_ERR_CANNOT_CONTINUE);
    EXPECT_EQ(none.statesOf(-1), std::vector{TARNOK_STATE_FAILED});
    std::filesystem::current_path("..");
}

TEST(Sound, OfFilesThatTheSystemRefusesFailsForThatReason)
{
    const Workshop workshop;
    Order order = workshop.order({});
    order.sounds = {std::vector<std::string>(16, workshop.makeSounds(1, 100'000).front())};
    rlimit former{};
    getrlimit(RLIMIT_NOFILE, &former);
    const int next = open("/dev/null", O_RDONLY);
    close(next);
    const rlimit limit{rlim_t(next) + 12, former.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const Outcome outcome = build(order);
    setrlimit(RLIMIT_NOFILE, &former);
    EXPECT_EQ(outcome.result, TARNOK_ERR_FILE_OS);
    EXPECT_NE(outcome.texts().find("too many open files while opening sound0.wav"), std::string::npos)
        << outcome.texts();
    EXPECT_EQ(build(order).result, TARNOK_OK);
}

TEST(Sound, IsResampledFarButNotBeyondReason)
{
    const Workshop workshop;
    struct Case
    {
        int from;
        float to;
        bool isPossible;
    };
    const Case cases[] = {{750, 48000, true}, {749, 48000, false},  {1, 48000, false},
                          {1, 1, true},       {192'000, 200, true}, {768'000, 700, false}};
    for (const Case& each : cases) {
        Order order = workshop.order(
            {writeSound(workshop.path("rate.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, noise(1, each.from, 500))});
        order.each.desiredSampleRate = each.to;
        const Outcome outcome = build(order);
        EXPECT_EQ(outcome.result, each.isPossible ? TARNOK_OK : TARNOK_ERR_INVALID_FORMAT) << each.from;
        EXPECT_EQ(outcome.texts().find("rate.wav: its sample rate of ") != std::string::npos, !each.isPossible)
            << outcome.texts();
    }
}

TEST(Sound, ComesFromABankOnlyIfThatHoldsOneSoundForEveryone)
{
    const Workshop workshop;
    const std::vector<std::string> files = workshop.makeSounds(2);
    const auto bankOf = [&](const char* name, const std::vector<std::string>& sounds, const char* key) {
        Order order = workshop.order(sounds);
        order.output = workshop.path(name);
        order.key = key;
        EXPECT_EQ(build(order).result, TARNOK_OK);
        return order.output;
    };
    const std::string one = bankOf("one.tnb", {files[0]}, nullptr);
    EXPECT_TRUE(buildOne(workshop, {one}).bytes == hear(files[0]).at(0).bytes);

    const Outcome two = build(workshop.order({bankOf("two.tnb", files, nullptr)}));
    EXPECT_EQ(two.result, TARNOK_ERR_INVALID_FORMAT);
    EXPECT_NE(two.texts().find("two.tnb: this bank holds 2 sounds"), std::string::npos) << two.texts();
    const Outcome locked = build(workshop.order({bankOf("locked.tnb", {files[0]}, "key")}));
    EXPECT_EQ(locked.result, TARNOK_ERR_INVALID_FORMAT);
    EXPECT_NE(locked.texts().find("encrypted"), std::string::npos) << locked.texts();
}

TEST(Sound, LowersTheRateToWhatIsAudibleWhenAsked)
{
    const Workshop workshop;
    const auto rateOf = [&](const Signal& signal, int kind, TARNOK_FORMAT format) {
        return buildOne(workshop, {writeSound(workshop.path("source.wav"), SF_FORMAT_WAV | kind, signal)},
                        [&](Order& order) {
                            order.flags = TARNOK_BUILD_OPTIMIZESAMPLERATE;
                            order.format = format;
                        })
            .rate;
    };
    const double low = rateOf(sine(1, 44100, 50'000, 4900), SF_FORMAT_PCM_16, TARNOK_FORMAT_PCM);
    EXPECT_TRUE(low == 11025 || low == 12000) << low;
    EXPECT_EQ(rateOf(sine(1, 44100, 50'000, 440), SF_FORMAT_PCM_16, TARNOK_FORMAT_OPUS), 8000);
    EXPECT_EQ(rateOf(noise(1, 44100, 50'000), SF_FORMAT_PCM_16, TARNOK_FORMAT_PCM), 44100);
    Signal quiet = noise(1, 44100, 50'000);
    for (float& sample : quiet.samples)
        sample *= 0.002f;
    EXPECT_EQ(rateOf(quiet, SF_FORMAT_PCM_24, TARNOK_FORMAT_PCM), 44100);
    EXPECT_EQ(rateOf(noise(1, 44100, 20), SF_FORMAT_PCM_16, TARNOK_FORMAT_PCM), 44100);
}
