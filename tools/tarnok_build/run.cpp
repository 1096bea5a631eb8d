// SPDX-License-Identifier: MIT
#include "run.hpp"

#include "bank_sizes.hpp"
#include "dependencies.hpp"
#include "event_log.hpp"
#include "progress_bar.hpp"

#include "build_system.hpp"
#include "console_remarks.hpp"
#include "replacement.hpp"
#include "stop_signals.hpp"
#include "utility_classes.hpp"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <utility>

#include <sys/stat.h>

namespace tarnok_build {

namespace {

using namespace TARNOK;

constexpr unsigned long POLL_MS = 5;

QString absolute(const QString& path)
{
    return path.isEmpty() ? QString() : QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}

void printFaults(const Faults& faults)
{
    for (const Fault& fault : faults.all())
        std::fprintf(stderr, "%s\n", describe(fault).toUtf8().constData());
}

// Reports what is wrong besides the inputs.
bool refuse(const QString& reason, Faults* faults, const QString& file)
{
    faults->add({file, 0, Severity::Fatal, "output", reason});
    return false;
}

// The identity of a file, and of its content as far as its times tell. Zeros if there is none.
struct Version
{
    explicit Version(const QString& path)
    {
        struct stat status = {};
        if (stat(QFile::encodeName(path).constData(), &status) == 0)
            inode = status.st_ino, time = status.st_mtim;
    }
    bool operator==(const Version& other) const
    {
        return inode == other.inode && time.tv_sec == other.time.tv_sec && time.tv_nsec == other.time.tv_nsec;
    }

    ino_t inode = 0;
    timespec time = {};
};

// The default folder lies in the documents of the user, whose folder doesn't exist on every machine.
void prepareCache(const QString& folder)
{
    if (!folder.isEmpty()) {
        QDir().mkpath(folder);
        settings()->setDir(System::CACHE_NAME, absolute(folder));
    } else if (settings()->getDir(System::CACHE_NAME).isEmpty()) {
        QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + "/" + APP_NAME);
    }
}

// One run, from the inputs to the bank.
class Run
{
public:
    explicit Run(const RunRequest& request)
        : mRequest(request)
        , mSource(request.source)
        , mLog(request.json)
        , mBar(!request.quiet)
    { }

    Status run()
    {
        SoundBank* bank = prepare();
        printFaults(mFaults);
        for (const Fault& fault : mFaults.all())
            mLog.fault(fault);
        if (!bank) {
            mLog.end(EventLog::Outcome::Refused, mOutput, QString());
            return Status::Failed;
        }
        const Version former(mOutput);
        const bool isBuilt = build(bank) && writeDepfile(bank);
        const bool isUnchanged = former.inode != 0 && Version(mOutput) == former;
        if (isBuilt && mRequest.json)
            mLog.sizes(soundSizes(mOutput.toStdString(), bank->encryptionKey().toStdString()));
        const EventLog::Outcome outcome = !isBuilt ? EventLog::Outcome::Failed
            : isUnchanged                          ? EventLog::Outcome::Unchanged
                                                   : EventLog::Outcome::Written;
        mLog.end(outcome, mOutput, absolute(mRequest.header));
        if (isBuilt && !mRequest.json && !mRequest.quiet)
            printSummary(isUnchanged);
        return isBuilt ? Status::Done : Status::Failed;
    }

private:
    // Null, with the reasons in mFaults, if nothing can be built.
    SoundBank* prepare()
    {
        mSource.check(&mFaults);
        if (!mSource.isUsable(mFaults))
            return nullptr;
        SoundBank* bank = mSource.load(&mFaults);
        return bank && setOutputs(bank) ? bank : nullptr;
    }

    bool setOutputs(SoundBank* bank)
    {
        mOutput = absolute(mRequest.output.isEmpty() ? mSource.projectOutput() : mRequest.output);
        if (mOutput.isEmpty())
            return refuse("no output: name the bank with --output", &mFaults, mSource.inputs().first().path);
        if (QFileInfo(mOutput).isDir())
            return refuse("it is a folder, not a file", &mFaults, mOutput);
        bank->setExactOutputFilePath(mOutput);
        if (const QString fault = replacementFault(bank, mSource.documents()); !fault.isEmpty())
            return refuse("not replaced by a bank: " + fault, &mFaults, mOutput);
        for (const QString& path : {mOutput, absolute(mRequest.header)}) {
            if (!path.isEmpty())
                QDir().mkpath(QFileInfo(path).path());
        }
        return true;
    }

    bool build(const SoundBank* bank)
    {
        remarks()->sendTo([this](const QString& text) {
            mBar.clear();
            complain(text);
            mLog.message(text);
        });
        prepareCache(mRequest.cacheFolder);
        settings()->setValue(System::THREAD_COUNT,
                             mRequest.jobs > 0 ? mRequest.jobs : std::max(1, QThread::idealThreadCount()));
        BuildSystem* builds = buildSystem();
        builds->setInitFlag(TARNOK_INIT_CREATE_HEADER, !mRequest.header.isEmpty());
        builds->setInitFlag(TARNOK_INIT_IGNORE_ERRORS, mRequest.source.ignoreErrors);
        builds->setInitFlag(TARNOK_INIT_REBUILD, mRequest.rebuild);
        builds->setInitFlag(TARNOK_INIT_KEEP_UNCHANGED, mRequest.keepUnchanged);
        if (!mRequest.header.isEmpty())
            Tarnok_SetHeaderFile(absolute(mRequest.header).toUtf8().constData());

        mLog.begin(bank, mOutput);
        builds->progressMonitor().setObserver(&mLog);
        {
            const StopSignals held;
            poll(bank);
        }
        mBar.clear();
        builds->progressMonitor().setObserver(nullptr);
        return builds->lastBuildSucceeded();
    }

    void poll(const SoundBank* bank)
    {
        BuildSystem* builds = buildSystem();
        bool isCancelled = false;
        builds->enqueueBuild(bank);
        while (builds->update()) {
            if (StopSignals::noted() && !isCancelled) {
                builds->cancelBuild();
                isCancelled = true;
            }
            mBar.show(builds->progressMonitor().progress(), mLog.finished(), mLog.sounds());
            std::fflush(stdout);
            QThread::msleep(POLL_MS);
        }
    }

    bool writeDepfile(const SoundBank* bank) const
    {
        if (mRequest.depfile.isEmpty())
            return true;
        const QString target = mRequest.depfileTarget.isEmpty() ? mOutput : mRequest.depfileTarget;
        QStringList outputs(mOutput);
        if (!mRequest.header.isEmpty())
            outputs += absolute(mRequest.header);
        QStringList all = dependencies(mSource, bank);
        if (mRequest.depfileOutputs)
            all += outputs;
        const QString fault = writeDependencyFile(mRequest.depfile, target, all, outputs);
        if (!fault.isEmpty())
            complain(fault);
        return fault.isEmpty();
    }

    void printSummary(bool isUnchanged) const
    {
        QString text = QString("%1: %2 sounds, %3 encoded, %4 cached, ")
                           .arg(withEscapedControls(mOutput))
                           .arg(mLog.sounds())
                           .arg(mLog.encoded())
                           .arg(mLog.cached());
        if (mLog.failed() > 0)
            text += QString("%1 failed, ").arg(mLog.failed());
        text += QString("%1 bytes%2").arg(QFileInfo(mOutput).size()).arg(isUnchanged ? ", unchanged" : "");
        std::printf("%s\n", text.toUtf8().constData());
    }

    const RunRequest& mRequest;
    BankSource mSource;
    EventLog mLog;
    ProgressBar mBar;
    Faults mFaults;
    QString mOutput;
};

} // namespace

void complain(const QString& text)
{
    std::fprintf(stderr, "tarnok-build: %s\n", withEscapedControls(text).toUtf8().constData());
}

Status run(const RunRequest& request)
{
    return Run(request).run();
}

Status depends(const DependsRequest& request)
{
    BankSource source(request.source);
    Faults faults;
    source.check(&faults);
    SoundBank* bank = source.isUsable(faults) ? source.load(&faults) : nullptr;
    printFaults(faults);
    if (!bank)
        return Status::Failed;
    bank->setExactOutputFilePath(absolute(request.output.isEmpty() ? source.projectOutput() : request.output));
    const QStringList all = dependencies(source, bank);
    if (!request.depfile.isEmpty()) {
        const QString target = request.depfileTarget.isEmpty() ? bank->outputFilePath() : request.depfileTarget;
        if (target.isEmpty()) {
            complain("a dependency file needs --output or --depfile-target");
            return Status::BadArguments;
        }
        if (const QString fault = writeDependencyFile(request.depfile, target, all); !fault.isEmpty()) {
            complain(fault);
            return Status::Failed;
        }
    }
    if (request.json)
        std::printf("%s\n", dumped(dependenciesAsJson(source, bank)).c_str());
    else if (request.depfile.isEmpty())
        std::printf("%s\n", all.join('\n').toUtf8().constData());
    return Status::Done;
}

Status check(const CheckRequest& request)
{
    BankSource source(request.source);
    Faults faults;
    source.check(&faults);
    if (request.json) {
        nlohmann::ordered_json inputs = nlohmann::ordered_json::array();
        for (const Input& input : source.inputs())
            inputs.push_back({{"path", input.path.toStdString()}, {"kind", wordOf(input.kind)}});
        nlohmann::ordered_json found = nlohmann::ordered_json::array();
        for (const Fault& fault : faults.all())
            found.push_back(asJson(fault));
        const nlohmann::ordered_json json = {
            {"tool", "tarnok-build"}, {"version", TARNOK_BUILD_VERSION}, {"inputs", inputs}, {"faults", found}};
        std::printf("%s\n", dumped(json).c_str());
    } else {
        for (const Fault& fault : faults.all())
            std::printf("%s\n", describe(fault).toUtf8().constData());
    }
    return faults.isEmpty() ? Status::Done : Status::Failed;
}

} // namespace tarnok_build
