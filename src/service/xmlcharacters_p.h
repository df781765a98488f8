// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QSet>
#include <QString>
#include <QStringView>

/// What XML 1.0 can hold, as far as the core's reader reads it back.
namespace KezService {

/// Where a text stands in a document: what has to be escaped depends on it.
enum class XmlPlace { Content, Attribute };

/// The length of the beginning of `text` that stands for itself in a document.
qsizetype xmlPlainLength(QStringView text, XmlPlace place);

/// What stands for a character that is not plain; empty for one that XML cannot hold.
QStringView xmlReference(QChar character, XmlPlace place);

/// Whether the reader drops the text: it is all blanks, or empty.
bool isXmlBlank(QStringView text);

/// Tells which names are read back as they are written. These are the local names of XML, without
/// those that the stream reader refuses: long ones, and many letters in names of elements.
class XmlNames {
public:
    bool isOfElement(const QString& name) { return isName(name, _elements, "<%1/>"); }
    bool isOfAttribute(const QString& name);

private:
    static bool isName(const QString& name, QSet<QString>& known, const char* document);

    // Names that the reader took. To ask it takes longer than to write an element.
    QSet<QString> _elements;
    QSet<QString> _attributes;
};

} // namespace KezService
