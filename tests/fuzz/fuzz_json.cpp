// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "fuzz/inputfile.h"

#include <kez/exception.h>
#include <kez/FilesQueue.h>
#include <kez/logger.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <memory>

namespace {

/// The same objects with this path in place of theirs: the fuzzer must not make files elsewhere.
QJsonArray harmless(const QJsonArray& description, const QString& pathKey, const QJsonValue& path)
{
    QJsonArray result;
    for (const QJsonValue& value : description) {
        QJsonObject object = value.toObject();
        if (object.contains(pathKey))
            object[pathKey] = path;
        result.append(object.isEmpty() ? value : object);
    }
    return result;
}

} // namespace

/// Builds a logger and a queue from any JSON array.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    prepare();
    const QJsonArray array = QJsonDocument::fromJson(inputBytes(data, size)).array();

    const QString ring = InputDirectory::path(QStringLiteral("ring"));
    const auto logger = Logger::buildLog(
        QJsonObject{{QStringLiteral("log"), harmless(array, QStringLiteral("fileName"), ring)}});
    require(logger != nullptr, "there is always a logger");

    const QString spool = InputDirectory::path(QStringLiteral("spool"));
    QDir().mkpath(spool);
    try {
        const std::unique_ptr<FilesQueue> queue(
            FilesQueue::initFilesQueue(harmless(array, QStringLiteral("path"), spool)));
        require(queue->size() == 0, "an empty directory makes an empty queue");
    } catch (const Exception& failure) {
        require(!failure.detail().isEmpty(), "a failure says why");
    }
    return 0;
}
