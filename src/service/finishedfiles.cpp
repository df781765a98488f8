// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/finishedfiles_p.h"

#include "service/kittexts_p.h"
#include "service/pausedjobs_p.h"
#include "service/spoolaccess_p.h"
#include "service/workplace_p.h"

#include <kez/ConsumerAncestor.h>
#include <kez/exception.h>
#include <kez/FileEntry.h>
#include <kez/FilesQueue.h>
#include <kez/log.h>

#include <algorithm>
#include <utility>

namespace KezService {

using namespace std::chrono_literals;

namespace {

// A re-scan costs time that grows with the spool. It comes once this share of the queue can be
// deleted, so that all of them together cost little more than one. Until then, it takes at most
// this share of the thread's time.
constexpr int ShareForRescan = 2;
constexpr int ShareOfTime = 5;
constexpr auto LongestRescanPause = 1s;

// Before a file that was kept back is handed over: it was out of reach, or could not be deleted.
constexpr auto UnseenPause = 1s;
constexpr auto FirstDeletionPause = 1s;
constexpr auto LongestDeletionPause = 5min;

} // namespace

FinishedFiles::FinishedFiles(ConsumerAncestor& agent, FilesQueue& queue, Journal& journal,
                             const SpoolAccess& spool, Clock::duration listingTime)
    : _agent(agent), _queue(queue), _journal(journal), _spool(spool), _rescanTime(listingTime)
{
    _rescanTimer.setSingleShot(true);
    connect(&_rescanTimer, &QTimer::timeout, this, &FinishedFiles::rescan);
}

void FinishedFiles::reserve(qsizetype files)
{
    _handedOver.reserve(files);
}

bool FinishedFiles::handOver(const QueuedFile& file)
{
    return handOver(file.name, {file.number, file.stamp}, file.found);
}

QStringList FinishedFiles::handOverDue()
{
    QHash<QString, Finished> due;
    for (auto file = _keptBack.begin(); file != _keptBack.end();) {
        const bool isDue = file->next <= Clock::now();
        if (isDue)
            due.insert(file.key(), *file);
        file = isDue ? _keptBack.erase(file) : std::next(file);
    }
    return handOverAll(due);
}

QStringList FinishedFiles::handOverAgain()
{
    return handOverAll(std::exchange(_handedOver, {}));
}

/// For a file that was handed over, the time of change counts: one that was deleted, and linked
/// again, is a new one.
bool FinishedFiles::keepIfOfferedAgain(const QString& name, const FileStamp& stamp)
{
    const auto handedOver = _handedOver.constFind(name);
    if (handedOver != _handedOver.constEnd() && handedOver->stamp == stamp) {
        const FileEntry* const entry = _queue.entryFromFileName(name);
        if (!entry || !entry->allConsumed()) // it is not to be deleted any more
            keepBack(name, _handedOver.take(name));
        return true;
    }
    const auto kept = _keptBack.constFind(name);
    if (kept == _keptBack.constEnd())
        return false;
    const bool isSame = stamp.hasContentOf(kept->stamp);
    if (!isSame)
        _keptBack.erase(kept);
    return isSame;
}

std::vector<quint64> FinishedFiles::lose(const QString& name, const std::optional<FileStamp>& found)
{
    std::vector<quint64> numbers;
    const auto handedOver = _handedOver.constFind(name);
    if (handedOver != _handedOver.constEnd() && found != handedOver->stamp) {
        numbers.push_back(handedOver->number);
        _handedOver.erase(handedOver);
    }
    const auto kept = _keptBack.constFind(name);
    if (kept != _keptBack.constEnd() && !(found && found->hasContentOf(kept->stamp))) {
        numbers.push_back(kept->number);
        _keptBack.erase(kept);
    }
    return numbers;
}

bool FinishedFiles::isKnown(const QString& name) const
{
    return _handedOver.contains(name) || _keptBack.contains(name);
}

void FinishedFiles::scheduleRescan()
{
    const bool isDue = _handedOver.size() >= _queue.size() / ShareForRescan;
    if (isDue && !(_rescanTimer.isActive() && _rescanTimer.interval() == 0))
        _rescanTimer.start(0);
    else if (!_rescanTimer.isActive())
        _rescanTimer.start(std::chrono::ceil<std::chrono::milliseconds>(
            std::min<Clock::duration>(ShareOfTime * _rescanTime, LongestRescanPause)));
}

void FinishedFiles::rescan()
{
    if (!_spool.isUsable())
        return;
    const auto start = Clock::now();
    _queue.onDirectoryChanged();
    const bool isInPlace = _spool.isInPlace();
    std::vector<quint64> numbers;
    for (auto file = _handedOver.begin(); isInPlace && file != _handedOver.end();) {
        if (_queue.existsFileEntry(file.key())) {
            ++file;
            continue;
        }
        const bool isDeleted = _spool.isDeleted(file.key());
        const auto found = isDeleted ? std::nullopt : _spool.stampOf(file.key());
        if (found == file->stamp)
            keepBack(file.key(), *file);
        else if (isDeleted || found)
            numbers.push_back(file->number);
        file = _handedOver.erase(file);
    }
    _journal.forget(numbers);
    _rescanTime = Clock::now() - start;
    if (!_handedOver.isEmpty()) // the queue could not list the spool
        _rescanTimer.start(LongestRescanPause);
}

/// `found`: what was there when the last handler had ended, if somebody looked.
bool FinishedFiles::handOver(const QString& name, Finished file, std::optional<FileStamp> found)
{
    if (!_queue.existsFileEntry(name)) {
        _queue.onDirectoryChanged(); // it could not delete the file, and finds it again
        found.reset();
    }
    if (!found)
        found = _spool.stampOf(name);
    if (found && !found->hasContentOf(file.stamp)) {
        Log::getInstance()->info(kitText("RunnerFileChanged", shownName(name)));
        return false;
    }
    if (found) {
        file.stamp = *found;
        report(name, file);
    } else if (_spool.isDeleted(name)) {
        _journal.forget({file.number});
    } else {
        postpone(name, file);
    }
    return true;
}

/// Returns the names of those that have changed.
QStringList FinishedFiles::handOverAll(const QHash<QString, Finished>& files)
{
    QStringList changed;
    for (auto file = files.constBegin(); file != files.constEnd(); ++file) {
        if (!handOver(file.key(), *file, std::nullopt))
            changed.append(file.key());
    }
    return changed;
}

void FinishedFiles::report(const QString& name, const Finished& file)
{
    try {
        Q_EMIT _agent.consumed(_agent.id(), name);
    } catch (const Exception&) { // it does not find the file, or may not use it any more
        if (_spool.isInPlace())
            keepBack(name, file);
        else
            postpone(name, file);
        return;
    }
    _handedOver.insert(name, file);
    scheduleRescan();
}

/// The queue could not delete it. The first time, the spool may only have been away for a moment.
void FinishedFiles::keepBack(const QString& name, Finished file)
{
    if (++file.failures == 2)
        Log::getInstance()->critical(kitText("RunnerNotDeleted", shownName(name)));
    file.next =
        Clock::now() + jitteredPause(file.failures, FirstDeletionPause, LongestDeletionPause);
    _keptBack.insert(name, file);
}

void FinishedFiles::postpone(const QString& name, Finished file)
{
    file.next = Clock::now() + UnseenPause;
    _keptBack.insert(name, file);
}

} // namespace KezService
