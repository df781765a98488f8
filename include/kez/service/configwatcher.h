// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "loadconfig.h"
#include "service_global.h"

#include <QObject>
#include <QStringList>

#include <chrono>

namespace KezService {

/// Keeps a service's configuration as its file is: loads a changed file, runs the validators, and
/// announces the new configuration.
///
/// A file that cannot be read, or that a validator refuses, is reported with all its faults, and
/// the previous configuration stays. It does not matter how the file changes: written in place,
/// replaced by a rename, removed and made again, through a link that is exchanged, or with its
/// whole directory. A change is loaded when nothing happened for a quiet time; if the file never
/// rests, after 50 quiet times. As a safety net the file is looked at every few seconds, which also
/// finds changes that the system does not notify of, as on network file systems.
///
/// A file whose writer takes a break that is longer than the quiet time is loaded half-written:
/// save configurations in one step, for example with saveAtomically().
///
/// What is announced and refused is also logged, as an info line and as one warning line per fault.
///
/// *Threads*: its own thread, which needs an event loop; config() and faults() from any thread.
/// Announced configurations are not changed any more by the watcher: any thread may read them, as
/// long as nobody changes them.
/// *Owns*: shares its current configuration.
/// *Fails*: start() throws Exception. Later faults are reported by refused().
class KEZ_SERVICE_EXPORT ConfigWatcher : public QObject {
    Q_OBJECT

public:
    /// `version` and `validators` are those of loadConfig(). A relative `path` is resolved here,
    /// once. Reads nothing yet.
    explicit ConfigWatcher(const QString& path, const QString& version = QString(),
                           const ConfigValidators& validators = {}, QObject* parent = nullptr);
    ~ConfigWatcher() override;

    QString path() const; ///< as given

    /// The configuration in use. Null before the first start.
    std::shared_ptr<Config> config() const;

    /// Why the file's present content is not in use; empty if it is. Without the path.
    QStringList faults() const;

    /// How long nothing must happen to the file before it is loaded: 200 ms unless set.
    void setQuietTime(std::chrono::milliseconds time);

    /// How often the file is looked at without a notification: every 5 s unless set; 0 for never.
    void setCheckPeriod(std::chrono::milliseconds period);

    /// The largest file that is read: MaxConfigSize unless set.
    void setMaxSize(qint64 bytes);

    /// Loads the configuration, and watches the file from now on. Returns the configuration. If it
    /// watches already, only returns the current one.
    ///
    /// Emits and logs nothing, since the log is usually built from what this returns. Throws as
    /// loadConfig() does, and then watches nothing.
    std::shared_ptr<Config> start();

    /// The configuration stays.
    void stop();

public Q_SLOTS:
    /// Loads the file at once, for example on SIGHUP: when it returns, config() or faults() are the
    /// new ones, and the signals have been emitted. The validators run also if the file is the same
    /// as before, since their verdict may depend on more than the file, and its faults are reported
    /// again. If they are running at this moment, since one of them runs an event loop, it returns
    /// at once, and the file is loaded when they are done. Does nothing if the file is not watched.
    void reload();

Q_SIGNALS:
    /// The file has other entries than `before`, and they are valid. config() is the new one
    /// already. A file that only looks different (comments, order) is not announced.
    void changed(const std::shared_ptr<Config>& config, const std::shared_ptr<Config>& before);

    /// The file cannot be used, and config() stays as it is: all faults, each once, without the
    /// path. The same content with the same faults is reported once.
    void refused(const QStringList& faults);

private:
    struct KEZ_HIDDEN Private;
    std::unique_ptr<Private> _d;
};

} // namespace KezService
