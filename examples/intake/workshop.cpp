// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "workshop.h"

#include "orderreader.h"
#include "texts.h"

#include <kez/exception.h>
#include <kez/log.h>
#include <kez/translator.h>

#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace intake {

Workshop::Workshop(const Settings& settings)
    : _archive(settings.spool, settings.archive),
      _ledger(settings.spool, settings.ledger, settings.setAside,
              std::make_unique<KeyValueOrderReader>()),
      _queue(settings.spool, {{_archive.id(), &_archive}, {_ledger.id(), &_ledger}}, settings.keep,
             settings.period)
{
    _archive.listenTo(_queue);
    _ledger.listenTo(_queue);
}

Workshop::~Workshop()
{
    Log::getInstance()->info(text("WorkDone"_L1)
                                 .arg(QString::number(_archive.archivedCount()),
                                      QString::number(_ledger.bookedCount()),
                                      QString::number(_ledger.setAsideCount())));
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
    auto* translator = Translator::getInstance();
    const QString before = translator->defaultLang();
    try {
        translator->setDefaultLang(lang);
        Log::getInstance()->info(text("LanguageSwitched"_L1).arg(lang));
    } catch (Exception* thrown) { // NOLINT(misc-throw-by-value-catch-by-reference)
        // the form in which a bundle that cannot be read is reported
        const std::unique_ptr<Exception> failure(thrown);
        translator->setDefaultBundleKey(u"kez"_s, before);
        Log::getInstance()->critical(text("LanguageKept"_L1).arg(before, failure->detail()));
    }
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
        // Blocking: whoever asks for another language stands still while it is switched.
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
