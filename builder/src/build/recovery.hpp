// Encodes again what got lost or was changed between its encoding and the writing of the bank.
#pragma once

#include "base/result.hpp"
#include "build/build_request.hpp"
#include "build/build_services.hpp"
#include "build/sound_results.hpp"
#include "build/sound_workers.hpp"

#include <cstddef>
#include <vector>

namespace tarnok {

// Somebody may empty the cache, or a part of it, or write to a source file whose samples go into the bank as they are.
// Where that happened once it may happen again, so such sounds are put into files of this build alone. The bank is then
// begun anew: a bank of the moment in which each file was last seen, as ever.
class Recovery
{
public:
    Recovery(const BuildRequest& request, const BuildServices& services, SoundWorkers& workers, SoundResults& results)
        : mRequest(request)
        , mServices(services)
        , mWorkers(workers)
        , mResults(results)
    { }

    // Encodes the sound `found` again, at which writing failed, and all others that are missing or changed by now.
    // Where that has not helped a few times, it encodes all that somebody else can remove or change. A sound that can
    // no longer be built fails like one that never could.
    base::Result<> encodeStale(size_t found);

private:
    std::vector<size_t> staleSounds(size_t found, bool all) const;
    bool isStale(size_t index, const EncodedLocation& location) const;

    const BuildRequest& mRequest;
    const BuildServices& mServices;
    SoundWorkers& mWorkers;
    SoundResults& mResults;
    int mAttempts = 0;
};

} // namespace tarnok
