// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/journallines_p.h"

#include <QStringDecoder>

namespace KezService {

namespace {

constexpr std::array<quint16, 256> checksumTable()
{
    std::array<quint16, 256> table{};
    for (unsigned int byte = 0; byte < table.size(); ++byte) {
        unsigned int sum = byte;
        for (int bit = 0; bit < 8; ++bit)
            sum = (sum >> 1) ^ ((sum & 1) != 0 ? 0x8408 : 0);
        table[byte] = static_cast<quint16>(sum);
    }
    return table;
}

/// What a byte does to a checksum.
constexpr std::array<quint16, 256> ChecksumTable = checksumTable();

/// That of ISO 3309, as qChecksum() computes it in twice the time.
quint16 checksum(std::string_view line)
{
    unsigned int sum = 0xffff;
    for (const char c : line)
        sum = (sum >> 8) ^ ChecksumTable[(sum ^ static_cast<unsigned char>(c)) & 0xff];
    return static_cast<quint16>(~sum);
}

} // namespace

JournalLineWriter& JournalLineWriter::operator<<(const std::optional<qint64>& number)
{
    if (number)
        return *this << *number;
    _text += " -";
    return *this;
}

JournalLineWriter& JournalLineWriter::operator<<(const QString& field)
{
    // One character more, so that no field is empty.
    _text += " =";
    for (const char c : field.toUtf8())
        appendEncoded(c);
    return *this;
}

void JournalLineWriter::end()
{
    appendNumber(checksum(std::string_view(_text).substr(_start)), 16);
    _text += '\n';
}

/// As QByteArray::toPercentEncoding().
void JournalLineWriter::appendEncoded(char c)
{
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' || c == '~';
    if (isPlain) {
        _text += c;
        return;
    }
    constexpr std::string_view Digits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    _text += '%';
    _text += Digits[byte >> 4];
    _text += Digits[byte & 0xf];
}

bool JournalLineReader::read(const QByteArray& line)
{
    const qsizetype blank = line.lastIndexOf(' ');
    if (blank < 1)
        return false;
    bool isNumber = false;
    const uint sum = line.mid(blank + 1).toUInt(&isNumber, 16);
    if (!isNumber || sum != checksum({line.constData(), static_cast<size_t>(blank)}))
        return false;
    _fields = line.first(blank).split(' ');
    _isSound = true;
    return true;
}

bool JournalLineReader::isLine(QByteArrayView kinds, qsizetype fields) const
{
    return _fields.size() == fields + 1 && _fields.first().size() == 1 && kinds.contains(kind());
}

char JournalLineReader::kind() const
{
    return _fields.first().front();
}

quint64 JournalLineReader::number(qsizetype field)
{
    bool isNumber = false;
    const quint64 value = _fields.at(field).toULongLong(&isNumber);
    require(isNumber);
    return value;
}

qint64 JournalLineReader::signedNumber(qsizetype field)
{
    bool isNumber = false;
    const qint64 value = _fields.at(field).toLongLong(&isNumber);
    require(isNumber);
    return value;
}

std::optional<qint64> JournalLineReader::optionalNumber(qsizetype field)
{
    if (_fields.at(field) == "-")
        return std::nullopt;
    return signedNumber(field);
}

QString JournalLineReader::text(qsizetype field)
{
    const QByteArray& encoded = _fields.at(field);
    require(encoded.startsWith('='));
    // A byte order mark at the beginning is part of the name.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless |
                                                     QStringDecoder::Flag::ConvertInitialBom);
    return decoder(QByteArray::fromPercentEncoding(encoded.mid(1)));
}

} // namespace KezService
