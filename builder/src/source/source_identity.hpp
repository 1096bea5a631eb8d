// Which content a source file has, and whether it still has it.
#pragma once

#include "base/file.hpp"
#include "base/result.hpp"
#include "source/source_index.hpp"
#include "support/content_hash.hpp"

#include <stop_token>
#include <string>
#include <string_view>

namespace tarnok {

// The content of a file at one moment.
struct SourceIdentity
{
    ContentHash content;
    base::FileStamp stamp;
    bool settled = false; // every later content will have another stamp, unless it comes through a mapping of the file
    bool remembered = false; // by the index: nobody has read the file for it now
};

// Finds out about contents for all the workers of a build.
class SourceIdentifier
{
public:
    // useIndex off: every file is hashed, whatever the index knows.
    SourceIdentifier(SourceIndex& index, bool useIndex)
        : mIndex(index)
        , mUseIndex(useIndex)
    { }

    // Finds the content of the file, by the index or, always when anew, by reading it all.
    base::Result<SourceIdentity> identify(const std::string& path, const std::stop_token& stop, bool anew = false);

    // Whether the file, having been read by somebody else since, still has the content that was identified. If it has
    // not, what was read must not be kept under the hash of the former content. It is hashed for that; byStamp: not
    // where it was hashed before, too, and its stamp is settled.
    base::Result<bool> unchanged(const std::string& path, const SourceIdentity& identity, bool byStamp,
                                 const std::stop_token& stop);

private:
    SourceIndex& mIndex;
    bool mUseIndex;
};

// The error of a file that differs whenever it is looked at.
base::Error keepsChanging(std::string_view path);

} // namespace tarnok
