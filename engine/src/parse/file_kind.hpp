// SPDX-License-Identifier: MIT
// What a file is, recognised from its bytes alone.
#pragma once

#include "kess.h"
#include "parse/chunks.hpp"
#include "parse/cursor.hpp"

#include <cstdint>

namespace engine {

// What decodes a file.
enum class Reader
{
    None, // nothing: the file is recognised only so that it can be refused by its type
    Bank, // our own container
    Sndfile, // libsndfile, and the decoder module for what it can't decode
    Mpeg,
    Vorbis,
    Opus,
    Module // the decoder module
};

struct FileKind
{
    KESS_SOUND_TYPE type = KESS_SOUND_TYPE_UNKNOWN;
    Reader reader = Reader::None;
    // The range of the file that holds the sound, without the tags that players put before and after it.
    uint64_t begin = 0;
    uint64_t end = 0;
    // The decoder module's name for the container; null if it has none.
    const char* container = nullptr;
};

// A file with what recognise() has found out about it.
struct RecognisedFile
{
    FilePointer file;
    FileKind kind;
    ChunkList chunks; // of a file that consists of chunks, otherwise empty

    [[nodiscard]] Cursor cursor() const { return {file, kind.begin, kind.end}; }
};

// Reads signatures and the headers of chunks, a few kilobytes in all, whatever the size of the file.
// ErrorCode::Format: no known signature. ErrorCode::Damaged: an Ogg file without a complete page.
base::Result<RecognisedFile> recognise(FilePointer file);

} // namespace engine
