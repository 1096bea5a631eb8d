// The audio engine, by which sources are decoded.
#pragma once

#include "base/result.hpp"
#include "kess.hpp"

#include <memory>

namespace tarnok {

struct KessRelease
{
    void operator()(KESS::System* system) const { system->release(); }
    void operator()(KESS::Sound* sound) const { sound->release(); }
};
using KessSystem = std::unique_ptr<KESS::System, KessRelease>;

// A silent engine. ErrorCode::Engine when it doesn't start.
base::Result<KessSystem> startEngine();

} // namespace tarnok
