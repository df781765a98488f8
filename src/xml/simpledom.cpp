// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/simpledom.h"
#include "frame/failure_p.h"
#include "xml/xmltree_p.h"

#include <QFile>
#include <QStringConverter>
#include <QXmlStreamReader>

#include <algorithm>
#include <utility>

namespace {

bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

/// The reader's own isWhitespace() is false for a CDATA section of blanks.
bool isBlank(QStringView text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) { return isBlank(c); });
}

/// How a document's encoding stores ASCII characters.
struct Layout {
    qint64 markSize; ///< bytes in the byte order mark
    qint64 width;    ///< bytes per character
    qint64 position; ///< which of these bytes has the character's value; the others are 0
};

/// `start`: the first four bytes, or all if there are fewer.
Layout layoutOf(const QByteArray& start)
{
    const auto markSize = [&start](const QByteArray& mark) {
        return start.startsWith(mark) ? mark.size() : 0;
    };
    switch (QStringConverter::encodingForData(start, u'<').value_or(QStringConverter::Utf8)) {
    case QStringConverter::Utf16LE:
        return {markSize(QByteArrayLiteral("\xff\xfe")), 2, 0};
    case QStringConverter::Utf16BE:
        return {markSize(QByteArrayLiteral("\xfe\xff")), 2, 1};
    case QStringConverter::Utf32LE:
        return {markSize(QByteArrayLiteral("\xff\xfe\0\0")), 4, 0};
    case QStringConverter::Utf32BE:
        return {markSize(QByteArrayLiteral("\0\0\xfe\xff")), 4, 3};
    default:
        return {markSize(QByteArrayLiteral("\xef\xbb\xbf")), 1, 0};
    }
}

/// Takes the bytes of a document one by one.
class PrologueScan {
public:
    PrologueScan(const Layout& layout, bool isDeclared)
        : _layout(layout), _isInDeclaration(isDeclared), _position(-layout.markSize)
    {}

    void take(char byte)
    {
        const qint64 place = _position++;
        if (place < 0)
            return;
        if (place % _layout.width != _layout.position)
            _isPrologue &= byte == '\0';
        else if (_isInDeclaration)
            _isInDeclaration = byte != '>';
        else
            _isPrologue &= isBlank(QLatin1Char(byte));
    }

    /// Whether the bytes were blanks, and before them a byte order mark, a declaration or both.
    bool isPrologue() const
    {
        return _isPrologue && !_isInDeclaration && _position % _layout.width == 0;
    }

private:
    Layout _layout;
    bool _isInDeclaration;
    qint64 _position;
    bool _isPrologue = true;
};

/// Reads the device to its end.
bool holdsPrologue(QIODevice& device, bool isDeclared)
{
    constexpr qint64 ChunkSize = 16384;
    PrologueScan scan(layoutOf(device.peek(4)), isDeclared);
    for (QByteArray bytes = device.read(ChunkSize); !bytes.isEmpty();
         bytes = device.read(ChunkSize))
        std::for_each(bytes.cbegin(), bytes.cend(), [&scan](char byte) { scan.take(byte); });
    return scan.isPrologue();
}

/// Distinguishes a document that holds nothing yet (blanks, an XML declaration) from one that
/// breaks off: the stream reader reports a premature end for both, and for any document of fewer
/// than four bytes.
class Prologue {
public:
    /// Remembers the position of the device, if the reader has one and has not begun.
    explicit Prologue(QXmlStreamReader& reader)
        : _reader(reader), _isOver(reader.tokenType() != QXmlStreamReader::NoToken)
    {
        QIODevice* device = reader.device();
        if (_isOver || device == nullptr)
            return;
        if (!device->isSequential()) {
            _start = device->pos();
        } else if (!device->isTransactionStarted()) {
            _device = device;
            _device->startTransaction();
        }
    }
    ~Prologue() { end(); }
    Prologue(const Prologue&) = delete;
    Prologue& operator=(const Prologue&) = delete;

    void tokenRead()
    {
        if (_reader.tokenType() == QXmlStreamReader::StartDocument) {
            _isStarted = true;
            _isDeclared = !_reader.documentVersion().isEmpty();
            _declarationSize = _isDeclared ? _reader.characterOffset() : 0;
            _declarationLine = _reader.lineNumber();
        } else {
            _isOver = true;
            end();
        }
    }

    /// Whether the document holds nothing yet; called when the reader has failed. A device is at
    /// its end afterwards. A reader without device is as before, if this returns true.
    bool isAll()
    {
        if (_isOver || _reader.error() != QXmlStreamReader::PrematureEndOfDocumentError)
            return false;
        if (_reader.device() == nullptr)
            return hasOnlyLineFeeds() || takesComments();
        return rewind() && holdsPrologue(*_reader.device(), _isDeclared);
    }

private:
    void end()
    {
        if (_device != nullptr)
            std::exchange(_device, nullptr)->commitTransaction();
    }

    bool rewind()
    {
        if (!_reader.device()->isSequential())
            return _reader.device()->seek(_start);
        if (_device == nullptr)
            return false;
        std::exchange(_device, nullptr)->rollbackTransaction();
        return true;
    }

    /// After the declaration, if there is one.
    bool hasOnlyLineFeeds() const
    {
        return _isStarted && _reader.characterOffset() - _declarationSize ==
                                 _reader.lineNumber() - _declarationLine;
    }

    /// The data of a reader without device cannot be read again, so comments are added: between
    /// declaration and root they are tokens without effect, inside other markup they are not
    /// tokens. Data in UTF-16 counts as markup here.
    bool takesComments()
    {
        const QByteArray comments = QByteArrayLiteral("<!-- --><!-- --><!-- -->");
        _reader.addData(comments);
        if (_reader.readNext() == QXmlStreamReader::StartDocument)
            _reader.readNext();
        if (!_reader.isComment())
            return false;
        // Inside a document type they are also tokens. There the reader collects the texts of all
        // tokens; elsewhere each text replaces the one before.
        _reader.readNext();
        const QChar* const place = _reader.text().data();
        _reader.readNext();
        if (_reader.text().data() != place)
            return false;
        // In an empty reader they would make a declaration that is added later an error.
        if (_reader.characterOffset() == comments.size())
            empty();
        _reader.readNext();
        return true;
    }

    void empty()
    {
        const bool isNamespaceAware = _reader.namespaceProcessing();
        _reader.clear();
        _reader.setNamespaceProcessing(isNamespaceAware);
    }

    QXmlStreamReader& _reader;
    bool _isOver;
    QIODevice* _device = nullptr; // sequential, and in a transaction
    qint64 _start = 0;
    bool _isStarted = false;
    bool _isDeclared = false;
    qint64 _declarationSize = 0;
    qint64 _declarationLine = 1;
};

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
