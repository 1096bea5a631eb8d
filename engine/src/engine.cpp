#include "kess.hpp"

extern "C" KESS_RESULT KESS_System_Create(KESS::System** system, unsigned int)
{
    *system = nullptr;
    return KESS_ERR_UNSUPPORTED;
}
