// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/ConsumerAncestor.h>
#include <kez/exception.h>
#include <kez/FilesQueue.h>
#include <kez/log.h>

#include <QFile>
#include <QTimer>

#include <exception>
#include <functional>
#include <utility>

/// Calls a function for each file of a queue, and reports the file.
///
/// It lives in the queue's thread: a request is answered before it returns, and what the queue
/// throws at a report can be caught here. The event loop has its turn between two files, so that
/// the queue sees changes and the program can stop.
///
/// *Threads*: the queue's thread.
/// *Owns*: the names of the files that it still has to handle.
/// *Fails*: never; every std::exception, thus also every Exception, is logged.
class FileConsumer : public ConsumerAncestor {
public:
    /// `handle` gets the open file, and must not run an event loop. An Exception or another
    /// std::exception that it throws is logged; the file stays in the queue and is handled again at
    /// the next change. It must throw nothing else.
    FileConsumer(const QString& id, std::function<void(QFile&)> handle)
        : ConsumerAncestor(id), _handle(std::move(handle))
    {
        connect(&_turn, &QTimer::timeout, this, &FileConsumer::handleNext);
    }

    /// Handles what waits in the queue, and then what arrives. The queue was built with this
    /// consumer, and onProcess() has run.
    void consume(const FilesQueue& queue)
    {
        _directory = queue.path();
        connect(&queue, &FilesQueue::filesNotConsumed, this, &FileConsumer::take);
        // Queued: the signal is emitted in the middle of a re-scan.
        connect(&queue, &FilesQueue::queueUpdated, this, &FileConsumer::ask, Qt::QueuedConnection);
        ask();
    }

private:
    void ask() { Q_EMIT requestForFiles(id()); }

    void take(const QStringList& names, bool isError)
    {
        _names = isError ? QStringList() : names;
        _turn.start();
    }

    void handleNext()
    {
        if (_names.isEmpty()) {
            _turn.stop();
            return;
        }
        const QString name = _names.takeFirst();
        QFile file(_directory.filePath(name));
        try {
            if (!file.open(QIODevice::ReadOnly))
                throw Exception(file.fileName() + ": " + file.errorString());
            _handle(file);
            Q_EMIT consumed(id(), name); // throws if the file has left the queue
        } catch (const Exception& e) {
            Log::getInstance()->warning(e.detail());
        } catch (const std::exception& e) {
            Log::getInstance()->warning(QString::fromUtf8(e.what()));
        }
    }

    std::function<void(QFile&)> _handle;
    QDir _directory;
    QStringList _names;
    QTimer _turn{this};
};
