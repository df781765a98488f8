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
/// Elements and attributes are kept by their local names, and so are texts. Comments, processing
/// instructions, the document type and texts that are all blank are not kept. If a child or a
/// comment splits a text, the last part that is not blank is kept, with the blanks around it. A
/// document without markup, or with an XML declaration and nothing else, has no root and is not a
/// failure.
///
///     for (const auto& item : SimpleDom(xml).elementsByName(QStringLiteral("item")))
///         total += item->childAt(0)->innerText().toInt();
///
/// How long elements live:
///
/// - A pointer obtained from the tree, by root(), by a search or by an element's parent() and
///   childAt(), keeps the whole tree, even if the document itself is destroyed.
/// - The tree is freed with the last of the document, its copies and these pointers.
/// - An element that is made elsewhere and added belongs to the tree from then on. The pointer that
///   it was made with keeps its parents only: when the tree is freed, the element loses its
///   children.
/// - Two trees that hold elements of each other are not freed. Nor is a tree if one of its elements
///   was made with a parent that is outside of it, and that was made with a parent inside.
///
/// All pointers obtained from one tree share one owner, the tree. So owner_before() does not tell
/// them apart (compare them by ==), use_count() counts the holders of the tree, and a weak pointer
/// to an element expires with the tree and not when the element is taken out.
///
/// *Threads*: one thread at a time for a tree, with all its copies and elements.
/// *Owns*: shares its tree with its copies and with the pointers that it handed out.
/// *Fails*: throws Exception, as said at each function.
class KEZ_EXPORT SimpleDom {
public:
    /// Throws Exception: EmptyXml, or as readDom().
    explicit SimpleDom(const QString& xml);

    /// Reads the file from its current position to its end, and leaves it open.
    ///
    /// Throws Exception: FileDescriptorCannotBeNull, FileNotOpened (for a file that is not open, or
    /// open for writing only), or as readDom().
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

    /// The tree as XmlElement::toString() writes it, on one line unless `indented`; empty if there
    /// is no root.
    QString toString(bool indented) const;

    /// Reads a document in place of the one before, which stays if this fails. If the reader stands
    /// inside a document already, the next element becomes the root, and what follows that element
    /// is left out.
    ///
    /// A reader without device that holds nothing but blanks or a declaration is left at its end:
    /// when markup is added, it can be read again. Blanks in UTF-16, or a byte order mark of UTF-16
    /// alone, count as markup there. After a failure a reader cannot be used further.
    ///
    /// Throws Exception: ErrorEncountered with the reader's text, after "***** "; and
    /// DuplicateProperty for two attributes of an element that differ only by their prefixes.
    void readDom(QXmlStreamReader& reader);

private:
    std::shared_ptr<XmlElement> _root;
};
