// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/sourceremoval_p.h"

#include "service/durablefiles_p.h"
#include "service/filelock_p.h"
#include "service/refusal_p.h"
#include "service/spoolname_p.h"

#include <QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace KezService::SourceRemoval {

namespace {

constexpr qsizetype Digits = 16;
constexpr const char* Suffix = ".moved";

/// No other file has this name: a rename to it replaces nothing.
QByteArray hiddenPath(const QByteArray& path)
{
    const QByteArray number = QByteArray::number(QRandomGenerator::system()->generate64(), 16);
    const QByteArray end = '.' + number.rightJustified(Digits, '0') + Suffix;
    const QByteArray name = path.mid(path.lastIndexOf('/') + 1);
    return directoryOf(path) + "/." + SpoolName::numbered(name, 1, NAME_MAX - 1 - end.size()) + end;
}

/// The name that the file had; empty if it is not of that form.
QByteArray nameOf(const QByteArray& hidden)
{
    const auto isDigit = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
    if (!hidden.startsWith('.') || !hidden.endsWith(Suffix))
        return {};
    const QByteArray name = hidden.mid(1).chopped(qsizetype(qstrlen(Suffix)));
    const qsizetype dot = name.size() - Digits - 1;
    const bool isNumbered =
        dot > 0 && name.at(dot) == '.' && std::all_of(name.begin() + dot + 1, name.end(), isDigit);
    return isNumbered ? name.left(dot) : QByteArray();
}

/// Returns the name that the file has now; empty if it stays hidden.
QByteArray show(const QByteArray& hidden, const QByteArray& directory, const QByteArray& name)
{
    constexpr quint64 MaxTries = 10000;
    for (quint64 number = 1; number <= MaxTries; ++number) {
        QByteArray shown = SpoolName::numbered(name, number);
        const int error = renameWithoutReplacing(hidden, directory + '/' + shown);
        if (error == 0)
            return shown;
        if (error != EEXIST)
            break;
    }
    return {};
}

/// Whether the source is there; throws if its content is another one.
bool isThere(const QByteArray& path, const FileState& state)
{
    const auto status = statusOf(path);
    if (!status || !FileState(*status).isOfSameFile(state))
        return false;
    if (!FileState(*status).hasContentOf(state))
        throw Refusal::because(Refusal::Kind::Changing, "DeliverySourceChanged");
    return true;
}

} // namespace

void remove(const QByteArray& path, const FileState& state)
{
    if (!isThere(path, state))
        return;
    const QByteArray hidden = hiddenPath(path);
    if (::rename(path.constData(), hidden.constData()) != 0) {
        if (errno == ENOENT)
            return;
        throw Refusal::bySystem(path, errno);
    }
    const auto showAgain = [&] {
        show(hidden, directoryOf(path), path.mid(path.lastIndexOf('/') + 1));
    };
    try {
        if (!isThere(hidden, state)) {
            showAgain();
            return;
        }
        if (::unlink(hidden.constData()) != 0 && errno != ENOENT)
            throw Refusal::bySystem(path, errno);
    } catch (const Refusal&) {
        showAgain();
        throw;
    }
}

QByteArray bringBack(const QByteArray& directory, const QByteArray& hidden)
{
    const QByteArray name = nameOf(hidden);
    if (name.isEmpty())
        return {};
    const QByteArray path = directory + '/' + hidden;
    const auto status = statusOf(path);
    if (!status || !S_ISREG(status->st_mode))
        return {};
    const Descriptor file = openFile(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW);
    const bool isInUse = file.isOpen() && lockFile(file.get()) == EWOULDBLOCK;
    return isInUse ? QByteArray() : show(path, directory, name);
}

} // namespace KezService::SourceRemoval
