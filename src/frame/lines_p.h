// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QIODevice>
#include <QString>
#include <QStringConverter>
#include <QStringView>

#include <algorithm>
#include <limits>
#include <optional>

/// Reads the lines of a UTF-8 text, or of one whose byte order mark says UTF-16 or UTF-32. The
/// lines are those of QTextStream::readLineInto(), which is slower: it looks at one character after
/// the other and copies each line.
class LineReader {
public:
    /// `maxLength`: the most characters taken as one line; the rest is a line of its own. 0 for no
    /// limit.
    LineReader(QIODevice& device, qint64 maxLength)
        : _device(device), _maxLength(maxLength > 0 ? maxLength : Unlimited)
    {}

    /// The next line, without its line end; it is valid until the next call. Nothing at the end of
    /// the text, which may have grown when this is called again. A read error counts as the end.
    std::optional<QStringView> next()
    {
        QStringView rest = unread();
        qsizetype end = rest.indexOf(QLatin1Char('\n'));
        while (end < 0 && rest.size() < _maxLength) {
            const qsizetype searched = rest.size();
            if (!readMore())
                return rest.isEmpty() ? std::nullopt : std::optional(takeUnended(rest));
            rest = unread();
            end = rest.indexOf(QLatin1Char('\n'), searched);
        }
        return end >= 0 ? takeEnded(rest.first(end)) : takeUnended(rest);
    }

private:
    static constexpr qint64 Unlimited = std::numeric_limits<qint64>::max();
    static constexpr qint64 ChunkSize = 16384; // that of QTextStream: a cut line may depend on it

    QStringView unread() const
    {
        const QStringView rest = QStringView(_text).sliced(_begin);
        return rest.first(std::min<qint64>(rest.size(), _maxLength));
    }

    QStringView takeEnded(QStringView line)
    {
        _begin += line.size() + 1;
        return line.endsWith(QLatin1Char('\r')) ? line.chopped(1) : line;
    }

    QStringView takeUnended(QStringView line)
    {
        _begin += line.size();
        return line.endsWith(QLatin1Char('\r')) && _device.atEnd() ? line.chopped(1) : line;
    }

    /// False at the end. The text may stay as it is: a chunk can be a part of one character.
    bool readMore()
    {
        // As the text is decoded first, the device must not translate the bytes of line ends.
        const bool isTextMode = _device.isTextModeEnabled();
        _device.setTextModeEnabled(false);
        char bytes[ChunkSize];
        const qint64 count = _device.read(bytes, ChunkSize);
        _device.setTextModeEnabled(isTextMode);
        if (count <= 0)
            return false;

        QString decoded = decode(QByteArrayView(bytes, count));
        if (isTextMode)
            decoded.remove(QLatin1Char('\r'));
        _text.remove(0, _begin);
        _begin = 0;
        _text += decoded;
        return true;
    }

    QString decode(QByteArrayView bytes)
    {
        if (!_decoder.isValid()) {
            const auto marked = QStringConverter::encodingForData(bytes);
            _decoder = QStringDecoder(marked.value_or(QStringConverter::Utf8));
        }
        return _decoder(bytes);
    }

    QIODevice& _device;
    const qint64 _maxLength;
    QStringDecoder _decoder;
    QString _text;
    qsizetype _begin = 0; // of what is unread
};

/// Hands each line to `take`, as LineReader returns it.
template <typename TakeLine>
void forEachLine(QIODevice& device, qint64 maxLength, TakeLine take)
{
    LineReader reader(device, maxLength);
    while (const auto line = reader.next())
        take(*line);
}
