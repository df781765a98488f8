// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/configwatcher.h"

#include "frame/directories_p.h"
#include "service/configcheck_p.h"
#include "service/configfile_p.h"
#include "service/kittexts_p.h"
#include "service/pathwatch_p.h"

#include <kez/log.h>

#include <QDeadlineTimer>
#include <QFile>
#include <QScopedValueRollback>
#include <QTimer>

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>

namespace KezService {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

namespace {

constexpr int MostQuietTimes = 50;
constexpr qsizetype MostShownKeys = 10;

/// The keys that only one of the two holds, or that have another value; the first few of them.
QString changedKeys(const Dictionnary& before, const Dictionnary& after)
{
    QStringList keys;
    for (auto entry = before.cbegin(); entry != before.cend(); ++entry) {
        const auto now = after.constFind(entry.key());
        if (now == after.cend() || *now != *entry)
            keys.append(shownName(entry.key()));
    }
    for (auto entry = after.cbegin(); entry != after.cend(); ++entry) {
        if (!before.contains(entry.key()))
            keys.append(shownName(entry.key()));
    }
    keys.sort();
    const QString shown = keys.mid(0, MostShownKeys).join(QStringLiteral(", "));
    const qsizetype more = keys.size() - MostShownKeys;
    return more > 0 ? shown + QStringLiteral(", ... (+%1)").arg(more) : shown;
}

} // namespace

struct ConfigWatcher::Private {
    enum class Cause { Noticed, Asked }; // the stronger one last

    Private(ConfigWatcher& owner, const QString& givenPath, const QString& givenVersion,
            const ConfigValidators& givenValidators);

    std::shared_ptr<Config> start();
    void stop();
    void load(Cause cause);
    void setCheckPeriod(milliseconds period);

    QString path;
    std::shared_ptr<Config> config;
    QStringList faults;
    mutable std::mutex lock; // of these two
    milliseconds quietTime = 200ms;
    qint64 maxSize = MaxConfigSize;

    void touched();
    void look();
    void loadMissed();
    CheckedConfig check(const ConfigFile& file);
    void settle(Cause cause);
    void refuse(const ConfigFile& file, const QStringList& found, Cause cause);
    void accept(const ConfigFile& file, const std::shared_ptr<Config>& valid);
    template <typename... Arguments>
    QString text(const char* key, const Arguments&... arguments) const
    {
        return kitText(key, shownName(path), arguments...);
    }

    ConfigWatcher& watcher;
    QString absolute;
    QString version;
    ConfigValidators validators;
    PathWatch watch;
    QTimer quiet;
    QTimer regularLook;
    milliseconds checkPeriod = 5s;
    bool isStarted = false;
    bool isPending = false; // a change is noticed and not loaded yet
    QDeadlineTimer latest;  // when it is loaded even if the file does not rest
    ConfigFileState seen;   // at the last load or look
    Dictionnary entries;    // of the configuration in use, before the validators could change them
    Dictionnary refusedEntries;
    int watchError = 0;
    bool isChecking = false;
    std::optional<Cause> missed; // while the validators were running
};

ConfigWatcher::Private::Private(ConfigWatcher& owner, const QString& givenPath,
                                const QString& givenVersion,
                                const ConfigValidators& givenValidators)
    : path(givenPath),
      watcher(owner),
      absolute(absolutePath(givenPath)),
      version(givenVersion),
      validators(givenValidators),
      watch(QFile::encodeName(absolute), &owner),
      quiet(&owner),
      regularLook(&owner)
{
    quiet.setSingleShot(true);
    connect(&watch, &PathWatch::touched, &watcher, [this] { touched(); });
    connect(&quiet, &QTimer::timeout, &watcher, [this] { load(Cause::Noticed); });
    connect(&regularLook, &QTimer::timeout, &watcher, [this] { look(); });
}

std::shared_ptr<Config> ConfigWatcher::Private::start()
{
    if (isStarted)
        return config;
    watchError = 0;
    watch.follow(); // before the load: no change is missed in between
    const ConfigFile file = readConfigFile(absolute, maxSize);
    const CheckedConfig checked = check(file);
    if (!checked.faults.isEmpty()) {
        watch.stop();
        raiseConfigFaults(path, checked.faults);
    }
    seen = file.state;
    entries = file.entries;
    {
        const std::lock_guard<std::mutex> guard(lock);
        config = checked.config;
        faults.clear();
    }
    isStarted = true;
    setCheckPeriod(checkPeriod);
    // Later, since the log may not be there yet.
    QTimer::singleShot(0ms, &watch, [this] { look(); });
    return checked.config;
}

void ConfigWatcher::Private::stop()
{
    isStarted = false;
    isPending = false;
    missed.reset();
    quiet.stop();
    regularLook.stop();
    watch.stop();
}

void ConfigWatcher::Private::setCheckPeriod(milliseconds period)
{
    checkPeriod = period;
    regularLook.stop();
    if (isStarted && period > 0ms)
        regularLook.start(period);
}

/// Loads the file when it has come to rest.
void ConfigWatcher::Private::touched()
{
    if (!isStarted)
        return;
    if (!std::exchange(isPending, true))
        latest = QDeadlineTimer(quietTime * MostQuietTimes);
    quiet.start(std::min(quietTime, milliseconds(latest.remainingTime())));
}

/// Finds what no notification told.
void ConfigWatcher::Private::look()
{
    if (!isStarted)
        return;
    const int error = watch.follow();
    if (std::exchange(watchError, error) != error && error != 0)
        Log::getInstance()->warning(text("ConfigNotWatched", systemErrorText(error)));
    const ConfigFileState state = configFileStateOf(absolute);
    if (std::exchange(seen, state) != state)
        touched();
}

void ConfigWatcher::Private::load(Cause cause)
{
    if (!isStarted)
        return;
    if (isChecking) { // a validator waits for events
        missed = std::max(missed.value_or(cause), cause);
        return;
    }
    const ConfigFile file = readConfigFile(absolute, maxSize);
    if (!file.isStable && cause == Cause::Noticed && !latest.hasExpired()) {
        touched();
        return;
    }
    quiet.stop();
    isPending = false;
    seen = file.state;
    const bool isSame = file.fault.isEmpty() && file.entries == entries;
    if (isSame && faults.isEmpty() && cause == Cause::Noticed)
        return;
    const std::shared_ptr<Config> inUse = config;
    const CheckedConfig checked = check(file);
    if (!isStarted || config != inUse) // stopped, or started anew, while a validator waited
        return;
    loadMissed();
    if (!checked.faults.isEmpty())
        refuse(file, checked.faults, cause);
    else if (isSame)
        settle(cause);
    else
        accept(file, checked.config);
}

/// Loads again, soon, if that was due while the validators were running.
void ConfigWatcher::Private::loadMissed()
{
    if (missed == Cause::Noticed) {
        missed.reset();
        touched();
    } else if (missed) {
        QTimer::singleShot(0ms, &watch, [this] {
            if (missed)
                load(*std::exchange(missed, std::nullopt));
        });
    }
}

CheckedConfig ConfigWatcher::Private::check(const ConfigFile& file)
{
    if (!file.fault.isEmpty())
        return {nullptr, {file.fault}};
    const QScopedValueRollback<bool> checking(isChecking, true);
    return checkConfig(file.entries, version, validators);
}

/// What the file holds is in use.
void ConfigWatcher::Private::settle(Cause cause)
{
    const bool wasRefused = !faults.isEmpty();
    {
        const std::lock_guard<std::mutex> guard(lock);
        faults.clear();
    }
    if (wasRefused)
        Log::getInstance()->info(text("ConfigRestored"));
    else if (cause == Cause::Asked)
        Log::getInstance()->info(text("ConfigUnchanged"));
}

void ConfigWatcher::Private::refuse(const ConfigFile& file, const QStringList& found, Cause cause)
{
    const bool isKnown = found == faults && file.entries == refusedEntries;
    if (isKnown && cause == Cause::Noticed)
        return;
    refusedEntries = file.entries;
    {
        const std::lock_guard<std::mutex> guard(lock);
        faults = found;
    }
    for (const QString& fault : found)
        Log::getInstance()->warning(text("ConfigRefused", shownName(fault)));
    Q_EMIT watcher.refused(found);
}

void ConfigWatcher::Private::accept(const ConfigFile& file, const std::shared_ptr<Config>& valid)
{
    const QString keys = changedKeys(entries, file.entries);
    const std::shared_ptr<Config> before = config;
    entries = file.entries;
    {
        const std::lock_guard<std::mutex> guard(lock);
        config = valid;
        faults.clear();
    }
    Log::getInstance()->info(text("ConfigChanged", keys));
    Q_EMIT watcher.changed(valid, before);
}

ConfigWatcher::ConfigWatcher(const QString& path, const QString& version,
                             const ConfigValidators& validators, QObject* parent)
    : QObject(parent), _d(std::make_unique<Private>(*this, path, version, validators))
{}

ConfigWatcher::~ConfigWatcher() = default;

QString ConfigWatcher::path() const
{
    return _d->path;
}

std::shared_ptr<Config> ConfigWatcher::config() const
{
    const std::lock_guard<std::mutex> guard(_d->lock);
    return _d->config;
}

QStringList ConfigWatcher::faults() const
{
    const std::lock_guard<std::mutex> guard(_d->lock);
    return _d->faults;
}

void ConfigWatcher::setQuietTime(milliseconds time)
{
    _d->quietTime = std::max(time, 0ms);
}

void ConfigWatcher::setCheckPeriod(milliseconds period)
{
    _d->setCheckPeriod(std::max(period, 0ms));
}

void ConfigWatcher::setMaxSize(qint64 bytes)
{
    _d->maxSize = std::max<qint64>(bytes, 0);
}

std::shared_ptr<Config> ConfigWatcher::start()
{
    return _d->start();
}

void ConfigWatcher::stop()
{
    _d->stop();
}

void ConfigWatcher::reload()
{
    _d->load(Private::Cause::Asked);
}

} // namespace KezService
