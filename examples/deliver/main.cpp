// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Delivers copies of files to the directory of a queue, which sees each one whole or not at all.
// Either all of them can be read and written, or none enters.
//
//     deliver [--fresh] DIRECTORY FILE...
//
// With --fresh, a file whose name is taken gets a number: "order~2.xml". Prints the names that the
// files have in the queue, one per line, also if not all of them entered. Exit codes: 0; 1 if a
// file is not delivered, or may not survive a power failure; 2 for a wrong command line.

#include <kez/service/delivery.h>
#include <kez/service/exitcodes.h>

#include <QCoreApplication>
#include <QTextStream>

#include <vector>

using namespace Qt::StringLiterals;
using KezService::Delivery;

namespace {

void printNames(const QStringList& names)
{
    QTextStream out(stdout);
    for (const QString& name : names)
        out << name << '\n';
}

int fail(const QString& text)
{
    QTextStream(stderr) << text << Qt::endl;
    return KezService::ExitFailure;
}

int deliver(Delivery::NameTaken ifTaken, const QStringList& arguments)
{
    std::vector<Delivery::Parcel> parcels;
    for (const QString& path : arguments.mid(1))
        parcels.push_back(Delivery::Parcel::file(path));
    try {
        printNames(Delivery(arguments.first(), ifTaken).deliverAll(parcels));
        return KezService::ExitClean;
    } catch (const KezService::DeliveryFailure& failure) {
        printNames(failure.delivered());
        return fail(failure.detail());
    } catch (const Exception& failure) {
        return fail(failure.detail());
    }
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    for (int index = 1; index < argc; ++index) {
        if (QString::fromUtf8(argv[index]).toUtf8() != argv[index])
            return fail(u"not UTF-8: "_s + QString::fromLatin1(argv[index]));
    }
    QStringList arguments = QCoreApplication::arguments().mid(1);
    auto ifTaken = Delivery::NameTaken::Refuse;
    if (arguments.value(0) == u"--fresh"_s) {
        ifTaken = Delivery::NameTaken::FreshName;
        arguments.removeFirst();
    }
    if (arguments.size() < 2 || arguments.first().startsWith(u'-')) {
        QTextStream(stderr) << "usage: deliver [--fresh] DIRECTORY FILE..." << Qt::endl;
        return KezService::ExitUsage;
    }
    return deliver(ifTaken, arguments);
}
