// SPDX-License-Identifier: MIT
#include "extract.hpp"

#include "file_names.hpp"
#include "output_file.hpp"
#include "text.hpp"
#include "wav_writer.hpp"

#include "base/ordered_work.hpp"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <iostream>
#include <new>
#include <set>
#include <system_error>

namespace tnb {

namespace {

// Damaged sounds get an empty name.
std::vector<std::string> soundNames(OpenedBank& bank)
{
    std::vector<std::string> names(static_cast<size_t>(bank.soundCount()));
    for (int i = 0; i < bank.soundCount(); ++i) {
        if (base::Result<std::string> name = bank.name(i))
            names[static_cast<size_t>(i)] = std::move(*name);
    }
    return names;
}

base::Result<int> findName(const std::vector<std::string>& names, const std::string& name)
{
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end())
        return base::Error{base::ErrorCode::NotFound, "no sound is named \"" + name + '"'};
    return static_cast<int>(found - names.begin());
}

base::Result<int> parseIndex(const std::string& text, size_t soundCount)
{
    size_t index = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
    if (error != std::errc() || index >= soundCount)
        return base::Error{base::ErrorCode::NotFound,
                           "no sound " + text + ": the bank has " + std::to_string(soundCount) + ", counted from 0"};
    return static_cast<int>(index);
}

bool isNumber(const std::string& text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// The requested indices, in the order of the bank, without duplicates.
base::Result<std::set<int>> selection(const ExtractRequest& request, const std::vector<std::string>& names)
{
    std::vector<base::Result<int>> found;
    for (const std::string& sound : request.sounds)
        found.push_back(isNumber(sound) ? parseIndex(sound, names.size()) : findName(names, sound));
    for (const std::string& name : request.names)
        found.push_back(findName(names, name));
    std::set<int> indices;
    for (const base::Result<int>& index : found) {
        if (!index)
            return index.error();
        indices.insert(*index);
    }
    if (request.sounds.empty() && request.names.empty()) {
        for (size_t i = 0; i < names.size(); ++i)
            indices.insert(indices.end(), static_cast<int>(i));
    }
    return indices;
}

base::Result<> makeFolder(const std::string& folder)
{
    std::error_code error;
    std::error_code unseen;
    std::filesystem::create_directories(folder, error);
    if (!std::filesystem::is_directory(folder, unseen))
        return base::Error{base::ErrorCode::Io,
                           "can't create the folder " + folder + ": "
                               + (error ? error.message() : "a file is in the way")};
    return {};
}

base::Result<> copySamples(KESS::Sound& sound, const SoundProperties& facts, WavWriter& writer)
{
    constexpr unsigned kFramesAtOnce = 16384;
    const auto frameBytes = static_cast<unsigned>(facts.channels * facts.bits / 8);
    std::vector<uint8_t> buffer(static_cast<size_t>(kFramesAtOnce) * frameBytes);
    for (uint64_t remaining = facts.samples * frameBytes; remaining > 0;) {
        unsigned got = 0;
        const KESS_RESULT result = sound.readData(buffer.data(), static_cast<unsigned>(buffer.size()), &got);
        if (result == KESS_ERR_UNSUPPORTED)
            return engineError(result);
        if (result != KESS_OK || got == 0 || got > remaining)
            return base::Error{base::ErrorCode::Damaged,
                               "damaged after " + std::to_string(facts.samples - remaining / frameBytes) + " of "
                                   + std::to_string(facts.samples) + " samples"};
        if (base::Result<> written = writer.write(std::span(buffer).first(got)); !written)
            return written;
        remaining -= got;
    }
    return {};
}

struct Extracted
{
    std::string path;
    bool omitsPoints = false;
};

base::Result<Extracted> extractSound(OpenedBank& bank, int index, const std::string& name,
                                     const ExtractRequest& request)
{
    const base::Result<SoundPointer> sound = bank.verifiedVoice(index);
    if (!sound)
        return sound.error();
    const SoundProperties facts = propertiesOf(**sound, index);
    OutputFile file(request.folder, name);
    WavWriter writer(facts, file);
    base::Result<> done = file.open();
    if (done)
        done = writer.begin();
    if (done)
        done = copySamples(**sound, facts, writer);
    if (done)
        done = writer.finish();
    if (done)
        done = file.commit(request.replace);
    if (!done)
        return std::move(done.error());
    return Extracted{file.path().string(), writer.omitsPoints()};
}

void report(const Extracted& extracted)
{
    const std::string path = printable(extracted.path);
    if (extracted.omitsPoints)
        std::cerr << "tnb: " << path << ": WAV can't store loop and sync points after sample 4,294,967,295\n";
    std::cout << path << '\n';
}

} // namespace

base::Result<Status> extract(const ExtractRequest& request)
{
    const base::Result<Engine> engine = startEngine();
    if (!engine)
        return engine.error();
    base::Result<OpenedBank> bank = OpenedBank::open(**engine, request.bank, request.key);
    if (!bank)
        return std::move(bank.error());
    const std::vector<std::string> names = soundNames(*bank);
    const std::vector<std::string> files = fileNames(names);
    const base::Result<std::set<int>> indices = selection(request, names);
    if (!indices)
        return indices.error();
    if (base::Result<> made = makeFolder(request.folder); !made)
        return std::move(made.error());
    OutputFile::removeAbandoned(request.folder);

    const std::vector<int> chosen(indices->begin(), indices->end());
    base::OrderedWork<base::Result<Extracted>> work(chosen.size(), [&](size_t i) -> base::Result<Extracted> {
        try {
            return extractSound(*bank, chosen[i], files[static_cast<size_t>(chosen[i])], request);
        } catch (const std::bad_alloc&) {
            return engineError(KESS_ERR_MEMORY);
        }
    });
    Status status = Status::Success;
    for (const int index : chosen) {
        const base::Result<Extracted> done = work.next();
        if (done) {
            report(*done);
            continue;
        }
        const std::string& name = names[static_cast<size_t>(index)];
        std::cerr << "tnb: " << printable(request.bank) << ": sound " << index
                  << (name.empty() ? "" : " (" + printable(name) + ")") << ": " << printable(done.error().text) << '\n';
        status = std::max(status, statusFor(done.error()));
    }
    return status;
}

} // namespace tnb
