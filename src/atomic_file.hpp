// Files of the user that are replaced as a whole.
#pragma once

#include <QByteArray>
#include <QString>

#include <sys/stat.h>

namespace TARNOK {

// A file that is about to get new contents. They are written beside it and renamed, so that a crash or a full disk
// leaves the former file, and symbolic links, permissions, attributes and the owner stay. Where a rename can't do that
// (a folder that may not be written, a file of somebody else, a file with several names), the contents are exchanged in
// place, once there is room for them.
class AtomicFile
{
public:
    // Finds out whether path can be written. Nothing is changed.
    explicit AtomicFile(const QString& path);
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    bool isOpen() const { return mIsOpen; }

    // Exchanges the contents. A file that is new and private can be read by its owner alone. False leaves what was
    // there.
    bool write(const QByteArray& content, bool isPrivate);

    // Why it isn't open, or wasn't written.
    const QString& errorString() const { return mErrorString; }

private:
    bool fail();
    bool writeAside(const QByteArray& content, bool isPrivate, bool* isSettled);
    bool adoptStatus(int file) const;
    bool writeInPlace(const QByteArray& content);

    QByteArray mTarget; // past all symbolic links
    int mFile = -1; // the existing one; none: there is none yet
    struct stat mStatus = {}; // of the existing one
    bool mIsOpen = false;
    QString mErrorString;
};

} // namespace TARNOK
