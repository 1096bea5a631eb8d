// SPDX-License-Identifier: MIT
// The file to which an encoder writes the data of one sound.
#pragma once

#include "bank/sound.hpp"
#include "base/bytes.hpp"
#include "base/result.hpp"
#include "base/temporary_file.hpp"
#include "cache/cache.hpp"
#include "cache/encoded_location.hpp"
#include "cache/spill_files.hpp"
#include "support/content_hash.hpp"

#include <optional>
#include <stop_token>
#include <vector>

namespace builder {

// Starts in the cache. If the cache can't take more, everything written so far moves to the spill files. It becomes an
// entry of the cache or a part of a spill file.
class EncodedFile final : public base::ByteSink
{
public:
    // cache: null for a sound that must not be stored there.
    EncodedFile(Cache* cache, SpillFiles& spill, std::stop_token stop);

    base::Result<> write(std::span<const uint8_t> bytes) override;

    // Adds header and serialised form to the data and makes the sound available under key. sound must be complete.
    base::Result<EncodedLocation> finish(const ContentHash& key, const bank::Sound& sound);

private:
    base::Result<> flush();
    base::Result<> put(std::span<const uint8_t> bytes, uint64_t position);
    base::Result<> moveToSpill(int systemError);
    base::Error storingError(int systemError) const;
    int descriptor() const { return mSpilled ? mSpilled->file->get() : mEntry.descriptor(); }
    uint64_t start() const { return mSpilled ? mSpilled->end : 0; }

    Cache* mCache;
    SpillFiles& mSpill;
    std::stop_token mStop;
    base::TemporaryFile mEntry;
    std::optional<SpillFiles::Position> mSpilled; // set once the sound has moved out of the cache
    uint64_t mWritten = 0; // bytes of this sound in the file, including the header
    std::vector<uint8_t> mBuffer; // the data that follows those bytes
};

} // namespace builder
