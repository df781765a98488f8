// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/configuration.h>
#include <kez/exception.h>
#include <kez/log.h>
#include <kez/service/configsection.h>
#include <kez/service/levelname.h>
#include <kez/service/sectionlogger.h>

#include <QCoreApplication>
#include <QDir>
#include <QTextStream>

using namespace KezService;

int main(int argc, char* argv[])
{
    qputenv("LANG", "en_US.UTF-8"); // so that the texts below are the same everywhere
    const QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    QDir().mkpath("logs");

    // A service reads this from a file, with loadConfig().
    Properties all(QMap<QString, QString>{
        {"log.filename", "logs/shop.log"},
        {"audit.log.filename", "logs/audit.log"},
        {"audit.log.filter", "info"},
        {"billing.log.filename", "logs/billing.log"},
        {"billing.log.filter", "verbose"},
        {"billing.log.kept", "-1"},
    });
    out << "loggers: " << sectionsWith(all, "log").join(", ") << Qt::endl;

    Log& log = *Log::initInstance(*Config::buildFileSystemLogger(all));
    try {
        registerSectionLoggers(all, log);
    } catch (const Exception& e) {
        out << e.detail() << Qt::endl; // one line per fault; no logger is registered
    }

    const auto level = levelFromName("WARN").value_or(LoggerLevel::info);
    all.setValue("billing.log.filter", levelName(level));
    all.remove("billing.log.kept");
    out << "billing: " << section(all, "billing").value("log.filter") << Qt::endl;

    registerSectionLoggers(all, log);
    log.logger("audit")->info("order 4711 is accepted");
    log.logger("billing")->info("below the filter");
    log.logger("billing")->warning("no invoice for order 4711");
    for (const QString name : {"logs/audit-0.log", "logs/billing-0.log"}) {
        QFile file(name);
        if (file.open(QIODevice::ReadOnly))
            out << name << ": " << file.readAll().mid(24); // behind the date
    }
    return 0;
}
