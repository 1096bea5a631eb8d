// Files that libsndfile can't write, by FFmpeg's encoders.
#include "support/sound_files.hpp"

#ifdef TEST_HAS_FFMPEG
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}
#endif

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#ifdef __SANITIZE_ADDRESS__
// The Vorbis encoder of Debian 12 loses a block for each sound of six channels. It isn't under test here.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:vorbis_encode_setup_init\n";
}
#endif

namespace test {

#ifdef TEST_HAS_FFMPEG

namespace {

void require(bool condition, const std::string& path, const char* step)
{
    if (condition)
        return;
    std::fprintf(stderr, "%s: encoding failed at %s\n", path.c_str(), step);
    std::abort();
}

void storeSample(AVFrame& frame, int channel, int index, float sample)
{
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const bool planar = av_sample_fmt_is_planar(format);
    const int place = planar ? index : index * frame.ch_layout.nb_channels + channel;
    uint8_t* plane = frame.extended_data[planar ? channel : 0];
    const double clipped = std::clamp(static_cast<double>(sample), -1.0, 1.0 - 0x1p-31);
    switch (av_get_packed_sample_fmt(format)) {
    case AV_SAMPLE_FMT_S16:
        reinterpret_cast<int16_t*>(plane)[place] = static_cast<int16_t>(std::floor(clipped * 32768));
        break;
    case AV_SAMPLE_FMT_S32:
        reinterpret_cast<int32_t*>(plane)[place] = static_cast<int32_t>(std::floor(clipped * 0x1p31));
        break;
    default:
        reinterpret_cast<float*>(plane)[place] = sample;
        break;
    }
}

// 16 bits where the encoder takes them, else what it likes best.
AVSampleFormat chooseFormat(const AVCodec& encoder)
{
    for (const AVSampleFormat* format = encoder.sample_fmts; *format != AV_SAMPLE_FMT_NONE; ++format) {
        if (av_get_packed_sample_fmt(*format) == AV_SAMPLE_FMT_S16)
            return *format;
    }
    return encoder.sample_fmts[0];
}

// Hands a frame, or the end, to the encoder and writes what it has ready.
void encodeFrame(const std::string& path, AVFormatContext* format, AVCodecContext* codec, const AVFrame* frame)
{
    require(avcodec_send_frame(codec, frame) >= 0, path, "a frame");
    AVPacket* packet = av_packet_alloc();
    while (avcodec_receive_packet(codec, packet) >= 0) {
        av_packet_rescale_ts(packet, codec->time_base, format->streams[0]->time_base);
        require(av_interleaved_write_frame(format, packet) >= 0, path, "a packet");
    }
    av_packet_free(&packet);
}

void encodeSignal(const std::string& path, AVFormatContext* format, AVCodecContext* codec, const Signal& signal)
{
    const size_t step = codec->frame_size > 0 ? static_cast<size_t>(codec->frame_size) : 1024;
    for (size_t start = 0; start < signal.frames(); start += step) {
        AVFrame* frame = av_frame_alloc();
        frame->format = codec->sample_fmt;
        frame->sample_rate = codec->sample_rate;
        frame->nb_samples = static_cast<int>(std::min(step, signal.frames() - start));
        frame->pts = static_cast<int64_t>(start);
        av_channel_layout_copy(&frame->ch_layout, &codec->ch_layout);
        require(av_frame_get_buffer(frame, 0) >= 0, path, "memory");
        for (int i = 0; i < frame->nb_samples; ++i) {
            for (int channel = 0; channel < signal.channels; ++channel) {
                const size_t place = (start + static_cast<size_t>(i)) * static_cast<size_t>(signal.channels);
                storeSample(*frame, channel, i, signal.samples[place + static_cast<size_t>(channel)]);
            }
        }
        encodeFrame(path, format, codec, frame);
        av_frame_free(&frame);
    }
    encodeFrame(path, format, codec, nullptr);
}

} // namespace

bool canEncode()
{
    return true;
}

void encodeSound(const std::string& path, const char* container, const char* encoder, const Signal& signal,
                 const std::vector<std::pair<std::string, std::string>>& tags)
{
    av_log_set_level(AV_LOG_ERROR);
    const AVCodec* found = avcodec_find_encoder_by_name(encoder);
    AVFormatContext* format = nullptr;
    require(found && avformat_alloc_output_context2(&format, nullptr, container, path.c_str()) >= 0, path, encoder);
    AVCodecContext* codec = avcodec_alloc_context3(found);
    codec->sample_fmt = chooseFormat(*found);
    codec->sample_rate = signal.rate;
    codec->time_base = AVRational{1, signal.rate};
    codec->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    av_channel_layout_default(&codec->ch_layout, signal.channels);
    if (format->oformat->flags & AVFMT_GLOBALHEADER)
        codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    require(avcodec_open2(codec, found, nullptr) >= 0, path, "the encoder");
    AVStream* stream = avformat_new_stream(format, nullptr);
    require(stream && avcodec_parameters_from_context(stream->codecpar, codec) >= 0, path, "the stream");
    stream->time_base = codec->time_base;
    for (const auto& [name, value] : tags) {
        av_dict_set(&format->metadata, name.c_str(), value.c_str(), 0);
        av_dict_set(&stream->metadata, name.c_str(), value.c_str(), 0);
    }
    require(avio_open(&format->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0, path, "the file");
    require(avformat_write_header(format, nullptr) >= 0, path, "the header");
    encodeSignal(path, format, codec, signal);
    require(av_write_trailer(format) >= 0, path, "the trailer");
    avio_closep(&format->pb);
    avcodec_free_context(&codec);
    avformat_free_context(format);
}

#else

bool canEncode()
{
    return false;
}

void encodeSound(const std::string& path, const char*, const char* encoder, const Signal&,
                 const std::vector<std::pair<std::string, std::string>>&)
{
    std::fprintf(stderr, "%s: no encoder %s in this build\n", path.c_str(), encoder);
    std::abort();
}

#endif

} // namespace test
