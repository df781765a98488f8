// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QList>

/// One line of the record that the service keeps of what its handlers do. A line is written by one
/// call, so it is whole even if the process dies at that moment.
struct LoadRecord {
    enum class Event : char {
        Begun = 'B',
        Done = 'D',
        Rejected = 'J',
        Failed = 'R',
        Partial = 'P', ///< the file was not whole
    };

    Event event = Event::Begun;
    QByteArray consumer;
    QByteArray name;
    QByteArray key;

    QByteArray line() const
    {
        return QByteArray(1, static_cast<char>(event)) + ' ' + consumer + ' ' + name + ' ' + key +
               '\n';
    }

    /// Of a line without its end.
    static LoadRecord read(const QByteArray& line)
    {
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() != 4 || fields[0].size() != 1)
            qFatal("damaged record: %s", line.constData());
        return {static_cast<Event>(fields[0].at(0)), fields[1], fields[2], fields[3]};
    }
};
