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
    enum class Cause { Noticed, Asked };

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

private:
    void touched();
    void look();
    bool hasToWait(const ConfigFile& file, Cause cause);
    CheckedConfig check(const ConfigFile& file);
    void settle(Cause cause);
    void refuse(const ConfigFile& file, const QStringList& found, Cause cause);
    void accept(const ConfigFile& file, const std::shared_ptr<Config>& valid);
    template <typename... Arguments>
    QString text(const char* key, const Arguments&... arguments) const
    {
        return kitText(key, shownName(path), arguments...);
    }

    ConfigWatcher& _watcher;
    QString _absolute;
    QString _version;
    ConfigValidators _validators;
    PathWatch _watch;
    QTimer _quiet;
    QTimer _check;
    milliseconds _checkPeriod = 5s;
    bool _isStarted = false;
    bool _isPending = false; // a change is noticed and not loaded yet
    QDeadlineTimer _latest;  // when it is loaded even if the file does not rest
    ConfigFileState _seen;   // at the last load or look
    Dictionnary _entries;    // of the configuration in use, before the validators could change them
    Dictionnary _refusedEntries;
    int _watchError = 0;
    bool _isChecking = false;
};

ConfigWatcher::Private::Private(ConfigWatcher& owner, const QString& givenPath,
                                const QString& givenVersion,
                                const ConfigValidators& givenValidators)
    : path(givenPath),
      _watcher(owner),
      _absolute(absolutePath(givenPath)),
      _version(givenVersion),
      _validators(givenValidators),
      _watch(QFile::encodeName(_absolute), &owner),
      _quiet(&owner),
      _check(&owner)
{
    _quiet.setSingleShot(true);
    connect(&_watch, &PathWatch::touched, &_watcher, [this] { touched(); });
    connect(&_quiet, &QTimer::timeout, &_watcher, [this] { load(Cause::Noticed); });
    connect(&_check, &QTimer::timeout, &_watcher, [this] { look(); });
}

std::shared_ptr<Config> ConfigWatcher::Private::start()
{
    if (_isStarted)
        return config;
    _watchError = 0;
    _watch.follow(); // before the load: no change is missed in between
    const ConfigFile file = readConfigFile(_absolute, maxSize);
    const CheckedConfig checked = check(file);
    if (!checked.faults.isEmpty()) {
        _watch.stop();
        raiseConfigFaults(path, checked.faults);
    }
    _seen = file.state;
    _entries = file.entries;
    {
        const std::lock_guard<std::mutex> guard(lock);
        config = checked.config;
        faults.clear();
    }
    _isStarted = true;
    setCheckPeriod(_checkPeriod);
    // Later, since the log may not be there yet.
    QTimer::singleShot(0ms, &_watch, [this] { look(); });
    return checked.config;
}

void ConfigWatcher::Private::stop()
{
    _isStarted = false;
    _isPending = false;
    _quiet.stop();
    _check.stop();
    _watch.stop();
}

void ConfigWatcher::Private::setCheckPeriod(milliseconds period)
{
    _checkPeriod = period;
    _check.stop();
    if (_isStarted && period > 0ms)
        _check.start(period);
}

/// Loads the file when it has come to rest.
void ConfigWatcher::Private::touched()
{
    if (!_isStarted)
        return;
    if (!std::exchange(_isPending, true))
        _latest = QDeadlineTimer(quietTime * MostQuietTimes);
    _quiet.start(std::min(quietTime, milliseconds(_latest.remainingTime())));
}

/// Finds what no notification told.
void ConfigWatcher::Private::look()
{
    if (!_isStarted)
        return;
    const int error = _watch.follow();
    if (std::exchange(_watchError, error) != error && error != 0)
        Log::getInstance()->warning(text("ConfigNotWatched", systemErrorText(error)));
    const ConfigFileState state = configFileStateOf(_absolute);
    if (std::exchange(_seen, state) != state)
        touched();
}

void ConfigWatcher::Private::load(Cause cause)
{
    if (!_isStarted)
        return;
    const ConfigFile file = readConfigFile(_absolute, maxSize);
    if (hasToWait(file, cause)) {
        touched();
        return;
    }
    _quiet.stop();
    _isPending = false;
    _seen = file.state;
    const bool isSame = file.fault.isEmpty() && file.entries == _entries;
    if (isSame && faults.isEmpty() && cause == Cause::Noticed)
        return;
    const CheckedConfig checked = check(file);
    if (!checked.faults.isEmpty())
        refuse(file, checked.faults, cause);
    else if (isSame)
        settle(cause);
    else
        accept(file, checked.config);
}

/// Whether the file is changing at this moment, or a validator waits for events.
bool ConfigWatcher::Private::hasToWait(const ConfigFile& file, Cause cause)
{
    return _isChecking || (!file.isStable && cause == Cause::Noticed && !_latest.hasExpired());
}

CheckedConfig ConfigWatcher::Private::check(const ConfigFile& file)
{
    if (!file.fault.isEmpty())
        return {nullptr, {file.fault}};
    const QScopedValueRollback<bool> checking(_isChecking, true);
    return checkConfig(file.entries, _version, _validators);
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
    const bool isKnown = found == faults && file.entries == _refusedEntries;
    if (isKnown && cause == Cause::Noticed)
        return;
    _refusedEntries = file.entries;
    {
        const std::lock_guard<std::mutex> guard(lock);
        faults = found;
    }
    for (const QString& fault : found)
        Log::getInstance()->warning(text("ConfigRefused", shownName(fault)));
    Q_EMIT _watcher.refused(found);
}

void ConfigWatcher::Private::accept(const ConfigFile& file, const std::shared_ptr<Config>& valid)
{
    const QString keys = changedKeys(_entries, file.entries);
    const std::shared_ptr<Config> before = config;
    _entries = file.entries;
    {
        const std::lock_guard<std::mutex> guard(lock);
        config = valid;
        faults.clear();
    }
    Log::getInstance()->info(text("ConfigChanged", keys));
    Q_EMIT _watcher.changed(valid, before);
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
