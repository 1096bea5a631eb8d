// SPDX-License-Identifier: MIT
// Writes small seed inputs for the targets that read sounds and for fuzz_cache, into one subfolder for each of them in
// the given folder. They are the same each time, except for random stream numbers and times from libsndfile.
#include "base/bytes.hpp"
#include "support/bank_maker.hpp"
#include "support/hostile_files.hpp"
#include "support/sound_files.hpp"

#include <cstdio>
#include <filesystem>

namespace {

using namespace bank_test;
using namespace test;
using Bytes = std::vector<uint8_t>;

// Larger inputs slow the fuzzer down more than they help.
constexpr size_t kMaximumSeedBytes = 16 << 10;

void writeSounds(const std::string& folder)
{
    constexpr int kFormats[] = {
        SF_FORMAT_WAV | SF_FORMAT_PCM_16,  SF_FORMAT_WAVEX | SF_FORMAT_PCM_24,
        SF_FORMAT_WAV | SF_FORMAT_FLOAT,   SF_FORMAT_WAV | SF_FORMAT_IMA_ADPCM,
        SF_FORMAT_WAV | SF_FORMAT_GSM610,  SF_FORMAT_RF64 | SF_FORMAT_PCM_16,
        SF_FORMAT_W64 | SF_FORMAT_PCM_16,  SF_FORMAT_AIFF | SF_FORMAT_PCM_16,
        SF_FORMAT_AIFF | SF_FORMAT_FLOAT,  SF_FORMAT_FLAC | SF_FORMAT_PCM_16,
        SF_FORMAT_OGG | SF_FORMAT_VORBIS,  SF_FORMAT_OGG | SF_FORMAT_OPUS,
        SF_FORMAT_CAF | SF_FORMAT_ALAC_16, SF_FORMAT_AU | SF_FORMAT_PCM_16,
        SF_FORMAT_VOC | SF_FORMAT_PCM_16,  SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III,
    };
    for (const int format : kFormats)
        writeSound(folder + "sound " + std::to_string(format), format, sine(1, 8000, 800));
    const std::string tagged = folder + "tagged.wav";
    writeSound(tagged, SF_FORMAT_WAV | SF_FORMAT_PCM_16, sine(2, 8000, 400));
    addWavTags(tagged, {{{100, 200}}, {{50, "marker"}}});
}

void append(Bytes& bytes, const Bytes& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

// Copies the files of a folder for fuzz_memory, and for fuzz_callbacks, which doesn't fail with these.
void copyForSources(const std::string& from, const std::string& memory, const std::string& callbacks)
{
    for (const auto& entry : std::filesystem::directory_iterator(from)) {
        const Bytes bytes = readFile(entry.path());
        const std::string name = entry.path().filename();
        writeFile(memory + name, bytes);
        Bytes controlled(4);
        append(controlled, bytes);
        writeFile(callbacks + name, controlled);
    }
}

// See fuzz_cache.cpp.
void writeCache(const std::string& folder, const std::vector<EncodedSound>& sounds)
{
    constexpr uint64_t kUsedAt = 1'700'000'000;
    Bytes records{1};
    Bytes index{2};
    uint8_t key = 0;
    const auto addRecord = [&](Bytes& table, const Bytes& record) {
        append(table, Bytes(32, key));
        base::appendLittle(table, kUsedAt);
        base::appendLittle(table, uint64_t(record.size()));
        append(table, record);
    };
    for (const auto& [name, sound, data] : sounds) {
        const Bytes record = bank::serialise(sound);
        Bytes entry{0};
        base::appendLittle(entry, uint16_t(data.size()));
        append(entry, data);
        append(entry, record);
        writeFile(folder + "entry " + std::to_string(key), entry);
        ++key;
        addRecord(records, record);
        addRecord(index, Bytes(32, uint8_t(100 + key)));
    }
    writeFile(folder + "records", records);
    writeFile(folder + "index", index);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fputs("usage: write_seeds FOLDER\n", stderr);
        return 1;
    }
    const auto makeFolder = [&](const char* target) {
        const std::string folder = std::string(argv[1]) + '/' + target + '/';
        std::filesystem::create_directories(folder);
        return folder;
    };
    const auto writeSmall = [](const std::string& folder, const std::vector<HostileFile>& files) {
        for (const auto& [name, bytes] : files) {
            if (bytes.size() <= kMaximumSeedBytes)
                writeFile(folder + name, bytes);
        }
    };
    const std::string engine = makeFolder("engine");
    writeSounds(engine);
    for (const auto& files : {hostileVorbisFiles(), hostileHeaders(), plainFiles()})
        writeSmall(engine, files);

    const std::string bank = makeFolder("bank");
    writeSmall(bank, hostileBanks());
    const std::vector<EncodedSound> sounds = encodeWithEach(sine(1, 48000, 400));
    for (size_t i = 0; i < sounds.size(); ++i)
        writeFile(bank + "sound " + std::to_string(i), makeBank({sounds[i], sounds[i]}));
    for (const std::string& folder : {engine, bank})
        copyForSources(folder, makeFolder("memory"), makeFolder("callbacks"));
    writeCache(makeFolder("cache"), sounds);
    return 0;
}
