/* SPDX-License-Identifier: MIT */
/* A complete encoder module, as a starting point for your own. It encodes 8-bit blocks with a common exponent.
 *
 * A sound is divided into blocks of 64 frames. A block contains, for each channel, an exponent (one byte) and 64
 * mantissas (one signed byte each). A sample is mantissa / 128 * 2^-exponent of full scale. The setup is the text
 * "EXAMPLE", then the number of channels and the flags of the build.
 *
 *     cc -shared -fPIC -I/usr/include/tarnok encoder_module.c -o tarnok_xma.so -lm
 *
 * builds the module for banks of the format XMA. Copy it to the folder of libtarnokL.so.14.
 */
#include "tarnok_encoder.h"

#include <math.h>
#include <string.h>

#ifndef EXAMPLE_FORMAT
#define EXAMPLE_FORMAT TARNOK_FORMAT_XMA
#endif

enum
{
    FRAMES = 64,
    CHANNELS = 8,
    BLOCKS_BETWEEN_SEEK_POINTS = 16
};

static uint32_t sampleRate(uint32_t rate)
{
    return rate <= 48000 ? rate : 48000;
}

static void encodeBlock(const float* frames, uint32_t channels, signed char* block)
{
    for (uint32_t channel = 0; channel < channels; ++channel) {
        float peak = 0;
        for (int i = 0; i < FRAMES; ++i)
            peak = fmaxf(peak, fabsf(frames[i * channels + channel]));
        signed char exponent = 0;
        while (exponent < 15 && ldexpf(peak, exponent + 1) <= 127.0f / 128)
            ++exponent;
        *block++ = exponent;
        for (int i = 0; i < FRAMES; ++i) {
            const float mantissa = roundf(ldexpf(frames[i * channels + channel], exponent) * 128);
            *block++ = (signed char)fmaxf(-128, fminf(127, mantissa));
        }
    }
}

static TARNOK_RESULT encode(const TARNOK_ENCODER_SOUND* sound, const TARNOK_ENCODER_HOST* host, uint32_t* preSkip)
{
    float frames[FRAMES * CHANNELS];
    signed char block[(FRAMES + 1) * CHANNELS];
    const char setup[] = {'E', 'X', 'A', 'M', 'P', 'L', 'E', (char)sound->channels, (char)sound->flags};
    TARNOK_RESULT result = host->setup(host->user, setup, sizeof(setup));

    /* A codec whose blocks depend on earlier blocks encodes the end of the loop first and has it dropped as pre-skip.
     * This codec doesn't need that, and does it as an example. */
    if (sound->loops && sound->loopStart == 0)
        *preSkip = FRAMES;
    if (result == TARNOK_OK)
        result = host->seek(host->user, -(int64_t)*preSkip);

    const uint64_t total = *preSkip + sound->sampleCount;
    for (uint64_t position = 0; position < total && result == TARNOK_OK; position += FRAMES) {
        if (host->cancelled(host->user))
            return TARNOK_ERR_CANCELLED;
        if (!(sound->flags & TARNOK_BUILD_DISABLESEEKING) && position > 0
            && position % (FRAMES * BLOCKS_BETWEEN_SEEK_POINTS) == 0)
            result = host->seekPoint(host->user, position);
        if (result == TARNOK_OK)
            result = host->read(host->user, frames, FRAMES);
        if (result != TARNOK_OK)
            break;
        encodeBlock(frames, sound->channels, block);
        result = host->write(host->user, block, (FRAMES + 1) * sound->channels);
    }
    return result;
}

__attribute__((visibility("default"))) const TARNOK_ENCODER_MODULE* Tarnok_EncoderModule(void)
{
    static const TARNOK_ENCODER_MODULE module = {
        TARNOK_ENCODER_INTERFACE, EXAMPLE_FORMAT, "example 1", CHANNELS, sampleRate, encode};
    return &module;
}
