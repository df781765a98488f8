// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QByteArray>
#include <QDateTime>
#include <QMap>
#include <QString>

#include <cstdio>

/// The HTML entities of the Latin-1 characters, by code point: 100 rows, built when the library is
/// loaded and never changed.
///
/// Eight of them are not the entities of the HTML standard and are kept for compatibility: 198
/// "&Aelig;", 204 to 207 "&lgrave;", "&lacute;", "&lcirc;", "&luml;" (a lower-case L), 224
/// "&agrav;", 247 "&otilde;" (as 245), 253 "&yacut;". Code point 160 and every code point that is
/// not listed have no entity.
KEZ_EXPORT extern const QMap<int, QString> LATIN;

/// Conversions between bytes, numbers and text, and the formatting of text.
///
/// Where a codec works on bytes, text is encoded as UTF-8 first, and text made of bytes is read as
/// UTF-8 (without a byte order mark at its beginning). What cannot be decoded is skipped or left as
/// it is; no decoder reports an error. A `const char*` is UTF-8 and ends at its first NUL; a null
/// pointer is empty.
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: never.
class KEZ_EXPORT Text {
public:
    Text() = delete;

    // Bytes and text

    /// Standard Base64 ("+" and "/", padded with "=", no line breaks).
    ///
    ///     "Kez"  ->  S2V6
    ///     ""     ->  (empty)
    static QString toBase64(const QByteArray& bytes);
    static QString toBase64(const QString& text);
    static QString toBase64(const char* text) { return toBase64(QByteArray(text)); }

    /// Characters outside the Base64 alphabet are skipped.
    static QByteArray bytesFromBase64(const QByteArray& base64);
    static QByteArray bytesFromBase64(const QString& base64);
    static QByteArray bytesFromBase64(const char* base64)
    {
        return bytesFromBase64(QByteArray(base64));
    }

    /// The decoded bytes read as UTF-8.
    static QString stringFromBase64(const QString& base64);
    static QString stringFromBase64(const QByteArray& base64)
    {
        return QString::fromUtf8(bytesFromBase64(base64));
    }
    static QString stringFromBase64(const char* base64)
    {
        return stringFromBase64(QByteArray(base64));
    }

    /// Two digits per byte, with `separator` (a Latin-1 character) between bytes unless it is NUL.
    /// Without `lowerCase` the whole text is in upper case. So is a letter that is the separator.
    ///
    ///     {0x01, 0xAB}, false, ':'  ->  01:AB
    ///     {0x01, 0xAB}, true        ->  01ab
    ///     {0x01, 0xAB}, false, 'x'  ->  01XAB
    static QString toHexa(const QByteArray& bytes, bool lowerCase, char separator = '\0');

    /// Lower-case digits, at least `width` of them.
    ///
    ///     255, 4      ->  00ff
    ///     0x12345, 2  ->  12345
    static QString toHexa(quint64 value, unsigned int width);

    /// Takes digits in either case and skips all other characters. An odd number of digits reads as
    /// if a "0" came first.
    ///
    ///     "01:aB"  ->  {0x01, 0xAB}
    ///     "1ab"    ->  {0x01, 0xAB}
    static QByteArray fromHexa(const QString& hexa);

    /// Percent-encoding: ASCII letters, digits and "-", ".", "_", "~" stay as they are.
    ///
    ///     a b/é  ->  a%20b%2F%C3%A9
    static QString toUrlEncoding(const QString& text);

    /// A "%" that is not followed by two hexadecimal digits stays as it is, and so does "+".
    ///
    ///     a%20b%2f%C3%A9  ->  a b/é
    ///     100%            ->  100%
    static QString fromUrlEncoding(const QString& text);

    // Big-endian integers: the first 4 or 8 bytes, the most significant one first

    /// Returns false and leaves `value` unchanged if there are too few bytes. Further bytes are
    /// ignored.
    ///
    ///     {0xFF, 0xFF, 0xFF, 0xFE}  ->  true, -2
    static bool bigEndianToInt32(const QByteArray& bytes, int& value);
    static bool bigEndianToUInt32(const QByteArray& bytes, unsigned int& value);
    static bool bigEndianToInt64(const QByteArray& bytes, long long& value);
    static bool bigEndianToUInt64(const QByteArray& bytes, unsigned long long& value);

    /// Overwrites the first bytes of `bytes`, which grows if it is too short and never shrinks.
    ///
    ///     1, {}                  ->  {0, 0, 0, 1}
    ///     1, {9, 9, 9, 9, 9, 9}  ->  {0, 0, 0, 1, 9, 9}
    static void int32ToBigEndian(int value, QByteArray& bytes);
    static void uint32ToBigEndian(unsigned int value, QByteArray& bytes);
    static void int64ToBigEndian(long long value, QByteArray& bytes);
    static void uint64ToBigEndian(unsigned long long value, QByteArray& bytes);

    /// Always 16 lower-case digits.
    ///
    ///     nullptr  ->  0x0000000000000000
    static QString pointerToString(const void* pointer);

    // Dates, times and numbers. The names of days and months are those of the system locale; an
    // invalid date or time gives an empty text.

    ///     2026-03-09, true   ->  09/03/2026
    ///     2026-03-09, false  ->  lundi 9 mars 2026 (in French)
    static QString frenchDate(const QDate& date, bool shortForm);

    ///     08:05:04.007, true   ->  08:05:04
    ///     08:05:04.007, false  ->  08:05:04,007
    static QString frenchTime(const QTime& time, bool withoutMilliseconds);

    /// `separator` becomes part of the Qt date-time pattern: letters that have a meaning there keep
    /// it, unless they are quoted.
    ///
    ///     " - "     ->  09/03/2026 - 08:05:04
    ///     " yy "    ->  09/03/2026 26 08:05:04
    ///     " 'yy' "  ->  09/03/2026 yy 08:05:04
    static QString frenchDateTime(const QDateTime& dateTime, const QString& separator,
                                  bool shortForm, bool withoutMilliseconds);

    /// Fixed notation with `decimals` digits after the comma. Groups of three digits are separated
    /// as Qt's French locale does: by a narrow no-break space (U+202F), written "_" here.
    ///
    ///     1234567.891, 2  ->  1_234_567,89
    static QString frenchDecimalFormat(double value, int decimals);

    ///     -1234567  ->  -1_234_567
    static QString frenchIntegerFormat(qint64 value);

    // Layout

    /// Puts `fill`, a Latin-1 character, before the text until it has `width` characters: the name
    /// tells where the padding goes. A longer text is returned as it is.
    ///
    ///     "7", 3, '0'  ->  007
    static QString leftAlign(const QString& text, int width, char fill = ' ');

    /// Puts `fill` after the text in the same way.
    ///
    ///     "ab", 4, '.'  ->  ab..
    static QString rightAlign(const QString& text, int width, char fill = ' ');

    /// Trims every line and puts `indent` blanks before it (none if negative). No line feed is
    /// added at the end. With an `indent` of 0, empty lines at the beginning are left out.
    ///
    ///     "a\n  b\n", 2  ->  "  a\n  b\n  "
    static QString identText(const QString& text, int indent);

    /// A framed title. "%1" in `title` is replaced by `version`. In a title without "%1", a version
    /// that is not empty follows as " v" and the version. A `trailer` that is not empty is a last
    /// line.
    ///
    ///     boxedTitle("Demo", "1.2")  ->  +-----------+
    ///                                    | Demo v1.2 |
    ///                                    +-----------+
    static QString boxedTitle(const QString& title, const QString& version = QString(),
                              const QString& trailer = QString());

    /// A short form of an array for a log line: all its bytes if there are fewer than twice `count`
    /// plus 10, else its size with its first and last `count` bytes (none if negative).
    ///
    ///     17 bytes, 4  ->  [00,01,02,03,04,05,06,07,08,09,0A,0B,0C,0D,0E,0F,10]
    ///     18 bytes, 4  ->  (18)[00,01,02,03...0E,0F,10,11]
    ///     {}, 4        ->  []
    static QString abrevArrayToString(const QByteArray& bytes, int count);

    /// Writes 16 bytes per line: the offset, the bytes in hexadecimal form, and the bytes as
    /// characters ("." for each byte below 0x20 or above 0x7F). An empty line comes last. A title
    /// that is not empty comes first, in the local 8-bit encoding, with the size in decimal and
    /// hexadecimal.
    ///
    /// A failed write sets the error flag of the stream. A null stream is ignored.
    ///
    ///     key 3 octets (0x00000003)
    ///     0000: 4b 65 7a                                         Kez
    ///
    static void dump(FILE* stream, const QByteArray& bytes, const QString& title = QString());

    /// Replaces every character that LATIN lists by its entity.
    ///
    ///     <é>  ->  &lt;&eacute;&gt;
    ///     ÷    ->  &otilde;
    static QString latinToEscapedHtml(const QString& text);
};

/// The same as Text::stringFromBase64().
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: never.
KEZ_EXPORT QString stringFromBase64(const QByteArray& base64);
