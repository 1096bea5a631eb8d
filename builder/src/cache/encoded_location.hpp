// SPDX-License-Identifier: MIT
// The location of an encoded sound until the bank is written.
#pragma once

#include "base/file.hpp"
#include "cache/file_part.hpp"
#include "support/content_hash.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace builder {

// The sound is in the cache or, if the cache couldn't take it, in an unnamed file. The layout is the same in both:
// header, encoded data, serialised form. Or the data is in the source file, where it may change, and the serialised
// form is in this object.
struct EncodedLocation
{
    struct InSource
    {
        uint64_t dataOffset = 0;
        base::FileStamp stamp; // of the file when it was read
    };

    ContentHash key;
    std::shared_ptr<const FilePart> spilled; // null: the sound is in the cache or in its source
    std::optional<InSource> inSource;
    uint64_t dataBytes = 0;
    std::vector<uint8_t> record; // the serialised form, if it has at most kMaximumKeptRecord bytes

    // Longer serialised forms (with a seek table) are read again when needed, so that memory doesn't grow with the
    // length of the sounds.
    static constexpr size_t kMaximumKeptRecord = 512;

    bool inCache() const { return !spilled && !inSource; }

    static EncodedLocation make(const ContentHash& key, uint64_t dataBytes, std::span<const uint8_t> record);
};

} // namespace builder
