// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/xmlelement.h"
#include "frame/failure_p.h"
#include "xml/xmltree_p.h"

#include <QObject>

#include <vector>

namespace {

/// The links of an element that is being destroyed.
struct Links {
    std::shared_ptr<XmlElement> parent;
    std::shared_ptr<QList<std::shared_ptr<XmlElement>>> children;
};

/// The links that this thread still has to release. The first destructor on the stack releases them
/// one by one. It also releases the links of elements that are destroyed on the way. A deep tree
/// therefore does not need a deep stack.
thread_local std::vector<Links>* t_pending = nullptr;

void release(Links links)
{
    if (t_pending != nullptr) {
        t_pending->push_back(std::move(links));
        return;
    }
    std::vector<Links> pending;
    t_pending = &pending;
    pending.push_back(std::move(links));
    while (!pending.empty()) {
        const Links next = std::move(pending.back());
        pending.pop_back();
    }
    t_pending = nullptr;
}

void appendBlanks(QString& text, qsizetype count)
{
    if (count > 0)
        text.resize(text.size() + count, QLatin1Char(' '));
}

void appendNewLine(QString& text, qsizetype margin)
{
    if (margin >= 0)
        text += QLatin1Char('\n');
    appendBlanks(text, margin);
}

} // namespace

XmlElement::XmlElement(const QString& name, std::shared_ptr<XmlElement> parent)
    : _name(name), _parent(linkTo(std::move(parent)))
{}

XmlElement::~XmlElement()
{
    // The usual case in a tree that is freed: the parent has other holders, and there are no
    // children.
    if (!_children && _parent.use_count() != 1)
        return;
    release({std::move(_parent), std::move(_children)});
}

QString XmlElement::name() const
{
    return _name;
}

std::shared_ptr<XmlElement> XmlElement::parent() const
{
    if (!_parent)
        return nullptr;
    const std::shared_ptr<std::shared_ptr<XmlElement>> link = _parent->_asParent.lock();
    return handedOut(link && haveSameOwner(link, _parent) ? *link : _parent);
}

std::shared_ptr<Properties> XmlElement::attributes() const
{
    return _attributes;
}

bool XmlElement::hasAttribute(const QString& name) const
{
    return _attributes && _attributes->contains(name);
}

QString XmlElement::innerText() const
{
    return _innerText;
}

bool XmlElement::hasInnerText() const
{
    return !_innerText.isEmpty();
}

bool XmlElement::hasChild() const
{
    return chidrenCount() > 0;
}

int XmlElement::chidrenCount() const
{
    return _children ? static_cast<int>(_children->size()) : 0;
}

std::shared_ptr<XmlElement> XmlElement::childAt(int index) const
{
    if (index < 0 || index >= chidrenCount())
        return nullptr;
    return handedOut(_children->at(index));
}

QString XmlElement::toString(int indent) const
{
    struct Open {
        const XmlElement* element;
        qsizetype margin;
        int nextChild;
    };
    QString text;
    std::vector<Open> open;
    const auto start = [&](const XmlElement* element, qsizetype margin) {
        element->appendStart(text, margin);
        if (element->hasChild() && !element->hasInnerText())
            open.push_back({element, margin, 0});
    };
    start(this, indent);
    while (!open.empty()) {
        auto& [element, margin, nextChild] = open.back();
        if (nextChild < element->chidrenCount()) {
            if (margin >= 0)
                text += QLatin1Char('\n');
            start(element->_children->at(nextChild++).get(), margin < 0 ? margin : margin + 4);
        } else {
            appendNewLine(text, margin);
            element->appendEnd(text);
            open.pop_back();
        }
    }
    return text;
}

void XmlElement::setAttributes(QXmlStreamAttributes attributes)
{
    _attributes = std::make_shared<Properties>();
    for (const QXmlStreamAttribute& attribute : std::as_const(attributes))
        _attributes->insert(attribute.name().toString(), attribute.value().toString(), false);
}

bool XmlElement::appendAttribute(const QString& name, const QString& value)
{
    if (hasAttribute(name))
        return false;
    if (!_attributes)
        _attributes = std::make_shared<Properties>();
    _attributes->insert(name, value, false);
    return true;
}

QString XmlElement::updateAttribute(const QString& name, const QString& value)
{
    if (!hasAttribute(name))
        throw Exception(Failure::completed(QObject::tr("L'attribut [%1] n'existe pas"), name));
    return _attributes->setValue(name, value);
}

void XmlElement::setInnerText(const QString& text)
{
    _innerText = text;
}

void XmlElement::addChild(std::shared_ptr<XmlElement> child)
{
    if (!child)
        return;
    const std::shared_ptr<XmlTree> tree = _tree.lock();
    const std::shared_ptr<XmlTree> childsTree = child->_tree.lock();
    if (tree && !childsTree)
        XmlTree::adopt(tree, child);
    else
        child = tree == childsTree ? XmlTree::direct(child) : handedOut(child);
    if (!_children)
        _children = std::make_shared<Children>();
    _children->append(std::move(child));
}

void XmlElement::clearChildren()
{
    if (!_children)
        return;
    Children removed = std::move(*std::exchange(_children, nullptr));
    if (const std::shared_ptr<XmlTree> tree = _tree.lock())
        tree->keep(std::move(removed));
    else
        letGo(std::move(removed));
}

std::shared_ptr<XmlElement> XmlElement::removeChild(int index)
{
    std::shared_ptr<XmlElement> child = childAt(index);
    if (!child)
        return child;
    std::shared_ptr<XmlElement> removed = _children->takeAt(index);
    if (const std::shared_ptr<XmlTree> tree = _tree.lock())
        tree->keep({std::move(removed)});
    return child;
}

/// A pointer to an element of a read tree owns that tree.
std::shared_ptr<XmlElement> XmlElement::handedOut(const std::shared_ptr<XmlElement>& element)
{
    const std::shared_ptr<XmlTree> tree = element ? element->_tree.lock() : nullptr;
    return tree ? std::shared_ptr<XmlElement>(tree, element.get()) : element;
}

/// The pointer that an element made with `parent` keeps. A pointer that owns a read tree stays as
/// it is: XmlTree::adopt() replaces it.
std::shared_ptr<XmlElement> XmlElement::linkTo(std::shared_ptr<XmlElement> parent)
{
    if (!parent || parent.use_count() == 0)
        return parent;
    XmlElement* const element = parent.get();
    const std::shared_ptr<XmlTree> tree = element->_tree.lock();
    std::shared_ptr<std::shared_ptr<XmlElement>> link = element->_asParent.lock();
    if ((tree && haveSameOwner(parent, tree)) || (link && !haveSameOwner(parent, *link)))
        return parent;
    if (!link) {
        link = std::make_shared<std::shared_ptr<XmlElement>>(std::move(parent));
        element->_asParent = link;
    }
    return {std::move(link), element};
}

/// Whether anything except `element` and parent links holds the element.
bool XmlElement::isHeldElsewhere(const std::shared_ptr<XmlElement>& element)
{
    const std::shared_ptr<std::shared_ptr<XmlElement>> link = element->_asParent.lock();
    return element.use_count() > (link && haveSameOwner(element, *link) ? 2 : 1);
}

/// Releases the elements, and the children of those that nobody else holds. If an element is in the
/// list several times, the last of these pointers decides.
void XmlElement::letGo(Children elements)
{
    while (!elements.isEmpty()) {
        const std::shared_ptr<XmlElement> element = elements.takeLast();
        if (element->_children && element->_tree.expired() && !isHeldElsewhere(element))
            elements.append(std::move(*std::exchange(element->_children, nullptr)));
    }
}

/// The whole element if none of its children are written, else its opening tag. `margin` is the
/// argument of toString().
void XmlElement::appendStart(QString& text, qsizetype margin) const
{
    appendBlanks(text, margin);
    text += QLatin1Char('<') + _name;
    appendAttributes(text, margin);
    if (hasChild())
        text += QLatin1Char('>');
    if (hasInnerText()) {
        text += QLatin1Char('>');
        appendNewLine(text, margin);
        if (margin >= 0)
            text += QLatin1String("    ");
        text += _innerText;
        appendNewLine(text, margin);
        appendEnd(text);
    } else if (!hasChild()) {
        text += QLatin1String("/>");
    }
}

void XmlElement::appendAttributes(QString& text, qsizetype margin) const
{
    if (!_attributes)
        return;
    bool isFirst = true;
    const std::shared_ptr<const Dictionnary> values = _attributes->toDictionnary();
    for (auto it = values->cbegin(); it != values->cend(); ++it) {
        if (isFirst || margin < 0) {
            text += QLatin1Char(' ');
        } else {
            appendNewLine(text, margin);
            appendBlanks(text, _name.size() + 2);
        }
        text += it.key() + QLatin1String("=\"") + it.value() + QLatin1Char('"');
        isFirst = false;
    }
}

void XmlElement::appendEnd(QString& text) const
{
    text += QLatin1String("</") + _name + QLatin1Char('>');
}
