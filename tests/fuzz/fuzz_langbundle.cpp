// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/exception.h>
#include <kez/langbundle.h>

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace {

void check(bool holds)
{
    if (!holds)
        std::abort();
}

bool write(const QString& fileName, const QByteArray& bytes)
{
    QFile file(fileName);
    file.remove(); // some file systems flush a file that is emptied and written again
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

/// What holds for every bundle, whatever its file held.
void checkBundle(LangBundle& bundle)
{
    int keys = 0;
    for (auto it = bundle.begin(); it != bundle.end(); ++it, ++keys) {
        check(!it.key().isEmpty() && !it.key().contains(QLatin1Char('=')));
        check(bundle.contains(it.key()) && bundle.text(it.key()) == it.value());
    }
    check(keys == bundle.size());
}

void load(const QString& path)
{
    try {
        checkBundle(*LangBundle::load(path, QStringLiteral("m"), QStringLiteral("l")));
    } catch (Exception* e) {
        const std::unique_ptr<Exception> failure(e);
        check(failure->detail().startsWith(QStringLiteral("shared_ptr<LangBundle> LangBundle::")));
    }
}

} // namespace

/// Loads the input as a bundle, once as it is and once as the body below a valid header.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const QTemporaryDir directory;
    const QString fileName = directory.filePath(QStringLiteral("m_l.lang"));
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    for (const QByteArray& bytes : {input, "module=m;lang=l\n" + input}) {
        check(write(fileName, bytes));
        load(directory.path());
    }
    return 0;
}
