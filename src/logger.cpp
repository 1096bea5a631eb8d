// SPDX-License-Identifier: MIT
#include "logger.hpp"

#include "console_remarks.hpp"

#include <QRegularExpression>

#include <array>
#include <clocale>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <tuple>

#include <unistd.h>

namespace TARNOK {

namespace {

// Messages are UTF-8 in every locale: wide strings in them are converted in the locale of the thread, and a failed
// conversion truncates the message.
class Utf8Conversions
{
public:
    Utf8Conversions() { uselocale(utf8()); }
    ~Utf8Conversions() { uselocale(mFormer); }
    Utf8Conversions(const Utf8Conversions&) = delete;
    Utf8Conversions& operator=(const Utf8Conversions&) = delete;

private:
    static locale_t utf8()
    {
        static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return locale ? locale : LC_GLOBAL_LOCALE;
    }

    locale_t mFormer = uselocale(nullptr);
};

// A finished line, padded with zeros.
struct Line
{
    char text[Logger::MAX_LINE + 1] = {};

    Line(const char* format, va_list arguments)
    {
        const Utf8Conversions conversions;
        std::vsnprintf(text, sizeof text, format, arguments);
    }
};

void printEscaped(const char* format, va_list arguments)
{
    char* text = nullptr;
    if (vasprintf(&text, format, arguments) < 0)
        return;
    const std::unique_ptr<char, void (*)(void*)> owner(text, std::free);
    std::fputs(withEscapedControls(QString::fromUtf8(text), QLatin1StringView("\n\t")).toUtf8().constData(), stdout);
}

// The number of arguments that a replayed message gets.
constexpr int REPLAY_ARGUMENTS = 8;

// Escapes the printf conversions of a text for which zero isn't a valid argument: those that write through their
// argument, take a floating-point number or a width from the arguments, are very wide, or come after the last argument.
QString withSafeConversions(const QString& text)
{
    static const QRegularExpression conversion(
        "%(?:%|[-+ #0']*\\d{0,3}(?:\\.\\d{0,3})?(?:hh|h|ll|l|j|z|t)?([diouxXcsp])|)");
    QString safe;
    qsizetype at = 0;
    int arguments = 0;
    for (auto matches = conversion.globalMatch(text); matches.hasNext();) {
        const QRegularExpressionMatch match = matches.next();
        const bool takesArgument = !match.captured(1).isEmpty();
        const bool harmless = match.captured() == "%%" || (takesArgument && arguments < REPLAY_ARGUMENTS);
        arguments += takesArgument;
        safe += text.mid(at, match.capturedStart() - at) + (harmless ? "" : "%") + match.captured();
        at = match.capturedEnd();
    }
    return safe + text.mid(at);
}

} // namespace

void Logger::println(OUTPUTPRIORITY priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vprintln(priority, format, arguments);
    va_end(arguments);
}

void Logger::vprintln(OUTPUTPRIORITY priority, const char* format, va_list arguments)
{
    if (priority < mVerbosity || mOutput == OUTPUT_NONE)
        return;

    if (mGagged) {
        mMessages.append({QString::fromUtf8(Line(format, arguments).text), priority});
        return;
    }

    switch (mOutput) {
    case OUTPUT_TEXTEDIT:
        if (mPane)
            mPane->appendLine(priority, Line(format, arguments).text);
        break;
    case OUTPUT_FILE: {
        const Line line(format, arguments);
        mFile.write(line.text, sizeof line.text);
        mFile.write("\n", 1);
        break;
    }
    case OUTPUT_STDOUT: {
        const Utf8Conversions conversions;
        if (mIsTerminal)
            printEscaped(format, arguments);
        else
            std::vfprintf(stdout, format, arguments);
        std::fputc('\n', stdout);
        break;
    }
    default:
        Q_ASSERT(!"unknown output");
    }
}

Logger::Batch::Batch(const Logger* logger)
    : mPane(logger->mOutput == OUTPUT_TEXTEDIT ? logger->mPane : nullptr)
{
    if (mPane)
        mPane->beginBatch();
}

Logger::Batch::~Batch()
{
    if (mPane)
        mPane->endBatch();
}

void Logger::write(OUTPUTPRIORITY priority, const char* text)
{
    if (priority < mVerbosity)
        return;

    switch (mOutput) {
    case OUTPUT_NONE:
        break;
    case OUTPUT_STDOUT:
        std::printf("%s", text);
        break;
    case OUTPUT_FILE:
        mFile.write(text, static_cast<qint64>(qstrnlen(text, MAX_FILE_WRITE)));
        break;
    case OUTPUT_TEXTEDIT:
        if (mPane)
            mPane->append(text);
        break;
    default:
        Q_ASSERT(!"unknown output");
    }
}

void Logger::setPrintToStdout()
{
    mOutput = OUTPUT_STDOUT;
    mIsTerminal = isatty(fileno(stdout)) != 0;
}

bool Logger::setPrintToFile(const QString& path, bool append)
{
    const QIODevice::OpenMode mode =
        append ? QIODevice::WriteOnly | QIODevice::Append : QIODevice::OpenMode(QIODevice::WriteOnly);

    // Opened separately, so that the current log file stays in use if this one can't be opened.
    if (!QFile(path).open(mode))
        return false;

    mFile.close();
    mFile.setFileName(path);
    mFile.open(mode);
    if (mFile.openMode() != QIODevice::NotOpen)
        mOutput = OUTPUT_FILE;
    return mFile.isOpen();
}

void Logger::ungag()
{
    mGagged = false;
    const QList<Message> held = mMessages;
    for (const Message& message : held) {
        // A finished text is used as a format again, so that a "%" in it, for instance in a file name, is a conversion.
        // The conversions get these zeros, and not whatever is on the stack.
        const QByteArray format = withSafeConversions(message.text).toUtf8();
        const auto replayWith = [&](auto... nulls) {
            replay(message.priority, format.constData(), nulls...);
        };
        std::apply(replayWith, std::array<std::nullptr_t, REPLAY_ARGUMENTS>());
    }
    mMessages.clear();
}

void Logger::replay(OUTPUTPRIORITY priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vprintln(priority, format, arguments);
    va_end(arguments);
}

} // namespace TARNOK
