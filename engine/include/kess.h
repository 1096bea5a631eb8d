/* SPDX-License-Identifier: MIT */
/* The audio engine's plain C side: results, enums and records. The classes are in kess.hpp. */
#ifndef KESS_H
#define KESS_H

#include <stddef.h>
#include <stdint.h>

#if defined(KESS_BUILDING_LIBRARY)
#define KESS_API __attribute__((visibility("default")))
#else
#define KESS_API
#endif

/* Enums have the width of an integer and may contain any integer, which must be stated for C++. */
#ifdef __cplusplus
#define KESS_INT32 : int32_t
#else
#define KESS_INT32
#endif

/* Version of this header, passed to KESS_System_Create: 2.03.08 in binary-coded decimal. */
#define KESS_VERSION 0x00020308u

/* Result of a call. A file's fault is always one of FILE_BAD, FILE_COULDNOTSEEK, FILE_NOTFOUND, FORMAT,
 * TOOMANYCHANNELS and VERSION. */
typedef enum KESS_RESULT KESS_INT32
{
    KESS_OK = 0,
    KESS_ERR_FILE_BAD = 13, /* no regular file, unreadable, empty, or damaged so that nothing can be read */
    KESS_ERR_FILE_COULDNOTSEEK = 14, /* the file can't be read at that position */
    KESS_ERR_FILE_EOF = 16, /* the end of the sound was reached: fewer samples than requested, or none */
    KESS_ERR_FILE_NOTFOUND = 18,
    KESS_ERR_FORMAT = 19, /* no decoder knows the file, or it is not of the suggested type */
    KESS_ERR_HEADER_MISMATCH = 20,
    KESS_ERR_KEY_MISSING = 22, /* the bank is encrypted and no key was given */
    KESS_ERR_INVALID_HANDLE = 30,
    KESS_ERR_INVALID_PARAM = 31,
    KESS_ERR_INVALID_POSITION = 32,
    KESS_ERR_INVALID_SYNCPOINT = 34,
    KESS_ERR_MEMORY = 38,
    KESS_ERR_SUBSOUNDS = 60, /* a bank has no samples of its own, and a plain sound no subsounds */
    KESS_ERR_TAGNOTFOUND = 63, /* no subsound of that name, no peak, no sync point */
    KESS_ERR_TOOMANYCHANNELS = 64, /* more than KESS_MAX_CHANNELS */
    KESS_ERR_TRUNCATED = 65, /* the text didn't fit the buffer and was cut */
    KESS_ERR_UNINITIALIZED = 67,
    KESS_ERR_UNSUPPORTED = 68, /* the sound was recognised but can't be decoded here */
    KESS_ERR_VERSION = 69, /* a bank of a version that this engine can't read */
    KESS_ERR_KEY_WRONG = 70, /* the key does not fit the encrypted bank */
    KESS_RESULT_FORCEINT = 0x7fffffff
} KESS_RESULT;

/* The largest number of channels of one sound. */
#define KESS_MAX_CHANNELS 32

/* What kind of file a sound comes from. */
typedef enum KESS_SOUND_TYPE KESS_INT32
{
    KESS_SOUND_TYPE_UNKNOWN = 0,
    KESS_SOUND_TYPE_AIFF = 1,
    KESS_SOUND_TYPE_ASF = 2, /* Windows Media */
    KESS_SOUND_TYPE_DLS = 3, /* instrument bank: recognised, not decoded */
    KESS_SOUND_TYPE_FLAC = 4,
    KESS_SOUND_TYPE_TNB = 5, /* sound bank */
    KESS_SOUND_TYPE_IT = 6, /* tracker music: recognised, not decoded */
    KESS_SOUND_TYPE_MIDI = 7, /* sequenced music: recognised, not decoded */
    KESS_SOUND_TYPE_MOD = 8, /* tracker music: recognised, not decoded */
    KESS_SOUND_TYPE_MPEG = 9,
    KESS_SOUND_TYPE_OGG = 10, /* Ogg with Vorbis, Opus, Speex or FLAC in it */
    KESS_SOUND_TYPE_PLAYLIST = 11, /* recognised, not decoded */
    KESS_SOUND_TYPE_RAW = 12,
    KESS_SOUND_TYPE_S3M = 13, /* tracker music: recognised, not decoded */
    KESS_SOUND_TYPE_USER = 14,
    KESS_SOUND_TYPE_WAV = 15, /* RIFF, RF64 and Sony's W64 */
    KESS_SOUND_TYPE_XM = 16, /* tracker music: recognised, not decoded */
    KESS_SOUND_TYPE_MP4 = 17, /* AAC or ALAC in an MP4 container, and bare AAC */
    KESS_SOUND_TYPE_OTHER = 18, /* any other sampled sound: AU, CAF, VOC, Matroska, ... */
    KESS_SOUND_TYPE_FORCEINT = 0x7fffffff
} KESS_SOUND_TYPE;

/* Kind of a sample, as readData delivers it: little-endian, interleaved, 8-bit signed, 24-bit packed in 3 bytes. */
typedef enum KESS_SOUND_FORMAT KESS_INT32
{
    KESS_SOUND_FORMAT_NONE = 0,
    KESS_SOUND_FORMAT_PCM8 = 1,
    KESS_SOUND_FORMAT_PCM16 = 2,
    KESS_SOUND_FORMAT_PCM24 = 3,
    KESS_SOUND_FORMAT_PCM32 = 4,
    KESS_SOUND_FORMAT_PCMFLOAT = 5, /* 32-bit IEEE, full scale is -1 to 1, not clipped */
    KESS_SOUND_FORMAT_BITSTREAM = 6,
    KESS_SOUND_FORMAT_FORCEINT = 0x7fffffff
} KESS_SOUND_FORMAT;

/* Where sound goes. The engine of this library is silent: it decodes, a mixer plays. */
typedef enum KESS_OUTPUTTYPE KESS_INT32
{
    KESS_OUTPUTTYPE_NOSOUND_NRT = 4,
    KESS_OUTPUTTYPE_FORCEINT = 0x7fffffff
} KESS_OUTPUTTYPE;

/* Units of a length. */
typedef enum KESS_TIMEUNIT KESS_INT32
{
    KESS_TIMEUNIT_MS = 1, /* milliseconds, rounded down */
    KESS_TIMEUNIT_PCM = 2, /* samples of one channel */
    KESS_TIMEUNIT_PCMBYTES = 4, /* bytes that readData delivers for the whole sound */
    KESS_TIMEUNIT_FORCEINT = 0x7fffffff
} KESS_TIMEUNIT;

/* Modes of createSound, combined by OR. Every sound of this engine is a stream that opens without decoding. With
 * KESS_MODE_OPENONLY, getSubSound doesn't prepare decoding either, which is quicker if only the facts are needed. The
 * first call that reads or seeks prepares it, and reports the faults that it finds. */
#define KESS_MODE_DEFAULT 0x00000000u
#define KESS_MODE_CREATESTREAM 0x00000080u
#define KESS_MODE_OPENONLY 0x00002000u
#define KESS_MODE_LOWMEM 0x08000000u

/* How a bank stores the data of a sound. */
typedef enum KESS_CODEC KESS_INT32
{
    KESS_CODEC_PCM = 0, /* unchanged samples */
    KESS_CODEC_XMA = 1, /* an external encoder's: not decoded here */
    KESS_CODEC_AT9 = 2, /* an external encoder's: not decoded here */
    KESS_CODEC_VORBIS = 3,
    KESS_CODEC_KADPCM = 4, /* the bank's own adaptive differential PCM */
    KESS_CODEC_OPUS = 5,
    KESS_CODEC_UNKNOWN = 255, /* of a later version */
    KESS_CODEC_FORCEINT = 0x7fffffff
} KESS_CODEC;

/* Facts of a bank, from getBankInfo. */
typedef struct KESS_BANKINFO
{
    int32_t cbsize; /* size of this record in bytes, set by the caller */
    int32_t majorVersion; /* of the container, such as 2 and 0 for 2.0 */
    int32_t minorVersion;
    int32_t encrypted; /* 1 or 0 */
    uint64_t fileBytes; /* size of the file */
    KESS_CODEC codec; /* that the bank was made for; a sound may have another */
    int32_t quality; /* that the bank was made with, 0 to 100; 0 where the codec has none */
    int32_t hasNames; /* 1 or 0 */
    int32_t hasGuid; /* 1 or 0 */
    uint8_t guid[16]; /* in the order in which it is printed; zeros without one */
} KESS_BANKINFO;

/* How a bank stores a sound, from getEncoding. */
typedef struct KESS_ENCODING
{
    int32_t cbsize; /* size of this record in bytes, set by the caller */
    KESS_CODEC codec;
    int32_t quality; /* 1 to 100, 0 where the codec has none */
    int32_t reserved;
    uint64_t dataBytes; /* size of the encoded samples */
    uint64_t extraBytes; /* size of the rest that belongs to this sound alone: seek table, loop, sync points */
    uint64_t dataChecksum; /* XXH3-64 of the encoded samples, to compare sounds; cbsize may be 32, without it */
} KESS_ENCODING;

/* Receives the findings of verifyBank. sound: the index of the sound, or -1 for the bank. result: KESS_ERR_FILE_BAD for
 * damage, KESS_ERR_UNSUPPORTED for a sound of which only the checksums could be verified, KESS_OK for a remark on
 * something that is whole but could be better. text: the finding in words, English, valid during the call. Returns 0 to
 * stop, anything else to continue. Must not throw. */
typedef int (*KESS_FINDING_CALLBACK)(void* userData, int sound, KESS_RESULT result, const char* text);

/* Optional arguments of createSound. Set all other members to zero. */
typedef struct KESS_CREATESOUNDEXINFO
{
    int32_t cbsize; /* size of this record in bytes: 224 */
    uint8_t reserved0[108];
    KESS_SOUND_TYPE suggestedsoundtype; /* the only type that is tried; 0: all are tried, by content */
    uint8_t reserved1[108];
} KESS_CREATESOUNDEXINFO;

#ifdef __cplusplus
static_assert(sizeof(KESS_CREATESOUNDEXINFO) == 224, "the layout of the record is fixed");
static_assert(offsetof(KESS_CREATESOUNDEXINFO, cbsize) == 0, "the layout of the record is fixed");
static_assert(offsetof(KESS_CREATESOUNDEXINFO, suggestedsoundtype) == 112, "the layout of the record is fixed");
#endif

#endif
