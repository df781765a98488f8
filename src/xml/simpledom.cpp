// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/simpledom.h"
#include "frame/failure_p.h"
#include "xml/xmltree_p.h"

#include <QFile>
#include <QXmlStreamReader>

#include <algorithm>
#include <utility>

namespace {

/// The reader's own isWhitespace() takes no CDATA section for blank.
bool isBlank(QStringView text)
{
    return std::all_of(text.begin(), text.end(),
                       [](QChar c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'; });
}

/// Tells a document that holds nothing yet (blanks, or an XML declaration) from one that ends
/// early: to the stream reader both end early, and it does not say what it has seen of the next
/// token.
class Prologue {
public:
    /// Watches the device of a reader that has not begun, if it has one.
    explicit Prologue(QXmlStreamReader& reader)
        : _reader(reader), _isOver(reader.tokenType() != QXmlStreamReader::NoToken)
    {
        QIODevice* device = reader.device();
        if (_isOver || device == nullptr || device->isTransactionStarted())
            return;
        _device = device;
        _device->startTransaction();
    }
    ~Prologue() { end(); }
    Prologue(const Prologue&) = delete;
    Prologue& operator=(const Prologue&) = delete;

    void tokenRead()
    {
        if (_reader.tokenType() == QXmlStreamReader::StartDocument) {
            _isDeclared = !_reader.documentVersion().isEmpty();
        } else {
            _isOver = true;
            end();
        }
    }

    /// Asked at the reader's error; nothing more can be read from it then.
    bool isAll()
    {
        if (_isOver || _reader.error() != QXmlStreamReader::PrematureEndOfDocumentError)
            return false;
        return _reader.device() == nullptr ? readerTakesRoot() : deviceHoldsDeclarationOnly();
    }

private:
    void end()
    {
        if (_device != nullptr)
            std::exchange(_device, nullptr)->commitTransaction();
    }

    /// A reader without device can be given more: inside some markup this is no root element.
    bool readerTakesRoot()
    {
        _reader.addData(QStringLiteral("<end/>"));
        if (_reader.readNext() == QXmlStreamReader::StartDocument)
            _reader.readNext();
        return _reader.isStartElement();
    }

    /// Reads what was read again. In every encoding that the reader knows, "<" has this byte, and
    /// no other character that can be here has it.
    bool deviceHoldsDeclarationOnly()
    {
        if (_device == nullptr)
            return false;
        std::exchange(_device, nullptr)->rollbackTransaction();
        QIODevice& device = *_reader.device();
        qsizetype tags = 0;
        for (QByteArray bytes = device.read(ChunkSize); !bytes.isEmpty();
             bytes = device.read(ChunkSize))
            tags += bytes.count('<');
        return tags == (_isDeclared ? 1 : 0);
    }

    static constexpr qint64 ChunkSize = 16384;

    QXmlStreamReader& _reader;
    bool _isOver;
    QIODevice* _device = nullptr;
    bool _isDeclared = false;
};

/// The tree while it is being read.
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

    /// The root as it is handed out.
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
