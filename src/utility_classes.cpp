// SPDX-License-Identifier: MIT
#include "utility_classes.hpp"

#include "console_remarks.hpp"
#include "logger.hpp"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include <sys/stat.h>

// Not every engine has these functions.
#pragma weak KESS_SystemError
#pragma weak KESS_ErrorDetail

namespace TARNOK {

namespace {

constexpr const char* RECENT_ARRAY = "RECENT_PROJECTS";
constexpr const char* RECENT_KEY = "PATH";

// Texts of the engine's results from ENGINE_TEXT_FIRST on.
constexpr int ENGINE_TEXT_FIRST = 13;
constexpr const char* ENGINE_TEXTS[] = {
    "Error loading file.",
    "Couldn't perform seek operation.  This is a limitation of the medium (ie netstreams) or the file format.",
    "Media was ejected while reading.",
    "End of file unexpectedly reached while trying to read essential data (truncated?).",
    "End of current chunk reached while trying to read data.",
    "File not found.",
    "Unsupported file or audio format.",
    // NOLINTNEXTLINE(bugprone-suspicious-missing-comma): one text on two lines
    "There is a version mismatch between the KESS header and either the KESS Studio library or the KESS Low Level "
    "library.",
    "A HTTP error occurred. This is a catch-all for HTTP errors not listed elsewhere.",
    "The specified resource requires authentication or is forbidden.",
    "Proxy authentication is required to access the specified resource.",
    "A HTTP server error occurred.",
    "The HTTP request timed out.",
    "KESS was not initialized correctly to support this function.",
    "Cannot call this command after System::init.",
    "An error occured in the KESS system. Use the logging version of KESS for more information.",
    "Value passed in was a NaN, Inf or denormalized float.",
    "An invalid object handle was used.",
    "An invalid parameter was passed to this function.",
    "An invalid seek position was passed to this function.",
    "An invalid speaker was passed to this function based on the current speaker mode.",
    "The syncpoint did not come from this sound handle.",
    "Tried to call a function on a thread that is not supported.",
    "The vectors passed in are not unit length, or perpendicular.",
    "Reached maximum audible playback count for this sound's soundgroup.",
    "Not enough memory or resources.",
    "Can't use KESS_OPENMEMORY_POINT on non PCM source data, or non mp3/xma/adpcm data if KESS_CREATECOMPRESSEDSAMPLE "
    "was used.",
    "Tried to call a command on a 2d sound when the command was meant for 3d sound.",
    "Tried to use a feature that requires hardware support.",
    "Couldn't connect to the specified host.",
    "A socket error occurred.  This is a catch-all for socket-related errors not listed elsewhere.",
    "The specified URL couldn't be resolved.",
    "Operation on a non-blocking socket could not complete immediately.",
    "Operation could not be performed because specified sound/DSP connection is not ready.",
    "Error initializing output device, but more specifically, the output device is already in use and cannot be "
    "reused.",
    "Error creating hardware sound buffer.",
    "A call to a standard soundcard driver failed, which could possibly mean a bug in the driver or resources were "
    "missing or exhausted.",
    "Soundcard does not support the specified format.",
    "Error initializing output device.",
    "The output device has no drivers installed.  If pre-init, KESS_OUTPUT_NOSOUND is selected as the output mode.  If "
    "post-init, the function just fails.",
    "An unspecified error has been returned from a plugin.",
    "A requested output, dsp unit type or codec was not available.",
    "A resource that the plugin requires cannot be allocated or found. (ie the DLS file for MIDI playback)",
    "A plugin was built with an unsupported SDK version.",
    "An error occurred trying to initialize the recording device.",
    "Reverb properties cannot be set on this channel because a parent channelgroup owns the reverb connection.",
    "Specified instance in KESS_REVERB_PROPERTIES couldn't be set. Most likely because it is an invalid instance "
    "number or the reverb doesn't exist.",
    "The error occurred because the sound referenced contains subsounds when it shouldn't have, or it doesn't contain "
    "subsounds when it should have.  The operation may also not be able to be performed on a parent sound.",
    "This subsound is already being used by another sound, you cannot have more than one parent to a sound.  Null out "
    "the other parent's entry first.",
    "Shared subsounds cannot be replaced or moved from their parent stream, such as when the parent stream is an TNB "
    "file.",
    "The specified tag could not be found or there are no tags.",
    "The sound created exceeds the allowable input channel count.  This can be increased using the 'maxinputchannels' "
    "parameter in System::setSoftwareFormat.",
    "The retrieved string is too long to fit in the supplied buffer and has been truncated.",
    "Something in KESS hasn't been implemented when it should be. Contact support.",
    "This command failed because System::init or System::setDriver was not called.",
    "A command issued was not supported by this object.  Possibly a plugin without certain callbacks specified.",
    "The version number of this file format is not supported.",
};
static_assert(std::size(ENGINE_TEXTS) == 69 - ENGINE_TEXT_FIRST + 1);

const char* engineText(KESS_RESULT result)
{
    const int index = static_cast<int>(result) - ENGINE_TEXT_FIRST;
    return 0 <= index && index < static_cast<int>(std::size(ENGINE_TEXTS)) ? ENGINE_TEXTS[index] : "Unknown error.";
}

struct SuffixHint
{
    const char* suffix;
    KESS_SOUND_TYPE type;
};

constexpr SuffixHint SUFFIX_HINTS[] = {
    {"wav", KESS_SOUND_TYPE_WAV},   {"aiff", KESS_SOUND_TYPE_AIFF}, {"aif", KESS_SOUND_TYPE_AIFF},
    {"aifc", KESS_SOUND_TYPE_AIFF}, {"flac", KESS_SOUND_TYPE_FLAC}, {"ogg", KESS_SOUND_TYPE_OGG},
    {"spx", KESS_SOUND_TYPE_OGG},   {"mp2", KESS_SOUND_TYPE_MPEG},  {"mp3", KESS_SOUND_TYPE_MPEG},
    {"wma", KESS_SOUND_TYPE_ASF},   {"asf", KESS_SOUND_TYPE_ASF},   {"wmv", KESS_SOUND_TYPE_ASF},
    {"tnb", KESS_SOUND_TYPE_TNB},
};

// Further extensions, in lowercase.
constexpr const char* OTHER_SOUND_SUFFIXES[] = {"w64", "rf64", "bwf", "oga", "opus", "mp1",
                                                "m4a", "aac",  "caf", "au",  "snd",  "voc"};

// What the engine adds about a file that it didn't find, such as one whose name differs only in case.
QString hintAtMissingFile()
{
    char text[1024] = "";
    if (KESS_ErrorDetail)
        KESS_ErrorDetail(text, sizeof text);
    return text[0] ? QString("; ") + QString::fromUtf8(text) : QString();
}

// Why the system can't read a file that the engine refused in its last call; empty if it can be read.
QString accessFault(const QString& path)
{
    struct stat status;
    if (path.isEmpty())
        return "no such file";
    if (stat(QFile::encodeName(path).constData(), &status) != 0)
        return errno == ENOENT ? "no such file" + hintAtMissingFile() : qt_error_string(errno);
    if (!S_ISREG(status.st_mode))
        return S_ISDIR(status.st_mode) ? "it is a folder" : "it is a device or pipe, not a file";
    QFile file(path);
    if (file.open(QIODevice::ReadOnly))
        return QString();
    return file.error() == QFileDevice::PermissionsError || errno == EACCES ? "no permission" : file.errorString();
}

QString folderFault(const QString& path)
{
    struct stat status;
    if (stat(QFile::encodeName(path).constData(), &status) != 0)
        return errno == ENOENT ? "no such folder" : qt_error_string(errno);
    return "it is not a folder";
}

// Whether the engine ran out of memory.
bool isOutOfMemory()
{
    return KESS_SystemError && KESS_SystemError() == ENOMEM;
}

QString contentFault(KESS_RESULT result)
{
    if (result == KESS_ERR_FILE_BAD && isOutOfMemory())
        return "out of memory";
    switch (result) {
    case KESS_ERR_FORMAT:
        return "not a sound of a known kind";
    case KESS_ERR_TOOMANYCHANNELS:
        return QString("more than %1 channels").arg(KESS_MAX_CHANNELS);
    case KESS_ERR_VERSION:
        return "of a newer version";
    default:
        return "damaged or empty";
    }
}

QString directoryKey(const QString& name)
{
    return QString("Directories/%0").arg(name);
}

QString valueKey(const QString& name)
{
    return QString("Settings/%0").arg(name);
}

} // namespace

SoundFileValidator::SoundFileValidator()
{
    // The version that introduced the calls made here. Every engine accepts it.
    constexpr unsigned int HEADER_VERSION = 0x00020308;
    KESS_RESULT result = KESS_System_Create(&mSystem, HEADER_VERSION);
    Q_ASSERT(result == KESS_OK);
    result = mSystem->setOutput(KESS_OUTPUTTYPE_NOSOUND_NRT);
    Q_ASSERT(result == KESS_OK);
    result = mSystem->init(0, 0, nullptr);
    Q_ASSERT(result == KESS_OK);
}

SoundFileValidator::~SoundFileValidator()
{
    const KESS_RESULT result = mSystem->release();
    Q_ASSERT(result == KESS_OK);
}

bool SoundFileValidator::isValid(const QString& path, int* sampleRate, int* channelCount, int* length_ms,
                                 KESS_SOUND_FORMAT* format)
{
    mFault.clear();
    KESS::Sound* sound = path.isEmpty() ? nullptr : open(path);
    if (!sound) {
        if (const QString fault = accessFault(path); !fault.isEmpty())
            mFault = fault;
        return false;
    }

    KESS_SOUND_TYPE type = KESS_SOUND_TYPE_UNKNOWN;
    KESS_RESULT result = sound->getFormat(&type, format, channelCount, nullptr);
    Q_ASSERT(result == KESS_OK);
    float frequency = 0;
    result = sound->getDefaults(&frequency, nullptr);
    Q_ASSERT(result == KESS_OK);
    unsigned int length = 0;
    result = sound->getLength(&length, KESS_TIMEUNIT_MS);
    Q_ASSERT(result == KESS_OK);
    result = sound->release();
    Q_ASSERT(result == KESS_OK);

    if (!isAccepted(type)) {
        logger()->println(Logger::OUTPUT_INFO, "unsupported format");
        mFault = type == KESS_SOUND_TYPE_TNB ? "a bank, which only -allow_tnb takes" : "it holds no sound of its own";
        return false;
    }
    if (sampleRate)
        *sampleRate = static_cast<int>(frequency);
    if (length_ms)
        *length_ms = static_cast<int>(length);
    return true;
}

KESS_RESULT SoundFileValidator::tryOpen(const QString& path, KESS_SOUND_TYPE hint, KESS::Sound** sound)
{
    constexpr unsigned int MODE = KESS_MODE_CREATESTREAM | KESS_MODE_OPENONLY | KESS_MODE_LOWMEM;
    static_assert(MODE == 0x8002080);

    KESS_CREATESOUNDEXINFO info = {};
    info.cbsize = sizeof info;
    info.suggestedsoundtype = hint;

    const QByteArray name = path.toUtf8();
    const KESS_RESULT result = mSystem->createSound(name.constData(), MODE, &info, sound);
    return result == KESS_ERR_FORMAT ? mSystem->createSound(name.constData(), MODE, nullptr, sound) : result;
}

KESS::Sound* SoundFileValidator::open(const QString& path)
{
    KESS::Sound* sound = nullptr;
    const KESS_RESULT result = tryOpen(path, getTypeFromFileExtension(path), &sound);
    switch (result) {
    case KESS_OK:
        return sound;
    case KESS_ERR_FILE_BAD:
    case KESS_ERR_FILE_COULDNOTSEEK:
    case KESS_ERR_FILE_NOTFOUND:
    case KESS_ERR_FORMAT:
    case KESS_ERR_TOOMANYCHANNELS:
    case KESS_ERR_VERSION:
        logger()->println(Logger::OUTPUT_DEBUG, "(%d) %s", result, engineText(result));
        mFault = contentFault(result);
        return nullptr;
    default:
        Q_ASSERT(!"a result of the engine that no file can cause");
        return nullptr;
    }
}

bool SoundFileValidator::isSound(const QString& path)
{
    KESS::Sound* sound = nullptr;
    if (tryOpen(path, KESS_SOUND_TYPE_UNKNOWN, &sound) != KESS_OK)
        return isOutOfMemory();
    KESS_SOUND_TYPE type = KESS_SOUND_TYPE_UNKNOWN;
    KESS_RESULT result = sound->getFormat(&type, nullptr, nullptr, nullptr);
    Q_ASSERT(result == KESS_OK);
    result = sound->release();
    Q_ASSERT(result == KESS_OK);
    return type != KESS_SOUND_TYPE_TNB;
}

bool SoundFileValidator::hasSoundExtension(const QString& path) const
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    const KESS_SOUND_TYPE type = getTypeFromFileExtension(path.toLower());
    if (type != KESS_SOUND_TYPE_UNKNOWN)
        return type != KESS_SOUND_TYPE_TNB || mAllowTnbFiles;
    return std::any_of(std::begin(OTHER_SOUND_SUFFIXES), std::end(OTHER_SOUND_SUFFIXES),
                       [&suffix](const char* other) { return suffix == QLatin1String(other); });
}

bool SoundFileValidator::isAccepted(KESS_SOUND_TYPE type) const
{
    switch (type) {
    // Instruments, notes and playlists contain no plain sample data.
    case KESS_SOUND_TYPE_DLS:
    case KESS_SOUND_TYPE_IT:
    case KESS_SOUND_TYPE_MIDI:
    case KESS_SOUND_TYPE_MOD:
    case KESS_SOUND_TYPE_PLAYLIST:
    case KESS_SOUND_TYPE_S3M:
    case KESS_SOUND_TYPE_XM:
        return false;
    case KESS_SOUND_TYPE_TNB:
        return mAllowTnbFiles;
    default:
        return true;
    }
}

KESS_SOUND_TYPE getTypeFromFileExtension(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix();
    for (const SuffixHint& hint : SUFFIX_HINTS) {
        if (suffix == QLatin1String(hint.suffix))
            return hint.type;
    }
    return KESS_SOUND_TYPE_UNKNOWN;
}

QString System::getDir(const char* name)
{
    const auto entry = mDirectories.constFind(name);
    if (entry != mDirectories.constEnd())
        return *entry;
    return QSettings(COMPANY_NAME, APP_NAME).value(directoryKey(name), QString()).toString();
}

void System::setDir(const char* name, const QString& directory)
{
    // A directory that no longer exists stays in the table unchanged; getOutputDir() replaces it when it is called.
    mDirectories[name] = directory;
}

QString System::getOutputDir(const char* name)
{
    QString path = getDir(name);
    if (!path.isEmpty() && QDir(path).exists())
        return path;

    QDir directory(QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation));
    directory.mkdir(APP_NAME);
    directory.cd(APP_NAME);
    directory.mkpath(name);
    directory.cd(name);
    setDir(name, directory.path());
    if (!path.isEmpty() && path != directory.path())
        mReplaced[directory.path()] = QString("%1 folder '%2' can't be used: %3; '%4' is used instead")
                                          .arg(name, path, folderFault(path), directory.path());
    return directory.path();
}

int System::getValue(const char* name)
{
    const auto entry = mValues.constFind(name);
    if (entry != mValues.constEnd())
        return *entry;

    bool ok = false;
    const int value = QSettings(COMPANY_NAME, APP_NAME).value(valueKey(name), QString()).toInt(&ok);
    return ok ? value : getDefaultValue(name);
}

void System::setValue(const char* name, int value)
{
    mValues[name] = value;
}

int System::getDefaultValue(const char* name)
{
    if (qstrcmp(name, THREAD_COUNT) == 0)
        return DEFAULT_THREADS;
    if (qstrcmp(name, GENERATE_CODE_HEADER) == 0)
        return 0;
    Q_ASSERT(false);
    return 0;
}

QStringList System::recentProjects()
{
    QSettings store(COMPANY_NAME, APP_NAME);
    QStringList paths;
    const int size = store.beginReadArray(RECENT_ARRAY);
    for (int i = 0; i < size; ++i) {
        store.setArrayIndex(i);
        paths.append(store.value(RECENT_KEY).toString());
    }
    store.endArray();
    return paths;
}

void System::rememberProject(const QString& path)
{
    QStringList paths = recentProjects();
    const auto found = paths.indexOf(path);
    if (found >= 0)
        paths.move(found, 0);
    else
        paths.prepend(path);

    QSettings store(COMPANY_NAME, APP_NAME);
    store.beginWriteArray(RECENT_ARRAY);
    for (int i = 0; i < paths.size(); ++i) {
        store.setArrayIndex(i);
        store.setValue(RECENT_KEY, paths.at(i));
    }
    store.endArray();
}

void System::finalizeSettings() const
{
    finalizeDirectories();
    finalizeValues();
}

void System::finalizeDirectories() const
{
    QSettings settings(COMPANY_NAME, APP_NAME);
    for (auto entry = mDirectories.constBegin(); entry != mDirectories.constEnd(); ++entry)
        settings.setValue(directoryKey(entry.key()), entry.value());
}

void System::finalizeValues() const
{
    QSettings settings(COMPANY_NAME, APP_NAME);
    for (auto entry = mValues.constBegin(); entry != mValues.constEnd(); ++entry)
        settings.setValue(valueKey(entry.key()), entry.value());
}

} // namespace TARNOK
