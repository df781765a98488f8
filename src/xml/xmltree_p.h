// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/xmlelement.h"

#include <QList>

#include <iterator>
#include <memory>
#include <utility>
#include <vector>

template <typename One, typename Other>
bool haveSameOwner(const One& one, const Other& other)
{
    return !one.owner_before(other) && !other.owner_before(one);
}

/// Appends the pointers of `from`, which goes.
inline void moveTo(std::vector<std::shared_ptr<XmlElement>>& list,
                   std::vector<std::shared_ptr<XmlElement>> from)
{
    list.insert(list.end(), std::make_move_iterator(from.begin()),
                std::make_move_iterator(from.end()));
}

/// The owner of a tree that was read. Everything that is handed out of the tree shares it; when the
/// last such pointer goes, it takes the links between parents and children apart.
///
/// Inside the tree, elements point to each other directly. A pointer that is handed out points to
/// an element and owns the tree. So a single held element keeps the whole tree, and addChild() has
/// to turn a pointer of either kind into a direct link.
class XmlTree {
public:
    using Elements = std::vector<std::shared_ptr<XmlElement>>;

    XmlTree() = default;
    XmlTree(const XmlTree&) = delete;
    XmlTree& operator=(const XmlTree&) = delete;
    ~XmlTree();

    /// See SimpleDom::elementsByName().
    static QList<std::shared_ptr<XmlElement>>
    elementsByName(const std::shared_ptr<XmlElement>& root, const QString& name);

    /// Makes an element that was built by hand, and all below it, part of the tree.
    static void adopt(const std::shared_ptr<XmlTree>& tree,
                      const std::shared_ptr<XmlElement>& element);

    /// The pointer that the links inside the element's tree use; `element` itself if it is in none.
    static std::shared_ptr<XmlElement> direct(const std::shared_ptr<XmlElement>& element);

    /// After this, keep() does not fail for that many elements.
    void makeRoomFor(size_t count);

    /// Keeps what was taken out of an element of the tree: a pointer that was handed out owns the
    /// tree and not the element that it points to. Elements of other trees are released.
    void keep(Elements removed);

    /// Takes the children out of `elements`, then the children of these, and so on. Elements of a
    /// tree that still lives keep theirs.
    static void takeApart(Elements elements);

private:
    Elements _tops;
};
