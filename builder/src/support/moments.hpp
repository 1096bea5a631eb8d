// Moments of a build at which tests interfere. A test that only waits for such a moment often misses it.
#pragma once

#include "tarnok.h"

#include <cstddef>

namespace tarnok {

// Both are called on the thread that has reached the moment, and are null except in tests. They may only be set while
// no build runs.

// A state of a sound (or of the bank: -1) was reported, and the work that it announces begins next.
inline void (*onReport)(int sound, TARNOK_STATE state) = nullptr;

// A sound is read for the bank next.
inline void (*onCopy)(size_t sound) = nullptr;

} // namespace tarnok
