/* The audio engine: opens sound files and banks, tells what they are, and decodes them sample by sample.
 *
 * One System may open sounds on several threads at once; one Sound (a bank together with its subsounds) belongs to one
 * thread at a time. No call throws. Every call that takes a pointer to a result accepts null for what isn't wanted,
 * unless it says otherwise.
 */
#ifndef KESS_HPP
#define KESS_HPP

#include "kess.h"

namespace KESS {

class Sound;

/* Opens files. Made by KESS_System_Create, destroyed by release(). */
class KESS_API System
{
public:
    /* Ends the engine. Sounds must have been released before. */
    KESS_RESULT release();

    /* Selects the output, before init. KESS_ERR_INVALID_PARAM: this library knows no other than NOSOUND_NRT. */
    KESS_RESULT setOutput(KESS_OUTPUTTYPE output);

    /* Starts the engine; maxChannels, flags and extraDriverData have no meaning for a silent one. */
    KESS_RESULT init(int maxChannels, unsigned int flags, void* extraDriverData);

    /* Opens a file without decoding it. path is UTF-8. info may be null. The first file that needs FFmpeg silences its
     * messages and bounds its allocations for the whole process.
     * Whatever is in the file, the answer is KESS_OK or one of FILE_BAD (13), FILE_COULDNOTSEEK (14), FILE_NOTFOUND
     * (18), FORMAT (19), TOOMANYCHANNELS (64), VERSION (69). *sound, which may not be null, is null on failure. */
    KESS_RESULT createSound(const char* path, unsigned int mode, const KESS_CREATESOUNDEXINFO* info, Sound** sound);

    /* Reads all of a bank: its tables, every checksum, every packet (by decoding it) and every place to seek to, and
     * tells each fault to finding, which may be null. Memory doesn't grow with the sounds. key may be null for a bank
     * that isn't encrypted. When finding ends it early, the answer is that of what it saw. KESS_OK: nothing is damaged,
     * though there may be remarks.
     * KESS_ERR_FILE_BAD: damage was told of; or, if none was, the file can't be read at all. KESS_ERR_FILE_NOTFOUND.
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

/* One opened file. A bank answers for its subsounds; every other sound, and each subsound, is decoded by seekData and
 * readData. A bank that holds one sound can also be decoded itself. */
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

    /* Length in samples of one channel, whatever it is. */
    KESS_RESULT getSampleCount(uint64_t* samples);

    /* The same as the file's header tells it. More than getSampleCount: the file ends before its sound does, and what
     * is there can be read. About right only for encodings that pack samples. */
    KESS_RESULT getDeclaredSampleCount(uint64_t* samples);

    /* Moves to a sample, counted from the start of the sound; the next read begins exactly there.
     * KESS_ERR_INVALID_POSITION: behind the end. */
    KESS_RESULT seekData(uint64_t sample);

    /* Decodes up to lengthBytes, cut to whole frames, in the sample format of getFormat, interleaved; *read gets the
     * number of bytes delivered. Channels are in the order of WAV files: front left, right, centre, low frequencies,
     * back, side. KESS_ERR_FILE_EOF: none, the sound is at its end. KESS_ERR_FILE_BAD: none, the sound is damaged here;
     * what came before it was delivered. KESS_ERR_INVALID_PARAM: no buffer, or one that is smaller than a frame.
     * KESS_ERR_UNSUPPORTED: the file was recognised only. KESS_ERR_SUBSOUNDS: a bank of several sounds. */
    KESS_RESULT readData(void* buffer, unsigned int lengthBytes, unsigned int* read);

    /* The same in 32-bit float, interleaved, full scale -1 to 1, in frames: the full precision of lossy sounds. */
    KESS_RESULT readFloat(float* buffer, unsigned int frames, unsigned int* framesRead);

    /* Where the bytes that readData delivers for the whole sound stand in the file, one after the other as they are:
     * for whoever copies a sound without a change. KESS_ERR_UNSUPPORTED: they don't, or it isn't certain. */
    KESS_RESULT getRawSamples(uint64_t* offset, uint64_t* bytes);

    /* The loop: samples start to end, end not included. KESS_ERR_TAGNOTFOUND: the sound has none. */
    KESS_RESULT getLoopPoints(uint64_t* start, uint64_t* end);

    /* How often reading jumps from the loop's end to its start: 0 never (as opened), n times, or -1 for ever.
     * Counts from now on. KESS_ERR_TAGNOTFOUND: the sound has no loop. */
    KESS_RESULT setLoopCount(int count);

    /* Largest absolute sample, 1 is full scale. KESS_ERR_TAGNOTFOUND: not stored. */
    KESS_RESULT getPeak(float* peak);

    KESS_RESULT getNumSyncPoints(int* count);

    /* What a file brings beyond that, of which no more is known: sync points above 65,536, and names of sync points
     * that are more than 32 MiB in all. Either may be null. */
    KESS_RESULT getDroppedSyncPoints(uint64_t* points, uint64_t* names);

    /* One sync point, by position; *sample is at most the length. name (nameBytes long, NUL included) may be null; a
     * name that doesn't fit is cut at a character and the answer is KESS_ERR_TRUNCATED. */
    KESS_RESULT getSyncPoint(int index, uint64_t* sample, char* name, int nameBytes);

    /* Name of a subsound in UTF-8, by the rules of getSyncPoint; empty for a bank without names and for a file. */
    KESS_RESULT getName(char* name, int nameBytes);

    /* Number of sounds of a bank, 0 for any other sound. KESS_ERR_KEY_MISSING for a bank that is still locked. */
    KESS_RESULT getNumSubSounds(int* count);

    /* One sound of a bank, by index or by name (exact bytes). The bank owns it; asking twice gives the same object.
     * A sound that can't be decoded here tells its facts; decoding it gives KESS_ERR_UNSUPPORTED.
     * KESS_ERR_INVALID_PARAM: no such index. KESS_ERR_TAGNOTFOUND: no such name. KESS_ERR_KEY_MISSING: locked. */
    KESS_RESULT getSubSound(int index, Sound** subsound);
    KESS_RESULT getSubSoundByName(const char* name, Sound** subsound);

    /* Facts of a bank. info->cbsize is set beforehand: KESS_ERR_INVALID_PARAM for any size but this header's.
     * KESS_ERR_SUBSOUNDS: not a bank. KESS_ERR_KEY_MISSING: locked; then encrypted and fileBytes alone are filled. */
    KESS_RESULT getBankInfo(KESS_BANKINFO* info);

    /* How a subsound, or the only sound of a bank, is kept in it; cbsize as above. Encoded bits of a sample are
     * dataBytes * 8 / (samples * channels). KESS_ERR_SUBSOUNDS: a plain sound, or a bank of several.
     * KESS_ERR_KEY_MISSING: locked. */
    KESS_RESULT getEncoding(KESS_ENCODING* encoding);

    /* Reads all encoded samples of a subsound, or of the only sound of a bank, and compares them with their checksum,
     * without decoding. Damage that a decoder would take for sound is found: KESS_ERR_FILE_BAD. KESS_ERR_SUBSOUNDS and
     * KESS_ERR_KEY_MISSING as above. */
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

/* What the operating system said (its errno, such as EMFILE or EIO) when createSound, verifyBank, seekData, readData or
 * readFloat last failed on this thread. 0: nothing, so it was the file itself. */
extern "C" KESS_API int KESS_SystemError(void);

/* Makes a silent engine. headerVersion is KESS_VERSION; KESS_ERR_HEADER_MISMATCH for any other. */
extern "C" KESS_API KESS_RESULT KESS_System_Create(KESS::System** system, unsigned int headerVersion);

#endif
