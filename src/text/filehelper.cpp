// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/filehelper.h"
#include "config/entries_p.h"
#include "config/propertiesreader_p.h"
#include "frame/failure_p.h"
#include "frame/sharedlibrary_p.h"
#include "kez/identity.h"

#include <QDateTime>
#include <QDir>
#include <QTextStream>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

namespace {

void requireExisting(const QFileInfo& info, const char* signature)
{
    if (!info.exists())
        Failure::raise(signature, Failure::libraryMessage("FileDoesntExist", info.fileName()));
}

QString toString(const QDateTime& dateTime, const QLocale& locale)
{
    return locale.toString(dateTime, QLocale::ShortFormat);
}

void removeSubdirectory(const QFileInfo& entry, const char* signature)
{
    if (!QDir(entry.filePath()).removeRecursively())
        Failure::raise(signature, Failure::libraryMessage("CannotDeleteSubdir", entry.path()));
}

/// Plain files are not removed, and the failure names the directory that they are in: see the
/// declaration of cleanDirectory().
[[noreturn]] void refuseFile(const QFileInfo& entry, const char* signature)
{
    Failure::raise(signature, Failure::libraryMessage("CannotDeleteFile", entry.path()));
}

/// The listing sorts a link to a directory among the directories.
bool isRealDirectory(const QFileInfo& entry)
{
    return entry.isDir() && !entry.isSymLink();
}

} // namespace

bool FileHelper::canRead(const QString& path)
{
    return QFileInfo(path).isReadable();
}

bool FileHelper::canRead(const QFile& file)
{
    return canRead(file.fileName());
}

bool FileHelper::canWrite(const QString& path)
{
    return QFileInfo(path).isWritable();
}

bool FileHelper::canWrite(const QFile& file)
{
    return canWrite(file.fileName());
}

bool FileHelper::canExec(const QString& path)
{
    return QFileInfo(path).isExecutable();
}

bool FileHelper::canExec(const QFile& file)
{
    return canExec(file.fileName());
}

QString FileHelper::fileName(const QString& path)
{
    qsizetype separator = path.lastIndexOf(QLatin1Char('/'));
    if (separator < 0)
        separator = path.lastIndexOf(QLatin1Char('\\'));
    return path.sliced(separator + 1);
}

QString FileHelper::permissionsMask(const QFileInfo& info)
{
    requireExisting(info, "QString FileHelper::permissionsMask(const QFileInfo&)");
    constexpr std::pair<QFileDevice::Permission, char> permissions[] = {
        {QFileDevice::ReadUser, 'r'},  {QFileDevice::WriteUser, 'w'},  {QFileDevice::ExeUser, 'x'},
        {QFileDevice::ReadGroup, 'r'}, {QFileDevice::WriteGroup, 'w'}, {QFileDevice::ExeGroup, 'x'},
        {QFileDevice::ReadOther, 'r'}, {QFileDevice::WriteOther, 'w'}, {QFileDevice::ExeOther, 'x'},
    };
    QString mask;
    mask += QLatin1Char(info.isSymLink() ? 'l' : '-');
    mask += QLatin1Char(info.isDir() ? 'd' : 'f');
    for (const auto& [permission, letter] : permissions)
        mask += QLatin1Char(info.permission(permission) ? letter : '-');
    return mask;
}

QString FileHelper::createdToString(const QFileInfo& info, QLocale locale)
{
    requireExisting(info, "QString FileHelper::createdToString(const QFileInfo&, QLocale)");
    return toString(info.birthTime(), locale);
}

QString FileHelper::updatedToString(const QFileInfo& info, QLocale locale)
{
    requireExisting(info, "QString FileHelper::updatedToString(const QFileInfo&, QLocale)");
    return toString(info.lastModified(), locale);
}

QString FileHelper::readToString(const QFileInfo& info, QLocale locale)
{
    requireExisting(info, "QString FileHelper::readToString(const QFileInfo&, QLocale)");
    return toString(info.lastRead(), locale);
}

QString FileHelper::toConsole(const QFileInfo& info, QLocale locale)
{
    requireExisting(info, "QString FileHelper::toConsole(const QFileInfo&, QLocale)");
    return QStringList{
        permissionsMask(info),         info.owner(),   info.group(), QString::number(info.size()),
        updatedToString(info, locale), info.fileName()}
        .join(QLatin1Char(' '));
}

void FileHelper::writeCaption(const QString& caption, QTextStream& stream)
{
    stream << Kez::borderedTitle(caption);
}

QStorageInfo FileHelper::device(const QString& path)
{
    if (!QFileInfo(path).isDir()) {
        Failure::raise("QStorageInfo FileHelper::device(const QString&)",
                       Failure::libraryMessage("NotDirectory", path));
    }
    return QStorageInfo(path);
}

quint64 FileHelper::freeSpace(const QString& path)
{
    constexpr const char* signature = "quint64 FileHelper::freeSpace(const QString&)";
    const QFileInfo info(path);
    if (!info.exists())
        Failure::raise(signature, Failure::libraryMessage("FileDoesntExist", path));
    if (!info.isFile() && !info.isDir())
        Failure::raise(signature, Failure::libraryMessage("NotFileOrDir", path));
    // Not device().bytesFree(): it finds nothing if the volume is missing from the table of mounts,
    // which happens below a changed root.
    const QByteArray directory = QFile::encodeName(info.isDir() ? info.filePath() : info.path());
    std::error_code failure;
    const auto space = std::filesystem::space(directory.toStdString(), failure);
    return failure ? 0 : space.free;
}

void FileHelper::cleanDirectory(const QString& path)
{
    constexpr const char* signature = "void FileHelper::cleanDirectory(const QString&)";
    const QFileInfo info(path);
    if (!info.exists())
        Failure::raise(signature, Failure::libraryMessage("DirDoesnExist", path));
    if (!info.isDir())
        Failure::raise(signature, Failure::libraryMessage("FileIsntDirectory", path));
    if (!info.isWritable())
        Failure::raise(signature, Failure::libraryMessage("DirNotReadable", path));

    QFileInfoList entries = QDir(path).entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot,
                                                     QDir::Name | QDir::DirsFirst);
    std::stable_partition(entries.begin(), entries.end(), isRealDirectory);
    for (const QFileInfo& entry : std::as_const(entries)) {
        if (isRealDirectory(entry))
            removeSubdirectory(entry, signature);
        else
            refuseFile(entry, signature);
    }
}

void FileHelper::loadLibrary(const QString& path)
{
    loadSharedLibrary(path, "void FileHelper::loadLibrary(const QString&)",
                      Failure::libraryMessage<QString>);
}

Dictionnary FileHelper::loadProperties(const QString& path, qint64 maxLineLength)
{
    Entries entries;
    readPropertiesFile(path, maxLineLength,
                       "Dictionnary FileHelper::loadProperties(const QString&, qint64)",
                       [&entries](QStringView key, QStringView value) {
                           const auto [entry, isNew] = addEntry(entries, key, value);
                           if (!isNew)
                               entry->second = value.toString();
                       });
    return Dictionnary(std::move(entries));
}
