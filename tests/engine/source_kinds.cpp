// SPDX-License-Identifier: MIT
#include "source_kinds.hpp"

#include <filesystem>

namespace test {

namespace {

std::vector<SourceKind> makeKinds()
{
    constexpr auto k16 = KESS_SOUND_FORMAT_PCM16;
    constexpr auto k24 = KESS_SOUND_FORMAT_PCM24;
    constexpr auto kFloat = KESS_SOUND_FORMAT_PCMFLOAT;
    std::vector<SourceKind> kinds{
        {"u8.wav", KESS_SOUND_TYPE_WAV, KESS_SOUND_FORMAT_PCM8, 1, 22050, {SF_FORMAT_WAV | SF_FORMAT_PCM_U8}, 35},
        {"16.wav", KESS_SOUND_TYPE_WAV, k16, 2, 44100, {SF_FORMAT_WAV | SF_FORMAT_PCM_16}, 85},
        {"24.wav", KESS_SOUND_TYPE_WAV, k24, 6, 48000, {SF_FORMAT_WAVEX | SF_FORMAT_PCM_24}, 120},
        {"32.wav", KESS_SOUND_TYPE_WAV, KESS_SOUND_FORMAT_PCM32, 1, 96000, {SF_FORMAT_WAV | SF_FORMAT_PCM_32}, 120},
        {"float.wav", KESS_SOUND_TYPE_WAV, kFloat, 32, 44100, {SF_FORMAT_WAV | SF_FORMAT_FLOAT}, 120},
        {"double.wav", KESS_SOUND_TYPE_WAV, kFloat, 2, 192000, {SF_FORMAT_WAV | SF_FORMAT_DOUBLE}, 120},
        {"alaw.wav", KESS_SOUND_TYPE_WAV, k16, 2, 8000, {SF_FORMAT_WAV | SF_FORMAT_ALAW}, 30},
        {"ulaw.wav", KESS_SOUND_TYPE_WAV, k16, 1, 8000, {SF_FORMAT_WAV | SF_FORMAT_ULAW}, 30},
        {"ima.wav", KESS_SOUND_TYPE_WAV, k16, 2, 44100, {SF_FORMAT_WAV | SF_FORMAT_IMA_ADPCM}, 25, 2041},
        {"ms.wav", KESS_SOUND_TYPE_WAV, k16, 2, 44100, {SF_FORMAT_WAV | SF_FORMAT_MS_ADPCM}, 25},
        {"gsm.wav", KESS_SOUND_TYPE_WAV, k16, 1, 8000, {SF_FORMAT_WAV | SF_FORMAT_GSM610}, 5},
        {"rifx.wav", KESS_SOUND_TYPE_WAV, k16, 2, 44100, {SF_FORMAT_WAV | SF_FORMAT_PCM_16 | SF_ENDIAN_BIG}, 85},
        {"16.rf64", KESS_SOUND_TYPE_WAV, k16, 2, 44100, {SF_FORMAT_RF64 | SF_FORMAT_PCM_16}, 85},
        {"24.w64", KESS_SOUND_TYPE_WAV, k24, 2, 44100, {SF_FORMAT_W64 | SF_FORMAT_PCM_24}, 120},
        {"8.aiff", KESS_SOUND_TYPE_AIFF, KESS_SOUND_FORMAT_PCM8, 1, 44100, {SF_FORMAT_AIFF | SF_FORMAT_PCM_S8}, 35, 1},
        {"24.aiff", KESS_SOUND_TYPE_AIFF, k24, 2, 44100, {SF_FORMAT_AIFF | SF_FORMAT_PCM_24}, 120},
        {"float.aifc", KESS_SOUND_TYPE_AIFF, kFloat, 2, 44100, {SF_FORMAT_AIFF | SF_FORMAT_FLOAT}, 120},
        {"8.flac", KESS_SOUND_TYPE_FLAC, KESS_SOUND_FORMAT_PCM8, 1, 44100, {SF_FORMAT_FLAC | SF_FORMAT_PCM_S8}, 35},
        {"16.flac", KESS_SOUND_TYPE_FLAC, k16, 2, 44100, {SF_FORMAT_FLAC | SF_FORMAT_PCM_16}, 85},
        {"24.flac", KESS_SOUND_TYPE_FLAC, k24, 6, 48000, {SF_FORMAT_FLAC | SF_FORMAT_PCM_24}, 120},
        {"a.ogg", KESS_SOUND_TYPE_OGG, k16, 2, 44100, {SF_FORMAT_OGG | SF_FORMAT_VORBIS}, 20},
        {"a.opus", KESS_SOUND_TYPE_OGG, k16, 2, 48000, {SF_FORMAT_OGG | SF_FORMAT_OPUS}, 10},
        {"a.au", KESS_SOUND_TYPE_OTHER, k16, 2, 44100, {SF_FORMAT_AU | SF_FORMAT_PCM_16}, 85},
        {"a.caf", KESS_SOUND_TYPE_OTHER, k24, 2, 44100, {SF_FORMAT_CAF | SF_FORMAT_PCM_24}, 120},
        {"alac.caf", KESS_SOUND_TYPE_OTHER, k16, 2, 44100, {SF_FORMAT_CAF | SF_FORMAT_ALAC_16}, 85},
        {"a.voc", KESS_SOUND_TYPE_OTHER, k16, 1, 44100, {SF_FORMAT_VOC | SF_FORMAT_PCM_16}, 85},
        {"a.8svx", KESS_SOUND_TYPE_OTHER, KESS_SOUND_FORMAT_PCM8, 1, 22050, {SF_FORMAT_SVX | SF_FORMAT_PCM_S8}, 35},
        {"six.ogg", KESS_SOUND_TYPE_OGG, k16, 6, 48000, {0, "ogg", "libvorbis"}, 5},
        {"six.opus", KESS_SOUND_TYPE_OGG, k16, 6, 48000, {0, "ogg", "libopus"}, 5},
        {"a.mp3", KESS_SOUND_TYPE_MPEG, k16, 2, 44100, {0, "mp3", "libmp3lame"}, 15},
        {"low.mp3", KESS_SOUND_TYPE_MPEG, k16, 1, 22050, {0, "mp3", "libmp3lame"}, 15},
        {"a.mp2", KESS_SOUND_TYPE_MPEG, k16, 2, 48000, {0, "mp2", "mp2"}, -10, 2400},
        {"mp3.wav", KESS_SOUND_TYPE_WAV, k16, 2, 44100, {0, "wav", "libmp3lame"}, -10, 2400},
        {"a.m4a", KESS_SOUND_TYPE_MP4, k16, 2, 44100, {0, "ipod", "aac"}, 15, 44},
        {"alac.m4a", KESS_SOUND_TYPE_MP4, k16, 2, 44100, {0, "ipod", "alac"}, 85},
        {"a.aac", KESS_SOUND_TYPE_MP4, k16, 2, 44100, {0, "adts", "aac"}, -10, 2100},
        {"a.wma", KESS_SOUND_TYPE_ASF, k16, 2, 44100, {0, "asf", "wmav2"}, -10, 4100},
        {"old.wma", KESS_SOUND_TYPE_ASF, k16, 1, 22050, {0, "asf", "wmav1"}, -10, 2100},
        {"a.spx", KESS_SOUND_TYPE_OGG, k16, 1, 16000, {0, "ogg", "libspeex"}, -10, 1000},
        {"flac.oga", KESS_SOUND_TYPE_OGG, k16, 2, 44100, {0, "ogg", "flac"}, 85},
        {"a.mka", KESS_SOUND_TYPE_OTHER, k16, 2, 44100, {0, "matroska", "libvorbis"}, 15, 600},
        {"opus.webm", KESS_SOUND_TYPE_OTHER, k16, 2, 48000, {0, "webm", "libopus"}, 10, 1000},
        {"a.wv", KESS_SOUND_TYPE_OTHER, k16, 2, 44100, {0, "wv", "wavpack"}, 85},
        {"a.tta", KESS_SOUND_TYPE_OTHER, k16, 2, 44100, {0, "tta", "tta"}, 85},
    };
    std::erase_if(kinds, [](const SourceKind& kind) { return kind.encoding.encoder && !canEncode(); });
    return kinds;
}

} // namespace

void SourceKind::make(const std::string& path, const Signal& signal) const
{
    if (encoding.encoder)
        encodeSound(path, encoding.container, encoding.encoder, signal);
    else
        writeSound(path, encoding.format, signal);
}

const std::vector<SourceKind>& sourceKinds()
{
    static const std::vector<SourceKind> kinds = makeKinds();
    return kinds;
}

std::string exampleFile(const SourceKind& kind)
{
    const std::string path = "example-" + kind.name;
    if (!std::filesystem::exists(path))
        kind.make(path, noise(kind.channels, kind.rate, 5000));
    return path;
}

} // namespace test
