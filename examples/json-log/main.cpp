// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// A service whose log is JSON, one object per line. It uses nothing but Qt's messages: the message
// bridge takes them to the log.
//
// It reads orders from its standard input, one per line ("number;amount"), and handles them in a
// thread of their own. It ends with its input, or on SIGTERM and SIGINT.
//
//     json-log service.properties < orders

#include <kez/configuration.h>
#include <kez/exception.h>
#include <kez/log.h>
#include <kez/service/lineformatters.h>
#include <kez/service/loggerbuilder.h>
#include <kez/service/messagebridge.h>
#include <kez/service/unixsignals.h>

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QSocketNotifier>
#include <QThread>

#include <cerrno>
#include <cstdio>

#include <unistd.h>

Q_LOGGING_CATEGORY(orders, "app.orders")

namespace {

/// Whoever sends the order decides what is in the line.
void handle(const QString& line)
{
    bool isAmount = false;
    const double amount = line.section(';', 1).toDouble(&isAmount);
    if (isAmount)
        qCInfo(orders).noquote() << line.section(';', 0, 0) << "costs" << amount;
    else
        qCWarning(orders).noquote() << "not an order:" << line;
}

/// Hands the lines of the standard input to `worker`.
class Input {
public:
    explicit Input(QObject& worker) : _worker(worker) {}

    /// False at the end.
    bool read()
    {
        char bytes[65536];
        const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof bytes);
        if (count < 0)
            return errno == EINTR;
        _begun.append(bytes, count);
        if (count == 0 && !_begun.isEmpty())
            _begun += '\n'; // the last line may have no end
        for (qsizetype end = _begun.indexOf('\n'); end >= 0; end = _begun.indexOf('\n')) {
            const QString line = QString::fromUtf8(_begun.first(end));
            QMetaObject::invokeMethod(&_worker, [line] { handle(line); });
            _begun.remove(0, end + 1);
        }
        return count > 0;
    }

private:
    QObject& _worker;
    QByteArray _begun;
};

void serve()
{
    QThread thread;
    thread.setObjectName("orders"); // what the log calls it
    QObject worker;
    worker.moveToThread(&thread);
    thread.start();

    Input input(worker);
    QSocketNotifier readable(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&readable, &QSocketNotifier::activated, &readable, [&] {
        if (!input.read())
            QCoreApplication::quit();
    });
    qInfo("started");
    QCoreApplication::exec();

    // The thread ends after the orders that wait.
    QMetaObject::invokeMethod(&worker, [&thread] { thread.quit(); });
    thread.wait();
    qInfo("stopped");
}

} // namespace

int main(int argc, char* argv[])
try {
    const QCoreApplication application(argc, argv);
    KezService::UnixSignals received;
    QObject::connect(&received, &KezService::UnixSignals::stopRequested, &application,
                     &QCoreApplication::quit);

    const auto config = Config::load(application.arguments().value(1), "1.0");
    Log::initInstance(*KezService::buildLogger(*config->properties(), KezService::jsonLine));
    const KezService::MessageBridge bridge;
    received.listen();
    serve();
    return 0;
} catch (const Exception& e) {
    std::fprintf(stderr, "%s\n", qPrintable(e.detail()));
    return 1;
}
