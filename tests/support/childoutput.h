// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "support/childprocess.h"

#include <QString>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iterator>

/// In a child: prints one line for COMPARE_CHILD().
inline void say(const QString& line)
{
    std::puts(line.toUtf8().constData());
}

inline void say(bool value)
{
    std::puts(value ? "true" : "false");
}

/// In a child: the entry called `name` in a table of what the children can do.
template <typename Entry, std::size_t Size>
const Entry& named(const Entry (&table)[Size], const QString& name)
{
    const auto found = std::find_if(std::begin(table), std::end(table), [&](const Entry& entry) {
        return name == QLatin1String(entry.name);
    });
    if (found == std::end(table))
        qFatal("unknown: %s", qPrintable(name));
    return *found;
}

/// Checks that a child ended well, printed `expected` and nothing on its error output.
#define COMPARE_CHILD(result, expected)                                                            \
    do {                                                                                           \
        const ChildResult& done = (result);                                                        \
        QVERIFY2(done.finished && !done.crashed, done.err.constData());                            \
        QCOMPARE(done.exitCode, 0);                                                                \
        QCOMPARE(done.out, QByteArray(expected));                                                  \
        QCOMPARE(done.err, QByteArray());                                                          \
    } while (false)

/// This process's environment with no other language settings than these two. A null `lang` leaves
/// LANG unset; `all` is LC_ALL, which decides the system locale.
inline QProcessEnvironment environmentUnder(const QString& lang, const QString& all = QString())
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const QString& name : environment.keys()) {
        if (name.startsWith(QLatin1String("LC_")) || name.startsWith(QLatin1String("LANG")))
            environment.remove(name);
    }
    if (!lang.isNull())
        environment.insert(QStringLiteral("LANG"), lang);
    if (!all.isNull())
        environment.insert(QStringLiteral("LC_ALL"), all);
    return environment;
}

/// The same in French, with memory that is overwritten as soon as it is freed, so that a use of it
/// shows without a sanitizer.
inline QProcessEnvironment strictEnvironment()
{
    QProcessEnvironment environment = environmentUnder(QStringLiteral("fr_FR.UTF-8"));
    environment.insert(QStringLiteral("MALLOC_PERTURB_"), QStringLiteral("165"));
    environment.insert(QStringLiteral("GLIBC_TUNABLES"),
                       QStringLiteral("glibc.malloc.tcache_count=0"));
    return environment;
}
