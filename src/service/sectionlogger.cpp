// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/sectionlogger.h"

#include "frame/directories_p.h"
#include "kez/service/configsection.h"
#include "log/loggerkeys_p.h"
#include "log/ringname_p.h"
#include "service/durablefiles_p.h"
#include "service/kittexts_p.h"
#include "service/ringlogger_p.h"

#include <kez/configuration.h>
#include <kez/loggerconfigcontroller.h>

#include <QDir>
#include <QMultiHash>

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>

namespace KezService {

namespace {

QString logGroup()
{
    return QStringLiteral("log");
}

/// Whether the core's validator passes this entry, beside the file name that is missing here.
bool isLegalEntry(const QString& key, const QString& value)
{
    Properties entry;
    entry.insert(key, value);
    LoggerConfigController controller;
    controller.isLegalConfiguration(&entry);
    return controller.errors().size() == 1;
}

template <typename Number>
bool isNumber(const QString& text)
{
    bool isInRange = false;
    if constexpr (std::is_same_v<Number, quint64>)
        text.toULongLong(&isInRange, 10);
    else
        text.toUInt(&isInRange, 10);
    return isInRange;
}

QString levelNames()
{
    QStringList names;
    for (const LoggerKeys::LevelNames& level : LoggerKeys::Levels)
        names.append(
            QString::fromLatin1(level.validator.data(), qsizetype(level.validator.size())));
    return names.join(QStringLiteral(", "));
}

/// The ring that a logger opens for a file name.
QString ringPattern(const QString& fileName)
{
    return RingName::absolutePattern(RingName::pattern(fileName));
}

QString directoryOf(const QString& pattern)
{
    const qsizetype slash = pattern.lastIndexOf(QLatin1Char('/'));
    return pattern.left(slash == 0 ? 1 : slash);
}

/// The index that a logger goes on with.
quint32 newestIndex(const QString& pattern, quint32 kept)
{
    const QDir directory(directoryOf(pattern));
    const QDir::Filters all = QDir::AllEntries | QDir::Hidden | QDir::System;
    const QStringList names = directory.entryList(all, QDir::Unsorted);
    return RingName::newestIndex(pattern, kept, names).value_or(0);
}

/// The same for two rings that are the same files; empty without a directory.
QString identityOf(const QString& pattern)
{
    const QString canonical = QFileInfo(directoryOf(pattern)).canonicalFilePath();
    return canonical.isEmpty() ? QString() : canonical + QLatin1Char('/') + RingName::head(pattern);
}

/// Why a log file could not be opened: a system error number, or 0. A file that is not there yet
/// can be made, unless a link stands in its place.
int openingError(const QString& fileName)
{
    if (fileName.contains(QChar(0)))
        return EINVAL;
    const QByteArray path = QFile::encodeName(fileName);
    if (openFile(path, O_RDWR | O_APPEND | O_NONBLOCK).isOpen())
        return 0;
    const int error = errno;
    struct stat link {};
    const bool isFree = error == ENOENT && ::lstat(path.constData(), &link) != 0;
    return isFree ? 0 : error;
}

/// The keys that name a logger's files, by the identity of these files.
using FileNameKeys = QMultiHash<QString, QString>;

/// The logger without a name is the process's log: its keys are those of no section.
QString wholeKey(const QString& name, const QString& key)
{
    return name.isEmpty() ? key : name + QLatin1Char('.') + key;
}

Properties entriesOf(const Properties& all, const QString& name)
{
    return name.isEmpty() ? all : section(all, name);
}

FileNameKeys fileNameKeys(const Properties& all)
{
    QStringList keys = {LoggerKeys::FileName};
    for (const QString& name : sectionsWith(all, logGroup()))
        keys.append(wholeKey(name, LoggerKeys::FileName));
    FileNameKeys found;
    for (const QString& key : std::as_const(keys)) {
        if (all.contains(key) && !all.value(key).isEmpty())
            found.insert(identityOf(ringPattern(all.value(key))), key);
    }
    return found;
}

/// The faults of one section that describes a logger.
class SectionCheck {
public:
    SectionCheck(const Properties& all, const QString& name, const FileNameKeys& fileNames)
        : _name(name), _entries(entriesOf(all, name)), _fileNames(fileNames)
    {}

    QStringList faults()
    {
        checkFileName();
        checkNumber<quint64>(LoggerKeys::MaxSize);
        checkNumber<quint32>(LoggerKeys::Kept);
        checkNumber<quint32>(LoggerKeys::Timeout);
        checkEntry(LoggerKeys::Tee, "ConfigNoYesNo");
        checkEntry(LoggerKeys::ConfigBannerProperties, "ConfigNoYesNo");
        checkEntry(LoggerKeys::ConfigBannerTitle, "ConfigForeignMarker", QStringLiteral("%1"));
        checkEntry(LoggerKeys::Filter, "ConfigNoLevel", levelNames());
        return _faults;
    }

private:
    template <typename... Arguments>
    void insert(const char* text, const QString& key, const Arguments&... arguments)
    {
        _faults.append(kitText(text, shownName(wholeKey(_name, key)),
                               shownName(_entries.value(key)), shownName(arguments)...));
    }

    template <typename... Arguments>
    void checkEntry(const QString& key, const char* text, const Arguments&... arguments)
    {
        if (_entries.contains(key) && !isLegalEntry(key, _entries.value(key)))
            insert(text, key, arguments...);
    }

    template <typename Number>
    void checkNumber(const QString& key)
    {
        if (_entries.contains(key) && !isNumber<Number>(_entries.value(key)))
            insert("ConfigNoNumber", key, QString::number(std::numeric_limits<Number>::max()));
    }

    void checkFileName()
    {
        const QString key = LoggerKeys::FileName;
        if (!_entries.contains(key) || _entries.value(key).isEmpty()) {
            _faults.append(kitText("ConfigNoFileName", shownName(wholeKey(_name, key)),
                                   _name.isEmpty() ? QStringLiteral("app") : shownName(_name)));
            return;
        }
        const QString pattern = ringPattern(_entries.value(key));
        // The core's validator looks at the working directory for a name without "/".
        const QString checked = QFileInfo(_entries.value(key)).absolutePath();
        for (const QString& directory : {checked, directoryOf(pattern)}) {
            if (!isUsableDirectory(directory)) {
                insert("ConfigNoLogDirectory", key, directory);
                return;
            }
        }
        checkFiles(pattern);
        for (const QString& other : _fileNames.values(identityOf(pattern))) {
            if (other != wholeKey(_name, key))
                insert("ConfigSharedLogFile", key, other);
        }
    }

    /// The newest file, with which the logger goes on, and the one with the longest name.
    void checkFiles(const QString& pattern)
    {
        const quint32 kept = keptFiles();
        for (const quint32 index : {newestIndex(pattern, kept), kept - 1}) {
            const QString fileName = RingName::withIndex(pattern, index);
            const int error = openingError(fileName);
            if (error == 0)
                continue;
            insert("ConfigNoLogFile", LoggerKeys::FileName, fileName, systemErrorText(error));
            return;
        }
    }

    quint32 keptFiles() const
    {
        if (!_entries.contains(LoggerKeys::Kept))
            return LoggerKeys::ConfigDefaults.kept;
        const quint32 kept = _entries.value(LoggerKeys::Kept).toUInt();
        return kept == 0 ? LoggerKeys::KeptForZero : kept;
    }

    QString _name;
    Properties _entries;
    const FileNameKeys& _fileNames;
    QStringList _faults;
};

QStringList faultsOf(const Properties& all, const QStringList& names)
{
    const FileNameKeys fileNames = fileNameKeys(all);
    QStringList faults;
    for (const QString& name : names)
        faults += SectionCheck(all, name, fileNames).faults();
    return faults;
}

void raiseFaults(const QStringList& faults)
{
    if (!faults.isEmpty())
        throw Exception(faults.join(QLatin1Char('\n')));
}

/// What passed the check may still fail, if the disk changed meanwhile.
std::shared_ptr<Logger> buildChecked(const Properties& all, const QString& name)
{
    const Properties entries = entriesOf(all, name);
    try {
        const RingLogger built = buildRingLogger(entries);
        built.report.logTo(*built.logger);
        return built.logger;
    } catch (const Exception& e) {
        raise("ConfigLoggerNotBuilt", shownName(wholeKey(name, LoggerKeys::FileName)),
              shownName(entries.value(LoggerKeys::FileName)), e.detail());
    }
}

} // namespace

SectionLogController::SectionLogController(QObject* parent) : IConfigController(parent)
{}

SectionLogController::SectionLogController(const QString& name, QObject* parent)
    : IConfigController(parent), _name(name.isNull() ? QStringLiteral("") : name)
{}

SectionLogController::~SectionLogController() = default;

ProcessLogController::ProcessLogController(QObject* parent)
    : SectionLogController(QString(), parent)
{}

ProcessLogController::~ProcessLogController() = default;

bool SectionLogController::isLegalConfiguration(Properties* properties)
{
    if (!properties) {
        insertError(kitText("ConfigNoProperties"));
        return false;
    }
    const QStringList names =
        _name.isNull() ? sectionsWith(*properties, logGroup()) : QStringList(_name);
    const QStringList faults = faultsOf(*properties, names);
    for (const QString& fault : faults)
        insertError(fault);
    return faults.isEmpty();
}

std::shared_ptr<Logger> buildSectionLogger(const Properties& all, const QString& name)
{
    raiseFaults(faultsOf(all, {name}));
    return buildChecked(all, name);
}

QStringList registerSectionLoggers(const Properties& all, Log& log)
{
    const QStringList names = sectionsWith(all, logGroup());
    QStringList faults = faultsOf(all, names);
    for (const QString& name : names) {
        if (log.containsLogger(name))
            faults.append(kitText("ConfigLoggerTaken", shownName(name)));
    }
    raiseFaults(faults);

    QList<std::shared_ptr<Logger>> built;
    for (const QString& name : names) {
        try {
            built.append(buildChecked(all, name));
        } catch (const Exception& e) {
            faults.append(e.detail());
        }
    }
    raiseFaults(faults);
    for (qsizetype i = 0; i < names.size(); ++i)
        log.insertLoggger(names[i], built[i]);
    return names;
}

QStringList registerSectionLoggers(const Properties& all)
{
    return registerSectionLoggers(all, *Log::getInstance());
}

} // namespace KezService
