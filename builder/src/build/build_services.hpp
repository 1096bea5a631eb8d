// SPDX-License-Identifier: MIT
// The services that the workers of a build share.
#pragma once

#include "cache/cache.hpp"
#include "cache/raw_records.hpp"
#include "source/engine.hpp"
#include "source/source_identity.hpp"
#include "source/source_index.hpp"
#include "support/remarks.hpp"
#include "support/temporary_folders.hpp"

#include <stop_token>

namespace builder {

// All workers may use each service at the same time.
struct BuildServices
{
    const KessSystem& engine;
    Cache& cache;
    RawRecords& rawRecords;
    SourceIndex& index;
    SourceIdentifier& sources;
    Remarks& remarks;
    TemporaryFolders spoolFolders; // for sounds that are too long for memory
    std::stop_token stop;

    // Makes the new records about sources available to other builds.
    void saveTables() const
    {
        index.save();
        rawRecords.save(stop);
    }
};

} // namespace builder
