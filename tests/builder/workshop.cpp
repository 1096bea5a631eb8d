#include "workshop.hpp"

#include "kess.hpp"
#include "support/sound_files.hpp"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
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

std::vector<TARNOK_STATE> Outcome::statesOf(int sound) const
{
    std::vector<TARNOK_STATE> states;
    for (const Report& report : reports) {
        if (report.sound == sound)
            states.push_back(report.state);
    }
    return states;
}

int Outcome::countOf(TARNOK_STATE state) const
{
    return int(
        std::count_if(reports.begin(), reports.end(), [&](const Report& report) { return report.state == state; }));
}

int Outcome::cachedSounds() const
{
    int count = 0;
    std::vector<int> seen;
    for (const Report& report : reports) {
        if (report.sound < 0 || std::find(seen.begin(), seen.end(), report.sound) != seen.end())
            continue;
        seen.push_back(report.sound);
        count += report.state == TARNOK_STATE_FINISHED;
    }
    return count;
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

TARNOK_RESULT buildOnly(const Order& order)
{
    std::vector<std::vector<const char*>> names;
    std::vector<TARNOK_SUBSOUND> subsounds;
    for (const auto& sound : order.sounds) {
        auto& files = names.emplace_back();
        for (const std::string& file : sound)
            files.push_back(file.c_str());
        TARNOK_SUBSOUND subsound{};
        subsound.fileNames = files.data();
        subsound.numFiles = uint32_t(files.size());
        if (order.adjust)
            order.adjust(subsounds.size(), subsound);
        subsounds.push_back(subsound);
    }
    return Tarnok_Build(subsounds.data(), unsigned(subsounds.size()), order.format, order.flags, order.quality,
                        order.key, order.output.c_str());
}

Outcome build(const Order& order)
{
    Outcome outcome;
    EXPECT_EQ(Tarnok_Init(TARNOK_TNBVERSION_CURRENT, order.initFlags, order.threads, order.cache.c_str()), TARNOK_OK);
    outcome.result = buildOnly(order);
    outcome.reports = drainReports();
    EXPECT_EQ(Tarnok_Release(), TARNOK_OK);
    return outcome;
}

Workshop::Workshop()
{
    static std::atomic<int> counter{0};
    mFolder = std::filesystem::absolute("workshop" + std::to_string(counter++)).string();
    std::filesystem::remove_all(mFolder);
    std::filesystem::create_directories(mFolder + "/cache");
}

Workshop::~Workshop()
{
    std::error_code ignored;
    std::filesystem::remove_all(mFolder, ignored);
}

Order Workshop::order(const std::vector<std::string>& files) const
{
    Order order;
    for (const std::string& file : files)
        order.sounds.push_back({file});
    order.cache = path("cache");
    order.output = path("bank.tnb");
    return order;
}

std::vector<std::string> Workshop::makeSounds(int count, size_t frames) const
{
    constexpr int formats[] = {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_FLAC | SF_FORMAT_PCM_24,
                               SF_FORMAT_WAV | SF_FORMAT_FLOAT, SF_FORMAT_AIFF | SF_FORMAT_PCM_S8};
    constexpr const char* extensions[] = {".wav", ".flac", ".wav", ".aiff"};
    std::vector<std::string> files;
    for (int i = 0; i < count; ++i) {
        files.push_back(path("sound" + std::to_string(i) + extensions[i % 4]));
        writeSound(files.back(), formats[i % 4], sine(1 + i % 2, 44100, frames + size_t(i) * 10, 200 + i));
    }
    return files;
}

std::vector<std::string> Workshop::cacheEntries() const
{
    std::vector<std::string> entries;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path("cache/sounds"))) {
        if (entry.is_regular_file())
            entries.push_back(entry.path().string());
    }
    return entries;
}

std::vector<std::string> Workshop::leftovers() const
{
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(mFolder)) {
        if (entry.path().filename().string().starts_with('.'))
            found.push_back(entry.path().string());
    }
    return found;
}

namespace {

Heard hearOne(KESS::Sound& sound)
{
    Heard heard;
    KESS_SOUND_FORMAT format = KESS_SOUND_FORMAT_NONE;
    int bits = 0;
    float rate = 0;
    uint64_t frames = 0;
    EXPECT_EQ(sound.getFormat(nullptr, &format, &heard.channels, &bits), KESS_OK);
    EXPECT_EQ(sound.getDefaults(&rate, nullptr), KESS_OK);
    EXPECT_EQ(sound.getSampleCount(&frames), KESS_OK);
    heard.format = format;
    heard.rate = rate;

    heard.bytes.resize(frames * size_t(heard.channels) * size_t(bits / 8));
    heard.samples.resize(frames * size_t(heard.channels));
    if (frames > 0) {
        unsigned got = 0;
        EXPECT_EQ(sound.readData(heard.bytes.data(), unsigned(heard.bytes.size()), &got), KESS_OK);
        EXPECT_EQ(got, heard.bytes.size());
        EXPECT_EQ(sound.seekData(0), KESS_OK);
        EXPECT_EQ(sound.readFloat(heard.samples.data(), unsigned(frames), &got), KESS_OK);
        EXPECT_EQ(got, frames);
    }

    std::pair<uint64_t, uint64_t> loop;
    if (sound.getLoopPoints(&loop.first, &loop.second) == KESS_OK)
        heard.loop = loop;
    float peak = 0;
    if (sound.getPeak(&peak) == KESS_OK)
        heard.peak = peak;
    int points = 0;
    EXPECT_EQ(sound.getNumSyncPoints(&points), KESS_OK);
    for (int index = 0; index < points; ++index) {
        char name[100];
        uint64_t sample = 0;
        EXPECT_EQ(sound.getSyncPoint(index, &sample, name, sizeof name), KESS_OK);
        heard.syncPoints.emplace_back(sample, name);
    }
    char name[300];
    EXPECT_EQ(sound.getName(name, sizeof name), KESS_OK);
    heard.name = name;
    return heard;
}

} // namespace

std::vector<Heard> hear(const std::string& path, const char* key)
{
    std::vector<Heard> sounds;
    KESS::System* system = nullptr;
    KESS::Sound* sound = nullptr;
    EXPECT_EQ(KESS_System_Create(&system, KESS_VERSION), KESS_OK);
    EXPECT_EQ(system->init(0, 0, nullptr), KESS_OK);
    if (system->createSound(path.c_str(), KESS_MODE_DEFAULT, nullptr, &sound) == KESS_OK) {
        KESS_SOUND_TYPE type = KESS_SOUND_TYPE_UNKNOWN;
        sound->getFormat(&type, nullptr, nullptr, nullptr);
        int count = 0;
        if (type != KESS_SOUND_TYPE_TNB) {
            sounds.push_back(hearOne(*sound));
        } else if ((!key || sound->setEncryptionKey(key) == KESS_OK) && sound->getNumSubSounds(&count) == KESS_OK) {
            for (int index = 0; index < count; ++index) {
                KESS::Sound* subsound = nullptr;
                EXPECT_EQ(sound->getSubSound(index, &subsound), KESS_OK);
                sounds.push_back(hearOne(*subsound));
                EXPECT_EQ(subsound->verifyData(), KESS_OK);
            }
        }
        sound->release();
    }
    system->release();
    return sounds;
}

// A thread that was joined is in the list for a moment more: the kernel wakes who waits for it before it removes it,
// and may let others run in between. It is marked as ending by then.
int threadCount()
{
    constexpr unsigned ending = 0x4; // PF_EXITING of the kernel
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        // After the name in brackets: state, parent, group, session, terminal, its group, flags.
        std::string state, number;
        unsigned flags = ending;
        std::ifstream file(entry.path() / "stat");
        file.ignore(1000, ')') >> state >> number >> number >> number >> number >> number >> flags;
        count += file && !(flags & ending);
    }
    return count;
}

} // namespace test
