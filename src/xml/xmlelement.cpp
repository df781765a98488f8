// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/xmlelement.h"
#include "frame/failure_p.h"
#include "xml/xmltext_p.h"
#include "xml/xmltree_p.h"

#include <QObject>

#include <algorithm>

/// The links of an element that is being destroyed.
struct XmlElement::Links {
    Links(std::shared_ptr<XmlElement> toParent, bool isToParentCounted, Children toChildren)
        : parent(std::move(toParent)), isCounted(isToParentCounted), children(std::move(toChildren))
    {}
    Links(Links&&) = default;
    Links& operator=(Links&&) = delete;
    ~Links()
    {
        children.clear(); // `parent` is a counted link until they are gone
        if (parent && isCounted)
            uncountLink(parent);
    }

    std::shared_ptr<XmlElement> parent;
    bool isCounted;
    Children children;
};

namespace {

void appendNewLine(XmlText& text, qsizetype margin)
{
    if (margin >= 0)
        text.append(u'\n');
    text.appendBlanks(margin);
}

} // namespace

XmlElement::XmlElement(const QString& name, std::shared_ptr<XmlElement> parent) : _name(name)
{
    linkTo(std::move(parent));
}

XmlElement::~XmlElement()
{
    // The usual case in a tree that is freed: other elements are linked to the parent, and there
    // are no children.
    const bool isLastLink = _isCounted ? _parent->_linkCount == 1 : _parent.use_count() == 1;
    if (isLastLink || !_children.empty())
        release({std::move(_parent), _isCounted, std::move(_children)});
    else if (_isCounted)
        uncountLink(_parent);
}

QString XmlElement::name() const
{
    return _name;
}

std::shared_ptr<XmlElement> XmlElement::parent() const
{
    return handedOut(_parent);
}

std::shared_ptr<Properties> XmlElement::attributes() const
{
    if (const Attributes* const attributes = std::get_if<Attributes>(&_attributes)) {
        const auto dictionary = std::make_shared<Properties>();
        for (const auto& [name, value] : *attributes)
            dictionary->insert(name, value, true);
        _attributes = dictionary;
    }
    return std::get<std::shared_ptr<Properties>>(_attributes);
}

bool XmlElement::hasAttribute(const QString& name) const
{
    if (const Attributes* const attributes = std::get_if<Attributes>(&_attributes))
        return std::ranges::binary_search(*attributes, name, {}, &Attributes::value_type::first);
    const auto& dictionary = std::get<std::shared_ptr<Properties>>(_attributes);
    return dictionary && dictionary->contains(name);
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
    return !_children.empty();
}

int XmlElement::chidrenCount() const
{
    return static_cast<int>(_children.size());
}

std::shared_ptr<XmlElement> XmlElement::childAt(int index) const
{
    if (index < 0 || index >= chidrenCount())
        return nullptr;
    return handedOut(_children[static_cast<size_t>(index)]);
}

QString XmlElement::toString(int indent) const
{
    struct Open {
        const XmlElement* element;
        qsizetype margin;
        size_t nextChild;
    };
    XmlText text;
    std::vector<Open> open;
    const auto start = [&](const XmlElement* element, qsizetype margin) {
        element->appendStart(text, margin);
        if (element->hasChild() && !element->hasInnerText())
            open.push_back({element, margin, 0});
    };
    start(this, indent);
    while (!open.empty()) {
        auto& [element, margin, nextChild] = open.back();
        if (nextChild < element->_children.size()) {
            if (margin >= 0)
                text.append(u'\n');
            start(element->_children[nextChild++].get(), margin < 0 ? margin : margin + 4);
        } else {
            appendNewLine(text, margin);
            element->appendEnd(text);
            open.pop_back();
        }
    }
    return text.take();
}

void XmlElement::setAttributes(QXmlStreamAttributes attributes)
{
    Attributes values;
    values.reserve(static_cast<size_t>(attributes.size()));
    for (const QXmlStreamAttribute& attribute : std::as_const(attributes))
        values.emplace_back(attribute.name().toString(), attribute.value().toString());
    if (trySetAttributes(std::move(values)))
        return;
    const auto dictionary = std::make_shared<Properties>();
    _attributes = dictionary;
    for (const QXmlStreamAttribute& attribute : std::as_const(attributes))
        dictionary->insert(attribute.name().toString(), attribute.value().toString(), false);
}

bool XmlElement::appendAttribute(const QString& name, const QString& value)
{
    if (hasAttribute(name))
        return false;
    std::shared_ptr<Properties> dictionary = attributes();
    if (!dictionary)
        _attributes = dictionary = std::make_shared<Properties>();
    dictionary->insert(name, value, false);
    return true;
}

QString XmlElement::updateAttribute(const QString& name, const QString& value)
{
    if (!hasAttribute(name))
        throw Exception(Failure::completed(QObject::tr("L'attribut [%1] n'existe pas"), name));
    return attributes()->setValue(name, value);
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
    _children.push_back(std::move(child));
}

void XmlElement::clearChildren()
{
    const std::shared_ptr<XmlTree> tree = _tree.lock();
    if (tree)
        tree->makeRoomFor(_children.size());
    Children removed = std::exchange(_children, {});
    if (tree)
        tree->keep(std::move(removed));
    else
        letGo(std::move(removed));
}

std::shared_ptr<XmlElement> XmlElement::removeChild(int index)
{
    std::shared_ptr<XmlElement> child = childAt(index);
    if (!child)
        return child;
    const auto place = _children.begin() + index;
    if (const std::shared_ptr<XmlTree> tree = _tree.lock())
        tree->keep({*place});
    _children.erase(place);
    return child;
}

/// A pointer to an element of a read tree owns that tree.
std::shared_ptr<XmlElement> XmlElement::handedOut(const std::shared_ptr<XmlElement>& element)
{
    const std::shared_ptr<XmlTree> tree = element ? element->_tree.lock() : nullptr;
    return tree ? std::shared_ptr<XmlElement>(tree, element.get()) : element;
}

/// A pointer that owns a read tree is not counted: XmlTree::adopt() replaces it. The parent counts
/// the links of one owner at a time.
void XmlElement::linkTo(std::shared_ptr<XmlElement> parent)
{
    _parent = std::move(parent);
    if (!_parent || _parent.use_count() == 0)
        return;
    if (haveSameOwner(_parent, _parent->_tree))
        return;
    if (_parent->_linkCount == 0 && _parent->_tree.expired())
        _parent->setSelf(_parent);
    _isCounted = haveSameOwner(_parent, _parent->_self);
    if (_isCounted)
        ++_parent->_linkCount;
}

/// To be called before a counted link goes.
void XmlElement::uncountLink(const std::shared_ptr<XmlElement>& parent)
{
    if (!haveSameOwner(parent, parent->_self)) // links of another owner are counted since
        return;
    if (--parent->_linkCount == 0 && parent->_tree.expired())
        parent->_self.reset(); // it keeps the owner's deleter, which may hold the element
}

void XmlElement::setSelf(const std::shared_ptr<XmlElement>& self)
{
    if (!haveSameOwner(self, _self))
        _linkCount = 0;
    _self = self;
}

/// Whether anything except `element` and parent links holds the element.
bool XmlElement::isHeldElsewhere(const std::shared_ptr<XmlElement>& element)
{
    const bool areCounted = haveSameOwner(element, element->_self);
    return element.use_count() > 1 + (areCounted ? element->_linkCount.load() : 0);
}

/// Releases the elements, and the children of those that nobody else holds. If an element is in the
/// list several times, the last of these pointers decides.
void XmlElement::letGo(Children elements)
{
    while (!elements.empty()) {
        const std::shared_ptr<XmlElement> element = std::move(elements.back());
        elements.pop_back();
        if (element->_tree.expired() && !isHeldElsewhere(element))
            moveTo(elements, std::exchange(element->_children, {}));
    }
}

/// The first destructor on the stack releases its links, and then one by one those of the elements
/// that are destroyed on the way. A deep tree therefore does not need a deep stack.
void XmlElement::release(Links links)
{
    thread_local std::vector<Links>* t_pending = nullptr;
    if (t_pending != nullptr) {
        t_pending->push_back(std::move(links));
        return;
    }
    std::vector<Links> pending;
    t_pending = &pending;
    {
        const Links first = std::move(links); // without a list: most often nothing follows
    }
    while (!pending.empty()) {
        const Links next = std::move(pending.back());
        pending.pop_back();
    }
    t_pending = nullptr;
}

/// Returns false and changes nothing if two attributes have the same name.
bool XmlElement::trySetAttributes(Attributes attributes)
{
    const auto name = &Attributes::value_type::first;
    std::ranges::sort(attributes, {}, name);
    if (std::ranges::adjacent_find(attributes, {}, name) != attributes.end())
        return false;
    _attributes = std::move(attributes);
    return true;
}

/// The whole element if none of its children are written, else its opening tag. `margin` is the
/// argument of toString().
void XmlElement::appendStart(XmlText& text, qsizetype margin) const
{
    text.appendBlanks(margin);
    text.append(u'<');
    text.append(_name);
    appendAttributes(text, margin);
    if (hasChild())
        text.append(u'>');
    if (hasInnerText()) {
        text.append(u'>');
        appendNewLine(text, margin);
        if (margin >= 0)
            text.appendBlanks(4);
        text.append(_innerText);
        appendNewLine(text, margin);
        appendEnd(text);
    } else if (!hasChild()) {
        text.append(u"/>");
    }
}

void XmlElement::appendAttributes(XmlText& text, qsizetype margin) const
{
    bool isFirst = true;
    const auto append = [&](const QString& name, const QString& value) {
        if (isFirst || margin < 0) {
            text.append(u' ');
        } else {
            appendNewLine(text, margin);
            text.appendBlanks(_name.size() + 2);
        }
        text.append(name);
        text.append(u"=\"");
        text.append(value);
        text.append(u'"');
        isFirst = false;
    };
    if (const Attributes* const attributes = std::get_if<Attributes>(&_attributes)) {
        for (const auto& [name, value] : *attributes)
            append(name, value);
    } else if (const auto& dictionary = std::get<std::shared_ptr<Properties>>(_attributes)) {
        const std::shared_ptr<const Dictionnary> values = dictionary->toDictionnary();
        for (auto it = values->cbegin(); it != values->cend(); ++it)
            append(it.key(), it.value());
    }
}

void XmlElement::appendEnd(XmlText& text) const
{
    text.append(u"</");
    text.append(_name);
    text.append(u'>');
}
