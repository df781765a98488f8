// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/xmlelement.h>

#include <QMap>
#include <QString>

#include <memory>
#include <utility>
#include <vector>

using Element = std::shared_ptr<XmlElement>;

inline Element makeElement(const QString& name, const QString& text = QString(),
                           const QMap<QString, QString>& attributes = {})
{
    auto element = std::make_shared<XmlElement>(name);
    element->setInnerText(text);
    for (auto it = attributes.cbegin(); it != attributes.cend(); ++it)
        element->appendAttribute(it.key(), it.value());
    return element;
}

/// A new child that does not hold its parent, so that the tree is freed with its root.
inline Element addChild(const Element& parent, const QString& name, const QString& text = QString())
{
    const Element child = makeElement(name, text);
    parent->addChild(child);
    return child;
}

inline QMap<QString, QString> attributesOf(const XmlElement& element)
{
    return element.attributes() ? *element.attributes()->toDictionnary() : QMap<QString, QString>();
}

/// What differs in the two elements alone; empty if nothing does.
inline QString elementDifference(const XmlElement& a, const XmlElement& b)
{
    if (a.name() != b.name())
        return QStringLiteral("names: %1, %2").arg(a.name(), b.name());
    if (a.innerText() != b.innerText())
        return QStringLiteral("texts in %1: [%2], [%3]")
            .arg(a.name(), a.innerText(), b.innerText());
    if (attributesOf(a) != attributesOf(b))
        return QStringLiteral("attributes of ") + a.name();
    if (a.chidrenCount() != b.chidrenCount())
        return QStringLiteral("children of ") + a.name();
    return QString();
}

/// The first difference between two trees; empty if they are the same.
inline QString treeDifference(const XmlElement& a, const XmlElement& b)
{
    using Owned = std::shared_ptr<const XmlElement>;
    std::vector<std::pair<Owned, Owned>> pending;
    const auto compare = [&pending](const Owned& one, const Owned& other) {
        const QString difference = elementDifference(*one, *other);
        if (difference.isEmpty() && one->hasChild())
            pending.emplace_back(one, other);
        return difference;
    };
    QString difference = compare({Owned(), &a}, {Owned(), &b});
    while (difference.isEmpty() && !pending.empty()) {
        const auto [one, other] = std::move(pending.back());
        pending.pop_back();
        for (int i = 0; difference.isEmpty() && i < one->chidrenCount(); ++i)
            difference = compare(one->childAt(i), other->childAt(i));
    }
    return difference;
}
