// SPDX-License-Identifier: MIT
// Encodes the sounds of a build on several threads.
#pragma once

#include "base/result.hpp"
#include "build/build_reports.hpp"
#include "build/build_request.hpp"
#include "build/build_services.hpp"
#include "build/sound_builder.hpp"
#include "build/sound_results.hpp"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace builder {

class SoundWorkers
{
public:
    SoundWorkers(const BuildRequest& request, const BuildServices& services, BuildReports& reports,
                 SoundResults& results);

    // Prepares as many workers as memory allows, and loads the encoder module if the format needs one. If the module is
    // missing, every sound fails and is reported.
    base::Result<> start(unsigned maximumThreads);

    // Encodes these sounds or finds them in the cache, and reports each.
    void encode(std::span<const size_t> sounds);

    // Encodes sounds that were finished and then lost. Only failures are reported. The data is neither stored in the
    // cache nor left in the source file, so that nobody else can remove or change it.
    void encodeAgain(std::span<const size_t> sounds);

private:
    // A sound, and the worker that encodes it.
    struct Task
    {
        size_t index;
        unsigned worker;
        bool again;
    };

    void run(std::span<const size_t> sounds, bool again);
    void encodeSound(const Task& task) noexcept;
    base::Result<EncodedLocation> tryToEncode(const Task& task);
    void loadModule();
    void markUsedEntries();

    const BuildRequest& mRequest;
    const BuildServices& mServices;
    BuildReports& mReports;
    SoundResults& mResults;
    BuildSettings mSettings; // those of the request, with the loaded module
    std::optional<base::Error> mModuleError;
    std::vector<SoundBuilder> mBuilders; // one per worker
    std::atomic<int64_t> mMarkedAt; // when the entries in use were last marked, seconds
};

} // namespace builder
