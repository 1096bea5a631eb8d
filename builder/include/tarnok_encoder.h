/* The interface of an encoder module: a shared library that encodes sounds in a format of which this library has no
 * encoder, XMA or AT9.
 *
 * A module is the file tarnok_xma.so or tarnok_at9.so beside libtarnokL.so.14, and exports one function,
 *
 *     const TARNOK_ENCODER_MODULE* Tarnok_EncoderModule(void);
 *
 * It is loaded when a build of its format begins, and unloaded when that has ended. A build without the file fails with
 * TARNOK_ERR_ENCODER_LIBRARY_NOT_FOUND; one that can't be loaded, lacks the function, or hands out a record that breaks
 * what is told below, with TARNOK_ERR_ENCODER_LIBRARY_BAD. docs/examples/encoder_module.c is a whole module.
 *
 * The bank stores setup and data as they come. What they mean is between the module and those who play the bank.
 */
#ifndef TARNOK_ENCODER_H
#define TARNOK_ENCODER_H

#include "tarnok.h"

#ifdef __cplusplus
extern "C" {
#endif

#define TARNOK_ENCODER_INTERFACE 1 /* changes whenever anything below does */
#define TARNOK_ENCODER_ENTRY "Tarnok_EncoderModule"

/* How far outside a sound a module may read, in frames. */
#define TARNOK_ENCODER_REACH 65536

/* How many bytes a module may write for each sample of each channel, those within its reach included. */
#define TARNOK_ENCODER_BYTES 8

/* One sound, resampled to a rate of the module's, its files interleaved. A frame is one sample of every channel. */
typedef struct TARNOK_ENCODER_SOUND
{
    uint32_t channels; /* 1 to the module's maximumChannels */
    uint32_t sampleRate; /* hertz; one that the module's sampleRate answered */
    uint64_t sampleCount; /* length in frames, at least 1 */
    uint32_t loops; /* 1: it loops, as far as the next two tell; 0: it is played once */
    uint32_t quality; /* 1 to 100 */
    uint64_t loopStart; /* first frame of the loop */
    uint64_t loopEnd; /* the frame behind its last one; loopStart < loopEnd <= sampleCount */
    uint32_t flags; /* TARNOK_BUILD_FILTERHIGHFREQ, TARNOK_BUILD_DISABLESEEKING */
    uint32_t reserved; /* 0 */
} TARNOK_ENCODER_SOUND;

/* What the module calls while it encodes, on the thread that called it, with user as the first argument. As soon as one
 * of them answers anything but TARNOK_OK, encode returns that. */
typedef struct TARNOK_ENCODER_HOST
{
    void* user;

    /* The next read begins at a position, -TARNOK_ENCODER_REACH to sampleCount + TARNOK_ENCODER_REACH. Frames outside
     * the sound are those that a listener of its loop hears there: before the start of a sound whose loop begins with
     * its first frame, the end of the loop; behind the end of one whose loop ends with its last, the loop's start.
     * Everywhere else there is silence. Going back is cheap only to where the module has just been. */
    TARNOK_RESULT (*seek)(void* user, int64_t position);

    /* Delivers exactly count interleaved frames; full scale is -1 to 1. Without a seek before, reading begins with the
     * sound's first frame. TARNOK_ERR_INVALID_PARAM: that is out of reach. */
    TARNOK_RESULT (*read)(void* user, float* frames, uint32_t count);

    /* Appends bytes to the encoded data. TARNOK_ERR_INVALID_PARAM: they are more than TARNOK_ENCODER_BYTES allows. */
    TARNOK_RESULT (*write)(void* user, const void* bytes, uint32_t count);

    /* Stores what a decoder needs before the data; the same for many sounds if it can be, as a bank holds equal ones
     * once. At most once a sound, at most 1 MiB. */
    TARNOK_RESULT (*setup)(void* user, const void* bytes, uint32_t count);

    /* Tells that a decoder which begins with the byte that is written next delivers a frame first: its position counts
     * all frames decoded, lead-in included. Positions and bytes rise from call to call. */
    TARNOK_RESULT (*seekPoint)(void* user, uint64_t position);

    /* Whether the build is being cancelled. To be looked at every 50 ms; encode then returns TARNOK_ERR_CANCELLED. */
    int (*cancelled)(void* user);
} TARNOK_ENCODER_HOST;

typedef struct TARNOK_ENCODER_MODULE
{
    uint32_t interfaceVersion; /* TARNOK_ENCODER_INTERFACE */
    TARNOK_FORMAT format; /* TARNOK_FORMAT_XMA or TARNOK_FORMAT_AT9, as the file's name says */

    /* Names the encoder and its version. It is part of what cached sounds are found by, so it must change whenever the
     * module makes other bytes. Not empty. */
    const char* version;

    uint32_t maximumChannels; /* in one sound, 1 to 32 */

    /* The rate at which a sound of a rate is encoded, both in hertz, 1 to 768000: the same where the format takes it,
     * otherwise the one it should be resampled to. */
    uint32_t (*sampleRate)(uint32_t rate);

    /* Encodes one sound. Called from several threads at once, each time for another sound. The same sound must give the
     * same bytes. *preSkip, 0 on entry, becomes the number of decoded frames to drop before the sound's first, at most
     * 131072. The data must have at least a byte for every 8192 frames decoded, begun ones included.
     * TARNOK_ERR_CANCELLED, TARNOK_ERR_MEMORY, TARNOK_ERR_INVALID_FORMAT (it can't take such a sound), any other
     * number: the encoder fails. */
    TARNOK_RESULT (*encode)(const TARNOK_ENCODER_SOUND* sound, const TARNOK_ENCODER_HOST* host, uint32_t* preSkip);
} TARNOK_ENCODER_MODULE;

typedef const TARNOK_ENCODER_MODULE* (*TARNOK_ENCODER_FUNCTION)(void);

#ifdef __cplusplus
}
#endif

#endif
