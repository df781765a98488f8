// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "xml/xmltree_p.h"

#include <QString>

#include <array>
#include <memory>

class QXmlStreamReader;

/// Builds a tree while it is read.
class XmlTreeBuilder {
public:
    XmlTreeBuilder() = default;
    XmlTreeBuilder(const XmlTreeBuilder&) = delete;
    XmlTreeBuilder& operator=(const XmlTreeBuilder&) = delete;

    /// To be called after each token. Throws as XmlElement::setAttributes().
    void take(const QXmlStreamReader& reader);

    /// The root, as a pointer that owns the tree; an empty pointer if there was no element.
    std::shared_ptr<XmlElement> finish();

private:
    void start(const QXmlStreamReader& reader);
    void setAttributes(const QXmlStreamReader& reader);
    const QString& name(QStringView read);

    std::shared_ptr<XmlTree> _tree;
    XmlElement* _root = nullptr;
    std::shared_ptr<XmlElement> _current;

    /// Names that were read, by their hash. Most of them come again and again, and then share their
    /// characters.
    std::array<QString, 256> _names;
};
