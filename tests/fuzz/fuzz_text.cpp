// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Puts any bytes and any text through the decoders and encoders of Text.

#include "fuzz/inputfile.h"

#include <kez/text.h>

namespace {

void decodeBase64(const QByteArray& bytes, const QString& text)
{
    require(Text::bytesFromBase64(Text::toBase64(bytes)) == bytes, "Base64 is undone");
    require(Text::bytesFromBase64(bytes).size() <= bytes.size(), "Base64 decodes to less");
    require(Text::stringFromBase64(text) == stringFromBase64(text.toUtf8()), "Base64 of text");
}

void decodeHexa(const QByteArray& bytes, const QString& text)
{
    const char separators[] = {'\0', ':', ' '};
    for (const char separator : separators)
        require(Text::fromHexa(Text::toHexa(bytes, separator == ':', separator)) == bytes,
                "hexadecimal is undone");
    require(Text::fromHexa(text).size() <= text.size() / 2 + 1, "hexadecimal decodes to less");
}

void decodeUrl(const QString& text)
{
    // The UTF-8 decoder drops a byte order mark at the beginning.
    const QString decoded = Text::fromUrlEncoding(text);
    const QString again = Text::fromUrlEncoding(Text::toUrlEncoding(decoded));
    require(again == decoded || decoded.startsWith(QChar(QChar::ByteOrderMark)),
            "percent-encoding is undone");
}

void decodeIntegers(QByteArray bytes)
{
    int int32 = 0;
    unsigned long long uint64 = 0;
    const QByteArray before = bytes;
    require(Text::bigEndianToInt32(bytes, int32) == (bytes.size() >= 4), "32 bits need 4 bytes");
    require(Text::bigEndianToUInt64(bytes, uint64) == (bytes.size() >= 8), "64 bits need 8 bytes");
    if (bytes.size() >= 8) {
        Text::uint64ToBigEndian(uint64, bytes);
        Text::int32ToBigEndian(int32, bytes);
        require(bytes == before, "integers are undone");
    }
}

void format(const QByteArray& bytes, const QString& text)
{
    const int number = bytes.isEmpty() ? 0 : static_cast<signed char>(bytes[0]);
    require(Text::latinToEscapedHtml(text).size() >= text.size(), "escapes are longer");
    require(Text::leftAlign(text, number).size() >= text.size(), "nothing is cut");
    require(!Text::abrevArrayToString(bytes, number).isEmpty(), "an array always shows");
    Text::identText(text, number);
    Text::boxedTitle(text, text, text);
    static FILE* const nowhere = std::fopen("/dev/null", "w");
    Text::dump(nowhere, bytes, text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    prepare();
    const QByteArray bytes = inputBytes(data, size);
    const QString text = QString::fromUtf8(bytes);
    decodeBase64(bytes, text);
    decodeHexa(bytes, text);
    decodeUrl(text);
    decodeIntegers(bytes);
    format(bytes, text);
    return 0;
}
