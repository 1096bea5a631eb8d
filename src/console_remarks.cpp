// SPDX-License-Identifier: MIT
#include "console_remarks.hpp"

#include "logger.hpp"

#include <QDir>

#include <cstdio>
#include <utility>

namespace TARNOK {

QString withEscapedControls(const QString& text, QLatin1StringView kept)
{
    QString escaped;
    for (const QChar c : text) {
        if (c.category() != QChar::Other_Control || kept.contains(c))
            escaped += c;
        else
            escaped += QString::asprintf(c.unicode() < 0x80 ? "\\x%02x" : "\\u%04x", unsigned(c.unicode()));
    }
    return escaped;
}

void ConsoleRemarks::release()
{
    if (mState != State::Held)
        return;
    sSilent = logger()->verbosity() == Logger::OUTPUT_SILENT;
    mState = sSilent ? State::Off : State::Said;
    for (const QString& text : std::as_const(mHeld))
        add(text);
    mHeld.clear();
}

void ConsoleRemarks::sendTo(std::function<void(const QString& text)> receiver)
{
    mReceiver = std::move(receiver);
}

void ConsoleRemarks::add(const QString& text)
{
    if (mReceiver)
        mReceiver(text);
    else if (mState == State::Held)
        mHeld.append(text);
    else if (mState == State::Said)
        std::fprintf(stderr, "tarnokexcl: %s\n", withEscapedControls(text).toUtf8().constData());
}

void ConsoleRemarks::addOnce(const QString& text)
{
    if (mAddedOnce.contains(text))
        return;
    mAddedOnce.append(text);
    add(text);
}

void ConsoleRemarks::addMissingSound(const QString& path, const QString& reason)
{
    ++mMissingSounds;
    add(QString("left out '%1': %2").arg(QDir::cleanPath(path), reason));
}

void ConsoleRemarks::addFailedSound(const QString& paths, const QString& reason)
{
    ++mMissingSounds;
    add(QString("could not build '%1': %2").arg(paths, reason));
}

} // namespace TARNOK
