// SPDX-License-Identifier: MIT
#include "banks/bank_verification.hpp"

#include "banks/decoding_check.hpp"

#include "bank/kadpcm.hpp"
#include "bank/vector_state.hpp"

#include "base/ordered_work.hpp"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

namespace engine {

namespace {

// Counts the seek points that were found on the way from packet to packet.
class SeekPointCount
{
public:
    explicit SeekPointCount(const std::vector<bank::SeekPoint>& points)
        : mPoints(points)
    { }

    void packetAt(uint64_t offset) { mFound += mFound < mPoints.size() && mPoints[mFound].offset == offset; }
    [[nodiscard]] bool isComplete() const { return mFound == mPoints.size(); }

private:
    const std::vector<bank::SeekPoint>& mPoints;
    size_t mFound = 0;
};

base::Error packetsDoNotFit()
{
    return {base::ErrorCode::Damaged, "its packets don't fit the size of its data"};
}

// Checks that every byte of the data belongs to a packet.
base::Result<> walkPackets(EncodedData data, SeekPointCount& seekPoints)
{
    PacketReader packets(std::move(data));
    while (!packets.atEnd()) {
        seekPoints.packetAt(packets.offset());
        if (base::Result<std::span<const uint8_t>> packet = packets.next(); !packet)
            return packet.error().code == base::ErrorCode::Damaged ? packetsDoNotFit() : std::move(packet.error());
    }
    return {};
}

// Checks that each seek point of an Opus sound is the start of a packet, and that its position is that of the packet.
// Decoded samples can't show that: after a seek, they may differ for a while.
base::Result<> checkOpusSeekPoints(EncodedData data, const bank::Sound& sound)
{
    PacketReader packets(std::move(data));
    bank::SeekPoint here;
    for (const bank::SeekPoint& point : sound.seekPoints) {
        while (here.position < point.position && !packets.atEnd()) {
            base::Result<std::span<const uint8_t>> packet = packets.next();
            if (!packet)
                return std::move(packet.error());
            here.position += opusPacketFrames(*packet, sound.sampleRate);
            here.offset = packets.offset();
        }
        if (here != point)
            return misleadingSeek(sampleAt(point.position, sound));
    }
    return {};
}

// Checks that the superblocks, whose number follows from the length, fill the data.
base::Result<> walkSuperblocks(EncodedData data, const bank::Sound& sound, SeekPointCount& seekPoints)
{
    using namespace bank::kadpcm;
    DataWindow window(std::move(data));
    const uint64_t maximum = maximumSuperblockBytes(sound.channels, kSuperblockFrames);
    uint64_t offset = 0;
    for (uint64_t frame = 0; frame < sound.sampleCount; frame += kSuperblockFrames) {
        seekPoints.packetAt(offset);
        const auto wanted = static_cast<size_t>(std::min(maximum, window.size() - offset));
        base::Result<std::span<const uint8_t>> bytes = window.view(offset, wanted);
        if (!bytes)
            return std::move(bytes.error());
        const size_t size = superblockBytes(*bytes, sound.channels);
        if (size == 0)
            return packetsDoNotFit();
        offset += size;
    }
    if (offset != window.size())
        return packetsDoNotFit();
    return {};
}

// The success or error of a result, without its value.
template <typename T>
base::Result<> withoutValue(const base::Result<T>& result)
{
    if (!result)
        return result.error();
    return {};
}

KESS_RESULT asResult(Finding::Kind kind)
{
    switch (kind) {
    case Finding::Kind::Damage:
        return KESS_ERR_FILE_BAD;
    case Finding::Kind::NotVerified:
        return KESS_ERR_UNSUPPORTED;
    case Finding::Kind::Remark:
        break;
    }
    return KESS_OK;
}

// The shared setups of a bank. Many sounds share one, which is read once.
class Setups
{
public:
    explicit Setups(const bank::BankReader& reader)
        : mReader(reader)
        , mVerified(reader.setupCount())
    { }

    base::Result<> verify(uint32_t setup)
    {
        const std::lock_guard lock(mMutex);
        std::optional<base::Result<>>& verified = mVerified[setup];
        if (!verified)
            verified = withoutValue(mReader.setup(setup));
        return *verified;
    }

private:
    const bank::BankReader& mReader;
    std::mutex mMutex;
    std::vector<std::optional<base::Result<>>> mVerified;
};

// Verifies one sound.
class SoundVerification
{
public:
    SoundVerification(BankFile& bank, Setups& setups, uint32_t index)
        : mBank(bank)
        , mReader(*bank.reader())
        , mSetups(setups)
        , mIndex(index)
    { }

    SoundFindings run()
    {
        const std::optional<bank::Sound> sound = verifyStored();
        if (sound && verifyPackets(*sound))
            verifyDecoding(*sound);
        return std::move(mFound);
    }

private:
    // Each part is verified, so that all faults of a sound are reported. A sound with faults isn't decoded.
    std::optional<bank::Sound> verifyStored()
    {
        base::Result<bank::Sound> stored = mReader.soundWithoutSetup(mIndex);
        bool passed = passes(withoutValue(stored));
        if (const std::optional<uint32_t> setup = mReader.entry(mIndex).setup; setup && mFound.completed)
            passed = passes(mSetups.verify(*setup)) && passed;
        if (mFound.completed)
            passed = passes(mReader.verifyData(mIndex)) && passed;
        return passed ? std::optional(std::move(*stored)) : std::nullopt;
    }

    bool verifyPackets(const bank::Sound& sound)
    {
        const bank::SoundEntry entry = mReader.entry(mIndex);
        const EncodedData data{mReader.source(), entry.dataOffset, entry.dataBytes};
        SeekPointCount seekPoints(sound.seekPoints);
        base::Result<> result;
        if (sound.codec == bank::Codec::Vorbis || sound.codec == bank::Codec::Opus)
            result = walkPackets(data, seekPoints);
        else if (sound.codec == bank::Codec::Kadpcm)
            result = walkSuperblocks(data, sound, seekPoints);
        else
            return true;
        if (result && !seekPoints.isComplete())
            result = base::Error{base::ErrorCode::Damaged, "its seek table points into a packet"};
        if (result && sound.codec == bank::Codec::Opus)
            result = checkOpusSeekPoints(data, sound);
        return passes(result);
    }

    void verifyDecoding(const bank::Sound& sound)
    {
        base::Result<std::shared_ptr<BankSound>> loaded = mBank.sound(int(mIndex));
        if (!passes(withoutValue(loaded)))
            return;
        base::Result<DecoderPointer> sequential = mBank.decoder(*loaded);
        if (!sequential && sequential.error().code == base::ErrorCode::Unsupported) {
            add(Finding::Kind::NotVerified, "its codec can't be decoded; its checksums are right");
            return;
        }
        base::Result<DecoderPointer> seeking = sequential ? mBank.decoder(*loaded) : sequential.error();
        if (!passes(withoutValue(seeking)))
            return;
        DecodingCheck check(sound, **sequential, **seeking);
        if (passes(check.run()) && !check.remark().empty())
            add(Finding::Kind::Remark, check.remark());
    }

    // Returns whether result is a success. Adds damage to the findings, and keeps any other failure.
    bool passes(const base::Result<>& result)
    {
        if (result)
            return true;
        if (result.error().code == base::ErrorCode::Damaged) {
            const std::string& text = result.error().text;
            add(Finding::Kind::Damage, text.empty() ? "its data is damaged" : text);
            return false;
        }
        mFound.completed = result;
        if (result.error().code == base::ErrorCode::Io)
            mFound.completed.error().code = base::ErrorCode::NotSeekable;
        return false;
    }

    void add(Finding::Kind kind, std::string text) { mFound.findings.push_back({int(mIndex), kind, std::move(text)}); }

    BankFile& mBank;
    const bank::BankReader& mReader;
    Setups& mSetups;
    uint32_t mIndex;
    SoundFindings mFound;
};

// On a thread of its own.
SoundFindings verifySound(BankFile& bank, Setups& setups, uint32_t index)
{
    bank::clearVectorState();
    try {
        return SoundVerification(bank, setups, index).run();
    } catch (const std::bad_alloc&) {
        return {{}, base::Error{base::ErrorCode::Memory}};
    }
}

} // namespace

ReportFinding reportTo(KESS_FINDING_CALLBACK callback, void* userData)
{
    return [=](const Finding& found) {
        return !callback || callback(userData, found.sound, asResult(found.kind), found.text.c_str()) != 0;
    };
}

BankVerification::BankVerification(BankFile& bank, ReportFinding report)
    : mBank(bank)
    , mReport(std::move(report))
{ }

base::Result<> BankVerification::run()
{
    const bank::BankReader& reader = *mBank.reader();
    if (const base::Result<> names = reader.verifyNames(); !names)
        report({-1, Finding::Kind::Damage, names.error().text});
    Setups setups(reader);
    const uint32_t count = reader.info().soundCount;
    base::OrderedWork<SoundFindings> work(count,
                                          [&](size_t index) { return verifySound(mBank, setups, uint32_t(index)); });
    base::Result<> completed;
    for (uint32_t i = 0; i < count && !mStopped && completed; ++i) {
        SoundFindings found = work.next();
        for (const Finding& finding : found.findings)
            report(finding);
        completed = std::move(found.completed);
    }
    if (mDamaged && completed)
        return base::Error{base::ErrorCode::Damaged};
    return completed;
}

void BankVerification::report(const Finding& finding)
{
    mDamaged = mDamaged || finding.kind == Finding::Kind::Damage;
    if (!mStopped && mReport && !mReport(finding))
        mStopped = true;
}

} // namespace engine
