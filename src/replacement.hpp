// SPDX-License-Identifier: MIT
// What a bank must not replace: a mistake on a command line must not destroy a project or a recording.
#pragma once

#include <QString>
#include <QStringList>

namespace TARNOK {

class SoundBank;

// Whether two paths lead to the same file, including through links.
bool isSameFile(const QString& left, const QString& right);

// Whether one of the files is that at path.
bool isAmong(const QString& path, const QStringList& files);

// Why the file at the output path of the bank must not be replaced; empty if it may be. inputs are the files that the
// run reads besides the sounds of the bank, which the library protects itself.
QString replacementFault(const SoundBank* bank, const QStringList& inputs);

} // namespace TARNOK
