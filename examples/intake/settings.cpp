// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "settings.h"

#include "texts.h"

#include <kez/log.h>
#include <kez/translator.h>

#include <QDir>
#include <QFileInfo>

using namespace intake;
using namespace Qt::StringLiterals;

namespace {

QString valueOf(const Properties& properties, const QString& key, const QString& otherwise = {})
{
    return properties.contains(key) ? properties.value(key).trimmed() : otherwise;
}

bool isUsable(const QFileInfo& info)
{
    return info.isReadable() && info.isWritable();
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
    QStringList seen;
    for (const QString& key : {u"queue.path"_s, u"archive.path"_s, u"setaside.path"_s}) {
        const QFileInfo info(valueOf(properties, key));
        if (key == u"setaside.path" && settings.runner.quarantine.isEmpty())
            continue;
        if (expect(key, info.isDir() && isUsable(info), "NoDirectory"_L1))
            expect(key, !seen.contains(info.canonicalFilePath()), "DirectoryTwice"_L1);
        seen += info.canonicalFilePath();
    }
    const QFileInfo ledger(settings.ledger);
    const QFileInfo place(ledger.absolutePath());
    const bool canBook =
        ledger.exists() ? ledger.isFile() && isUsable(ledger) : place.isDir() && isUsable(place);
    expect(u"ledger.path"_s, canBook && !settings.ledger.isEmpty(), "NoLedger"_L1);
    for (const QString& key : {u"ledger.path"_s, u"log.filename"_s}) {
        const QString path = valueOf(properties, key);
        const bool isInSpool = QFileInfo(path).dir().canonicalPath() == seen.first();
        expect(key, path.isEmpty() || seen.first().isEmpty() || !isInSpool, "InsideSpool"_L1);
    }
    expect(u"queue.period"_s, settings.runner.period.count() >= 0, "NoPeriod"_L1);
    const QStringList yesNo{u"0"_s, u"1"_s, u"false"_s, u"true"_s};
    expect(u"queue.keep"_s, yesNo.contains(valueOf(properties, u"queue.keep"_s, u"1"_s)),
           "NoYesNo"_L1);
    expect(u"lang"_s, Log::languages().contains(settings.lang), "NoLanguage"_L1);
    return faults;
}

} // namespace

Settings Settings::of(const Properties& properties)
{
    bool isNumber = false;
    const int period = valueOf(properties, u"queue.period"_s, u"1000"_s).toInt(&isNumber);
    const QString keep = valueOf(properties, u"queue.keep"_s);
    const bool isKept = keep != u"0" && keep != u"false";
    return {.runner = {.spool = valueOf(properties, u"queue.path"_s),
                       .quarantine = valueOf(properties, u"setaside.path"_s),
                       .period = std::chrono::milliseconds(isNumber ? period : -1),
                       .present = isKept ? KezService::PresentFiles::Handle
                                         : KezService::PresentFiles::Delete},
            .archive = valueOf(properties, u"archive.path"_s),
            .ledger = valueOf(properties, u"ledger.path"_s),
            .lang = valueOf(properties, u"lang"_s, Translator::getInstance()->defaultLang())};
}

bool IntakeConfigController::isLegalConfiguration(Properties* properties)
{
    if (!properties)
        return false;
    for (const QString& key : {u"queue.path"_s, u"archive.path"_s, u"ledger.path"_s,
                               u"setaside.path"_s, u"log.filename"_s}) {
        const QString path = valueOf(*properties, key);
        if (!path.isEmpty())
            properties->setValue(key, QDir::cleanPath(QDir(_directory).absoluteFilePath(path)));
    }
    if (const QString lang = Settings::of(*properties).lang; Log::languages().contains(lang))
        Translator::getInstance()->setDefaultLang(lang);
    const QStringList faults = faultsOf(*properties);
    for (const QString& fault : faults)
        insertError(fault);
    return faults.isEmpty();
}
