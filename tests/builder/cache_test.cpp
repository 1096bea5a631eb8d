// What the cache claims: it never changes a bank, whatever happens to it.
#include "workshop.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <stop_token>
#include <thread>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace test;
namespace fs = std::filesystem;

namespace {

// A build in a process of its own.
pid_t startBuild(const Order& order)
{
    const pid_t process = fork();
    if (process == 0)
        _exit(build(order).result);
    return process;
}

void makeOlder(const std::string& path, int seconds)
{
    timespec times[2];
    clock_gettime(CLOCK_REALTIME, &times[0]);
    times[0].tv_sec -= seconds;
    times[1] = times[0];
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

using Bytes = std::vector<uint8_t>;
using Mutants = std::vector<std::pair<std::string, Bytes>>;
using Damage = std::pair<std::string, std::function<void(const std::string& path)>>;

// Files that were cut, lengthened, or have a flipped bit in one of many places.
Mutants mutantsOf(const Bytes& bytes)
{
    Mutants mutants = {{"longer", bytes}};
    mutants[0].second.resize(bytes.size() + 40);
    for (const size_t length : {size_t(0), size_t(7), size_t(20), size_t(30), bytes.size() - 1})
        mutants.emplace_back("cut to " + std::to_string(length),
                             Bytes(bytes.begin(), bytes.begin() + ptrdiff_t(length)));
    for (size_t place = 0; place < bytes.size(); place += place < 64 ? 5 : 1 + bytes.size() / 40) {
        mutants.emplace_back("bit of byte " + std::to_string(place), bytes);
        mutants.back().second[place] ^= uint8_t(1 << place % 8);
    }
    return mutants;
}

// What else may stand where a file of the cache was, besides its mutants.
std::vector<Damage> damagesOf(const Bytes& bytes)
{
    std::vector<Damage> damages = {
        Damage("removed", [](const std::string&) {}),
        Damage("a folder", [](const std::string& path) { fs::create_directories(path + "/with/content"); }),
        Damage("a pipe", [](const std::string& path) { ASSERT_EQ(mkfifo(path.c_str(), 0666), 0); }),
        Damage("a link to nothing", [](const std::string& path) { fs::create_symlink("nowhere", path); }),
    };
    for (const auto& [name, mutant] : mutantsOf(bytes))
        damages.emplace_back(name, [mutant](const std::string& path) { writeFile(path, mutant); });
    return damages;
}

} // namespace

TEST(Cache, NeverChangesTheBankForAnyNumberOfThreads)
{
    const Workshop workshop;
    Order order = workshop.order(workshop.makeSounds(10));
    order.adjust = [](size_t index, TARNOK_SUBSOUND& sound) {
        sound.desiredSampleRate = index == 3 ? 32000 : 0;
    };
    for (const TARNOK_FORMAT format : allFormats) {
        order.format = format;
        Bytes expected;
        for (const unsigned threads : {1, 2, 8}) {
            for (const bool cached : {false, true}) {
                order.threads = threads;
                order.initFlags = TARNOK_INIT_ALWAYS | (cached ? 0 : TARNOK_INIT_REBUILD);
                const Outcome outcome = build(order);
                ASSERT_EQ(outcome.result, TARNOK_OK) << outcome.texts();
                EXPECT_EQ(outcome.cachedSounds(), cached ? 10 : 0);
                if (expected.empty())
                    expected = readFile(order.output);
                EXPECT_TRUE(readFile(order.output) == expected) << format << " " << threads << " " << cached;
            }
        }
    }
}

TEST(Cache, KnowsEverySettingThatMatters)
{
    const Workshop workshop;
    const std::vector<std::string> files = workshop.makeSounds(1);
    using Change = std::pair<const char*, std::function<void(Order&)>>;
    const Signal other = sine(1, 44100, 3000, 999);
    const Change changes[] = {
        Change("as it is", [](Order&) {}),
        Change("quality", [](Order& order) { order.quality = 60; }),
        Change("loop", [](Order& order) { order.flags = TARNOK_BUILD_DONTLOOP; }),
        Change("peak", [](Order& order) { order.flags = TARNOK_BUILD_WRITEPEAKVOLUME; }),
        Change("markers", [](Order& order) { order.flags = TARNOK_BUILD_DISABLESYNCPOINTS; }),
        Change("lowest rate", [](Order& order) { order.flags = TARNOK_BUILD_OPTIMIZESAMPLERATE; }),
        Change("rate", [](Order& order) { order.each.desiredSampleRate = 22050; }),
        Change("format", [](Order& order) { order.format = TARNOK_FORMAT_OPUS; }),
        Change("content", [&](Order&) { writeSound(files[0], SF_FORMAT_WAV | SF_FORMAT_PCM_16, other); }),
        Change("another file beside it", [&](Order& order) { order.sounds[0].push_back(files[0]); }),
    };
    Order order = workshop.order(files);
    order.format = TARNOK_FORMAT_VORBIS;
    for (const auto& [name, change] : changes) {
        Order changed = order;
        change(changed);
        EXPECT_EQ(build(changed).cachedSounds(), 0) << name;
        EXPECT_EQ(build(changed).cachedSounds(), 1) << name;
    }
    // What belongs to the bank and not to the sound.
    order.key = "key";
    order.flags = TARNOK_BUILD_NOGUID | TARNOK_BUILD_TNB5_DONTWRITENAMES | TARNOK_BUILD_FILTERHIGHFREQ;
    EXPECT_EQ(build(order).cachedSounds(), 1);
}

TEST(Cache, HealsFromEveryDamage)
{
    const Workshop workshop;
    Order order = workshop.order(workshop.makeSounds(3));
    order.format = TARNOK_FORMAT_KADPCM;
    ASSERT_EQ(build(order).result, TARNOK_OK);
    const Bytes expected = readFile(order.output);
    const std::vector<std::string> entries = workshop.cacheEntries();
    ASSERT_EQ(entries.size(), 3u);

    std::vector<Damage> damages = damagesOf(readFile(entries[0]));
    damages.emplace_back("another's entry", [&](const std::string& path) { fs::copy_file(entries[1], path); });
    damages.emplace_back("a file for its folder", [](const std::string& path) {
        fs::remove_all(fs::path(path).parent_path());
        writeFile(fs::path(path).parent_path(), Bytes{1, 2, 3});
    });
    if (geteuid() != 0) // who may read everything
        damages.emplace_back("unreadable", [](const std::string& path) { close(creat(path.c_str(), 0)); });
    const auto folder = [](const std::string& path) {
        return fs::path(path).parent_path();
    };
    for (const auto& [name, damage] : damages) {
        fs::remove_all(entries[0]);
        damage(entries[0]);
        const Outcome outcome = build(order);
        EXPECT_EQ(outcome.result, TARNOK_OK) << name << outcome.texts();
        EXPECT_TRUE(readFile(order.output) == expected) << name;
        // A folder takes all that lies in it along.
        const auto lost = name == "a file for its folder" ? std::ranges::count(entries, folder(entries[0]), folder) : 1;
        EXPECT_EQ(outcome.cachedSounds(), 3 - lost) << name;
        EXPECT_EQ(build(order).cachedSounds(), 3) << name << " is not healed";
    }
}

TEST(Cache, RemembersUnchangedFilesAndSurvivesDamageToThatMemory)
{
    const Workshop workshop;
    Order order = workshop.order(workshop.makeSounds(3));
    ASSERT_EQ(build(order).result, TARNOK_OK);
    const Bytes expected = readFile(order.output);
    const auto segments = [&] {
        std::vector<std::string> found;
        std::error_code ignored;
        for (const auto& entry : fs::directory_iterator(workshop.path("cache/index"), ignored))
            found.push_back(entry.path().string());
        return found;
    };
    EXPECT_TRUE(segments().empty()) << "files as young as these may change without a trace";
    std::this_thread::sleep_for(std::chrono::milliseconds(2300));
    EXPECT_EQ(build(order).cachedSounds(), 3);
    ASSERT_EQ(segments().size(), 1u);
    EXPECT_EQ(build(order).cachedSounds(), 3);
    EXPECT_EQ(segments().size(), 1u);

    for (const auto& [name, mutant] : mutantsOf(readFile(segments()[0]))) {
        writeFile(segments()[0], mutant);
        ASSERT_EQ(build(order).cachedSounds(), 3) << name;
        ASSERT_TRUE(readFile(order.output) == expected) << name;
        ASSERT_EQ(segments().size(), 1u) << name;
    }

    // Many builds with something new each: the segments are merged, not piled up.
    for (int i = 0; i < 30; ++i) {
        for (const auto& sound : order.sounds)
            makeOlder(sound.front(), 100 + i);
        std::this_thread::sleep_for(std::chrono::milliseconds(i < 2 ? 2200 : 0));
        ASSERT_EQ(build(order).cachedSounds(), 3);
    }
    EXPECT_LE(segments().size(), 9u);
}

TEST(Cache, KeepsNothingOfAFileThatChangesWhileItIsRead)
{
    const Workshop workshop;
    const std::string file = workshop.path("changing.wav");
    // It takes a while to hash the second file, after the first was hashed and before it is decoded.
    const std::string slow = workshop.path("slow.wav");
    writeSound(slow, SF_FORMAT_WAV | SF_FORMAT_PCM_16, noise(1, 44100, 2'000'000));
    Order still = workshop.order({});
    still.output = workshop.path("still.tnb");
    std::vector<Bytes> expected;
    for (const char* name : {"content0", "content1"}) {
        const auto seed = uint32_t(expected.size() + 1);
        writeSound(workshop.path(name), SF_FORMAT_WAV | SF_FORMAT_PCM_16, noise(1, 44100, 1000, seed));
        still.sounds = {{workshop.path(name), slow}};
        ASSERT_EQ(build(still).result, TARNOK_OK);
        expected.push_back(hear(still.output).at(0).bytes);
    }

    const Bytes contents[] = {readFile(workshop.path("content0")), readFile(workshop.path("content1"))};
    writeFile(file, contents[1]);
    const std::jthread writer([&](std::stop_token enough) {
        for (size_t i = 0; !enough.stop_requested(); ++i) {
            writeFile(workshop.path("next"), contents[i % 2]);
            fs::rename(workshop.path("next"), file);
            std::this_thread::sleep_for(std::chrono::microseconds(500 + i % 17 * 600));
        }
    });
    Order order = workshop.order({});
    order.sounds = {{file, slow}};
    order.initFlags |= TARNOK_INIT_REBUILD;
    for (int i = 0; i < 40; ++i) {
        const Outcome outcome = build(order);
        if (outcome.result != TARNOK_OK) {
            EXPECT_EQ(outcome.result, TARNOK_ERR_FILE_OS);
            EXPECT_NE(outcome.texts().find("changing.wav: another program keeps writing"), std::string::npos)
                << outcome.texts();
        }
        // What that build stored under the hash of the other content would come out here.
        for (size_t content = 0; content < 2; ++content) {
            still.sounds = {{workshop.path("content" + std::to_string(content)), slow}};
            ASSERT_EQ(build(still).result, TARNOK_OK);
            ASSERT_TRUE(hear(still.output).at(0).bytes == expected[content]) << "the cache is poisoned";
        }
    }
}

TEST(Cache, IsSharedBetweenProcesses)
{
    const Workshop workshop;
    const std::vector<std::string> files = workshop.makeSounds(30);
    for (int round = 0; round < 5; ++round) {
        fs::remove_all(workshop.path("cache"));
        fs::create_directory(workshop.path("cache"));
        std::vector<Order> orders;
        std::vector<pid_t> processes;
        for (int i = 0; i < 3; ++i) {
            // The last one has some sounds in common with the others, in another order.
            Order& order = orders.emplace_back(workshop.order(files));
            order.output = workshop.path("bank" + std::to_string(i) + ".tnb");
            if (i == 2)
                std::reverse(order.sounds.begin(), order.sounds.end());
            order.sounds.resize(20);
            processes.push_back(startBuild(order));
        }
        for (const pid_t process : processes) {
            int status = 0;
            ASSERT_EQ(waitpid(process, &status, 0), process);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == TARNOK_OK) << status;
        }
        EXPECT_TRUE(readFile(orders[0].output) == readFile(orders[1].output));
        EXPECT_EQ(build(orders[0]).cachedSounds(), 20);
        EXPECT_EQ(build(orders[2]).cachedSounds(), 20);
        EXPECT_EQ(workshop.leftovers(), std::vector<std::string>());
    }
}

TEST(Cache, MayBeEmptiedAtAnyMomentOfABuild)
{
    const Workshop workshop;
    Order order = workshop.order(workshop.makeSounds(16));
    order.format = TARNOK_FORMAT_VORBIS;
    order.flags = TARNOK_BUILD_WRITEPEAKVOLUME;
    ASSERT_EQ(build(order).result, TARNOK_OK);
    const Bytes expected = readFile(order.output);
    order.key = "key";
    ASSERT_EQ(build(order).result, TARNOK_OK);
    const Bytes locked = readFile(order.output);
    for (const char* part : {"cache", "cache/sounds", "cache/incomplete"}) {
        const std::jthread remover([&](std::stop_token enough) {
            while (!enough.stop_requested()) {
                std::error_code ignored;
                fs::remove_all(workshop.path(part), ignored);
                fs::create_directory(workshop.path(part), ignored);
                std::this_thread::sleep_for(std::chrono::microseconds(300));
            }
        });
        for (int i = 0; i < 4; ++i) {
            order.key = i % 2 ? "key" : nullptr;
            const Outcome outcome = build(order);
            ASSERT_EQ(outcome.result, TARNOK_OK) << part << " " << outcome.texts();
            EXPECT_EQ(outcome.countOf(TARNOK_STATE_FINISHED), 16);
            EXPECT_TRUE(readFile(order.output) == (order.key ? locked : expected)) << part;
        }
    }
    EXPECT_EQ(build(order).result, TARNOK_OK);
    EXPECT_EQ(workshop.leftovers(), std::vector<std::string>());
}

TEST(Cache, IsNotNeededForABuild)
{
    const Workshop workshop;
    Order order = workshop.order(workshop.makeSounds(6));
    const std::string usable = order.cache;
    writeFile(workshop.path("file"), std::string("not a folder"));
    fs::create_directory(workshop.path("readonly"));
    fs::permissions(workshop.path("readonly"), fs::perms::owner_read | fs::perms::owner_exec);
    fs::create_directory(workshop.path("blocked"));
    for (const char* part : {"sounds", "incomplete", "index"})
        writeFile(workshop.path(std::string("blocked/") + part), std::string("not a folder"));
    fs::create_directory(workshop.path("piped"));
    for (const char* part : {"limit", "tidied", "records"}) {
        ASSERT_EQ(mkfifo(workshop.path(std::string("piped/") + part).c_str(), 0666), 0);
        makeOlder(workshop.path(std::string("piped/") + part), 7200);
    }
    fs::create_directory(workshop.path("halfblocked"));
    writeFile(workshop.path("halfblocked/sounds"), std::string("entries can be written but not stored"));
    for (const TARNOK_FORMAT format : {TARNOK_FORMAT_KADPCM, TARNOK_FORMAT_PCM}) {
        order.format = format;
        order.cache = usable;
        ASSERT_EQ(build(order).result, TARNOK_OK);
        const Bytes expected = readFile(order.output);
        for (const char* cache : {"file", "missing", "readonly", "blocked", "halfblocked", "piped"}) {
            order.cache = workshop.path(cache);
            const Outcome outcome = build(order);
            EXPECT_EQ(outcome.result, TARNOK_OK) << cache << " " << outcome.texts();
            EXPECT_EQ(outcome.countOf(TARNOK_STATE_FINISHED), 6) << cache;
            EXPECT_TRUE(readFile(order.output) == expected) << cache;
            EXPECT_EQ(workshop.leftovers(), std::vector<std::string>()) << cache;
        }
    }
}

TEST(Cache, OnAFullDiskIsReplacedByTemporaryFilesElsewhere)
{
    const Workshop workshop;
    Order order = workshop.order({});
    for (int i = 0; i < 3; ++i) {
        order.sounds.push_back({workshop.path("noise" + std::to_string(i) + ".flac")});
        writeSound(order.sounds.back().front(), SF_FORMAT_FLAC | SF_FORMAT_PCM_16,
                   noise(1, 44100, 400'000, uint32_t(i)));
    }
    ASSERT_EQ(build(order).result, TARNOK_OK);
    const Bytes expected = readFile(order.output);

    const std::string disk = workshop.path("disk");
    fs::create_directory(disk);
    if (mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "needs the right to mount a small disk";
    order.cache = disk;
    const Outcome small = build(order);
    EXPECT_EQ(small.result, TARNOK_OK) << small.texts();
    EXPECT_TRUE(readFile(order.output) == expected);
    EXPECT_EQ(build(order).cachedSounds(), 1) << "what fits is kept";

    order.output = disk + "/bank.tnb";
    writeFile(order.output, std::string("the bank before"));
    const Outcome full = build(order);
    EXPECT_EQ(full.result, TARNOK_ERR_FILE_OS);
    EXPECT_NE(full.texts().find("disk full while writing bank.tnb"), std::string::npos) << full.texts();
    EXPECT_EQ(readFile(order.output).size(), 15u);
    EXPECT_EQ(workshop.leftovers(), std::vector<std::string>());
    EXPECT_EQ(umount(disk.c_str()), 0);
}

TEST(Cache, ALimitOnFileSizesEndsTheBuildAndNotTheProcess)
{
    const Workshop workshop;
    Order order = workshop.order({workshop.path("long.flac")});
    writeSound(order.sounds[0][0], SF_FORMAT_FLAC | SF_FORMAT_PCM_16, noise(1, 44100, 400'000));
    rlimit former{};
    getrlimit(RLIMIT_FSIZE, &former);
    const rlimit limit{50'000, former.rlim_max};
    for (const TARNOK_FORMAT format : allFormats) {
        order.format = format;
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        const Outcome outcome = build(order);
        setrlimit(RLIMIT_FSIZE, &former);
        EXPECT_EQ(outcome.result, TARNOK_ERR_FILE_OS) << format;
        EXPECT_NE(outcome.texts().find("largest allowed file size"), std::string::npos) << outcome.texts();
        EXPECT_EQ(workshop.leftovers(), std::vector<std::string>());
        EXPECT_EQ(build(order).result, TARNOK_OK);
    }
}

TEST(Cache, ForgetsTheOldestButNothingOfTheLastHour)
{
    const Workshop workshop;
    const std::vector<std::string> files = workshop.makeSounds(8, 20'000);
    Order order = workshop.order(files);
    order.format = TARNOK_FORMAT_KADPCM;
    ASSERT_EQ(build(order).result, TARNOK_OK);
    std::vector<std::string> entries = workshop.cacheEntries();
    ASSERT_EQ(entries.size(), 8u);
    uint64_t total = 0;
    for (size_t i = 0; i < entries.size(); ++i) {
        total += fs::file_size(entries[i]);
        if (i < 6)
            makeOlder(entries[i], 7200 + int(i));
    }
    const std::string limit = workshop.path("cache/limit");
    writeFile(limit, std::to_string(total / 2));
    Order another = workshop.order({workshop.path("one more.flac")});
    writeSound(another.sounds[0][0], SF_FORMAT_FLAC | SF_FORMAT_PCM_16, sine(1, 44100, 100));
    EXPECT_EQ(build(another).result, TARNOK_OK);
    uint64_t left = 0;
    for (const std::string& entry : workshop.cacheEntries())
        left += fs::file_size(entry);
    EXPECT_LE(left, total / 2);
    EXPECT_FALSE(fs::exists(entries[5])) << "the oldest";
    EXPECT_TRUE(fs::exists(entries[6]) && fs::exists(entries[7]));

    writeFile(limit, std::string("1"));
    ASSERT_EQ(build(order).result, TARNOK_OK);
    EXPECT_EQ(build(order).cachedSounds(), 8) << "all were used just now";
}

namespace {

// Sounds that a PCM bank takes from their files, in all formats and containers, and behind them some that only look so.
struct RawSounds
{
    std::vector<std::string> files;
    size_t converted = 0; // the last ones
};

RawSounds makeRawSounds(const Workshop& workshop)
{
    RawSounds sounds;
    const auto add = [&](const char* name, int format, float sample = 0.5f, size_t frames = 70'000) {
        Signal signal = noise(2, 44100, frames, uint32_t(sounds.files.size()));
        signal.samples.back() = sample;
        sounds.files.push_back(writeSound(workshop.path(name), format, signal));
    };
    add("16.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    add("24.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    add("32.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_32);
    add("rf64.wav", SF_FORMAT_RF64 | SF_FORMAT_PCM_24);
    add("w64.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16);
    add("infinite.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, -INFINITY);
    add("no number.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, NAN);
    add("short.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 0, 1);
    addWavTags(sounds.files[0], {{{1000, 2000}}, {{500, "marker"}}});
    const size_t raw = sounds.files.size();
    add("8.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8);
    add("big end first.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16 | SF_ENDIAN_BIG);
    add("24.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24);
    add("short.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 0, 1);
    add("32.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_32);
    add("double.wav", SF_FORMAT_WAV | SF_FORMAT_DOUBLE);
    sounds.converted = sounds.files.size() - raw;
    return sounds;
}

} // namespace

TEST(RawSounds, AreLeftInTheirFilesAndComeIntoTheBankAsTheyAre)
{
    const Workshop workshop;
    const RawSounds sounds = makeRawSounds(workshop);
    Order order = workshop.order(sounds.files);
    order.flags = TARNOK_BUILD_WRITEPEAKVOLUME;
    Bytes banks[2];
    for (int round = 0; round < 6; ++round) {
        order.key = round % 2 ? "key" : nullptr;
        order.threads = unsigned(1 + round);
        const Outcome outcome = build(order);
        ASSERT_EQ(outcome.result, TARNOK_OK) << outcome.texts();
        EXPECT_EQ(outcome.cachedSounds(), round == 0 ? 0 : int(sounds.files.size()));
        const Bytes bank = readFile(order.output);
        ASSERT_TRUE(round < 2 || bank == banks[round % 2]) << round;
        banks[round % 2] = bank;
    }
    EXPECT_EQ(workshop.cacheEntries().size(), sounds.converted);
    const std::vector<Heard> heard = hear(order.output, order.key);
    ASSERT_EQ(heard.size(), sounds.files.size());
    for (size_t i = 0; i < heard.size(); ++i) {
        const Heard file = hear(sounds.files[i]).at(0);
        EXPECT_EQ(heard[i].format, file.format) << sounds.files[i];
        EXPECT_TRUE(heard[i].bytes == file.bytes) << sounds.files[i];
    }
    // Whatever has to be changed on the way is not taken as it is, though the table knows the file.
    order.flags = 0;
    order.each.desiredSampleRate = 22050;
    EXPECT_EQ(build(order).cachedSounds(), 0);
    EXPECT_EQ(workshop.cacheEntries().size(), sounds.converted + sounds.files.size());
}

TEST(RawSounds, AreReadAgainWhenTheTableOfThemIsDamaged)
{
    const Workshop workshop;
    const RawSounds sounds = makeRawSounds(workshop);
    Order order = workshop.order(sounds.files);
    ASSERT_EQ(build(order).result, TARNOK_OK);
    const Bytes expected = readFile(order.output);
    const int all = int(sounds.files.size());
    const std::string path = workshop.path("cache/records");
    const Bytes table = readFile(path);
    ASSERT_GT(table.size(), 500u);

    for (const auto& [name, damage] : damagesOf(table)) {
        fs::remove_all(path);
        damage(path);
        const Outcome outcome = build(order);
        EXPECT_EQ(outcome.result, TARNOK_OK) << name << outcome.texts();
        EXPECT_EQ(outcome.cachedSounds(), int(sounds.converted)) << name;
        EXPECT_TRUE(readFile(order.output) == expected) << name;
        EXPECT_EQ(build(order).cachedSounds(), all) << name << " is not healed";
    }
    EXPECT_EQ(workshop.leftovers(), std::vector<std::string>());
}

// The first sound is long, so that another can be changed after the writing of the bank has begun and before its own
// turn comes.
TEST(RawSounds, ThatChangeBeforeTheyAreInTheBankNeverSpoilIt)
{
    const Workshop workshop;
    const std::string longFile = workshop.path("long.wav");
    const std::string file = workshop.path("changing.wav");
    writeSound(longFile, SF_FORMAT_WAV | SF_FORMAT_PCM_16, sine(2, 44100, 10'000'000));
    const Bytes before = readFile(writeSound(file, SF_FORMAT_WAV | SF_FORMAT_PCM_16, noise(1, 44100, 100'000, 1)));
    const Signal otherSound = noise(1, 44100, 100'000, 2);
    const Bytes after = readFile(writeSound(workshop.path("other"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, otherSound));
    Order order = workshop.order({longFile, file});
    for (int i = 0; i < 6; ++i)
        order.sounds.push_back({workshop.path("one of many" + std::to_string(i) + ".wav")});
    const auto overwrite = [&] {
        const int descriptor = open(file.c_str(), O_WRONLY);
        EXPECT_EQ(pwrite(descriptor, after.data(), after.size(), 0), ssize_t(after.size()));
        close(descriptor);
    };
    const auto replace = [&](const std::string& path) {
        fs::rename(writeSound(path + "2", SF_FORMAT_WAV | SF_FORMAT_PCM_16, otherSound), path);
    };
    const auto replaceAgainAndAgain = [&] {
        for (size_t i = 2; i < order.sounds.size(); ++i) {
            replace(order.sounds[i][0]);
            std::this_thread::sleep_for(std::chrono::milliseconds(60));
        }
    };
    using Change = std::pair<const char*, std::function<void()>>;
    const std::vector<Change> changes = {
        Change("", overwrite),
        Change("", [&] { replace(file); }),
        Change("cut short", [&] { fs::resize_file(file, before.size() / 2); }),
        Change("", replaceAgainAndAgain), // more often than anybody would begin anew
        Change("does not exist", [&] { fs::remove(file); }),
        Change("folder", [&] { fs::remove(file), fs::create_directory(file); }),
        Change("pipe", [&] { fs::remove(file), mkfifo(file.c_str(), 0666); }),
    };
    size_t caught = 0;
    for (const bool isLocked : {false, true}) {
        order.key = isLocked ? "key" : nullptr;
        order.initFlags = TARNOK_INIT_ALWAYS | (isLocked ? TARNOK_INIT_IGNORE_ERRORS : 0);
        for (const auto& [text, change] : changes) {
            fs::remove_all(file);
            writeFile(file, before);
            for (size_t i = 2; i < order.sounds.size(); ++i)
                writeFile(order.sounds[i][0], before);
            writeFile(order.output, std::string("the bank before"));
            Outcome outcome;
            ASSERT_EQ(Tarnok_Init(TARNOK_TNBVERSION_CURRENT, order.initFlags, 2, order.cache.c_str()), TARNOK_OK);
            std::jthread builder([&] { outcome.result = buildOnly(order); });
            bool writing = false;
            while (!writing) {
                for (const Report& report : drainReports()) {
                    writing |= report.sound < 0;
                    outcome.reports.push_back(report);
                }
            }
            change();
            builder.join();
            for (const Report& report : drainReports())
                outcome.reports.push_back(report);
            EXPECT_EQ(Tarnok_Release(), TARNOK_OK);
            const std::vector<Heard> heard = hear(order.output, order.key);
            const bool isEmpty = outcome.result == TARNOK_OK && heard.at(1).bytes.empty();
            EXPECT_EQ(outcome.countOf(TARNOK_STATE_FAILED), outcome.result != TARNOK_OK || isEmpty) << outcome.texts();
            if (outcome.result != TARNOK_OK || isEmpty) {
                EXPECT_NE(outcome.texts().find("changing.wav: "), std::string::npos) << outcome.texts();
                EXPECT_NE(outcome.texts().find(text), std::string::npos) << outcome.texts();
                EXPECT_TRUE(*text) << "what is there can be built: " << outcome.texts();
                EXPECT_EQ(isEmpty, isLocked) << "errors are ignored";
                EXPECT_TRUE(isEmpty || readFile(order.output).size() == 15u);
                ++caught;
                continue;
            }
            ASSERT_EQ(heard.size(), order.sounds.size());
            const bool isNew = std::equal(heard[1].bytes.begin(), heard[1].bytes.end(), after.begin() + 44);
            EXPECT_TRUE(isNew || std::equal(heard[1].bytes.begin(), heard[1].bytes.end(), before.begin() + 44)) << text;
            caught += isNew;
            EXPECT_TRUE(*text || build(order).result == TARNOK_OK);
        }
    }
    EXPECT_GT(caught, changes.size()) << "the changes came too late to be tested";
    EXPECT_EQ(workshop.leftovers(), std::vector<std::string>());
}
