// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Reads the input as a configuration file if its first byte is even, else as the data stream of a
// configuration. Skips streams that name a log file, since reading them creates the file.

#include "fuzz/inputfile.h"

#include <kez/configuration.h>
#include <kez/loggerconfigcontroller.h>

#include <QDataStream>

namespace {

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

/// In a stream the key is big-endian UTF-16.
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
    require(config.isLegalConfiguration(&controller) == controller.errors().isEmpty(),
            "what is refused has an error");
}

/// A configuration that was read is written and read again without a change.
void checkRoundTrip(const Config& config)
{
    const QByteArray bytes = streamOf(config);
    Config again;
    QDataStream stream(bytes);
    stream >> again;
    require(stream.status() == QDataStream::Ok, "what is written is read");
    require(*again.properties()->toDictionnary() == *config.properties()->toDictionnary(),
            "the properties survive");
    require(streamOf(again) == bytes, "the same is written again");
}

void readAsFile(const QByteArray& bytes)
{
    const std::shared_ptr<Config> config =
        Config::load(InputDirectory::write(QStringLiteral("app.conf"), bytes), QString());
    require(config->value(QStringLiteral("app.version")) == QLatin1String("0.0.0"),
            "the version is the caller's");
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
        require(stream.atEnd(), "the stream is read to its end");
        useAsApplicationsDo(config);
        checkRoundTrip(config);
    } else {
        require(config.properties()->size() == 1 &&
                    config.value(QStringLiteral("app.version")) == QLatin1String("before"),
                "a failure changes nothing");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    prepare();
    if (size == 0)
        return 0;
    const QByteArray bytes = inputBytes(data + 1, size - 1);
    if (data[0] % 2 == 0)
        readAsFile(bytes);
    else
        readAsStream(bytes);
    return 0;
}
