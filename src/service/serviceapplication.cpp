// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/serviceapplication.h"

#include "service/caughtexception_p.h"
#include "service/kittexts_p.h"

#include <kez/log.h>

#include <QEvent>
#include <QMetaEnum>

#include <atomic>
#include <cxxabi.h>
#include <memory>

namespace KezService {

namespace {

/// What the handler of an event may have destroyed when its exception arrives.
struct Target {
    Target(const QObject& receiver, const QEvent& event)
        : receiverClass(receiver.metaObject()->className()),
          receiverName(receiver.objectName()),
          type(event.type())
    {}

    const char* receiverClass;
    QString receiverName;
    QEvent::Type type;
};

QString shownReceiver(const Target& target)
{
    const QString name = QString::fromLatin1(target.receiverClass);
    return target.receiverName.isEmpty()
               ? name
               : name + QStringLiteral(" \"") + shownName(target.receiverName) + QLatin1Char('"');
}

QString shownType(QEvent::Type type)
{
    const char* const name = QMetaEnum::fromType<QEvent::Type>().valueToKey(type);
    return name ? QString::fromLatin1(name) : QString::number(type);
}

} // namespace

struct ServiceApplication::Private {
    std::atomic<int> escaped = 0;
    std::atomic<int> limit = 0;
    std::atomic<int> exitCode = ExitFailure;

    void onEscape(const Target& target) noexcept;
    void log(const Target& target, int count) const;
};

/// What was thrown is still being handled.
void ServiceApplication::Private::onEscape(const Target& target) noexcept
{
    const int count = ++escaped;
    try {
        if (limit > 0 && count >= limit) {
            // Queued, since exit() is for the main thread, and an event loop may yet have to begin.
            QMetaObject::invokeMethod(
                qApp, [code = exitCode.load()] { QCoreApplication::exit(code); },
                Qt::QueuedConnection);
        }
        log(target, count);
    } catch (...) { // NOLINT(bugprone-empty-catch): a log that throws must not end the service
    }
}

void ServiceApplication::Private::log(const Target& target, int count) const
{
    Log* const log = Log::getInstance();
    log->critical(kitText("FrameEscaped", shownReceiver(target), shownType(target.type),
                          shownName(caughtText())));
    if (count == limit)
        log->critical(kitText("FrameEscapedLimit", QString::number(count)));
}

ServiceApplication::ServiceApplication(int& argc, char** argv)
    : QCoreApplication(argc, argv), _d(std::make_unique<Private>())
{}

ServiceApplication::~ServiceApplication() = default;

int ServiceApplication::escapedCount() const
{
    return _d->escaped;
}

void ServiceApplication::setEscapedLimit(int limit, int exitCode)
{
    _d->exitCode = exitCode;
    _d->limit = limit;
}

bool ServiceApplication::notify(QObject* receiver, QEvent* event)
{
    const Target target(*receiver, *event);
    try {
        return QCoreApplication::notify(receiver, event);
    } catch (const abi::__forced_unwind&) {
        throw; // the thread is being cancelled
    } catch (...) {
        _d->onEscape(target);
    }
    return false;
}

} // namespace KezService
