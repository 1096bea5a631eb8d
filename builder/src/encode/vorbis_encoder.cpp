// SPDX-License-Identifier: MIT
#include "encode/data_stream.hpp"
#include "encode/encoders.hpp"
#include "encode/seam.hpp"

#include <vorbis/vorbisenc.h>

#include <algorithm>

namespace builder {

using base::Error;
using base::ErrorCode;

namespace {

constexpr long kReadFrames = 1024;

// Decoded samples between two seek points, about a third of a second. A seek decodes and drops at most this many.
constexpr int64_t kSeekInterval = 16'384;

// If a sound loops at its start, the encoder's input starts this fraction (1/n) of a long block earlier. The library
// starts with a short block. With half as much, the sound would start between the short block and a long one, in lower
// quality.
constexpr int64_t kWarmUpDivisor = 2;

// This many frames are decoded at the start of a sound that loops. The few hundred samples at its seams are too few to
// estimate its error.
constexpr int64_t kBeginning = 4096;

// Mono and stereo, at two rates. Each kind uses half a megabyte.
constexpr size_t kMaximumKinds = 4;

// Decodes the packets around the seam of a loop. Used for one sound after the other.
class VorbisSeamDecoder
{
public:
    VorbisSeamDecoder() { vorbis_info_init(&mInfo); }
    ~VorbisSeamDecoder()
    {
        if (mStarted) {
            vorbis_block_clear(&mBlock);
            vorbis_dsp_clear(&mDsp);
        }
        vorbis_info_clear(&mInfo);
    }
    VorbisSeamDecoder(const VorbisSeamDecoder&) = delete;
    VorbisSeamDecoder& operator=(const VorbisSeamDecoder&) = delete;

    // Receives the headers, which are the same for all sounds.
    base::Result<> start(ogg_packet& identification, ogg_packet& comments, ogg_packet& codebooks)
    {
        vorbis_comment comment;
        vorbis_comment_init(&comment);
        identification.b_o_s = 1;
        const bool taken = vorbis_synthesis_headerin(&mInfo, &comment, &identification) == 0
            && vorbis_synthesis_headerin(&mInfo, &comment, &comments) == 0
            && vorbis_synthesis_headerin(&mInfo, &comment, &codebooks) == 0
            && vorbis_synthesis_init(&mDsp, &mInfo) == 0;
        vorbis_comment_clear(&comment);
        if (!taken)
            return Error{ErrorCode::Codec};
        mStarted = true;
        return codecResult(vorbis_block_init(&mDsp, &mBlock) == 0);
    }

    // Starts another sound. Nothing of the previous one remains in the decoded samples.
    void begin(SeamRecorder& seam)
    {
        mSeam = &seam;
        mPrimed = false;
    }

    // Receives a packet that decodes to the frames first to end - 1 of the sound. Packets must come in order.
    base::Result<> take(const ogg_packet& packet, int64_t first, int64_t end)
    {
        if (mSeam->wants(first, end)) {
            if (!mPrimed) {
                if (vorbis_synthesis_restart(&mDsp) != 0)
                    return Error{ErrorCode::Codec};
                ogg_packet primer{};
                primer.packet = mLast.data();
                primer.bytes = long(mLast.size());
                if (const base::Result<> result = decode(primer, first); !result)
                    return result.error();
            }
            mPrimed = true;
            return decode(packet, first);
        }
        mPrimed = false;
        return {};
    }

    // Stores a packet, which may be needed to decode the next one.
    void remember(const ogg_packet& packet)
    {
        if (!mPrimed)
            mLast.assign(packet.packet, packet.packet + packet.bytes);
    }

private:
    base::Result<> decode(ogg_packet packet, int64_t first)
    {
        if (vorbis_synthesis(&mBlock, &packet) != 0 || vorbis_synthesis_blockin(&mDsp, &mBlock) != 0)
            return Error{ErrorCode::Codec};
        float** channels = nullptr;
        const int count = vorbis_synthesis_pcmout(&mDsp, &channels);
        const auto width = size_t(mInfo.channels);
        mFrames.resize(size_t(count) * width);
        for (size_t channel = 0; channel < width; ++channel) {
            for (size_t i = 0; i < size_t(count); ++i)
                mFrames[i * width + channel] = channels[channel][i];
        }
        vorbis_synthesis_read(&mDsp, count);
        mSeam->decoded(first, mFrames);
        return {};
    }

    SeamRecorder* mSeam = nullptr;
    vorbis_info mInfo{};
    vorbis_dsp_state mDsp{};
    vorbis_block mBlock{};
    bool mStarted = false;
    bool mPrimed = false; // the previous packet was decoded
    std::vector<uint8_t> mLast;
    std::vector<float> mFrames;
};

// The state of libvorbis for one sound, cleared in the order that it requires.
class LibvorbisEncoder
{
public:
    explicit LibvorbisEncoder(vorbis_info& info)
        : mInfo(info)
    { }
    ~LibvorbisEncoder()
    {
        if (mStarted) {
            vorbis_block_clear(&mBlock);
            vorbis_dsp_clear(&mDsp);
        }
    }
    LibvorbisEncoder(const LibvorbisEncoder&) = delete;
    LibvorbisEncoder& operator=(const LibvorbisEncoder&) = delete;

    base::Result<> start()
    {
        if (vorbis_analysis_init(&mDsp, &mInfo) != 0)
            return Error{ErrorCode::Codec};
        mStarted = true;
        return codecResult(vorbis_block_init(&mDsp, &mBlock) == 0);
    }

    // The headers that a decoder needs; the comment header is left out, since it says nothing about a sound.
    base::Result<> headers(std::vector<uint8_t>* setup, VorbisSeamDecoder* seam)
    {
        vorbis_comment comment;
        vorbis_comment_init(&comment);
        ogg_packet identification{};
        ogg_packet comments{};
        ogg_packet codebooks{};
        const int failed = vorbis_analysis_headerout(&mDsp, &comment, &identification, &comments, &codebooks);
        vorbis_comment_clear(&comment);
        if (failed)
            return Error{ErrorCode::Codec};
        if (const base::Result<> result = seam->start(identification, comments, codebooks); !result)
            return result.error();
        for (const ogg_packet& packet : {identification, codebooks}) {
            base::appendLittle(*setup, uint32_t(packet.bytes));
            setup->insert(setup->end(), packet.packet, packet.packet + packet.bytes);
        }
        return {};
    }

    // A buffer for frames, channel by channel. submit() passes the number of frames that were filled in; 0 marks the
    // end of the sound.
    float** buffer(long frames) { return vorbis_analysis_buffer(&mDsp, int(frames)); }
    base::Result<> submit(long frames) { return codecResult(vorbis_analysis_wrote(&mDsp, int(frames)) == 0); }

    // The next packet, valid until the following call; nullptr if more samples are needed first.
    base::Result<ogg_packet*> packet()
    {
        if (vorbis_analysis_blockout(&mDsp, &mBlock) != 1)
            return nullptr;
        if (vorbis_analysis(&mBlock, &mPacket) != 0)
            return Error{ErrorCode::Codec};
        return &mPacket;
    }

    [[nodiscard]] long blockSize(ogg_packet& packet) { return vorbis_packet_blocksize(&mInfo, &packet); }
    [[nodiscard]] long longBlock() { return vorbis_info_blocksize(&mInfo, 1); }

private:
    vorbis_info& mInfo;
    vorbis_dsp_state mDsp{};
    vorbis_block mBlock{};
    ogg_packet mPacket{};
    bool mStarted = false;
};

// Chooses the packets that are kept, and determines where in their decoded samples the sound starts.
//
// A packet is a window of samples around a centre. Decoding it after another packet gives the samples from that
// packet's centre to its own. The centre of the first packet is the first sample of the encoder's input; each next
// centre follows after a quarter of both block sizes. Of the packets before the sound, only the last one whose centre
// isn't after the sound's start is needed, to decode the next one.
class PacketChooser
{
public:
    // first is the sound's first sample, end is one past its last, both counted from the first sample that is encoded.
    PacketChooser(DataStream& data, VorbisSeamDecoder& seam, bank::Sound* sound, int64_t first, int64_t end)
        : mData(data)
        , mSeam(seam)
        , mSound(sound)
        , mFirst(first)
        , mEnd(end)
    { }

    [[nodiscard]] bool complete() const { return mCentre >= mEnd; }

    base::Result<> take(const ogg_packet& packet, long blockSize)
    {
        const int64_t lastCentre = mCentre;
        mCentre += mLastBlockSize == 0 ? 0 : mLastBlockSize / 4 + blockSize / 4;
        mLastBlockSize = blockSize;
        const std::span bytes(packet.packet, size_t(packet.bytes));
        if (mCentre <= mFirst) {
            mPrimer.assign(bytes.begin(), bytes.end());
            mPrimerCentre = mCentre;
            mSeam.remember(packet);
            return {};
        }
        if (const base::Result<> result = mSeam.take(packet, lastCentre - mFirst, mCentre - mFirst); !result)
            return result.error();
        mSeam.remember(packet);
        if (!mStarted) {
            mStarted = true;
            mSound->preSkip = uint32_t(mFirst - mPrimerCentre);
            if (const base::Result<> result = mData.writePacket(mPrimer); !result)
                return result.error();
        }
        addSeekPoint();
        return mData.writePacket(bytes);
    }

private:
    void addSeekPoint()
    {
        const int64_t position = mCentre - mPrimerCentre;
        if (position - mLastSeekPosition < kSeekInterval || mCentre >= mEnd)
            return;
        mSound->seekPoints.push_back({uint64_t(position), mData.bytes()});
        mLastSeekPosition = position;
    }

    DataStream& mData;
    VorbisSeamDecoder& mSeam;
    bank::Sound* mSound;
    int64_t mFirst;
    int64_t mEnd;
    int64_t mCentre = 0;
    long mLastBlockSize = 0;
    std::vector<uint8_t> mPrimer;
    int64_t mPrimerCentre = 0;
    int64_t mLastSeekPosition = 0;
    bool mStarted = false;
};

// Reads frames and passes them to the library channel by channel.
class Feeder
{
public:
    Feeder(PreparedSound& sound, int64_t position, LibvorbisEncoder& library, SeamRecorder& seam)
        : mSound(sound)
        , mPosition(position)
        , mLibrary(library)
        , mSeam(seam)
        , mFrames(size_t(kReadFrames) * size_t(sound.facts().channels))
    { }

    base::Result<> feed(long count)
    {
        if (const base::Result<> result = mSound.readFloat(mFrames.data(), size_t(count)); !result)
            return result.error();
        mSeam.encoded(mPosition, std::span(mFrames).first(size_t(count) * size_t(mSound.facts().channels)));
        mPosition += count;
        float** planes = mLibrary.buffer(count);
        if (!planes)
            return Error{ErrorCode::Memory};
        const int channels = mSound.facts().channels;
        for (int channel = 0; channel < channels; ++channel) {
            const float* from = mFrames.data() + channel;
            for (long i = 0; i < count; ++i)
                planes[channel][i] = from[i * channels];
        }
        return mLibrary.submit(count);
    }

private:
    PreparedSound& mSound;
    int64_t mPosition;
    LibvorbisEncoder& mLibrary;
    SeamRecorder& mSeam;
    std::vector<float> mFrames;
};

} // namespace

float vorbisQuality(int quality)
{
    if (quality <= 50)
        return -0.1f + 0.6f * float(std::max(quality, 1) - 1) / 49;
    return 0.5f + 0.5f * float(std::min(quality, 100) - 50) / 50;
}

// The state that sounds of the same kind share. Making the codebooks takes longer than encoding a short sound.
struct VorbisEncoder::Kind
{
    Kind(const PreparedFacts& facts, int quality_)
        : channels(facts.channels)
        , sampleRate(facts.sampleRate)
        , quality(quality_)
    {
        vorbis_info_init(&info);
    }
    ~Kind()
    {
        first.reset();
        vorbis_info_clear(&info);
    }
    Kind(const Kind&) = delete;
    Kind& operator=(const Kind&) = delete;

    [[nodiscard]] bool fits(const PreparedFacts& facts, int quality_) const
    {
        return facts.channels == channels && facts.sampleRate == sampleRate && quality_ == quality;
    }

    base::Result<> start()
    {
        if (vorbis_encode_setup_vbr(&info, channels, long(sampleRate), vorbisQuality(quality)) != 0)
            return Error{ErrorCode::Unsupported};
        // The channels of a sound may be anything, six stems of a piece of music as well as surround sound. The
        // library's tuning for six channels treats the last one as a subwoofer and drops all but its lowest octaves.
        int coupling = channels == 2;
        if (vorbis_encode_ctl(&info, OV_ECTL_COUPLING_SET, &coupling) != 0 || vorbis_encode_setup_init(&info) != 0)
            return Error{ErrorCode::Unsupported};
        first = std::make_unique<LibvorbisEncoder>(info);
        if (const base::Result<> result = first->start(); !result)
            return result.error();
        return first->headers(&setup, &seamDecoder);
    }

    // A state for one sound, started. Starting makes tables, which takes as long as encoding twenty packets.
    base::Result<std::unique_ptr<LibvorbisEncoder>> library()
    {
        if (first)
            return std::move(first);
        auto library = std::make_unique<LibvorbisEncoder>(info);
        if (const base::Result<> result = library->start(); !result)
            return result.error();
        return library;
    }

    int channels;
    uint32_t sampleRate;
    int quality;
    vorbis_info info{};
    std::vector<uint8_t> setup; // the headers
    VorbisSeamDecoder seamDecoder;
    std::unique_ptr<LibvorbisEncoder> first; // made the headers, for the first sound
};

VorbisEncoder::VorbisEncoder() = default;
VorbisEncoder::~VorbisEncoder() = default;

// Moves the kind of the sound to the front of those that are kept.
base::Result<> VorbisEncoder::chooseKind(const PreparedFacts& facts, int quality)
{
    const auto found =
        std::find_if(mKinds.begin(), mKinds.end(), [&](const auto& kind) { return kind->fits(facts, quality); });
    if (found != mKinds.end()) {
        std::rotate(mKinds.begin(), found, found + 1);
        return {};
    }
    auto kind = std::make_unique<Kind>(facts, quality);
    if (const base::Result<> result = kind->start(); !result)
        return result.error();
    mKinds.insert(mKinds.begin(), std::move(kind));
    if (mKinds.size() > kMaximumKinds)
        mKinds.pop_back();
    return {};
}

base::Result<> VorbisEncoder::encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                                     bank::Sound* encoded)
{
    const PreparedFacts& facts = sound.facts();
    if (const base::Result<> result = chooseKind(facts, quality); !result)
        return result.error();
    Kind& kind = *mKinds.front();
    *encoded = describe(bank::Codec::Vorbis, facts);
    encoded->quality = uint8_t(quality);
    encoded->setup = kind.setup;

    const base::Result<std::unique_ptr<LibvorbisEncoder>> made = kind.library();
    if (!made)
        return made.error();
    LibvorbisEncoder& library = **made;
    const int64_t warmUp = loopsAtStart(facts) ? library.longBlock() / kWarmUpDivisor : 0;
    if (const base::Result<> result = sound.seek(-warmUp); !result)
        return result.error();

    DataStream data(sink);
    SeamRecorder seam(facts, kBeginning);
    kind.seamDecoder.begin(seam);
    PacketChooser chooser(data, kind.seamDecoder, encoded, warmUp, warmUp + int64_t(facts.sampleCount));
    Feeder feeder(sound, -warmUp, library, seam);

    // Without a loop at the end, the end is reported to the library, which continues the sound by prediction. With one,
    // its input continues with the start of the loop until the last sample of the sound was encoded.
    int64_t remaining = warmUp + int64_t(facts.sampleCount) + (loopsAtEnd(facts) ? kMaximumLookaround : 0);
    for (bool ended = false; !chooser.complete();) {
        if (stop.stop_requested())
            return Error{ErrorCode::Cancelled};
        const base::Result<ogg_packet*> packet = library.packet();
        if (!packet)
            return packet.error();
        base::Result<> result;
        if (*packet) {
            result = chooser.take(**packet, library.blockSize(**packet));
        } else if (ended) {
            result = Error{ErrorCode::Codec};
        } else {
            const long count = long(std::min<int64_t>(remaining, kReadFrames));
            ended = count == 0;
            remaining -= count;
            result = ended ? library.submit(0) : feeder.feed(count);
        }
        if (!result)
            return result.error();
    }
    seam.finish(encoded);
    return data.finish(encoded);
}

} // namespace builder
