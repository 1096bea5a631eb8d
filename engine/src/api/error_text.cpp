// SPDX-License-Identifier: MIT
#include "kess.hpp"

extern "C" const char* KESS_ErrorString(KESS_RESULT result)
{
    switch (result) {
    case KESS_OK:
        return "No errors.";
    case KESS_ERR_FILE_BAD:
        return "The file is damaged, empty or can't be read.";
    case KESS_ERR_FILE_COULDNOTSEEK:
        return "The file can't be read at this position.";
    case KESS_ERR_FILE_EOF:
        return "The end of the sound is reached.";
    case KESS_ERR_FILE_NOTFOUND:
        return "File not found.";
    case KESS_ERR_FORMAT:
        return "Unsupported file or audio format.";
    case KESS_ERR_HEADER_MISMATCH:
        return "The program was compiled for another version of the engine.";
    case KESS_ERR_KEY_MISSING:
        return "The bank is encrypted and needs its key.";
    case KESS_ERR_INVALID_HANDLE:
        return "The handle is null, or its sound has been released.";
    case KESS_ERR_INVALID_PARAM:
        return "An argument of the call is out of its range or missing.";
    case KESS_ERR_INVALID_POSITION:
        return "The position is after the end of the sound.";
    case KESS_ERR_INVALID_SYNCPOINT:
        return "The sound has no sync point of this number.";
    case KESS_ERR_MEMORY:
        return "Out of memory.";
    case KESS_ERR_SUBSOUNDS:
        return "A bank has no samples of its own, and a plain sound no subsounds.";
    case KESS_ERR_TAGNOTFOUND:
        return "The sound or bank has nothing of this kind or name.";
    case KESS_ERR_TOOMANYCHANNELS:
        return "The sound has more channels than the engine takes.";
    case KESS_ERR_TRUNCATED:
        return "The text was cut to fit the buffer.";
    case KESS_ERR_UNINITIALIZED:
        return "The engine has not been initialised.";
    case KESS_ERR_UNSUPPORTED:
        return "The sound is of a kind that can't be decoded here.";
    case KESS_ERR_VERSION:
        return "The bank is of a version that this engine can't read.";
    case KESS_ERR_KEY_WRONG:
        return "The key does not fit the encrypted bank.";
    default:
        return "Unknown error.";
    }
}
