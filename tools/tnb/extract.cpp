#include "extract.hpp"

#include "file_names.hpp"
#include "text.hpp"
#include "wav_writer.hpp"

#include <algorithm>
#include <charconv>
#include <iostream>
#include <set>
#include <system_error>

namespace tnb {

namespace {

// Damaged sounds get an empty name.
std::vector<std::string> soundNames(OpenedBank& bank)
{
    std::vector<std::string> names(static_cast<size_t>(bank.soundCount()));
    for (int i = 0; i < bank.soundCount(); ++i) {
        try {
            names[static_cast<size_t>(i)] = bank.name(i);
        } catch (const Failure&) { }
    }
    return names;
}

int indexOf(const std::vector<std::string>& names, const std::string& name)
{
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end())
        throw Failure(Status::CannotRead, "no sound is named \"" + name + '"');
    return static_cast<int>(found - names.begin());
}

int parseIndex(const std::string& text, size_t soundCount)
{
    size_t index = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
    if (error != std::errc() || index >= soundCount)
        throw Failure(Status::CannotRead,
                      "no sound " + text + ": the bank has " + std::to_string(soundCount) + ", counted from 0");
    return static_cast<int>(index);
}

bool isNumber(const std::string& text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// The requested indices, in the order of the bank, without duplicates.
std::set<int> selection(const ExtractRequest& request, const std::vector<std::string>& names)
{
    std::set<int> indices;
    for (const std::string& sound : request.sounds)
        indices.insert(isNumber(sound) ? parseIndex(sound, names.size()) : indexOf(names, sound));
    for (const std::string& name : request.names)
        indices.insert(indexOf(names, name));
    if (request.sounds.empty() && request.names.empty()) {
        for (size_t i = 0; i < names.size(); ++i)
            indices.insert(indices.end(), static_cast<int>(i));
    }
    return indices;
}

void makeFolder(const std::string& folder)
{
    std::error_code error;
    std::error_code unseen;
    std::filesystem::create_directories(folder, error);
    if (!std::filesystem::is_directory(folder, unseen))
        throw Failure(Status::CannotRead,
                      "can't make the folder " + folder + ": " + (error ? error.message() : "a file is in the way"));
}

void copySamples(KESS::Sound& sound, const SoundFacts& facts, WavWriter& writer)
{
    constexpr unsigned kFramesAtOnce = 16384;
    const auto frameBytes = static_cast<unsigned>(facts.channels * facts.bits / 8);
    std::vector<uint8_t> buffer(static_cast<size_t>(kFramesAtOnce) * frameBytes);
    for (uint64_t left = facts.samples * frameBytes; left > 0;) {
        unsigned got = 0;
        const KESS_RESULT result = sound.readData(buffer.data(), static_cast<unsigned>(buffer.size()), &got);
        if (result == KESS_ERR_UNSUPPORTED)
            throw Failure(Status::CannotRead, "of a codec that can't be decoded here");
        if (result != KESS_OK || got == 0 || got > left)
            throw Failure(Status::Damaged,
                          "damaged after " + std::to_string(facts.samples - left / frameBytes) + " of "
                              + std::to_string(facts.samples) + " samples");
        writer.write(std::span(buffer).first(got));
        left -= got;
    }
}

void extractSound(OpenedBank& bank, int index, const std::string& name, const ExtractRequest& request)
{
    const SoundFacts facts = bank.facts(index);
    const SoundPointer sound = bank.sound(index);
    // Decoders turn nearly any data into some sound, so only the checksum reveals damage.
    if (sound->verifyData() != KESS_OK)
        throw Failure(Status::Damaged, "damaged: its data don't match their checksum");
    OutputFile file(request.folder, name);
    WavWriter writer(facts, file);
    writer.begin();
    copySamples(*sound, facts, writer);
    writer.finish();
    file.commit(request.replace);
    if (writer.leavesPointsOut())
        std::cerr << "tnb: " << printable(file.path().string())
                  << ": WAV has no place for loop and sync points behind sample 4,294,967,295\n";
    std::cout << printable(file.path().string()) << '\n';
}

} // namespace

Status extract(const ExtractRequest& request)
{
    const Engine engine;
    OpenedBank bank(engine, request.bank, request.key);
    const std::vector<std::string> names = soundNames(bank);
    const std::vector<std::string> files = fileNames(names);
    const std::set<int> indices = selection(request, names);
    makeFolder(request.folder);

    Status status = Status::Whole;
    for (const int index : indices) {
        const auto place = static_cast<size_t>(index);
        try {
            extractSound(bank, index, files[place], request);
        } catch (const Failure& failure) {
            const std::string name = names[place].empty() ? "" : " (" + printable(names[place]) + ")";
            std::cerr << "tnb: " << printable(request.bank) << ": sound " << index << name << ": "
                      << printable(failure.what()) << '\n';
            status = std::max(status, failure.status());
        }
    }
    return status;
}

} // namespace tnb
