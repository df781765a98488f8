// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"
#include "properties.h"

#include <QList>
#include <QString>
#include <QXmlStreamAttributes>

#include <memory>

class XmlTree;

/// One element of an XML tree: a name, attributes, a text, child elements and its parent.
///
/// *Threads*: one thread at a time, the whole tree included.
/// *Owns*: shares its attributes, its children **and its parent**. A tree that was built by hand
/// with parents therefore stays until somebody takes it apart: clearChildren() on its root. A tree
/// that SimpleDom read needs nothing of the kind; see there how long its elements live.
/// *Fails*: throws Exception, as said at each function.
class KEZ_EXPORT XmlElement {
public:
    /// Does not add the new element to the children of `parent`: addChild() does.
    explicit XmlElement(const QString& name, std::shared_ptr<XmlElement> parent = nullptr);
    XmlElement(const XmlElement&) = delete;
    XmlElement& operator=(const XmlElement&) = delete;
    virtual ~XmlElement();

    QString name() const;

    /// An empty pointer for a root.
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

    /// The element and everything below it, without an XML declaration and without a newline at the
    /// end. `indent`: the blanks before it, its children having four more; below 0 for one line
    /// without blanks.
    ///
    ///     <order            <order client="ACME" id="7"><item>Nuts</item></order>
    ///            id="7">
    ///
    /// Attributes come in the order of their names. Nothing is escaped: what holds "&", "<" or a
    /// double quote does not read back. An element that has a text is written without its children,
    /// and, if it has any, with a second ">" before the text: callers rely on both.
    QString toString(int indent) const;

    /// Replaces the attributes: local names, without prefixes. Throws Exception (DuplicateProperty)
    /// when two differ only by their prefixes; those before the second of them are then set.
    void setAttributes(QXmlStreamAttributes attributes);

    /// False, and nothing changed, when the attribute exists.
    bool appendAttribute(const QString& name, const QString& value);

    /// Replaces the value of an existing attribute and returns the one before. Throws Exception for
    /// a missing one.
    QString updateAttribute(const QString& name, const QString& value);

    void setInnerText(const QString& text);

    /// Appends the child and leaves its parent() alone: that is given when the child is made. An
    /// empty pointer is ignored. An element must not be added below itself.
    void addChild(std::shared_ptr<XmlElement> child);

    /// Takes out the children. Below an element built by hand it also takes out the children's
    /// children and so on, so that nothing of them stays that nobody else holds; what is held keeps
    /// its parents. What is taken out of a tree that SimpleDom read stays whole, and goes with the
    /// tree.
    void clearChildren();

private:
    friend class XmlTree;
    using Children = QList<std::shared_ptr<XmlElement>>;

    static std::shared_ptr<XmlElement> handedOut(const std::shared_ptr<XmlElement>& element);
    void appendStart(QString& text, qsizetype margin) const;
    void appendAttributes(QString& text, qsizetype margin) const;
    void appendEnd(QString& text) const;

    QString _name;
    QString _innerText;
    std::shared_ptr<XmlElement> _parent;
    std::shared_ptr<Properties> _attributes;
    std::shared_ptr<Children> _children;

    /// The read tree that the element is part of, and the element's own place in memory, which
    /// links inside that tree use: a link that kept the tree would keep it for ever.
    std::weak_ptr<XmlTree> _tree;
    std::weak_ptr<XmlElement> _self;
};
