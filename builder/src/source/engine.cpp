// SPDX-License-Identifier: MIT
#include "source/engine.hpp"

#include <string>

namespace builder {

base::Result<KessSystem> startEngine()
{
    KESS::System* system = nullptr;
    KESS_RESULT result = KESS_System_Create(&system, KESS_VERSION);
    KessSystem engine(system);
    if (result == KESS_OK)
        result = engine->setOutput(KESS_OUTPUTTYPE_NOSOUND_NRT);
    if (result == KESS_OK)
        result = engine->init(0, 0, nullptr);
    if (result != KESS_OK)
        return base::Error{base::ErrorCode::Engine,
                           std::string("the audio engine can't be started: ") + KESS_ErrorString(result)};
    return engine;
}

} // namespace builder
