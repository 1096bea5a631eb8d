#include "source_kinds.hpp"

#include <sndfile.h>

#include <cstdio>
#include <cstdlib>

namespace test {

Engine::Engine()
{
    if (KESS_System_Create(&mSystem, KESS_VERSION) != KESS_OK
        || mSystem->setOutput(KESS_OUTPUTTYPE_NOSOUND_NRT) != KESS_OK || mSystem->init(0, 0, nullptr) != KESS_OK)
        std::abort();
}

Engine::~Engine()
{
    mSystem->release();
}

KESS_RESULT Engine::open(const std::string& path, SoundPointer* sound, int type) const
{
    KESS_CREATESOUNDEXINFO info{};
    info.cbsize = sizeof info;
    info.suggestedsoundtype = static_cast<KESS_SOUND_TYPE>(type);
    KESS::Sound* opened = nullptr;
    const unsigned mode = KESS_MODE_CREATESTREAM | KESS_MODE_OPENONLY | KESS_MODE_LOWMEM;
    const KESS_RESULT result = mSystem->createSound(path.c_str(), mode, type ? &info : nullptr, &opened);
    sound->reset(opened);
    return result;
}

KESS_RESULT Engine::tryOpen(const std::string& path, int type) const
{
    SoundPointer sound;
    return open(path, &sound, type);
}

SoundPointer Engine::open(const std::string& path) const
{
    SoundPointer sound;
    const KESS_RESULT result = open(path, &sound);
    if (!sound) {
        std::fprintf(stderr, "%s: (%d) %s\n", path.c_str(), result, KESS_ErrorString(result));
        std::abort();
    }
    return sound;
}

Facts factsOf(KESS::Sound& sound)
{
    Facts facts;
    sound.getFormat(&facts.type, &facts.format, &facts.channels, &facts.bits);
    sound.getDefaults(&facts.rate, nullptr);
    sound.getSampleCount(&facts.samples);
    sound.getLength(&facts.milliseconds, KESS_TIMEUNIT_MS);
    return facts;
}

std::vector<uint8_t> readBytes(KESS::Sound& sound)
{
    std::vector<uint8_t> all;
    std::vector<uint8_t> piece(10007 * 4);
    unsigned got = 0;
    while (sound.readData(piece.data(), static_cast<unsigned>(piece.size()), &got) == KESS_OK)
        all.insert(all.end(), piece.begin(), piece.begin() + got);
    return all;
}

std::vector<float> readFloats(KESS::Sound& sound)
{
    constexpr unsigned kFrames = 3001;
    const auto channels = static_cast<unsigned>(factsOf(sound).channels);
    std::vector<float> all;
    std::vector<float> piece(kFrames * channels);
    unsigned got = 0;
    while (sound.readFloat(piece.data(), kFrames, &got) == KESS_OK)
        all.insert(all.end(), piece.begin(), piece.begin() + got * channels);
    return all;
}

namespace {

SourceKind sndfileKind(const char* name, KESS_SOUND_TYPE type, KESS_SOUND_FORMAT format, int channels, int rate,
                       int sndfileFormat, double leastSnr, uint64_t tolerance = 0)
{
    const auto make = [=](const std::string& path, const Signal& signal) {
        writeSound(path, sndfileFormat, signal);
    };
    return SourceKind{name, type, format, channels, rate, make, leastSnr, tolerance};
}

SourceKind encodedKind(const char* name, KESS_SOUND_TYPE type, KESS_SOUND_FORMAT format, int channels, int rate,
                       const char* container, const char* encoder, double leastSnr, uint64_t tolerance = 0)
{
    const auto make = [=](const std::string& path, const Signal& signal) {
        encodeSound(path, container, encoder, signal);
    };
    return SourceKind{name, type, format, channels, rate, make, leastSnr, tolerance};
}

std::vector<SourceKind> makeKinds()
{
    constexpr auto kWav = KESS_SOUND_TYPE_WAV;
    constexpr auto kOther = KESS_SOUND_TYPE_OTHER;
    constexpr auto k8 = KESS_SOUND_FORMAT_PCM8;
    constexpr auto k16 = KESS_SOUND_FORMAT_PCM16;
    constexpr auto k24 = KESS_SOUND_FORMAT_PCM24;
    constexpr auto k32 = KESS_SOUND_FORMAT_PCM32;
    constexpr auto kFloat = KESS_SOUND_FORMAT_PCMFLOAT;
    std::vector<SourceKind> kinds{
        sndfileKind("u8.wav", kWav, k8, 1, 22050, SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 35),
        sndfileKind("16.wav", kWav, k16, 2, 44100, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 85),
        sndfileKind("24.wav", kWav, k24, 6, 48000, SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, 120),
        sndfileKind("32.wav", kWav, k32, 1, 96000, SF_FORMAT_WAV | SF_FORMAT_PCM_32, 120),
        sndfileKind("float.wav", kWav, kFloat, 32, 44100, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 120),
        sndfileKind("double.wav", kWav, kFloat, 2, 192000, SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 120),
        sndfileKind("alaw.wav", kWav, k16, 2, 8000, SF_FORMAT_WAV | SF_FORMAT_ALAW, 30),
        sndfileKind("ulaw.wav", kWav, k16, 1, 8000, SF_FORMAT_WAV | SF_FORMAT_ULAW, 30),
        sndfileKind("ima.wav", kWav, k16, 2, 44100, SF_FORMAT_WAV | SF_FORMAT_IMA_ADPCM, 25, 2041),
        sndfileKind("ms.wav", kWav, k16, 2, 44100, SF_FORMAT_WAV | SF_FORMAT_MS_ADPCM, 25),
        sndfileKind("gsm.wav", kWav, k16, 1, 8000, SF_FORMAT_WAV | SF_FORMAT_GSM610, 5),
        sndfileKind("rifx.wav", kWav, k16, 2, 44100, SF_FORMAT_WAV | SF_FORMAT_PCM_16 | SF_ENDIAN_BIG, 85),
        sndfileKind("16.rf64", kWav, k16, 2, 44100, SF_FORMAT_RF64 | SF_FORMAT_PCM_16, 85),
        sndfileKind("24.w64", kWav, k24, 2, 44100, SF_FORMAT_W64 | SF_FORMAT_PCM_24, 120),
        sndfileKind("8.aiff", KESS_SOUND_TYPE_AIFF, k8, 1, 44100, SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, 35, 1),
        sndfileKind("24.aiff", KESS_SOUND_TYPE_AIFF, k24, 2, 44100, SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 120),
        sndfileKind("float.aifc", KESS_SOUND_TYPE_AIFF, kFloat, 2, 44100, SF_FORMAT_AIFF | SF_FORMAT_FLOAT, 120),
        sndfileKind("8.flac", KESS_SOUND_TYPE_FLAC, k8, 1, 44100, SF_FORMAT_FLAC | SF_FORMAT_PCM_S8, 35),
        sndfileKind("16.flac", KESS_SOUND_TYPE_FLAC, k16, 2, 44100, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 85),
        sndfileKind("24.flac", KESS_SOUND_TYPE_FLAC, k24, 6, 48000, SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 120),
        sndfileKind("a.ogg", KESS_SOUND_TYPE_OGG, k16, 2, 44100, SF_FORMAT_OGG | SF_FORMAT_VORBIS, 20),
        sndfileKind("a.opus", KESS_SOUND_TYPE_OGG, k16, 2, 48000, SF_FORMAT_OGG | SF_FORMAT_OPUS, 10),
        sndfileKind("a.au", kOther, k16, 2, 44100, SF_FORMAT_AU | SF_FORMAT_PCM_16, 85),
        sndfileKind("a.caf", kOther, k24, 2, 44100, SF_FORMAT_CAF | SF_FORMAT_PCM_24, 120),
        sndfileKind("alac.caf", kOther, k16, 2, 44100, SF_FORMAT_CAF | SF_FORMAT_ALAC_16, 85),
        sndfileKind("a.voc", kOther, k16, 1, 44100, SF_FORMAT_VOC | SF_FORMAT_PCM_16, 85),
        sndfileKind("a.8svx", kOther, k8, 1, 22050, SF_FORMAT_SVX | SF_FORMAT_PCM_S8, 35),
    };
    if (canEncode()) {
        constexpr auto kMpeg = KESS_SOUND_TYPE_MPEG;
        constexpr auto kMp4 = KESS_SOUND_TYPE_MP4;
        const std::vector<SourceKind> encoded{
            encodedKind("six.ogg", KESS_SOUND_TYPE_OGG, k16, 6, 48000, "ogg", "libvorbis", 5),
            encodedKind("six.opus", KESS_SOUND_TYPE_OGG, k16, 6, 48000, "ogg", "libopus", 5),
            encodedKind("a.mp3", kMpeg, k16, 2, 44100, "mp3", "libmp3lame", 15),
            encodedKind("low.mp3", kMpeg, k16, 1, 22050, "mp3", "libmp3lame", 15),
            encodedKind("a.mp2", kMpeg, k16, 2, 48000, "mp2", "mp2", -10, 2400),
            encodedKind("mp3.wav", kWav, k16, 2, 44100, "wav", "libmp3lame", -10, 2400),
            encodedKind("a.m4a", kMp4, k16, 2, 44100, "ipod", "aac", 15, 44),
            encodedKind("alac.m4a", kMp4, k16, 2, 44100, "ipod", "alac", 85),
            encodedKind("a.aac", kMp4, k16, 2, 44100, "adts", "aac", -10, 2100),
            encodedKind("a.wma", KESS_SOUND_TYPE_ASF, k16, 2, 44100, "asf", "wmav2", -10, 4100),
            encodedKind("old.wma", KESS_SOUND_TYPE_ASF, k16, 1, 22050, "asf", "wmav1", -10, 2100),
            encodedKind("a.spx", KESS_SOUND_TYPE_OGG, k16, 1, 16000, "ogg", "libspeex", -10, 1000),
            encodedKind("flac.oga", KESS_SOUND_TYPE_OGG, k16, 2, 44100, "ogg", "flac", 85),
            encodedKind("a.mka", kOther, k16, 2, 44100, "matroska", "libvorbis", 15, 600),
            encodedKind("opus.webm", kOther, k16, 2, 48000, "webm", "libopus", 10, 1000),
            encodedKind("a.wv", kOther, k16, 2, 44100, "wv", "wavpack", 85),
            encodedKind("a.tta", kOther, k16, 2, 44100, "tta", "tta", 85),
        };
        kinds.insert(kinds.end(), encoded.begin(), encoded.end());
    }
    return kinds;
}

} // namespace

const std::vector<SourceKind>& sourceKinds()
{
    static const std::vector<SourceKind> kinds = makeKinds();
    return kinds;
}

} // namespace test
