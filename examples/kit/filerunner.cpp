// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/exception.h>
#include <kez/service/filerunner.h>

#include <QCoreApplication>
#include <QDir>
#include <QTextStream>

using namespace KezService;

Outcome archive(const FileAtHand& order)
{
    const QString copy = "archive/" + order.name;
    QFile::remove(copy); // that of an attempt that was interrupted
    return QFile::copy(order.path, copy) ? Outcome::done() : Outcome::retry("cannot be copied");
}

Outcome book(const FileAtHand& order)
{
    QFile file(order.path);
    bool isAmount = false;
    if (!file.open(QIODevice::ReadOnly))
        return Outcome::retry(file.errorString());
    file.readAll().toDouble(&isAmount);
    return isAmount ? Outcome::done() : Outcome::reject("it holds no amount");
}

void makeOrder(const QString& name, const QByteArray& text)
{
    QFile order("spool/" + name);
    if (order.open(QIODevice::WriteOnly))
        order.write(text);
}

int main(int argc, char* argv[])
try {
    QCoreApplication application(argc, argv);
    QDir().mkpath("archive");
    QDir().mkpath("spool");
    makeOrder("order-1", "12.50");
    makeOrder("order-2", "twelve");

    FileRunner runner({"spool"});
    runner.addConsumer("archive", archive);
    runner.addConsumer("ledger", book);
    QObject::connect(&runner, &FileRunner::progressed, &application, [](const auto& progress) {
        if (progress.files == 0)
            QCoreApplication::quit(); // a service goes on
    });
    runner.start();
    application.exec();
    runner.stop(std::chrono::seconds(10));

    const auto ledger = runner.progress().consumer("ledger");
    QTextStream(stdout) << ledger.done << " booked, " << ledger.quarantined << " in quarantine\n";
} catch (const Exception& failure) {
    qFatal("%s", qPrintable(failure.detail()));
}
