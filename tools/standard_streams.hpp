// SPDX-License-Identifier: MIT
// The first call of every program that opens files.
#pragma once

#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

// Opens /dev/null for each of standard input, output and error that is closed when the program starts. Otherwise the
// next opened files would get these descriptors, and printed text would be written into a bank.
inline void openMissingStandardStreams()
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDWR) != stream)
            std::_Exit(EXIT_FAILURE);
    }
}
