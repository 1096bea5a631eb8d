// How many samples a stream decodes to, told from its packets without decoding them.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cstdint>
#include <memory>

namespace kess {

// Whether a container's own duration counts samples. The others count in milliseconds, estimate it from the bit rate,
// or know nothing.
[[nodiscard]] bool durationCountsSamples(const char* container);

// Adds up the packets of one stream.
class PacketLength
{
public:
    // samplesOfFirst is what the stream's first frame decoded to, at sampleRate.
    PacketLength(const AVCodecContext& codec, const AVStream& stream, int samplesOfFirst, int sampleRate);

    void add(const AVPacket& packet);
    [[nodiscard]] uint64_t samples() const { return mSamples > 0 ? static_cast<uint64_t>(mSamples) : 0; }

private:
    struct CloseParser
    {
        void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
    };
    struct FreeCodec
    {
        void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
    };

    [[nodiscard]] int64_t lengthOf(const AVPacket& packet);
    [[nodiscard]] int64_t parsedLength(const AVPacket& packet);
    [[nodiscard]] int64_t wmaLength(const AVPacket& packet);
    [[nodiscard]] int64_t wmaFrame() const;

    // Samples that the decoder takes for itself.
    [[nodiscard]] int64_t codecDelay() const;

    const AVStream& mStream;
    std::unique_ptr<AVCodecContext, FreeCodec> mParserCodec;
    std::unique_ptr<AVCodecParserContext, CloseParser> mParser;
    int mSamplesOfFirst;
    int mSampleRate;
    int64_t mSamples = 0;
    bool mIsFirst = true;
};

} // namespace kess
