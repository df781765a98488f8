// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/text.h"

#include "text/hexapairs_p.h"

#include <QLocale>
#include <QStringTokenizer>
#include <QtNumeric>

#include <array>

namespace {

constexpr qsizetype BytesPerRow = 16;
constexpr int MostDecimals = 1074; // of a double

QString datePattern(bool shortForm)
{
    return shortForm ? QStringLiteral("dd/MM/yyyy") : QStringLiteral("dddd d MMMM yyyy");
}

QString timePattern(bool withoutMilliseconds)
{
    return withoutMilliseconds ? QStringLiteral("hh:mm:ss") : QStringLiteral("hh:mm:ss,zzz");
}

QLocale frenchLocale()
{
    return QLocale(QLocale::French, QLocale::AnyScript, QLocale::AnyTerritory);
}

QString upperCaseHexa(const QByteArray& bytes)
{
    return Text::toHexa(bytes, false, ',');
}

QString boxCaption(QString title, const QString& version)
{
    const QLatin1String marker("%1");
    if (title.contains(marker))
        return title.replace(marker, version);
    return version.isEmpty() ? title : title + QLatin1String(" v") + version;
}

void dumpLine(FILE* stream, qsizetype offset, QByteArrayView row)
{
    std::array<char, 4 * BytesPerRow + 2> line{};
    line.fill(' ');
    char* hexa = line.data();
    char* text = line.data() + 3 * BytesPerRow + 1;
    for (const char byte : row) {
        const auto& pair = LowerCaseHexa[static_cast<unsigned char>(byte)];
        *hexa++ = pair.front().toLatin1();
        *hexa++ = pair.back().toLatin1();
        ++hexa;
        *text++ = static_cast<signed char>(byte) < ' ' ? '.' : byte;
    }
    *text++ = '\n';
    std::fprintf(stream, "%4.4lx: %.*s", static_cast<unsigned long>(offset),
                 static_cast<int>(text - line.data()), line.data());
}

} // namespace

QString Text::frenchDate(const QDate& date, bool shortForm)
{
    return QLocale::system().toString(date, datePattern(shortForm));
}

QString Text::frenchTime(const QTime& time, bool withoutMilliseconds)
{
    return QLocale::system().toString(time, timePattern(withoutMilliseconds));
}

QString Text::frenchDateTime(const QDateTime& dateTime, const QString& separator, bool shortForm,
                             bool withoutMilliseconds)
{
    const QString pattern = datePattern(shortForm) + separator + timePattern(withoutMilliseconds);
    return QLocale::system().toString(dateTime, pattern);
}

QString Text::frenchDecimalFormat(double value, int decimals)
{
    // The locale ends the process if the text is too long. A number has no more digits than these.
    QString text = frenchLocale().toString(value, 'f', qMin(decimals, MostDecimals));
    if (decimals > MostDecimals && qIsFinite(value))
        text += QString(decimals - MostDecimals, QLatin1Char('0'));
    return text;
}

QString Text::frenchIntegerFormat(qint64 value)
{
    return frenchLocale().toString(value);
}

QString Text::leftAlign(const QString& text, int width, char fill)
{
    return text.rightJustified(width, QLatin1Char(fill));
}

QString Text::rightAlign(const QString& text, int width, char fill)
{
    return text.leftJustified(width, QLatin1Char(fill));
}

QString Text::identText(const QString& text, int indent)
{
    const QString blanks(qMax(indent, 0), QLatin1Char(' '));
    QString result;
    for (const QStringView line : qTokenize(text, u'\n')) {
        if (!result.isEmpty())
            result += QLatin1Char('\n');
        result += blanks;
        result += line.trimmed();
    }
    return result;
}

QString Text::boxedTitle(const QString& title, const QString& version, const QString& trailer)
{
    const QString caption = boxCaption(title, version);
    const QString border =
        QLatin1Char('+') + QString(caption.size() + 2, QLatin1Char('-')) + QLatin1String("+\n");
    const QString box = border + QLatin1String("| ") + caption + QLatin1String(" |\n") + border;
    return trailer.isEmpty() ? box : box + trailer + QLatin1Char('\n');
}

QString Text::abrevArrayToString(const QByteArray& bytes, int count)
{
    const qsizetype shortest = 2 * qsizetype{count} + 10;
    if (bytes.isEmpty() || shortest > bytes.size())
        return QLatin1Char('[') + upperCaseHexa(bytes) + QLatin1Char(']');
    return QStringLiteral("(%1)[%2...%3]")
        .arg(QString::number(bytes.size()), upperCaseHexa(bytes.left(count)),
             upperCaseHexa(bytes.right(count)));
}

void Text::dump(FILE* stream, const QByteArray& bytes, const QString& title)
{
    if (!stream)
        return;
    const long size = bytes.size();
    if (!title.isEmpty())
        std::fprintf(stream, "%s %ld octets (0x%8.8lx)\n", title.toLocal8Bit().constData(), size,
                     static_cast<unsigned long>(size));
    for (qsizetype offset = 0; offset < bytes.size(); offset += BytesPerRow) {
        const QByteArrayView rest = QByteArrayView(bytes).sliced(offset);
        dumpLine(stream, offset, rest.first(qMin(rest.size(), BytesPerRow)));
    }
    std::fputc('\n', stream);
}
