// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/exception.h>
#include <kez/service/xmlwriter.h>
#include <kez/simpledom.h>

#include <QFile>
#include <QSaveFile>
#include <QTextStream>

using namespace Qt::StringLiterals;
using KezService::XmlWriter;

namespace {

/// Replaces the file, or leaves it as it is. The reports are never in memory together.
void saveReports(const QString& path, const QStringList& customers)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw Exception(file.errorString());
    XmlWriter writer(file);
    writer.startElement(u"reports"_s, {{u"currency"_s, u"EUR"_s}});
    for (const QString& customer : customers) {
        writer.startElement(u"report"_s, {{u"customer"_s, customer}});
        writer.element(u"balance"_s, u"0.00"_s);
        writer.element(u"remark"_s, u"Paid by \""_s + customer + u"\" & co."_s);
        writer.endElement();
    }
    writer.endElement();
    writer.finish();
    if (!file.commit())
        throw Exception(file.errorString());
}

} // namespace

int main()
{
    QTextStream out(stdout);
    try {
        saveReports(u"reports.xml"_s, {u"Durand <Lyon>"_s, u"Martin"_s});
        QFile file(u"reports.xml"_s);
        if (!file.open(QIODevice::ReadOnly))
            return 1;

        // What was read is a tree. It is changed and written again, here into a text.
        const auto report = SimpleDom(&file).elementsByName(u"report"_s).first();
        report->childAt(0)->setInnerText(u"12.50"_s);
        out << XmlWriter::toText(*report);

        report->childAt(1)->setInnerText(QChar(0) + u"from a broken import"_s); // NUL
        out << XmlWriter::toText(*report);
    } catch (const Exception&) {
        // A service would log the detail(), which names the element: "/report/remark[1]".
        out << "not written\n";
    }
    return 0;
}
