// SPDX-License-Identifier: MIT
#include "builder_test.hpp"

#include <fstream>

namespace test {

std::vector<Report> drainReports()
{
    std::vector<Report> reports;
    const TARNOK_PROGRESSITEM* item = nullptr;
    while (Tarnok_FetchNextProgressItem(&item), item) {
        Report report{item->subSoundIndex, item->threadId, item->state, TARNOK_OK, {}};
        if (const auto* failed = static_cast<const TARNOK_STATE_DATA_FAILED*>(item->stateData)) {
            report.code = failed->errorCode;
            report.text = failed->errorString;
        }
        reports.push_back(report);
        EXPECT_EQ(Tarnok_ReleaseProgressItem(item), TARNOK_OK);
    }
    return reports;
}

std::vector<TARNOK_STATE> Outcome::reportedStates(int sound) const
{
    std::vector<TARNOK_STATE> states;
    for (const Report& report : reports) {
        if (report.sound == sound)
            states.push_back(report.state);
    }
    return states;
}

std::string Outcome::texts() const
{
    std::string texts;
    for (const Report& report : reports) {
        if (report.state == TARNOK_STATE_FAILED)
            texts += report.text + "\n";
    }
    return texts;
}

testing::AssertionResult Outcome::failed(TARNOK_RESULT why, const std::string& text) const
{
    const bool holds = result == why && texts().find(text) != std::string::npos;
    return testing::AssertionResult(holds) << result << " instead of " << why << ", not " << text << "\n" << texts();
}

TARNOK_RESULT initialise(const BuildArguments& arguments)
{
    return Tarnok_Init(TARNOK_TNBVERSION_CURRENT, arguments.initFlags, arguments.threads, arguments.cache.c_str());
}

TARNOK_RESULT buildOnly(const BuildArguments& arguments)
{
    std::vector<std::vector<const char*>> names;
    std::vector<TARNOK_SUBSOUND> subsounds;
    for (const auto& sound : arguments.sounds) {
        auto& files = names.emplace_back();
        for (const std::string& file : sound)
            files.push_back(file.c_str());
        TARNOK_SUBSOUND subsound = arguments.each;
        subsound.fileNames = files.data();
        subsound.numFiles = uint32_t(files.size());
        if (arguments.adjust)
            arguments.adjust(subsounds.size(), subsound);
        subsounds.push_back(subsound);
    }
    return Tarnok_Build(subsounds.data(), unsigned(subsounds.size()), arguments.format, arguments.flags,
                        arguments.quality, arguments.key, arguments.output.c_str());
}

Outcome build(const BuildArguments& arguments)
{
    Outcome outcome;
    EXPECT_EQ(initialise(arguments), TARNOK_OK);
    outcome.result = buildOnly(arguments);
    outcome.reports = drainReports();
    char remark[512];
    while (Tarnok_FetchNextRemark(remark, sizeof remark) == TARNOK_OK && *remark)
        outcome.remarks.emplace_back(remark);
    EXPECT_EQ(Tarnok_Release(), TARNOK_OK);
    if (outcome.result == TARNOK_OK)
        outcome.bank = readFile(arguments.output);
    return outcome;
}

Outcome mustBuild(const BuildArguments& arguments)
{
    Outcome outcome = build(arguments);
    EXPECT_EQ(outcome.result, TARNOK_OK) << outcome.texts();
    return outcome;
}

BuilderTest::~BuilderTest()
{
    EXPECT_EQ(leftovers(), std::vector<std::string>());
    std::error_code ignored;
    fs::remove_all(mFolder, ignored);
}

BuildArguments BuilderTest::makeArguments(const std::vector<std::string>& files) const
{
    BuildArguments arguments;
    for (const std::string& file : files)
        arguments.sounds.push_back({file});
    arguments.cache = fullPath("cache");
    arguments.output = fullPath("bank.tnb");
    return arguments;
}

std::vector<std::string> BuilderTest::makeSounds(int count, size_t frames) const
{
    constexpr int formats[] = {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_FLAC | SF_FORMAT_PCM_24,
                               SF_FORMAT_WAV | SF_FORMAT_FLOAT, SF_FORMAT_AIFF | SF_FORMAT_PCM_S8};
    constexpr const char* extensions[] = {".wav", ".flac", ".wav", ".aiff"};
    std::vector<std::string> files;
    for (int i = 0; i < count; ++i) {
        const std::string name = "sound" + std::to_string(i) + extensions[i % 4];
        files.push_back(makeSound(name, sine(1 + i % 2, 44100, frames + size_t(i) * 10, 200 + i), formats[i % 4]));
    }
    return files;
}

std::vector<std::string> BuilderTest::filesBelow(const std::string& name) const
{
    std::vector<std::string> found;
    std::error_code ignored;
    for (const auto& entry : fs::recursive_directory_iterator(fullPath(name), ignored)) {
        if (entry.is_regular_file())
            found.push_back(entry.path().string());
    }
    return found;
}

std::vector<std::string> BuilderTest::leftovers() const
{
    std::vector<std::string> found = filesBelow("");
    std::erase_if(found, [](const fs::path& file) { return !file.filename().string().starts_with('.'); });
    return found;
}

namespace {

DecodedSound readSound(KESS::Sound& sound)
{
    DecodedSound result{readFacts(sound), {}, readBytes(sound), readLoop(sound), readSyncPoints(sound), {}, {}};
    EXPECT_EQ(sound.seekData(0), KESS_OK);
    result.floats = readFloats(sound);
    const size_t samples = result.samples * size_t(result.channels);
    EXPECT_EQ(result.floats.size(), samples);
    EXPECT_EQ(result.bytes.size(), samples * size_t(result.bits / 8));
    float peak = 0;
    if (sound.getPeak(&peak) == KESS_OK)
        result.peak = peak;
    char name[300];
    EXPECT_EQ(sound.getName(name, sizeof name), KESS_OK);
    result.name = name;
    return result;
}

} // namespace

std::vector<DecodedSound> readSounds(const std::string& path, const char* key)
{
    std::vector<DecodedSound> sounds;
    const Engine engine;
    SoundPointer sound;
    if (engine.open(path, &sound) != KESS_OK)
        return sounds;
    if (readFacts(*sound).type != KESS_SOUND_TYPE_TNB)
        return {readSound(*sound)};
    int count = 0;
    if ((key && sound->setEncryptionKey(key) != KESS_OK) || sound->getNumSubSounds(&count) != KESS_OK)
        return sounds;
    for (int index = 0; index < count; ++index) {
        KESS::Sound* subsound = nullptr;
        EXPECT_EQ(sound->getSubSound(index, &subsound), KESS_OK);
        sounds.push_back(readSound(*subsound));
        EXPECT_EQ(subsound->verifyData(), KESS_OK);
    }
    return sounds;
}

// A joined thread may remain in the list for a moment: the kernel wakes the joining thread before it removes the joined
// one, and other threads may run in between. But it is already marked as ending.
int threadCount()
{
    constexpr unsigned ending = 0x4; // PF_EXITING of the kernel
    int count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/task")) {
        // The fields after the name in brackets: state, parent, group, session, terminal, the terminal's group, flags.
        std::string state, number;
        unsigned flags = ending;
        std::ifstream file(entry.path() / "stat");
        file.ignore(1000, ')') >> state >> number >> number >> number >> number >> number >> flags;
        count += file && !(flags & ending);
    }
    return count;
}

} // namespace test
