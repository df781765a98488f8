// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QObject>
#include <QString>

/// The base class of what handles the files of a FilesQueue.
///
/// A consumer is registered with the queue, connects to its filesNotConsumed(), emits
/// requestForFiles(id()) when it is ready for work, handles each file in place and then emits
/// consumed(id(), file). It neither deletes nor renames a file: the queue deletes it once every
/// consumer has reported it.
///
/// *Threads*: the object's thread.
/// *Owns*: its identifier.
/// *Fails*: never; emitting consumed() in the queue's thread throws what FilesQueue::onConsumed
/// throws.
class KEZ_EXPORT ConsumerAncestor : public QObject {
    Q_OBJECT

public:
    /// `id` is unique among the consumers of one queue.
    explicit ConsumerAncestor(const QString& id, QObject* parent = nullptr);
    ~ConsumerAncestor() override;

    QString id() const;

Q_SIGNALS:
    /// The consumer `id` has handled the file named `file`, the bare name that the queue gave.
    void consumed(const QString& id, const QString& file);

    /// The consumer `id` asks for the names of the files that it has not handled.
    void requestForFiles(const QString& id);

private:
    QString _identifier;
};

/// A consumer as a queue knows it. The consumer is not owned and must outlive the queue.
struct ConsumerEntry {
    QString id;
    ConsumerAncestor* consumer = nullptr;
};
