// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/configfile_p.h"

#include "config/configreader_p.h"
#include "service/durablefiles_p.h"
#include "service/kittexts_p.h"

#include <QBuffer>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KezService {

namespace {

ConfigFileState failedState(int error)
{
    return {error, false, std::nullopt};
}

ConfigFileState stateOf(const struct stat& info)
{
    return {0, S_ISREG(info.st_mode), FileState(info)};
}

ConfigFileState openState(int descriptor)
{
    const auto info = statusOf(descriptor);
    return info ? stateOf(*info) : failedState(errno);
}

/// Appends what the file holds, up to `maxSize` bytes and one more. Returns the system's error
/// number, or 0.
int readBytes(int descriptor, qint64 maxSize, QByteArray& bytes)
{
    constexpr qint64 Block = 65536;
    while (bytes.size() <= maxSize) {
        const qsizetype before = bytes.size();
        const qint64 wanted = std::min(Block, maxSize - before + 1);
        bytes.resize(before + wanted);
        const ssize_t count =
            ::read(descriptor, bytes.data() + before, static_cast<size_t>(wanted));
        const int error = count < 0 ? errno : 0;
        bytes.resize(before + std::max<ssize_t>(count, 0));
        if (error == EINTR)
            continue;
        if (count <= 0)
            return error;
    }
    return 0;
}

Dictionnary entriesOf(QByteArray& bytes)
{
    Entries entries;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly | QIODevice::Text);
    readConfiguration(buffer, entries);
    entries.erase(QStringLiteral("app.version"));
    return Dictionnary(std::move(entries));
}

QString unreadable(int error)
{
    return kitText("ConfigUnreadable", systemErrorText(error));
}

/// Why a file in this state is not read; empty if it is.
QString refusalOf(const ConfigFileState& state)
{
    if (state.error != 0)
        return unreadable(state.error);
    return state.isRegular ? QString() : kitText("ConfigNoRegularFile");
}

} // namespace

ConfigFileState configFileStateOf(const QString& path)
{
    if (path.contains(QChar(0)))
        return failedState(ENOENT);
    struct stat info {};
    const bool isThere = ::stat(QFile::encodeName(path).constData(), &info) == 0;
    return isThere ? stateOf(info) : failedState(errno);
}

ConfigFile readConfigFile(const QString& path, qint64 maxSize)
{
    ConfigFile result;
    result.state = configFileStateOf(path);
    result.fault = refusalOf(result.state); // asked before: to open a device may do something
    if (!result.fault.isEmpty())
        return result;
    const Descriptor file = openFile(QFile::encodeName(path), O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!file.isOpen()) {
        result.fault = unreadable(errno);
        return result;
    }
    const ConfigFileState before = openState(file.get());
    QByteArray bytes;
    const int error = before.isRegular ? readBytes(file.get(), maxSize, bytes) : 0;
    result.state = openState(file.get());
    result.isStable = result.state == before;
    result.fault = error == 0 ? refusalOf(result.state) : unreadable(error);
    if (result.fault.isEmpty() && bytes.size() > maxSize)
        result.fault = kitText("ConfigTooLarge", QString::number(maxSize));
    if (result.fault.isEmpty())
        result.entries = entriesOf(bytes);
    return result;
}

} // namespace KezService
