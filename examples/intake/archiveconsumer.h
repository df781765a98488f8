// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "intakeconsumer.h"

namespace intake {

/// Keeps a durable copy of each file in the archive directory. The content does not matter.
///
/// *Threads*: the queue's thread.
/// *Owns*: nothing more.
/// *Fails*: never.
class ArchiveConsumer : public IntakeConsumer {
    Q_OBJECT

public:
    ArchiveConsumer(const QString& spool, const QString& archive, QObject* parent = nullptr);

    /// Files handled since the start.
    int archivedCount() const;

protected:
    void handle(const QString& path, const QString& name) override;

private:
    QString _archive;
    int _archivedCount = 0;
};

} // namespace intake
