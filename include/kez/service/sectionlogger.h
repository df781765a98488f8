// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <kez/iconfigcontroller.h>
#include <kez/log.h>

#include <QString>
#include <QStringList>

#include <memory>

namespace KezService {

/// Checks the "<name>.log.*" keys of a logger that has a name; they are read as the "log.*" keys of
/// the process's log.
///
/// What passes can be built: besides the rules of LoggerConfigController, numbers have to be in
/// range, and the log file has to be one that can be opened, also if its name has no "/" and so
/// belongs to the home directory. Two loggers must not share their files. Nothing is created.
///
/// Each fault names the whole key ("audit.log.filter"), its value, and what would be right.
///
/// *Threads*: one thread at a time.
/// *Owns*: its list of errors, which is never cleared: use a new one for each check.
/// *Fails*: never; one error text per fault.
class KEZ_SERVICE_EXPORT SectionLogController : public IConfigController {
    Q_OBJECT

public:
    /// Checks all loggers that the configuration describes; there need not be any.
    explicit SectionLogController(QObject* parent = nullptr);

    /// Checks the logger `name`, which has to be there. The empty name is that of the process's
    /// log.
    explicit SectionLogController(const QString& name, QObject* parent = nullptr);
    ~SectionLogController() override;

    /// True if this run found no fault; earlier runs do not count.
    bool isLegalConfiguration(Properties* properties) override;

private:
    QString _name; // null: all loggers
};

/// The same check for the process's log, which openLog() opens: of the "log.*" keys, with
/// "log.filename" among them. Use it in the place of LoggerConfigController, which passes
/// "log.kept=-1" and more that openLog() then refuses.
///
///     validatorsOf<ProcessLogController, SectionLogController, ShopController>()
///
/// *Threads*, *Owns*, *Fails*: as SectionLogController.
class KEZ_SERVICE_EXPORT ProcessLogController : public SectionLogController {
    Q_OBJECT

public:
    explicit ProcessLogController(QObject* parent = nullptr);
    ~ProcessLogController() override;
};

/// A new logger as the section `name` of `all` describes it: Config::buildFileSystemLogger() on
/// that section. Its ring of files is held for this process and then repaired, as openLog() does,
/// and the new log says what was done: no other logger of this process may use the ring at that
/// time.
///
/// *Threads*: one thread at a time per ring.
/// *Owns*: nothing; the logger is the caller's.
/// *Fails*: throws Exception with one line per fault that SectionLogController finds, or with the
/// reason why the logger cannot be built, such as another process that holds the ring.
KEZ_SERVICE_EXPORT std::shared_ptr<Logger> buildSectionLogger(const Properties& all,
                                                              const QString& name);

/// Builds every logger that `all` describes in a section, as buildSectionLogger() does, and
/// registers each in `log` under the section's name. Returns these names, in order.
///
/// *Threads*: one thread, at start-up.
/// *Owns*: nothing; `log` holds the loggers.
/// *Fails*: all or nothing: throws Exception with one line per fault of any section, and then no
/// logger is registered. A name that is taken in `log` is a fault, too.
KEZ_SERVICE_EXPORT QStringList registerSectionLoggers(const Properties& all, Log& log);

/// The same with the process's log.
KEZ_SERVICE_EXPORT QStringList registerSectionLoggers(const Properties& all);

} // namespace KezService
