// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/service/serviceapplication.h>

#include "service/kittexts_p.h"

#include <kez/log.h>

#include <QEvent>
#include <QMetaEnum>

#include <atomic>
#include <cstdlib>
#include <cxxabi.h>
#include <exception>
#include <memory>
#include <typeinfo>

namespace KezService {

namespace {

/// What the handler of an event may have destroyed when its exception arrives.
struct Delivery {
    Delivery(const QObject& receiver, const QEvent& event)
        : receiverClass(receiver.metaObject()->className()),
          receiverName(receiver.objectName()),
          type(event.type())
    {}

    const char* receiverClass;
    QString receiverName;
    QEvent::Type type;
};

QString shownReceiver(const Delivery& delivery)
{
    const QString name = QString::fromLatin1(delivery.receiverClass);
    return delivery.receiverName.isEmpty()
               ? name
               : name + QStringLiteral(" \"") + shownName(delivery.receiverName) + QLatin1Char('"');
}

QString shownType(QEvent::Type type)
{
    const char* const name = QMetaEnum::fromType<QEvent::Type>().valueToKey(type);
    return name ? QString::fromLatin1(name) : QString::number(type);
}

/// The type of the exception that is being handled.
QString typeText()
{
    const std::type_info* const type = abi::__cxa_current_exception_type();
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> name(
        type ? abi::__cxa_demangle(type->name(), nullptr, nullptr, &status) : nullptr, &std::free);
    return kitText("FrameEscapedUnknown", QString::fromUtf8(name ? name.get() : "?"));
}

/// The text of the exception that is being handled. Deletes one that was thrown as a pointer.
QString exceptionText()
{
    try {
        throw;
    } catch (Exception* thrown) { // NOLINT(misc-throw-by-value-catch-by-reference): FilesQueue
        const std::unique_ptr<const Exception> owned(thrown);
        return owned ? owned->detail() : typeText();
    } catch (const Exception& thrown) {
        return thrown.detail();
    } catch (const std::exception& thrown) {
        return QString::fromLocal8Bit(thrown.what());
    } catch (...) {
        return typeText();
    }
}

} // namespace

struct ServiceApplication::Private {
    std::atomic<int> escaped = 0;
    std::atomic<int> limit = 0;
    std::atomic<int> exitCode = ExitFailure;

    void onEscape(const Delivery& delivery) noexcept;
    void log(const Delivery& delivery, int count) const;
};

/// What was thrown is still being handled.
void ServiceApplication::Private::onEscape(const Delivery& delivery) noexcept
{
    const int count = ++escaped;
    try {
        if (limit > 0 && count >= limit) {
            // Queued, since exit() is for the main thread, and an event loop may yet have to begin.
            QMetaObject::invokeMethod(
                qApp, [code = exitCode.load()] { QCoreApplication::exit(code); },
                Qt::QueuedConnection);
        }
        log(delivery, count);
    } catch (...) { // NOLINT(bugprone-empty-catch): a log that throws must not end the service
    }
}

void ServiceApplication::Private::log(const Delivery& delivery, int count) const
{
    Log* const log = Log::getInstance();
    log->critical(kitText("FrameEscaped", shownReceiver(delivery), shownType(delivery.type),
                          shownName(exceptionText())));
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
    const Delivery delivery(*receiver, *event);
    try {
        return QCoreApplication::notify(receiver, event);
    } catch (const abi::__forced_unwind&) {
        throw; // the thread is being cancelled
    } catch (...) {
        _d->onEscape(delivery);
    }
    return false;
}

} // namespace KezService
