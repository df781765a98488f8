// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QDebug>
#include <QString>
#include <QtGlobal>

#include <cstdio>

#include <sys/resource.h>

/// In a child: prints each of Qt's messages on the error output as one line "type|category|text". A
/// fatal one, which ends the process, leaves no core file.
inline void printMessagesPlainly()
{
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext& context, const QString& text) {
            const char* const names[] = {"debug", "warning", "critical", "fatal", "info"};
            fprintf(stderr, "%s|%s|%s\n", names[type], context.category, text.toUtf8().constData());
            fflush(stderr);
        });
}

/// The text as Qt's debug stream quotes it.
inline QString quoted(const QString& text)
{
    QString result;
    QDebug(&result).nospace() << text;
    return result;
}
