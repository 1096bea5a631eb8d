// What the workers of a build have in common.
#pragma once

#include "cache/cache.hpp"
#include "cache/raw_records.hpp"
#include "source/engine.hpp"
#include "source/source_identity.hpp"
#include "source/source_index.hpp"
#include "support/remarks.hpp"
#include "support/temporary_folders.hpp"

#include <stop_token>

namespace tarnok {

// Each part is safe to use by all workers at once.
struct BuildServices
{
    const KessSystem& engine;
    Cache& cache;
    RawRecords& rawRecords;
    SourceIndex& index;
    SourceIdentifier& sources;
    Remarks& remarks;
    TemporaryFolders spoolFolders; // for what is too long for memory
    std::stop_token stop;

    // Makes what was learned about sources available to other builds.
    void saveTables() const
    {
        index.save();
        rawRecords.save(stop);
    }
};

} // namespace tarnok
