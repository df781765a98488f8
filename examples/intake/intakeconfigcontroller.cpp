// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "intakeconfigcontroller.h"

#include "settings.h"
#include "texts.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace intake {

namespace {

bool isUsable(const QFileInfo& info)
{
    return info.isReadable() && info.isWritable();
}

bool isUsableDirectory(const QString& path)
{
    const QFileInfo info(path);
    return info.isDir() && isUsable(info);
}

} // namespace

bool IntakeConfigController::isLegalConfiguration(Properties* properties)
{
    if (!properties) {
        insertError(text("NoConfiguration"_L1));
        return false;
    }
    const qsizetype earlier = errors().size(); // the list is never cleared
    QStringList usable;
    QStringList keys = {u"queue.path"_s, u"archive.path"_s};
    if (!trimmedValue(*properties, u"setaside.path"_s).isEmpty())
        keys.append(u"setaside.path"_s); // has a default
    for (const QString& key : std::as_const(keys)) {
        if (checkDirectory(*properties, key))
            usable.append(key);
    }
    checkDirectoriesDiffer(*properties, usable);
    checkLedger(*properties);
    checkOutsideSpool(*properties, u"ledger.path"_s);
    checkOutsideSpool(*properties, u"log.filename"_s);
    checkPeriod(*properties);
    checkKeep(*properties);
    checkLanguage(*properties);
    return errors().size() == earlier;
}

bool IntakeConfigController::checkDirectory(const Properties& properties, const QString& key)
{
    const QString path = trimmedValue(properties, key);
    if (path.isEmpty())
        insertError(text("KeyMissing"_L1).arg(key));
    else if (!isUsableDirectory(path))
        insertInvalid(properties, key, "NoDirectory"_L1);
    else
        return true;
    return false;
}

void IntakeConfigController::checkLedger(const Properties& properties)
{
    const auto key = u"ledger.path"_s;
    const QString path = trimmedValue(properties, key);
    const QFileInfo info(path);
    if (path.isEmpty())
        insertError(text("KeyMissing"_L1).arg(key));
    else if (info.exists() ? !info.isFile() || !isUsable(info)
                           : !isUsableDirectory(info.absolutePath()))
        insertInvalid(properties, key, "NoLedger"_L1);
}

void IntakeConfigController::checkDirectoriesDiffer(const Properties& properties,
                                                    const QStringList& keys)
{
    QStringList seen;
    for (const QString& key : keys) {
        const QString path = QFileInfo(trimmedValue(properties, key)).canonicalFilePath();
        if (seen.contains(path))
            insertInvalid(properties, key, "DirectoryTwice"_L1);
        seen.append(path);
    }
}

/// The queue would take a file in its directory for an order, and delete it.
void IntakeConfigController::checkOutsideSpool(const Properties& properties, const QString& key)
{
    const QString file = trimmedValue(properties, key);
    const QString spool = QFileInfo(trimmedValue(properties, u"queue.path"_s)).canonicalFilePath();
    if (file.isEmpty() || spool.isEmpty())
        return;
    const QString directory = QFileInfo(QFileInfo(file).absolutePath()).canonicalFilePath();
    if (directory == spool)
        insertInvalid(properties, key, "InsideSpool"_L1);
}

void IntakeConfigController::checkPeriod(const Properties& properties)
{
    const auto key = u"queue.period"_s;
    bool isNumber = false;
    if (properties.contains(key) &&
        (trimmedValue(properties, key).toInt(&isNumber) < 0 || !isNumber))
        insertInvalid(properties, key, "NoPeriod"_L1);
}

void IntakeConfigController::checkKeep(const Properties& properties)
{
    const auto key = u"queue.keep"_s;
    const QString value = trimmedValue(properties, key);
    if (properties.contains(key) && !isYes(value) && !isNo(value))
        insertInvalid(properties, key, "NoYesNo"_L1);
}

void IntakeConfigController::checkLanguage(const Properties& properties)
{
    const auto key = u"lang"_s;
    if (properties.contains(key) && !isLanguage(trimmedValue(properties, key)))
        insertInvalid(properties, key, "NoLanguage"_L1);
}

void IntakeConfigController::insertInvalid(const Properties& properties, const QString& key,
                                           QLatin1String reason)
{
    insertError(text("KeyInvalid"_L1).arg(key, trimmedValue(properties, key), text(reason)));
}

} // namespace intake
