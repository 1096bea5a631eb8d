// SPDX-License-Identifier: MIT
// The switches of the console tool. Their order here is the order of registration, and so that of lookup and help.
#include "build_system.hpp"
#include "command_line.hpp"
#include "console_remarks.hpp"
#include "utility_classes.hpp"
#include "utility_functions.hpp"
#include "workspace.hpp"

#include <QDir>

#include <cstdlib>

namespace TARNOK {

namespace {

constexpr bool PREPOPULATE = true;
constexpr bool POSTPOPULATE = false;
constexpr bool VISIBLE = false;
constexpr bool HIDDEN = true;

CommandLine* commandLine()
{
    return Singleton<CommandLine>::instance();
}

bool refuseValue(const QString& value)
{
    logger()->println(Logger::OUTPUT_ERROR, "ERROR: unexpected value '%s'", value.toUtf8().constData());
    return false;
}

// Logs what a switch has done; returns true, for the switch to return.
bool done(const char* line)
{
    logger()->println(Logger::OUTPUT_INFO, "%s", line);
    return true;
}

bool setBankFlag(SoundBank* bank, unsigned int flag, const char* line)
{
    bank->profile().setBuildFlag(flag, true);
    return done(line);
}

bool setLibraryFlag(unsigned int flag, const char* line)
{
    buildSystem()->setInitFlag(flag, true);
    return done(line);
}

// A switch without a value: Action has bool trigger(SoundBank*) const.
template <typename Action>
class TriggerAction : public AbstractAction
{
public:
    using AbstractAction::AbstractAction;

    bool execute(SoundBank* bank, const QString& value) const final
    {
        if (!value.isEmpty())
            return refuseValue(value);
        return static_cast<const Action*>(this)->trigger(bank);
    }

protected:
    ~TriggerAction() = default;
};

// A switch with a value, or with checks of its own; the body of execute follows.
#define VALUE_SWITCH(NAME, HELP, VISIBILITY, PHASE)                                                                    \
    class Action_##NAME final : public AbstractAction                                                                  \
    {                                                                                                                  \
    public:                                                                                                            \
        Action_##NAME()                                                                                                \
            : AbstractAction(#NAME, HELP, VISIBILITY)                                                                  \
        {                                                                                                              \
            registerCommand(this, PHASE);                                                                              \
        }                                                                                                              \
        bool execute(SoundBank* bank, const QString& value) const override;                                            \
    };                                                                                                                 \
    Action_##NAME NAME##instance;                                                                                      \
    bool Action_##NAME::execute([[maybe_unused]] SoundBank* bank, [[maybe_unused]] const QString& value) const

// A switch without a value; the body of trigger follows.
#define TRIGGER_SWITCH(NAME, HELP, VISIBILITY, PHASE)                                                                  \
    class Action_##NAME final : public TriggerAction<Action_##NAME>                                                    \
    {                                                                                                                  \
    public:                                                                                                            \
        Action_##NAME()                                                                                                \
            : TriggerAction(#NAME, HELP, VISIBILITY)                                                                   \
        {                                                                                                              \
            registerCommand(this, PHASE);                                                                              \
        }                                                                                                              \
        bool trigger(SoundBank* bank) const;                                                                           \
    };                                                                                                                 \
    Action_##NAME NAME##instance;                                                                                      \
    bool Action_##NAME::trigger([[maybe_unused]] SoundBank* bank) const

// A one-letter name for the switch above it, not shown by help.
#define ALIAS(LETTER, NAME)                                                                                            \
    struct Empty_##LETTER                                                                                              \
    {                                                                                                                  \
        Empty_##LETTER() { NAME##instance.addAlias(#LETTER); }                                                         \
    };                                                                                                                 \
    const Empty_##LETTER LETTER##alias

VALUE_SWITCH(format,
             "<format> Target format (default = pcm)\n"
             "                     Available formats :\n"
             "                     pcm|xma|at9|vorbis|kadpcm|opus",
             VISIBLE, POSTPOPULATE)
{
    bool ok = false;
    const TARNOK_FORMAT wanted = stringToFormat(value, &ok);
    if (!ok)
        return false;
    logger()->println(Logger::OUTPUT_INFO, "Format: %s", formatToString(wanted));
    bank->profile().setFormat(wanted);
    return true;
}
ALIAS(f, format);

VALUE_SWITCH(build_mode,
             "s|i|m Build mode\n"
             "                     s = Single TNB (default)\n"
             "                     i = Single Interleaved TNB\n"
             "                     m = Multiple TNBs",
             VISIBLE, PREPOPULATE)
{
    if (value == "i") {
        commandLine()->setInterleaved(true);
        return done("Interleaved");
    }
    if (value == "s") {
        commandLine()->setInterleaved(false);
        return done("Single");
    }
    if (value == "m") {
        commandLine()->setMultiple();
        return done("Mutiple");
    }
    return false;
}
ALIAS(m, build_mode);

VALUE_SWITCH(quality, "0...100 Compression quality (XMA/AT9/Vorbis) (default = 75)", VISIBLE, POSTPOPULATE)
{
    int wanted = 0;
    if (!convertToInt(value, MIN_QUALITY, MAX_QUALITY, &wanted))
        return false;
    logger()->println(Logger::OUTPUT_INFO, "Quality: %d", wanted);
    bank->profile().setQuality(wanted);
    return true;
}
ALIAS(q, quality);

VALUE_SWITCH(encryption_key, "[encryptionkey] Encryption key", VISIBLE, POSTPOPULATE)
{
    bank->setEncryptionKey(value);
    logger()->println(Logger::OUTPUT_INFO, "Encryption key set to: %s", value.toUtf8().constData());
    return true;
}
ALIAS(e, encryption_key);

TRIGGER_SWITCH(no_hf_filter, "XMA disable high frequency filtering (Xbox360 only)", VISIBLE, POSTPOPULATE)
{
    bank->profile().setBuildFlag(TARNOK_BUILD_FILTERHIGHFREQ, false);
    return done("XMA high frequency filtering disabled");
}
ALIAS(x, no_hf_filter);

TRIGGER_SWITCH(no_seek, "XMA disable seeking to save memory (Xbox360 only)", VISIBLE, POSTPOPULATE)
{
    return setBankFlag(bank, TARNOK_BUILD_DISABLESEEKING, "XMA seeking disabled");
}
ALIAS(s, no_seek);

TRIGGER_SWITCH(ignore_errors, "Ignore errors in compilation such as \"file not found\"", VISIBLE, PREPOPULATE)
{
    commandLine()->setIgnoreErrors();
    return setLibraryFlag(TARNOK_INIT_IGNORE_ERRORS, "Ignoring errors");
}
ALIAS(i, ignore_errors);

TRIGGER_SWITCH(no_loop, "Disable the automatic behaviour, which is to encode the file as if it was looping.", VISIBLE,
               POSTPOPULATE)
{
    return setBankFlag(bank, TARNOK_BUILD_DONTLOOP, "Looping disabled");
}
ALIAS(l, no_loop);

TRIGGER_SWITCH(generate_c_header, "Generate a C header code file containing subsound names and indices.", VISIBLE,
               POSTPOPULATE)
{
    return setLibraryFlag(TARNOK_INIT_CREATE_HEADER, "C Header generation enabled");
}
ALIAS(n, generate_c_header);

VALUE_SWITCH(profile, "Override settings with a specific profile", VISIBLE, POSTPOPULATE)
{
    commandLine()->protect(value);
    if (!workspace()->loadProfile(&bank->profile(), value)) {
        remarks()->add(QString("the profile '%1' is damaged, or holds something unknown").arg(value));
        return false;
    }
    logger()->println(Logger::OUTPUT_INFO, "Using profile: %s", value.toUtf8().constData());
    return true;
}

VALUE_SWITCH(thread_count, "Number of threads to use for concurrent subsound encoding", VISIBLE, POSTPOPULATE)
{
    int count = 0;
    if (!convertToInt(value, System::MIN_THREADS, System::MAX_THREADS, &count))
        return false;
    settings()->setValue(System::THREAD_COUNT, count);
    logger()->println(Logger::OUTPUT_INFO, "Thread count: %d", count);
    return true;
}

VALUE_SWITCH(cache_dir, "Use specified directory for cache files", VISIBLE, PREPOPULATE)
{
    QDir directory(value);
    const QString path = directory.absolutePath();
    if (value.isEmpty())
        return false;

    // The directory need not exist yet, but its parent must.
    if (!directory.cdUp() || !directory.exists())
        return false;
    settings()->setDir(System::CACHE_NAME, path);
    logger()->println(Logger::OUTPUT_INFO, "Using cache direcory: %s", path.toUtf8().constData());
    return true;
}

VALUE_SWITCH(verbosity, "0...5 Verbosity of logging", VISIBLE, PREPOPULATE)
{
    int level = 0;
    if (!convertToInt(value, Logger::OUTPUT_DEBUG, Logger::OUTPUT_SILENT, &level))
        return false;
    if (level == Logger::OUTPUT_SILENT)
        logger()->println(Logger::OUTPUT_NOTICE, "* * * debug verbosity * * *");
    logger()->setVerbosity(static_cast<Logger::OUTPUTPRIORITY>(Logger::OUTPUT_SILENT - level));
    return true;
}

TRIGGER_SWITCH(allow_tnb, "Allow TNBs to be used as source files", VISIBLE, PREPOPULATE)
{
    Singleton<SoundFileValidator>::instance()->setAllowTnbFiles(true);
    return done("Allowing TNB source files");
}

VALUE_SWITCH(help, "Display command line help", VISIBLE, PREPOPULATE)
{
    if (!value.isEmpty())
        return refuseValue(value);
    commandLine()->printHelp();
    logger()->ungag();
    std::exit(0);
}

TRIGGER_SWITCH(recursive, "Recursively scan subdirectories for files", VISIBLE, PREPOPULATE)
{
    commandLine()->setRecursive();
    return done("Recursive directory scan enabled");
}

TRIGGER_SWITCH(optimize_samplerate, "Optimize sample rate (default = off)", VISIBLE, POSTPOPULATE)
{
    return setBankFlag(bank, TARNOK_BUILD_OPTIMIZESAMPLERATE, "Samplerate optimization enabled");
}

TRIGGER_SWITCH(write_peak_volume, "Write peak volume (default = off)", VISIBLE, POSTPOPULATE)
{
    return setBankFlag(bank, TARNOK_BUILD_WRITEPEAKVOLUME, "Output the peak volume for each subsound");
}

TRIGGER_SWITCH(write_proj, "Write out a project file instead of building a soundbank file", VISIBLE, POSTPOPULATE)
{
    commandLine()->setWriteProject();
    return done("Writing out project instead of TNB");
}

TRIGGER_SWITCH(rebuild, "Don't load cache files, re-encode everything from scratch", VISIBLE, POSTPOPULATE)
{
    return setLibraryFlag(TARNOK_INIT_REBUILD, "Rebuild enabled");
}

TRIGGER_SWITCH(no_guid, "Disable GUID generation in TNB header.", VISIBLE, POSTPOPULATE)
{
    return setBankFlag(bank, TARNOK_BUILD_NOGUID, "GUID generation disabled");
}
ALIAS(g, no_guid);

// Switches of old scripts, which get a message of their own instead of an unknown switch.

VALUE_SWITCH(O, "", HIDDEN, PREPOPULATE)
{
    logger()->println(Logger::OUTPUT_ERROR, "ERROR: O is deprecated, use 'optimize_samplerate' instead");
    return false;
}

VALUE_SWITCH(r, "", HIDDEN, PREPOPULATE)
{
    logger()->println(Logger::OUTPUT_ERROR, "ERROR: r is deprecated");
    return false;
}

TRIGGER_SWITCH(d, "", HIDDEN, PREPOPULATE)
{
    logger()->println(Logger::OUTPUT_ERROR, "ERROR: d is deprecated");
    return false;
}

TRIGGER_SWITCH(h, "", HIDDEN, PREPOPULATE)
{
    logger()->println(Logger::OUTPUT_WARNING, "h is deprecated");
    return true;
}

VALUE_SWITCH(p, "", HIDDEN, PREPOPULATE)
{
    logger()->println(Logger::OUTPUT_WARNING, "p is deprecated");
    return false;
}

TRIGGER_SWITCH(z, "", HIDDEN, PREPOPULATE)
{
    logger()->println(Logger::OUTPUT_SILENT, "z is deprecated, use '-verbosity 0' instead");
    logger()->setVerbosity(Logger::OUTPUT_SILENT);
    return true;
}

#undef ALIAS
#undef TRIGGER_SWITCH
#undef VALUE_SWITCH

} // namespace

} // namespace TARNOK
