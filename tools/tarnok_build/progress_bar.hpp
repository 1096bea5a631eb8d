// SPDX-License-Identifier: MIT
// The progress of a build on a terminal.
#pragma once

#include <QString>

namespace tarnok_build {

// One line on standard error that is overwritten, and removed at the end. Writes nothing unless that is a terminal.
class ProgressBar
{
public:
    explicit ProgressBar(bool isWanted);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // fraction is from 0 to 1, or negative while the bank is written.
    void show(float fraction, int finished, int sounds);

    // Removes the line, so that another text can be written.
    void clear();

private:
    bool mIsWanted;
    QString mShown;
};

} // namespace tarnok_build
