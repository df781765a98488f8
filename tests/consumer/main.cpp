// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/kez.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

namespace {

/// Ends the program and says what is wrong, if `holds` is false.
void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "consumer: this is not true: %s\n", what);
    std::exit(1);
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    require(file.open(QIODevice::ReadOnly), "the file can be read");
    return file.readAll();
}

/// Writes a configuration, loads it and makes the process's file logger of it.
void logThroughConfiguration(const QDir& directory)
{
    Properties properties;
    properties.insert(QStringLiteral("log.filename"), directory.filePath(QStringLiteral("app")));
    properties.insert(QStringLiteral("log.maxsize"), QStringLiteral("100000"));
    properties.insert(QStringLiteral("log.kept"), QStringLiteral("3"));
    properties.insert(QStringLiteral("log.timeout"), QStringLiteral("30"));
    properties.insert(QStringLiteral("log.filter"), QStringLiteral("info"));
    const QString path = directory.filePath(QStringLiteral("app.properties"));
    properties.saveProperties(path);

    const auto config = Config::load(path, QStringLiteral("2.1"));
    require(config->value(QStringLiteral("app.version")) == QLatin1String("2.1"),
            "the configuration holds the version");
    config->setLogger(config->getOrbuildFileSystemLogger());
    config->logger()->disableTee();
    config->logBanner(QStringLiteral("Consumer v%1"), QStringLiteral("2.1"), true, QString());

    Log::initInstance(*config->logger());
    Log::getInstance()->disableTee();
    Log::getInstance()->info("a line from the consumer");

    const QByteArray log = contentOf(directory.filePath(QStringLiteral("app-0.log")));
    require(log.contains("Consumer v2.1"), "the banner is in the log");
    require(log.contains("<INFOR> a line from the consumer"), "the line is in the log");
}

/// Sends one file through a queue with one consumer.
void queueOneFile(const QDir& directory)
{
    QFile file(directory.filePath(QStringLiteral("order.txt")));
    require(file.open(QIODevice::WriteOnly), "the order can be written");
    file.close();

    ConsumerAncestor consumer(QStringLiteral("printer"));
    FilesQueue queue(directory.path(), {{consumer.id(), &consumer}}, true, 0);
    require(queue.size() == 1, "the queue holds the order");

    QList<QString> handed;
    QObject::connect(&queue, &FilesQueue::filesNotConsumed, &consumer,
                     [&handed](const QList<QString>& files, bool error) {
                         if (!error)
                             handed = files;
                     });
    queue.onRequestForFiles(consumer.id());
    require(handed == QList<QString>{QStringLiteral("order.txt")}, "the consumer is handed it");

    queue.onConsumed(consumer.id(), handed.first());
    queue.onDirectoryChanged();
    require(queue.size() == 0 && !file.exists(), "the consumed order is deleted");
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    require(Kez::version() == QLatin1String("1.6.3"), "the library is version 1.6.3");

    const QTemporaryDir temporary;
    const QDir directory(temporary.path());
    require(directory.mkdir(QStringLiteral("spool")), "a spool directory can be made");
    logThroughConfiguration(directory);
    queueOneFile(QDir(directory.filePath(QStringLiteral("spool"))));
    std::puts("consumer: all is right");
    return 0;
}
