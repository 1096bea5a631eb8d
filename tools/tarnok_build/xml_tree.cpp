// SPDX-License-Identifier: MIT
#include "xml_tree.hpp"

#include <QFile>
#include <QXmlStreamReader>

namespace tarnok_build {

namespace {

constexpr int MAXIMUM_DEPTH = 100; // a project needs five

class TreeReader
{
public:
    explicit TreeReader(QIODevice* device)
        : mReader(device)
    {
        mReader.setNamespaceProcessing(false);
    }

    XmlDocument read()
    {
        XmlDocument document;
        while (!mReader.atEnd() && mFault.isEmpty()) {
            if (mReader.readNext() == QXmlStreamReader::StartElement)
                readElement(&document.root, 0);
        }
        if (mFault.isEmpty() && mReader.hasError())
            fail(mReader.errorString());
        document.fault = mFault;
        document.faultLine = mFaultLine;
        return document;
    }

private:
    void fail(const QString& text)
    {
        mFault = text;
        mFaultLine = mReader.lineNumber();
    }

    // The reader is at the start tag; afterwards it is at the end tag.
    void readElement(XmlElement* element, int depth)
    {
        element->name = mReader.name().toString();
        element->line = mReader.lineNumber();
        if (depth > MAXIMUM_DEPTH)
            fail("too many elements inside each other");
        while (mFault.isEmpty() && !mReader.atEnd()) {
            switch (mReader.readNext()) {
            case QXmlStreamReader::EndElement:
                return;
            case QXmlStreamReader::StartElement:
                if (element->kind == XmlElement::Kind::Text)
                    fail(QString("an element inside the text of '%1'").arg(element->name));
                element->kind = XmlElement::Kind::Block;
                element->children.emplace_back();
                readElement(&element->children.back(), depth + 1);
                break;
            case QXmlStreamReader::Characters:
                if (!mReader.isWhitespace())
                    takeText(element);
                else if (element->kind == XmlElement::Kind::Text)
                    fail(QString("the text of '%1' is in several parts").arg(element->name));
                break;
            default:
                if (element->kind == XmlElement::Kind::Text)
                    fail(QString("something other than text after the text of '%1'").arg(element->name));
                break;
            }
        }
    }

    void takeText(XmlElement* element)
    {
        if (element->kind == XmlElement::Kind::Block)
            fail(QString("text between the elements of '%1'").arg(element->name));
        else if (element->kind == XmlElement::Kind::Text)
            fail(QString("the text of '%1' is in several parts").arg(element->name));
        element->kind = XmlElement::Kind::Text;
        element->text = mReader.text().toString();
    }

    QXmlStreamReader mReader;
    QString mFault;
    qint64 mFaultLine = 0;
};

} // namespace

XmlDocument readXml(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        XmlDocument document;
        document.fault = file.errorString();
        return document;
    }
    return TreeReader(&file).read();
}

} // namespace tarnok_build
