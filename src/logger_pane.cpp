// SPDX-License-Identifier: MIT
#include "logger.hpp"

#include <QScrollBar>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextEdit>

namespace TARNOK {

namespace {

// The pane would treat a text with a tag in it, for instance in a file name, as rich text.
void appendAsItStands(QTextEdit* edit, const QString& text)
{
    if (!Qt::mightBeRichText(text)) {
        edit->append(text);
        return;
    }
    edit->append("");
    QTextCursor cursor(edit->document());
    cursor.movePosition(QTextCursor::End);
    cursor.insertText(text, edit->currentCharFormat());
}

// Writes into a text edit, errors in red.
class TextEditPane final : public Logger::Pane
{
public:
    explicit TextEditPane(QTextEdit* edit)
        : mTextEdit(edit)
    { }

    void appendLine(Logger::OUTPUTPRIORITY priority, const char* text) override
    {
        const QTextCharFormat saved = mTextEdit->currentCharFormat();
        if (priority == Logger::OUTPUT_ERROR)
            mTextEdit->setTextColor(Qt::red);
        append(text);
        if (priority == Logger::OUTPUT_ERROR)
            mTextEdit->setCurrentCharFormat(saved);
    }

    void append(const char* text) override { appendAsItStands(mTextEdit, QString::fromUtf8(text)); }

    void beginBatch() override
    {
        const QScrollBar* scrollBar = mTextEdit->verticalScrollBar();
        mAtBottom = scrollBar->value() >= scrollBar->maximum();
        QTextCursor(mTextEdit->document()).beginEditBlock();
    }

    void endBatch() override
    {
        QTextCursor(mTextEdit->document()).endEditBlock();
        // If the end was visible, it stays visible, as it does for single lines.
        if (mAtBottom)
            mTextEdit->verticalScrollBar()->setValue(mTextEdit->verticalScrollBar()->maximum());
    }

private:
    QTextEdit* mTextEdit;
    bool mAtBottom = false;
};

} // namespace

void Logger::setPrintToQTextEdit(QTextEdit* edit)
{
    mOutput = OUTPUT_TEXTEDIT;
    mPane = edit ? std::make_shared<TextEditPane>(edit) : nullptr;
}

} // namespace TARNOK
