// The decoders of the sounds in a bank, one for each codec.
#pragma once

#include "decode/decoder.hpp"

#include "bank/reader.hpp"
#include "base/bytes.hpp"

#include <algorithm>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace kess {

// How long an Opus decoder that comes from a seek point may still be wrong (RFC 7845, 4.6).
inline constexpr uint64_t kOpusPrerollMilliseconds = 80;

// Of the setup of an Opus sound, in bytes: two counts of streams, and a byte for each channel.
inline constexpr uint32_t kLongestOpusSetup = 2 + KESS_MAX_CHANNELS;

// The encoded data of one sound.
struct EncodedData
{
    std::shared_ptr<const base::ByteSource> source;
    uint64_t offset = 0;
    uint64_t bytes = 0;
};

// A sound to be decoded: what the engine tells about it, what the bank does, and its data.
struct BankSound
{
    SoundFacts facts;
    bank::Sound stored; // without the setup
    EncodedData data;
};

// Vorbis headers, unpacked once for all the sounds of a bank that share them.
class VorbisSetup;

// KESS_ERR_FILE_BAD: the headers are damaged.
[[nodiscard]] KESS_RESULT makeVorbisSetup(std::span<const uint8_t> setup, std::shared_ptr<const VorbisSetup>* made);

// Each answers KESS_ERR_FILE_BAD when setup and sound don't fit each other, and throws std::bad_alloc.
[[nodiscard]] KESS_RESULT makePcmDecoder(BankSound sound, DecoderPointer* decoder);
[[nodiscard]] KESS_RESULT makeKadpcmDecoder(BankSound sound, DecoderPointer* decoder);
[[nodiscard]] KESS_RESULT makeVorbisDecoder(BankSound sound, std::shared_ptr<const VorbisSetup> setup,
                                            DecoderPointer* decoder);
[[nodiscard]] KESS_RESULT makeOpusDecoder(BankSound sound, std::span<const uint8_t> setup, DecoderPointer* decoder);

// Frames that an Opus packet decodes to; 0 for a damaged one.
[[nodiscard]] uint64_t opusPacketFrames(std::span<const uint8_t> packet, uint32_t sampleRate);

// Encoded data through a buffer, for readers that go on a little at a time.
class DataWindow
{
public:
    explicit DataWindow(EncodedData data);

    [[nodiscard]] uint64_t size() const { return mData.bytes; }

    // Shows count bytes from offset on, which must not be behind the end, and as many of those that follow as are at
    // hand anyway; valid until the next call. KESS_ERR_FILE_BAD: the data end before.
    [[nodiscard]] KESS_RESULT view(uint64_t offset, size_t count, std::span<const uint8_t>* bytes);

private:
    EncodedData mData;
    std::vector<uint8_t> mBuffer;
    uint64_t mBufferStart = 0;
    size_t mBuffered = 0;
};

// The encoded data as a sequence of packets, each behind its length.
class PacketReader
{
public:
    explicit PacketReader(EncodedData data);

    void seek(uint64_t offset); // cut to the size of the data
    [[nodiscard]] uint64_t offset() const { return mNext; } // of the next packet
    [[nodiscard]] bool atEnd() const { return mNext == mWindow.size(); }

    // The next packet, valid until the next call. KESS_ERR_FILE_BAD behind the last one, too.
    [[nodiscard]] KESS_RESULT next(std::span<const uint8_t>* packet);

private:
    DataWindow mWindow;
    uint64_t mNext = 0;
};

// The seek point that lies furthest behind without lying behind position; the start of the stream where there is none.
[[nodiscard]] bank::SeekPoint seekPointBefore(const std::vector<bank::SeekPoint>& points, uint64_t position);

// What PCM and KADPCM have in common: a seek only notes where to read next.
class DirectDecoder : public Decoder
{
public:
    [[nodiscard]] const SoundFacts& facts() const final { return mFacts; }
    [[nodiscard]] KESS_RESULT seek(uint64_t frame) final
    {
        if (frame > mFacts.sampleCount)
            return KESS_ERR_INVALID_POSITION;
        mFrame = frame;
        return KESS_OK;
    }

protected:
    explicit DirectDecoder(SoundFacts facts)
        : mFacts(std::move(facts))
    { }

    // As many of count frames as there are from the next one on.
    [[nodiscard]] size_t left(size_t count) const
    {
        return static_cast<size_t>(std::min<uint64_t>(count, mFacts.sampleCount - mFrame));
    }

    SoundFacts mFacts;
    uint64_t mFrame = 0; // delivered next
};

// What Vorbis and Opus have in common: a stream that is decoded in blocks of float frames, of which those before the
// sound are dropped, and in which decoding can begin at seek points.
class StreamDecoder : public Decoder
{
public:
    [[nodiscard]] const SoundFacts& facts() const final { return mFacts; }
    [[nodiscard]] KESS_RESULT seek(uint64_t frame) final;
    [[nodiscard]] KESS_RESULT read(void* buffer, size_t count, size_t* done) final;
    [[nodiscard]] KESS_RESULT readFloat(float* buffer, size_t count, size_t* done) final;

protected:
    // preroll: decoded samples behind a seek point that may still differ from those of a decoder that came from the
    // start. A seek begins at least so far before its target.
    StreamDecoder(BankSound sound, uint64_t preroll);

    // Forgets everything; the next block begins with what the packet at offset gives first.
    [[nodiscard]] virtual KESS_RESULT restart(uint64_t offset) = 0;

    // Decodes one packet. *frames, interleaved, may be empty and stays valid until the next call.
    [[nodiscard]] virtual KESS_RESULT decodeBlock(std::span<float>* frames) = 0;

private:
    // Values to be added to the decoded frames from position on.
    struct Corrected
    {
        uint64_t position = 0;
        std::vector<float> values;
    };

    template <typename Take>
    [[nodiscard]] KESS_RESULT readFrames(size_t count, size_t* done, Take take);
    [[nodiscard]] KESS_RESULT nextBlock();
    [[nodiscard]] KESS_RESULT skipTo(uint64_t position);
    void correct(std::span<float> block) const;

    SoundFacts mFacts;
    uint32_t mLeadIn;
    uint64_t mPreroll;
    std::vector<bank::SeekPoint> mSeekPoints;
    std::vector<Corrected> mCorrections;
    std::span<const float> mBlock; // decoded and not yet delivered
    uint64_t mPosition = 0; // of the block's first frame, in decoded samples
    uint64_t mFrame = 0; // of the sound, delivered next
    bool mLost = true; // the stream must be restarted before it is read
};

} // namespace kess
