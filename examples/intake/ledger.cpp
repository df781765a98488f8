// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "ledger.h"

#include "durablecopy.h"
#include "texts.h"

#include <kez/exception.h>
#include <kez/uidgenerator.h>

#include <QDateTime>
#include <QFileInfo>
#include <QStringList>

#include <sys/file.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace intake {

namespace {

constexpr unsigned char ReceiptSize = 16; // bytes

enum Field { BookingTime, FileName, Receipt, OrderNumber, Customer, Amount, Currency, FieldCount };

constexpr qsizetype CurrencyLength = 3;

/// The fields of a whole line, without its line end; otherwise nothing.
QStringList fieldsOf(const QByteArray& line)
{
    if (line.count(';') != FieldCount - 1)
        return {};
    QStringList fields = QString::fromUtf8(line).split(u';');
    if (fields.last().endsWith(u'\n'))
        fields.last().chop(1);
    // The last field has a known length, so that a line that was cut off in it is recognised.
    const bool isWhole = !fields.contains(QString()) && fields.last().size() == CurrencyLength;
    return isWhole ? fields : QStringList();
}

/// -1250 -> "-12.50" in every language: programs read the ledger, too.
QString decimalText(qint64 hundredths)
{
    const auto size = qAbs(hundredths);
    return u"%1%2.%3"_s.arg(hundredths < 0 ? u"-"_s : QString(), QString::number(size / 100))
        .arg(size % 100, 2, 10, QLatin1Char('0'));
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

QString Ledger::orderBookedFor(const QString& fileName) const
{
    return _orders.value(printable(fileName));
}

void Ledger::append(const QString& fileName, const Order& order)
{
    const QStringList fields{QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs),
                             printable(fileName),
                             newReceipt(),
                             printable(order.number),
                             printable(order.customer),
                             decimalText(order.amount),
                             order.currency};
    appendSynced(fields.join(u';').toUtf8() + '\n');
    _orders.insert(fields.at(FileName), fields.at(OrderNumber));
}

QString Ledger::tornEnd() const
{
    return _tornEnd;
}

void Ledger::lock()
{
    if (::flock(_file.handle(), LOCK_EX | LOCK_NB) != 0)
        fail(systemError());
}

void Ledger::readBookings()
{
    QFile reader(_file.fileName());
    if (!reader.open(QFile::ReadOnly))
        fail(reader.errorString());
    QByteArray line;
    while (!reader.atEnd()) {
        line = reader.readLine();
        const QStringList fields = fieldsOf(line);
        if (!fields.isEmpty())
            _orders.insert(fields.at(FileName), fields.at(OrderNumber));
    }
    if (reader.error() != QFile::NoError)
        fail(reader.errorString());
    if (!line.isEmpty() && !line.endsWith('\n'))
        repairEnd(line);
}

void Ledger::repairEnd(const QByteArray& end)
{
    if (!fieldsOf(end).isEmpty()) {
        appendSynced("\n");
        return;
    }
    _tornEnd = QString::fromUtf8(end.left(200));
    if (!_file.resize(_file.size() - end.size()))
        fail(_file.errorString());
}

void Ledger::appendSynced(const QByteArray& bytes)
{
    const qint64 sizeBefore = _file.size();
    QString reason;
    if (_file.write(bytes) != bytes.size())
        reason = _file.errorString();
    else if (::fsync(_file.handle()) != 0)
        reason = systemError();
    else
        return;
    _file.resize(sizeBefore);
    fail(reason);
}

void Ledger::fail(const QString& reason) const
{
    throw Exception(text("LedgerFailure"_L1).arg(_file.fileName(), reason));
}

} // namespace intake
