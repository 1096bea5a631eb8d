// SPDX-License-Identifier: MIT
// Hooks for tests that interfere with a build at a certain moment. A test that only waits for the moment often misses
// it.
#pragma once

#include "tarnok.h"

#include <cstddef>

namespace builder {

// Both are called on the thread that has reached the moment. They are null except in tests, and may only be set while
// no build runs.

// Called after a state of a sound (-1: of the bank) was reported, before the work of that state begins.
inline void (*onReport)(int sound, TARNOK_STATE state) = nullptr;

// Called before a sound is copied into the bank.
inline void (*onCopy)(size_t sound) = nullptr;

} // namespace builder
