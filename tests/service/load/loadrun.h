// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "loadplan.h"
#include "loadtally.h"
#include "smalldisk.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QString>

#include <array>
#include <memory>

/// Runs the service and the producers, kills the service again and again, and fills its disk once,
/// until all files are handled.
class LoadRun {
public:
    /// `directory` holds what stays to be looked at; the spool is in "disk" there.
    LoadRun(const LoadPlan& plan, const QString& directory, SmallDisk& disk);
    ~LoadRun();

    /// Empty, or what went wrong.
    QString run();

    QString spool() const { return _directory + QStringLiteral("/disk/spool"); }
    QString incoming() const { return _directory + QStringLiteral("/disk/incoming"); }
    QString logTail() const;

    const LoadTally& tally() const { return _tally; }
    int kills() const { return _killCount; }
    int crashes() const { return _crashCount; }
    int deaths() const { return _killCount + _crashCount; }
    int begunAnew() const { return _begunAnew; } ///< files, since the disk was full
    double seconds() const { return _seconds; }

private:
    /// How far the run is with the full disk.
    enum class DiskPhase { Before, Gathering, Full, Recovering, Over };

    void startService();
    void startProducers();
    void step();
    void feedProducers();
    void listenToProducers();
    void watchService();
    void killService();
    bool mayKill() const;
    bool isTimeToKill();
    void fillDisk();
    bool isFirstDeadlySettled() const;
    void readLog();
    void checkProgress();
    bool isOver() const;
    void stopService();
    void fail(const QString& problem);

    const LoadPlan _plan;
    const QString _directory;
    SmallDisk& _disk;
    QRandomGenerator _random;
    QString _problem;

    QProcess _service;
    std::array<QProcess, 6> _producers;
    LoadTally _tally;
    Tail _log;

    qsizetype _fed = 0; // names given to the producers
    int _begunAnew = 0;
    qint64 _begunBefore = 0; // handlings, when the service was last started
    int _killCount = 0;
    int _crashCount = 0;
    qsizetype _nextKill = 0;
    QElapsedTimer _killTimer; // since it was time to kill, while that waits
    qint64 _killDelay = 0;    // milliseconds

    DiskPhase _diskPhase = DiskPhase::Before;
    int _begunAnewBefore = 0;
    bool _isShortOfSpace = false; // the service says so
    int _journalFailures = 0;
    int _journalReturns = 0;

    qint64 _progress = 0;
    QElapsedTimer _progressTimer;
    double _seconds = 0;
};
