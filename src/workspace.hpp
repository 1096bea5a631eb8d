// SPDX-License-Identifier: MIT
// The root of the item tree, and the reading and writing of project, list and profile files.
#pragma once

#include "abstract_item.hpp"
#include "singleton.hpp"
#include "sound_bank.hpp"

namespace TARNOK {

// Owns the open banks, in the order in which they were opened. It has no file of its own.
class Workspace : public AbstractItemContainer<SoundBank>, public Singleton<Workspace>
{
public:
    Workspace();

    SoundBank* createSoundBank();

    // Opens a list file (.lst, .txt) or a project file (any other name). Null if that fails; most reasons are logged.
    SoundBank* loadSoundBank(const QString& path);

    // Writes a project file; a new file that contains a key can be read by its owner alone. For an invalid bank the
    // file at path is removed and the result is false. If the disk is full, or the project could not be opened again,
    // the result is false and the old file is kept. A path that can't be opened for writing aborts.
    bool saveSoundBank(const SoundBank* bank, const QString& path);

    // Reads a profile file into profile, which is unchanged on failure. Aborts if the file is missing or the workspace
    // has no bank.
    bool loadProfile(SoundProfile* profile, const QString& path);

    // Writes a profile file. A path that can't be opened for writing aborts.
    bool saveProfile(const SoundProfile& profile, const QString& path);

    // Reads a list file: one line per sound, a path and options separated by commas, up to the first empty line. A line
    // whose file isn't a valid sound is retried until it is one.
    bool loadFromList(const QString& path, SoundBank* bank);

    bool loadFromXml(const QString& path, SoundBank* bank);

    // The name of the root element of an XML file: "soundbank" for a project, "profile" for a profile; empty if it
    // isn't an XML file. Logs nothing.
    static QString rootOf(const QString& path);

    bool serialize(QXmlStreamWriter*) const override { return false; }
    bool deserialize(XmlStreamIterator&) override { return false; }
};

// The program's one workspace.
inline Workspace* workspace()
{
    return Singleton<Workspace>::instance();
}

// The bank that the desktop program edits. Null while a project is closed.
inline SoundBank* firstBank()
{
    return workspace()->isEmpty() ? nullptr : workspace()->first();
}

} // namespace TARNOK
