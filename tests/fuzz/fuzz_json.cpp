// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/exception.h>
#include <kez/FilesQueue.h>
#include <kez/initlib.h>
#include <kez/logger.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

/// The same objects with the paths that they name taken away: files are not for the fuzzer to make.
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

/// A logger and a queue described by any JSON array.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const QTemporaryDir directory;
    static const bool isSetUp = (kezEnsureInit(), directory.isValid());
    require(isSetUp);
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QJsonArray array = QJsonDocument::fromJson(bytes).array();

    const QString ring = directory.filePath(QStringLiteral("ring"));
    const auto logger = Logger::buildLog(
        QJsonObject{{QStringLiteral("log"), harmless(array, QStringLiteral("fileName"), ring)}});
    require(logger != nullptr);

    const QString spool = directory.filePath(QStringLiteral("spool"));
    require(QDir().mkpath(spool));
    try {
        const std::unique_ptr<FilesQueue> queue(
            FilesQueue::initFilesQueue(harmless(array, QStringLiteral("path"), spool)));
        require(queue->size() == 0);
    } catch (const Exception& failure) {
        require(!failure.detail().isEmpty());
    }
    return 0;
}
