// SPDX-License-Identifier: MIT
#include "utility_functions.hpp"

#include <iterator>

namespace TARNOK {

namespace {

struct FormatEntry
{
    const char* text;
    FormatType type;
};

// Indexed by TARNOK_FORMAT.
constexpr FormatEntry FORMATS[] = {
    {"PCM", FORMAT_TYPE_NONE},       {"XMA", FORMAT_TYPE_QUALITY}, {"AT9", FORMAT_TYPE_QUALITY},
    {"Vorbis", FORMAT_TYPE_QUALITY}, {"KADPCM", FORMAT_TYPE_NONE}, {"Opus", FORMAT_TYPE_QUALITY},
};
static_assert(std::size(FORMATS) == FORMAT_COUNT);

// Indexed by KESS_SOUND_FORMAT.
constexpr const char* FILE_FORMATS[] = {
    "none", "8-bit PCM", "16-bit PCM", "24-bit PCM", "32-bit PCM", "float PCM", "bitstream",
};

struct BuildFlagEntry
{
    const char* text;
    unsigned int flag;
};

constexpr BuildFlagEntry BUILD_FLAGS[] = {
    {"disable_syncpoints", TARNOK_BUILD_DISABLESYNCPOINTS},
    {"optimize_samplerate", TARNOK_BUILD_OPTIMIZESAMPLERATE},
    {"dont_loop", TARNOK_BUILD_DONTLOOP},
    {"xma_filter_high_freq", TARNOK_BUILD_FILTERHIGHFREQ},
    {"xma_disable_seeking", TARNOK_BUILD_DISABLESEEKING},
    {"tnb5_dont_write_names", TARNOK_BUILD_TNB5_DONTWRITENAMES},
    {"write_peak_volume", TARNOK_BUILD_WRITEPEAKVOLUME},
};

const FormatEntry& formatEntry(TARNOK_FORMAT format)
{
    Q_ASSERT(static_cast<quint32>(format) < std::size(FORMATS));
    return FORMATS[format];
}

} // namespace

const char* fileFormatToString(KESS_SOUND_FORMAT format)
{
    Q_ASSERT(static_cast<quint32>(format) < std::size(FILE_FORMATS));
    return FILE_FORMATS[format];
}

const char* formatToString(TARNOK_FORMAT format)
{
    return formatEntry(format).text;
}

TARNOK_FORMAT stringToFormat(const QString& text, bool* ok)
{
    if (ok)
        *ok = true;
    for (size_t format = 0; format < std::size(FORMATS); ++format) {
        if (text.compare(QLatin1String(FORMATS[format].text), Qt::CaseInsensitive) == 0)
            return static_cast<TARNOK_FORMAT>(format);
    }
    Q_ASSERT(ok);
    *ok = false;
    return TARNOK_FORMAT_PCM;
}

int getFormatType(TARNOK_FORMAT format)
{
    return formatEntry(format).type;
}

unsigned int findBuildFlag(const QString& text)
{
    for (const BuildFlagEntry& entry : BUILD_FLAGS) {
        if (text == QLatin1String(entry.text))
            return entry.flag;
    }
    return 0;
}

unsigned int stringToBuildFlag(const QString& text)
{
    const unsigned int flag = findBuildFlag(text);
    Q_ASSERT(flag != 0 && "unknown build flag word");
    return flag;
}

const char* buildFlagToString(unsigned int flag)
{
    for (const BuildFlagEntry& entry : BUILD_FLAGS) {
        if (entry.flag == flag)
            return entry.text;
    }
    Q_ASSERT(!"no single build flag with a word");
    return nullptr;
}

} // namespace TARNOK
