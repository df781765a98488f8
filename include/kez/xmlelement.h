// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"
#include "properties.h"

#include <QList> // not used here any more, but programs may rely on it
#include <QString>
#include <QXmlStreamAttributes>

#include <atomic>
#include <memory>
#include <utility>
#include <variant>
#include <vector>

class XmlText;
class XmlTree;
class XmlTreeBuilder;

/// One element of an XML tree: a name, attributes, a text, child elements and its parent.
///
/// *Threads*: one thread at a time for the whole tree, also for what only reads.
/// *Owns*: shares its attributes, its children **and its parent**. A tree that was built by hand
/// with parents therefore stays in memory until clearChildren() is called on its root, while no
/// other pointer to its elements is left. A local variable is such a pointer:
///
///     auto item = std::make_shared<XmlElement>("item", root);
///     root->addChild(item);
///     item.reset(); // otherwise `item` would keep its own children
///     root->clearChildren();
///
/// A tree that SimpleDom read is freed automatically; see there how long its elements live.
/// *Fails*: throws Exception, as said at each function.
class KEZ_EXPORT XmlElement {
public:
    /// Does not add the new element to the children of `parent`: addChild() does.
    explicit XmlElement(const QString& name, std::shared_ptr<XmlElement> parent = nullptr);
    XmlElement(const XmlElement&) = delete;
    XmlElement& operator=(const XmlElement&) = delete;
    virtual ~XmlElement();

    QString name() const;

    /// The parent that the element was made with; an empty pointer for a root.
    std::shared_ptr<XmlElement> parent() const;

    /// The dictionary itself, not a copy; an empty pointer before the first attribute was set.
    std::shared_ptr<Properties> attributes() const;
    bool hasAttribute(const QString& name) const;

    QString innerText() const;
    bool hasInnerText() const;

    bool hasChild() const;
    int chidrenCount() const;

    /// An empty pointer for an index out of range.
    std::shared_ptr<XmlElement> childAt(int index) const;

    /// The element and everything below it, without an XML declaration and without a line feed at
    /// the end. `indent`: the number of blanks before it; its children have four more. With a
    /// negative `indent` all is on one line without blanks.
    ///
    ///     <order            <order client="ACME" id="7"><item>Nuts</item></order>
    ///            id="7">
    ///
    /// Attributes come in the order of their names. Nothing is escaped: a name, value or text with
    /// "&", "<" or a double quote cannot be read back. An element that has a text is written
    /// without its children; if it has any, a second ">" comes before the text. Both are kept for
    /// compatibility. With `indent` of 0 or more a text stands on a line of its own: when such a
    /// document is read again, these line feeds and blanks belong to the text.
    QString toString(int indent) const;

    /// Replaces the attributes: local names, without prefixes. Throws Exception (DuplicateProperty)
    /// if two differ only by their prefixes; those before the second of them are then set.
    void setAttributes(QXmlStreamAttributes attributes);

    /// Returns false and changes nothing if the attribute exists.
    bool appendAttribute(const QString& name, const QString& value);

    /// Replaces the value of an existing attribute and returns the one before. Throws Exception for
    /// a missing one.
    QString updateAttribute(const QString& name, const QString& value);

    void setInnerText(const QString& text);

    /// Appends the child and does not change its parent(), which is set when the child is made. An
    /// empty pointer is ignored. An element must not be added below itself.
    void addChild(std::shared_ptr<XmlElement> child);

    /// Takes out all children. In a tree built by hand, each child is treated in one of three ways:
    ///
    /// - It is held by a pointer of the application, or by another element that has it as a child:
    ///   it keeps its children, and is a tree of its own from then on. Call clearChildren() on it
    ///   before its last pointer is destroyed.
    /// - It is not held: it is freed at once, and its children are treated in the same way.
    /// - It is held only by parent() links: it stays as long as they need it, but loses its
    ///   children, which are treated in the same way.
    ///
    /// In a tree that SimpleDom read, what is taken out stays whole and is freed with the tree.
    void clearChildren();

    /// Takes out one child and returns it with everything below it; an empty pointer for an index
    /// out of range. Like addChild(), it does not change the child's parent(). In a tree that
    /// SimpleDom read, the pointer is as those of childAt(): it keeps the whole tree. In a tree
    /// built by hand, call clearChildren() on a child that is not added again.
    std::shared_ptr<XmlElement> removeChild(int index);

private:
    friend class XmlTree;
    friend class XmlTreeBuilder;

    struct Links;
    using Children = std::vector<std::shared_ptr<XmlElement>>;

    /// Names and values in the order of the names.
    using Attributes = std::vector<std::pair<QString, QString>>;

    KEZ_HIDDEN static std::shared_ptr<XmlElement>
    handedOut(const std::shared_ptr<XmlElement>& element);
    KEZ_HIDDEN void linkTo(std::shared_ptr<XmlElement> parent);
    KEZ_HIDDEN static void uncountLink(const std::shared_ptr<XmlElement>& parent);
    KEZ_HIDDEN void setSelf(const std::shared_ptr<XmlElement>& self);
    KEZ_HIDDEN static bool isHeldElsewhere(const std::shared_ptr<XmlElement>& element);
    KEZ_HIDDEN static void letGo(Children elements);
    KEZ_HIDDEN static void release(Links links);
    KEZ_HIDDEN bool trySetAttributes(Attributes attributes);
    KEZ_HIDDEN void appendStart(XmlText& text, qsizetype margin) const;
    KEZ_HIDDEN void appendAttributes(XmlText& text, qsizetype margin) const;
    KEZ_HIDDEN void appendEnd(XmlText& text) const;

    QString _name;
    QString _innerText;
    std::shared_ptr<XmlElement> _parent;

    /// The attributes as they were set, until somebody asks for the dictionary. Then the
    /// dictionary, which that caller may keep and change.
    mutable std::variant<std::shared_ptr<Properties>, Attributes> _attributes;
    Children _children;

    /// The read tree that the element is part of, and the pointer to the element that links inside
    /// that tree use. A link that owned the tree would keep it for ever.
    std::weak_ptr<XmlTree> _tree;
    std::weak_ptr<XmlElement> _self;

    /// How many parent links to the element share the owner of `_self`, so that clearChildren() can
    /// tell them from other holders; and whether the link to the parent is counted there. Elements
    /// that were taken out of a tree may be released in several threads.
    std::atomic<int> _linkCount = 0;
    bool _isCounted = false;

    /// Whether the read tree keeps the element until the tree is freed, even without a parent.
    bool _isKept = false;
};
