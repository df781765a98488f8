// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/exception.h>
#include <kez/log.h>
#include <kez/properties.h>
#include <kez/service/lineformatters.h>
#include <kez/service/loggerbuilder.h>
#include <kez/service/messagebridge.h>

#include <QFile>
#include <QLoggingCategory>

#include <cstdio>

Q_LOGGING_CATEGORY(http, "net.http")
Q_LOGGING_CATEGORY(access, "access")

namespace {

std::shared_ptr<Logger> loggerOn(const QString& name)
{
    const Properties properties({{"log.filename", name}, {"log.filter", "info"}});
    return KezService::buildLogger(properties, KezService::escapedLine);
}

/// Prints the lines of a log file, without their times.
void show(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw Exception(path + ": " + file.errorString());
    while (!file.atEnd())
        std::printf("%s: %s", qPrintable(path), file.readLine().mid(24).constData());
}

} // namespace

int main()
try {
    Log::initInstance(*loggerOn("./service"));
    Log::getInstance()->insertLoggger("access", loggerOn("./access"));

    KezService::MessageBridge::Settings settings;
    settings.levels = {{"net.*", LoggerLevel::warning}, {"*", LoggerLevel::info}};
    settings.loggers = {{"access", "access"}};
    const KezService::MessageBridge bridge(settings);

    qInfo("started");
    qCInfo(http, "of no interest");
    qCWarning(http) << "slow answer:" << 1200 << "ms";
    qCInfo(access, "login of %s", "alice\n21/11/2026 18:03:04,123 <ERROR> disk full");

    show("./service-0.log");
    show("./access-0.log");
    return 0;
} catch (const Exception& e) {
    std::fprintf(stderr, "%s\n", qPrintable(e.detail()));
    return 1;
}
