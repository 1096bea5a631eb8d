// SPDX-License-Identifier: MIT
// The decoder module, based on FFmpeg, for what the engine's own decoders can't decode.
#include "decode/decoder_module.h"
#include "packet_length.hpp"
#include "parse/vorbis_setup_check.hpp"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/log.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <span>
#include <string_view>

using namespace std::literals;

namespace {

struct CloseFormat
{
    void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
};
struct FreeIo
{
    void operator()(AVIOContext* io) const
    {
        av_freep(&io->buffer);
        avio_context_free(&io);
    }
};
struct FreeCodec
{
    void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
};
struct FreePacket
{
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeFrame
{
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

// The file and the position at which FFmpeg reads it.
struct Input
{
    KESS_MODULE_INPUT file{};
    uint64_t position = 0;
};

int readInput(void* user, uint8_t* buffer, int count)
{
    Input& input = *static_cast<Input*>(user);
    const size_t got = input.file.readAt(input.file.user, input.position, buffer, static_cast<size_t>(count));
    input.position += got;
    return got > 0 ? static_cast<int>(got) : AVERROR_EOF;
}

int64_t seekInput(void* user, int64_t offset, int whence)
{
    Input& input = *static_cast<Input*>(user);
    const auto size = static_cast<int64_t>(input.file.size);
    int64_t target = offset;
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
        return size;
    case SEEK_CUR:
        target += static_cast<int64_t>(input.position);
        break;
    case SEEK_END:
        target += size;
        break;
    default:
        break;
    }
    if (target < 0)
        return AVERROR(EINVAL);
    input.position = static_cast<uint64_t>(target);
    return target;
}

// Containers may refer to other files and addresses, which are never opened.
int refuseOther(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**)
{
    return AVERROR(EPERM);
}

// The stream to decode: the first sound that is marked as the default one, otherwise the first. FFmpeg's own selection
// ignores streams whose rate only the codec knows.
std::optional<unsigned> findSound(const AVFormatContext& format)
{
    std::optional<unsigned> first;
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        const AVStream& stream = *format.streams[i];
        if (stream.codecpar->codec_type != AVMEDIA_TYPE_AUDIO)
            continue;
        if (stream.disposition & AV_DISPOSITION_DEFAULT)
            return i;
        if (!first)
            first = i;
    }
    return first;
}

// The third of the headers that a container stores beside a Vorbis stream. In one form,
// each header is preceded by its length in two bytes. In the other, a byte with the number of headers minus one comes
// first, then the lengths of the first two in Xiph's lacing, then all headers. Empty if the lengths are wrong.
std::span<const uint8_t> vorbisSetup(std::span<const uint8_t> headers)
{
    constexpr size_t kIdentificationBytes = 30;
    size_t position = 0;
    if (headers.size() >= 6 && AV_RB16(headers.data()) == kIdentificationBytes) {
        for (int header = 0; header < 2 && headers.size() - position >= 2; ++header)
            position = std::min(headers.size(), position + 2 + AV_RB16(headers.data() + position));
        position += 2;
    } else if (!headers.empty() && headers[0] == 2) {
        size_t lengths = 0;
        position = 1;
        for (int header = 0; header < 2 && position < headers.size(); ++header) {
            while (position < headers.size() && headers[position] == 255)
                lengths += headers[position++];
            if (position < headers.size())
                lengths += headers[position++];
        }
        position += lengths;
    }
    return position > 0 && position < headers.size() ? headers.subspan(position) : std::span<const uint8_t>();
}

bool isBoundedSetup(std::span<const uint8_t> packet)
{
    return engine::vorbisSetupBytes(packet.data(), packet.size()).has_value();
}

// Whether a codec may be opened with the headers in the container. Opening it allocates memory for each channel and for
// everything that the headers declare.
KESS_RESULT checkParameters(const AVCodecParameters& parameters)
{
    if (parameters.ch_layout.nb_channels > KESS_MAX_CHANNELS)
        return KESS_ERR_TOOMANYCHANNELS;
    if (parameters.codec_id != AV_CODEC_ID_VORBIS || parameters.extradata_size <= 0)
        return KESS_OK;
    return isBoundedSetup(vorbisSetup({parameters.extradata, static_cast<size_t>(parameters.extradata_size)}))
        ? KESS_OK
        : KESS_ERR_FILE_BAD;
}

// The same for a packet: FFmpeg's Vorbis decoder also accepts headers among the packets of sound.
bool isBearable(AVCodecID codec, const AVPacket& packet)
{
    constexpr uint8_t kSetupHeader = 5;
    return codec != AV_CODEC_ID_VORBIS || packet.size < 1 || packet.data[0] != kSetupHeader
        || isBoundedSetup({packet.data, static_cast<size_t>(packet.size)});
}

// How the samples of a frame are delivered.
enum class Delivery
{
    Float,
    Integer
};

// The demuxer and decoder of one sound, from the start of the file to its end.
class Stream
{
public:
    [[nodiscard]] KESS_RESULT open(const KESS_MODULE_INPUT& file, const char* container);

    [[nodiscard]] const AVStream& stream() const { return *mFormat->streams[mIndex]; }
    [[nodiscard]] const AVCodecContext& codec() const { return *mCodec; }

    // The next packet of the sound; null at the end.
    [[nodiscard]] const AVPacket* nextPacket();

    // The next frame; null at the end and where nothing more can be decoded.
    [[nodiscard]] const AVFrame* nextFrame();

private:
    [[nodiscard]] KESS_RESULT openContainer(const char* container);
    [[nodiscard]] KESS_RESULT openCodec();

    Input mInput;
    std::unique_ptr<AVIOContext, FreeIo> mIo; // outlives the demuxer, which reads through it
    std::unique_ptr<AVFormatContext, CloseFormat> mFormat;
    std::unique_ptr<AVCodecContext, FreeCodec> mCodec;
    std::unique_ptr<AVPacket, FreePacket> mPacket{av_packet_alloc()};
    std::unique_ptr<AVFrame, FreeFrame> mFrame{av_frame_alloc()};
    unsigned mIndex = 0;
    bool mDraining = false;
};

KESS_RESULT Stream::open(const KESS_MODULE_INPUT& file, const char* container)
{
    if (!mPacket || !mFrame)
        return KESS_ERR_MEMORY;
    mInput.file = file;
    const KESS_RESULT result = openContainer(container);
    return result == KESS_OK ? openCodec() : result;
}

KESS_RESULT Stream::openContainer(const char* container)
{
    constexpr int kIoBufferBytes = 32768;
    constexpr int kMaximumStreams = 64;
    const AVInputFormat* input = av_find_input_format(container);
    if (!input)
        return KESS_ERR_FORMAT;
    auto* buffer = static_cast<uint8_t*>(av_malloc(kIoBufferBytes));
    if (!buffer)
        return KESS_ERR_MEMORY;
    mIo.reset(avio_alloc_context(buffer, kIoBufferBytes, 0, &mInput, readInput, nullptr, seekInput));
    if (!mIo) {
        av_free(buffer);
        return KESS_ERR_MEMORY;
    }
    AVFormatContext* format = avformat_alloc_context();
    if (!format)
        return KESS_ERR_MEMORY;
    format->pb = mIo.get();
    format->flags |= AVFMT_FLAG_CUSTOM_IO;
    format->io_open = refuseOther;
    format->max_streams = kMaximumStreams;
    format->format_whitelist = av_strdup(input->name);
    format->protocol_whitelist = av_strdup("none");
    // On failure the context is freed by the call.
    if (avformat_open_input(&format, "", input, nullptr) < 0)
        return KESS_ERR_FILE_BAD;
    mFormat.reset(format);

    const std::optional<unsigned> index = findSound(*format);
    if (!index)
        return KESS_ERR_FORMAT;
    mIndex = *index;
    for (unsigned i = 0; i < format->nb_streams; ++i)
        format->streams[i]->discard = i == mIndex ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    return KESS_OK;
}

KESS_RESULT Stream::openCodec()
{
    const AVCodecParameters* parameters = stream().codecpar;
    const AVCodec* decoder = avcodec_find_decoder(parameters->codec_id);
    if (!decoder)
        return KESS_ERR_FORMAT;
    if (const KESS_RESULT result = checkParameters(*parameters); result != KESS_OK)
        return result;
    mCodec.reset(avcodec_alloc_context3(decoder));
    if (!mCodec || avcodec_parameters_to_context(mCodec.get(), parameters) < 0)
        return KESS_ERR_MEMORY;
    mCodec->pkt_timebase = stream().time_base;
    mCodec->thread_count = 1;
    return avcodec_open2(mCodec.get(), decoder, nullptr) < 0 ? KESS_ERR_FILE_BAD : KESS_OK;
}

const AVPacket* Stream::nextPacket()
{
    for (;;) {
        av_packet_unref(mPacket.get());
        if (av_read_frame(mFormat.get(), mPacket.get()) < 0)
            return nullptr;
        if (mPacket->stream_index == static_cast<int>(mIndex))
            return mPacket.get();
    }
}

const AVFrame* Stream::nextFrame()
{
    for (;;) {
        const int received = avcodec_receive_frame(mCodec.get(), mFrame.get());
        if (received == 0 && mFrame->nb_samples > 0)
            return mFrame.get();
        if (received == 0)
            continue;
        if (received != AVERROR(EAGAIN) || mDraining)
            return nullptr;
        const AVPacket* packet = nextPacket();
        if (packet && !isBearable(mCodec->codec_id, *packet))
            return nullptr;
        mDraining = !packet;
        // A packet that can't be decoded leaves a gap, as in any player. The length check at the end detects it.
        static_cast<void>(avcodec_send_packet(mCodec.get(), packet));
    }
}

// The reported format of a sound, and how it is delivered.
struct Shape
{
    KESS_SOUND_FORMAT format;
    Delivery delivery;
};

bool isLossless(AVCodecID id)
{
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(id);
    return descriptor && descriptor->props & AV_CODEC_PROP_LOSSLESS && !(descriptor->props & AV_CODEC_PROP_LOSSY);
}

std::optional<Shape> deliveredShape(const AVCodecContext& codec, const AVFrame& frame)
{
    const auto kind = av_get_packed_sample_fmt(static_cast<AVSampleFormat>(frame.format));
    const bool isKnown = kind == AV_SAMPLE_FMT_U8 || kind == AV_SAMPLE_FMT_S16 || kind == AV_SAMPLE_FMT_S32
        || kind == AV_SAMPLE_FMT_FLT || kind == AV_SAMPLE_FMT_DBL;
    if (!isKnown)
        return std::nullopt;
    const bool isFloat = kind == AV_SAMPLE_FMT_FLT || kind == AV_SAMPLE_FMT_DBL;
    if (!isLossless(codec.codec_id))
        return Shape{KESS_SOUND_FORMAT_PCM16, Delivery::Float};
    if (isFloat)
        return Shape{KESS_SOUND_FORMAT_PCMFLOAT, Delivery::Float};
    const int width = 8 * av_get_bytes_per_sample(kind);
    const int bits = codec.bits_per_raw_sample > 0 ? std::min(codec.bits_per_raw_sample, width) : width;
    const auto format = bits <= 8 ? KESS_SOUND_FORMAT_PCM8
        : bits <= 16              ? KESS_SOUND_FORMAT_PCM16
        : bits <= 24              ? KESS_SOUND_FORMAT_PCM24
                                  : KESS_SOUND_FORMAT_PCM32;
    return Shape{format, Delivery::Integer};
}

template <typename Sample>
Sample sampleAt(const AVFrame& frame, int channel, int index, int channels, bool planar)
{
    const uint8_t* plane = frame.extended_data[planar ? channel : 0];
    const auto position = static_cast<size_t>(planar ? index : index * channels + channel);
    Sample sample;
    std::memcpy(&sample, plane + position * sizeof sample, sizeof sample);
    return sample;
}

int32_t integerAt(const AVFrame& frame, AVSampleFormat kind, bool planar, int channel, int index, int channels)
{
    switch (kind) {
    case AV_SAMPLE_FMT_U8:
        return static_cast<int32_t>((uint32_t{sampleAt<uint8_t>(frame, channel, index, channels, planar)} ^ 0x80u)
                                    << 24);
    case AV_SAMPLE_FMT_S16:
        return sampleAt<int16_t>(frame, channel, index, channels, planar) * 65536;
    default:
        return sampleAt<int32_t>(frame, channel, index, channels, planar);
    }
}

float floatAt(const AVFrame& frame, AVSampleFormat kind, bool planar, int channel, int index, int channels)
{
    if (kind == AV_SAMPLE_FMT_FLT)
        return sampleAt<float>(frame, channel, index, channels, planar);
    if (kind == AV_SAMPLE_FMT_DBL)
        return static_cast<float>(sampleAt<double>(frame, channel, index, channels, planar));
    return static_cast<float>(integerAt(frame, kind, planar, channel, index, channels)) * 0x1p-31f;
}

// One decoder of the module: a stream, cut to the length that was reported on opening.
class ModuleDecoder
{
public:
    [[nodiscard]] KESS_RESULT open(const KESS_MODULE_INPUT& input, const char* container, KESS_MODULE_FACTS* facts)
    {
        KESS_RESULT result = mStream.open(input, container);
        if (result != KESS_OK)
            return result;
        // Some containers store rate, channels and depth only in the codec's headers, and some codecs only in the first
        // frame.
        mFrame = mStream.nextFrame();
        if (!mFrame)
            return KESS_ERR_FILE_BAD;
        const std::optional<Shape> shape = deliveredShape(mStream.codec(), *mFrame);
        if (!shape)
            return KESS_ERR_FORMAT;
        mDelivery = shape->delivery;
        mSampleFormat = mFrame->format;
        mChannels = mFrame->ch_layout.nb_channels;
        facts->format = shape->format;
        facts->isFloat = mDelivery == Delivery::Float;
        facts->channels = mChannels;
        facts->sampleRate = mFrame->sample_rate;
        mSamplesOfFirst = mFrame->nb_samples;
        result = measure(input, container, facts);
        mLeft = facts->sampleCount;
        return result;
    }

    [[nodiscard]] size_t read(void* buffer, size_t frames)
    {
        frames = static_cast<size_t>(std::min<uint64_t>(frames, mLeft));
        size_t done = 0;
        while (done < frames) {
            if (mFrame && mUsed == mFrame->nb_samples) {
                mFrame = mStream.nextFrame();
                mUsed = 0;
                if (mFrame && (mFrame->format != mSampleFormat || mFrame->ch_layout.nb_channels != mChannels))
                    mFrame = nullptr;
            }
            auto* target = static_cast<uint8_t*>(buffer) + done * static_cast<size_t>(mChannels) * 4;
            size_t chunk = frames - done;
            if (mFrame) {
                chunk = std::min(chunk, static_cast<size_t>(mFrame->nb_samples - mUsed));
                copy(target, chunk);
                mUsed += static_cast<int>(chunk);
            } else {
                chunk = static_cast<size_t>(std::min<uint64_t>(chunk, mSilence));
                std::memset(target, 0, chunk * static_cast<size_t>(mChannels) * 4);
                mSilence -= chunk;
                if (chunk == 0)
                    break;
            }
            done += chunk;
        }
        mLeft -= done;
        return done;
    }

private:
    // Fills in the number of samples: the container's, if it counts samples, otherwise the sum over all packets, which
    // are read without being decoded.
    [[nodiscard]] KESS_RESULT measure(const KESS_MODULE_INPUT& input, const char* container, KESS_MODULE_FACTS* facts)
    {
        const AVStream& stream = mStream.stream();
        const AVRational samples{1, facts->sampleRate};
        if (engine::durationCountsSamples(container) && stream.duration > 0) {
            // In Ogg, the duration of Opus includes the pre-skip.
            const bool countsPreSkip = stream.codecpar->codec_id == AV_CODEC_ID_OPUS && container == "ogg"sv;
            const int64_t dropped = countsPreSkip ? stream.codecpar->initial_padding : 0;
            const int64_t length = av_rescale_q(stream.duration, stream.time_base, samples) - dropped;
            facts->sampleCount = static_cast<uint64_t>(std::max<int64_t>(length, 0));
            mSilence = static_cast<uint64_t>(facts->sampleRate);
            return KESS_OK;
        }
        Stream scan;
        const KESS_RESULT result = scan.open(input, container);
        if (result != KESS_OK)
            return result;
        engine::PacketLength length(scan.codec(), scan.stream(), mSamplesOfFirst, facts->sampleRate);
        while (const AVPacket* packet = scan.nextPacket())
            length.add(*packet);
        facts->sampleCount = length.samples();
        mSilence = static_cast<uint64_t>(facts->sampleRate);
        return KESS_OK;
    }

    void copy(uint8_t* target, size_t frames) const
    {
        const auto format = static_cast<AVSampleFormat>(mFrame->format);
        const AVSampleFormat kind = av_get_packed_sample_fmt(format);
        const bool planar = av_sample_fmt_is_planar(format);
        for (size_t i = 0; i < frames; ++i) {
            for (int channel = 0; channel < mChannels; ++channel, target += 4) {
                const int index = mUsed + static_cast<int>(i);
                if (mDelivery == Delivery::Float) {
                    const float sample = floatAt(*mFrame, kind, planar, channel, index, mChannels);
                    std::memcpy(target, &sample, sizeof sample);
                } else {
                    const int32_t sample = integerAt(*mFrame, kind, planar, channel, index, mChannels);
                    std::memcpy(target, &sample, sizeof sample);
                }
            }
        }
    }

    Stream mStream;
    const AVFrame* mFrame = nullptr; // owned by mStream, the frame that is being delivered
    int mUsed = 0; // samples of it that were delivered
    int mSampleFormat = 0;
    int mChannels = 0;
    int mSamplesOfFirst = 0;
    Delivery mDelivery = Delivery::Float;
    uint64_t mLeft = 0;
    // Containers may declare a little more than exists, above all those that count milliseconds. Up to a second is
    // filled with silence, so that every sound has its declared length. If more is missing, the file is damaged.
    uint64_t mSilence = 0;
};

KESS_RESULT openModule(const KESS_MODULE_INPUT* input, const char* container, void** decoder, KESS_MODULE_FACTS* facts)
{
    *decoder = nullptr;
    try {
        auto opened = std::make_unique<ModuleDecoder>();
        const KESS_RESULT result = opened->open(*input, container, facts);
        if (result == KESS_OK)
            *decoder = opened.release();
        return result;
    } catch (const std::bad_alloc&) {
        return KESS_ERR_MEMORY;
    }
}

KESS_RESULT readModule(void* decoder, void* buffer, size_t frames, size_t* done)
{
    *done = static_cast<ModuleDecoder*>(decoder)->read(buffer, frames);
    return KESS_OK;
}

void closeModule(void* decoder)
{
    delete static_cast<ModuleDecoder*>(decoder);
}

} // namespace

extern "C" __attribute__((visibility("default"))) const KESS_DECODER_MODULE* kess_decoder_module(void)
{
    static const KESS_DECODER_MODULE module{KESS_DECODER_MODULE_VERSION, openModule, readModule, closeModule};
    static std::once_flag prepared;
    std::call_once(prepared, [] {
        // FFmpeg would report every oddity of a file on the program's standard error stream.
        av_log_set_callback([](void*, int, const char*, va_list) {});
        // Some demuxers allocate as much memory as a header declares. The index of a day of sound needs 100 MB.
        constexpr size_t kLargestBlock = 128u << 20;
        av_max_alloc(kLargestBlock);
    });
    return &module;
}
