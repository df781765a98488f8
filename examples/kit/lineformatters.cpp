// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/exception.h>
#include <kez/log.h>
#include <kez/properties.h>
#include <kez/service/lineformatters.h>
#include <kez/service/loggerbuilder.h>

#include <QFile>
#include <QJsonDocument>

#include <cstdio>

namespace {

/// Reads a log as a collector does: one object per line, and nothing else.
void collect(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw Exception(path + ": " + file.errorString());
    while (!file.atEnd()) {
        const QJsonDocument line = QJsonDocument::fromJson(file.readLine());
        std::printf("%s, %lld characters: %s\n", qPrintable(line["level"].toString()),
                    static_cast<long long>(line["message"].toString().size()),
                    qPrintable(line["message"].toString().section('\n', 0, 0)));
    }
}

} // namespace

int main()
try {
    // As a configuration file would say it.
    const Properties properties({{"log.filename", "./service"},
                                 {"log.filter", "info"},
                                 {"log.maxsize", "10000000"},
                                 {"log.kept", "5"}});
    Log::initInstance(*KezService::buildLogger(properties, KezService::jsonLine));

    Log::getInstance()->info("started");
    Log::getInstance()->warning("unknown user: alice\",\"level\":\"fatal\n{}");
    Log::getInstance()->info("stopped");

    collect("./service-0.log");

    // For people, the default line: a message stays on one line.
    QString line;
    KezService::escapedLine(LoggerLevel::warning, "unknown user: alice\n\x1b[2J", line);
    std::printf("%s\n", qPrintable(line.section("> ", 1)));
    return 0;
} catch (const Exception& e) {
    std::fprintf(stderr, "%s\n", qPrintable(e.detail()));
    return 1;
}
