// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Takes the input for a configuration file, when its first byte is even, or for the data stream of
// a configuration. Streams that name a log file are left out, since reading them would create it.

#include <kez/configuration.h>
#include <kez/initlib.h>
#include <kez/loggerconfigcontroller.h>

#include <QDataStream>
#include <QFile>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

QString logFileKey()
{
    return QStringLiteral("log.filename");
}

QByteArray streamOf(const Config& config)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << config;
    return bytes;
}

/// The texts of a stream hold the key as it stands there: big-endian UTF-16.
bool namesALogFile(const QByteArray& stream)
{
    QByteArray key;
    for (const QChar character : logFileKey()) {
        key += '\0';
        key += character.toLatin1();
    }
    return stream.contains(key);
}

void useAsApplicationsDo(Config& config)
{
    config.logBannerTitle();
    config.displayPropertiesWithinBanner();
    LoggerConfigController controller;
    require(config.isLegalConfiguration(&controller) == controller.errors().isEmpty());
}

/// What is read is what is written again.
void checkRoundTrip(const Config& config)
{
    const QByteArray bytes = streamOf(config);
    Config again;
    QDataStream stream(bytes);
    stream >> again;
    require(stream.status() == QDataStream::Ok);
    require(*again.properties()->toDictionnary() == *config.properties()->toDictionnary());
    require(streamOf(again) == bytes);
}

void readAsFile(const QByteArray& bytes)
{
    static const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("app.conf"));
    QFile file(path);
    require(file.open(QIODevice::WriteOnly));
    require(file.write(bytes) == bytes.size());
    file.close();

    const std::shared_ptr<Config> config = Config::load(path, QString());
    require(config->value(QStringLiteral("app.version")) == QLatin1String("0.0.0"));
    useAsApplicationsDo(*config);
    if (!config->existsKey(logFileKey()))
        checkRoundTrip(*config);
}

void readAsStream(const QByteArray& bytes)
{
    if (namesALogFile(bytes))
        return;
    Config config(QStringLiteral("before"));
    QDataStream stream(bytes);
    stream >> config;
    if (stream.status() == QDataStream::Ok) {
        require(stream.atEnd());
        useAsApplicationsDo(config);
        checkRoundTrip(config);
    } else {
        require(config.properties()->size() == 1);
        require(config.value(QStringLiteral("app.version")) == QLatin1String("before"));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool isSetUp = (kezEnsureInit(), true);
    require(isSetUp);
    if (size == 0)
        return 0;
    const QByteArray bytes(reinterpret_cast<const char*>(data + 1),
                           static_cast<qsizetype>(size - 1));
    if (data[0] % 2 == 0)
        readAsFile(bytes);
    else
        readAsStream(bytes);
    return 0;
}
