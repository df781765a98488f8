// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/servicelog.h"

#include "service/ringlogger_p.h"

#include <kez/configuration.h>
#include <kez/identity.h>
#include <kez/log.h>

#include <QCoreApplication>

namespace KezService {

namespace {

/// Not by initInstance(), which would keep a log that something else has made. The old log stays:
/// somebody may hold it; as a child it is still reachable.
void makeProcessLog(Logger& logger)
{
    QObject* const before = Log::getInstance();
    auto* const log = new Log(logger); // like every instance, it serves until the process ends
    before->setParent(log);
}

QString bannerTitle(const Config& config)
{
    const QString title = config.logBannerTitle();
    const bool isMissing = title == QLatin1String("[DefaultLogTitle]");
    return isMissing ? QCoreApplication::applicationName() + QStringLiteral(" %1") : title;
}

} // namespace

void openLog(Config& config, LogFormatter formatter)
{
    RingReport report;
    if (!config.logger()) {
        const Properties& properties = *config.properties();
        const RingLogger built =
            formatter ? buildRingLogger(properties, formatter) : buildRingLogger(properties);
        config.setLogger(built.logger);
        report = built.report;
    }
    makeProcessLog(*config.logger());
    config.logBanner(bannerTitle(config), config.value(QStringLiteral("app.version")),
                     config.displayPropertiesWithinBanner(), Kez::defaultCopyright());
    report.logTo(*config.logger());
}

} // namespace KezService
