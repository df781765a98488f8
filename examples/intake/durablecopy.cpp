// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "durablecopy.h"

#include "texts.h"

#include <kez/exception.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace intake {

namespace {

constexpr qint64 ChunkSize = 65536;

// The same name for every copy: if a crash leaves such a file, the next copy overwrites it.
const auto HiddenName = QStringLiteral(".intake.part");

[[noreturn]] void fail(QLatin1String key, const QString& path, const QString& reason)
{
    throw Exception(text(key).arg(printable(path), reason));
}

bool haveSameContent(const QString& left, const QString& right)
{
    QFile leftFile(left);
    QFile rightFile(right);
    if (leftFile.size() != rightFile.size() || !leftFile.open(QFile::ReadOnly) ||
        !rightFile.open(QFile::ReadOnly))
        return false;
    while (!leftFile.atEnd()) {
        const QByteArray chunk = leftFile.read(ChunkSize);
        if (chunk.isEmpty() || chunk != rightFile.read(ChunkSize))
            return false;
    }
    return true;
}

void writeSynced(QFile& source, const QString& path)
{
    QFile copy(path);
    if (!copy.open(QFile::WriteOnly | QFile::Truncate))
        fail("CannotWrite"_L1, path, copy.errorString());
    while (!source.atEnd()) {
        const QByteArray chunk = source.read(ChunkSize);
        if (source.error() != QFile::NoError)
            fail("CannotRead"_L1, source.fileName(), source.errorString());
        if (copy.write(chunk) != chunk.size())
            fail("CannotWrite"_L1, path, copy.errorString());
    }
    if (!copy.flush())
        fail("CannotWrite"_L1, path, copy.errorString());
    if (::fsync(copy.handle()) != 0)
        fail("CannotWrite"_L1, path, systemError());
}

/// The path for a copy of `source`; empty if there is a copy already.
QString freePath(const QString& source, const QDir& directory)
{
    const QString wanted = directory.filePath(QFileInfo(source).fileName());
    QString path = wanted;
    for (int number = 1; QFileInfo::exists(path); ++number) {
        if (haveSameContent(source, path))
            return {};
        path = u"%1.%2"_s.arg(wanted, QString::number(number));
    }
    return path;
}

void copyUnderHiddenName(QFile& source, const QDir& directory, const QString& path)
{
    const QString hidden = directory.filePath(HiddenName);
    auto removeHidden = qScopeGuard([&hidden] { QFile::remove(hidden); });
    writeSynced(source, hidden);
    if (std::rename(QFile::encodeName(hidden).constData(), QFile::encodeName(path).constData()) !=
        0)
        fail("CannotWrite"_L1, path, systemError());
    removeHidden.dismiss();
}

} // namespace

void keepCopy(const QString& source, const QString& directory)
{
    QFile file(source);
    if (!file.open(QFile::ReadOnly))
        fail("CannotRead"_L1, source, file.errorString());

    const QString path = freePath(source, QDir(directory));
    if (path.isEmpty())
        return;
    copyUnderHiddenName(file, QDir(directory), path);
    syncDirectory(directory);
}

void syncDirectory(const QString& directory)
{
    const int descriptor =
        ::open(QFile::encodeName(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        fail("CannotWrite"_L1, directory, systemError());
    const auto closeIt = qScopeGuard([descriptor] { ::close(descriptor); });
    if (::fsync(descriptor) != 0)
        fail("CannotWrite"_L1, directory, systemError());
}

} // namespace intake
