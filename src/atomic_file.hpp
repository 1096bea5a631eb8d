// SPDX-License-Identifier: MIT
// Files of the user that are replaced as a whole.
#pragma once

#include <QByteArray>
#include <QString>

#include <sys/stat.h>

namespace TARNOK {

// Replaces the contents of a file. The new contents are written to a temporary file in the same folder, which is then
// renamed: a crash or a full disk leaves the old file, and symbolic links, permissions, attributes and the owner are
// kept. Where a rename can't do that (a read-only folder, another owner, hard links), the file is overwritten, after
// the space for the new contents has been reserved.
class AtomicFile
{
public:
    // Checks whether path can be written. Changes nothing.
    explicit AtomicFile(const QString& path);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    bool isOpen() const { return mIsOpen; }

    // Replaces the contents. A new file that is private can be read by its owner alone. On false, the old contents are
    // kept.
    bool write(const QByteArray& content, bool isPrivate);

    // Why it isn't open, or wasn't written.
    const QString& errorString() const { return mErrorString; }

private:
    bool fail();
    bool writeAside(const QByteArray& content, bool isPrivate, bool* isSettled);
    bool adoptStatus(int file) const;
    bool writeInPlace(const QByteArray& content);

    QByteArray mTarget; // with symbolic links resolved
    int mFile = -1; // the existing file, -1 if there is none yet
    struct stat mStatus = {}; // of the existing one
    bool mIsOpen = false;
    QString mErrorString;
};

} // namespace TARNOK
