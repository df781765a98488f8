// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/statusfile_p.h"

#include "service/durablefiles_p.h"
#include "service/kittexts_p.h"
#include "service/spoolplaces_p.h"

#include <kez/log.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace KezService {

namespace {

QString momentText(const QDateTime& moment)
{
    return moment.toUTC().toString(Qt::ISODateWithMs);
}

QJsonObject described(const ConsumerProgress& consumer)
{
    QJsonObject object{
        {QStringLiteral("id"), consumer.id},
        {QStringLiteral("done"), consumer.done},
        {QStringLiteral("quarantined"), consumer.quarantined},
        {QStringLiteral("waiting"), consumer.waiting},
        {QStringLiteral("running"), consumer.running},
        {QStringLiteral("retrying"), consumer.retrying},
    };
    if (!consumer.oldest.isEmpty()) {
        object.insert(QStringLiteral("oldest"), consumer.oldest);
        object.insert(QStringLiteral("oldestSince"), momentText(consumer.oldestSince));
    }
    return object;
}

int replaceUnsynced(const QByteArray& path, const QByteArray& text)
{
    const QByteArray growing = path + ".new";
    ::unlink(growing.constData()); // whatever is there
    const Descriptor file = openFile(growing, O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (!file.isOpen())
        return errno;
    int error = writeAll(file.get(), text);
    if (error == 0 && std::rename(growing.constData(), path.constData()) != 0)
        error = errno;
    if (error != 0)
        ::unlink(growing.constData());
    return error;
}

} // namespace

StatusFile::StatusFile(const QString& spool) : _spool(spool)
{}

void StatusFile::write(const RunnerProgress& progress, const char* state)
{
    const QString path = SpoolPlaces::status(_spool);
    const int error = replaceUnsynced(QFile::encodeName(path), text(progress, _spool, state));
    const bool hadFailed = std::exchange(_hasFailed, error != 0);
    if (error != 0 && !hadFailed)
        Log::getInstance()->warning(
            kitText("RunnerStatusNotWritten", shownName(path), systemErrorText(error)));
}

QByteArray StatusFile::text(const RunnerProgress& progress, const QString& spool, const char* state)
{
    QJsonArray consumers;
    for (const ConsumerProgress& consumer : progress.consumers)
        consumers.append(described(consumer));
    const QJsonObject status{
        {QStringLiteral("time"), momentText(QDateTime::currentDateTimeUtc())},
        {QStringLiteral("process"), static_cast<qint64>(::getpid())},
        {QStringLiteral("state"), QString::fromLatin1(state)},
        {QStringLiteral("spool"), spool},
        {QStringLiteral("files"), progress.files},
        {QStringLiteral("strays"), progress.strays},
        {QStringLiteral("consumers"), consumers},
    };
    return QJsonDocument(status).toJson(QJsonDocument::Indented);
}

} // namespace KezService
