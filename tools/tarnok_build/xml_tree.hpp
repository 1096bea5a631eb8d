// SPDX-License-Identifier: MIT
// An XML document as a tree, with the lines of its elements.
#pragma once

#include <QString>

#include <vector>

namespace tarnok_build {

struct XmlElement
{
    // What an element holds, as the readers of projects and profiles distinguish it.
    enum class Kind
    {
        Empty,
        Text,
        Block // of elements
    };

    QString name;
    QString text; // of a text element
    Kind kind = Kind::Empty;
    qint64 line = 0;
    std::vector<XmlElement> children; // of a block
};

struct XmlDocument
{
    XmlElement root;
    QString fault; // empty if the document can be read
    qint64 faultLine = 0;
};

// Blanks and comments between elements are skipped. Text and elements side by side are a fault, and so is anything
// after the text of an element but its end.
XmlDocument readXml(const QString& path);

} // namespace tarnok_build
