// SPDX-License-Identifier: MIT
// The bank of a build and its C header, under temporary names until both are complete.
#pragma once

#include "base/result.hpp"
#include "build/atomic_output.hpp"
#include "build/build_request.hpp"

#include <optional>
#include <stop_token>

namespace builder {

class BuildOutputs
{
public:
    struct Options
    {
        bool withHeader = false;
        bool keepUnchanged = false; // files that would stay the same aren't replaced
    };

    // Called before anything is encoded, so that a folder that can't be written to is reported immediately and not
    // after hours. ErrorCode::Invalid: an output would replace a source of the bank or a file that isn't a C header, or
    // both outputs have the same name.
    static base::Result<BuildOutputs> open(const BuildRequest& request, const Options& options);

    AtomicOutput& bank() { return mBank; }

    // Completes both files and replaces the old ones, except for those that stay as they are.
    base::Result<> commit(const BuildRequest& request, const std::stop_token& stop);

private:
    explicit BuildOutputs(AtomicOutput bank)
        : mBank(std::move(bank))
    { }

    base::Result<> openHeader(const BuildRequest& request, bool keepUnchanged);
    base::Result<> writeHeader(const BuildRequest& request, const std::stop_token& stop);

    AtomicOutput mBank;
    std::optional<AtomicOutput> mHeader; // nullopt: not requested
};

} // namespace builder
