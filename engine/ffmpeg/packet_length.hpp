// SPDX-License-Identifier: MIT
// The number of samples that a stream decodes to, from its packets, without decoding them.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cstdint>
#include <memory>

namespace engine {

// Whether a container's own duration counts samples. Other containers count milliseconds, estimate the duration from
// the bit rate, or have none.
[[nodiscard]] bool durationCountsSamples(const char* container);

// Adds up the packets of one stream.
class PacketLength
{
public:
    // samplesOfFirst is the number of samples of the stream's first frame, at sampleRate.
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

    [[nodiscard]] int64_t countSamples(const AVPacket& packet);
    [[nodiscard]] int64_t parsedLength(const AVPacket& packet);
    [[nodiscard]] int64_t wmaLength(const AVPacket& packet);
    [[nodiscard]] int64_t wmaFrame() const;

    // The samples that the decoder doesn't deliver.
    [[nodiscard]] int64_t codecDelay() const;

    const AVStream& mStream;
    std::unique_ptr<AVCodecContext, FreeCodec> mParserCodec;
    std::unique_ptr<AVCodecParserContext, CloseParser> mParser;
    int mSamplesOfFirst;
    int mSampleRate;
    int64_t mSamples = 0;
    bool mIsFirst = true;
};

} // namespace engine
