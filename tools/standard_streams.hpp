// What every program that opens files does before anything else.
#pragma once

#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

// Opens /dev/null in place of those of standard input, output and error that the program was started without. Else the
// next files to be opened would get their numbers, and what is printed would be written into a bank.
inline void openMissingStandardStreams()
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDWR) != stream)
            std::_Exit(EXIT_FAILURE);
    }
}
