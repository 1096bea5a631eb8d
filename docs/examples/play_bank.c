/* SPDX-License-Identifier: MIT */
/* Opens a bank and lists its sounds, or decodes one of them as a game would play it: with a voice of its own, its loop
 * once more, as raw samples (interleaved 32-bit floats) on standard output.
 *
 *     play_bank BANK [NAME [KEY]] >samples.raw
 *
 *     cc -std=c99 play_bank.c $(pkg-config --cflags --libs kess)
 */
#include "kess.h"

#include <stdio.h>

enum
{
    kBufferFloats = 4096
};

/* Reports a failure. */
static int succeeded(KESS_RESULT result, const char* what)
{
    char detail[256] = "";
    if (result == KESS_OK)
        return 1;
    if (KESS_ErrorDetail(detail, sizeof detail) != KESS_OK)
        detail[0] = '\0';
    fprintf(stderr, "play_bank: %s: %s %s\n", what, KESS_ErrorString(result), detail);
    return 0;
}

static int list_sounds(KESS_SOUND* bank)
{
    int count = 0;
    int i;
    if (!succeeded(KESS_Sound_GetNumSubSounds(bank, &count), "the sounds"))
        return 0;
    for (i = 0; i < count; ++i) {
        KESS_SOUND* sound = NULL;
        char name[256];
        int channels = 0;
        float rate = 0;
        uint64_t samples = 0;
        KESS_RESULT result = KESS_Sound_GetSubSound(bank, i, &sound);
        if (result == KESS_OK)
            result = KESS_Sound_GetName(sound, name, sizeof name);
        if (result == KESS_OK || result == KESS_ERR_TRUNCATED)
            result = KESS_Sound_GetFormat(sound, NULL, NULL, &channels, NULL);
        if (result == KESS_OK)
            result = KESS_Sound_GetDefaults(sound, &rate, NULL);
        if (result == KESS_OK)
            result = KESS_Sound_GetSampleCount(sound, &samples);
        if (!succeeded(result, "a sound"))
            return 0;
        printf("%s: %d channels, %.0f Hz, %.2f s\n", name, channels, rate, (double)samples / rate);
    }
    return 1;
}

/* A voice keeps what it needs of the bank. Any number of them can play the same sound, each on its own thread. */
static int play(KESS_SOUND* voice)
{
    float buffer[kBufferFloats];
    int channels = 0;
    KESS_RESULT result = KESS_Sound_GetFormat(voice, NULL, NULL, &channels, NULL);
    if (result == KESS_OK)
        result = KESS_Sound_SetLoopCount(voice, 1);
    if (result == KESS_ERR_TAGNOTFOUND)
        result = KESS_OK; /* without a loop the sound plays once */
    while (result == KESS_OK) {
        unsigned int frames = 0;
        result = KESS_Sound_ReadFloat(voice, buffer, (unsigned int)(kBufferFloats / channels), &frames);
        if (fwrite(buffer, sizeof(float) * (size_t)channels, frames, stdout) != frames) {
            perror("play_bank");
            return 0;
        }
    }
    return result == KESS_ERR_FILE_EOF || succeeded(result, "decoding");
}

static int use_bank(KESS_SYSTEM* engine, int count, char** arguments)
{
    KESS_SOUND* bank = NULL;
    KESS_SOUND* sound = NULL;
    KESS_SOUND* voice = NULL;
    int done;
    if (!succeeded(KESS_System_CreateSound(engine, arguments[0], KESS_MODE_OPENONLY, NULL, &bank), arguments[0]))
        return 0;
    done = count < 3 || succeeded(KESS_Sound_SetEncryptionKey(bank, arguments[2]), arguments[0]);
    if (done && count == 1)
        done = list_sounds(bank);
    else if (done)
        done = succeeded(KESS_Sound_GetSubSoundByName(bank, arguments[1], &sound), arguments[1])
            && succeeded(KESS_Sound_CreateVoice(sound, &voice), arguments[1]);
    done = succeeded(KESS_Sound_Release(bank), "the bank") && done;
    if (voice) {
        done = play(voice);
        done = succeeded(KESS_Sound_Release(voice), "the voice") && done;
    }
    return done && fflush(stdout) == 0;
}

int main(int argc, char** argv)
{
    KESS_SYSTEM* engine = NULL;
    int done;
    if (argc < 2 || argc > 4) {
        fprintf(stderr, "usage: play_bank BANK [NAME [KEY]]\n");
        return 2;
    }
    if (!succeeded(KESS_System_Create(&engine, KESS_VERSION), "the engine"))
        return 1;
    done = succeeded(KESS_System_Init(engine, 0, 0, NULL), "the engine") && use_bank(engine, argc - 1, argv + 1);
    done = succeeded(KESS_System_Release(engine), "the engine") && done;
    return done ? 0 : 1;
}
