/* SPDX-License-Identifier: MIT */
/* An encoder module that does what it must not: whatever the environment variable MISDEED names. */
#include "tarnok_encoder.h"

#include <stdlib.h>
#include <string.h>

static uint32_t sampleRate(uint32_t rate)
{
    return rate;
}

static TARNOK_RESULT encode(const TARNOK_ENCODER_SOUND* sound, const TARNOK_ENCODER_HOST* host, uint32_t* preSkip)
{
    static const char data[65536];
    const char* const misdeed = getenv("MISDEED");
    const uint32_t bytes = (uint32_t)sound->sampleCount;
    if (strcmp(misdeed, "writes nothing") == 0)
        return TARNOK_OK;
    if (strcmp(misdeed, "never ends") == 0) {
        while (host->write(host->user, data, sizeof data) == TARNOK_OK) { }
        return TARNOK_OK;
    }
    if (strcmp(misdeed, "deaf to errors") == 0) {
        host->seek(host->user, INT64_MAX);
        return host->write(host->user, data, bytes) == TARNOK_OK ? TARNOK_OK : 12345;
    }
    if (strcmp(misdeed, "reads far away") == 0)
        host->read(host->user, (float*)0, UINT32_MAX);
    if (strcmp(misdeed, "stores two setups") == 0) {
        host->setup(host->user, data, 10);
        host->setup(host->user, data, 10);
    }
    if (strcmp(misdeed, "drops more than exists") == 0)
        *preSkip = UINT32_MAX;
    host->write(host->user, data, bytes);
    if (strcmp(misdeed, "points past the data") == 0)
        host->seekPoint(host->user, 1);
    return strcmp(misdeed, "cancels by itself") == 0 ? TARNOK_ERR_CANCELLED : TARNOK_OK;
}

__attribute__((visibility("default"))) const TARNOK_ENCODER_MODULE* Tarnok_EncoderModule(void)
{
    static const TARNOK_ENCODER_MODULE module = {
        TARNOK_ENCODER_INTERFACE, TARNOK_FORMAT_XMA, "misbehaving", 8, sampleRate, encode};
    return &module;
}
