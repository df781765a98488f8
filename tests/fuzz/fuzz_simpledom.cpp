// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "fuzz/inputfile.h"

#include <kez/exception.h>
#include <kez/simpledom.h>

#include <QXmlStreamReader>

#include <algorithm>
#include <memory>

namespace {

/// The document, or null after checking the text of the failure.
template <typename Source>
std::unique_ptr<SimpleDom> readDocument(const Source& source)
{
    try {
        return std::make_unique<SimpleDom>(source);
    } catch (const Exception& failure) {
        const QString text = failure.detail();
        require(text.startsWith(QStringLiteral("***** ")) ||
                    text.startsWith(QStringLiteral("void Properties::insert(")),
                "a failure says why");
        return nullptr;
    }
}

QList<std::shared_ptr<XmlElement>> children(const XmlElement& element)
{
    QList<std::shared_ptr<XmlElement>> result;
    for (int i = 0; i < element.chidrenCount(); ++i)
        result.append(element.childAt(i));
    return result;
}

/// Walks from an element to its root and from there to all others.
void checkTree(std::shared_ptr<XmlElement> root)
{
    while (root->parent())
        root = root->parent();
    QList<std::shared_ptr<XmlElement>> pending{root};
    while (!pending.isEmpty()) {
        const std::shared_ptr<XmlElement> element = pending.takeLast();
        require(element->attributes() != nullptr, "each element has a dictionary");
        require(!element->name().isEmpty(), "each element has a name");
        for (const auto& child : children(*element)) {
            require(child->parent() == element, "links go both ways");
            pending.append(child);
        }
    }
}

/// A reader without device takes the same documents as a file. It sees no character that is cut at
/// the end, and the encoding of what is added later is that of the document: only ASCII counts.
void checkReader(const QByteArray& bytes, const SimpleDom* fromFile)
{
    QXmlStreamReader reader(bytes);
    SimpleDom dom(QStringLiteral("<x/>"));
    bool isRead = true;
    try {
        dom.readDom(reader);
    } catch (const Exception&) {
        isRead = false;
    }
    const bool isAscii =
        std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte > 0; });
    if (!isAscii || bytes.contains("encoding"))
        return;
    require(isRead == (fromFile != nullptr), "a reader takes what a file may hold");
    if (!isRead || dom.root())
        return;
    reader.addData(QByteArray("<end/>"));
    dom.readDom(reader);
    require(dom.toString(false) == QStringLiteral("<end/>"), "more can be added to a prologue");
}

} // namespace

/// Any bytes in a file, and any text, give a tree whose elements outlive the document, or a
/// failure.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    prepare();
    const QByteArray bytes = inputBytes(data, size);
    QFile file(InputDirectory::write(QStringLiteral("document.xml"), bytes));
    require(file.open(QIODevice::ReadOnly), "the input can be read");
    auto fromFile = readDocument(&file);
    require(file.isOpen() && !file.isTransactionStarted(), "the file is left alone");

    checkReader(bytes, fromFile.get());

    QString firstName;
    if (fromFile) {
        require(fromFile->toString(false).isEmpty() == fromFile->toString(true).isEmpty(),
                "both forms show a root");
        firstName = fromFile->toString(false).mid(1).section(QLatin1Char('>'), 0, 0);
        firstName = firstName.section(QLatin1Char(' '), 0, 0).section(QLatin1Char('/'), 0, 0);
        const auto found = fromFile->elementsByName(firstName);
        require(found.isEmpty() == firstName.isEmpty(), "the root is found by its name");
        fromFile.reset();
        if (!found.isEmpty())
            checkTree(found.last());
    }

    const QString text = QString::fromUtf8(bytes);
    if (!text.isEmpty())
        readDocument(text);
    return 0;
}
