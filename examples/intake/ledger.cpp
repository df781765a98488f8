// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "ledger.h"

#include "texts.h"

#include <kez/log.h>
#include <kez/uidgenerator.h>

#include <sys/file.h>
#include <unistd.h>

using namespace intake;
using namespace Qt::StringLiterals;
using KezService::Outcome;

namespace {

enum Field { BookingTime, FileName, Receipt, OrderNumber, Customer, Amount, Currency, FieldCount };

/// Throws MalformedOrder, or Exception if the file cannot be read: then it is tried again.
Order orderIn(const QString& path)
{
    QFile file(path);
    const bool isOpen = file.open(QFile::ReadOnly);
    const QByteArray document = isOpen ? file.read(MaxOrderSize + 1) : QByteArray();
    if (file.error() != QFile::NoError)
        throw Exception(text("CannotRead"_L1, printable(path), file.errorString()));
    return readOrder(document);
}

/// The fields of a whole line; otherwise nothing.
QStringList fieldsOf(const QByteArray& line)
{
    if (line.count(';') != FieldCount - 1)
        return {};
    const QStringList fields = QString::fromUtf8(line).remove(u'\n').split(u';');
    // A currency has three letters, so that a line that was cut off in it is recognised.
    const bool isWhole = !fields.contains(QString()) && fields.last().size() == 3;
    return isWhole ? fields : QStringList();
}

/// -1250 -> "-12.50" in every language: programs read the ledger, too.
QString decimalText(qint64 hundredths)
{
    const QString digits = QString::number(qAbs(hundredths)).rightJustified(3, u'0');
    return (hundredths < 0 ? u"-"_s : QString()) + digits.chopped(2) + u'.' + digits.right(2);
}

} // namespace

Ledger::Ledger(const QString& path) : _file(path)
{
    const bool isNew = !_file.exists();
    if (!_file.open(QFile::ReadWrite | QFile::Append | QFile::Unbuffered))
        fail(_file.errorString());
    const bool isLocked = ::flock(_file.handle(), LOCK_EX | LOCK_NB) == 0;
    if (!isLocked || (isNew && ::syncfs(_file.handle()) != 0)) // a new name has to last
        fail(qt_error_string());
    readBookings();
}

Outcome Ledger::book(const KezService::FileAtHand& file)
try {
    const Order order = orderIn(file.path);
    const QString before = orderBookedFor(file.name);
    if (!before.isNull() && before != printable(order.number))
        return Outcome::reject(text("FileNameTaken"_L1, before));
    if (before.isNull())
        append(file.name, order);
    Log::getInstance()->info(
        before.isNull() ? text("Booked"_L1, printable(order.number), printable(order.customer),
                               amountText(order.amount, order.currency), printable(file.name))
                        : text("AlreadyBooked"_L1, printable(file.name)));
    return Outcome::done();
} catch (const MalformedOrder& failure) {
    return Outcome::reject(failure.detail());
}

void Ledger::append(const QString& fileName, const Order& order)
{
    const QStringList fields{QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs),
                             printable(fileName),
                             UidGenerator::toUUID(UidGenerator::getInstance(16)->generate()),
                             printable(order.number),
                             printable(order.customer),
                             decimalText(order.amount),
                             order.currency};
    appendSynced(fields.join(u';').toUtf8() + '\n');
    _orders.insert(fields.at(FileName), fields.at(OrderNumber));
    _totals[order.currency] += order.amount;
    ++_count;
}

QString Ledger::orderBookedFor(const QString& fileName) const
{
    return _orders.value(printable(fileName));
}

void Ledger::readBookings()
{
    QFile reader(_file.fileName());
    if (!reader.open(QFile::ReadOnly))
        fail(reader.errorString());
    QByteArray line;
    while (!reader.atEnd()) {
        line = reader.readLine();
        if (const QStringList fields = fieldsOf(line); !fields.isEmpty())
            _orders.insert(fields.at(FileName), fields.at(OrderNumber));
    }
    if (reader.error() != QFile::NoError)
        fail(reader.errorString());
    if (line.isEmpty() || line.endsWith('\n'))
        return;
    if (!fieldsOf(line).isEmpty())
        return appendSynced("\n"); // only this is missing
    if (!_file.resize(_file.size() - line.size()))
        fail(_file.errorString());
    const QString removed = printable(QString::fromUtf8(line.left(200)));
    Log::getInstance()->warning(text("LedgerRepaired"_L1, removed));
}

void Ledger::appendSynced(const QByteArray& bytes)
{
    const qint64 sizeBefore = _file.size();
    const bool isWritten = _file.write(bytes) == bytes.size();
    if (isWritten && ::fsync(_file.handle()) == 0)
        return;
    const QString reason = isWritten ? qt_error_string() : _file.errorString();
    _file.resize(sizeBefore);
    fail(reason);
}

void Ledger::fail(const QString& reason) const
{
    throw Exception(text("LedgerFailure"_L1, _file.fileName(), reason));
}
