// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <array>
#include <charconv>
#include <concepts>
#include <optional>
#include <string>
#include <string_view>

namespace KezService {

/// The first line of a journal. Its number is that of the format.
inline constexpr std::string_view JournalHeader = "kez-journal 1\n";

/// Appends lines to a text: a letter, fields, and the checksum of both. Each step of each file is
/// written by it: it makes no temporary texts.
class JournalLineWriter {
public:
    explicit JournalLineWriter(std::string& text) : _text(text), _start(text.size()) {}

    /// Begins a line.
    JournalLineWriter& operator<<(char kind)
    {
        _start = _text.size();
        _text += kind;
        return *this;
    }
    JournalLineWriter& operator<<(std::integral auto number)
    {
        appendNumber(number, 10);
        return *this;
    }
    JournalLineWriter& operator<<(const std::optional<qint64>& number);
    JournalLineWriter& operator<<(const QString& field);
    void end();

private:
    void appendNumber(std::integral auto number, int base)
    {
        std::array<char, 20> digits; // NOLINT(*-member-init): filled by to_chars()
        const char* const end =
            std::to_chars(digits.data(), digits.data() + digits.size(), number, base).ptr;
        _text += ' ';
        _text.append(digits.data(), static_cast<size_t>(end - digits.data()));
    }
    void appendEncoded(char c);

    std::string& _text;
    size_t _start;
};

/// Reads one line after the other. Its fields are counted from 1.
class JournalLineReader {
public:
    /// `line`: without its line feed. False if its checksum is wrong.
    bool read(const QByteArray& line);

    /// Whether the line begins with one of these letters, and has so many fields.
    bool isLine(QByteArrayView kinds, qsizetype fields) const;
    char kind() const;

    /// A field that is not what is asked for makes the line unsound.
    quint64 number(qsizetype field);
    qint64 signedNumber(qsizetype field);
    std::optional<qint64> optionalNumber(qsizetype field);
    QString text(qsizetype field);

    bool isSound() const { return _isSound; }
    void require(bool condition) { _isSound = _isSound && condition; }

private:
    QList<QByteArray> _fields; // the letter first
    bool _isSound = true;
};

} // namespace KezService
