// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/arrivals_p.h"
#include "service/directorywatch_p.h"
#include "service/queueentrance_p.h"

#include <kez/service/arrivalgate.h>

#include <QByteArray>
#include <QSet>
#include <QString>

#include <chrono>
#include <optional>
#include <utility>
#include <vector>

namespace KezService {

/// What the gate has to tell: for the log, and for its signals.
struct GateReport {
    enum class Kind {
        HandedOn,         ///< `text` is the name in the queue
        Refused,          ///< `text` is the reason
        NameRefused,      ///< the file will never enter under this name
        WatchRefused,     ///< the directory is only listed now and then
        LeftoversRemoved, ///< of dead producers; `text` is the number of files
        LeftoversStay,    ///< not all of them could be removed
        Hindered,         ///< nothing is handed on
        Resumed
    };

    Kind kind;
    QString name; ///< of the file, if it is about one
    QString text;
};

/// The work of an ArrivalGate, without an event loop: it knows what arrived, when to look at what,
/// and hands on.
///
/// *Threads*: one thread at a time.
/// *Owns*: its watch.
/// *Fails*: never; what goes wrong is a report.
class Gatekeeper {
public:
    using Clock = Arrival::Clock;

    /// The paths are absolute.
    explicit Gatekeeper(const ArrivalGate::Settings& settings);

    /// Is readable when readEvents() has something to do; -1 if the system gives none.
    int watchDescriptor() const { return _watch.descriptor(); }
    void readEvents();

    /// Does what is due, for a short while.
    void work();

    /// How long nothing is due; 0 if work() was not done with everything.
    std::chrono::milliseconds idleTime() const;

    /// The reports since the last call.
    std::vector<GateReport> takeReports() { return std::exchange(_reports, {}); }

private:
    using Report = GateReport::Kind;

    /// A file that was handed on, and perhaps is not on the disk yet.
    struct Handed {
        QByteArray name;
        QByteArray nameInQueue;
        std::optional<FileState> marker; ///< if it was not claimed
    };

    QByteArray pathOf(const QByteArray& name) const { return _path + '/' + name; }
    QByteArray markerOf(const QByteArray& name) const { return pathOf(name) + _suffix; }
    QByteArray claimOf(const QByteArray& name) const { return markerOf(name) + '~'; }
    bool isByMarker() const { return _settings.completeness == ArrivalGate::Completeness::Marker; }
    QByteArray markedName(const QByteArray& name) const;
    void report(Report kind, const QByteArray& name, const QString& text);

    void removeLeftovers();
    void noticed(const QByteArray& name);
    bool isNameUsable(const QByteArray& name);
    void look();
    void watchDirectory();
    void lookAt(QSet<QByteArray> names);
    void bringBackHidden(QSet<QByteArray>& names) const;
    QSet<QByteArray> markedNames(const QSet<QByteArray>& names) const;
    void lookFailed(const QString& cause, const QString& reason);

    void examine(const QByteArray& name);
    void forget(const QByteArray& name);
    bool isQuiet(const QByteArray& name, const FileState& state);
    bool isVouchedFor(const QByteArray& name, const struct stat& status);
    void handOn(const QByteArray& name, const FileState& state);
    void removeCopied(const QByteArray& name, const FileState& state);
    void refuse(const QByteArray& name, const Refusal& refusal);
    bool concernsAll(const Refusal& refusal) const;
    void hinder(const Refusal& refusal);
    void finish();
    void removeMarker(const Handed& handed) const;

    ArrivalGate::Settings _settings;
    QByteArray _path;
    QByteArray _suffix;
    QueueEntrance _entrance;
    DirectoryWatch _watch;
    bool _isWatchRefused = false;
    Arrivals _arrivals;
    QSet<QByteArray> _strangeNames; // that were reported
    std::vector<Handed> _handed;
    bool _isSyncMissing = false; // of the files that were handed on
    std::vector<GateReport> _reports;
    Backoff _leftoversBackoff;
    Backoff _lookBackoff;
    Backoff _handOnBackoff;
    Clock::time_point _lastLook;
    Clock::time_point _nextLook;
    Clock::time_point _nextCleaning;
    Clock::time_point _pausedUntil;
};

} // namespace KezService
