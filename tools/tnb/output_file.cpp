// SPDX-License-Identifier: MIT
#include "output_file.hpp"

#include "base/file.hpp"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include <sched.h>
#include <unistd.h>

namespace tnb {

namespace {

constexpr const char* kStem = "tnb"; // of temporary files

// The paths of the temporary files that are being written. The signal handler removes them, which is why they are no
// std::vector. Files for which there is no room are removed by the next run.
constexpr size_t kUnfinished = 256;
std::atomic<const char*> unfinished[kUnfinished] = {};
std::atomic<int> creating = 0; // files that may exist without being in the list
std::atomic<bool> ending = false;
static_assert(std::atomic<const char*>::is_always_lock_free && std::atomic<int>::is_always_lock_free
                  && std::atomic<bool>::is_always_lock_free,
              "they are used by a signal handler");

extern "C" void removeUnfinished(int number)
{
    ending = true;
    while (creating > 0)
        sched_yield();
    for (const std::atomic<const char*>& path : unfinished) {
        if (const char* name = path.load())
            unlink(name);
    }
    // The raised signal is delivered when the handler returns.
    std::signal(number, SIG_DFL);
    std::raise(number);
}

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

// Signals that were ignored stay ignored.
void removeUnfinishedOnSignals()
{
    for (const int number : kSignals) {
        if (std::signal(number, removeUnfinished) == SIG_IGN)
            std::signal(number, SIG_IGN);
    }
}

// Blocks the signals, so that none arrives between the creation of a file and the storing of its path. The handler, if
// it runs on another thread, waits for the end of the block.
class SignalBlock
{
public:
    SignalBlock()
    {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int number : kSignals)
            sigaddset(&signals, number);
        pthread_sigmask(SIG_BLOCK, &signals, &mFormer);
        ++creating;
        if (ending) {
            --creating;
            for (;;)
                pause(); // until the handler ends the process
        }
    }
    ~SignalBlock()
    {
        --creating;
        pthread_sigmask(SIG_SETMASK, &mFormer, nullptr);
    }
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;

private:
    sigset_t mFormer;
};

} // namespace

OutputFile::OutputFile(std::filesystem::path folder, std::string name)
    : mFolder(std::move(folder))
    , mName(std::move(name))
{ }

OutputFile::~OutputFile()
{
    const SignalBlock block;
    mFile = {};
    forget();
}

base::Result<> OutputFile::open()
{
    removeUnfinishedOnSignals();
    const SignalBlock block;
    base::Result<base::TemporaryFile> created = base::TemporaryFile::create(mFolder, kStem);
    if (!created)
        return error("can't create", created.error().systemError);
    mFile = std::move(*created);
    for (std::atomic<const char*>& path : unfinished) {
        const char* none = nullptr;
        if (path.compare_exchange_strong(none, mFile.path().c_str())) {
            mUnfinished = &path;
            break;
        }
    }
    return {};
}

base::Result<> OutputFile::write(std::span<const uint8_t> bytes)
{
    if (const base::Result<> written = base::writeAt(mFile.descriptor(), bytes, mBytes); !written)
        return error("can't write", written.error().systemError);
    mBytes += bytes.size();
    return {};
}

base::Result<> OutputFile::commit(bool replace)
{
    using Existing = base::TemporaryFile::Existing;
    // Some file systems report only on close that they are full.
    const int copy = dup(mFile.descriptor());
    if (copy < 0 || close(copy) != 0)
        return error("can't write", errno);
    const SignalBlock block;
    if (const base::Result<> named = mFile.commit(path(), replace ? Existing::Replace : Existing::Keep); !named) {
        if (named.error().systemError == EEXIST)
            return base::Error{base::ErrorCode::Io, path().string() + " exists already; --force replaces it", EEXIST};
        return error("can't create", named.error().systemError);
    }
    forget();
    return {};
}

void OutputFile::forget()
{
    if (mUnfinished)
        *mUnfinished = nullptr;
    mUnfinished = nullptr;
}

void OutputFile::removeAbandoned(const std::filesystem::path& folder)
{
    base::TemporaryFile::removeAbandoned(folder, kStem);
}

base::Error OutputFile::error(const char* what, int systemError) const
{
    return {base::ErrorCode::Io,
            std::string(what) + " " + path().string() + ": " + std::generic_category().message(systemError),
            systemError};
}

} // namespace tnb
