// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QList>
#include <QMutex>
#include <QString>
#include <QtGlobal>

/// While it lives, it collects what reaches Qt's message output, which then prints nothing. There
/// can be one at a time.
class MessageCapture {
public:
    struct Message {
        QtMsgType type;
        QString category;
        QString text;
    };

    MessageCapture()
    {
        s_current = this;
        _previous = qInstallMessageHandler(&MessageCapture::handle);
    }
    ~MessageCapture()
    {
        qInstallMessageHandler(_previous);
        s_current = nullptr;
    }
    MessageCapture(const MessageCapture&) = delete;
    MessageCapture& operator=(const MessageCapture&) = delete;

    QList<Message> messages() const
    {
        const QMutexLocker lock(&_mutex);
        return _messages;
    }
    QStringList texts() const
    {
        QStringList result;
        for (const Message& message : messages())
            result.append(message.text);
        return result;
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        const QMutexLocker lock(&s_current->_mutex);
        s_current->_messages.append({type, QString::fromUtf8(context.category), text});
    }

    static inline MessageCapture* s_current = nullptr;

    mutable QMutex _mutex;
    QList<Message> _messages;
    QtMessageHandler _previous = nullptr;
};
