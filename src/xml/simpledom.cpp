// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/simpledom.h"
#include "frame/failure_p.h"
#include "xml/prologue_p.h"
#include "xml/xmltree_p.h"
#include "xml/xmltreebuilder_p.h"

#include <QFile>
#include <QXmlStreamReader>

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
    XmlTreeBuilder builder;
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
