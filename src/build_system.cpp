// SPDX-License-Identifier: MIT
#include "build_system.hpp"

#include "console_remarks.hpp"
#include "logger.hpp"
#include "sound_bank.hpp"
#include "utility_classes.hpp"

#include <QDir>

#include <algorithm>
#include <iterator>
#include <memory>

// Some versions of the builder library don't have this function.
#pragma weak Tarnok_FetchNextRemark

namespace TARNOK {

namespace {

constexpr unsigned int REMARK_BYTES = 4096;

// Texts of the builder's results from 1 on.
constexpr const char* RESULT_TEXTS[] = {
    "An expected chunk is missing from the cache, perhaps try deleting cache files.",
    "The build process was cancelled during compilation by the user.",
    "The build process cannot continue due to previously ignored errors.",
    "Encoder for chosen format has encountered an unexpected error.",
    "Encoder initialization failed.",
    "Encoder for chosen format is not supported on this platform.",
    "An operating system based file error was encountered.",
    "A specified file could not be found.",
    "Internal error from KESS sub-system.",
    "Already initialized.",
    "The format of the source file is invalid.",
    "An invalid parameter has been passed to this function.",
    "Run out of memory.",
    "Not initialized yet.",
    "Chosen encode format is not supported by this TNB version.",
    "Source file is too short for seamless looping. Looping disabled.",
    "TARNOK_BUILD_FILTERHIGHFREQ flag ignored: feature only supported by XMA format.",
    "TARNOK_BUILD_DISABLESEEKING flag ignored: feature only supported by XMA format.",
    "TARNOK_BUILD_TNB5_DONTWRITENAMES flag forced: cannot write names when source is from memory.",
    "External encoder dynamic library not found.",
    ("External encoder dynamic library could not be loaded, possibly incorrect binary format, incorrect architecture, "
     "or file corruption."),
    "TARNOK_BUILD_ALIGN4K flag ignored: feature only supported by Opus, Vorbis, and KADPCM formats.",
};
static_assert(std::size(RESULT_TEXTS) == TARNOK_WARN_IGNORED_ALIGN4K);

const char* resultText(TARNOK_RESULT result)
{
    const auto value = static_cast<quint32>(result);
    return 1 <= value && value <= std::size(RESULT_TEXTS) ? RESULT_TEXTS[value - 1] : "Unknown error.";
}

constexpr const char* STATE_WORDS[] = {
    "decoding", "analysing", "preprocessing", "encoding", "writing", "finished", "failed",
};

// The progress of a sound that is in this state, from 0 to 1.
float shareOfState(TARNOK_STATE state)
{
    return std::min(1.0f, static_cast<float>(state) / static_cast<float>(TARNOK_STATE_FINISHED));
}

const char* failureText(const TARNOK_PROGRESSITEM* item)
{
    return static_cast<const TARNOK_STATE_DATA_FAILED*>(item->stateData)->errorString;
}

// Releases a report at the end of a scope, unless it was kept.
class ItemCleanup
{
public:
    explicit ItemCleanup(const TARNOK_PROGRESSITEM* item)
        : mItem(item)
    { }

    ~ItemCleanup()
    {
        if (mItem)
            Tarnok_ReleaseProgressItem(mItem);
    }

    ItemCleanup(const ItemCleanup&) = delete;
    ItemCleanup& operator=(const ItemCleanup&) = delete;

    void keep() { mItem = nullptr; }

private:
    const TARNOK_PROGRESSITEM* mItem;
};

} // namespace

void ProgressMonitor::prepare(int numSubsounds)
{
    mCompleted.clear();
    for (const TARNOK_PROGRESSITEM* item : std::as_const(mInProgress))
        Tarnok_ReleaseProgressItem(item);
    mInProgress.clear();
    mPending.clear();
    mWriting = false;
    mNumSubsounds = numSubsounds;
    for (int index = 0; index < numSubsounds; ++index)
        mPending.append(index);
}

void ProgressMonitor::updateInternal(const BuildContext* context)
{
    const Logger::Batch batch(logger());
    const TARNOK_PROGRESSITEM* item = nullptr;
    Tarnok_FetchNextProgressItem(&item);
    while (item) {
        processProgressItem(item, context);
        Tarnok_FetchNextProgressItem(&item);
    }

    char remark[REMARK_BYTES] = "";
    while (Tarnok_FetchNextRemark && Tarnok_FetchNextRemark(remark, sizeof remark) == TARNOK_OK && remark[0] != '\0')
        remarks()->addOnce(QString::fromUtf8(remark));
}

void ProgressMonitor::processProgressItem(const TARNOK_PROGRESSITEM* item, const BuildContext* context)
{
    ItemCleanup cleanup(item);
    if (mObserver)
        mObserver->reported(*item);
    const int index = item->subSoundIndex;
    if (index == -1) {
        processBankItem(item);
        return;
    }

    const bool wasPending = mPending.removeAll(index) > 0;
    if (const TARNOK_PROGRESSITEM* superseded = mInProgress.take(item->threadId))
        Tarnok_ReleaseProgressItem(superseded);
    // A finished sound that reports again counts as unfinished.
    if (item->state != TARNOK_STATE_FAILED)
        mCompleted.removeAll(index);

    const BuildContext::LibSubsound* subsound = context->subsound(static_cast<unsigned int>(index));
    const auto logFirstSight = [&](const char* word) {
        if (wasPending)
            logger()->println(Logger::OUTPUT_NOTICE, "%d: (%s) [%s]", index,
                              getFileNameStrings(subsound).toUtf8().constData(), word);
    };

    switch (item->state) {
    case TARNOK_STATE_FINISHED:
        mCompleted.append(index);
        logFirstSight("cached");
        break;
    case TARNOK_STATE_FAILED:
        mCompleted.append(index);
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: Subsound %d (%ls) failed: %s", index,
                          getFileNameStrings(subsound).toStdWString().c_str(), failureText(item));
        remarks()->addFailedSound(pathsOf(subsound), failureText(item));
        break;
    default:
        mInProgress.insert(item->threadId, item);
        cleanup.keep();
        logFirstSight("processing");
        break;
    }
}

void ProgressMonitor::processBankItem(const TARNOK_PROGRESSITEM* item)
{
    if (item->state == TARNOK_STATE_FAILED) {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: Soundbank failed: %s", failureText(item));
        remarks()->add(QString::fromUtf8(failureText(item)).replace("\n  ", "; ")); // failed sounds, one a line
    } else if (item->state == TARNOK_STATE_WRITING) {
        mWriting = true;
        logger()->println(Logger::OUTPUT_NOTICE, "Writing out TNB file");
    }
}

QString ProgressMonitor::pathsOf(const BuildContext::LibSubsound* subsound)
{
    QStringList paths;
    for (quint32 i = 0; i < subsound->numFiles; ++i)
        paths.append(QDir::cleanPath(QString::fromUtf8(subsound->fileNames[i])));
    return paths.join(", ");
}

QString ProgressMonitor::getFileNameStrings(const BuildContext::LibSubsound* subsound)
{
    QString names;
    for (quint32 i = 0; i < subsound->numFiles; ++i) {
        const QString path = QDir::cleanPath(QString::fromUtf8(subsound->fileNames[i]));
        if (i > 0)
            names += ", ";
        names += path.mid(path.lastIndexOf('/') + 1);
    }
    return names;
}

float ProgressMonitor::progress()
{
    if (mWriting)
        return -1.0f;
    float sum = 0;
    for (const TARNOK_PROGRESSITEM* item : std::as_const(mInProgress))
        sum += shareOfState(item->state);
    const float share = 1.0f / static_cast<float>(mNumSubsounds);
    return std::min(1.0f, share * static_cast<float>(mCompleted.size()) + share * sum);
}

const char* ProgressMonitor::stateToString(TARNOK_STATE state)
{
    const auto value = static_cast<quint32>(state);
    return value < std::size(STATE_WORDS) ? STATE_WORDS[value] : "";
}

void BuildQueue::enqueue(BuildContext* context, bool locked)
{
    QWriteLocker locker(locked ? nullptr : &mLock);
    mContexts.append(context);
}

BuildContext* BuildQueue::first(bool locked)
{
    QReadLocker locker(locked ? nullptr : &mLock);
    return mContexts.isEmpty() ? nullptr : mContexts.first();
}

int BuildQueue::size(bool locked)
{
    QReadLocker locker(locked ? nullptr : &mLock);
    return static_cast<int>(mContexts.size());
}

void BuildQueue::remove(BuildContext* context)
{
    mContexts.removeOne(context);
}

BuildSystem::BuildSystem()
    : mCacheDir(settings()->getOutputDir(System::CACHE_NAME))
    , mThreadCount(static_cast<unsigned int>(settings()->getValue(System::THREAD_COUNT)))
{
    // The destructor releases the library and may log that. The logger must be created first, so that it is destroyed
    // last.
    logger();
    if (settings()->getValue(System::GENERATE_CODE_HEADER) != 0)
        initFlags |= TARNOK_INIT_CREATE_HEADER;
}

BuildSystem::~BuildSystem()
{
    releaseLib();
}

void BuildSystem::setThreadCount(unsigned int count)
{
    if (count == mThreadCount)
        return;
    settings()->setValue(System::THREAD_COUNT, static_cast<int>(count));
    mThreadCount = count;
    mSettingsChanged = true;
}

void BuildSystem::setGenerateCodeHeader(bool enabled)
{
    if (enabled == generateCodeHeader())
        return;
    settings()->setValue(System::GENERATE_CODE_HEADER, enabled);
    setInitFlag(TARNOK_INIT_CREATE_HEADER, enabled);
}

void BuildSystem::setTNBVersion(TARNOK_TNBVERSION version)
{
    if (version == mTnbVersion)
        return;
    mTnbVersion = version;
    mSettingsChanged = true;
}

void BuildSystem::setInitFlag(unsigned int flag, bool enabled)
{
    const unsigned int flags = enabled ? initFlags | flag : initFlags & ~flag;
    if (flags == initFlags)
        return;
    initFlags = flags;
    mSettingsChanged = true;
}

void BuildSystem::enqueueBuild(const SoundBank* bank)
{
    mLastBuildSucceeded = false;
    if (!bank || !bank->validate())
        return;
    if (mBuilding) {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: Build already in progress");
        return;
    }

    mBuilding = true;
    auto context = std::make_unique<BuildContext>();
    context->construct(bank);
    mQueue.enqueue(context.release(), false);
    emit buildStateChanged();
    processNext(false);
}

void BuildSystem::processNext(bool locked)
{
    if (mQueue.size(locked) == 0)
        return;

    if (!mInitialised || mSettingsChanged || mCacheDir != settings()->getOutputDir(System::CACHE_NAME))
        initLib();
    if (!mInitialised)
        return;

    logger()->println(Logger::OUTPUT_MESSAGE, "Build started\n");
    BuildContext* context = mQueue.first(locked);
    mProgressMonitor.prepare(static_cast<int>(context->numSubsounds()));
    context->start(QThread::InheritPriority);

    // The system could not create the thread, so the job would never end.
    if (!context->isRunning() && !context->finished())
        context->fail(TARNOK_ERR_MEMORY);
}

void BuildSystem::initLib()
{
    releaseLib();
    mCacheDir = settings()->getOutputDir(System::CACHE_NAME);
    if (const QString replacement = settings()->replacementOf(mCacheDir); !replacement.isEmpty())
        remarks()->addOnce(replacement);
    const TARNOK_RESULT result = Tarnok_Init(mTnbVersion, initFlags, mThreadCount, mCacheDir.toUtf8().constData());
    Q_ASSERT(result == TARNOK_OK);
    mInitialised = true;
    mSettingsChanged = false;
}

void BuildSystem::releaseLib()
{
    if (!mInitialised)
        return;
    const TARNOK_RESULT result = Tarnok_Release();
    if (result != TARNOK_OK)
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: An error occured while releasing the lib: %s",
                          resultText(result));
}

bool BuildSystem::update()
{
    QWriteLocker locker(mQueue.lock());
    const int size = mQueue.size(true);
    if (size == 0)
        return false;

    BuildContext* context = mQueue.first(true);
    if (!context->finished()) {
        // A cancel that came before the job's thread had called the library had no effect. So it is repeated.
        if (context->cancelled())
            Tarnok_BuildCancel();
        mProgressMonitor.updateInternal(context);
        return true;
    }

    // Once more: reports may have arrived between the last poll and the end.
    mProgressMonitor.updateInternal(context);
    reportResult(context);
    mQueue.remove(context);
    delete context;
    mBuilding = false;
    emit buildStateChanged();
    processNext(true);
    return size != 1;
}

void BuildSystem::reportResult(const BuildContext* context)
{
    if (BuildObserver* observer = mProgressMonitor.observer())
        observer->ended(context->result(), resultText(context->result()));
    if (context->result() != TARNOK_OK) {
        logger()->println(Logger::OUTPUT_ERROR, "ERROR: \nBuild failed: %s\n\t%s", context->outputFile(),
                          resultText(context->result()));
        remarks()->add(QString("'%1' was not written: %2").arg(context->outputFile(), resultText(context->result())));
        return;
    }
    mLastBuildSucceeded = true;
    logger()->println(Logger::OUTPUT_MESSAGE, "\nSoundbank built successfully: %s", context->outputFile());
}

void BuildSystem::cancelBuild()
{
    {
        // Waits for a running update().
        QWriteLocker barrier(mQueue.lock());
    }
    BuildContext* context = mQueue.first(false);
    if (!context) {
        logger()->println(Logger::OUTPUT_INFO, "No build to cancel");
        return;
    }
    context->cancel();
    Tarnok_BuildCancel();
    mBuilding = false;
    emit buildStateChanged();
    logger()->println(Logger::OUTPUT_MESSAGE, "Build cancelled");
}

} // namespace TARNOK
