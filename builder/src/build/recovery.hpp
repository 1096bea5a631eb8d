// SPDX-License-Identifier: MIT
// Encodes sounds again that were lost or changed between their encoding and the writing of the bank.
#pragma once

#include "base/result.hpp"
#include "build/build_request.hpp"
#include "build/build_services.hpp"
#include "build/sound_results.hpp"
#include "build/sound_workers.hpp"

#include <cstddef>
#include <vector>

namespace builder {

// Encodes sounds again that were lost before the bank was written: somebody has removed their entries from the cache,
// or has written to a source file whose samples are copied into the bank. That may happen again, so these sounds are
// encoded into private files of this build. Writing the bank then starts again. As always, the bank contains each file
// as it was when it was last read.
class Recovery
{
public:
    Recovery(const BuildRequest& request, const BuildServices& services, SoundWorkers& workers, SoundResults& results)
        : mRequest(request)
        , mServices(services)
        , mWorkers(workers)
        , mResults(results)
    { }

    // Encodes the sound at which writing failed, and all others that are now missing or changed. After a few attempts
    // it encodes all sounds that somebody else can remove or change. A sound that can no longer be built fails as it
    // would have failed the first time.
    base::Result<> encodeStale(size_t failedSound);

private:
    std::vector<size_t> staleSounds(size_t failedSound, bool all) const;
    bool isStale(size_t index, const EncodedLocation& location) const;

    const BuildRequest& mRequest;
    const BuildServices& mServices;
    SoundWorkers& mWorkers;
    SoundResults& mResults;
    int mAttempts = 0;
};

} // namespace builder
