// The one way to a global service.
#pragma once

namespace TARNOK {

// One object of T for the process, made at the first call (safe on any thread) and destroyed with the statics, in the
// reverse order of first use. Nobody else makes or deletes a T.
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
