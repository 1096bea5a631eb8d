// SPDX-License-Identifier: MIT
// The channel for all messages to the user.
#pragma once

#include "singleton.hpp"

#include <QFile>
#include <QList>
#include <QString>

#include <cstdarg>
#include <memory>

class QTextEdit;

namespace TARNOK {

// A message has a priority and goes to the current output if it reaches the threshold. A gag holds messages back until
// the front end is ready for them. Only one thread at a time may log.
class Logger
{
public:
    enum OUTPUTPRIORITY : quint32
    {
        OUTPUT_DEBUG = 0,
        OUTPUT_INFO = 1,
        OUTPUT_MESSAGE = 2,
        OUTPUT_NOTICE = 3,
        OUTPUT_WARNING = 4,
        OUTPUT_ERROR = 5,
        OUTPUT_SILENT = 6, // as a threshold: only messages of this priority pass
    };

    // Longest line in bytes; longer lines are cut. Standard output has no limit.
    static constexpr int MAX_LINE = 511;

    // Longest text of one write() to a file, in bytes.
    static constexpr int MAX_FILE_WRITE = 256;

    // The text pane. Programs without a window are linked without it.
    class Pane
    {
    public:
        virtual ~Pane() = default;
        virtual void appendLine(OUTPUTPRIORITY priority, const char* text) = 0;
        virtual void append(const char* text) = 0;
        virtual void beginBatch() = 0;
        virtual void endBatch() = 0;
    };

    // One line, printf style. A message below the threshold, or without an output, is dropped, gagged or not.
    void println(OUTPUTPRIORITY priority, const char* format, ...) __attribute__((format(printf, 3, 4)));

    // The text unchanged, without a line end. The gag doesn't hold it back.
    void write(OUTPUTPRIORITY priority, const char* text);

    // On a terminal, control characters except line ends and tabs are escaped: those in names of files could move the
    // cursor, or worse.
    void setPrintToStdout();

    // A file of records of MAX_LINE + 2 bytes, one per line: text, zeros up to 512 bytes, "\n". False if it can't be
    // opened; the output then stays the same.
    bool setPrintToFile(const QString& path, bool append);

    // edit is not owned and may be null.
    void setPrintToQTextEdit(QTextEdit* edit);

    void gag() { mGagged = true; }

    // Ends the gag and prints the held messages, oldest first, as formats, subject to the current threshold.
    void ungag();

    OUTPUTPRIORITY verbosity() const { return mVerbosity; }
    void setVerbosity(OUTPUTPRIORITY threshold) { mVerbosity = threshold; }

    // While one exists, the text pane appends lines without a new layout for each: a build from the cache reports
    // thousands of sounds in a moment.
    class Batch
    {
    public:
        explicit Batch(const Logger* logger);
        ~Batch();
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;

    private:
        std::shared_ptr<Pane> mPane; // kept until the batch ends
    };

private:
    struct Message
    {
        QString text;
        OUTPUTPRIORITY priority;
    };

    enum Output : quint32
    {
        OUTPUT_NONE = 0,
        OUTPUT_STDOUT = 1,
        OUTPUT_FILE = 2,
        OUTPUT_TEXTEDIT = 3
    };

    void vprintln(OUTPUTPRIORITY priority, const char* format, va_list arguments);
    void replay(OUTPUTPRIORITY priority, const char* format, ...);

    QList<Message> mMessages;
    bool mGagged = false;
    OUTPUTPRIORITY mVerbosity = OUTPUT_INFO;
    Output mOutput = OUTPUT_NONE;
    bool mIsTerminal = false; // standard output
    QFile mFile;
    std::shared_ptr<Pane> mPane; // null: lines for it are dropped
};

// The program's one logger.
inline Logger* logger()
{
    return Singleton<Logger>::instance();
}

} // namespace TARNOK
