// SPDX-License-Identifier: MIT
// The commands of the tool.
#pragma once

#include "bank_source.hpp"

#include <QString>

namespace tarnok_build {

// Build scripts depend on these numbers. A signal ends the process by itself.
enum class Status
{
    Done = 0, // everything requested was done; of a check: nothing is wrong
    Failed = 1, // the bank was not built, or is not complete; of a check: something is wrong
    BadArguments = 2
};

struct RunRequest
{
    SourceRequest source;
    QString output; // empty: where the project puts it
    QString header; // empty: none
    QString depfile; // empty: none
    QString depfileTarget; // empty: the bank
    bool depfileOutputs = false;
    QString cacheFolder; // empty: the default one
    int jobs = 0; // 0: as many as there are processors
    bool rebuild = false;
    bool keepUnchanged = false;
    bool json = false;
    bool quiet = false;
};

Status run(const RunRequest& request);

struct DependsRequest
{
    SourceRequest source;
    QString output;
    QString depfile;
    QString depfileTarget;
    bool json = false;
};

Status depends(const DependsRequest& request);

struct CheckRequest
{
    SourceRequest source;
    bool json = false;
};

Status check(const CheckRequest& request);

// One line on standard error, after the name of the tool, with control characters escaped.
void complain(const QString& text);

} // namespace tarnok_build
