// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "workshop.h"

#include "formats.h"
#include "texts.h"

#include <kez/exception.h>
#include <kez/log.h>
#include <kez/translator.h>

#include <QDateTime>

#include <utility>

using namespace Qt::StringLiterals;

namespace intake {

Workshop::Workshop(const Settings& settings)
    : _archive(settings.spool, settings.archive),
      _ledger(settings.spool, settings.ledger, settings.setAside),
      _queue(settings.spool, {{_archive.id(), &_archive}, {_ledger.id(), &_ledger}}, settings.keep,
             settings.period)
{
    _archive.listenTo(_queue);
    _ledger.listenTo(_queue);
}

Workshop::~Workshop()
{
    Log::getInstance()->info(
        text("WorkDone"_L1)
            .arg(momentText(QDateTime::currentDateTime()), countText(_archive.archivedCount()),
                 countText(_ledger.bookedCount()), countText(_ledger.setAsideCount())));
    const QMap<QString, qint64> totals = _ledger.totals();
    QStringList amounts;
    for (auto total = totals.begin(); total != totals.end(); ++total)
        amounts.append(amountText(total.value(), total.key()));
    if (!amounts.isEmpty())
        Log::getInstance()->info(text("TotalBooked"_L1).arg(amounts.join(u" ; "_s)));
}

void Workshop::start()
{
    _queue.onProcess();
    _queue.onDirectoryChanged(); // for what arrived before the watch was set
    _archive.ask();
    _ledger.ask();
    Log::getInstance()->info(text("Ready"_L1).arg(_queue.path().absolutePath()));
}

void Workshop::switchLanguage(const QString& lang)
{
    Translator::getInstance()->setDefaultLang(lang); // cannot fail: both are compiled in
    Log::getInstance()->info(text("LanguageSwitched"_L1).arg(lang));
}

void Workshop::stop()
{
    _queue.onQuit();
}

WorkerThread::WorkerThread(Settings settings, QObject* parent)
    : QThread(parent), _settings(std::move(settings))
{
    setObjectName(u"intake-queue"_s);
}

QString WorkerThread::failure() const
{
    return _failure;
}

void WorkerThread::switchLanguage(const QString& lang)
{
    Q_EMIT languageWanted(lang);
}

void WorkerThread::stop()
{
    Q_EMIT stopWanted();
}

void WorkerThread::run()
{
    try {
        Workshop workshop(_settings);
        // Blocking: the thread that asks for another language waits while it is switched.
        connect(this, &WorkerThread::languageWanted, &workshop, &Workshop::switchLanguage,
                Qt::BlockingQueuedConnection);
        connect(this, &WorkerThread::stopWanted, &workshop, &Workshop::stop);
        workshop.start();
        Q_EMIT ready();
        exec();
    } catch (const Exception& failure) {
        _failure = failure.detail();
    }
}

} // namespace intake
