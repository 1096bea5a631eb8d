// The console tool: compiles banks from its arguments.
#include "command_line.hpp"
#include "logger.hpp"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

namespace {

// What a build farm goes by.
enum ExitStatus
{
    ALL_WRITTEN = 0,
    STOPPED = 1,
    BUILD_FAILED = 2
};

} // namespace

int main(int argc, char** argv)
{
    // Names of files are UTF-8 whatever the machine's locale; Qt would say so on every run under another one.
    setenv("LC_ALL", "C.UTF-8", 1);

    // A log that is followed through a pipe, or cut short by a crash, shows every line that was said.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    const QCoreApplication application(argc, argv);
    TARNOK::Singleton<TARNOK::Logger>::instance()->setPrintToStdout();

    auto* commandLine = TARNOK::Singleton<TARNOK::CommandLine>::instance();
    if (!commandLine->buildBank(argc, argv))
        return STOPPED;
    return commandLine->allBanksWritten() ? ALL_WRITTEN : BUILD_FAILED;
}
