// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QObject>
#include <QString>

/// The base class of the objects that handle the files of a FilesQueue.
///
/// A consumer is registered with the queue and connects to its filesNotConsumed(). It emits
/// requestForFiles(id()) when it is ready for work, and again after a queueUpdated() that tells of
/// arrivals. It handles each file in place and then emits consumed(id(), file). It does not delete
/// or rename a file: the queue deletes it once every consumer has reported it.
///
/// filesNotConsumed() reaches every consumer of the queue and does not say which consumer asked. In
/// the queue's thread, the answer to a consumer's own request is the one that comes while it emits
/// requestForFiles(). This is one reason why consumers belong there; FilesQueue names the other.
///
/// *Threads*: the object's thread, which should be the queue's.
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
    /// The consumer `id` has handled the file named `file` (the bare name that the queue gave).
    void consumed(const QString& id, const QString& file);

    /// The consumer `id` asks for the names of the files that it has not handled.
    void requestForFiles(const QString& id);

private:
    QString _identifier;
};

/// A consumer as a queue knows it. The queue does not own it. A consumer that is destroyed before
/// the queue counts as one that never reports again.
struct ConsumerEntry {
    QString id;
    ConsumerAncestor* consumer = nullptr;
};
