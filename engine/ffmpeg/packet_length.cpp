// SPDX-License-Identifier: MIT
#include "packet_length.hpp"

extern "C" {
#include <libavutil/intreadwrite.h>
}

#include <algorithm>
#include <string_view>

namespace engine {

bool durationCountsSamples(const char* container)
{
    const std::string_view name = container;
    return name == "mov" || name == "ogg" || name == "wv" || name == "tta" || name == "ape" || name == "tak"
        || name == "mpc8" || name == "flac" || name == "aiff" || name == "w64" || name == "au";
}

PacketLength::PacketLength(const AVCodecContext& codec, const AVStream& stream, int samplesOfFirst, int sampleRate)
    : mStream(stream)
    , mSamplesOfFirst(samplesOfFirst)
    , mSampleRate(sampleRate)
{
    switch (codec.codec_id) {
    case AV_CODEC_ID_VORBIS:
    case AV_CODEC_ID_OPUS:
    case AV_CODEC_ID_FLAC:
    case AV_CODEC_ID_MP2:
    case AV_CODEC_ID_MP3:
        break;
    default:
        return;
    }
    mParserCodec.reset(avcodec_alloc_context3(nullptr));
    mParser.reset(av_parser_init(codec.codec_id));
    if (mParser)
        mParser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    if (mParserCodec && avcodec_parameters_to_context(mParserCodec.get(), stream.codecpar) < 0)
        mParserCodec.reset();
}

void PacketLength::add(const AVPacket& packet)
{
    mSamples += countSamples(packet);
    if (mIsFirst)
        mSamples -= codecDelay();
    size_t size = 0;
    const uint8_t* skip = av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
    if (skip && size >= 8) {
        mSamples -= AV_RL32(skip);
        mSamples -= AV_RL32(skip + 4);
    }
    mIsFirst = false;
}

int64_t PacketLength::countSamples(const AVPacket& packet)
{
    switch (mStream.codecpar->codec_id) {
    case AV_CODEC_ID_WMAV1:
    case AV_CODEC_ID_WMAV2:
        return wmaLength(packet);
    case AV_CODEC_ID_AAC:
        return mSamplesOfFirst; // the packets' own durations ignore spectral band replication
    case AV_CODEC_ID_ALAC:
        // A frame shorter than the others has a flag after its tag, followed by its length.
        if (packet.size >= 7 && packet.data[2] & 0x10)
            return std::min<int64_t>((AV_RB64(packet.data) >> 9) & 0xffffffff, mSamplesOfFirst);
        return mSamplesOfFirst;
    default:
        break;
    }
    if (mParser && mParserCodec)
        return parsedLength(packet);
    const int fixed = av_get_audio_frame_duration2(mStream.codecpar, packet.size);
    if (fixed > 0)
        return fixed;
    return packet.duration > 0 ? av_rescale_q(packet.duration, mStream.time_base, AVRational{1, mSampleRate})
                               : mSamplesOfFirst;
}

int64_t PacketLength::codecDelay() const
{
    switch (mStream.codecpar->codec_id) {
    case AV_CODEC_ID_OPUS:
        return mStream.codecpar->initial_padding;
    case AV_CODEC_ID_WMAV1:
    case AV_CODEC_ID_WMAV2:
        // The decoder drops two frames at the start and adds one at the end.
        return wmaFrame();
    default:
        return 0;
    }
}

int64_t PacketLength::wmaFrame() const
{
    const int rate = mStream.codecpar->sample_rate;
    const bool isFirstVersion = mStream.codecpar->codec_id == AV_CODEC_ID_WMAV1;
    return rate <= 16000 ? 512 : rate <= 22050 || (rate <= 32000 && isFirstVersion) ? 1024 : 2048;
}

int64_t PacketLength::parsedLength(const AVPacket& packet)
{
    uint8_t* data = nullptr;
    int size = 0;
    av_parser_parse2(mParser.get(), mParserCodec.get(), &data, &size, packet.data, packet.size, AV_NOPTS_VALUE,
                     AV_NOPTS_VALUE, 0);
    // The first block of a Vorbis stream only prepares the second one.
    if (mIsFirst && mStream.codecpar->codec_id == AV_CODEC_ID_VORBIS)
        return 0;
    return std::max(mParser->duration, 0);
}

int64_t PacketLength::wmaLength(const AVPacket& packet)
{
    const AVCodecParameters& parameters = *mStream.codecpar;
    const bool isFirstVersion = parameters.codec_id == AV_CODEC_ID_WMAV1;
    const int flags = parameters.extradata_size >= 6 && !isFirstVersion ? AV_RL16(parameters.extradata + 4)
        : parameters.extradata_size >= 4 && isFirstVersion              ? AV_RL16(parameters.extradata + 2)
                                                                        : 0;
    const bool usesReservoir = flags & 2;
    if (packet.size < 1)
        return 0;
    // With a bit reservoir, a packet contains the number of frames that begin in it. The rest of the last one is in the
    // next packet and is counted there.
    const int frames = usesReservoir ? (packet.data[0] & 15) - (mIsFirst ? 1 : 0) : 1;
    return std::max(frames, 0) * wmaFrame();
}

} // namespace engine
