// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/runnerfiles_p.h"

#include <QDateTime>

#include <algorithm>
#include <limits>

namespace KezService {

RunnerFiles::RunnerFiles(const QStringList& consumers)
{
    for (const QString& id : consumers) {
        _consumers.emplace_back();
        _consumers.back().id = id;
    }
}

void RunnerFiles::reserve(qsizetype files)
{
    _byName.reserve(files);
}

RunnerFiles::FilePointer RunnerFiles::find(const QString& name) const
{
    return _byName.value(name);
}

QStringList RunnerFiles::names() const
{
    return _byName.keys();
}

RunnerFiles::FilePointer RunnerFiles::enter(const Journal::Entry& entry)
{
    if (const FilePointer known = find(entry.name))
        drop(known);
    const auto file = std::make_shared<QueuedFile>();
    file->name = entry.name;
    file->stamp = entry.stamp;
    file->number = entry.number;
    file->key = entry.key;
    Held held{file, {}, 0};
    for (size_t i = 0; i < _consumers.size(); ++i) {
        const bool isSettled = entry.works[i].state == WorkRecord::State::Settled;
        held.stages.push_back(isSettled ? Stage::Settled : Stage::Ready);
        if (isSettled)
            continue;
        ++held.unsettled;
        ++_consumers[i].unsettled;
        _consumers[i].oldest = std::min(_consumers[i].oldest, file->number);
    }
    file->unended = static_cast<int>(held.unsettled);
    _byName.insert(file->name, file);
    _held.emplace_hint(_held.end(), file->number, std::move(held));
    return file;
}

void RunnerFiles::drop(const FilePointer& file)
{
    file->isGone = true;
    const auto held = _held.find(file->number);
    for (size_t i = 0; i < _consumers.size(); ++i) {
        const Stage stage = held->second.stages[i];
        if (stage != Stage::Settled)
            --_consumers[i].unsettled;
        if (stage == Stage::Paused)
            --_consumers[i].paused;
    }
    _held.erase(held);
    _byName.remove(file->name);
}

void RunnerFiles::pause(int consumer, const QueuedFile& file)
{
    stageOf(consumer, file) = Stage::Paused;
    ++at(consumer).paused;
}

void RunnerFiles::resume(int consumer, const QueuedFile& file)
{
    stageOf(consumer, file) = Stage::Ready;
    --at(consumer).paused;
}

bool RunnerFiles::settle(int consumer, const QueuedFile& file)
{
    Stage& stage = stageOf(consumer, file);
    if (stage == Stage::Settled)
        return false;
    stage = Stage::Settled;
    --at(consumer).unsettled;
    return --_held.at(file.number).unsettled == 0;
}

void RunnerFiles::countDone(int consumer)
{
    ++at(consumer).done;
}

void RunnerFiles::countQuarantined(int consumer)
{
    ++at(consumer).quarantined;
}

RunnerProgress RunnerFiles::progress(const std::vector<qint64>& running)
{
    RunnerProgress progress;
    progress.files = _byName.size();
    for (size_t i = 0; i < _consumers.size(); ++i)
        progress.consumers.append(progressOf(i, running[i]));
    return progress;
}

RunnerFiles::Consumer& RunnerFiles::at(int consumer)
{
    return _consumers[static_cast<size_t>(consumer)];
}

RunnerFiles::Stage& RunnerFiles::stageOf(int consumer, const QueuedFile& file)
{
    return _held.at(file.number).stages[static_cast<size_t>(consumer)];
}

ConsumerProgress RunnerFiles::progressOf(size_t consumer, qint64 running)
{
    Consumer& counted = _consumers[consumer];
    ConsumerProgress progress;
    progress.id = counted.id;
    progress.done = counted.done;
    progress.quarantined = counted.quarantined;
    progress.retrying = counted.paused;
    const qint64 untaken = counted.unsettled - counted.paused;
    progress.running = std::min(running, untaken);
    progress.waiting = untaken - progress.running;
    auto oldest = _held.lower_bound(counted.oldest);
    while (oldest != _held.end() && oldest->second.stages[consumer] == Stage::Settled)
        ++oldest;
    counted.oldest = std::numeric_limits<quint64>::max();
    if (oldest != _held.end()) {
        const QueuedFile& file = *oldest->second.file;
        counted.oldest = file.number;
        progress.oldest = file.name;
        progress.oldestSince = QDateTime::fromMSecsSinceEpoch(file.stamp.changed / 1'000'000);
    }
    return progress;
}

} // namespace KezService
