// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "fuzz/inputfile.h"

#include <kez/configuration.h>

#include <QDataStream>

/// A stream of any bytes leaves a configuration that can be used.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    prepare();
    const QByteArray bytes = inputBytes(data, size);
    // It would open files wherever the bytes say.
    if (bytes.contains(QByteArray("\0f\0i\0l\0e", 8)))
        return 0;

    Config config(QStringLiteral("1.0"));
    QDataStream in(bytes);
    in >> config;
    require(config.properties() != nullptr, "there are properties");
    if (in.status() != QDataStream::Ok)
        require(config.value(QStringLiteral("app.version")) == QLatin1String("1.0"),
                "a corrupt stream changes nothing");
    return 0;
}
