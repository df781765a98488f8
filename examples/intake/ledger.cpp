// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "ledger.h"

#include "durablecopy.h"
#include "texts.h"

#include <kez/exception.h>
#include <kez/uidgenerator.h>

#include <QDateTime>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStringList>

#include <cerrno>
#include <cstring>
#include <sys/file.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace intake {

namespace {

constexpr unsigned char ReceiptSize = 16; // bytes

/// The printable file name of a whole ledger line, or an empty text for anything else.
QString bookedName(const QByteArray& line)
{
    static const QRegularExpression wholeLine(
        u"^[^;]+;([^;]+)(;[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12})?"
        ";[^;]+;[^;]+;[0-9.]+;[A-Z]{3}$"_s);
    return wholeLine.match(QString::fromUtf8(line).trimmed()).captured(1);
}

QString newReceipt()
{
    return UidGenerator::toUUID(
        UidGenerator::getInstance(ReceiptSize, nullptr, nullptr)->generate());
}

} // namespace

Ledger::Ledger(const QString& path) : _file(path)
{
    const bool isNew = !_file.exists();
    if (!_file.open(QFile::ReadWrite | QFile::Append | QFile::Unbuffered))
        fail(_file.errorString());
    lock();
    readBookings();
    if (isNew)
        syncDirectory(QFileInfo(path).absolutePath());
}

bool Ledger::contains(const QString& fileName) const
{
    return _booked.contains(printable(fileName));
}

void Ledger::append(const QString& fileName, const Order& order)
{
    const QStringList fields{QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs),
                             printable(fileName),
                             newReceipt(),
                             printable(order.number),
                             printable(order.customer),
                             order.amount,
                             order.currency};
    if (!appendSynced(fields.join(u';').toUtf8() + '\n'))
        fail(_file.errorString());
    _booked.insert(printable(fileName));
}

QString Ledger::tornEnd() const
{
    return _tornEnd;
}

void Ledger::lock()
{
    if (::flock(_file.handle(), LOCK_EX | LOCK_NB) != 0)
        fail(QString::fromLocal8Bit(std::strerror(errno)));
}

void Ledger::readBookings()
{
    QFile reader(_file.fileName());
    if (!reader.open(QFile::ReadOnly))
        fail(reader.errorString());
    QByteArray line;
    while (!reader.atEnd()) {
        line = reader.readLine();
        const QString name = bookedName(line);
        if (!name.isEmpty())
            _booked.insert(name);
    }
    if (!line.isEmpty() && !line.endsWith('\n'))
        repairEnd(line);
}

void Ledger::repairEnd(const QByteArray& end)
{
    if (!bookedName(end).isEmpty()) {
        if (!appendSynced("\n"))
            fail(_file.errorString());
        return;
    }
    _tornEnd = QString::fromUtf8(end.left(200));
    if (!_file.resize(_file.size() - end.size()))
        fail(_file.errorString());
}

bool Ledger::appendSynced(const QByteArray& bytes)
{
    const qint64 sizeBefore = _file.size();
    if (_file.write(bytes) == bytes.size() && ::fsync(_file.handle()) == 0)
        return true;
    _file.resize(sizeBefore);
    return false;
}

void Ledger::fail(const QString& reason) const
{
    throw Exception(text("LedgerFailure"_L1).arg(_file.fileName(), reason));
}

} // namespace intake
