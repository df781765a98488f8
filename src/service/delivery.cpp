// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/delivery.h"

#include "frame/directories_p.h"
#include "service/durablefiles_p.h"
#include "service/growingfiles_p.h"
#include "service/queueentrance_p.h"
#include "service/refusal_p.h"
#include "service/sourcefile_p.h"
#include "service/spoolname_p.h"

#include <QFile>
#include <QIODevice>
#include <QProcess>
#include <QSet>

#include <array>
#include <cerrno>
#include <sys/stat.h>
#include <utility>

namespace KezService {

namespace {

using Kind = Refusal::Kind;

QString baseName(const QString& path)
{
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

void checkName(const QString& name)
{
    const QString fault = SpoolName::fault(name);
    if (!fault.isEmpty())
        throw Refusal{Kind::Other, 0, fault};
}

QString notSynced(const Delivery& delivery, const QStringList& names, int error)
{
    return kitText("DeliveryNotSynced", shownName(names.join(QStringLiteral(", "))),
                   delivery.directory(), systemErrorText(error));
}

/// Refuses the output of a process that did not come to its end.
void checkEnd(const QProcess& process)
{
    const bool hasFailed =
        process.error() == QProcess::FailedToStart || process.error() == QProcess::ReadError;
    if (hasFailed || process.state() != QProcess::NotRunning)
        throw Refusal::because(Kind::Other, "DeliveryDeviceFailed", process.errorString());
    if (process.exitStatus() != QProcess::NormalExit)
        throw Refusal::because(Kind::Other, "DeliveryProcessCrashed");
    if (process.exitCode() != 0)
        throw Refusal::because(Kind::Other, "DeliveryProcessFailed",
                               QString::number(process.exitCode()));
}

/// Appends what the device holds to an open file.
void copyDevice(QIODevice& device, int file, const QByteArray& path)
{
    if (!device.isReadable())
        throw Refusal::because(Kind::Other, "DeliveryDeviceNotOpen");
    auto* const process = qobject_cast<QProcess*>(&device);
    bool isLastRead = !device.isSequential();
    std::array<char, 65536> buffer; // NOLINT(*-member-init): filled by read()
    while (true) {
        const qint64 count = device.read(buffer.data(), buffer.size());
        // To read from a process that has ended is a failure; its exit code tells more.
        const bool hasEnded = process && process->state() == QProcess::NotRunning;
        if (count < 0 && !hasEnded)
            throw Refusal::because(Kind::Other, "DeliveryDeviceFailed", device.errorString());
        if (count > 0) {
            Refusal::check(path, writeAll(file, QByteArrayView(buffer.data(), count)));
            continue;
        }
        if (isLastRead || hasEnded)
            break;
        // After the end and after a failure alike, the wait is false: one more read tells.
        isLastRead = !device.waitForReadyRead(-1);
        if (isLastRead && process)
            process->waitForFinished(-1);
    }
    if (process)
        checkEnd(*process);
}

} // namespace

/// One call of deliverAll().
class DeliveryRun {
public:
    DeliveryRun(const Delivery& delivery, const std::vector<Delivery::Parcel>& parcels)
        : _delivery(delivery),
          _parcels(parcels),
          _entrance(delivery.directory(), delivery.ifTaken())
    {}

    QStringList deliver();

private:
    /// Files that are written first and then synced share the file system's work. It is also the
    /// number of files that are open at a time.
    static constexpr size_t SyncedTogether = 64;

    void checkNames();
    void writeParcels(GrowingFiles& files);
    void syncWritten(std::vector<Descriptor>& written, const GrowingFiles& files);
    void enterParcels(GrowingFiles& files);
    Descriptor write(GrowingFiles& files) const;
    Descriptor writeCopy(GrowingFiles& files, const QString& source) const;
    [[noreturn]] void fail(const Refusal& refusal) const;

    const Delivery::Parcel& parcel() const { return _parcels[_at]; }
    QByteArray name() const { return QFile::encodeName(parcel().name()); }
    QByteArray path(const GrowingFiles& files) const { return files.pathOf(int(_at)); }

    const Delivery& _delivery;
    const std::vector<Delivery::Parcel>& _parcels;
    QueueEntrance _entrance;
    size_t _at = 0; // the parcel at work
    QStringList _delivered;
};

QStringList DeliveryRun::deliver()
{
    if (_parcels.empty())
        return {};
    try {
        checkNames();
        _at = 0;
        GrowingFiles files(_delivery.directory());
        writeParcels(files);
        enterParcels(files);
    } catch (const Refusal& refusal) {
        fail(refusal);
    }
    if (const int error = _entrance.sync(); error != 0)
        throw DeliveryFailure(notSynced(_delivery, _delivered, error), _delivered);
    return _delivered;
}

void DeliveryRun::checkNames()
{
    QSet<QString> names;
    for (_at = 0; _at < _parcels.size(); ++_at) {
        checkName(parcel().name());
        _entrance.checkFree(name());
        if (_delivery.ifTaken() == Delivery::NameTaken::Refuse && names.contains(parcel().name()))
            throw Refusal::because(Kind::NameTaken, "DeliveryNameTwice");
        names.insert(parcel().name());
    }
}

void DeliveryRun::writeParcels(GrowingFiles& files)
{
    std::vector<Descriptor> written;
    for (_at = 0; _at < _parcels.size(); ++_at) {
        written.push_back(write(files));
        if (written.size() == SyncedTogether || _at + 1 == _parcels.size())
            syncWritten(written, files);
    }
}

/// The parcel at work is the last one of those that were written.
void DeliveryRun::syncWritten(std::vector<Descriptor>& written, const GrowingFiles& files)
{
    const size_t last = _at;
    for (size_t index = 0; index < written.size(); ++index) {
        _at = last + 1 - written.size() + index;
        Refusal::check(path(files), syncFile(written[index].get()));
    }
    _at = last;
    written.clear();
}

void DeliveryRun::enterParcels(GrowingFiles& files)
{
    for (_at = 0; _at < _parcels.size(); ++_at) {
        const QByteArray entered = _entrance.enter(path(files), name());
        files.firstHasLeft();
        _delivered.append(SpoolName::shown(entered));
    }
}

Descriptor DeliveryRun::write(GrowingFiles& files) const
{
    if (const auto* const source = std::get_if<Delivery::Parcel::Path>(&parcel()._content))
        return writeCopy(files, source->path);
    Descriptor file = files.create(0666);
    if (auto* const* const device = std::get_if<QIODevice*>(&parcel()._content))
        copyDevice(**device, file.get(), path(files));
    else
        Refusal::check(path(files), writeAll(file.get(), std::get<QByteArray>(parcel()._content)));
    return file;
}

Descriptor DeliveryRun::writeCopy(GrowingFiles& files, const QString& source) const
{
    const SourceFile from(QFile::encodeName(source), SourceFile::Link::Followed);
    Descriptor file = files.create(0600);
    from.copyTo(file.get(), path(files));
    return file;
}

void DeliveryRun::fail(const Refusal& refusal) const
{
    QStringList text = {kitText("DeliveryFailed", shownName(parcel().name()), _delivery.directory(),
                                refusal.reason)};
    if (_parcels.size() > 1)
        text += kitText("DeliveryFailedAmong", QString::number(_delivered.size()),
                        QString::number(_parcels.size()));
    const int error = _delivered.isEmpty() ? 0 : _entrance.sync();
    if (error != 0)
        text += notSynced(_delivery, _delivered, error);
    throw DeliveryFailure(text.join(QLatin1Char(' ')), _delivered);
}

Delivery::Parcel Delivery::Parcel::file(const QString& path, const QString& name)
{
    return {name.isEmpty() ? baseName(path) : name, Path{path}};
}

Delivery::Delivery(const QString& directory, NameTaken ifTaken)
    : _directory(absolutePath(directory)), _ifTaken(ifTaken)
{
    struct stat status {};
    int error = 0;
    if (directory.contains(QChar(0)))
        error = EINVAL; // to the system the path would end there
    else if (::stat(QFile::encodeName(_directory).constData(), &status) != 0)
        error = errno;
    else if (!S_ISDIR(status.st_mode))
        error = ENOTDIR;
    if (error != 0)
        KezService::raise("DeliveryNoDirectory", shownName(directory), systemErrorText(error));
}

QString Delivery::directory() const
{
    return _directory;
}

Delivery::NameTaken Delivery::ifTaken() const
{
    return _ifTaken;
}

QString Delivery::deliver(const QString& name, QByteArrayView bytes) const
{
    const auto unowned = QByteArray::fromRawData(bytes.data(), bytes.size());
    return deliverAll({Parcel(name, unowned)}).constFirst();
}

QString Delivery::deliver(const QString& name, QIODevice& device) const
{
    return deliverAll({Parcel(name, device)}).constFirst();
}

QString Delivery::deliverFile(const QString& path, const QString& name) const
{
    return deliverAll({Parcel::file(path, name)}).constFirst();
}

QString Delivery::moveIn(const QString& path, const QString& name) const
{
    const QString wanted = name.isEmpty() ? baseName(path) : name;
    const QByteArray source = QFile::encodeName(path);
    const QueueEntrance entrance(_directory, _ifTaken);
    QueueEntrance::Entered entered;
    try {
        checkName(wanted);
        entered = entrance.moveIn(source, QFile::encodeName(wanted));
    } catch (const Refusal& refusal) {
        throw DeliveryFailure(
            kitText("DeliveryFailed", shownName(wanted), _directory, refusal.reason), {});
    }
    const QString delivered = SpoolName::shown(entered.name);
    if (const auto& fault = entered.sourceFault)
        throw DeliveryFailure(
            kitText("DeliverySourceStays", shownName(delivered), _directory, shownName(path),
                    fault->error != 0 ? systemErrorText(fault->error) : fault->reason),
            {delivered});
    int error = entrance.sync();
    if (error == 0)
        error = QueueEntrance::syncSources(directoryOf(source));
    if (error != 0)
        throw DeliveryFailure(notSynced(*this, {delivered}, error), {delivered});
    return delivered;
}

QStringList Delivery::deliverAll(const std::vector<Parcel>& parcels) const
{
    return DeliveryRun(*this, parcels).deliver();
}

int Delivery::removeLeftovers(std::chrono::seconds age) const
{
    try {
        return GrowingFiles::removeLeftovers(_directory, age);
    } catch (const Refusal& refusal) {
        KezService::raise("DeliveryLeftovers", _directory, refusal.reason);
    }
}

DeliveryFailure::DeliveryFailure(const QString& detail, const QStringList& delivered)
    : Exception(detail), _delivered(delivered)
{}

DeliveryFailure::DeliveryFailure(const DeliveryFailure& other) = default;
DeliveryFailure& DeliveryFailure::operator=(const DeliveryFailure& other) = default;
DeliveryFailure::~DeliveryFailure() = default;

DeliveryFailure* DeliveryFailure::clone() const
{
    return new DeliveryFailure(*this);
}

void DeliveryFailure::raise() const
{
    throw *this;
}

QStringList DeliveryFailure::delivered() const
{
    return _delivered;
}

} // namespace KezService
