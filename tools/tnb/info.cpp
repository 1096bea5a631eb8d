// SPDX-License-Identifier: MIT
#include "info.hpp"

#include "json.hpp"
#include "text.hpp"

#include <cmath>
#include <iostream>

namespace tnb {

namespace {

// The properties of one sound, or the reason why they can't be read.
using Listed = base::Result<SoundProperties>;

// Writes sound after sound, so that memory doesn't grow with their number.
Status printJson(const std::string& path, OpenedBank& bank)
{
    Status status = Status::Success;
    JsonOutput output;
    const Json head = toJson(path, bank.info());
    for (const auto& [name, value] : head.items())
        output.member(name, value);
    output.beginArray("sounds");
    for (int i = 0; i < bank.soundCount(); ++i) {
        const Listed listed = bank.properties(i);
        if (!listed)
            status = Status::Damaged;
        output.item(listed ? toJson(*listed) : Json{{"index", i}, {"error", listed.error().text}});
    }
    output.endArray();
    return status;
}

std::string codecText(const SoundProperties& sound)
{
    std::string text = names(sound.codec).shown;
    if (sound.codec == KESS_CODEC_PCM)
        text += std::string(" ") + names(sound.format).shown;
    else if (sound.quality > 0)
        text += " " + std::to_string(sound.quality);
    return text;
}

std::string peakText(const std::optional<float>& peak)
{
    if (!peak)
        return "-";
    return *peak > 0 ? fixed(20 * std::log10(*peak), 1) + " dB" : "-inf dB";
}

std::string loopText(const std::optional<base::Loop>& loop)
{
    return loop ? std::to_string(loop->start) + "-" + std::to_string(loop->end) : "-";
}

std::string ratioText(const std::optional<double>& ratio)
{
    return ratio ? fixed(*ratio, 1) + ":1" : "-";
}

void printHead(const std::string& path, const KESS_BANKINFO& info)
{
    std::string format = names(info.codec).shown;
    if (info.quality > 0)
        format += ", quality " + std::to_string(info.quality);
    std::cout << printable(path) << ": sound bank, version " << versionText(info) << '\n'
              << "  format     " << format << '\n'
              << "  size       " << grouped(info.fileBytes) << " bytes\n"
              << "  encrypted  " << (info.encrypted ? "yes" : "no") << '\n'
              << "  GUID       " << (info.hasGuid ? guidText(info) : "none") << '\n'
              << "  names      " << (info.hasNames ? "yes" : "none") << "\n\n";
}

// The contents of a bank in columns. All sounds are read twice, once for the widths of the columns and once for
// printing: keeping them would take many times the memory of the bank.
class Listing
{
public:
    explicit Listing(OpenedBank& bank)
        : mBank(bank)
    {
        for (int i = 0; i < bank.soundCount(); ++i)
            measure(i, bank.properties(i));
    }

    void print()
    {
        std::cout << mTable.titles();
        for (int i = 0; i < mBank.soundCount(); ++i)
            std::cout << mTable.line(cells(i, mBank.properties(i)));
        if (!mWithPoints.empty())
            printSyncPoints();
        std::cout << '\n'
                  << grouped(static_cast<unsigned>(mBank.soundCount()))
                  << (mBank.soundCount() == 1 ? " sound, " : " sounds, ") << fixed(mSeconds, 3) << " s, "
                  << grouped(mBytes) << " bytes, " << ratioText(compressionRatio(mDecodedBytes, mBytes)) << '\n';
    }

    [[nodiscard]] Status status() const { return mStatus; }

private:
    void measure(int index, const Listed& listed)
    {
        mTable.measure(cells(index, listed));
        if (!listed) {
            mStatus = Status::Damaged;
            return;
        }
        const SoundProperties& sound = *listed;
        for (const base::SyncPoint& point : sound.syncPoints)
            mPointTable.measure(cells(index, point));
        if (!sound.syncPoints.empty())
            mWithPoints.push_back(index);
        mSeconds += sound.seconds();
        mDecodedBytes += sound.decodedBytes();
        mBytes += sound.bytes;
    }

    static std::vector<std::string> cells(int index, const Listed& listed)
    {
        if (!listed)
            return {std::to_string(index), "(" + listed.error().text + ")", "", "", "", "", "", "", "", "", ""};
        const SoundProperties& sound = *listed;
        return {std::to_string(index),
                printable(sound.name),
                codecText(sound),
                std::to_string(sound.rate) + " Hz",
                std::to_string(sound.channels),
                fixed(sound.seconds(), 3) + " s",
                loopText(sound.loop),
                std::to_string(sound.syncPoints.size()),
                peakText(sound.peak),
                grouped(sound.bytes),
                ratioText(compressionRatio(sound.decodedBytes(), sound.bytes))};
    }

    static std::vector<std::string> cells(int index, const base::SyncPoint& point)
    {
        return {std::to_string(index), std::to_string(point.frame), printable(point.name)};
    }

    void printSyncPoints() const
    {
        std::cout << '\n' << mPointTable.titles();
        for (const int sound : mWithPoints) {
            const Listed listed = mBank.properties(sound);
            for (const base::SyncPoint& point : listed ? listed->syncPoints : std::vector<base::SyncPoint>())
                std::cout << mPointTable.line(cells(sound, point));
        }
    }

    OpenedBank& mBank;
    std::vector<int> mWithPoints; // the sounds that have sync points
    double mSeconds = 0; // of all sounds, like the next two
    double mDecodedBytes = 0;
    uint64_t mBytes = 0;
    Status mStatus = Status::Success;
    Table mTable{{{"sound", Align::Right},
                  {"name", Align::Left},
                  {"codec", Align::Left},
                  {"rate", Align::Right},
                  {"channels", Align::Right},
                  {"length", Align::Right},
                  {"loop", Align::Right},
                  {"sync points", Align::Right},
                  {"peak", Align::Right},
                  {"bytes", Align::Right},
                  {"ratio", Align::Right}}};
    Table mPointTable{{{"sound", Align::Right}, {"sync point", Align::Right}, {"name", Align::Left}}};
};

} // namespace

base::Result<Status> showInfo(const InfoRequest& request)
{
    const base::Result<Engine> engine = startEngine();
    if (!engine)
        return engine.error();
    base::Result<OpenedBank> bank = OpenedBank::open(**engine, request.bank, request.key);
    if (!bank)
        return std::move(bank.error());
    if (request.json)
        return printJson(request.bank, *bank);
    Listing listing(*bank);
    printHead(request.bank, bank->info());
    listing.print();
    return listing.status();
}

} // namespace tnb
