// What a file is, told from its bytes alone.
#pragma once

#include "kess.h"
#include "parse/source_file.hpp"

#include <cstdint>

namespace kess {

// Who decodes a file.
enum class Reader
{
    None, // nobody: recognised only so that it can be refused by its type
    Bank, // our own container
    Sndfile, // libsndfile, and where it gives up the foreign decoder
    Mpeg,
    Vorbis,
    Opus,
    Foreign // the decoder module
};

// What recognise() has found out.
struct FileKind
{
    KESS_SOUND_TYPE type = KESS_SOUND_TYPE_UNKNOWN;
    Reader reader = Reader::None;
    // The stretch of the file that holds the sound, without the tags that players put before and behind it.
    uint64_t begin = 0;
    uint64_t end = 0;
    // What the decoder module calls the container; null where it has nothing for it.
    const char* container = nullptr;
};

// Looks at signatures, at a few kilobytes in all, whatever the size of the file.
// KESS_ERR_FORMAT: none that we know.
[[nodiscard]] KESS_RESULT recognise(const SourceFile& file, FileKind* kind);

} // namespace kess
