// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "loadrecord.h"

#include <QByteArray>
#include <QFile>
#include <QHash>
#include <QList>
#include <QString>

/// Reads the lines that others append to a file.
class Tail {
public:
    explicit Tail(const QString& path) : _file(path) {}

    /// The whole lines since the last call, without their ends.
    QList<QByteArray> newLines()
    {
        if (!_file.isOpen() && !_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
            return {};
        QList<QByteArray> lines = (_rest + _file.readAll()).split('\n');
        _rest = lines.takeLast();
        return lines;
    }

private:
    QFile _file;
    QByteArray _rest;
};

/// What the record says of one consumer.
struct ConsumerTally {
    QHash<QByteArray, int> ended; ///< by name: how often it was done or rejected
    int failed = 0;

    int repetitions() const
    {
        int count = 0;
        for (const int times : ended)
            count += times - 1;
        return count;
    }
};

/// Adds up the record.
class LoadTally {
public:
    explicit LoadTally(const QString& path) : _tail(path) {}

    void readOn()
    {
        for (const QByteArray& line : _tail.newLines())
            add(LoadRecord::read(line));
    }

    ConsumerTally of(const QByteArray& consumer) const { return _consumers.value(consumer); }

    /// Pairs of a file and a consumer that is done with it.
    int handlings() const { return _handlings; }
    qint64 recordCount() const { return _recordCount; }
    qint64 begunCount() const { return _begunCount; }

    QList<QByteArray> partial; ///< names
    QList<QByteArray> rekeyed; ///< names that came with two keys

private:
    void add(const LoadRecord& record)
    {
        ++_recordCount;
        ConsumerTally& consumer = _consumers[record.consumer];
        if (_keys.value(record.name, record.key) != record.key)
            rekeyed.append(record.name);
        _keys.insert(record.name, record.key);
        switch (record.event) {
        case LoadRecord::Event::Begun:
            ++_begunCount;
            break;
        case LoadRecord::Event::Done:
        case LoadRecord::Event::Rejected:
            if (++consumer.ended[record.name] == 1)
                ++_handlings;
            break;
        case LoadRecord::Event::Failed:
            ++consumer.failed;
            break;
        case LoadRecord::Event::Partial:
            partial.append(record.name);
            break;
        }
    }

    Tail _tail;
    QHash<QByteArray, ConsumerTally> _consumers;
    QHash<QByteArray, QByteArray> _keys;
    int _handlings = 0;
    qint64 _recordCount = 0;
    qint64 _begunCount = 0;
};
