// SPDX-License-Identifier: MIT
// The boundary between the engine and its callers: no exception leaves a call, errors become numbers, and the last
// error of each thread is kept for KESS_SystemError and KESS_ErrorDetail.
#pragma once

#include "kess.h"

#include "base/result.hpp"

#include <string_view>
#include <utility>

namespace engine {

// Forgets the error of the thread's previous call.
void beginCall() noexcept;

// Keeps error as that of the thread's current call, and returns its number.
KESS_RESULT fail(base::Error error) noexcept;

// Keeps a system error that didn't make the call fail.
void note(base::Error error) noexcept;

// KESS_OK, or what fail() returns.
[[nodiscard]] inline KESS_RESULT finish(base::Result<> result) noexcept
{
    return result ? KESS_OK : fail(std::move(result.error()));
}

// Runs a call from outside. Throws nothing: running out of memory is KESS_ERR_MEMORY.
template <typename Call>
KESS_RESULT guarded(Call call) noexcept
{
    beginCall();
    try {
        return call();
    } catch (...) {
        // Lengths in files are checked before memory is allocated. So the machine is out of memory.
        return fail(base::outOfMemory());
    }
}

// Copies as many whole characters as fit, and a NUL. KESS_ERR_TRUNCATED: not all of text fits. A null buffer is
// ignored.
KESS_RESULT copyText(std::string_view text, char* buffer, int bufferBytes) noexcept;

} // namespace engine
