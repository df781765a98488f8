// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/descriptor_p.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QObject>
#include <QSocketNotifier>

#include <map>
#include <memory>
#include <vector>

struct inotify_event;

namespace KezService {

/// A name in a directory, or a file itself if the name is empty.
struct WatchedPlace {
    QByteArray path;
    QByteArray name;

    friend bool operator==(const WatchedPlace&, const WatchedPlace&) = default;
};

/// Notices that a path may lead to another file than before, or to one that was changed.
///
/// It watches the file itself, its directory, and each directory with a link that the path goes
/// through; if something on the path is missing, the directory where it would be. Other names in
/// these directories do not count.
///
/// What inotify does not show stays unnoticed: changes on a network file system, and a directory
/// further up that is renamed. follow() finds what is to be watched then.
class PathWatch : public QObject {
    Q_OBJECT

public:
    /// `path` is absolute, as the system takes it.
    explicit PathWatch(const QByteArray& path, QObject* parent = nullptr);
    ~PathWatch() override;

    /// Follows the path and watches what it leads to now. Begins if it has not begun yet.
    ///
    /// Returns 0, or the error number of a system that has no watches left. The others work then.
    int follow();
    void stop();

Q_SIGNALS:
    void touched();

private:
    /// The names that count, by the number of their watch.
    using Watches = std::map<int, QByteArrayList>;

    int begin();
    int watch(const std::vector<WatchedPlace>& places);
    void readEvents();
    bool matters(const inotify_event& event) const;

    QByteArray _path;
    Descriptor _queue;
    std::unique_ptr<QSocketNotifier> _notifier; // destroyed before the descriptor is closed
    Watches _watches;
};

} // namespace KezService
