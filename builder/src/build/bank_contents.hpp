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

namespace tarnok {

// Why a bank couldn't be written.
struct ContentsError
{
    base::Error error;
    // The sound because of which it failed, if encoding that again may help: its data is missing by now, or is no
    // longer what it was in its source file.
    std::optional<size_t> staleSound;
};

// All sounds are compared with their checksums on their way into the bank. What output holds after a failure is of no
// use. Failed sounds become empty ones.
std::optional<ContentsError> writeContents(AtomicOutput& output, const BuildRequest& request,
                                           const SoundResults& results, const Cache& cache,
                                           const std::stop_token& stop);

} // namespace tarnok
