// SPDX-License-Identifier: MIT
#include "build/library_state.hpp"

#include <cstddef>
#include <new>

namespace builder {

// Never destroyed. At the end of a process, static objects of the program may release the library after our static
// objects would have been destroyed, and a thread may still be returning from Tarnok_Build.
Library& library()
{
    alignas(Library) static std::byte storage[sizeof(Library)];
    static Library* const library = new (storage) Library;
    return *library;
}

std::unique_ptr<RunningBuild> RunningBuild::begin(TARNOK_RESULT* result)
{
    Library& state = library();
    const std::lock_guard lock(state.mutex);
    if (!state.session || state.session->building) {
        *result = state.session ? TARNOK_ERR_INITIALIZED : TARNOK_ERR_UNINITIALIZED;
        return nullptr;
    }
    std::stop_source stop;
    std::unique_ptr<RunningBuild> running(new RunningBuild(state.session));
    state.session->stop = stop;
    state.session->building = true;
    state.queue.beginBuild();
    state.remarks.beginBuild();
    return running;
}

RunningBuild::~RunningBuild()
{
    library().queue.endBuild(stop());
    const std::lock_guard lock(library().mutex);
    mSession->building = false;
    mSession->buildEnded.notify_all();
}

} // namespace builder
