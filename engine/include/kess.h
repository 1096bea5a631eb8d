/* SPDX-License-Identifier: MIT */
/* The audio engine: opens sound files and banks, reports what they are, and decodes them sample by sample. Plain C99;
 * kess.hpp has the same calls as C++ classes.
 *
 * Threads: one engine may open sounds on several threads at once. One sound belongs to one thread at a time; a bank and
 * its subsounds count as one. Voices (KESS_Sound_CreateVoice) are sounds of their own, so different voices may be used
 * on different threads at once, whatever happens to the bank meanwhile. The exceptions are KESS_Sound_GetSubSound,
 * KESS_Sound_GetSubSoundByName and KESS_Sound_CreateVoice: several threads may call them at once on one unlocked bank
 * and its sounds, but not while one of these is being released.
 *
 * Every call that takes a pointer to a result accepts null for what isn't wanted, unless it says
 * otherwise. Every call accepts a null engine or sound: KESS_ERR_INVALID_HANDLE.
 */
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

/* Version of this header, passed to KESS_System_Create: 2.04.00 in binary-coded decimal. It is that of the release in
 * which the header last changed. */
#define KESS_VERSION 0x00020400u

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
    KESS_ERR_INVALID_HANDLE = 30, /* null, or a subsound that was released */
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

/* Kind of a sample, as KESS_Sound_ReadData delivers it: little-endian, interleaved, 8-bit signed, 24-bit packed in 3
 * bytes. */
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

/* Where sound goes. This engine decodes and has no audio output. */
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
    KESS_TIMEUNIT_PCMBYTES = 4, /* bytes that KESS_Sound_ReadData delivers for the whole sound */
    KESS_TIMEUNIT_FORCEINT = 0x7fffffff
} KESS_TIMEUNIT;

/* Modes of KESS_System_CreateSound, combined by OR. Every sound of this engine is a stream that opens without decoding.
 * With KESS_MODE_OPENONLY, KESS_Sound_GetSubSound doesn't prepare decoding either, which is quicker if only the facts
 * are needed. The first call that reads or seeks prepares it, and reports the faults that it finds. */
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

/* Facts of a bank, from KESS_Sound_GetBankInfo. */
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

/* How a bank stores a sound, from KESS_Sound_GetEncoding. */
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

/* Receives the findings of KESS_System_VerifyBank. sound: the index of the sound, or -1 for the bank. result:
 * KESS_ERR_FILE_BAD for damage, KESS_ERR_UNSUPPORTED for a sound of which only the checksums could be verified, KESS_OK
 * for a remark on something that is intact but could be better. text: the finding in words, English, valid during the
 * call. Returns 0 to stop, anything else to continue. Must not throw. */
typedef int (*KESS_FINDING_CALLBACK)(void* userData, int sound, KESS_RESULT result, const char* text);

/* Where the bytes of a sound or bank come from: functions of the program. They may be called from several threads at
 * once if voices are used on several threads or the bank is verified, must not throw, and must not use the sound. */

/* Reads up to bytes bytes at offset into buffer; offset and bytes are inside the source. Returns how many were read;
 * fewer than requested are continued with another call. 0: the source ends here, earlier than it should. Negative: it
 * failed; -EIO, for example, makes KESS_SystemError return EIO. */
typedef int64_t (*KESS_READ_CALLBACK)(void* userData, uint64_t offset, void* buffer, uint64_t bytes);

typedef void (*KESS_CLOSE_CALLBACK)(void* userData);

typedef struct KESS_SOURCE
{
    int32_t cbsize; /* size of this record in bytes, set by the caller */
    int32_t reserved;
    uint64_t size; /* in bytes, at most KESS_MAX_SOURCE_BYTES */
    void* userData; /* passed to both functions */
    KESS_READ_CALLBACK read;
    KESS_CLOSE_CALLBACK close; /* may be null; called once, when sound and voices have all been released */
} KESS_SOURCE;

#define KESS_MAX_SOURCE_BYTES (UINT64_C(1) << 60)

/* Optional arguments of KESS_System_CreateSound. Set all other members to zero. */
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

/* The handles: an engine and a sound. In C++ they are the classes of kess.hpp, so that both headers can be used side by
 * side, on the same objects. */
#ifdef __cplusplus
namespace KESS {
class System;
class Sound;
} // namespace KESS
typedef KESS::System KESS_SYSTEM;
typedef KESS::Sound KESS_SOUND;
extern "C" {
#else
typedef struct KESS_SYSTEM KESS_SYSTEM;
typedef struct KESS_SOUND KESS_SOUND;
#endif

/* ---- Errors ---- */

/* Text of a result, never null. */
KESS_API const char* KESS_ErrorString(KESS_RESULT result);

/* The error of the operating system (errno, such as EMFILE or EIO) that made this thread's last call fail. Set by calls
 * that open, unlock, verify, read or seek. 0: the system reported no error, so the file itself is the reason. */
KESS_API int KESS_SystemError(void);

/* The reason of that failure as a text in English, without the name of the file, such as "its data doesn't match the
 * checksum". Empty if no more is known than KESS_ErrorString says. A text that doesn't fit is cut as in
 * KESS_Sound_GetSyncPoint. */
KESS_API KESS_RESULT KESS_ErrorDetail(char* text, int textBytes);

/* ---- The engine: opens files ---- */

/* Version of the library, in the form of KESS_VERSION. */
KESS_API KESS_RESULT KESS_GetVersion(unsigned int* version);

/* Creates an engine. headerVersion is KESS_VERSION: the library accepts that of every header of its major version,
 * the digits above the lowest four, up to its own version. KESS_ERR_HEADER_MISMATCH: the header is newer than the
 * library, or of another major version. */
KESS_API KESS_RESULT KESS_System_Create(KESS_SYSTEM** system, unsigned int headerVersion);

/* Ends the engine. All sounds must have been released. */
KESS_API KESS_RESULT KESS_System_Release(KESS_SYSTEM* system);

/* Selects the output, before KESS_System_Init. KESS_ERR_INVALID_PARAM: any other than NOSOUND_NRT. */
KESS_API KESS_RESULT KESS_System_SetOutput(KESS_SYSTEM* system, KESS_OUTPUTTYPE output);

/* Starts the engine. It has no audio output, so maxChannels, flags and extraDriverData are ignored. */
KESS_API KESS_RESULT KESS_System_Init(KESS_SYSTEM* system, int maxChannels, unsigned int flags, void* extraDriverData);

/* Opens a file without decoding it. path is UTF-8. info may be null. The first file that needs FFmpeg silences its
 * messages and bounds its allocations for the whole process.
 * Whatever the file contains, the result is KESS_OK or one of FILE_BAD (13), FILE_COULDNOTSEEK (14), FILE_NOTFOUND
 * (18), FORMAT (19), TOOMANYCHANNELS (64), VERSION (69). *sound, which may not be null, is null on failure. */
KESS_API KESS_RESULT KESS_System_CreateSound(KESS_SYSTEM* system, const char* path, unsigned int mode,
                                             const KESS_CREATESOUNDEXINFO* info, KESS_SOUND** sound);

/* The same for sounds and banks that aren't files of their own, with the same checks and results.
 * KESS_ERR_INVALID_PARAM also for a size above KESS_MAX_SOURCE_BYTES. FromMemory: data isn't copied. It must stay valid
 * and unchanged until the sound and all its voices have been released. FromCallbacks: the record is copied. If the call
 * fails, source->close isn't called. FromRange: bytes bytes of a file from offset on, such as a bank inside an archive.
 * KESS_ERR_FILE_BAD if the file ends before that. KESS_Sound_GetRawSamples counts from the start of the range. */
KESS_API KESS_RESULT KESS_System_CreateSoundFromMemory(KESS_SYSTEM* system, const void* data, uint64_t bytes,
                                                       unsigned int mode, const KESS_CREATESOUNDEXINFO* info,
                                                       KESS_SOUND** sound);
KESS_API KESS_RESULT KESS_System_CreateSoundFromCallbacks(KESS_SYSTEM* system, const KESS_SOURCE* source,
                                                          unsigned int mode, const KESS_CREATESOUNDEXINFO* info,
                                                          KESS_SOUND** sound);
KESS_API KESS_RESULT KESS_System_CreateSoundFromRange(KESS_SYSTEM* system, const char* path, uint64_t offset,
                                                      uint64_t bytes, unsigned int mode,
                                                      const KESS_CREATESOUNDEXINFO* info, KESS_SOUND** sound);

/* Reads all of a bank: its tables, every checksum, every packet (by decoding it) and every seek point. Reports each
 * fault to finding, which may be null. Several sounds are verified at once, on threads that end with the call; finding
 * is called on the thread of the call, in the order of the sounds. Memory doesn't grow with the sounds. key may be null
 * for a bank that isn't encrypted. If finding ends it early, the result is that of the findings so far. KESS_OK:
 * nothing is damaged, though there may be remarks. KESS_ERR_FILE_BAD: damage was reported; or, if none was, the file
 * can't be read at all. KESS_ERR_FILE_NOTFOUND. KESS_ERR_FORMAT: not a bank. KESS_ERR_VERSION. KESS_ERR_KEY_MISSING.
 * KESS_ERR_KEY_WRONG. KESS_ERR_FILE_COULDNOTSEEK: the medium failed. KESS_ERR_MEMORY. */
KESS_API KESS_RESULT KESS_System_VerifyBank(KESS_SYSTEM* system, const char* path, const char* key,
                                            KESS_FINDING_CALLBACK finding, void* userData);

/* ---- A sound: one opened file ----
 *
 * A bank gives access to its subsounds. Every other sound, and each subsound, is decoded by KESS_Sound_SeekData and
 * KESS_Sound_ReadData. A bank of one sound can also be decoded itself. */

/* Closes the file and frees the sound. A bank frees its subsounds too; a subsound released alone is only closed. A
 * voice frees only itself. */
KESS_API KESS_RESULT KESS_Sound_Release(KESS_SOUND* sound);

/* Facts of the file. bits is the depth of one sample as KESS_Sound_ReadData delivers it, 0 for a bank of several
 * sounds. */
KESS_API KESS_RESULT KESS_Sound_GetFormat(KESS_SOUND* sound, KESS_SOUND_TYPE* type, KESS_SOUND_FORMAT* format,
                                          int* channels, int* bits);

/* Sample rate in hertz; the priority is always 128. */
KESS_API KESS_RESULT KESS_Sound_GetDefaults(KESS_SOUND* sound, float* frequency, int* priority);

/* Length of the sound, cut at the largest 32-bit value. 0 for a bank of several sounds. */
KESS_API KESS_RESULT KESS_Sound_GetLength(KESS_SOUND* sound, unsigned int* length, unsigned int timeUnit);

/* Length in samples of one channel, never cut. */
KESS_API KESS_RESULT KESS_Sound_GetSampleCount(KESS_SOUND* sound, uint64_t* samples);

/* The length that the file's header declares. If it is more than that of KESS_Sound_GetSampleCount, the file was cut
 * short, and the existing part can be read. Approximate for compressed encodings. */
KESS_API KESS_RESULT KESS_Sound_GetDeclaredSampleCount(KESS_SOUND* sound, uint64_t* samples);

/* Moves to a sample, counted from the start of the sound; the next read begins exactly there.
 * KESS_ERR_INVALID_POSITION: after the end. */
KESS_API KESS_RESULT KESS_Sound_SeekData(KESS_SOUND* sound, uint64_t sample);

/* Decodes up to lengthBytes, cut to whole frames, in the sample format of KESS_Sound_GetFormat, interleaved; *read gets
 * the number of bytes delivered. Channels are in the order of WAV files: front left, right, centre, low frequencies,
 * back, side. KESS_ERR_FILE_EOF: nothing was read, the sound is at its end. KESS_ERR_FILE_BAD: nothing was read, the
 * sound is damaged here; the samples before the damage have been delivered. KESS_ERR_INVALID_PARAM: no buffer, or one
 * that is smaller than a frame. KESS_ERR_UNSUPPORTED: the file was recognised but can't be decoded. KESS_ERR_SUBSOUNDS:
 * a bank of several sounds. */
KESS_API KESS_RESULT KESS_Sound_ReadData(KESS_SOUND* sound, void* buffer, unsigned int lengthBytes, unsigned int* read);

/* The same in 32-bit float, interleaved, full scale -1 to 1, in frames: the full precision of lossy sounds. */
KESS_API KESS_RESULT KESS_Sound_ReadFloat(KESS_SOUND* sound, float* buffer, unsigned int frames,
                                          unsigned int* framesRead);

/* The range of the file that consists of exactly the bytes that KESS_Sound_ReadData delivers for the whole sound, for
 * programs that copy a sound unchanged. KESS_ERR_UNSUPPORTED: there is none, or it isn't certain. */
KESS_API KESS_RESULT KESS_Sound_GetRawSamples(KESS_SOUND* sound, uint64_t* offset, uint64_t* bytes);

/* The loop: samples start to end, end not included. KESS_ERR_TAGNOTFOUND: the sound has none. */
KESS_API KESS_RESULT KESS_Sound_GetLoopPoints(KESS_SOUND* sound, uint64_t* start, uint64_t* end);

/* How often reading jumps from the loop's end to its start: 0 never (the initial value), n times, or -1 for ever.
 * Counts from now on. KESS_ERR_TAGNOTFOUND: the sound has no loop. */
KESS_API KESS_RESULT KESS_Sound_SetLoopCount(KESS_SOUND* sound, int count);

/* Largest absolute sample, 1 is full scale. KESS_ERR_TAGNOTFOUND: not stored. */
KESS_API KESS_RESULT KESS_Sound_GetPeak(KESS_SOUND* sound, float* peak);

KESS_API KESS_RESULT KESS_Sound_GetNumSyncPoints(KESS_SOUND* sound, int* count);

/* One sync point, by position; *sample is at most the length. name (nameBytes long, NUL included) may be null; a name
 * that doesn't fit is cut after a whole character, and the result is KESS_ERR_TRUNCATED. */
KESS_API KESS_RESULT KESS_Sound_GetSyncPoint(KESS_SOUND* sound, int index, uint64_t* sample, char* name, int nameBytes);

/* A text for the user, in English, about parts of the file that are left out: sync points above 65,536, names of sync
 * points of more than 32 MiB in total, and chained sounds whose rate or channels differ from those of the first. Empty
 * if nothing is left out. A text that doesn't fit is cut as in KESS_Sound_GetSyncPoint. */
KESS_API KESS_RESULT KESS_Sound_GetRemark(KESS_SOUND* sound, char* text, int textBytes);

/* Name of a subsound in UTF-8; empty for a bank without names and for a file. A name that doesn't fit is cut as in
 * KESS_Sound_GetSyncPoint. */
KESS_API KESS_RESULT KESS_Sound_GetName(KESS_SOUND* sound, char* name, int nameBytes);

/* Number of sounds of a bank, 0 for any other sound. KESS_ERR_KEY_MISSING for a bank that is still locked. */
KESS_API KESS_RESULT KESS_Sound_GetNumSubSounds(KESS_SOUND* sound, int* count);

/* One sound of a bank, by index or by name (exact bytes). The bank owns it; a second call gives the same object. A
 * sound that can't be decoded here reports its facts; decoding it gives KESS_ERR_UNSUPPORTED.
 * KESS_ERR_INVALID_PARAM: no such index. KESS_ERR_TAGNOTFOUND: no such name. KESS_ERR_KEY_MISSING: locked. */
KESS_API KESS_RESULT KESS_Sound_GetSubSound(KESS_SOUND* sound, int index, KESS_SOUND** subsound);
KESS_API KESS_RESULT KESS_Sound_GetSubSoundByName(KESS_SOUND* sound, const char* name, KESS_SOUND** subsound);

/* A voice: another decoder of a subsound, of the only sound of a bank, or of the sound of another voice, with a
 * position and a loop count of its own. It begins at the start of the sound and doesn't loop. It shares tables, key and
 * file with the bank, so that it costs two small allocations, and reads nothing. The first call that reads or seeks
 * starts its decoder, and reports the faults that it finds; a game that can't wait then calls
 * KESS_Sound_SeekData(voice, 0) on another thread. Reads allocate nothing once the voice has been read once in the same
 * form (KESS_Sound_ReadData or KESS_Sound_ReadFloat) and with looping switched on, if it ever is. The caller releases
 * the voice, before or after the bank: what is shared is freed with the last of the bank and all its voices.
 * KESS_ERR_SUBSOUNDS: a plain sound, or a bank of several. KESS_ERR_UNSUPPORTED: the sound can't be decoded here.
 * KESS_ERR_KEY_MISSING: locked. */
KESS_API KESS_RESULT KESS_Sound_CreateVoice(KESS_SOUND* sound, KESS_SOUND** voice);

/* Facts of a bank. info->cbsize is set beforehand: KESS_ERR_INVALID_PARAM for any size but this header's.
 * KESS_ERR_SUBSOUNDS: not a bank. KESS_ERR_KEY_MISSING: locked; then encrypted and fileBytes alone are filled. */
KESS_API KESS_RESULT KESS_Sound_GetBankInfo(KESS_SOUND* sound, KESS_BANKINFO* info);

/* How a subsound, or the only sound of a bank, is stored; cbsize as above. Encoded bits per sample are
 * dataBytes * 8 / (samples * channels). KESS_ERR_SUBSOUNDS: a plain sound, or a bank of several.
 * KESS_ERR_KEY_MISSING: locked. */
KESS_API KESS_RESULT KESS_Sound_GetEncoding(KESS_SOUND* sound, KESS_ENCODING* encoding);

/* Reads all encoded samples of a subsound, or of the only sound of a bank, and compares them with their checksum,
 * without decoding. This finds damage that a decoder would take for sound: KESS_ERR_FILE_BAD. KESS_ERR_SUBSOUNDS and
 * KESS_ERR_KEY_MISSING as above. */
KESS_API KESS_RESULT KESS_Sound_VerifyData(KESS_SOUND* sound);

/* KESS_System_VerifyBank for an opened bank, wherever its bytes come from. KESS_ERR_SUBSOUNDS: not a bank.
 * KESS_ERR_KEY_MISSING: locked. */
KESS_API KESS_RESULT KESS_Sound_VerifyBank(KESS_SOUND* sound, KESS_FINDING_CALLBACK finding, void* userData);

/* Whether the bank is encrypted, unlocked or not: 1 or 0. */
KESS_API KESS_RESULT KESS_Sound_IsEncrypted(KESS_SOUND* sound, int* encrypted);

/* Unlocks an encrypted bank; key is UTF-8. Does nothing for one that isn't encrypted or is unlocked already.
 * KESS_ERR_KEY_WRONG: not the key of this bank. KESS_ERR_FILE_BAD: the bank is damaged. */
KESS_API KESS_RESULT KESS_Sound_SetEncryptionKey(KESS_SOUND* sound, const char* key);

#ifdef __cplusplus
}
#endif

#endif
