// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/text.h"

#include "text/hexapairs_p.h"

#include <QtEndian>
#include <QUrl>

#include <bit>

namespace {

template <typename Integer>
bool readBigEndian(const QByteArray& bytes, Integer& value)
{
    if (bytes.size() < qsizetype{sizeof(Integer)})
        return false;
    value = qFromBigEndian<Integer>(bytes.constData());
    return true;
}

template <typename Integer>
void writeBigEndian(Integer value, QByteArray& bytes)
{
    if (bytes.size() < qsizetype{sizeof(Integer)})
        bytes.resize(qsizetype{sizeof(Integer)});
    qToBigEndian(value, bytes.data());
}

/// The value of a hexadecimal digit, or -1.
int digitValue(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

/// The byte that the escape at the beginning of the text stands for, or -1 if there is no complete
/// escape.
int escapedByte(const char* text, const char* end)
{
    if (*text != '%' || end - text < 3)
        return -1;
    const int high = digitValue(text[1]);
    const int low = digitValue(text[2]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

} // namespace

QString Text::toBase64(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

QString Text::toBase64(const QString& text)
{
    return toBase64(text.toUtf8());
}

QByteArray Text::bytesFromBase64(const QByteArray& base64)
{
    return QByteArray::fromBase64(base64);
}

QByteArray Text::bytesFromBase64(const QString& base64)
{
    return bytesFromBase64(base64.toUtf8());
}

QString Text::stringFromBase64(const QString& base64)
{
    return QString::fromUtf8(bytesFromBase64(base64));
}

QString stringFromBase64(const QByteArray& base64)
{
    return QString::fromUtf8(Text::bytesFromBase64(base64));
}

QString Text::toHexa(const QByteArray& bytes, bool lowerCase, char separator)
{
    if (bytes.isEmpty())
        return QString();
    const HexaPairs& pairs = lowerCase ? LowerCaseHexa : UpperCaseHexa;
    if (separator == '\0') {
        QString result(2 * bytes.size(), Qt::Uninitialized);
        writeHexa(pairs, bytes, result.data());
        return result;
    }
    const QChar between =
        lowerCase ? QLatin1Char(separator) : QChar(QLatin1Char(separator)).toUpper();
    QString result(3 * bytes.size() - 1, Qt::Uninitialized);
    QChar* out = writeHexa(pairs, bytes.front(), result.data());
    for (const char byte : QByteArrayView(bytes).sliced(1)) {
        *out++ = between;
        out = writeHexa(pairs, byte, out);
    }
    return result;
}

QString Text::toHexa(quint64 value, unsigned int width)
{
    const qsizetype digits = value == 0 ? 1 : (std::bit_width(value) + 3) / 4;
    QString result(qMax(digits, qsizetype{width}), QLatin1Char('0'));
    for (QChar* out = result.end(); value != 0; value /= 16)
        *--out = LowerCaseHexa[value % 16].back();
    return result;
}

QByteArray Text::fromHexa(const QString& hexa)
{
    return QByteArray::fromHex(hexa.toUtf8());
}

QString Text::toUrlEncoding(const QString& text)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(text));
}

// QUrl::fromPercentEncoding() decodes a "%" even if no digits follow it.
QString Text::fromUrlEncoding(const QString& text)
{
    QByteArray bytes = text.toUtf8();
    char* out = bytes.data();
    const char* const end = out + bytes.size();
    for (const char* in = out; in != end;) {
        const int escaped = escapedByte(in, end);
        *out++ = escaped < 0 ? *in : static_cast<char>(escaped);
        in += escaped < 0 ? 1 : 3;
    }
    bytes.truncate(out - bytes.constData());
    return QString::fromUtf8(bytes);
}

bool Text::bigEndianToInt32(const QByteArray& bytes, int& value)
{
    return readBigEndian(bytes, value);
}

bool Text::bigEndianToUInt32(const QByteArray& bytes, unsigned int& value)
{
    return readBigEndian(bytes, value);
}

bool Text::bigEndianToInt64(const QByteArray& bytes, long long& value)
{
    return readBigEndian(bytes, value);
}

bool Text::bigEndianToUInt64(const QByteArray& bytes, unsigned long long& value)
{
    return readBigEndian(bytes, value);
}

void Text::int32ToBigEndian(int value, QByteArray& bytes)
{
    writeBigEndian(value, bytes);
}

void Text::uint32ToBigEndian(unsigned int value, QByteArray& bytes)
{
    writeBigEndian(value, bytes);
}

void Text::int64ToBigEndian(long long value, QByteArray& bytes)
{
    writeBigEndian(value, bytes);
}

void Text::uint64ToBigEndian(unsigned long long value, QByteArray& bytes)
{
    writeBigEndian(value, bytes);
}

QString Text::pointerToString(const void* pointer)
{
    return QLatin1String("0x") + toHexa(quint64{reinterpret_cast<quintptr>(pointer)}, 16);
}
