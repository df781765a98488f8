// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/arrivalgate.h"

#include "frame/directories_p.h"
#include "service/filestate_p.h"
#include "service/gatekeeper_p.h"
#include "service/kittexts_p.h"
#include "service/spoolname_p.h"

#include <kez/log.h>

#include <QFile>
#include <QPointer>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <optional>

namespace KezService {

namespace {

using Settings = ArrivalGate::Settings;

Settings resolved(Settings settings)
{
    settings.incoming = absolutePath(settings.incoming);
    settings.queueDirectory = absolutePath(settings.queueDirectory);
    return settings;
}

void check(const Settings& settings)
{
    if (settings.incoming.isEmpty() || settings.queueDirectory.isEmpty())
        raise("GateNoDirectory");
    if (settings.incoming.contains(QChar(0)) || settings.queueDirectory.contains(QChar(0)))
        raise("GatePathZero");
    if (settings.incoming == settings.queueDirectory ||
        leadToOne(QFile::encodeName(settings.incoming), QFile::encodeName(settings.queueDirectory)))
        raise("GateSameDirectory", settings.incoming);
    if (settings.quietPeriod.count() < 0 || settings.lookPeriod.count() <= 0 ||
        settings.firstPause.count() <= 0 || settings.longestPause.count() <= 0)
        raise("GatePeriod");
    // "x" followed by the marker must be a name that a producer can give.
    const QString marker = QLatin1Char('x') + settings.markerSuffix;
    if (settings.markerSuffix.isEmpty() || !SpoolName::fault(marker).isEmpty() ||
        SpoolName::isTemporary(QFile::encodeName(marker)))
        raise("GateMarker", shownName(settings.markerSuffix));
}

} // namespace

struct ArrivalGate::Private {
    Private(ArrivalGate& owner, const Settings& given) : gate(owner), settings(resolved(given)) {}

    void open();
    void close();
    void work();
    void tell(const GateReport& report) const;
    void log(const GateReport& report) const;

    ArrivalGate& gate;
    const Settings settings;
    std::optional<Gatekeeper> keeper;
    QSocketNotifier* notifier = nullptr;
    QTimer* timer = nullptr;
    QMetaObject::Connection threadEnd;
};

void ArrivalGate::Private::open()
{
    keeper.emplace(settings);
    timer = new QTimer(&gate);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    connect(timer, &QTimer::timeout, &gate, [this] { work(); });
    if (keeper->watchDescriptor() >= 0) {
        notifier = new QSocketNotifier(keeper->watchDescriptor(), QSocketNotifier::Read, &gate);
        connect(notifier, &QSocketNotifier::activated, &gate, [this] {
            keeper->readEvents();
            work();
        });
    }
    // Only their own thread can stop a timer and a notifier.
    threadEnd = connect(gate.thread(), &QThread::finished, &gate, [this, begun = gate.thread()] {
        if (gate.thread() == begun)
            gate.stop();
    });
    timer->start(0);
}

/// The timer and the notifier are destroyed later: a slot of one of them may be running.
void ArrivalGate::Private::close()
{
    disconnect(threadEnd);
    if (notifier) {
        notifier->setEnabled(false);
        notifier->deleteLater();
        notifier = nullptr;
    }
    timer->stop();
    timer->deleteLater();
    timer = nullptr;
    keeper.reset();
}

/// The reports come last: their slots may stop or destroy the gate.
void ArrivalGate::Private::work()
{
    keeper->work();
    timer->start(keeper->idleTime());
    const QPointer<ArrivalGate> alive(&gate);
    for (const GateReport& report : keeper->takeReports()) {
        log(report);
        tell(report);
        if (!alive)
            return;
    }
}

void ArrivalGate::Private::tell(const GateReport& report) const
{
    switch (report.kind) {
    case GateReport::Kind::HandedOn:
        Q_EMIT gate.handedOn(report.name, report.text);
        break;
    case GateReport::Kind::Refused:
    case GateReport::Kind::NameRefused:
        Q_EMIT gate.refused(report.name, report.text);
        break;
    case GateReport::Kind::Hindered:
        Q_EMIT gate.hindered(report.text);
        break;
    case GateReport::Kind::Resumed:
        Q_EMIT gate.resumed();
        break;
    case GateReport::Kind::WatchRefused:
    case GateReport::Kind::LeftoversRemoved:
    case GateReport::Kind::LeftoversStay:
        break;
    }
}

void ArrivalGate::Private::log(const GateReport& report) const
{
    Log& log = *Log::getInstance();
    const QString name = shownName(report.name);
    switch (report.kind) {
    case GateReport::Kind::HandedOn:
        log.info(kitText("GateHandedOn", name, settings.queueDirectory, shownName(report.text)));
        break;
    case GateReport::Kind::Refused:
        log.warning(kitText("GateRefused", name, settings.incoming, report.text));
        break;
    case GateReport::Kind::NameRefused:
        log.warning(kitText("GateNameRefused", name, settings.incoming, report.text));
        break;
    case GateReport::Kind::Hindered:
        log.warning(
            kitText("GateHindered", settings.incoming, settings.queueDirectory, report.text));
        break;
    case GateReport::Kind::Resumed:
        log.info(kitText("GateResumed", settings.incoming, settings.queueDirectory));
        break;
    case GateReport::Kind::WatchRefused:
        log.warning(kitText("GateWatchRefused", settings.incoming, report.text));
        break;
    case GateReport::Kind::LeftoversRemoved:
        log.info(kitText("GateLeftovers", settings.queueDirectory, report.text));
        break;
    case GateReport::Kind::LeftoversStay:
        log.warning(kitText("DeliveryLeftovers", settings.queueDirectory, report.text));
        break;
    }
}

ArrivalGate::ArrivalGate(const Settings& settings, QObject* parent)
    : QObject(parent), _d(std::make_unique<Private>(*this, settings))
{}

ArrivalGate::~ArrivalGate()
{
    stop();
}

bool ArrivalGate::isRunning() const
{
    return _d->keeper.has_value();
}

void ArrivalGate::start()
{
    if (isRunning())
        return;
    check(_d->settings);
    _d->open();
}

void ArrivalGate::stop()
{
    if (isRunning())
        _d->close();
}

} // namespace KezService
