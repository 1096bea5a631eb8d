// SPDX-License-Identifier: MIT
// The cache never changes a bank, whatever happens to its files.
#include "bank/checksum.hpp"
#include "bank/sound.hpp"
#include "base/bytes.hpp"
#include "base/file.hpp"
#include "builder_test.hpp"

#include <cmath>
#include <fstream>
#include <map>
#include <set>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace test;

namespace {

using Cache = BuilderTest;

void makeOlder(const std::string& path, int seconds)
{
    fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::seconds(seconds));
}

using Damage = std::pair<std::string, std::function<void(const std::string& path)>>;

Damage replacement(const std::string& name, const Bytes& bytes)
{
    return {name, [bytes](const std::string& path) {
                writeFile(path, bytes);
            }};
}

// Cuts or lengthens a file, or flips one of its bits.
std::vector<Damage> makeMutations(const Bytes& bytes)
{
    std::vector<Damage> damages;
    for (const size_t length : {size_t(0), size_t(7), size_t(20), size_t(30), bytes.size() - 1, bytes.size() + 40}) {
        Bytes mutant = bytes;
        mutant.resize(length);
        damages.push_back(replacement("resized to " + std::to_string(length), mutant));
    }
    for (size_t offset = 0; offset < bytes.size(); offset += offset < 64 ? 5 : 1 + bytes.size() / 40) {
        Bytes mutant = bytes;
        mutant[offset] ^= uint8_t(1 << offset % 8);
        damages.push_back(replacement("bit of byte " + std::to_string(offset), mutant));
    }
    return damages;
}

// What else may replace a file of the cache.
std::vector<Damage> makeDamages(const Bytes& bytes)
{
    std::vector<Damage> damages = makeMutations(bytes);
    damages.emplace_back("removed", [](const std::string&) {});
    damages.emplace_back("an empty folder", [](const std::string& path) { fs::create_directory(path); });
    damages.emplace_back("a pipe", [](const std::string& path) { ASSERT_EQ(mkfifo(path.c_str(), 0666), 0); });
    damages.emplace_back("a link to nothing", [](const std::string& path) { fs::create_symlink("nowhere", path); });
    return damages;
}

// Entries with right checksums whose records weren't made by an encoder.
std::vector<Damage> makeForgeries(const Bytes& entry)
{
    constexpr size_t headerBytes = 80;
    const Bytes record(entry.begin() + ptrdiff_t(headerBytes + base::loadLittle<uint64_t>(&entry[40])), entry.end());
    std::vector<Damage> damages;
    const auto forge = [&](const char* name, const Bytes& forged) {
        Bytes bytes(entry.begin(), entry.end() - ptrdiff_t(record.size()));
        bytes.insert(bytes.end(), forged.begin(), forged.end());
        base::storeLittle(&bytes[48], uint64_t(forged.size()));
        base::storeLittle(&bytes[64], bank::checksum(std::span(forged)));
        base::storeLittle(&bytes[72], bank::checksum(std::span(bytes).first(72)));
        damages.push_back(replacement(name, bytes));
    };
    const auto lie = [&](const char* name, const std::function<void(bank::Sound&)>& change) {
        bank::Sound sound = *bank::deserialise(record);
        change(sound);
        forge(name, bank::serialise(sound));
    };
    lie("another checksum", [](bank::Sound& sound) { ++sound.dataChecksum; });
    const auto becomePcm = [](bank::Sound& sound) {
        const bank::Sound other = std::exchange(sound, bank::Sound());
        sound.sampleFormat = bank::SampleFormat::Pcm8;
        sound.sampleRate = other.sampleRate;
        sound.sampleCount = sound.dataBytes = other.dataBytes;
        sound.dataChecksum = other.dataChecksum;
        sound.channels = 1;
    };
    lie("another codec", becomePcm);
    lie("more data than there is", [&](bank::Sound& sound) {
        becomePcm(sound);
        sound.sampleCount = ++sound.dataBytes;
    });
    for (size_t byte = 0; byte < record.size(); ++byte) {
        Bytes forged = record;
        forged[byte] = 0xff;
        const base::Result<bank::Sound> sound = bank::deserialise(forged);
        if (!sound || bank::serialise(*sound) != forged)
            forge("a record that nobody writes", forged);
    }
    forge("no record", {});
    return damages;
}

// Damages a file of the cache. Without that file, the cache still has this number of the bank's sounds; after a build
// it has all of them again.
void expectRepair(const BuildArguments& arguments, const std::string& path, const std::vector<Damage>& damages,
                  int left)
{
    const Bytes expected = readFile(arguments.output);
    for (const auto& [name, damage] : damages) {
        SCOPED_TRACE(name);
        fs::remove_all(path);
        damage(path);
        const Outcome outcome = mustBuild(arguments);
        EXPECT_TRUE(outcome.bank == expected);
        EXPECT_EQ(outcome.cachedSounds(), left);
        EXPECT_EQ(build(arguments).cachedSounds(), int(arguments.sounds.size())) << "not repaired";
    }
}

} // namespace

TEST_F(Cache, DistinguishesEverySettingThatMatters)
{
    const std::vector<std::string> files = makeSounds(1);
    using Change = std::pair<const char*, std::function<void(BuildArguments&)>>;
    const Change changes[] = {
        Change("as it is", [](BuildArguments&) {}),
        Change("quality", [](BuildArguments& arguments) { arguments.quality = 60; }),
        Change("loop", [](BuildArguments& arguments) { arguments.flags = TARNOK_BUILD_DONTLOOP; }),
        Change("peak", [](BuildArguments& arguments) { arguments.flags = TARNOK_BUILD_WRITEPEAKVOLUME; }),
        Change("markers", [](BuildArguments& arguments) { arguments.flags = TARNOK_BUILD_DISABLESYNCPOINTS; }),
        Change("lowest rate", [](BuildArguments& arguments) { arguments.flags = TARNOK_BUILD_OPTIMIZESAMPLERATE; }),
        Change("rate", [](BuildArguments& arguments) { arguments.each.desiredSampleRate = 22050; }),
        Change("format", [](BuildArguments& arguments) { arguments.format = TARNOK_FORMAT_OPUS; }),
        Change("content", [&](BuildArguments&) { writeSound(files[0], wav16, sine(1, 44100, 3000, 999)); }),
        Change("another file beside it", [&](BuildArguments& arguments) { arguments.sounds[0].push_back(files[0]); }),
    };
    BuildArguments arguments = makeArguments(files);
    arguments.format = TARNOK_FORMAT_VORBIS;
    for (const auto& [name, change] : changes) {
        BuildArguments changed = arguments;
        change(changed);
        EXPECT_EQ(build(changed).cachedSounds(), 0) << name;
        EXPECT_EQ(build(changed).cachedSounds(), 1) << name;
    }
    // Settings of the bank that don't change its sounds.
    arguments.key = "key";
    arguments.flags = TARNOK_BUILD_NOGUID | TARNOK_BUILD_TNB5_DONTWRITENAMES | TARNOK_BUILD_FILTERHIGHFREQ;
    EXPECT_EQ(build(arguments).cachedSounds(), 1);
}

TEST_F(Cache, RecoversFromEveryDamage)
{
    BuildArguments arguments = makeArguments(makeSounds(3));
    arguments.format = TARNOK_FORMAT_KADPCM;
    mustBuild(arguments);
    const std::vector<std::string> entries = filesBelow("cache/sounds");
    ASSERT_EQ(entries.size(), 3u);

    std::vector<Damage> damages = makeDamages(readFile(entries[0]));
    damages.emplace_back("an entry of another sound",
                         [&](const std::string& path) { fs::copy_file(entries[1], path); });
    std::ranges::copy(makeForgeries(readFile(entries[0])), std::back_inserter(damages));
    if (geteuid() != 0) // who may read everything
        damages.emplace_back("unreadable", [](const std::string& path) { close(creat(path.c_str(), 0)); });
    expectRepair(arguments, entries[0], damages, 2);
}

struct ForeignFiles : BuilderTest
{
    // The paths of one entry from each folder of the cache, relative to it.
    std::vector<std::string> entriesOfDifferentFolders()
    {
        std::vector<std::string> entries = filesBelow("cache/sounds");
        std::set<fs::path> folders;
        std::erase_if(entries, [&](const fs::path& entry) { return !folders.insert(entry.parent_path()).second; });
        for (std::string& entry : entries)
            entry = fs::relative(entry, fullPath("cache"));
        return entries;
    }

    // Builds of sounds that stay in their files, and of sounds that are stored in a cache of which a part can't be
    // used. Returns the last build.
    Outcome mustBuildInEachWay(BuildArguments& arguments)
    {
        Outcome outcome;
        for (const auto format : {TARNOK_FORMAT_PCM, TARNOK_FORMAT_KADPCM}) {
            for (const float rate : {0.0f, 22050.0f}) {
                SCOPED_TRACE(testing::Message() << "format " << format << " at " << rate);
                arguments.format = format;
                arguments.each.desiredSampleRate = rate;
                outcome = mustBuild(arguments);
                EXPECT_LE(outcome.remarks.size(), 1u);
                EXPECT_TRUE(format != TARNOK_FORMAT_PCM || rate != 0 || !outcome.remarks.empty()) << "it was stored";
                for (const std::string& remark : outcome.remarks)
                    EXPECT_TRUE(remark.starts_with("the cache " + arguments.cache + " can't be used: ")) << remark;
            }
        }
        return outcome;
    }
};

// A folder "sounds" or "index" may be older than the cache that was put into its parent folder.
TEST_F(ForeignFiles, AreLeftAlone)
{
    BuildArguments arguments = makeArguments(makeSounds(8));
    arguments.each.desiredSampleRate = 22050; // so that PCM is stored in entries too
    arguments.format = TARNOK_FORMAT_KADPCM;
    const Bytes expected = mustBuild(arguments).bank;
    const std::vector<std::string> entries = entriesOfDifferentFolders();
    ASSERT_GE(entries.size(), 3u);

    arguments.cache = fullPath("mine");
    std::map<std::string, Bytes> foreign;
    const auto put = [&](const fs::path& name) {
        const fs::path path = fullPath("mine") / name;
        fs::create_directories(path.parent_path());
        writeFile(path, foreign[path] = Bytes(20'000, uint8_t(foreign.size() + 1)));
        makeOlder(path, 7200);
    };
    const std::string hash(64, 'a');
    for (const char* name : {"sounds/kick.wav", "sounds/master/take/1", "index/book.index", "records/take.wav",
                             "incomplete/sound.tmp", "tidied"})
        put(name);
    put(fs::path(entries[2]).parent_path() / "snare.wav");
    put(fs::path(entries[2]).parent_path() / hash.substr(1)); // has the name of an entry, but not its content
    put("index/" + hash + ".index");
    put(entries[0] + "/inside an entry's name");
    put(fs::path(entries[1]).parent_path()); // a file in place of a folder of entries
    const std::string old = fullPath("mine/sounds/cc/" + hash.substr(2));
    fs::create_directories(fs::path(old).parent_path());
    fs::copy_file(fullPath("cache/" + entries[0]), old); // an entry of an earlier version
    makeOlder(old, 7200);
    writeFile(fullPath("mine/limit"), "1");

    for (const bool isTableBlocked : {false, true}) {
        if (isTableBlocked) {
            foreign.erase(fullPath("mine/records/take.wav"));
            fs::remove_all(fullPath("mine/records"));
            put("records");
        }
        const Outcome outcome = mustBuildInEachWay(arguments);
        EXPECT_TRUE(outcome.bank == expected);
        EXPECT_EQ(outcome.remarks.size(), 1u);
        EXPECT_LE(build(arguments).cachedSounds(), 6);
        for (const auto& [path, bytes] : foreign)
            EXPECT_TRUE(fs::is_regular_file(path) && readFile(path) == bytes) << path;
        EXPECT_FALSE(fs::exists(old));
    }
}

TEST_F(Cache, RemembersUnchangedFilesAndSurvivesDamageToTheirIndex)
{
    BuildArguments arguments = makeArguments(makeSounds(3));
    const Bytes expected = mustBuild(arguments).bank;
    EXPECT_TRUE(filesBelow("cache/index").empty()) << "such new files may change without a new time";
    const LaterClock later;
    EXPECT_EQ(build(arguments).cachedSounds(), 3);
    ASSERT_EQ(filesBelow("cache/index").size(), 1u);
    EXPECT_EQ(build(arguments).cachedSounds(), 3);
    EXPECT_EQ(filesBelow("cache/index").size(), 1u);

    for (const auto& [name, mutate] : makeMutations(readFile(filesBelow("cache/index")[0]))) {
        mutate(filesBelow("cache/index")[0]);
        const Outcome outcome = build(arguments);
        ASSERT_EQ(outcome.cachedSounds(), 3) << name;
        ASSERT_TRUE(outcome.bank == expected) << name;
        ASSERT_EQ(filesBelow("cache/index").size(), 1u) << name;
    }
}

TEST_F(Cache, StoresNothingOfAFileThatChangesWhileItIsRead)
{
    std::vector<BuildArguments> still;
    std::vector<Bytes> expected;
    for (const uint32_t seed : {0, 1}) {
        still.push_back(makeArguments({makeSound("content" + std::to_string(seed), noise(1, 44100, 1000, seed + 1))}));
        still.back().flags = TARNOK_BUILD_TNB5_DONTWRITENAMES;
        expected.push_back(mustBuild(still.back()).bank);
    }
    BuildArguments arguments = makeArguments({fullPath("changing.wav")});
    arguments.flags = TARNOK_BUILD_TNB5_DONTWRITENAMES;
    arguments.initFlags |= TARNOK_INIT_REBUILD;
    size_t content = 0;
    const auto replaceBy = [&](size_t next) {
        content = next;
        fs::copy_file(fullPath("content" + std::to_string(content)), fullPath("next"));
        fs::rename(fullPath("next"), fullPath("changing.wav"));
    };
    // The content is hashed before the first of these moments, and the file is opened for decoding after it.
    for (const TARNOK_STATE moment :
         {TARNOK_STATE_DECODING, TARNOK_STATE_ANALYSING, TARNOK_STATE_PREPROCESSING, TARNOK_STATE_ENCODING}) {
        for (const int changes : {1, 2, 1000}) {
            SCOPED_TRACE(testing::Message() << "state " << moment << ", " << changes << " changes");
            replaceBy(0);
            int left = changes;
            const AtMoment writer(builder::onReport, [&](int sound, TARNOK_STATE state) {
                if (sound == 0 && state == moment && left-- > 0)
                    replaceBy(1 - content);
            });
            const Outcome outcome = build(arguments);
            if (changes <= 2)
                EXPECT_TRUE(outcome.result == TARNOK_OK && outcome.bank == expected[content]) << outcome.texts();
            else
                EXPECT_TRUE(outcome.failed(TARNOK_ERR_FILE_OS, "changing.wav: another program keeps writing"));
            // Anything that build stored under the hash of the other content would be found here.
            for (size_t i = 0; i < 2; ++i)
                ASSERT_TRUE(build(still[i]).bank == expected[i]) << "the cache has stored an entry under a wrong key";
        }
    }
}

// The kernel updates the time only at the first write through a mapping, until it has written the pages back.
TEST_F(Cache, StoresNothingUnderTheOldContentOfAFileThatChangesWithoutANewTime)
{
    const std::string path = makeSound("mapped.wav", noise(1, 44100, 20000, 1));
    const Bytes former = readFile(path);
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    auto* mapped = static_cast<uint8_t*>(mmap(nullptr, former.size(), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
    ASSERT_NE(mapped, MAP_FAILED);
    std::copy(former.begin(), former.end(), mapped);
    const LaterClock later;
    const TARNOK_FORMAT formats[] = {TARNOK_FORMAT_VORBIS, TARNOK_FORMAT_PCM};
    std::map<TARNOK_FORMAT, Bytes> expected;
    BuildArguments arguments = makeArguments({path});
    for (const TARNOK_FORMAT format : formats) {
        arguments.format = format;
        arguments.cache = fullPath("");
        expected[format] = mustBuild(arguments).bank;
    }
    arguments.cache = fullPath("cache");
    arguments.format = TARNOK_FORMAT_KADPCM;
    mustBuild(arguments);
    ASSERT_FALSE(filesBelow("cache/index").empty());

    const base::FileStamp before = *base::readStamp(path);
    for (size_t i = 1000; i < former.size(); ++i)
        mapped[i] = uint8_t(former[i] ^ (i % 2 ? 0x15 : 0));
    if (*base::readStamp(path) != before)
        GTEST_SKIP() << "the file system has noticed";
    for (const TARNOK_FORMAT format : formats) {
        arguments.format = format;
        EXPECT_FALSE(mustBuild(arguments).bank == expected[format]);
    }
    munmap(mapped, former.size());
    close(file);
    writeFile(path, former);
    for (const TARNOK_FORMAT format : formats) {
        arguments.format = format;
        EXPECT_TRUE(mustBuild(arguments).bank == expected[format]) << "the cache has stored an entry under a wrong key";
    }
}

TEST_F(Cache, IsSharedBetweenProcesses)
{
    const std::vector<std::string> files = makeSounds(30);
    for (int round = 0; round < 5; ++round) {
        fs::remove_all(fullPath("cache"));
        fs::create_directory(fullPath("cache"));
        std::vector<BuildArguments> allArguments;
        std::vector<pid_t> processes;
        for (int i = 0; i < 3; ++i) {
            // The last one shares some sounds with the others, in another order.
            BuildArguments& arguments = allArguments.emplace_back(makeArguments(files));
            arguments.output = fullPath("bank" + std::to_string(i) + ".tnb");
            if (i == 2)
                std::reverse(arguments.sounds.begin(), arguments.sounds.end());
            arguments.sounds.resize(20);
            processes.push_back(fork());
            if (processes.back() == 0)
                _exit(build(arguments).result);
        }
        for (const pid_t process : processes) {
            int status = 0;
            ASSERT_EQ(waitpid(process, &status, 0), process);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == TARNOK_OK) << status;
        }
        EXPECT_TRUE(readFile(allArguments[0].output) == readFile(allArguments[1].output));
        EXPECT_EQ(build(allArguments[0]).cachedSounds(), 20);
        EXPECT_EQ(build(allArguments[2]).cachedSounds(), 20);
        EXPECT_EQ(leftovers(), std::vector<std::string>());
    }
}

TEST_F(Cache, MayBeEmptiedAtAnyMomentOfABuild)
{
    BuildArguments arguments = makeArguments(makeSounds(8));
    // Writing its entry begins before its length is known.
    arguments.sounds.push_back({makeSound("long.wav", noise(2, 44100, 200'000))});
    arguments.format = TARNOK_FORMAT_VORBIS;
    arguments.flags = TARNOK_BUILD_WRITEPEAKVOLUME;
    const Bytes expected = mustBuild(arguments).bank;
    arguments.key = "key";
    const Bytes locked = mustBuild(arguments).bank;
    for (const TARNOK_STATE moment :
         {TARNOK_STATE_DECODING, TARNOK_STATE_ENCODING, TARNOK_STATE_WRITING, TARNOK_STATE_FINISHED}) {
        for (const char* part : {"cache", "cache/sounds", "cache/incomplete"}) {
            SCOPED_TRACE(testing::Message() << part << " at state " << moment);
            const auto empty = [&] {
                std::error_code ignored;
                fs::remove_all(fullPath(part), ignored);
                fs::create_directory(fullPath(part), ignored);
            };
            arguments.key = arguments.key ? nullptr : "key";
            const AtMoment remover(builder::onReport, [&](int, TARNOK_STATE state) {
                if (state == moment)
                    empty();
            });
            const AtMoment copyRemover(builder::onCopy, [&](size_t sound) {
                if (sound % 3 == 2)
                    empty();
            });
            const Outcome outcome = mustBuild(arguments);
            EXPECT_EQ(outcome.countReports(TARNOK_STATE_FINISHED), 9);
            EXPECT_TRUE(outcome.bank == (arguments.key ? locked : expected));
        }
    }
    mustBuild(arguments);
}

// Of these PCM sounds, the first stays in its file, and the others are in the cache.
TEST_F(Cache, MayLoseSoundsWhichAreEncodedAgainWithAllOthersThatAreLostOrChanged)
{
    BuildArguments arguments = makeArguments({});
    for (int i = 0; i < 4; ++i)
        arguments.sounds.push_back({fullPath(std::to_string(i) + ".wav")});
    arguments.each.desiredSampleRate = 22'050;
    int attempts = 0; // to write the bank
    const auto buildWith = [&](const std::function<void()>& lose) {
        attempts = 0;
        for (uint32_t i = 0; i < 4; ++i)
            writeSound(arguments.sounds[i][0], wav16, noise(1, i == 0 ? 22'050 : 44'100, 2000, i));
        const AtMoment loser(builder::onCopy, [&](size_t sound) {
            attempts += sound == 0;
            if (sound == 0)
                lose();
        });
        return build(arguments);
    };
    const std::string entries = fullPath("cache/sounds");
    const Outcome atOnce = buildWith([&] {
        fs::remove_all(entries);
        writeSound(arguments.sounds[0][0], wav16, noise(1, 22'050, 2000, 100));
    });
    EXPECT_EQ(atOnce.result, TARNOK_OK) << atOnce.texts();
    EXPECT_EQ(attempts, 2) << "all are encoded at once";
    const Outcome oneFirst =
        buildWith([&] { fs::remove_all(attempts == 1 ? filesBelow("cache/sounds").at(0) : entries); });
    EXPECT_EQ(oneFirst.result, TARNOK_OK) << oneFirst.texts();
    EXPECT_EQ(attempts, 3) << "no others are encoded at first";

    for (const bool ignoresErrors : {false, true}) {
        arguments.initFlags |= ignoresErrors ? TARNOK_INIT_IGNORE_ERRORS : 0;
        const Outcome outcome = buildWith([&] {
            fs::remove_all(entries);
            fs::remove(arguments.sounds[2][0]);
        });
        EXPECT_EQ(outcome.result, ignoresErrors ? TARNOK_OK : TARNOK_ERR_FILE_NOT_FOUND);
        EXPECT_NE(outcome.texts().find("2.wav: the file does not exist"), std::string::npos) << outcome.texts();
    }
}

TEST_F(Cache, FailsABuildDuringWhichAnEntryChanges)
{
    BuildArguments arguments =
        makeArguments({makeSound("a.wav", noise(2, 44100, 20'000)), makeSound("b.wav", noise(2, 44100, 19'999))});
    arguments.format = TARNOK_FORMAT_VORBIS;
    arguments.threads = 1;
    for (const bool isCut : {true, false}) {
        fs::remove_all(fullPath("cache/sounds"));
        bool isFirst = true;
        const AtMoment writer(builder::onReport, [&](int, TARNOK_STATE state) {
            if (state != TARNOK_STATE_FINISHED || !std::exchange(isFirst, false))
                return;
            const std::string entry = filesBelow("cache/sounds").at(0);
            Bytes bytes = readFile(entry);
            bytes[bytes.size() / 2] ^= 1;
            bytes.resize(isCut ? 10 : bytes.size());
            writeFile(entry, bytes);
        });
        EXPECT_TRUE(build(arguments).failed(TARNOK_ERR_CACHE_CHUNK_MISSING, "bank.tnb: the encoded sound was changed"));
    }
}

TEST_F(Cache, IsNotNeededForABuild)
{
    BuildArguments arguments = makeArguments(makeSounds(6));
    const std::string usable = arguments.cache;
    for (const char* cache : {"readonly", "blocked", "piped", "halfblocked"})
        fs::create_directory(fullPath(cache));
    fs::permissions(fullPath("readonly"), fs::perms::owner_read | fs::perms::owner_exec);
    // In the last one, entries can be written but not stored.
    for (const char* file : {"file", "blocked/sounds", "blocked/incomplete", "blocked/index", "halfblocked/sounds"})
        writeFile(fullPath(file), "not a folder");
    for (const char* pipe : {"piped/limit", "piped/tidied", "piped/records"}) {
        ASSERT_EQ(mkfifo(fullPath(pipe).c_str(), 0666), 0);
        makeOlder(fullPath(pipe), 7200);
    }
    for (const TARNOK_FORMAT format : {TARNOK_FORMAT_KADPCM, TARNOK_FORMAT_PCM}) {
        arguments.format = format;
        arguments.cache = usable;
        const Bytes expected = mustBuild(arguments).bank;
        for (const char* cache : {"file", "missing", "readonly", "blocked", "halfblocked", "piped"}) {
            SCOPED_TRACE(cache);
            arguments.cache = fullPath(cache);
            const Outcome outcome = mustBuild(arguments);
            EXPECT_EQ(outcome.countReports(TARNOK_STATE_FINISHED), 6);
            EXPECT_TRUE(outcome.bank == expected);
            const bool isReadOnly = arguments.cache == fullPath("readonly");
            const bool isUsed = arguments.cache == fullPath("piped") || (isReadOnly && geteuid() == 0);
            ASSERT_EQ(outcome.remarks.size(), isUsed ? 0u : 1u);
            const std::string reason = isReadOnly ? "no permission while creating the folder incomplete" : "";
            for (const std::string& remark : outcome.remarks)
                EXPECT_TRUE(remark.starts_with("the cache " + arguments.cache + " can't be used: " + reason)) << remark;
        }
    }
}

TEST_F(Cache, OnAFullDiskIsReplacedByTemporaryFilesElsewhere)
{
    BuildArguments arguments = makeArguments({});
    arguments.threads = 1; // so that the first sound fits
    constexpr int flac = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
    for (const uint32_t seed : {1, 2, 3})
        arguments.sounds.push_back({makeSound(std::to_string(seed), noise(1, 44100, 400'000, seed), flac)});
    const Bytes expected = mustBuild(arguments).bank;

    const std::string disk = fullPath("disk");
    fs::create_directory(disk);
    if (mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "needs the right to mount a small disk";
    arguments.cache = disk;
    const Outcome full = mustBuild(arguments);
    EXPECT_TRUE(full.bank == expected);
    ASSERT_EQ(full.remarks.size(), 1u);
    EXPECT_TRUE(full.remarks[0].starts_with("the cache " + disk + " can't be used: disk full")) << full.remarks[0];
    EXPECT_EQ(build(arguments).cachedSounds(), 1) << "entries that fit are stored";

    arguments.output = disk + "/bank.tnb";
    writeFile(arguments.output, "the bank before");
    EXPECT_TRUE(build(arguments).failed(TARNOK_ERR_FILE_OS, "disk full while writing bank.tnb"));
    EXPECT_EQ(readFile(arguments.output).size(), 15u);
    EXPECT_EQ(leftovers(), std::vector<std::string>());
    EXPECT_EQ(umount(disk.c_str()), 0);

    arguments = makeArguments(makeSounds(1));
    arguments.cache = disk;
    ASSERT_EQ(mount("tmpfs", disk.c_str(), "tmpfs", MS_RDONLY, ""), 0);
    const Outcome readOnly = mustBuild(arguments);
    EXPECT_EQ(umount(disk.c_str()), 0);
    ASSERT_EQ(readOnly.remarks.size(), 1u);
    EXPECT_NE(readOnly.remarks[0].find("the disk is read-only while creating the folder incomplete"), std::string::npos)
        << readOnly.remarks[0];
}

TEST_F(Cache, RemovesTheOldestEntriesButNoneOfTheLastHour)
{
    BuildArguments arguments = makeArguments(makeSounds(8, 20'000));
    arguments.format = TARNOK_FORMAT_KADPCM;
    mustBuild(arguments);
    const std::vector<std::string> entries = filesBelow("cache/sounds");
    ASSERT_EQ(entries.size(), 8u);
    const auto bytes = [&] {
        uint64_t sum = 0;
        for (const std::string& entry : filesBelow("cache/sounds"))
            sum += fs::file_size(entry);
        return sum;
    };
    const uint64_t most = bytes() / 2;
    for (int i = 0; i < 6; ++i)
        makeOlder(entries[size_t(i)], 7200 + i);
    writeFile(fullPath("cache/limit"), "1 G");
    mustBuild(makeArguments({makeSound("one.flac", sine(1, 44100, 99), SF_FORMAT_FLAC | SF_FORMAT_PCM_16)}));
    EXPECT_EQ(filesBelow("cache/sounds").size(), 9u) << "the limit isn't a number of bytes";
    writeFile(fullPath("cache/limit"), std::to_string(most));
    mustBuild(makeArguments({makeSound("one more.flac", sine(1, 44100, 100), SF_FORMAT_FLAC | SF_FORMAT_PCM_16)}));
    EXPECT_LE(bytes(), most);
    EXPECT_FALSE(fs::exists(entries[5])) << "the oldest";
    EXPECT_TRUE(fs::exists(entries[6]) && fs::exists(entries[7]));

    writeFile(fullPath("cache/limit"), "1");
    mustBuild(arguments);
    EXPECT_EQ(build(arguments).cachedSounds(), 8) << "all were used just now";
}

// Sounds that a PCM bank takes from their files, in all formats and containers, followed by some that only look as if
// it could.
struct RawSounds : BuilderTest
{
    RawSounds()
    {
        add("16.wav", wav16);
        add("24.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24);
        add("32.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_32);
        add("rf64.wav", SF_FORMAT_RF64 | SF_FORMAT_PCM_24);
        add("w64.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16);
        add("infinite.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, -INFINITY);
        add("no number.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, NAN);
        add("short.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 0, 1);
        addWavTags(files[0], {{{1000, 2000}}, {{500, "marker"}}});
        add("8.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8);
        add("big end first.wav", wav16 | SF_ENDIAN_BIG);
        add("24.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24);
        add("short.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 0, 1);
        add("32.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_32);
        add("double.wav", SF_FORMAT_WAV | SF_FORMAT_DOUBLE);
        arguments = makeArguments(files);
    }

    void add(const char* name, int format, float sample = 0.5f, size_t frames = 70'000)
    {
        Signal signal = noise(2, 44100, frames, uint32_t(files.size()));
        signal.samples.back() = sample;
        files.push_back(makeSound(name, signal, format));
    }

    std::vector<std::string> files;
    const int converted = 6; // the last ones
    BuildArguments arguments;
};

TEST_F(RawSounds, StayInTheirFilesAndAreCopiedUnchangedIntoTheBank)
{
    arguments.flags = TARNOK_BUILD_WRITEPEAKVOLUME;
    Bytes banks[2];
    for (int round = 0; round < 6; ++round) {
        arguments.key = round % 2 ? "key" : nullptr;
        arguments.threads = unsigned(1 + round);
        const Outcome outcome = mustBuild(arguments);
        EXPECT_EQ(outcome.cachedSounds(), round == 0 ? 0 : int(files.size()));
        ASSERT_TRUE(round < 2 || outcome.bank == banks[round % 2]) << round;
        banks[round % 2] = outcome.bank;
    }
    EXPECT_EQ(int(filesBelow("cache/sounds").size()), converted);
    const std::vector<DecodedSound> sounds = readSounds(arguments.output, arguments.key);
    ASSERT_EQ(sounds.size(), files.size());
    for (size_t i = 0; i < sounds.size(); ++i) {
        const DecodedSound file = readSounds(files[i]).at(0);
        EXPECT_EQ(sounds[i].format, file.format) << files[i];
        EXPECT_TRUE(sounds[i].bytes == file.bytes) << files[i];
        const auto isSame = [](float built, float source) {
            return built == source || (std::isnan(built) && std::isnan(source));
        };
        EXPECT_TRUE(std::ranges::equal(sounds[i].floats, file.floats, isSame)) << files[i];
    }
    // A sound that must be converted isn't taken unchanged, although the table has a record of its file.
    arguments.flags = 0;
    arguments.each.desiredSampleRate = 22050;
    EXPECT_EQ(build(arguments).cachedSounds(), 0);
    EXPECT_EQ(filesBelow("cache/sounds").size(), size_t(converted) + files.size());
}

TEST_F(RawSounds, AreReadAgainWhenTheirTableIsDamaged)
{
    mustBuild(arguments);
    const Bytes table = readFile(fullPath("cache/records"));
    ASSERT_GT(table.size(), 500u);
    expectRepair(arguments, fullPath("cache/records"), makeDamages(table), converted);
}

// Sounds of a PCM bank that stay in their files until the bank is written. The first one changes.
struct ChangingSounds : BuilderTest
{
    ChangingSounds()
    {
        for (const uint32_t seed : {1, 2})
            contents.push_back(readFile(makeSound("content" + std::to_string(seed), noise(1, 44100, 1000, seed))));
        file = fullPath("changing.wav");
        arguments = makeArguments({file});
        for (int i = 0; i < 6; ++i)
            arguments.sounds.push_back({fullPath("one of many" + std::to_string(i) + ".wav")});
    }

    // Builds a bank of the first contents; the sounds change while it is being written.
    Outcome buildWith(const std::function<void()>& change)
    {
        fs::remove_all(file);
        for (const auto& sound : arguments.sounds)
            writeFile(sound[0], contents[0]);
        writeFile(arguments.output, "the bank before");
        const AtMoment writer(builder::onReport, [&](int sound, TARNOK_STATE state) {
            if (sound < 0 && state == TARNOK_STATE_WRITING)
                change();
        });
        return build(arguments);
    }

    void replace(const std::string& path)
    {
        writeFile(path + "2", contents[1]);
        fs::rename(path + "2", path);
    }

    bool hasContent(const DecodedSound& sound, size_t content)
    {
        return std::equal(sound.bytes.begin(), sound.bytes.end(), contents[content].begin() + 44);
    }

    std::string file;
    std::vector<Bytes> contents;
    BuildArguments arguments;
};

TEST_F(ChangingSounds, AreWrittenWithTheirFinalContents)
{
    // The first writes to the same file.
    const std::function<void()> changes[] = {[&] { writeFile(file, contents[1]); },
                                             [&] {
                                                 replace(file);
                                             }};
    for (const auto& change : changes) {
        for (const char* key : {static_cast<const char*>(nullptr), "key"}) {
            arguments.key = key;
            const Outcome outcome = buildWith(change);
            EXPECT_EQ(outcome.result, TARNOK_OK) << outcome.texts();
            const std::vector<DecodedSound> sounds = readSounds(arguments.output, arguments.key);
            ASSERT_EQ(sounds.size(), arguments.sounds.size());
            for (size_t i = 0; i < sounds.size(); ++i)
                EXPECT_TRUE(hasContent(sounds[i], i == 0)) << i;
            mustBuild(arguments);
        }
    }
}

TEST_F(ChangingSounds, MayChangeOneByOneMoreOftenThanABankIsRestarted)
{
    size_t next = 0;
    const AtMoment writer(builder::onCopy, [&](size_t sound) {
        if (sound == next)
            replace(arguments.sounds[next++][0]);
    });
    const Outcome outcome = buildWith([] {});
    EXPECT_EQ(outcome.result, TARNOK_OK) << outcome.texts();
    EXPECT_EQ(next, arguments.sounds.size());
    const std::vector<DecodedSound> sounds = readSounds(arguments.output, arguments.key);
    ASSERT_EQ(sounds.size(), arguments.sounds.size());
    EXPECT_TRUE(hasContent(sounds[0], 1)) << "it was read again";
    EXPECT_TRUE(hasContent(sounds.back(), 0)) << "it was already stored by the build when it changed";
}

TEST_F(ChangingSounds, FailWhenTheyCanNoLongerBeBuilt)
{
    using Change = std::pair<const char*, std::function<void()>>;
    const Change changes[] = {
        Change("cut short", [&] { writeFile(file, Bytes(contents[0].begin(), contents[0].end() - 1000)); }),
        Change("does not exist", [] {}),
        Change("folder", [&] { fs::create_directory(file); }),
        Change("pipe", [&] { mkfifo(file.c_str(), 0666); }),
    };
    for (const auto& [text, change] : changes) {
        for (const bool ignoresErrors : {false, true}) {
            SCOPED_TRACE(testing::Message() << text << (ignoresErrors ? ", errors are ignored" : ""));
            arguments.initFlags = TARNOK_INIT_ALWAYS | (ignoresErrors ? TARNOK_INIT_IGNORE_ERRORS : 0);
            const Outcome outcome = buildWith([&, &replacement = change] {
                fs::remove(file);
                replacement();
            });
            EXPECT_EQ(outcome.countReports(TARNOK_STATE_FAILED), 1);
            EXPECT_NE(outcome.texts().find("changing.wav: "), std::string::npos);
            EXPECT_TRUE(outcome.failed(outcome.result, text));
            EXPECT_EQ(outcome.result == TARNOK_OK, ignoresErrors);
            if (ignoresErrors)
                EXPECT_TRUE(readSounds(arguments.output).at(0).bytes.empty());
            else
                EXPECT_EQ(readFile(arguments.output).size(), 15u);
        }
    }
}
