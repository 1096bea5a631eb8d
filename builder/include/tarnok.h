/* SPDX-License-Identifier: MIT */
/* The bank builder: compiles lists of audio files into sound banks (.tnb).
 *
 * Call order: Tarnok_Init, then any number of Tarnok_Build, one at a time, then Tarnok_Release. While a build runs, and
 * after it, Tarnok_FetchNextProgressItem and Tarnok_ReleaseProgressItem may be called from another thread, and
 * Tarnok_BuildCancel and Tarnok_FetchNextRemark may be called from any thread. Strings are NUL-terminated UTF-8. No
 * call throws.
 */
#ifndef TARNOK_H
#define TARNOK_H

#include <stddef.h>
#include <stdint.h>

#if defined(TARNOK_BUILDING_LIBRARY)
#define TARNOK_API __attribute__((visibility("default")))
#else
#define TARNOK_API
#endif

/* Enums have the width of an integer and may contain any integer value. C++ needs this declared. */
#ifdef __cplusplus
#define TARNOK_INT32 : int32_t
#else
#define TARNOK_INT32
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Result of a call. Any result of Tarnok_Build other than TARNOK_OK means that the bank was not written. */
typedef enum TARNOK_RESULT TARNOK_INT32
{
    TARNOK_OK = 0,
    TARNOK_ERR_CACHE_CHUNK_MISSING = 1,
    TARNOK_ERR_CANCELLED = 2,
    TARNOK_ERR_CANNOT_CONTINUE = 3,
    TARNOK_ERR_ENCODER = 4,
    TARNOK_ERR_ENCODER_INIT = 5,
    TARNOK_ERR_ENCODER_NOT_SUPPORTED = 6,
    TARNOK_ERR_FILE_OS = 7,
    TARNOK_ERR_FILE_NOT_FOUND = 8,
    TARNOK_ERR_KESS = 9,
    TARNOK_ERR_INITIALIZED = 10,
    TARNOK_ERR_INVALID_FORMAT = 11,
    TARNOK_ERR_INVALID_PARAM = 12,
    TARNOK_ERR_MEMORY = 13,
    TARNOK_ERR_UNINITIALIZED = 14,
    TARNOK_ERR_FORMAT_NOT_IN_TNB_VERSION = 15,
    TARNOK_WARN_CANNOT_LOOP = 16,
    TARNOK_WARN_IGNORED_FILTERHIGHFREQ = 17,
    TARNOK_WARN_IGNORED_DISABLESEEKING = 18,
    TARNOK_WARN_FORCED_DONTWRITENAMES = 19,
    TARNOK_ERR_ENCODER_LIBRARY_NOT_FOUND = 20,
    TARNOK_ERR_ENCODER_LIBRARY_BAD = 21,
    TARNOK_WARN_IGNORED_ALIGN4K = 22,
    TARNOK_RESULT_FORCEINT = 0x7fffffff
} TARNOK_RESULT;

/* Version of the bank container. 0 is the current one; no other exists so far. */
typedef enum TARNOK_TNBVERSION TARNOK_INT32
{
    TARNOK_TNBVERSION_CURRENT = 0,
    TARNOK_TNBVERSION_FORCEINT = 0x7fffffff
} TARNOK_TNBVERSION;

/* Encoding of the sounds of a bank. XMA and AT9 need an external encoder module. */
typedef enum TARNOK_FORMAT TARNOK_INT32
{
    TARNOK_FORMAT_PCM = 0,
    TARNOK_FORMAT_XMA = 1,
    TARNOK_FORMAT_AT9 = 2,
    TARNOK_FORMAT_VORBIS = 3,
    TARNOK_FORMAT_KADPCM = 4,
    TARNOK_FORMAT_OPUS = 5,
    TARNOK_FORMAT_FORCEINT = 0x7fffffff
} TARNOK_FORMAT;

/* Build flags, combined by OR. */
#define TARNOK_BUILD_DISABLESYNCPOINTS 0x001u /* leave out the markers of the source files */
#define TARNOK_BUILD_DONTLOOP 0x002u /* encode without making the loop seamless */
#define TARNOK_BUILD_FILTERHIGHFREQ 0x004u /* XMA only */
#define TARNOK_BUILD_DISABLESEEKING 0x008u /* XMA only */
#define TARNOK_BUILD_OPTIMIZESAMPLERATE 0x010u /* resample to the lowest rate that keeps everything audible */
#define TARNOK_BUILD_TNB5_DONTWRITENAMES 0x080u
#define TARNOK_BUILD_NOGUID 0x100u
#define TARNOK_BUILD_WRITEPEAKVOLUME 0x200u

/* The build flags that a sound may override. */
#define TARNOK_BUILD_OVERRIDE_MASK 0x21fu

/* Initialisation flags, combined by OR. */
#define TARNOK_INIT_IGNORE_ERRORS 0x01u /* a failing sound becomes an empty one instead of ending the build */
#define TARNOK_INIT_CREATE_HEADER 0x04u /* write a C header with names and indices beside the bank */
#define TARNOK_INIT_REBUILD 0x08u /* encode everything again, whatever is in the cache */
#define TARNOK_INIT_ALWAYS 0x10u /* deliver progress items */
#define TARNOK_INIT_KEEP_UNCHANGED 0x20u /* don't replace a bank or header whose bytes would stay the same */

/* Phase of one sound. */
typedef enum TARNOK_STATE TARNOK_INT32
{
    TARNOK_STATE_DECODING = 0,
    TARNOK_STATE_ANALYSING = 1,
    TARNOK_STATE_PREPROCESSING = 2,
    TARNOK_STATE_ENCODING = 3,
    TARNOK_STATE_WRITING = 4,
    TARNOK_STATE_FINISHED = 5,
    TARNOK_STATE_FAILED = 6,
    TARNOK_STATE_FORCEINT = 0x7fffffff
} TARNOK_STATE;

/* One report. It belongs to the library and stays valid until it is released. */
typedef struct TARNOK_PROGRESSITEM
{
    int32_t subSoundIndex; /* index into the array given to Tarnok_Build, or -1 for the bank as a whole */
    int32_t threadId; /* number of the worker that reports */
    TARNOK_STATE state;
    uint32_t reserved;
    const void* stateData; /* a TARNOK_STATE_DATA_FAILED when state is TARNOK_STATE_FAILED, else null */
} TARNOK_PROGRESSITEM;

/* Why a sound, or the bank, failed. */
typedef struct TARNOK_STATE_DATA_FAILED
{
    TARNOK_RESULT errorCode;
    char errorString[1]; /* stored here with its full length, NUL-terminated */
} TARNOK_STATE_DATA_FAILED;

/* One sound of a build: one file, or several that are interleaved into one multichannel sound. */
typedef struct TARNOK_SUBSOUND
{
    const char* const* fileNames; /* numFiles paths, in channel order */
    const void* reservedPointer0; /* null */
    const void* reservedPointer1; /* null */
    uint32_t numFiles; /* at least 1 */
    uint32_t overrideFlags; /* each set bit reverses that build flag for this sound; TARNOK_BUILD_OVERRIDE_MASK */
    uint32_t overrideQuality; /* 1 to 100, or 0 for the quality of the build; higher values count as 100 */
    float desiredSampleRate; /* hertz, or 0 for the rate of the source */
    uint32_t reserved; /* 0 */
} TARNOK_SUBSOUND;

/* Initialises the library. threadCount is the number of workers, clamped to 1 to 256. cacheDirectory must exist; the
 * string need not outlive the call. If the directory can't be used, nothing is cached, and builds work all the same.
 * The cache uses at most 4 GiB, or the number of bytes in its file "limit".
 * TARNOK_ERR_INITIALIZED: already initialised. TARNOK_ERR_INVALID_PARAM: unknown version, or no directory given. */
TARNOK_API TARNOK_RESULT Tarnok_Init(TARNOK_TNBVERSION version, unsigned int flags, unsigned int threadCount,
                                     const char* cacheDirectory);

/* Shuts the library down. A running build is cancelled, and the call returns when its workers have ended. The library
 * may be initialised again immediately. Fetched reports stay valid until they are released.
 * TARNOK_ERR_UNINITIALIZED: not initialised. */
TARNOK_API TARNOK_RESULT Tarnok_Release(void);

/* Sets the file that gets the C header of the builds that start from now on, with TARNOK_INIT_CREATE_HEADER. The string
 * need not outlive the call. Null, the initial value, means the name of the bank with the extension .h. The library
 * need not be initialised. TARNOK_ERR_INVALID_PARAM: an empty string. */
TARNOK_API TARNOK_RESULT Tarnok_SetHeaderFile(const char* headerFileName);

/* Builds one bank, and blocks until the build has succeeded, failed or was cancelled. The subsounds, and everything
 * that they point to, must not change until then. quality is 0 to 100. encryptionKey is null for a bank without a key.
 * A failed or cancelled build leaves an existing bank at outputFileName unchanged.
 *
 * All sounds are tried, even after one has failed, and each failure is reported. A finished sound can still fail if its
 * file is changed before the bank is written. The result is that of the first failed sound in the list:
 * TARNOK_ERR_FILE_NOT_FOUND, TARNOK_ERR_FILE_OS: a source can't be read. TARNOK_ERR_INVALID_FORMAT: it isn't a sound,
 * is damaged, or has too many channels. TARNOK_ERR_ENCODER, TARNOK_ERR_ENCODER_INIT, TARNOK_ERR_KESS: an encoder or the
 * engine fails. TARNOK_ERR_ENCODER_LIBRARY_NOT_FOUND, TARNOK_ERR_ENCODER_LIBRARY_BAD: the encoder module for XMA or AT9
 * is missing or can't be used (see tarnok_encoder.h).
 * A final report, with a subSoundIndex of -1, names up to five of the failed sounds again, one per line.
 * For the bank as a whole, with a report whose subSoundIndex is -1:
 * TARNOK_ERR_FILE_OS: it can't be written. TARNOK_ERR_CANNOT_CONTINUE: errors are ignored, but all sounds have failed.
 * TARNOK_ERR_CACHE_CHUNK_MISSING: another program overwrites entries of the cache. TARNOK_ERR_INVALID_PARAM: no sounds,
 * a sound without files, an unknown format, a quality above 100, an invalid sample rate, an empty key or file name.
 * TARNOK_ERR_MEMORY.
 * Without a report: TARNOK_ERR_CANCELLED, TARNOK_ERR_UNINITIALIZED, and TARNOK_ERR_INITIALIZED while another build
 * runs. */
TARNOK_API TARNOK_RESULT Tarnok_Build(const TARNOK_SUBSOUND* subsounds, unsigned int numSubsounds, TARNOK_FORMAT format,
                                      unsigned int buildFlags, unsigned int quality, const char* encryptionKey,
                                      const char* outputFileName);

/* Asks the running build to stop and returns immediately. Without a running build it does nothing.
 * TARNOK_ERR_UNINITIALIZED: not initialised. */
TARNOK_API TARNOK_RESULT Tarnok_BuildCancel(void);

/* Stores in *item the oldest report that was not fetched yet, or null if there is none. Never blocks. While a build
 * runs, a caller that has been fetching without a pause for some milliseconds gets a null, so that it can do other
 * work; after Tarnok_Build has returned, all remaining reports follow without such a null. A new build discards the
 * reports of the previous one that were not fetched. */
TARNOK_API TARNOK_RESULT Tarnok_FetchNextProgressItem(const TARNOK_PROGRESSITEM** item);

/* Releases a fetched report, which becomes invalid. TARNOK_ERR_INVALID_PARAM: item isn't a fetched report. */
TARNOK_API TARNOK_RESULT Tarnok_ReleaseProgressItem(const TARNOK_PROGRESSITEM* item);

/* Removes the oldest remark of the running or last build from the queue and copies it to text: UTF-8, NUL-terminated,
 * cut between characters if it is longer than size. The text is empty if there is no remark. A remark is a sentence for
 * the user about something that didn't fail but should be known: a cache that can't be used, a part of a sound that was
 * left out. It is one line, appears once per build however often its cause occurs, and doesn't depend on
 * TARNOK_INIT_ALWAYS. Nearly all remarks fit into 512 bytes. Never blocks. A new build discards the remarks of the
 * previous one that were not fetched. TARNOK_ERR_INVALID_PARAM: text is null, or size is below 5, which is too small
 * for some characters. */
TARNOK_API TARNOK_RESULT Tarnok_FetchNextRemark(char* text, unsigned int size);

#ifdef __cplusplus
}

static_assert(sizeof(TARNOK_PROGRESSITEM) == 24, "the layout of a progress item is fixed");
static_assert(sizeof(TARNOK_SUBSOUND) == 48, "the layout of a subsound is fixed");
static_assert(offsetof(TARNOK_PROGRESSITEM, stateData) == 16, "the layout of a progress item is fixed");
static_assert(offsetof(TARNOK_SUBSOUND, numFiles) == 24, "the layout of a subsound is fixed");
static_assert(offsetof(TARNOK_STATE_DATA_FAILED, errorString) == 4, "the text follows the code directly");
#endif

#endif
