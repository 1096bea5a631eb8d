#include "tarnok.h"

extern "C" TARNOK_RESULT Tarnok_Release(void)
{
    return TARNOK_ERR_UNINITIALIZED;
}
