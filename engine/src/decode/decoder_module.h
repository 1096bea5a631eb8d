/* SPDX-License-Identifier: MIT */
/* The interface between the engine and its decoder module, kess_ffmpeg.so: plain C, so that either side can be
 * replaced.
 *
 * The module exports one function, KESS_DECODER_MODULE_ENTRY, which returns the table below. A decoder belongs to one
 * thread at a time; different decoders may be used on different threads. The module writes nothing to the standard
 * streams and opens no file of its own.
 */
#ifndef KESS_DECODER_MODULE_H
#define KESS_DECODER_MODULE_H

#include "kess.h"

/* Changes whenever anything below changes. Engine and module work together only if it is the same. */
#define KESS_DECODER_MODULE_VERSION 1u
#define KESS_DECODER_MODULE_ENTRY "kess_decoder_module"

/* The file that is decoded. */
typedef struct KESS_MODULE_INPUT
{
    void* user;
    /* Reads up to count bytes at offset; fewer only at the end. */
    size_t (*readAt)(void* user, uint64_t offset, void* buffer, size_t count);
    uint64_t size;
} KESS_MODULE_INPUT;

typedef struct KESS_MODULE_FACTS
{
    KESS_SOUND_FORMAT format; /* the format that the engine reports */
    int32_t isFloat; /* samples are delivered as float, else as 32-bit integers with full scale at 2^31 */
    int32_t channels;
    int32_t sampleRate; /* hertz */
    uint64_t sampleCount; /* of one channel, as many as reading delivers if the file isn't damaged */
} KESS_MODULE_FACTS;

typedef struct KESS_DECODER_MODULE
{
    uint32_t version;

    /* Opens the container of that name. input must stay unchanged until close.
     * KESS_ERR_FORMAT: no sound in it, or none that can be decoded. KESS_ERR_FILE_BAD: damaged. */
    KESS_RESULT(*open)
    (const KESS_MODULE_INPUT* input, const char* container, void** decoder, KESS_MODULE_FACTS* facts);

    /* Decodes up to frames interleaved frames of 32-bit samples; *done is 0 at the end and where the file is damaged.
     */
    KESS_RESULT (*read)(void* decoder, void* buffer, size_t frames, size_t* done);

    void (*close)(void* decoder);
} KESS_DECODER_MODULE;

typedef const KESS_DECODER_MODULE* (*KESS_DECODER_MODULE_FUNCTION)(void);

#endif
