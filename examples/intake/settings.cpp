// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "settings.h"

#include "texts.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;
using std::chrono::milliseconds;

namespace intake {

namespace {

QString valueOf(const Properties& properties, const QString& key, const QString& otherwise = {})
{
    return properties.contains(key) ? properties.value(key).trimmed() : otherwise;
}

bool isUsable(const QFileInfo& info)
{
    return info.isReadable() && info.isWritable();
}

bool isUsableDirectory(const QFileInfo& info)
{
    return info.isDir() && isUsable(info);
}

bool isUsableFile(const QFileInfo& info)
{
    return info.exists() ? info.isFile() && isUsable(info)
                         : isUsableDirectory(QFileInfo(info.absolutePath()));
}

bool isIn(const QString& directory, const QString& file)
{
    const QString parent = QFileInfo(file).dir().canonicalPath();
    return !parent.isEmpty() && parent == QFileInfo(directory).canonicalFilePath();
}

QStringList faultsOf(const Properties& properties)
{
    QStringList faults;
    const auto expect = [&](const QString& key, bool isRight, QLatin1String otherwise) {
        const QString value = valueOf(properties, key);
        if (!isRight)
            faults += value.isEmpty() ? text("KeyMissing"_L1, key)
                                      : text("KeyInvalid"_L1, key, value, text(otherwise));
        return isRight;
    };
    const Settings settings = Settings::of(properties);
    QStringList directoryKeys{u"queue.path"_s, u"archive.path"_s};
    if (!settings.runner.quarantine.isEmpty())
        directoryKeys += u"setaside.path"_s;
    QStringList seen;
    for (const QString& key : std::as_const(directoryKeys)) {
        const QFileInfo info(valueOf(properties, key));
        if (expect(key, isUsableDirectory(info), "NoDirectory"_L1))
            expect(key, !seen.contains(info.canonicalFilePath()), "DirectoryTwice"_L1);
        seen += info.canonicalFilePath();
    }
    const bool hasLedger = !settings.ledger.isEmpty() && isUsableFile(QFileInfo(settings.ledger));
    expect(u"ledger.path"_s, hasLedger, "NoLedger"_L1);
    for (const QString& key : {u"ledger.path"_s, u"log.filename"_s}) {
        const QString file = valueOf(properties, key);
        expect(key, file.isEmpty() || !isIn(settings.runner.spool, file), "InsideSpool"_L1);
    }
    expect(u"queue.period"_s, settings.runner.period >= milliseconds(0), "NoPeriod"_L1);
    const QStringList yesNo{u"0"_s, u"1"_s, u"false"_s, u"true"_s};
    expect(u"queue.keep"_s, yesNo.contains(valueOf(properties, u"queue.keep"_s, u"1"_s)),
           "NoYesNo"_L1);
    expect(u"lang"_s, isLanguage(valueOf(properties, u"lang"_s, u"fr_FR"_s)), "NoLanguage"_L1);
    return faults;
}

} // namespace

Settings Settings::of(const Properties& properties)
{
    bool isNumber = false;
    const int period = valueOf(properties, u"queue.period"_s, u"1000"_s).toInt(&isNumber);
    const QString keep = valueOf(properties, u"queue.keep"_s);
    Settings settings;
    settings.runner.spool = valueOf(properties, u"queue.path"_s);
    settings.runner.quarantine = valueOf(properties, u"setaside.path"_s);
    settings.runner.period = milliseconds(isNumber ? period : -1);
    settings.runner.keep = keep != u"0" && keep != u"false";
    settings.archive = valueOf(properties, u"archive.path"_s);
    settings.ledger = valueOf(properties, u"ledger.path"_s);
    settings.lang = valueOf(properties, u"lang"_s);
    return settings;
}

void resolvePaths(Properties& properties, const QString& directory)
{
    for (const QString& key : {u"queue.path"_s, u"archive.path"_s, u"ledger.path"_s,
                               u"setaside.path"_s, u"log.filename"_s}) {
        const QString path = valueOf(properties, key);
        if (!path.isEmpty())
            properties.setValue(key, QDir::cleanPath(QDir(directory).absoluteFilePath(path)));
    }
}

bool IntakeConfigController::isLegalConfiguration(Properties* properties)
{
    const QStringList faults =
        properties ? faultsOf(*properties) : QStringList{text("NoConfiguration"_L1)};
    for (const QString& fault : faults)
        insertError(fault);
    return faults.isEmpty();
}

} // namespace intake
