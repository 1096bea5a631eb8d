// SPDX-License-Identifier: MIT
// The reports of one build.
#pragma once

#include "base/result.hpp"
#include "build/progress_queue.hpp"
#include "tarnok.h"

#include <cstddef>

namespace builder {

// Posts reports if the library was initialised to deliver them. Safe to use from several threads.
class BuildReports
{
public:
    BuildReports(ProgressQueue& queue, bool isWanted)
        : mQueue(queue)
        , mIsWanted(isWanted)
    { }

    void sound(size_t index, unsigned worker, TARNOK_STATE state);
    void soundFailed(size_t index, unsigned worker, const base::Error& error);
    void bank(TARNOK_STATE state);
    void bankFailed(const base::Error& error);

private:
    ProgressQueue& mQueue;
    bool mIsWanted;
};

} // namespace builder
