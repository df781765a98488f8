// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/simpledom.h"
#include "frame/failure_p.h"
#include "xml/prologue_p.h"
#include "xml/xmltree_p.h"

#include <QFile>
#include <QXmlStreamReader>

#include <algorithm>
#include <utility>

namespace {

/// The reader's own isWhitespace() is false for a CDATA section of blanks.
bool isBlank(QStringView text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) { return isXmlBlank(c); });
}

/// Builds the tree while it is read.
class Builder {
public:
    ~Builder()
    {
        if (_root)
            XmlTree::takeApart({_root});
    }
    Builder() = default;
    Builder(const Builder&) = delete;
    Builder& operator=(const Builder&) = delete;

    void take(const QXmlStreamReader& reader)
    {
        switch (reader.tokenType()) {
        case QXmlStreamReader::StartElement:
            start(reader);
            break;
        case QXmlStreamReader::EndElement:
            if (_current)
                _current = _current->parent();
            break;
        case QXmlStreamReader::Characters:
            if (_current && !isBlank(reader.text()))
                _current->setInnerText(reader.text().toString());
            break;
        default:
            break;
        }
    }

    /// The root, as a pointer that owns the tree.
    std::shared_ptr<XmlElement> finish()
    {
        const std::shared_ptr<XmlElement> root = std::exchange(_root, nullptr);
        return root ? XmlTree::own(root) : nullptr;
    }

private:
    void start(const QXmlStreamReader& reader)
    {
        if (_root && !_current)
            return;
        const auto element = std::make_shared<XmlElement>(reader.name().toString(), _current);
        if (_current)
            _current->addChild(element);
        else
            _root = element;
        _current = element;
        element->setAttributes(reader.attributes());
    }

    std::shared_ptr<XmlElement> _root;
    std::shared_ptr<XmlElement> _current;
};

} // namespace

SimpleDom::SimpleDom(const QString& xml)
{
    if (xml.isEmpty())
        throw Exception(Failure::libraryMessage("EmptyXml"));
    QXmlStreamReader reader(xml);
    readDom(reader);
}

SimpleDom::SimpleDom(QFile* file)
{
    if (file == nullptr)
        throw Exception(Failure::libraryMessage("FileDescriptorCannotBeNull"));
    if (!file->isReadable())
        throw Exception(Failure::libraryMessage("FileNotOpened", file->fileName()));
    QXmlStreamReader reader(file);
    readDom(reader);
}

SimpleDom::SimpleDom(const SimpleDom& other) = default;

SimpleDom::SimpleDom(SimpleDom&& other) noexcept = default;

SimpleDom& SimpleDom::operator=(const SimpleDom& other) = default;

SimpleDom& SimpleDom::operator=(SimpleDom&& other) noexcept = default;

SimpleDom::~SimpleDom() = default;

std::shared_ptr<XmlElement> SimpleDom::root() const
{
    return _root;
}

QList<std::shared_ptr<XmlElement>> SimpleDom::elementsByName(const QString& name) const
{
    return XmlTree::elementsByName(_root, name);
}

QString SimpleDom::toString(bool indented) const
{
    return _root ? _root->toString(indented ? 0 : -1) : QString();
}

void SimpleDom::readDom(QXmlStreamReader& reader)
{
    Builder builder;
    Prologue prologue(reader);
    while (reader.tokenType() != QXmlStreamReader::EndDocument) {
        if (reader.readNext() == QXmlStreamReader::Invalid) {
            const QString reason = reader.errorString();
            if (prologue.isAll())
                break;
            throw Exception(QStringLiteral("***** ") +
                            Failure::libraryMessage("ErrorEncountered", reason));
        }
        prologue.tokenRead();
        builder.take(reader);
    }
    _root = builder.finish();
}
