// SPDX-License-Identifier: MIT
// The words for formats and build flags in files, switches and panels.
#pragma once

#include "kess.h"
#include "tarnok.h"

#include <QString>

namespace TARNOK {

// How many formats there are; their numbers count from 0.
constexpr int FORMAT_COUNT = 6;

// How a format uses its quality setting.
enum FormatType
{
    FORMAT_TYPE_BITRATE = 0, // through a bitrate editor
    FORMAT_TYPE_NONE = 1, // not at all
    FORMAT_TYPE_QUALITY = 2, // on the scale of 0 to 100
};

// All of these abort on a value outside their tables, except for stringToFormat with ok and findBuildFlag.

const char* fileFormatToString(KESS_SOUND_FORMAT format);
const char* formatToString(TARNOK_FORMAT format);

// Ignores case. An unknown word aborts if ok is null, otherwise sets *ok to false.
TARNOK_FORMAT stringToFormat(const QString& text, bool* ok);

int getFormatType(TARNOK_FORMAT format);

// Case-sensitive. findBuildFlag returns 0 for an unknown word.
unsigned int stringToBuildFlag(const QString& text);
unsigned int findBuildFlag(const QString& text);

// flag has exactly one bit set, one that has a word.
const char* buildFlagToString(unsigned int flag);

} // namespace TARNOK
