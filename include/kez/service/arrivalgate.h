// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "delivery.h"
#include "service_global.h"

#include <QObject>
#include <QString>

#include <chrono>
#include <memory>

namespace KezService {

/// Watches a directory that producers write into as they like, and hands each file on to a queue
/// once it is complete.
///
/// The producers are shell scripts, FTP servers or scanners, which know nothing of the queue. The
/// gate decides that a file is complete, writes its data to the disk and moves it as
/// Delivery::moveIn() does: by one rename, or as a copy whose source is then removed. Many files
/// share one wait for the directory.
///
/// The gate's process needs the right to change the incoming directory and to read its files. A
/// file that it may not write (an FTP server makes it with mode 0644, for instance) is copied, so
/// that a queue of the same user can take it. One that it may not read stays; the gate says so
/// once, and looks at it again when it changes. Run the gate as the user of the queue's process: a
/// gate that runs as root may write everything, and so copies nothing for others.
///
/// The gate leaves alone hidden and temporary names (".x", "x.part", "x.tmp", "x~"),
/// subdirectories, links and whatever is no regular file; also names that are not UTF-8, which is
/// logged once.
///
/// A file that cannot be handed on now is reported once and tried again, after one second, then
/// two, at last every five minutes. So is a directory that is gone or has lost its rights, and a
/// full or broken disk; these hold up all files. The gate says when it goes on.
///
/// A crash loses no file. After a crash, a file that was copied, or moved by links, may be handed
/// on a second time. The source of a copy has a hidden name while it is removed (see
/// Delivery::moveIn()); if a crash leaves it so, the gate gives it its name back.
///
/// When it starts, and then every hour, the gate removes what dead producers have left below
/// ".kez/incoming" of the queue and nobody has changed for a day (see
/// Delivery::removeLeftovers()). If it cannot, the log says so once.
///
/// Give each incoming directory one gate. Two of one user do no harm within one file system that
/// can rename without replacing: one of them gets the file.
///
/// *Threads*: the object's thread, which needs an event loop. Build it there, or move it there
/// before start(). Its thread waits for the disk; a thread that is asked to end
/// (QThread::requestInterruption()) leaves a copy in the middle. It stops by itself when its thread
/// ends.
/// *Owns*: its timer and its watch.
/// *Fails*: start() throws Exception for settings that cannot work. Everything later is a line of
/// the log and a signal.
class KEZ_SERVICE_EXPORT ArrivalGate : public QObject {
    Q_OBJECT

public:
    /// What says that a file is complete.
    enum class Completeness {
        /// Its size and times stay the same for the quiet period, and nobody has it open for
        /// writing. Where the system does not tell who writes (files of other users, network file
        /// systems), the quiet period alone decides.
        Quiet,

        /// A marker beside it: "x.xml.done" for "x.xml". The marker is removed afterwards. It
        /// counts for a file that is not newer than it, so that a forgotten one does not vouch for
        /// the next file of that name. A marker without a file waits and is left alone. The name
        /// and the marker together have at most 255 bytes.
        Marker
    };

    struct Settings {
        QString incoming;
        QString queueDirectory;
        Completeness completeness = Completeness::Quiet;
        std::chrono::milliseconds quietPeriod{2000};
        QString markerSuffix = QStringLiteral(".done");

        /// With Refuse, a file whose name is taken waits until the name is free.
        Delivery::NameTaken ifTaken = Delivery::NameTaken::FreshName;

        /// How often the incoming directory is listed although nothing was signalled: a network
        /// file system signals nothing, and a watch can be refused.
        std::chrono::milliseconds lookPeriod{10000};

        /// The pause after a failure; it doubles with each further one.
        std::chrono::milliseconds firstPause{1000};
        std::chrono::milliseconds longestPause{300000};
    };

    /// Relative paths are resolved here, once.
    explicit ArrivalGate(const Settings& settings, QObject* parent = nullptr);
    ~ArrivalGate() override;

    bool isRunning() const;

public Q_SLOTS:
    /// Begins with the files that are there. The directories may come later.
    ///
    /// Throws Exception: no path, both paths lead to one directory, a period or a marker that
    /// cannot work.
    void start();

    /// Ends the watch; files that are not complete yet stay.
    void stop();

Q_SIGNALS:
    /// The file is in the queue, under that name, and on the disk. If the disk fails, this comes
    /// once it works again; not at all if the gate was stopped before.
    void handedOn(const QString& name, const QString& nameInQueue);

    /// The file stays for the time being. Comes again for another reason.
    void refused(const QString& name, const QString& reason);

    /// Nothing can be handed on for the time being. Comes again for another reason.
    void hindered(const QString& reason);

    /// After hindered(): it goes on.
    void resumed();

private:
    struct KEZ_HIDDEN Private;
    std::unique_ptr<Private> _d;
};

} // namespace KezService
