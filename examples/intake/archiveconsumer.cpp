// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "archiveconsumer.h"

#include "durablecopy.h"
#include "texts.h"

#include <kez/log.h>

using namespace Qt::StringLiterals;

namespace intake {

ArchiveConsumer::ArchiveConsumer(const QString& spool, const QString& archive, QObject* parent)
    : IntakeConsumer(u"archive"_s, spool, parent), _archive(archive)
{}

int ArchiveConsumer::archivedCount() const
{
    return _archivedCount;
}

void ArchiveConsumer::handle(const QString& path, const QString& name)
{
    keepCopy(path, _archive);
    ++_archivedCount;
    Log::getInstance()->info(text("Archived"_L1).arg(printable(name)));
}

} // namespace intake
