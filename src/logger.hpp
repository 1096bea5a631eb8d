// The one channel through which the system speaks to its user.
#pragma once

#include "singleton.hpp"

#include <QFile>
#include <QList>
#include <QString>

#include <cstdarg>
#include <memory>

class QTextEdit;

namespace TARNOK {

// Messages with a priority go to one output at a time if they reach the threshold; a gag holds them back until the
// front end is ready for them. Only one thread at a time may log.
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
        OUTPUT_SILENT = 6, // as a threshold: nothing passes but what is written at this priority itself
    };

    // Longest line in bytes; what is longer is cut. Standard output has no limit.
    static constexpr int MAX_LINE = 511;

    // Longest text of one write() to a file, in bytes.
    static constexpr int MAX_FILE_WRITE = 256;

    // The text pane, which programs without a window are linked without.
    class Pane
    {
    public:
        virtual ~Pane() = default;
        virtual void appendLine(OUTPUTPRIORITY priority, const char* text) = 0;
        virtual void append(const char* text) = 0;
        virtual void beginBatch() = 0;
        virtual void endBatch() = 0;
    };

    // One line, printf style. A message below the threshold, or without an output, is lost, gagged or not.
    void println(OUTPUTPRIORITY priority, const char* format, ...) __attribute__((format(printf, 3, 4)));

    // Text as it stands, without a line end. The gag doesn't hold it back.
    void write(OUTPUTPRIORITY priority, const char* text);

    // To a terminal, control characters are escaped but for line ends and tabs: what names of files hold could move its
    // cursor or worse.
    void setPrintToStdout();

    // A file of records of MAX_LINE + 2 bytes, one a line: text, zeros up to 512 bytes, "\n". False if it can't be
    // opened; the former output then stays.
    bool setPrintToFile(const QString& path, bool append);

    // edit is not owned and may be null.
    void setPrintToQTextEdit(QTextEdit* edit);

    void gag() { mGagged = true; }

    // Ends the gag and prints what was held, oldest first, as formats and through the threshold as it stands now.
    void ungag();

    OUTPUTPRIORITY verbosity() const { return mVerbosity; }
    void setVerbosity(OUTPUTPRIORITY threshold) { mVerbosity = threshold; }

    // While one lives, the text pane takes in lines without laying each of them out anew: a build out of the cache
    // reports thousands of sounds at once.
    class Batch
    {
    public:
        explicit Batch(const Logger* logger);
        ~Batch();
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;

    private:
        std::shared_ptr<Pane> mPane; // stays until the batch ends
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
    std::shared_ptr<Pane> mPane; // none: lines for it are lost
};

// The program's one logger.
inline Logger* logger()
{
    return Singleton<Logger>::instance();
}

} // namespace TARNOK
