// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Whatever the writer writes without a failure is read back as it was: a document that was read, a
// tree of any names and texts, and calls in any order. For the last two, the input is a list of
// steps: a byte that says what to do, and what it needs.

#include "fuzz/inputfile.h"
#include "support/xmltrees.h"

#include <kez/exception.h>
#include <kez/service/xmlwriter.h>
#include <kez/simpledom.h>

#include <QBuffer>

#include <algorithm>
#include <memory>
#include <optional>

using KezService::XmlWriter;

namespace {

/// Takes the input apart.
class Input {
public:
    explicit Input(const QByteArray& bytes) : _rest(bytes) {}

    bool isAtEnd() const { return _rest.isEmpty(); }

    int byte()
    {
        if (_rest.isEmpty())
            return 0;
        const int first = static_cast<std::uint8_t>(_rest.front());
        _rest = _rest.sliced(1);
        return first;
    }

    /// A length, and ASCII characters or any code units.
    QString text()
    {
        const int size = byte();
        QString text;
        for (int i = size % 16; i > 0; --i)
            text += QChar(size < 128 ? byte() : byte() * 256 + byte());
        return text;
    }

private:
    QByteArrayView _rest;
};

std::unique_ptr<SimpleDom> readText(const QString& text)
{
    try {
        return std::make_unique<SimpleDom>(text);
    } catch (const Exception&) {
        return nullptr;
    }
}

/// The document of the tree; nothing if it is refused.
std::optional<QString> written(const XmlElement& tree, XmlWriter::Layout layout)
{
    try {
        return XmlWriter::toText(tree, layout);
    } catch (const Exception& failure) {
        require(failure.detail().contains(QLatin1Char('/')), "a failure has a path");
        return std::nullopt;
    }
}

/// Returns whether the tree can be written.
bool checkTree(const XmlElement& tree)
{
    const std::optional<QString> compact = written(tree, XmlWriter::Layout::Compact);
    const std::optional<QString> indented = written(tree, XmlWriter::Layout::Indented);
    require(compact.has_value() == indented.has_value(), "the layout refuses nothing");
    if (!compact)
        return false;
    for (const QString& text : {*compact, *indented}) {
        const auto dom = readText(text);
        require(dom && dom->root(), "what is written is read");
        require(treeDifference(tree, *dom->root()).isEmpty(), "the tree is the same");
    }
    return true;
}

bool isAscii(const QString& text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 128; });
}

/// The stream reader takes more letters in names of attributes than XML does.
bool areNamesPlain(const SimpleDom& dom)
{
    QList<Element> pending{dom.root()};
    while (!pending.isEmpty()) {
        const Element element = pending.takeLast();
        const QMap<QString, QString> attributes = attributesOf(*element);
        const bool isPlain = std::all_of(attributes.keyBegin(), attributes.keyEnd(),
                                         [](const QString& name) { return isAscii(name); });
        if (!isPlain)
            return false;
        for (int i = 0; i < element->chidrenCount(); ++i)
            pending.append(element->childAt(i));
    }
    return true;
}

Element makeTree(Input input)
{
    const Element root = makeElement(input.text());
    QList<Element> open{root};
    while (!input.isAtEnd()) {
        switch (input.byte() % 5) {
        case 0:
            open.append(addChild(open.last(), input.text()));
            break;
        case 1:
            open.last()->setInnerText(input.text());
            break;
        case 2: {
            const QString name = input.text();
            open.last()->appendAttribute(name, input.text());
            break;
        }
        case 3:
            addChild(open.last(), QStringLiteral("a"), input.text());
            break;
        default:
            if (open.size() > 1)
                open.removeLast();
            break;
        }
    }
    return root;
}

void call(XmlWriter& writer, Input& input)
{
    switch (input.byte() % 6) {
    case 0:
        writer.startElement(input.text());
        break;
    case 1:
        writer.text(input.text());
        break;
    case 2:
        writer.endElement();
        break;
    case 3: {
        const QString name = input.text();
        writer.element(QStringLiteral("a"), QString(), {{name, input.text()}});
        break;
    }
    case 4:
        writer.write(*makeElement(QStringLiteral("b"), input.text()));
        break;
    default:
        writer.startElement(QStringLiteral("c"));
        break;
    }
}

/// Calls in any order give a document, or a failure; and nothing comes after a failure.
void checkCalls(Input input, XmlWriter::Layout layout)
{
    QBuffer buffer;
    require(buffer.open(QIODevice::WriteOnly), "a buffer can be opened");
    XmlWriter writer(buffer, layout);
    bool isRefused = false;
    while (!input.isAtEnd()) {
        try {
            call(writer, input);
            require(!isRefused, "a failure is the last call");
        } catch (const Exception&) {
            isRefused = true;
        }
    }
    try {
        writer.finish();
        require(!isRefused, "a document with a failure is not finished");
    } catch (const Exception&) {
        return;
    }
    const auto dom = readText(QString::fromUtf8(buffer.data()));
    require(dom && dom->root(), "what is written is read");
    checkTree(*dom->root());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    prepare();
    const QByteArray bytes = inputBytes(data, size);
    if (const QString text = QString::fromUtf8(bytes); !text.isEmpty()) {
        if (const auto dom = readText(text); dom && dom->root())
            require(checkTree(*dom->root()) || !areNamesPlain(*dom), "what was read is written");
    }
    checkTree(*makeTree(Input(bytes)));
    checkCalls(Input(bytes), XmlWriter::Layout::Indented);
    checkCalls(Input(bytes), XmlWriter::Layout::Compact);
    return 0;
}
