// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "intakeconsumer.h"

#include "texts.h"

#include <kez/exception.h>
#include <kez/FilesQueue.h>
#include <kez/log.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <memory>

using namespace Qt::StringLiterals;

namespace intake {

namespace {

constexpr int RetryPause = 1000; // ms

} // namespace

IntakeConsumer::IntakeConsumer(const QString& id, const QString& spool, QObject* parent)
    : ConsumerAncestor(id, parent), _spool(spool)
{
    _retry.setSingleShot(true);
    _retry.setInterval(RetryPause);
    connect(&_retry, &QTimer::timeout, this, &IntakeConsumer::retry);
    connect(this, &IntakeConsumer::fileAtHand, this, &IntakeConsumer::handleNext,
            Qt::QueuedConnection);
}

void IntakeConsumer::listenTo(const FilesQueue& queue)
{
    Q_ASSERT(queue.thread() == thread());
    connect(&queue, &FilesQueue::filesNotConsumed, this, &IntakeConsumer::onFilesNotConsumed);
    // Queued: the signal is emitted in the middle of a re-scan.
    connect(&queue, &FilesQueue::queueUpdated, this, &IntakeConsumer::ask, Qt::QueuedConnection);
}

void IntakeConsumer::ask()
{
    if (!_files.isEmpty()) {
        _hasArrivals = true;
        return;
    }
    _hasArrivals = false;
    _isAsking = true;
    Q_EMIT requestForFiles(id());
    _isAsking = false;
    if (!_files.isEmpty())
        Q_EMIT fileAtHand();
}

void IntakeConsumer::retry()
{
    _putOff.clear();
    ask();
}

void IntakeConsumer::onFilesNotConsumed(const QList<QString>& files, bool error)
{
    if (!_isAsking)
        return;
    if (error) {
        Log::getInstance()->critical(files.join(u' '));
        return;
    }
    _complained.intersect(QSet<QString>(files.begin(), files.end()));
    _files.clear();
    std::copy_if(files.begin(), files.end(), std::back_inserter(_files),
                 [this](const QString& name) { return !_putOff.contains(name); });
}

void IntakeConsumer::handleNext()
{
    const QString name = _files.takeFirst();
    try {
        handle(_spool.filePath(name), name);
        report(name);
    } catch (const Exception& failure) {
        putOff(name, failure.detail());
    } catch (const std::exception& failure) {
        putOff(name, QString::fromUtf8(failure.what()));
    }
    if (!_files.isEmpty())
        Q_EMIT fileAtHand();
    else if (_hasArrivals)
        ask();
}

void IntakeConsumer::report(const QString& name)
{
    try {
        Q_EMIT consumed(id(), name);
    } catch (const Exception& failure) {
        Log::getInstance()->warning(
            text("ReportRefused"_L1).arg(printable(name), failure.detail()));
    } catch (Exception* thrown) { // NOLINT(misc-throw-by-value-catch-by-reference)
        const std::unique_ptr<Exception> failure(thrown);
        Log::getInstance()->critical(
            text("ReportRefused"_L1).arg(printable(name), failure->detail()));
    }
}

void IntakeConsumer::putOff(const QString& name, const QString& reason)
{
    _putOff.insert(name);
    if (!_retry.isActive()) // a new failure must not delay the retry of earlier ones
        _retry.start();
    if (_complained.contains(name))
        return;
    _complained.insert(name);
    Log::getInstance()->warning(text("FilePutOff"_L1).arg(printable(name), id(), reason));
}

} // namespace intake
