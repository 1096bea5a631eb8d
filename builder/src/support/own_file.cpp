// SPDX-License-Identifier: MIT
#include "support/own_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace builder {

base::FileDescriptor openOwn(const std::string& path)
{
    return base::FileDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
}

bool startsWithMagic(int descriptor, Magic magic)
{
    char start[8];
    const ssize_t got = pread(descriptor, start, sizeof start, 0);
    if (got < 0)
        return false;
    size_t others = 0;
    for (size_t i = 0; i < size_t(got); ++i)
        others += start[i] != magic[i];
    return others <= (size_t(got) < sizeof start ? 0 : 1);
}

bool isForeign(const std::string& path, Magic magic)
{
    struct stat status;
    if (lstat(path.c_str(), &status) != 0)
        return false;
    if (S_ISLNK(status.st_mode))
        return stat(path.c_str(), &status) == 0;
    if (!S_ISREG(status.st_mode))
        return S_ISDIR(status.st_mode);
    const base::FileDescriptor file = openOwn(path);
    return !file || !startsWithMagic(file.get(), magic);
}

} // namespace builder
