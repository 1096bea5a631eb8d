// SPDX-License-Identifier: MIT
#include "progress_bar.hpp"

#include <cstdio>

#include <unistd.h>

namespace tarnok_build {

namespace {

constexpr int WIDTH = 30;

} // namespace

ProgressBar::ProgressBar(bool isWanted)
    : mIsWanted(isWanted && isatty(STDERR_FILENO) == 1)
{ }

ProgressBar::~ProgressBar()
{
    clear();
}

void ProgressBar::show(float fraction, int finished, int sounds)
{
    const float shown = fraction < 0 ? 1.0f : fraction;
    const int filled = static_cast<int>(shown * WIDTH);
    const QString text = QString("[%1%2] %3 %  %4 of %5 sounds%6")
                             .arg(QString(filled, '#'), QString(WIDTH - filled, '.'))
                             .arg(static_cast<int>(shown * 100), 3)
                             .arg(finished)
                             .arg(sounds)
                             .arg(fraction < 0 ? ", writing the bank" : "");
    if (!mIsWanted || text == mShown)
        return;
    std::fprintf(stderr, "\r%s\x1b[K", text.toUtf8().constData());
    std::fflush(stderr);
    mShown = text;
}

void ProgressBar::clear()
{
    if (!mShown.isEmpty())
        std::fputs("\r\x1b[K", stderr);
    mShown.clear();
}

} // namespace tarnok_build
