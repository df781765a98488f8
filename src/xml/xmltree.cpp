// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "xml/xmltree_p.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace {

template <typename Pointer>
bool isOwnedBy(const Pointer& pointer, const std::shared_ptr<XmlTree>& tree)
{
    return !pointer.owner_before(tree) && !tree.owner_before(pointer);
}

} // namespace

XmlTree::~XmlTree()
{
    takeApart(std::move(_tops));
}

std::shared_ptr<XmlElement> XmlTree::own(const std::shared_ptr<XmlElement>& root)
{
    const auto tree = std::make_shared<XmlTree>();
    tree->_tops.append(root);
    adopt(tree, root);
    return {tree, root.get()};
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
        if (!element->_children)
            continue;
        const auto& children = *element->_children;
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
        next->_self = next;
        if (isOwnedBy(next->_parent, tree))
            next->_parent = direct(next->_parent);
        if (!next->_children)
            continue;
        for (std::shared_ptr<XmlElement>& child : *next->_children) {
            if (isOwnedBy(child, tree))
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

void XmlTree::keep(QList<std::shared_ptr<XmlElement>> removed)
{
    _tops.append(std::move(removed));
}

void XmlTree::takeApart(QList<std::shared_ptr<XmlElement>> elements)
{
    while (!elements.isEmpty()) {
        const std::shared_ptr<XmlElement> element = elements.takeLast();
        if (!element->_tree.expired() || !element->_children)
            continue;
        elements.append(std::move(*std::exchange(element->_children, nullptr)));
    }
}
