// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "frame/hashing_p.h"
#include "xml/prologue_p.h"
#include "xml/xmltreebuilder_p.h"

#include <QXmlStreamReader>

#include <algorithm>
#include <utility>

namespace {

/// The reader's own isWhitespace() is false for a CDATA section of blanks.
bool isBlank(QStringView text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) { return isXmlBlank(c); });
}

} // namespace

void XmlTreeBuilder::take(const QXmlStreamReader& reader)
{
    switch (reader.tokenType()) {
    case QXmlStreamReader::StartElement:
        start(reader);
        break;
    case QXmlStreamReader::EndElement:
        if (_current)
            _current = _current->_parent;
        break;
    case QXmlStreamReader::Characters:
        if (_current && !isBlank(reader.text()))
            _current->_innerText = reader.text().toString();
        break;
    default:
        break;
    }
}

std::shared_ptr<XmlElement> XmlTreeBuilder::finish()
{
    return {std::move(_tree), _root};
}

void XmlTreeBuilder::start(const QXmlStreamReader& reader)
{
    if (_root != nullptr && !_current)
        return;
    auto element = std::make_shared<XmlElement>(name(reader.name()), _current);
    if (!_current) {
        _tree = std::make_shared<XmlTree>();
        _root = element.get();
    }
    element->_tree = _tree;
    element->setSelf(element);
    if (_current)
        _current->_children.push_back(element);
    else
        _tree->keep({element});
    _current = std::move(element);
    setAttributes(reader);
}

void XmlTreeBuilder::setAttributes(const QXmlStreamReader& reader)
{
    const QXmlStreamAttributes attributes = reader.attributes();
    XmlElement::Attributes values;
    values.reserve(static_cast<size_t>(attributes.size()));
    for (const QXmlStreamAttribute& attribute : attributes)
        values.emplace_back(name(attribute.name()), attribute.value().toString());
    if (!_current->trySetAttributes(std::move(values)))
        _current->setAttributes(attributes); // which throws
}

const QString& XmlTreeBuilder::name(QStringView read)
{
    QString& known = _names[Hashing::hashOf(read) % _names.size()];
    if (known.isNull() || known != read)
        known = read.toString();
    return known;
}
