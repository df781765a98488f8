// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "xml/xmltree_p.h"

#include <algorithm>
#include <iterator>

namespace {

/// The elements that this thread still has to take apart. A tree that goes can be the last holder
/// of another tree, and so on. A long row of trees does not need a deep stack.
thread_local XmlTree::Elements* t_pending = nullptr;

} // namespace

XmlTree::~XmlTree()
{
    takeApart(std::move(_tops));
}

QList<std::shared_ptr<XmlElement>> XmlTree::elementsByName(const std::shared_ptr<XmlElement>& root,
                                                           const QString& name)
{
    QList<std::shared_ptr<XmlElement>> found;
    std::vector<const std::shared_ptr<XmlElement>*> pending;
    if (root)
        pending.push_back(&root);
    while (!pending.empty()) {
        const std::shared_ptr<XmlElement>& element = *pending.back();
        pending.pop_back();
        if (element->_name == name)
            found.append(XmlElement::handedOut(element));
        const auto& children = element->_children;
        std::transform(children.crbegin(), children.crend(), std::back_inserter(pending),
                       [](const std::shared_ptr<XmlElement>& child) { return &child; });
    }
    return found;
}

void XmlTree::adopt(const std::shared_ptr<XmlTree>& tree,
                    const std::shared_ptr<XmlElement>& element)
{
    std::vector<std::shared_ptr<XmlElement>> pending{element};
    while (!pending.empty()) {
        const std::shared_ptr<XmlElement> next = std::move(pending.back());
        pending.pop_back();
        next->_tree = tree;
        next->setSelf(next);
        next->_isKept = false;
        if (haveSameOwner(next->_parent, tree))
            next->linkTo(direct(next->_parent));
        for (std::shared_ptr<XmlElement>& child : next->_children) {
            if (haveSameOwner(child, tree))
                child = direct(child);
            else if (child->_tree.expired())
                pending.push_back(child);
        }
    }
}

std::shared_ptr<XmlElement> XmlTree::direct(const std::shared_ptr<XmlElement>& element)
{
    return element->_tree.expired() ? element : element->_self.lock();
}

void XmlTree::makeRoomFor(size_t count)
{
    if (count > _tops.capacity() - _tops.size())
        _tops.reserve(std::max(_tops.size() + count, 2 * _tops.size()));
}

void XmlTree::keep(Elements removed)
{
    for (std::shared_ptr<XmlElement>& element : removed) {
        if (element->_isKept || element->_tree.lock().get() != this)
            continue;
        _tops.push_back(std::move(element));
        _tops.back()->_isKept = true;
    }
}

void XmlTree::takeApart(Elements elements)
{
    if (t_pending != nullptr) {
        moveTo(*t_pending, std::move(elements));
        return;
    }
    t_pending = &elements;
    while (!elements.empty()) {
        const std::shared_ptr<XmlElement> element = std::move(elements.back());
        elements.pop_back();
        if (element->_tree.expired())
            moveTo(elements, std::exchange(element->_children, {}));
    }
    t_pending = nullptr;
}
