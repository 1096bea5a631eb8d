/* SPDX-License-Identifier: MIT */
/* Calls every function of the engine from C99: c_interface BANK KEY FILE
 *
 * BANK is encrypted with KEY and has two sounds: "ramp", mono, 16-bit PCM of 3,000 samples that rise by one from 0,
 * with the loop 1000 to 2000 and the sync point "half" at 1500; and "tone". FILE is the WAV file of the ramp. */
#include "kess.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum
{
    kFrames = 3000,
    kLoopStart = 1000,
    kLoopEnd = 2000
};

static void require(int holds, int line, const char* what)
{
    if (!holds) {
        printf("line %d: %s\n", line, what);
        exit(1);
    }
}

#define REQUIRE(condition) require((condition), __LINE__, #condition)
#define REQUIRE_OK(call) REQUIRE((call) == KESS_OK)

/* The next samples of a ramp with that loop count. */
static void require_ramp(KESS_SOUND* sound, int first, int count)
{
    int16_t samples[kFrames];
    unsigned int bytes = 0;
    int i;
    REQUIRE_OK(KESS_Sound_ReadData(sound, samples, (unsigned int)count * 2, &bytes));
    REQUIRE(bytes == (unsigned int)count * 2);
    for (i = 0; i < count; ++i)
        REQUIRE(samples[i] == first + i);
}

static void require_facts(KESS_SOUND* sound, KESS_SOUND_TYPE expected)
{
    KESS_SOUND_TYPE type;
    KESS_SOUND_FORMAT format;
    int channels, bits, priority, count;
    float rate;
    unsigned int milliseconds;
    uint64_t samples, declared, start, end, sample;
    char name[16];

    REQUIRE_OK(KESS_Sound_GetFormat(sound, &type, &format, &channels, &bits));
    REQUIRE(type == expected && format == KESS_SOUND_FORMAT_PCM16 && channels == 1 && bits == 16);
    REQUIRE_OK(KESS_Sound_GetDefaults(sound, &rate, &priority));
    REQUIRE(rate == 48000 && priority == 128);
    REQUIRE_OK(KESS_Sound_GetLength(sound, &milliseconds, KESS_TIMEUNIT_MS));
    REQUIRE_OK(KESS_Sound_GetSampleCount(sound, &samples));
    REQUIRE_OK(KESS_Sound_GetDeclaredSampleCount(sound, &declared));
    REQUIRE(milliseconds == 62 && samples == kFrames && declared == kFrames);
    REQUIRE_OK(KESS_Sound_GetLoopPoints(sound, &start, &end));
    REQUIRE(start == kLoopStart && end == kLoopEnd);
    REQUIRE_OK(KESS_Sound_GetNumSyncPoints(sound, &count));
    REQUIRE(count == 1);
    REQUIRE(KESS_Sound_GetSyncPoint(sound, 1, NULL, NULL, 0) == KESS_ERR_INVALID_SYNCPOINT);
    REQUIRE(KESS_Sound_GetSyncPoint(sound, 0, &sample, name, 3) == KESS_ERR_TRUNCATED);
    REQUIRE(sample == 1500 && strcmp(name, "ha") == 0);
    REQUIRE_OK(KESS_Sound_GetRemark(sound, name, sizeof name));
    REQUIRE(name[0] == '\0');
}

static void require_playback(KESS_SOUND* sound)
{
    float frames[4];
    unsigned int count = 0;
    REQUIRE_OK(KESS_Sound_SetLoopCount(sound, 1));
    REQUIRE_OK(KESS_Sound_SeekData(sound, 1900));
    require_ramp(sound, 1900, 100);
    require_ramp(sound, kLoopStart, kFrames - kLoopStart);
    REQUIRE(KESS_Sound_ReadFloat(sound, frames, 4, &count) == KESS_ERR_FILE_EOF);
    REQUIRE(KESS_Sound_SeekData(sound, kFrames + 1) == KESS_ERR_INVALID_POSITION);
    REQUIRE_OK(KESS_Sound_SeekData(sound, 16));
    REQUIRE_OK(KESS_Sound_ReadFloat(sound, frames, 4, &count));
    REQUIRE(count == 4 && frames[3] == 19 / 32768.0f);
}

static int64_t read_memory(void* user, uint64_t offset, void* buffer, uint64_t bytes)
{
    memcpy(buffer, (const unsigned char*)user + offset, (size_t)bytes);
    return (int64_t)bytes;
}

static int closed;

static void close_memory(void* user)
{
    closed += user != NULL;
}

static void use_sources(KESS_SYSTEM* engine, const char* path)
{
    unsigned char bytes[44 + 2 * kFrames + 1000];
    FILE* file = fopen(path, "rb");
    const size_t size = file ? fread(bytes, 1, sizeof bytes, file) : 0;
    KESS_SOURCE source;
    KESS_SOUND* sound = NULL;

    REQUIRE(size > 0 && size < sizeof bytes && fclose(file) == 0);
    REQUIRE_OK(KESS_System_CreateSoundFromMemory(engine, bytes, size, 0, NULL, &sound));
    require_ramp(sound, 0, kFrames);
    REQUIRE_OK(KESS_Sound_Release(sound));
    memset(&source, 0, sizeof source);
    source.cbsize = sizeof source;
    source.size = size;
    source.userData = bytes;
    source.read = read_memory;
    source.close = close_memory;
    REQUIRE_OK(KESS_System_CreateSoundFromCallbacks(engine, &source, 0, NULL, &sound));
    require_ramp(sound, 0, kFrames);
    REQUIRE(closed == 0);
    REQUIRE_OK(KESS_Sound_Release(sound));
    REQUIRE(closed == 1);
    REQUIRE_OK(KESS_System_CreateSoundFromRange(engine, path, 0, size, 0, NULL, &sound));
    require_ramp(sound, 0, kFrames);
    REQUIRE_OK(KESS_Sound_Release(sound));
}

static void use_file(KESS_SYSTEM* engine, const char* path)
{
    KESS_CREATESOUNDEXINFO info;
    KESS_SOUND* sound = NULL;
    uint64_t offset = 0, bytes = 0;
    int encrypted = 1;

    memset(&info, 0, sizeof info);
    info.cbsize = sizeof info;
    info.suggestedsoundtype = KESS_SOUND_TYPE_FLAC;
    REQUIRE(KESS_System_CreateSound(engine, path, KESS_MODE_DEFAULT, &info, &sound) == KESS_ERR_FORMAT);
    info.suggestedsoundtype = KESS_SOUND_TYPE_WAV;
    REQUIRE_OK(KESS_System_CreateSound(engine, path, KESS_MODE_DEFAULT, &info, &sound));
    require_facts(sound, KESS_SOUND_TYPE_WAV);
    require_playback(sound);
    REQUIRE_OK(KESS_Sound_GetRawSamples(sound, &offset, &bytes));
    REQUIRE(offset == 44 && bytes == 2 * kFrames);
    REQUIRE_OK(KESS_Sound_IsEncrypted(sound, &encrypted));
    REQUIRE(encrypted == 0);
    REQUIRE_OK(KESS_Sound_Release(sound));
}

static int count_finding(void* user, int sound, KESS_RESULT result, const char* text)
{
    *(int*)user += sound >= 0 && result == KESS_OK && text[0] != '\0';
    return 1;
}

static KESS_SOUND* use_subsound(KESS_SOUND* ramp)
{
    KESS_ENCODING encoding;
    KESS_SOUND* voice = NULL;
    float peak = 0;
    char name[16];

    REQUIRE_OK(KESS_Sound_CreateVoice(ramp, &voice));
    require_ramp(voice, 0, 10);
    require_facts(ramp, KESS_SOUND_TYPE_TNB);
    require_playback(ramp);
    REQUIRE_OK(KESS_Sound_GetName(ramp, name, sizeof name));
    REQUIRE(strcmp(name, "ramp") == 0);
    REQUIRE_OK(KESS_Sound_GetPeak(ramp, &peak));
    REQUIRE(peak == 2999 / 32768.0f);
    encoding.cbsize = sizeof encoding;
    REQUIRE_OK(KESS_Sound_GetEncoding(ramp, &encoding));
    REQUIRE(encoding.codec == KESS_CODEC_PCM && encoding.dataBytes == 2 * kFrames);
    REQUIRE_OK(KESS_Sound_VerifyData(ramp));
    require_ramp(voice, 10, 100);
    return voice;
}

static void use_bank(KESS_SYSTEM* engine, const char* path, const char* key)
{
    KESS_SOUND* bank = NULL;
    KESS_SOUND* ramp = NULL;
    KESS_SOUND* again = NULL;
    KESS_SOUND* voice;
    KESS_BANKINFO info;
    int count = 0, encrypted = 0, findings = 0;

    REQUIRE_OK(KESS_System_CreateSound(engine, path, KESS_MODE_OPENONLY, NULL, &bank));
    REQUIRE_OK(KESS_Sound_IsEncrypted(bank, &encrypted));
    REQUIRE(encrypted == 1);
    REQUIRE(KESS_Sound_GetNumSubSounds(bank, &count) == KESS_ERR_KEY_MISSING);
    REQUIRE(KESS_Sound_SetEncryptionKey(bank, "wrong") == KESS_ERR_KEY_WRONG);
    REQUIRE_OK(KESS_Sound_SetEncryptionKey(bank, key));
    REQUIRE_OK(KESS_Sound_GetNumSubSounds(bank, &count));
    REQUIRE(count == 2);
    info.cbsize = sizeof info;
    REQUIRE_OK(KESS_Sound_GetBankInfo(bank, &info));
    REQUIRE(info.encrypted == 1 && info.hasNames == 1 && info.codec == KESS_CODEC_PCM);
    REQUIRE_OK(KESS_Sound_GetSubSoundByName(bank, "ramp", &ramp));
    REQUIRE_OK(KESS_Sound_GetSubSound(bank, 0, &again));
    REQUIRE(ramp == again);
    REQUIRE_OK(KESS_Sound_VerifyBank(bank, count_finding, &findings));
    voice = use_subsound(ramp);
    REQUIRE_OK(KESS_Sound_Release(bank));
    require_playback(voice);
    REQUIRE_OK(KESS_Sound_Release(voice));

    REQUIRE(KESS_System_VerifyBank(engine, path, NULL, count_finding, &findings) == KESS_ERR_KEY_MISSING);
    REQUIRE_OK(KESS_System_VerifyBank(engine, path, key, count_finding, &findings));
    REQUIRE(findings == 0);
}

int main(int argc, char** argv)
{
    KESS_SYSTEM* engine = NULL;
    KESS_SOUND* none = NULL;
    unsigned int version = 0;
    char text[256];

    REQUIRE(argc == 4);
    REQUIRE_OK(KESS_GetVersion(&version));
    REQUIRE(version >= KESS_VERSION && version >> 16 == KESS_VERSION >> 16);
    REQUIRE_OK(KESS_System_Create(&engine, KESS_VERSION));
    REQUIRE(KESS_System_CreateSound(engine, argv[3], 0, NULL, &none) != KESS_OK);
    REQUIRE_OK(KESS_System_SetOutput(engine, KESS_OUTPUTTYPE_NOSOUND_NRT));
    REQUIRE_OK(KESS_System_Init(engine, 0, 0, NULL));
    REQUIRE(KESS_System_CreateSound(engine, "missing.tnb", 0, NULL, &none) == KESS_ERR_FILE_NOTFOUND);
    REQUIRE(!none && KESS_SystemError() != 0);
    REQUIRE(KESS_System_CreateSound(engine, ".", 0, NULL, &none) == KESS_ERR_FILE_BAD);
    REQUIRE_OK(KESS_ErrorDetail(text, sizeof text));
    REQUIRE(strcmp(text, "it is a folder") == 0);
    REQUIRE(strcmp(KESS_ErrorString(KESS_ERR_FILE_NOTFOUND), "File not found.") == 0);
    REQUIRE(KESS_Sound_Release(NULL) == KESS_ERR_INVALID_HANDLE);
    REQUIRE(KESS_System_Init(NULL, 0, 0, NULL) == KESS_ERR_INVALID_HANDLE);

    use_file(engine, argv[3]);
    use_sources(engine, argv[3]);
    use_bank(engine, argv[1], argv[2]);
    REQUIRE_OK(KESS_System_Release(engine));
    return 0;
}
