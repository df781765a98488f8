// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "xml/prologue_p.h"

#include <QIODevice>
#include <QStringConverter>
#include <QXmlStreamReader>

#include <algorithm>
#include <utility>

namespace {

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
            _isPrologue &= isXmlBlank(QLatin1Char(byte));
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

/// `size` blanks. `lineFeeds` of them are line feeds, and `column` blanks follow the last one.
QString blanks(qint64 size, qint64 lineFeeds, qint64 column)
{
    const qint64 last = lineFeeds == 0 ? size : column;
    return QString(size - lineFeeds - last, QLatin1Char(' ')) +
           QString(lineFeeds, QLatin1Char('\n')) + QString(last, QLatin1Char(' '));
}

/// A declaration that means the same as the one that was read, and is as long: blanks fill it up.
/// Empty if none was read.
QString declarationOf(const QXmlStreamReader& reader)
{
    if (reader.documentVersion().isEmpty())
        return QString();
    QString text = QStringLiteral("<?xml version=\"%1\"").arg(reader.documentVersion());
    if (!reader.documentEncoding().isEmpty())
        text += QStringLiteral(" encoding=\"%1\"").arg(reader.documentEncoding());
    if (reader.isStandaloneDocument())
        text += QLatin1String(" standalone=\"yes\"");
    const qint64 lineFeeds = reader.lineNumber() - 1;
    return text + blanks(reader.characterOffset() - text.size() - 2, lineFeeds, 0) +
           QLatin1String("?>");
}

} // namespace

Prologue::Prologue(QXmlStreamReader& reader)
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

Prologue::~Prologue()
{
    end();
}

void Prologue::tokenRead()
{
    if (_reader.tokenType() == QXmlStreamReader::StartDocument) {
        _isStarted = true;
        _declaration = declarationOf(_reader);
        _declarationLineFeeds = _reader.lineNumber() - 1;
    } else {
        _isOver = true;
        end();
    }
}

bool Prologue::isAll()
{
    if (_isOver || _reader.error() != QXmlStreamReader::PrematureEndOfDocumentError)
        return false;
    if (_reader.device() == nullptr)
        return hasOnlyLineFeeds() || takesRoot();
    return rewind() && holdsPrologue(*_reader.device(), !_declaration.isEmpty());
}

void Prologue::end()
{
    if (_device != nullptr)
        std::exchange(_device, nullptr)->commitTransaction();
}

bool Prologue::rewind()
{
    if (!_reader.device()->isSequential())
        return _reader.device()->seek(_start);
    if (_device == nullptr)
        return false;
    std::exchange(_device, nullptr)->rollbackTransaction();
    return true;
}

/// After the declaration, if there is one.
bool Prologue::hasOnlyLineFeeds() const
{
    return _isStarted && _reader.characterOffset() - _declaration.size() ==
                             _reader.lineNumber() - 1 - _declarationLineFeeds;
}

/// Whether the data so far is a prologue. The data of a reader without device cannot be read again,
/// so a root element is added as a probe: inside any markup it is an error. If it is accepted, the
/// reader starts again with the same prologue. The comment before the root shows the encoding. Data
/// in UTF-16 counts as markup here.
bool Prologue::takesRoot()
{
    const QString comment = QStringLiteral("<!--\u00e9-->");
    const qint64 lineFeeds = _reader.lineNumber() - 1;
    const qint64 column = _reader.columnNumber();
    _reader.addData(comment.toUtf8() + "<end/><!-- -->");
    if (_reader.readNext() == QXmlStreamReader::StartDocument)
        _reader.readNext();
    if (!_reader.isComment())
        return false;
    const bool isUtf8 = _reader.text() == comment.mid(4, 1);
    const qint64 size =
        _reader.characterOffset() - (isUtf8 ? comment.size() : comment.toUtf8().size());
    if (_reader.readNext() != QXmlStreamReader::StartElement)
        return false;
    // On to the last comment: a reader that is cleared keeps the name of an element.
    while (_reader.readNext() != QXmlStreamReader::Comment && !_reader.atEnd())
        continue;
    giveAgain(size, lineFeeds, column, isUtf8);
    return true;
}

/// `size`, `lineFeeds` and `column` describe the end of the prologue. After the declaration there
/// are only blanks; it does not matter which ones.
void Prologue::giveAgain(qint64 size, qint64 lineFeeds, qint64 column, bool isUtf8)
{
    const QString text = _declaration + blanks(size - _declaration.size(),
                                               lineFeeds - _declarationLineFeeds, column);
    const bool isNamespaceAware = _reader.namespaceProcessing();
    _reader.clear();
    _reader.setNamespaceProcessing(isNamespaceAware);
    // A text fixes the encoding; bytes leave it to the declaration, or to what is added later.
    if (isUtf8 && _isStarted)
        _reader.addData(text);
    else
        _reader.addData(text.toLatin1());
    while (_reader.readNext() != QXmlStreamReader::Invalid)
        continue;
}
