// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/gatekeeper_p.h"

#include "service/directoryentries_p.h"
#include "service/durablefiles_p.h"
#include "service/growingfiles_p.h"
#include "service/openwriters_p.h"
#include "service/sourceremoval_p.h"
#include "service/spoolname_p.h"
#include "service/spoolplaces_p.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace KezService {

namespace {

using namespace std::chrono_literals;
using Clock = Arrival::Clock;

/// The event loop gets its turn after this time, and what was handed on gets to the disk.
constexpr auto WorkSlice = 100ms;
constexpr size_t HandedTogether = 256;

/// Nobody works on one file for a day. Producers that deliver by hand are known by that only.
constexpr auto LeftoverAge = 24h;
constexpr auto CleaningPeriod = 1h;

/// Signals that a listing is needed may come one after the other.
constexpr auto ShortestLookPeriod = 200ms;

/// Adds the names of what may be regular files. Returns the system's error number, or 0.
int listFiles(const QByteArray& path, QSet<QByteArray>& names)
{
    return forEachEntry(path, [&](const dirent& entry) {
        if (entry.d_type == DT_REG || entry.d_type == DT_UNKNOWN)
            names.insert(entry.d_name);
    });
}

/// Whether files can be renamed there.
bool isUsable(const QByteArray& directory)
{
    return ::faccessat(AT_FDCWD, (directory + "/.").constData(), W_OK | X_OK, AT_EACCESS) == 0;
}

bool isLater(const timespec& a, const timespec& b)
{
    return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

OpenWriters openWritersOf(const QByteArray& path)
{
    const Descriptor file = openFile(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW);
    return file.isOpen() ? KezService::openWritersOf(file.get()) : OpenWriters::Unknown;
}

} // namespace

Gatekeeper::Gatekeeper(const ArrivalGate::Settings& settings)
    : _settings(settings),
      _path(QFile::encodeName(settings.incoming)),
      _suffix(QFile::encodeName(settings.markerSuffix)),
      _entrance(settings.queueDirectory, settings.ifTaken),
      _nextLook(Clock::now()),
      _nextCleaning(_nextLook)
{}

void Gatekeeper::report(Report kind, const QByteArray& name, const QString& text)
{
    _reports.push_back({kind, SpoolName::shown(name), text});
}

/// The file that a marker vouches for; empty if the name is none of a marker.
QByteArray Gatekeeper::markedName(const QByteArray& name) const
{
    return name.endsWith(_suffix) ? name.chopped(_suffix.size()) : QByteArray();
}

void Gatekeeper::readEvents()
{
    if (_watch.read([this](const QByteArray& name) { noticed(name); }))
        _nextLook = std::min(_nextLook, std::max(Clock::now(), _lastLook + ShortestLookPeriod));
}

/// The file is looked at anew, also one that waits after a failure: somebody may have helped it.
void Gatekeeper::noticed(const QByteArray& name)
{
    const QByteArray marked = isByMarker() ? markedName(name) : QByteArray();
    const QByteArray& file = marked.isEmpty() ? name : marked;
    if (!isNameUsable(file))
        return;
    _arrivals.add(file, Clock::now());
    _arrivals[file].seen.reset();
    _arrivals.reschedule(file, Clock::now());
}

bool Gatekeeper::isNameUsable(const QByteArray& name)
{
    if (SpoolName::isTemporary(name))
        return false;
    if (SpoolName::decoded(name))
        return true;
    if (!_strangeNames.contains(name)) {
        _strangeNames.insert(name);
        report(Report::NameRefused, name, kitText("DeliveryNameNotUtf8"));
    }
    return false;
}

void Gatekeeper::work()
{
    const auto end = Clock::now() + WorkSlice;
    if (Clock::now() >= _nextCleaning)
        removeLeftovers();
    if (Clock::now() >= _nextLook)
        look();
    finish(); // what a broken disk has held up comes first
    while (_handed.size() < HandedTogether && Clock::now() < end && !isInterrupted()) {
        const auto first = _arrivals.first();
        if (!first || std::max(first->first, _pausedUntil) > Clock::now())
            break;
        try {
            examine(first->second);
        } catch (const Refusal& refusal) {
            refuse(first->second, refusal);
        }
    }
    finish();
}

std::chrono::milliseconds Gatekeeper::idleTime() const
{
    auto next = std::min(_nextLook, _nextCleaning);
    if (const auto first = _arrivals.first())
        next = std::min(next, std::max(first->first, _pausedUntil));
    if (_isSyncMissing)
        next = std::min(next, _pausedUntil);
    if (isInterrupted()) // the thread's loop may still run: do not keep it busy
        next = std::max(next, Clock::now() + 1s);
    const auto idle = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
    return std::max(idle, 0ms);
}

/// What dead producers have left for the queue, and this gate before a crash, too.
void Gatekeeper::removeLeftovers()
{
    _nextCleaning = Clock::now() + CleaningPeriod;
    try {
        const int count = GrowingFiles::removeLeftovers(_entrance.directory(), LeftoverAge);
        _leftoversBackoff.succeed();
        if (count > 0)
            report(Report::LeftoversRemoved, {}, QString::number(count));
    } catch (const Refusal& refusal) {
        if (_leftoversBackoff.fail(QString::number(refusal.error)))
            report(Report::LeftoversStay, {}, refusal.reason);
    }
}

/// Lists the directory. The watch comes first, so that nothing falls between the two.
void Gatekeeper::look()
{
    _lastLook = Clock::now();
    watchDirectory();
    QSet<QByteArray> names;
    if (const int error = listFiles(_path, names); error != 0) {
        lookFailed(QString::number(error), Refusal::bySystem(_path, error).reason);
        return;
    }
    if (leadToOne(_path, QFile::encodeName(_entrance.directory()))) {
        const QString reason = kitText("GateSameDirectory", _settings.incoming);
        lookFailed(reason, reason);
        return;
    }
    const auto period =
        _watch.isWatching()
            ? _settings.lookPeriod
            : std::min(_settings.lookPeriod,
                       std::max<std::chrono::milliseconds>(_settings.quietPeriod, 1s));
    _nextLook = Clock::now() + period;
    if (_lookBackoff.succeed() && !_handOnBackoff.hasFailed())
        report(Report::Resumed, {}, {});
    lookAt(std::move(names));
}

void Gatekeeper::watchDirectory()
{
    const int error = _watch.set(_path);
    const bool isRefused = error != 0 && error != ENOENT && error != ENOTDIR && error != EACCES;
    if (isRefused && !_isWatchRefused)
        report(Report::WatchRefused, {}, systemErrorText(error));
    _isWatchRefused = isRefused;
}

void Gatekeeper::lookAt(QSet<QByteArray> names)
{
    bringBackHidden(names);
    const QSet<QByteArray> files = isByMarker() ? markedNames(names) : names;
    _strangeNames.intersect(names);
    _arrivals.keepOnly(files);
    for (const QByteArray& name : files) {
        if (!_arrivals.contains(name) && isNameUsable(name))
            _arrivals.add(name, Clock::now());
    }
}

/// A crash while the source of a copy was removed has left it hidden. This comes before a claimed
/// marker is taken for that of a file that has gone.
void Gatekeeper::bringBackHidden(QSet<QByteArray>& names) const
{
    QSet<QByteArray> shown;
    for (const QByteArray& name : std::as_const(names)) {
        if (const QByteArray back = SourceRemoval::bringBack(_path, name); !back.isEmpty())
            shown.insert(back);
    }
    names.unite(shown);
}

/// The files that have a marker, and those whose marker was claimed. If a file of the latter is not
/// there, it was handed on, and a crash has left the marker.
QSet<QByteArray> Gatekeeper::markedNames(const QSet<QByteArray>& names) const
{
    QSet<QByteArray> marked;
    for (const QByteArray& name : names) {
        const bool isClaimed = name.endsWith('~');
        const QByteArray file = markedName(isClaimed ? name.chopped(1) : name);
        if (!file.isEmpty() && (isClaimed || names.contains(file)))
            marked.insert(file);
    }
    return marked;
}

void Gatekeeper::lookFailed(const QString& cause, const QString& reason)
{
    if (_lookBackoff.fail(cause))
        report(Report::Hindered, {}, reason);
    _nextLook = Clock::now() + _lookBackoff.pause(_settings.firstPause, _settings.longestPause);
    _pausedUntil = std::max(_pausedUntil, _nextLook);
}

/// Looks at a file, and hands it on if it is complete.
void Gatekeeper::examine(const QByteArray& name)
{
    const auto status = statusOf(pathOf(name));
    if (!status && errno != ENOENT)
        throw Refusal::bySystem(pathOf(name), errno);
    if (!status || !S_ISREG(status->st_mode)) {
        forget(name);
        return;
    }
    const FileState state(*status);
    const auto& copied = _arrivals[name].copied;
    if (copied && copied->hasContentOf(state))
        removeCopied(name, state);
    else if (isByMarker() ? isVouchedFor(name, *status) : isQuiet(name, state))
        handOn(name, state);
    else if (isByMarker())
        _arrivals.remove(name); // a new marker brings it back
}

void Gatekeeper::forget(const QByteArray& name)
{
    _arrivals.remove(name);
    if (isByMarker())
        ::unlink(claimOf(name).constData());
}

/// If it is not, the file is looked at again after the quiet period.
bool Gatekeeper::isQuiet(const QByteArray& name, const FileState& state)
{
    Arrival& arrival = _arrivals[name];
    const bool isUnchanged = arrival.seen == state;
    if (isUnchanged && openWritersOf(pathOf(name)) != OpenWriters::Some)
        return true;
    arrival.seen = state;
    _arrivals.reschedule(name, Clock::now() + _settings.quietPeriod);
    return false;
}

/// A marker that counts is claimed, which gives it a temporary name: after a crash, this tells the
/// marker of a file that was handed on from one that came before its file.
bool Gatekeeper::isVouchedFor(const QByteArray& name, const struct stat& status)
{
    const auto vouching = [&](const QByteArray& path) {
        // One of the two times is enough: a copied file may have a modification in the future, and
        // a change of its rights is no new content.
        const auto marker = statusOf(path);
        const bool vouches = marker && S_ISREG(marker->st_mode) &&
                             (!isLater(status.st_mtim, marker->st_mtim) ||
                              !isLater(status.st_ctim, marker->st_ctim));
        return vouches ? std::optional(FileState(*marker)) : std::nullopt;
    };
    const QByteArray path = markerOf(name);
    const auto marker = vouching(path);
    if (!marker)
        return vouching(claimOf(name)).has_value();
    if (::rename(path.constData(), claimOf(name).constData()) == 0 || errno == ENOENT)
        return true;
    if (errno != ENAMETOOLONG)
        throw Refusal::bySystem(path, errno);
    _arrivals[name].marker = marker;
    return true;
}

void Gatekeeper::handOn(const QByteArray& name, const FileState& state)
{
    const QueueEntrance::Entered entered = _entrance.moveIn(pathOf(name), name, state);
    _handed.push_back({name, entered.name, _arrivals[name].marker});
    if (_handOnBackoff.succeed())
        report(Report::Resumed, {}, {});
    if (!entered.sourceFault) {
        _arrivals.remove(name);
        return;
    }
    _arrivals[name].copied = state;
    throw Refusal(*entered.sourceFault);
}

/// The queue has the file already; only its source could not be removed.
void Gatekeeper::removeCopied(const QByteArray& name, const FileState& state)
{
    Refusal::check(QFile::encodeName(_entrance.directory()), _entrance.sync());
    SourceRemoval::remove(pathOf(name), state);
    forget(name);
}

void Gatekeeper::refuse(const QByteArray& name, const Refusal& refusal)
{
    Arrival& arrival = _arrivals[name];
    switch (refusal.kind) {
    case Refusal::Kind::Gone:
        forget(name); // another gate was faster
        return;
    case Refusal::Kind::Changing:
    case Refusal::Kind::Interrupted:
        arrival.seen.reset();
        _arrivals.reschedule(name, Clock::now() + _settings.quietPeriod);
        return;
    default:
        break;
    }
    const QString cause = refusal.error != 0 ? QString::number(refusal.error) : refusal.reason;
    const bool isNew = arrival.backoff.fail(cause);
    _arrivals.reschedule(
        name, Clock::now() + arrival.backoff.pause(_settings.firstPause, _settings.longestPause));
    // If other files entered since, only this file has the problem (it is too large, for instance).
    if (concernsAll(refusal) && (isNew || _handOnBackoff.hasFailed()))
        hinder(refusal);
    else if (isNew)
        report(Report::Refused, name, refusal.reason);
}

bool Gatekeeper::concernsAll(const Refusal& refusal) const
{
    const QByteArray queue = QFile::encodeName(_entrance.directory());
    const QByteArray growing = QFile::encodeName(SpoolPlaces::incoming(_entrance.directory()));
    switch (refusal.error) {
    case 0:
        return false;
    case ENOSPC:
    case EDQUOT:
    case EROFS:
    case EIO:
    case EMFILE:
    case ENFILE:
    case ENOMEM:
        return true;
    default:
        return !isUsable(_path) || !isUsable(queue) ||
               (refusal.path.startsWith(growing) && !isUsable(growing)); // only copies need it
    }
}

void Gatekeeper::hinder(const Refusal& refusal)
{
    if (_handOnBackoff.fail(QString::number(refusal.error)))
        report(Report::Hindered, {}, refusal.reason);
    _pausedUntil =
        Clock::now() + _handOnBackoff.pause(_settings.firstPause, _settings.longestPause);
}

/// What was handed on gets to the disk, and is then reported. If that fails, it is tried again
/// after the pause, before anything else is handed on.
void Gatekeeper::finish()
{
    if (_handed.empty() || (_isSyncMissing && Clock::now() < _pausedUntil))
        return;
    QByteArray path = QFile::encodeName(_entrance.directory());
    int error = _entrance.sync();
    if (error == 0) {
        path = _path;
        error = QueueEntrance::syncSources(path);
    }
    const bool wasMissing = std::exchange(_isSyncMissing, error != 0);
    if (error != 0) {
        hinder(Refusal::bySystem(path, error));
        return;
    }
    if (wasMissing && _handOnBackoff.succeed())
        report(Report::Resumed, {}, {});
    for (const Handed& handed : std::exchange(_handed, {})) {
        if (!_arrivals.contains(handed.name))
            removeMarker(handed);
        report(Report::HandedOn, handed.name, SpoolName::shown(handed.nameInQueue));
    }
}

/// A marker that could not be claimed may be that of the next file by now.
void Gatekeeper::removeMarker(const Handed& handed) const
{
    if (!isByMarker())
        return;
    const QByteArray marker = handed.marker ? markerOf(handed.name) : claimOf(handed.name);
    const auto now = statusOf(marker);
    if (now && (!handed.marker || *handed.marker == FileState(*now)))
        ::unlink(marker.constData());
}

} // namespace KezService
