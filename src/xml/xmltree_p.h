// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/xmlelement.h"

#include <QList>

#include <memory>

/// The owner of a tree that was read: whatever is handed out of the tree shares it, and once
/// nothing does, it takes the links between parents and children apart.
///
/// Inside the tree elements point to each other directly; to the outside they are pointers to the
/// element that own the tree. That is why a single held element keeps all of them whole, and why
/// adding an element (by whatever kind of pointer) has to turn it into a direct link first.
class XmlTree {
public:
    XmlTree() = default;
    XmlTree(const XmlTree&) = delete;
    XmlTree& operator=(const XmlTree&) = delete;
    ~XmlTree();

    /// Makes `root` and all below it a tree, and returns the root as it is handed out.
    static std::shared_ptr<XmlElement> own(const std::shared_ptr<XmlElement>& root);

    /// See SimpleDom::elementsByName().
    static QList<std::shared_ptr<XmlElement>>
    elementsByName(const std::shared_ptr<XmlElement>& root, const QString& name);

    /// Makes an element that was built by hand, and all below it, part of the tree.
    static void adopt(const std::shared_ptr<XmlTree>& tree,
                      const std::shared_ptr<XmlElement>& element);

    /// The pointer to `element` that its own tree's links use; `element` itself if it is in none.
    static std::shared_ptr<XmlElement> direct(const std::shared_ptr<XmlElement>& element);

    /// Keeps what an element of the tree has no longer as children: pointers to them that were
    /// handed out own the tree and nothing else.
    void keep(QList<std::shared_ptr<XmlElement>> removed);

    /// Takes the children out of `elements`, and theirs out of them, and so on, up to what is part
    /// of a tree that lives.
    static void takeApart(QList<std::shared_ptr<XmlElement>> elements);

private:
    QList<std::shared_ptr<XmlElement>> _tops;
};
