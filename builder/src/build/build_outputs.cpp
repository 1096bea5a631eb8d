// SPDX-License-Identifier: MIT
#include "build/build_outputs.hpp"

#include "base/bytes.hpp"
#include "base/path.hpp"
#include "build/c_header.hpp"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/stat.h>

namespace builder {

namespace {

// A typing error on a command line must not overwrite a recording.
base::Result<> refuseSource(const BuildRequest& request)
{
    struct stat output = {};
    if (stat(request.outputFile.c_str(), &output) != 0)
        return {};
    for (const TARNOK_SUBSOUND& subsound : request.subsounds) {
        for (const std::string& path : sourcePaths(subsound)) {
            struct stat source = {};
            if (stat(path.c_str(), &source) == 0 && source.st_dev == output.st_dev && source.st_ino == output.st_ino) {
                return base::Error{base::ErrorCode::Invalid,
                                   request.outputFile + ": this is one of the bank's own source files"};
            }
        }
    }
    return {};
}

std::string headerPath(const BuildRequest& request)
{
    if (!request.headerFile.empty())
        return request.headerFile;
    return std::string(base::withoutExtension(request.outputFile)) + ".h";
}

} // namespace

base::Result<BuildOutputs> BuildOutputs::open(const BuildRequest& request, const Options& options)
{
    if (const base::Result<> allowed = refuseSource(request); !allowed)
        return allowed.error();
    base::Result<AtomicOutput> bank = AtomicOutput::create(request.outputFile, options.keepUnchanged);
    if (!bank)
        return bank.error();
    BuildOutputs outputs(std::move(*bank));
    if (!options.withHeader) {
        AtomicOutput::removeAbandoned(headerPath(request));
        return outputs;
    }
    if (const base::Result<> header = outputs.openHeader(request, options.keepUnchanged); !header)
        return header.error();
    return outputs;
}

base::Result<> BuildOutputs::openHeader(const BuildRequest& request, bool keepUnchanged)
{
    const std::string path = headerPath(request);
    if (path == request.outputFile)
        return base::Error{base::ErrorCode::Invalid, "the bank and its C header would have the same name"};
    // Refuses devices and pipes, which must not be read.
    base::Result<AtomicOutput> header = AtomicOutput::create(path, keepUnchanged);
    if (!header)
        return header.error();
    if (base::Result<> replaceable = checkHeader(path); !replaceable)
        return replaceable;
    mHeader.emplace(std::move(*header));
    return {};
}

base::Result<> BuildOutputs::commit(const BuildRequest& request, const std::stop_token& stop)
{
    if (base::Result<> done = mBank.finish(stop); !done)
        return done;
    if (mHeader) {
        if (base::Result<> done = writeHeader(request, stop); !done)
            return done;
    }
    // Both files are now complete on the disk. The bank is replaced first, so that a header is never newer than its
    // bank.
    if (stop.stop_requested())
        return base::cancelled();
    if (base::Result<> done = mBank.commit(); !done)
        return done;
    return mHeader ? mHeader->commit() : base::Result<>();
}

base::Result<> BuildOutputs::writeHeader(const BuildRequest& request, const std::stop_token& stop)
{
    std::vector<std::string_view> names;
    for (const TARNOK_SUBSOUND& subsound : request.subsounds)
        names.push_back(soundName(subsound));
    const std::string text = cHeaderText(base::withoutExtension(base::baseName(request.outputFile)), names);
    if (base::Result<> written = mHeader->write(base::textBytes(text)); !written)
        return written;
    return mHeader->finish(stop);
}

} // namespace builder
