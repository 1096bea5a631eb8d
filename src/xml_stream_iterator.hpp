// SPDX-License-Identifier: MIT
// A step reader over QXmlStreamReader: text element, empty element, block start, block end, or error.
#pragma once

#include "logger.hpp"

#include <QString>
#include <QXmlStreamReader>

namespace TARNOK {

// Turns the tokens of a reader at the start of its stream into the steps in which project and profile files are read.
// Whitespace and comments between elements are skipped. Input that is none of the steps, and a step after an error,
// abort the process.
class XmlStreamIterator
{
public:
    enum State : quint32
    {
        XML_ERROR = 0,
        XML_EMPTY_ELEMENT = 1, // text() is the name as well
        XML_TEXT_ELEMENT = 2,
        XML_BLOCK_START = 3,
        XML_BLOCK_END = 4,
    };

    // Reads up to the root element. The reader is not owned.
    explicit XmlStreamIterator(QXmlStreamReader* reader)
        : mState(XML_BLOCK_END)
        , mReader(reader)
    {
        const QXmlStreamReader::TokenType first = mReader->readNext();
        if (first != QXmlStreamReader::StartDocument)
            qt_assert("mReader->readNext() == QXmlStreamReader::StartDocument", __FILE__, __LINE__);
        skip();
    }

    // Moves one step and returns its kind.
    int operator++()
    {
        mName.clear();
        mText.clear();
        Q_ASSERT(mState != XML_ERROR);
        mName = mReader->name().toString();
        mState = XML_ERROR;

        switch (mReader->tokenType()) {
        case QXmlStreamReader::EndElement:
            skip();
            mState = XML_BLOCK_END;
            break;
        case QXmlStreamReader::StartElement:
            readElement();
            break;
        default:
            raiseError("Expected either start or end block");
            logger()->println(Logger::OUTPUT_ERROR, "ERROR: [XML] near line %u, Expected either start or end block",
                              lineNumber());
            raiseError("");
            break;
        }
        return static_cast<int>(mState);
    }

    // Puts the reader and this iterator into the error state; message is UTF-8 and is used unchanged.
    void raiseError(const char* message)
    {
        mReader->raiseError(QString::fromUtf8(message));
        mState = XML_ERROR;
    }

    const QString& name() const { return mName; }
    const QString& text() const { return mText; }
    State state() const { return mState; }
    unsigned int lineNumber() const { return static_cast<unsigned int>(mReader->lineNumber()); }

private:
    void skip()
    {
        for (;;) {
            switch (mReader->readNext()) {
            case QXmlStreamReader::Characters:
                if (mReader->isWhitespace())
                    continue;
                return;
            case QXmlStreamReader::StartElement:
            case QXmlStreamReader::EndElement:
            case QXmlStreamReader::EndDocument:
            case QXmlStreamReader::Invalid:
                return;
            default:
                continue;
            }
        }
    }

    // The kind of an element is known only from what follows its start tag.
    void readElement()
    {
        skip();
        switch (mReader->tokenType()) {
        case QXmlStreamReader::Characters:
            mText = mReader->text().toString();
            mState = XML_TEXT_ELEMENT;
            mReader->readNext();
            Q_ASSERT(mReader->tokenType() == QXmlStreamReader::EndElement);
            Q_ASSERT(mReader->name() == mName);
            skip();
            break;
        case QXmlStreamReader::EndElement:
            mText = mName;
            mState = XML_EMPTY_ELEMENT;
            skip();
            break;
        case QXmlStreamReader::StartElement:
            mState = XML_BLOCK_START;
            break;
        default:
            Q_ASSERT(!"a start tag is followed by neither text nor a tag");
        }
    }

    QString mName;
    QString mText;
    State mState;
    QXmlStreamReader* mReader;
};

} // namespace TARNOK
