// SPDX-License-Identifier: MIT
#include "list_line.hpp"

#include "sound_bank.hpp"

#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

namespace TARNOK {

namespace {

// The largest float that an unsigned integer holds.
constexpr float QUALITY_LIMIT = 4294967040.0f;

std::optional<unsigned int> qualityOf(const QStringList& fields)
{
    static const QRegularExpression pattern(QRegularExpression::anchoredPattern("quality=(\\d+)"));
    for (const QString& field : fields) {
        const QRegularExpressionMatch match = pattern.match(field);
        if (match.hasMatch())
            return static_cast<unsigned int>(std::min(match.captured(1).toFloat(), QUALITY_LIMIT));
    }
    return std::nullopt;
}

} // namespace

ListLine::ListLine(const QString& line, const QString& folder)
    : fields(split(line))
    , path(fields.at(0))
    , quality(qualityOf(fields))
    , loopOff(fields.contains("ksound_loop_off"))
{
    if (!QFileInfo(path).isRelative())
        return;
    // Asked about a name with a zero character, Qt prints a warning, each time that the line is tried.
    path = path.contains(QChar::Null) ? QString() : QFileInfo(folder + "/" + path).canonicalFilePath();
}

void ListLine::applyTo(Subsound* subsound) const
{
    if (quality)
        subsound->setQuality(*quality);
    if (loopOff)
        subsound->overrideBuildFlag(TARNOK_BUILD_DONTLOOP, true);
}

QStringList ListLine::split(const QString& line)
{
    return line.split(',', Qt::SkipEmptyParts);
}

} // namespace TARNOK
