// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>
#include <QStringView>

#include <algorithm>

/// A text that is made of many short parts. They are copied into a text that is longer than what
/// was written: QString::append() is a call for every part, and sets the end each time.
class XmlText {
public:
    XmlText() = default;
    XmlText(const XmlText&) = delete;
    XmlText& operator=(const XmlText&) = delete;

    void append(QStringView part)
    {
        makeRoom(part.size());
        _end = std::copy(part.begin(), part.end(), _end);
    }

    void append(QChar c)
    {
        makeRoom(1);
        *_end++ = c;
    }

    /// Nothing for a negative count.
    void appendBlanks(qsizetype count)
    {
        if (count <= 0)
            return;
        makeRoom(count);
        _end = std::fill_n(_end, count, QLatin1Char(' '));
    }

    /// The text; this object cannot be used any more.
    QString take()
    {
        _text.truncate(_end - _begin);
        if (_text.capacity() > 2 * _text.size())
            _text.squeeze();
        return std::move(_text);
    }

private:
    void makeRoom(qsizetype count)
    {
        if (count > _limit - _end)
            grow(count);
    }
    void grow(qsizetype count);

    QString _text;
    QChar* _begin = nullptr;
    QChar* _end = nullptr;
    QChar* _limit = nullptr;
};
