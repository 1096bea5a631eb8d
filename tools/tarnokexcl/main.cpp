// SPDX-License-Identifier: MIT
// The console tool: compiles a bank from command-line arguments.
#include "../standard_streams.hpp"

#include "command_line.hpp"
#include "console_remarks.hpp"
#include "logger.hpp"
#include "stop_signals.hpp"

#include <QByteArrayView>
#include <QCoreApplication>
#include <QString>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Build scripts depend on these numbers.
enum ExitStatus
{
    ALL_WRITTEN = 0,
    STOPPED = 1,
    BUILD_FAILED = 2,
    SOUNDS_MISSING = 3
};

// The exit status is about the banks, so a lost log doesn't change it.
void reportLostLog()
{
    if ((std::fflush(stdout) != 0 || std::ferror(stdout)) && !TARNOK::ConsoleRemarks::isSilent())
        std::fputs("tarnokexcl: the log could not be written to standard output\n", stderr);
}

// Ends the process by the signal itself, so that the caller, such as a shell, sees which one it was.
void endBySignal(int number)
{
    reportLostLog();
    TARNOK::remarks()->add(QString("stopped by SIG%1").arg(sigabbrev_np(number)));
    std::signal(number, SIG_DFL);
    std::raise(number);
}

QtMessageHandler formerHandler = nullptr;

// Qt calls this for a failed assertion before it ends the process.
void passUnlessSilent(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (!TARNOK::ConsoleRemarks::isSilent())
        formerHandler(type, context, message);
}

// Names and keys must be UTF-8: Qt would silently change other bytes.
bool refuseForeignArguments(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (QByteArrayView(argv[i]).isValidUtf8())
            continue;
        auto* logger = TARNOK::Singleton<TARNOK::Logger>::instance();
        logger->println(TARNOK::Logger::OUTPUT_ERROR, "ERROR: argument %d, '%s', is not UTF-8", i,
                        QString::fromUtf8(argv[i]).toUtf8().constData());
        return true;
    }
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    openMissingStandardStreams();

    // A build continues when the reader of its log goes away or the log file is full.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    std::atexit(reportLostLog);

    // File names are UTF-8 whatever the locale; under another locale Qt would print a warning on every run.
    setenv("LC_ALL", "C.UTF-8", 1);

    // Line buffering: a log that is followed through a pipe, or cut off by a crash, contains every printed line.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    // Qt removes arguments that it knows, at any position. So it doesn't get those of the tool.
    int ownCount = 1;
    char* ownArguments[] = {argv[0], nullptr};
    const QCoreApplication application(ownCount, ownArguments);
    formerHandler = qInstallMessageHandler(passUnlessSilent);
    TARNOK::Singleton<TARNOK::Logger>::instance()->setPrintToStdout();
    TARNOK::remarks()->start();

    if (refuseForeignArguments(argc, argv))
        return STOPPED;
    auto* commandLine = TARNOK::Singleton<TARNOK::CommandLine>::instance();
    const bool cameThrough = commandLine->buildBank(argc, argv);
    if (const int number = TARNOK::StopSignals::noted())
        endBySignal(number);
    if (!cameThrough)
        return STOPPED;
    if (!commandLine->allBanksWritten())
        return commandLine->isWritingProject() ? STOPPED : BUILD_FAILED;
    return commandLine->allSoundsTaken() ? ALL_WRITTEN : SOUNDS_MISSING;
}
