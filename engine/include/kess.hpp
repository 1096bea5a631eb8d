// SPDX-License-Identifier: MIT
/* The audio engine: opens sound files and banks, reports what they are, and decodes them sample by sample.
 *
 * One System may open sounds on several threads at the same time; one Sound (a bank together with its subsounds)
 * belongs to one thread at a time. No call throws. Every call that takes a pointer to a result accepts null for what
 * isn't wanted, unless it says otherwise.
 */
#ifndef KESS_HPP
#define KESS_HPP

#include "kess.h"

namespace KESS {

class Sound;

/* Opens files. Created by KESS_System_Create, destroyed by release(). */
class KESS_API System
{
public:
    /* Ends the engine. All sounds must have been released. */
    KESS_RESULT release();

    /* Selects the output, before init. KESS_ERR_INVALID_PARAM: any other than NOSOUND_NRT. */
    KESS_RESULT setOutput(KESS_OUTPUTTYPE output);

    /* Starts the engine. The engine has no audio output, so maxChannels, flags and extraDriverData are ignored. */
    KESS_RESULT init(int maxChannels, unsigned int flags, void* extraDriverData);

    /* Opens a file without decoding it. path is UTF-8. info may be null. The first file that needs FFmpeg silences its
     * messages and bounds its allocations for the whole process.
     * Whatever the file contains, the result is KESS_OK or one of FILE_BAD (13), FILE_COULDNOTSEEK (14), FILE_NOTFOUND
     * (18), FORMAT (19), TOOMANYCHANNELS (64), VERSION (69). *sound, which may not be null, is null on failure. */
    KESS_RESULT createSound(const char* path, unsigned int mode, const KESS_CREATESOUNDEXINFO* info, Sound** sound);

    /* Reads all of a bank: its tables, every checksum, every packet (by decoding it) and every seek point. Reports each
     * fault to finding, which may be null. Memory doesn't grow with the sounds. key may be null for a bank that isn't
     * encrypted. If finding ends it early, the result is that of the findings so far. KESS_OK: nothing is damaged,
     * though there may be remarks.
     * KESS_ERR_FILE_BAD: damage was reported; or, if none was, the file can't be read at all. KESS_ERR_FILE_NOTFOUND.
     * KESS_ERR_FORMAT: not a bank. KESS_ERR_VERSION. KESS_ERR_KEY_MISSING. KESS_ERR_KEY_WRONG.
     * KESS_ERR_FILE_COULDNOTSEEK: the medium failed. KESS_ERR_MEMORY. */
    KESS_RESULT verifyBank(const char* path, const char* key, KESS_FINDING_CALLBACK finding, void* userData);

private:
    struct Impl;
    friend struct SystemAccess;
    System();
    ~System();
    System(const System&) = delete;
    System& operator=(const System&) = delete;
    Impl* mImpl;
};

/* One opened file. A bank gives access to its subsounds. Every other sound, and each subsound, is decoded by seekData
 * and readData. A bank of one sound can also be decoded itself. */
class KESS_API Sound
{
public:
    /* Closes the file and frees the sound. A bank frees its subsounds too; a subsound released alone is only closed. */
    KESS_RESULT release();

    /* Facts of the file. bits is the depth of one sample as readData delivers it, 0 for a bank of several sounds. */
    KESS_RESULT getFormat(KESS_SOUND_TYPE* type, KESS_SOUND_FORMAT* format, int* channels, int* bits);

    /* Sample rate in hertz; the priority is always 128. */
    KESS_RESULT getDefaults(float* frequency, int* priority);

    /* Length of the sound, cut at the largest 32-bit value. 0 for a bank of several sounds. */
    KESS_RESULT getLength(unsigned int* length, unsigned int timeUnit);

    /* Length in samples of one channel, never cut. */
    KESS_RESULT getSampleCount(uint64_t* samples);

    /* The length that the file's header declares. If it is more than that of getSampleCount, the file was cut short,
     * and the existing part can be read. Approximate for compressed encodings. */
    KESS_RESULT getDeclaredSampleCount(uint64_t* samples);

    /* Moves to a sample, counted from the start of the sound; the next read begins exactly there.
     * KESS_ERR_INVALID_POSITION: after the end. */
    KESS_RESULT seekData(uint64_t sample);

    /* Decodes up to lengthBytes, cut to whole frames, in the sample format of getFormat, interleaved; *read gets the
     * number of bytes delivered. Channels are in the order of WAV files: front left, right, centre, low frequencies,
     * back, side. KESS_ERR_FILE_EOF: nothing was read, the sound is at its end. KESS_ERR_FILE_BAD: nothing was read,
     * the sound is damaged here; the samples before the damage have been delivered. KESS_ERR_INVALID_PARAM: no buffer,
     * or one that is smaller than a frame. KESS_ERR_UNSUPPORTED: the file was recognised but can't be decoded.
     * KESS_ERR_SUBSOUNDS: a bank of several sounds. */
    KESS_RESULT readData(void* buffer, unsigned int lengthBytes, unsigned int* read);

    /* The same in 32-bit float, interleaved, full scale -1 to 1, in frames: the full precision of lossy sounds. */
    KESS_RESULT readFloat(float* buffer, unsigned int frames, unsigned int* framesRead);

    /* The range of the file that consists of exactly the bytes that readData delivers for the whole sound, for programs
     * that copy a sound unchanged. KESS_ERR_UNSUPPORTED: there is none, or it isn't certain. */
    KESS_RESULT getRawSamples(uint64_t* offset, uint64_t* bytes);

    /* The loop: samples start to end, end not included. KESS_ERR_TAGNOTFOUND: the sound has none. */
    KESS_RESULT getLoopPoints(uint64_t* start, uint64_t* end);

    /* How often reading jumps from the loop's end to its start: 0 never (the initial value), n times, or -1 for ever.
     * Counts from now on. KESS_ERR_TAGNOTFOUND: the sound has no loop. */
    KESS_RESULT setLoopCount(int count);

    /* Largest absolute sample, 1 is full scale. KESS_ERR_TAGNOTFOUND: not stored. */
    KESS_RESULT getPeak(float* peak);

    KESS_RESULT getNumSyncPoints(int* count);

    /* A text for the user, in English, about parts of the file that are left out: sync points above 65,536, names of
     * sync points of more than 32 MiB in total, and chained sounds whose rate or channels differ from those of the
     * first. Empty if nothing is left out. A text that doesn't fit is cut as in getSyncPoint. */
    KESS_RESULT getRemark(char* text, int textBytes);

    /* One sync point, by position; *sample is at most the length. name (nameBytes long, NUL included) may be null; a
     * name that doesn't fit is cut after a whole character, and the result is KESS_ERR_TRUNCATED. */
    KESS_RESULT getSyncPoint(int index, uint64_t* sample, char* name, int nameBytes);

    /* Name of a subsound in UTF-8; empty for a bank without names and for a file. A name that doesn't fit is cut as in
     * getSyncPoint. */
    KESS_RESULT getName(char* name, int nameBytes);

    /* Number of sounds of a bank, 0 for any other sound. KESS_ERR_KEY_MISSING for a bank that is still locked. */
    KESS_RESULT getNumSubSounds(int* count);

    /* One sound of a bank, by index or by name (exact bytes). The bank owns it; a second call returns the same object.
     * A sound that can't be decoded here reports its facts; decoding it fails with KESS_ERR_UNSUPPORTED.
     * KESS_ERR_INVALID_PARAM: no such index. KESS_ERR_TAGNOTFOUND: no such name. KESS_ERR_KEY_MISSING: locked. */
    KESS_RESULT getSubSound(int index, Sound** subsound);
    KESS_RESULT getSubSoundByName(const char* name, Sound** subsound);

    /* Facts of a bank. info->cbsize is set beforehand: KESS_ERR_INVALID_PARAM for any size but this header's.
     * KESS_ERR_SUBSOUNDS: not a bank. KESS_ERR_KEY_MISSING: locked; then encrypted and fileBytes alone are filled. */
    KESS_RESULT getBankInfo(KESS_BANKINFO* info);

    /* How a subsound, or the only sound of a bank, is stored; cbsize as above. Encoded bits per sample are
     * dataBytes * 8 / (samples * channels). KESS_ERR_SUBSOUNDS: a plain sound, or a bank of several.
     * KESS_ERR_KEY_MISSING: locked. */
    KESS_RESULT getEncoding(KESS_ENCODING* encoding);

    /* Reads all encoded samples of a subsound, or of the only sound of a bank, and compares them with their checksum,
     * without decoding. This finds damage that a decoder would take for sound: KESS_ERR_FILE_BAD. KESS_ERR_SUBSOUNDS
     * and KESS_ERR_KEY_MISSING as above. */
    KESS_RESULT verifyData();

    /* Whether the bank is encrypted, unlocked or not. */
    KESS_RESULT isEncrypted(bool* encrypted);

    /* Unlocks an encrypted bank; key is UTF-8. Does nothing for one that isn't encrypted or is unlocked already.
     * KESS_ERR_KEY_WRONG: not the key of this bank. KESS_ERR_FILE_BAD: the bank is damaged. */
    KESS_RESULT setEncryptionKey(const char* key);

private:
    struct Impl;
    friend struct SoundAccess;
    Sound();
    ~Sound();
    Sound(const Sound&) = delete;
    Sound& operator=(const Sound&) = delete;
    Impl* mImpl;
};

} // namespace KESS

/* Text of a result, never null. */
extern "C" KESS_API const char* KESS_ErrorString(KESS_RESULT result);

/* The error of the operating system (errno, such as EMFILE or EIO) that made this thread's last call fail. Set by
 * createSound, verifyBank, verifyData, getSubSound, getSubSoundByName, setEncryptionKey, seekData, readData and
 * readFloat. 0: the system reported no error, so the file itself is the reason. */
extern "C" KESS_API int KESS_SystemError(void);

/* The reason of that failure as a text in English, without the name of the file, such as "its data doesn't match the
 * checksum". Empty if no more is known than KESS_ErrorString says. A text that doesn't fit is cut as in
 * KESS::Sound::getSyncPoint. */
extern "C" KESS_API KESS_RESULT KESS_ErrorDetail(char* text, int textBytes);

/* Creates an engine, which decodes but has no audio output. headerVersion is KESS_VERSION; KESS_ERR_HEADER_MISMATCH for
 * any other. */
extern "C" KESS_API KESS_RESULT KESS_System_Create(KESS::System** system, unsigned int headerVersion);

#endif
