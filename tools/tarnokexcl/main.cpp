// The console tool: compiles banks from its arguments.
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

// The exit status, for build farms.
enum ExitStatus
{
    ALL_WRITTEN = 0,
    STOPPED = 1,
    BUILD_FAILED = 2,
    SOUNDS_MISSING = 3
};

// The exit status is about the banks; whether the log could be written doesn't change it.
void reportLostLog()
{
    if ((std::fflush(stdout) != 0 || std::ferror(stdout)) && !TARNOK::ConsoleRemarks::isSilent())
        std::fputs("tarnokexcl: the log could not be written to standard output\n", stderr);
}

// Ends the process so that the caller, for instance a shell, learns which signal it was.
void endBySignal(int number)
{
    reportLostLog();
    TARNOK::remarks()->add(QString("stopped by SIG%1").arg(sigabbrev_np(number)));
    std::signal(number, SIG_DFL);
    std::raise(number);
}

QtMessageHandler formerHandler = nullptr;

// A failed assertion aborts the process after this.
void passUnlessSilent(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (!TARNOK::ConsoleRemarks::isSilent())
        formerHandler(type, context, message);
}

// Names and keys are UTF-8. Other bytes would silently be converted into something else.
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

    // A build continues if the reader of the log goes away or the log file is full.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    std::atexit(reportLostLog);

    // Names of files are UTF-8 in every locale; in another one, Qt would print a warning on every run.
    setenv("LC_ALL", "C.UTF-8", 1);

    // A log that is read through a pipe, or cut short by a crash, contains every line.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    // Qt removes the arguments that it knows, wherever they are: it gets a copy.
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
