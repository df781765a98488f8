// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"
#include "xmlelement.h"

#include <QList>
#include <QString>

#include <memory>

class QFile;
class QXmlStreamReader;

/// An XML document, read into a tree of elements.
///
/// Kept are elements, attributes and texts, by their local names; comments, processing
/// instructions, the document type and texts of blanks only are not. Of a text that a child or a
/// comment splits, the last part that is not blank is kept. A document without any element, such as
/// an XML declaration alone, has no root: that is no failure.
///
///     for (const auto& item : SimpleDom(xml).elementsByName(QStringLiteral("item")))
///         total += item->childAt(0)->innerText().toInt();
///
/// How long elements live: each pointer obtained from the tree, by a search or by an element's
/// parent() and childAt(), keeps the whole tree, root and children included, however long the
/// document itself lives. Once the document, its copies and all such pointers are gone, so is the
/// tree. Elements that were made elsewhere and added to it belong to it from then on: held by the
/// pointer that they were made with, they keep their parents only, and lose their children when the
/// tree goes. Two trees that hold elements of each other are not freed.
///
/// *Threads*: one thread at a time, copies and elements of the same tree included.
/// *Owns*: shares its tree with its copies and with what it handed out.
/// *Fails*: throws Exception, as said at each function.
class KEZ_EXPORT SimpleDom {
public:
    /// Throws Exception: EmptyXml, or as readDom().
    explicit SimpleDom(const QString& xml);

    /// Reads the file from its current position to its end, and leaves it open.
    ///
    /// Throws Exception: FileDescriptorCannotBeNull, FileNotOpened (for one that is not open for
    /// reading as well), or as readDom().
    explicit SimpleDom(QFile* file);
    SimpleDom(const SimpleDom& other);
    SimpleDom(SimpleDom&& other) noexcept;
    SimpleDom& operator=(const SimpleDom& other);
    SimpleDom& operator=(SimpleDom&& other) noexcept;
    virtual ~SimpleDom();

    /// The document's top element; an empty pointer for a document without any element.
    std::shared_ptr<XmlElement> root() const;

    /// Every element of that name, case-sensitive and without prefix, in the order of the document:
    /// an element before those below it.
    QList<std::shared_ptr<XmlElement>> elementsByName(const QString& name) const;

    /// The tree as XmlElement::toString() writes it, on one line unless `indented`; empty without
    /// root.
    QString toString(bool indented) const;

    /// Reads a document in place of the one before, which stays on a failure. From a reader that
    /// stands inside a document already, the next element becomes the root, and what follows it is
    /// left out.
    ///
    /// A reader without device that holds no markup yet but a declaration stays as it was at its
    /// end: given more data, it can be read again.
    ///
    /// Throws Exception: ErrorEncountered with the reader's text, after "***** "; and
    /// DuplicateProperty for two attributes of an element that differ only by their prefixes.
    void readDom(QXmlStreamReader& reader);

private:
    std::shared_ptr<XmlElement> _root;
};
