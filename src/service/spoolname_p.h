// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <climits>
#include <optional>

/// Names of files in a spool. Bytes are names as the system has them.
namespace KezService::SpoolName {

/// Why a queue cannot have a file of that name; empty if it can. Control characters are allowed.
QString fault(const QString& name);

/// The name of a file that is on the disk; nothing if it is not UTF-8.
std::optional<QString> decoded(QByteArrayView name);

/// The same; of a name that is not UTF-8, the bytes outside of ASCII are escaped ("\xe9").
QString shown(QByteArrayView name);

/// Whether the name says that its file is not meant for others, or not yet: ".x", "x.part",
/// "x.tmp", "x~".
bool isTemporary(QByteArrayView name);

/// "order.xml" with the number 2 is "order~2.xml"; with the number 1 it has none. What is before
/// the number is cut, at the end of a character, if the name would have more than `longest` bytes.
QByteArray numbered(const QByteArray& name, quint64 number, qsizetype longest = NAME_MAX);

} // namespace KezService::SpoolName
