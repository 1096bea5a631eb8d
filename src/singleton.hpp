// SPDX-License-Identifier: MIT
// Access to global services.
#pragma once

namespace TARNOK {

// The one object of T in the process, created by the first call (safe on any thread) and destroyed with the statics, in
// reverse order of first use. Nothing else creates or deletes a T.
template <typename T>
class Singleton
{
public:
    static T* instance()
    {
        static T sInstance;
        return &sInstance;
    }
};

} // namespace TARNOK
