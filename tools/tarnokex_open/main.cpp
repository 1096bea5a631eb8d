// SPDX-License-Identifier: MIT
// Opens a project in the desktop program, for file managers. tarnokex ignores its arguments and opens the project that
// was used last. So this program stores the project as the last one, then replaces itself with tarnokex.
#include "../standard_streams.hpp"
#include "utility_classes.hpp"

#include <QFileInfo>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

namespace {

std::string besideThisProgram(const char* name)
{
    std::string path(PATH_MAX, '\0');
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    if (length <= 0)
        return name;
    path.resize(static_cast<size_t>(length));
    return path.substr(0, path.rfind('/') + 1) + name;
}

} // namespace

int main(int argc, char** argv)
{
    openMissingStandardStreams();
    if (argc > 1) {
        const QFileInfo project(QString::fromUtf8(argv[1]));
        if (project.isFile())
            TARNOK::System::rememberProject(project.absoluteFilePath());
        else
            std::fprintf(stderr, "tarnokex-open: %s is not a file\n", argv[1]);
    }
    const std::string program = besideThisProgram("tarnokex");
    execl(program.c_str(), "tarnokex", nullptr);
    std::fprintf(stderr, "tarnokex-open: %s can't be started: %s\n", program.c_str(), std::strerror(errno));
    return EXIT_FAILURE;
}
