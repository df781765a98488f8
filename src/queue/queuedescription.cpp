// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "frame/directories_p.h"
#include "frame/failure_p.h"
#include "kez/FilesQueue.h"

#include <QJsonArray>
#include <QJsonObject>

#include <limits>

namespace {

constexpr const char* JsonSignature = "FilesQueue* FilesQueue::initFilesQueue(const QJsonObject&)";

struct Description {
    QString path;
    int period = 10000;
    bool keep = true;
};

[[noreturn]] void raiseIllegal(const QString& key, const char* reasonKey)
{
    Failure::raise(JsonSignature,
                   Failure::message("IllegalParameter", key, Failure::message(reasonKey)));
}

void applyPath(const QJsonValue& value, Description& description)
{
    if (!value.isString())
        return;
    const QString path = value.toString();
    if (!isUsableDirectory(path))
        Failure::raise(JsonSignature, Failure::message("DirAccessFailure", path));
    description.path = path;
}

void applyPeriod(const QJsonValue& value, const QString& key, Description& description)
{
    if (!value.isDouble())
        raiseIllegal(key, "NotAnInteger");
    description.period = static_cast<int>(qBound<double>(
        std::numeric_limits<int>::min(), value.toDouble(), std::numeric_limits<int>::max()));
}

void applyKeep(const QJsonValue& value, const QString& key, Description& description)
{
    if (!value.isBool())
        raiseIllegal(key, "NotABoolean");
    description.keep = value.toBool();
}

void apply(const QJsonObject& members, Description& description)
{
    for (auto it = members.begin(); it != members.end(); ++it) {
        const QString key = it.key();
        if (key == QLatin1String("path"))
            applyPath(it.value(), description);
        else if (key == QLatin1String("period"))
            applyPeriod(it.value(), key, description);
        else if (key == QLatin1String("keep"))
            applyKeep(it.value(), key, description);
    }
}

} // namespace

FilesQueue* FilesQueue::initFilesQueue(const QJsonArray& description)
{
    Description settings;
    for (const QJsonValue& element : description)
        apply(element.toObject(), settings);
    if (settings.path.isNull())
        Failure::raise(JsonSignature, Failure::message("PropertyNotFound", QStringLiteral("path")));
    return new FilesQueue(settings.path, {}, settings.keep, settings.period, nullptr);
}
