/* SPDX-License-Identifier: MIT */
/* The interface of an encoder module: a shared library that encodes sounds in a format for which this library has no
 * encoder, XMA or AT9.
 *
 * A module is a file tarnok_xma.so or tarnok_at9.so in the folder of libtarnokL.so.14. It exports one function,
 *
 *     const TARNOK_ENCODER_MODULE* Tarnok_EncoderModule(void);
 *
 * It is loaded when a build of its format starts, and unloaded when that build has ended. If the file is missing, the
 * build fails with TARNOK_ERR_ENCODER_LIBRARY_NOT_FOUND. If it can't be loaded, lacks the function, or returns a record
 * that violates the rules below, the build fails with TARNOK_ERR_ENCODER_LIBRARY_BAD. docs/examples/encoder_module.c is
 * a complete module.
 *
 * The bank stores setup and data unchanged. Only the module and the players of the bank interpret them.
 */
#ifndef TARNOK_ENCODER_H
#define TARNOK_ENCODER_H

#include "tarnok.h"

#ifdef __cplusplus
extern "C" {
#endif

#define TARNOK_ENCODER_INTERFACE 1 /* changes whenever anything below changes */
#define TARNOK_ENCODER_ENTRY "Tarnok_EncoderModule"

/* How far outside a sound a module may read, in frames. */
#define TARNOK_ENCODER_LOOKAROUND 65536
#define TARNOK_ENCODER_REACH TARNOK_ENCODER_LOOKAROUND /* the previous name */

/* How many bytes a module may write per frame and channel. Frames of the lookaround count, too. */
#define TARNOK_ENCODER_BYTES 8

/* One sound, resampled to a rate that the module supports, with its files interleaved. A frame is one sample of every
 * channel. */
typedef struct TARNOK_ENCODER_SOUND
{
    uint32_t channels; /* 1 to the module's maximumChannels */
    uint32_t sampleRate; /* hertz; a rate that the module's sampleRate has returned */
    uint64_t sampleCount; /* length in frames, at least 1 */
    uint32_t loops; /* 1: it loops from loopStart to loopEnd; 0: it is played once */
    uint32_t quality; /* 1 to 100 */
    uint64_t loopStart; /* first frame of the loop */
    uint64_t loopEnd; /* the frame after its last one; loopStart < loopEnd <= sampleCount */
    uint32_t flags; /* TARNOK_BUILD_FILTERHIGHFREQ, TARNOK_BUILD_DISABLESEEKING */
    uint32_t reserved; /* 0 */
} TARNOK_ENCODER_SOUND;

/* Functions that the module calls during encode, on the thread that called encode, with user as the first argument. As
 * soon as one of them returns anything but TARNOK_OK, encode must return that result. */
typedef struct TARNOK_ENCODER_HOST
{
    void* user;

    /* The next read starts at a position, -TARNOK_ENCODER_LOOKAROUND to sampleCount + TARNOK_ENCODER_LOOKAROUND. Frames
     * outside the sound are those that are heard there while it loops: before the start of a sound whose loop starts at
     * its first frame, the end of the loop; after the end of a sound whose loop ends at its last frame, the start of
     * the loop. Everywhere else there is silence. Seeking back is cheap only to positions that were read recently. */
    TARNOK_RESULT (*seek)(void* user, int64_t position);

    /* Delivers exactly count interleaved frames; full scale is -1 to 1. Without a previous seek, reading starts at the
     * sound's first frame. TARNOK_ERR_INVALID_PARAM: a frame is outside the lookaround. */
    TARNOK_RESULT (*read)(void* user, float* frames, uint32_t count);

    /* Appends bytes to the encoded data. TARNOK_ERR_INVALID_PARAM: more bytes than TARNOK_ENCODER_BYTES allows. */
    TARNOK_RESULT (*write)(void* user, const void* bytes, uint32_t count);

    /* Stores the bytes that a decoder needs before the data. If possible they should be the same for many sounds, since
     * a bank stores equal setups once. At most once per sound, at most 1 MiB. */
    TARNOK_RESULT (*setup)(void* user, const void* bytes, uint32_t count);

    /* Adds a seek point: a decoder that starts at the next byte that is written first delivers the frame at position.
     * Positions count all decoded frames, including the pre-skip. Positions and bytes must increase from call to
     * call. */
    TARNOK_RESULT (*seekPoint)(void* user, uint64_t position);

    /* Whether the build is being cancelled. Must be checked every 50 ms; encode then returns TARNOK_ERR_CANCELLED. */
    int (*cancelled)(void* user);
} TARNOK_ENCODER_HOST;

typedef struct TARNOK_ENCODER_MODULE
{
    uint32_t interfaceVersion; /* TARNOK_ENCODER_INTERFACE */
    TARNOK_FORMAT format; /* TARNOK_FORMAT_XMA or TARNOK_FORMAT_AT9; must match the file name */

    /* Names the encoder and its version. It is part of the cache key, so it must change whenever the module produces
     * other bytes. Not empty. */
    const char* version;

    uint32_t maximumChannels; /* in one sound, 1 to 32 */

    /* The rate at which a sound of the given rate is encoded, both in hertz, 1 to 768000: the same rate if the format
     * supports it, otherwise the rate to which the sound is resampled. */
    uint32_t (*sampleRate)(uint32_t rate);

    /* Encodes one sound. May be called on several threads at the same time, for different sounds. The same sound must
     * give the same bytes. *preSkip is 0 on entry and becomes the number of decoded frames to drop before the sound's
     * first, at most 131072. The data must have at least one byte per 8192 decoded frames, rounded up. Results:
     * TARNOK_ERR_CANCELLED; TARNOK_ERR_MEMORY; TARNOK_ERR_INVALID_FORMAT if the format doesn't support such a sound;
     * any other error if the encoder fails. */
    TARNOK_RESULT (*encode)(const TARNOK_ENCODER_SOUND* sound, const TARNOK_ENCODER_HOST* host, uint32_t* preSkip);
} TARNOK_ENCODER_MODULE;

typedef const TARNOK_ENCODER_MODULE* (*TARNOK_ENCODER_FUNCTION)(void);

#ifdef __cplusplus
}
#endif

#endif
