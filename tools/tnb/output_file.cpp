#include "output_file.hpp"

#include "failure.hpp"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tnb {

namespace {

// The mode of a finished file: that of any new file under the user's umask. Temporary files are for their owner only.
mode_t usualMode()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// Returns 0 or an errno.
int renameUnlessTaken(const char* from, const char* to)
{
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    // The file system can't check and rename in one step.
    struct stat existing
    { };
    if (lstat(to, &existing) == 0)
        return EEXIST;
    return std::rename(from, to) == 0 ? 0 : errno;
}

// The path of the temporary file that is being written; the signal handler removes it.
std::atomic<const char*> unfinished = nullptr;
static_assert(std::atomic<const char*>::is_always_lock_free, "it is read by a signal handler");

extern "C" void removeUnfinished(int number)
{
    if (const char* path = unfinished.load())
        unlink(path);
    // This signal is delivered when the handler returns.
    std::signal(number, SIG_DFL);
    std::raise(number);
}

// Signals that were ignored stay ignored.
void removeUnfinishedOnSignals()
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        if (std::signal(number, removeUnfinished) == SIG_IGN)
            std::signal(number, SIG_IGN);
    }
}

} // namespace

OutputFile::OutputFile(std::filesystem::path folder, std::string name)
    : mFolder(std::move(folder))
    , mName(std::move(name))
    , mTemporary(mFolder / ".tnb-XXXXXX")
{
    // Set before the file exists: mkostemp() completes the name in this same buffer.
    unfinished = mTemporary.c_str();
    removeUnfinishedOnSignals();
    mDescriptor = mkostemp(mTemporary.data(), O_CLOEXEC);
    if (mDescriptor < 0) {
        unfinished = nullptr;
        fail("can't make", errno);
    }
    fchmod(mDescriptor, usualMode());
}

OutputFile::~OutputFile()
{
    unfinished = nullptr;
    if (mDescriptor < 0)
        return;
    close(mDescriptor);
    unlink(mTemporary.c_str());
}

void OutputFile::write(std::span<const uint8_t> bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = ::write(mDescriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            fail("can't write", errno);
        bytes = bytes.subspan(static_cast<size_t>(count));
    }
}

void OutputFile::commit(bool replace)
{
    const std::string target = path();
    const int error = replace ? (std::rename(mTemporary.c_str(), target.c_str()) == 0 ? 0 : errno)
                              : renameUnlessTaken(mTemporary.c_str(), target.c_str());
    if (error == EEXIST)
        throw Failure(Status::CannotRead, target + " exists already; --force replaces it");
    if (error != 0)
        fail("can't make", error);
    // Some file systems report only on close that they are full.
    const int descriptor = mDescriptor;
    mDescriptor = -1;
    if (close(descriptor) != 0) {
        const int reason = errno;
        unlink(target.c_str());
        fail("can't write", reason);
    }
}

void OutputFile::fail(const std::string& what, int error) const
{
    throw Failure(Status::CannotRead, what + " " + path().string() + ": " + std::strerror(error));
}

} // namespace tnb
