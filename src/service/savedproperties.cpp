// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/savedproperties.h"

#include "service/durablefiles_p.h"
#include "service/kittexts_p.h"
#include "service/soletemporary_p.h"

#include <QCryptographicHash>
#include <QFile>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <optional>
#include <sys/stat.h>

namespace KezService {

namespace {

constexpr std::chrono::seconds Patience(10);
constexpr int MostLinks = 40; // as the kernel

/// Why a text does not survive loading, as a key of the kit's texts; null if it does.
const char* lossOf(const QString& text)
{
    if (!text.isValidUtf16())
        return "ConfigHalfPair";
    if (text.contains(QLatin1Char('\n')) || text.contains(QLatin1Char('\r')))
        return "ConfigLineBreak";
    if (!text.isEmpty() && (text.front().isSpace() || text.back().isSpace()))
        return "ConfigBlankEnd";
    return nullptr;
}

const char* lossOfKey(const QString& key)
{
    if (key.isEmpty())
        return "ConfigKeyEmpty";
    if (key.startsWith(QLatin1Char('#')))
        return "ConfigKeyComment";
    if (key.contains(QLatin1Char('=')))
        return "ConfigKeyEquals";
    if (key.startsWith(QChar(QChar::ByteOrderMark)))
        return "ConfigKeyOrderMark";
    return lossOf(key);
}

void checkEntries(const QString& path, const QMap<QString, QString>& map)
{
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry) {
        const char* const ofKey = lossOfKey(entry.key());
        const char* const loss = ofKey ? ofKey : lossOf(entry.value());
        if (loss)
            raise("ConfigEntryLost", shownName(path), shownName(entry.key()), kitText(loss));
    }
}

QByteArray linesOf(const QMap<QString, QString>& map)
{
    QByteArray lines;
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry)
        lines += entry.key().toUtf8() + '=' + entry.value().toUtf8() + '\n';
    return lines;
}

[[noreturn]] void raiseNotSaved(const QString& path, const QByteArray& where, int error)
{
    raise("ConfigNotSaved", shownName(path), shownName(QFile::decodeName(where)),
          systemErrorText(error));
}

/// Where the links at `path` end: what is there, or would be made there.
QByteArray linksResolved(const QString& path)
{
    QByteArray target = QFile::encodeName(path);
    for (int hops = 0; hops < MostLinks; ++hops) {
        std::error_code error;
        const auto link = std::filesystem::read_symlink(target.toStdString(), error);
        if (error == std::errc::invalid_argument || error == std::errc::no_such_file_or_directory)
            return target;
        if (error)
            raiseNotSaved(path, target, error.value());
        target = link.is_absolute() ? QByteArray() : directoryOf(target) + '/';
        target += QByteArray::fromStdString(link.string());
    }
    raiseNotSaved(path, target, ELOOP);
}

/// The file's permission bits; nothing if there is no file.
std::optional<mode_t> modeOf(const QString& path, const QByteArray& target)
{
    struct stat info {};
    if (::stat(target.constData(), &info) != 0) {
        if (errno != ENOENT)
            raiseNotSaved(path, target, errno);
        return std::nullopt;
    }
    if (!S_ISREG(info.st_mode))
        raise("ConfigNotRegular", shownName(path));
    return info.st_mode & 07777;
}

/// Hidden, beside the file, and of a length that the file system takes.
QByteArray temporaryFor(const QByteArray& target)
{
    const QByteArray name = target.mid(target.lastIndexOf('/') + 1);
    const QByteArray usual = '.' + name + ".new";
    const QByteArray hidden =
        usual.size() <= NAME_MAX
            ? usual
            : '.' + QCryptographicHash::hash(name, QCryptographicHash::Sha1).toHex() + ".new";
    return directoryOf(target) + '/' + hidden;
}

/// Returns the system's error number, or 0. The rights come last: until then nobody else can open
/// what replaces a file.
int fill(int descriptor, const QByteArray& lines, std::optional<mode_t> mode)
{
    if (const int error = writeAll(descriptor, lines); error != 0)
        return error;
    if (mode && ::fchmod(descriptor, *mode) != 0)
        return errno;
    return syncFile(descriptor);
}

} // namespace

void saveAtomically(const QString& path, const QMap<QString, QString>& map)
{
    checkEntries(path, map);
    if (path.contains(QChar(0)))
        raiseNotSaved(path, QByteArray(), EINVAL);
    const QByteArray target = linksResolved(path);
    const QByteArray hidden = temporaryFor(target);
    SoleTemporary temporary(hidden);
    const std::optional<mode_t> before = modeOf(path, target);
    int error = temporary.create(before ? 0600 : 0666, Patience);
    if (error == EWOULDBLOCK)
        raise("ConfigSaveBusy", shownName(path), shownName(QFile::decodeName(hidden)));
    const std::optional<mode_t> now = modeOf(path, target); // who had the file may have changed it
    if (error == 0)
        error = fill(temporary.descriptor(), linesOf(map), now ? now : before);
    if (error != 0)
        raiseNotSaved(path, hidden, error);
    error = temporary.renameTo(target);
    if (error != 0)
        raiseNotSaved(path, target, error);
    error = syncDirectory(directoryOf(target));
    if (error != 0)
        raise("ConfigNotSynced", shownName(path), systemErrorText(error));
}

} // namespace KezService
