// SPDX-License-Identifier: MIT
// One line of a list file.
#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace TARNOK {

class Subsound;

// A path, then options of its sound, after commas. What is no option is ignored.
struct ListLine
{
    // Relative paths are relative to folder, that of the list. A line of commas alone aborts.
    ListLine(const QString& line, const QString& folder);

    // Sets the options of the sound.
    void applyTo(Subsound* subsound) const;

    static QStringList split(const QString& line);

    QStringList fields; // at least one: the path as it is written
    QString path; // empty: a relative path that doesn't lead to a file
    std::optional<unsigned int> quality; // the first of several counts
    bool loopOff = false;
};

} // namespace TARNOK
