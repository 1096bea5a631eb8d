// SPDX-License-Identifier: MIT
// Writes the encoded sounds of a build into its bank.
#pragma once

#include "base/result.hpp"
#include "build/atomic_output.hpp"
#include "build/build_request.hpp"
#include "build/sound_results.hpp"
#include "cache/cache.hpp"

#include <cstddef>
#include <optional>
#include <stop_token>

namespace builder {

// The reason why a bank couldn't be written.
struct ContentsError
{
    base::Error error;
    // The sound that caused the failure, if encoding it again may help: its data is missing now, or has changed in its
    // source file.
    std::optional<size_t> staleSound;
};

// Compares all sounds with their checksums while writing. Failed sounds become empty ones. After a failure the contents
// of output are unusable.
std::optional<ContentsError> writeContents(AtomicOutput& output, const BuildRequest& request,
                                           const SoundResults& results, const Cache& cache,
                                           const std::stop_token& stop);

} // namespace builder
