// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service.h"

#include "texts.h"

#include <kez/configuration.h>
#include <kez/exception.h>
#include <kez/log.h>
#include <kez/translator.h>

#include <QCoreApplication>

using namespace Qt::StringLiterals;

namespace intake {

Service::Service(const Config& config) : _worker(Settings::fromProperties(*config.properties()))
{
    connect(&_signals, &UnixSignals::terminateReceived, this, &Service::stop);
    connect(&_signals, &UnixSignals::hangUpReceived, this, &Service::switchLanguage);
    connect(&_worker, &WorkerThread::ready, &_signals, &UnixSignals::listen);
    connect(&_worker, &QThread::finished, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}

void Service::run()
{
    _worker.start();
    QCoreApplication::exec();
    _worker.wait();
    if (!_worker.failure().isEmpty()) {
        const QString failure = text("ServiceFailed"_L1).arg(_worker.failure());
        Log::getInstance()->critical(failure);
        throw Exception(failure);
    }
    Log::getInstance()->info(text("Stopped"_L1));
}

void Service::stop(const QString& signal)
{
    Log::getInstance()->info(text("StopRequested"_L1).arg(signal));
    _worker.stop();
}

void Service::switchLanguage()
{
    const bool isFrench = Translator::getInstance()->defaultLang() == u"fr_FR";
    _worker.switchLanguage(isFrench ? u"en_US"_s : u"fr_FR"_s);
}

} // namespace intake
