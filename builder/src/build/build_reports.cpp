// SPDX-License-Identifier: MIT
#include "build/build_reports.hpp"

#include "build/result_code.hpp"

namespace builder {

void BuildReports::sound(size_t index, unsigned worker, TARNOK_STATE state)
{
    if (mIsWanted)
        mQueue.post(int(index), int(worker), state);
}

void BuildReports::soundFailed(size_t index, unsigned worker, const base::Error& error)
{
    if (mIsWanted)
        mQueue.post(int(index), int(worker), TARNOK_STATE_FAILED, resultCode(error.code), error.text);
}

void BuildReports::bank(TARNOK_STATE state)
{
    if (mIsWanted)
        mQueue.post(-1, -1, state);
}

void BuildReports::bankFailed(const base::Error& error)
{
    if (mIsWanted)
        mQueue.post(-1, -1, TARNOK_STATE_FAILED, resultCode(error.code), error.text);
}

} // namespace builder
