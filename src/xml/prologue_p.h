// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QChar>
#include <QString>

class QIODevice;
class QXmlStreamReader;

inline bool isXmlBlank(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

/// Distinguishes a document that holds nothing yet (blanks, an XML declaration) from one that
/// breaks off: the stream reader reports a premature end for both, and for any document of fewer
/// than four bytes.
class Prologue {
public:
    /// Remembers the position of the device, if the reader has one and has not begun.
    explicit Prologue(QXmlStreamReader& reader);
    ~Prologue();
    Prologue(const Prologue&) = delete;
    Prologue& operator=(const Prologue&) = delete;

    /// To be called after each token.
    void tokenRead();

    /// Whether the document holds nothing yet; called when the reader has failed. A device is at
    /// its end afterwards. If this returns true, a reader without device is as before: more data
    /// can be added.
    bool isAll();

private:
    void end();
    bool rewind();
    bool hasOnlyLineFeeds() const;
    bool takesRoot();
    void giveAgain(qint64 size, qint64 lineFeeds, qint64 column, bool isUtf8);

    QXmlStreamReader& _reader;
    bool _isOver;
    QIODevice* _device = nullptr; // sequential, and in a transaction
    qint64 _start = 0;

    bool _isStarted = false;
    QString _declaration; // empty if there is none
    qint64 _declarationLineFeeds = 0;
};
