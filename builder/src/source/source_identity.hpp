// SPDX-License-Identifier: MIT
// The content of source files, and whether it has changed.
#pragma once

#include "base/file.hpp"
#include "base/result.hpp"
#include "source/source_index.hpp"
#include "support/content_hash.hpp"

#include <stop_token>
#include <string>
#include <string_view>

namespace builder {

// The content of a file at a certain moment.
struct SourceIdentity
{
    ContentHash content;
    base::FileStamp stamp;
    bool settled = false; // every later content will have another stamp, unless it is written through a mapping
    bool remembered = false; // taken from the index, without reading the file
};

// Identifies the contents of files for all workers of a build.
class SourceIdentifier
{
public:
    // If useIndex is false, every file is hashed, whatever is in the index.
    SourceIdentifier(SourceIndex& index, bool useIndex)
        : mIndex(index)
        , mUseIndex(useIndex)
    { }

    // Identifies the content of the file, from the index or by hashing it all. With rehash, the index isn't used.
    base::Result<SourceIdentity> identify(const std::string& path, const std::stop_token& stop, bool rehash = false);

    // Whether the file, after it was read, still has the content that was identified before. If it hasn't, what was
    // read must not be stored under the hash of that content. The file is hashed for the comparison. With byStamp,
    // comparing the stamp is enough if identify() has hashed the file and the stamp is settled.
    base::Result<bool> unchanged(const std::string& path, const SourceIdentity& identity, bool byStamp,
                                 const std::stop_token& stop);

private:
    SourceIndex& mIndex;
    bool mUseIndex;
};

// The error for a file that has changed each time it was read.
base::Error keepsChanging(std::string_view path);

} // namespace builder
