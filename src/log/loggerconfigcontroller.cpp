// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/loggerconfigcontroller.h"
#include "frame/directories_p.h"
#include "frame/failure_p.h"
#include "log/loggerkeys_p.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <iterator>

namespace {

bool isInteger(const QString& text)
{
    bool isSigned = false;
    bool isUnsigned = false;
    text.toLongLong(&isSigned, 10);
    text.toULongLong(&isUnsigned, 10);
    return isSigned || isUnsigned;
}

/// "%1" is the only place marker that a banner title can use.
bool holdsForeignMarker(const QString& title)
{
    // Never destroyed: the destructors of static objects may come here.
    static const auto& marker = *new QRegularExpression(QStringLiteral("%L?([0-9]{1,2})"));
    auto matches = marker.globalMatch(title);
    while (matches.hasNext()) {
        if (matches.next().captured(1) != QLatin1String("1"))
            return true;
    }
    return false;
}

} // namespace

LoggerConfigController::LoggerConfigController(QObject* parent) : IConfigController(parent)
{}

LoggerConfigController::~LoggerConfigController() = default;

bool LoggerConfigController::isLegalConfiguration(Properties* properties)
{
    if (!properties) {
        insertError(Failure::message("UndefinedConfig"));
        return false;
    }
    // All of them, so that every fault is recorded.
    const bool checks[] = {checkFileName(*properties), checkIntegers(*properties),
                           checkBannerTitle(*properties), checkFilter(*properties)};
    return std::all_of(std::begin(checks), std::end(checks), [](bool isLegal) { return isLegal; });
}

bool LoggerConfigController::checkFileName(const Properties& properties)
{
    const QString key = LoggerKeys::FileName;
    const QString fileName = properties.contains(key) ? properties.value(key) : QString();
    if (!fileName.isEmpty() && isUsableDirectory(QFileInfo(fileName).absoluteDir().path()))
        return true;
    insertInvalid(key, fileName);
    return false;
}

bool LoggerConfigController::checkIntegers(const Properties& properties)
{
    bool areLegal = true;
    for (const QString key : {LoggerKeys::MaxSize, LoggerKeys::Kept, LoggerKeys::Timeout,
                              LoggerKeys::Tee, LoggerKeys::ConfigBannerProperties}) {
        if (properties.contains(key) && !isInteger(properties.value(key))) {
            insertInvalid(key, properties.value(key));
            areLegal = false;
        }
    }
    return areLegal;
}

bool LoggerConfigController::checkBannerTitle(const Properties& properties)
{
    const QString key = LoggerKeys::ConfigBannerTitle;
    if (!properties.contains(key) || !holdsForeignMarker(properties.value(key)))
        return true;
    insertInvalid(key, properties.value(key), QStringLiteral(" -> %1 = version"));
    return false;
}

bool LoggerConfigController::checkFilter(const Properties& properties)
{
    const QString key = LoggerKeys::Filter;
    if (!properties.contains(key) ||
        LoggerKeys::levelNamed(&LoggerKeys::LevelNames::validator, properties.value(key)))
        return true;
    insertInvalid(key, properties.value(key));
    return false;
}

void LoggerConfigController::insertInvalid(const QString& key, const QString& value,
                                           const QString& hint)
{
    insertError(Failure::message("InvalidParameter", key, value) + hint);
}
