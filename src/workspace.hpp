// The root of the item tree, and the door between banks and files.
#pragma once

#include "abstract_item.hpp"
#include "singleton.hpp"
#include "sound_bank.hpp"

namespace TARNOK {

// Holds the open banks in the order of their opening and owns them. It has no file of its own.
class Workspace : public AbstractItemContainer<SoundBank>, public Singleton<Workspace>
{
public:
    Workspace();

    SoundBank* createSoundBank();

    // Opens a list file (.lst, .txt) or a project file (any other name). Null if that fails; most reasons are logged.
    SoundBank* loadSoundBank(const QString& path);

    // Writes a project file; a new one that holds a key can be read by its owner alone. A bank that doesn't validate
    // leaves no file at path, and the result is false; so it is, with what was at path before, if the disk is full or
    // the project could not be opened again. A path that can't be opened for writing aborts.
    bool saveSoundBank(const SoundBank* bank, const QString& path);

    // Reads a profile file into profile, which stays as it was on failure. A missing file, and a workspace without a
    // bank, abort.
    bool loadProfile(SoundProfile* profile, const QString& path);

    // Writes a profile file. A path that can't be opened for writing aborts.
    bool saveProfile(const SoundProfile& profile, const QString& path);

    // Reads a list file: a line a sound, a path and options separated by commas, up to the first empty line. A line
    // whose file is no valid sound is tried again until it is one.
    bool loadFromList(const QString& path, SoundBank* bank);

    bool loadFromXml(const QString& path, SoundBank* bank);

    // The name of the root element of an XML file: "soundbank" of a project, "profile" of a profile; empty if it is no
    // XML file. Nothing is logged.
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
