// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QCryptographicHash>

/// Whether these are all the bytes of a file that producer.sh writes under that name.
inline bool isWholeFile(const QByteArray& bytes, const QByteArray& name)
{
    const qsizetype end = bytes.lastIndexOf("\nend ") + 1;
    const QByteArray start = bytes.left(end);
    const QByteArray sum = QCryptographicHash::hash(start, QCryptographicHash::Sha256).toHex();
    return end > 0 && start.startsWith(name + '\n') &&
           bytes.mid(end) == "end " + QByteArray::number(end) + ' ' + sum + '\n';
}

/// What the names of files say, so that the service and the test agree on what happens to each.
namespace LoadFile {

constexpr auto Ordinary = "order-";    ///< sometimes fails at the first attempt
constexpr auto Rejected = "rejected-"; ///< by the first consumer
constexpr auto Stubborn = "stubborn-"; ///< fails at every attempt of the second consumer
constexpr auto Deadly = "deadly-";     ///< ends the process in the third consumer

constexpr auto RejectReason = "this order is not for us";
constexpr auto StubbornReason = "this order is never convenient";

} // namespace LoadFile
