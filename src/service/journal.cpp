// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/journal_p.h"

#include "service/durablefiles_p.h"
#include "service/filestate_p.h"
#include "service/journallines_p.h"
#include "service/kittexts_p.h"
#include "service/spoolplaces_p.h"

#include <kez/log.h>

#include <QDateTime>
#include <QFile>
#include <QRandomGenerator>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace KezService {

namespace {

constexpr qint64 LargestRead = qint64{1} << 30; // bytes
constexpr qint64 SmallestCompacted = qint64{1} << 20;
constexpr int GrowthBeforeCompaction = 4;
constexpr std::chrono::seconds FirstAttemptPause{1};
constexpr std::chrono::seconds LongestAttemptPause{300};
constexpr qsizetype KeyLength = 32;
constexpr quint64 LargestNumber = quint64{1} << 62; // leaves room for those that follow

void writeConsumers(JournalLineWriter& lines, const QStringList& consumers)
{
    int number = 0;
    for (const QString& consumer : consumers) {
        lines << 'C' << number++ << consumer;
        lines.end();
    }
}

void writeFile(JournalLineWriter& lines, const Journal::Entry& entry)
{
    const FileStamp& stamp = entry.stamp;
    lines << 'F' << entry.number << entry.key << stamp.inode << stamp.birth << stamp.size
          << stamp.modified << stamp.changed << int{entry.isLinked} << entry.name;
    lines.end();
}

void writeWork(JournalLineWriter& lines, quint64 number, int consumer, const WorkRecord& work)
{
    if (work.tries != 0 || work.strikes != 0) {
        lines << 'T' << number << consumer << int{work.tries} << int{work.strikes};
        lines.end();
    }
    if (work.hasCompany) {
        lines << char{Journal::Step::Joined} << number << consumer;
        lines.end();
    }
    if (work.state == WorkRecord::State::Waiting)
        return;
    const bool isBegun = work.state == WorkRecord::State::Begun;
    lines << char{isBegun ? Journal::Step::Begun : Journal::Step::Done} << number << consumer;
    lines.end();
}

QString newKey()
{
    std::array<quint32, 4> random{};
    QRandomGenerator::global()->fillRange(random.data(), std::ssize(random));
    return QString::fromLatin1(
        QByteArray::fromRawData(reinterpret_cast<const char*>(random.data()), sizeof random)
            .toHex());
}

bool isKey(const QString& text)
{
    return text.size() == KeyLength && std::all_of(text.begin(), text.end(), [](QChar character) {
               return QStringView(u"0123456789abcdef").contains(character);
           });
}

quint16 narrowed(quint64 number)
{
    return static_cast<quint16>(std::min<quint64>(number, std::numeric_limits<quint16>::max()));
}

quint16 counted(quint16 number)
{
    return narrowed(quint64{number} + 1);
}

void applyTo(WorkRecord& work, Journal::Step::Kind kind)
{
    using State = WorkRecord::State;
    switch (kind) {
    case Journal::Step::Begun:
        work.state = State::Begun;
        return;
    case Journal::Step::Joined:
        work.hasCompany = work.state != State::Settled;
        return;
    case Journal::Step::Done:
        work.state = State::Settled;
        break;
    case Journal::Step::Retried:
        work.state = State::Waiting;
        work.tries = counted(work.tries);
        break;
    case Journal::Step::Left:
        work.hasCompany = false;
        if (work.state != State::Begun) // it has just ended, or its verdict stands
            return;
        work.state = State::Waiting;
        break;
    }
    work.hasCompany = false;
    work.strikes = 0; // it ended normally
}

/// Whether work that is suspected of having ended the process was alone when the process died.
bool isCause(const WorkRecord& work)
{
    return work.state == WorkRecord::State::Begun && work.strikes > 0 && !work.hasCompany;
}

} // namespace

/// Reads the lines of a journal's file.
class Journal::Reader {
public:
    explicit Reader(Journal& journal) : _journal(journal) {}

    /// Empty if the text is sound, except perhaps for an end that breaks off; otherwise what is
    /// wrong with it.
    QString read(const QByteArray& text)
    {
        if (!text.startsWith(QByteArrayView(JournalHeader)))
            return kitText("JournalForeign");
        qsizetype start = std::ssize(JournalHeader);
        for (qsizetype number = 2; start < text.size(); ++number) {
            const qsizetype end = text.indexOf('\n', start);
            if (end < 0)
                break;
            if (!readLine(text.mid(start, end - start)))
                return kitText("JournalLineDamaged", QString::number(number));
            start = end + 1;
        }
        _soundSize = start;
        return QString();
    }

    /// The bytes up to an end that breaks off.
    qint64 soundSize() const { return _soundSize; }

private:
    bool readLine(const QByteArray& line)
    {
        if (!_line.read(line))
            return false;
        apply();
        return _line.isSound();
    }

    void apply()
    {
        if (_line.isLine("C", 2))
            readConsumer();
        else if (_line.isLine("F", 9))
            readFile();
        else if (_line.isLine("T", 4))
            readCounts();
        else if (_line.isLine("K", 1))
            readLink();
        else if (_line.isLine("X", 1))
            _journal._entries.erase(_line.number(1));
        else if (_line.isLine("BJDRL", 2))
            readStep(static_cast<Step::Kind>(_line.kind()));
        else
            _line.require(false);
    }

    void readConsumer()
    {
        _consumers.insert(_line.number(1), _journal._consumers.indexOf(_line.text(2)));
    }

    void readFile()
    {
        Entry entry;
        entry.number = _line.number(1);
        entry.key = _line.text(2);
        entry.stamp.inode = _line.number(3);
        entry.stamp.birth = _line.optionalNumber(4);
        entry.stamp.size = _line.signedNumber(5);
        entry.stamp.modified = _line.signedNumber(6);
        entry.stamp.changed = _line.signedNumber(7);
        entry.isLinked = _line.number(8) != 0;
        entry.name = _line.text(9);
        entry.works.resize(static_cast<size_t>(_journal._consumers.size()));
        _line.require(entry.number != 0 && entry.number <= LargestNumber && isKey(entry.key));
        _journal._lastNumber = std::max(_journal._lastNumber, entry.number);
        _journal._entries[entry.number] = entry;
    }

    void readCounts()
    {
        if (WorkRecord* const found = work()) {
            found->tries = narrowed(_line.number(3));
            found->strikes = narrowed(_line.number(4));
        }
    }

    void readLink()
    {
        const auto entry = _journal._entries.find(_line.number(1));
        if (entry != _journal._entries.end())
            entry->second.isLinked = true;
    }

    void readStep(Step::Kind kind)
    {
        if (WorkRecord* const found = work())
            applyTo(*found, kind);
    }

    /// What fields 1 and 2 name; null for a consumer or a file that is there no more.
    WorkRecord* work()
    {
        const auto entry = _journal._entries.find(_line.number(1));
        const qsizetype consumer = _consumers.value(_line.number(2), -1);
        const bool isKnown = entry != _journal._entries.end() && consumer >= 0;
        return isKnown ? &entry->second.works[static_cast<size_t>(consumer)] : nullptr;
    }

    Journal& _journal;
    QHash<quint64, qsizetype> _consumers; // positions by number; -1 if it is there no more
    JournalLineReader _line;
    qint64 _soundSize = 0;
};

Journal::Journal(const QString& spool, const QStringList& consumers, bool isKept)
    : _path(SpoolPlaces::journal(spool)), _consumers(consumers), _isKept(isKept)
{
    if (!_isKept)
        return;
    load();
    append(addStrikes());
    compact();
}

qint64 Journal::longestBefore(qint64 compacted)
{
    const qint64 longest = std::min(GrowthBeforeCompaction * compacted,
                                    std::max(LargestRead / 2, compacted + compacted / 4));
    return std::max(SmallestCompacted, longest);
}

bool Journal::hasStrikes() const
{
    return _hasStrikes;
}

void Journal::reserve(qsizetype files)
{
    const std::lock_guard lock(_mutex);
    _entries.reserve(static_cast<size_t>(files));
    _numbers.reserve(files);
}

void Journal::sortByEntry(QStringList& names) const
{
    const std::lock_guard lock(_mutex);
    if (_numbers.isEmpty())
        return;
    const auto numberOf = [this](const QString& name) {
        return _numbers.value(name, std::numeric_limits<quint64>::max());
    };
    std::stable_sort(names.begin(), names.end(), [&numberOf](const QString& a, const QString& b) {
        return numberOf(a) < numberOf(b);
    });
}

std::vector<Journal::Entry> Journal::enter(const std::vector<NamedStamp>& files)
{
    const std::lock_guard lock(_mutex);
    std::vector<Entry> entered;
    entered.reserve(files.size());
    std::string text;
    JournalLineWriter lines(text);
    for (const auto& [name, stamp] : files) {
        const auto known = _entries.find(_numbers.value(name));
        if (known != _entries.end() && known->second.isOf(stamp)) {
            known->second.isPresent = true;
            entered.push_back(known->second);
            continue;
        }
        if (known != _entries.end()) {
            lines << 'X' << known->first;
            lines.end();
            _entries.erase(known);
        }
        entered.push_back(newEntry(name, stamp));
        writeFile(lines, entered.back());
    }
    append(text);
    return entered;
}

void Journal::record(std::span<const Step> steps)
{
    std::string text;
    JournalLineWriter lines(text);
    for (const Step& step : steps) {
        lines << char{step.kind} << step.number << step.consumer;
        lines.end();
    }
    const std::lock_guard lock(_mutex);
    for (const Step& step : steps) {
        const auto entry = _entries.find(step.number);
        if (entry != _entries.end())
            applyTo(entry->second.works[static_cast<size_t>(step.consumer)], step.kind);
    }
    append(text);
}

void Journal::recordLink(quint64 number)
{
    std::string text;
    JournalLineWriter lines(text);
    lines << 'K' << number;
    lines.end();
    const std::lock_guard lock(_mutex);
    const auto entry = _entries.find(number);
    if (entry == _entries.end())
        return;
    entry->second.isLinked = true;
    append(text);
}

void Journal::forget(const std::vector<quint64>& numbers)
{
    std::string text;
    JournalLineWriter lines(text);
    const std::lock_guard lock(_mutex);
    for (const quint64 number : numbers) {
        const auto entry = _entries.find(number);
        if (entry == _entries.end())
            continue;
        if (_numbers.value(entry->second.name) == number)
            _numbers.remove(entry->second.name);
        _entries.erase(entry);
        lines << 'X' << number;
        lines.end();
    }
    append(text);
}

void Journal::forgetAbsent()
{
    std::vector<quint64> absent;
    {
        const std::lock_guard lock(_mutex);
        for (const auto& [number, entry] : _entries) {
            if (!entry.isPresent)
                absent.push_back(number);
        }
    }
    forget(absent);
}

void Journal::sync()
{
    const std::lock_guard lock(_mutex);
    if (!_isKept)
        return;
    if (_file.isOpen() && !isInPlace()) {
        Log::getInstance()->warning(kitText("JournalRemoved", shownName(_path)));
        _file.close();
        _nextAttempt = {};
    }
    const bool isTooLong = _size > longestBefore(_compactedSize);
    if ((isTooLong || !_file.isOpen()) && Clock::now() >= _nextAttempt)
        rewrite();
    if (!_file.isOpen() || !std::exchange(_isUnsynced, false))
        return;
    if (const int error = syncFile(_file.get()); error != 0)
        giveUp(error);
}

void Journal::compact()
{
    const std::lock_guard lock(_mutex);
    if (_isKept)
        rewrite();
}

void Journal::load()
{
    const Descriptor file = openFile(QFile::encodeName(_path), O_RDONLY | O_NONBLOCK | O_NOFOLLOW);
    const int error = file.isOpen() ? 0 : errno;
    if (error == ENOENT)
        return;
    struct stat info {};
    const bool isThere = ::lstat(QFile::encodeName(_path).constData(), &info) == 0;
    QString fault;
    if (isThere && (!S_ISREG(info.st_mode) || info.st_size > LargestRead))
        fault = kitText("JournalForeign");
    else if (error != 0)
        raise("JournalUnreadable", shownName(_path), systemErrorText(error));
    else
        fault = read(file);
    if (fault.isEmpty()) {
        goOnWithFile();
    } else {
        _entries.clear();
        _lastNumber = 0;
        putAside(fault);
    }
    for (const auto& [number, entry] : _entries) {
        quint64& newest = _numbers[entry.name];
        newest = std::max(newest, number);
    }
}

/// Returns what is wrong with the text, if anything is.
QString Journal::read(const Descriptor& file)
{
    QFile device;
    const bool isOpen = device.open(file.get(), QIODevice::ReadOnly);
    const QByteArray text = isOpen ? device.readAll() : QByteArray();
    if (!isOpen || device.error() != QFileDevice::NoError)
        raise("JournalUnreadable", shownName(_path), device.errorString());
    Reader reader(*this);
    const QString fault = reader.read(text);
    _size = reader.soundSize();
    return fault;
}

/// Makes the file that was read ready for further lines: on a full disk there often is room for
/// them, and not for a new file.
void Journal::goOnWithFile()
{
    Descriptor file = openFile(QFile::encodeName(_path), O_WRONLY | O_APPEND | O_NOFOLLOW);
    if (!file.isOpen() || ::ftruncate(file.get(), _size) != 0)
        return;
    _file = std::move(file);
    _compactedSize = _size;
}

void Journal::putAside(const QString& why)
{
    const QString moment = QDateTime::currentDateTimeUtc().toString(u"yyyyMMdd-HHmmss-zzz");
    QString aside = _path + QStringLiteral(".aside-") + moment;
    int error = EEXIST;
    for (int number = 2; error == EEXIST; ++number) {
        error = renameWithoutReplacing(QFile::encodeName(_path), QFile::encodeName(aside));
        if (error == EEXIST)
            aside = _path + QStringLiteral(".aside-%1-%2").arg(moment).arg(number);
    }
    if (error != 0)
        raise("JournalUnreadable", shownName(_path), systemErrorText(error));
    Log::getInstance()->critical(
        kitText("JournalPutAside", shownName(_path), why, shownName(aside)));
}

/// The process died during the work that had begun. Returns the lines that say so.
std::string Journal::addStrikes()
{
    std::string text;
    JournalLineWriter lines(text);
    writeConsumers(lines, _consumers);
    const bool isCauseFound = std::any_of(_entries.begin(), _entries.end(), [](const auto& entry) {
        const std::vector<WorkRecord>& works = entry.second.works;
        return std::any_of(works.begin(), works.end(), isCause);
    });
    for (auto& [number, entry] : _entries) {
        int consumer = 0;
        for (WorkRecord& work : entry.works) {
            const bool isChanged = work.state == WorkRecord::State::Begun || work.hasCompany;
            if (work.state == WorkRecord::State::Begun) {
                if (!isCauseFound || isCause(work))
                    work.strikes = counted(work.strikes);
                work.state = WorkRecord::State::Waiting;
            }
            work.hasCompany = false;
            if (isChanged) {
                lines << char{Step::Left} << number << consumer;
                lines.end();
                writeWork(lines, number, consumer, work);
            }
            _hasStrikes = _hasStrikes || work.strikes != 0;
            ++consumer;
        }
    }
    return text;
}

Journal::Entry& Journal::newEntry(const QString& name, const FileStamp& stamp)
{
    const quint64 number = ++_lastNumber;
    Entry& entry = _entries[number];
    entry.number = number;
    entry.key = newKey();
    entry.name = name;
    entry.stamp = stamp;
    entry.isPresent = true;
    entry.works.resize(static_cast<size_t>(_consumers.size()));
    _numbers.insert(name, number);
    return entry;
}

/// Whether the open file is still the one at the path.
bool Journal::isInPlace() const
{
    return isNameOf(QFile::encodeName(_path), _file.get()).value_or(true); // hidden, perhaps there
}

void Journal::rewrite()
{
    const QByteArray path = QFile::encodeName(_path);
    const std::string text = wholeText();
    int error = replaceFile(path, path + ".new", text);
    Descriptor file = openFile(path, O_WRONLY | O_APPEND | O_NOFOLLOW);
    if (error == 0 && !file.isOpen())
        error = errno;
    if (error != 0) {
        if (_file.isOpen() && isInPlace())
            postpone(); // it only stays long
        else
            giveUp(error);
        return;
    }
    _file = std::move(file);
    _size = _compactedSize = std::ssize(text);
    _isUnsynced = false;
    _attempts.succeed();
    if (std::exchange(_isGivenUp, false))
        Log::getInstance()->info(kitText("JournalWrittenAgain", shownName(_path)));
}

std::string Journal::wholeText() const
{
    std::string text(JournalHeader);
    JournalLineWriter lines(text);
    writeConsumers(lines, _consumers);
    std::vector<const Entry*> entries;
    entries.reserve(_entries.size());
    for (const auto& [number, entry] : _entries)
        entries.push_back(&entry);
    std::sort(entries.begin(), entries.end(),
              [](const Entry* a, const Entry* b) { return a->number < b->number; });
    for (const Entry* const entry : entries) {
        writeFile(lines, *entry);
        int consumer = 0;
        for (const WorkRecord& work : entry->works)
            writeWork(lines, entry->number, consumer++, work);
    }
    return text;
}

void Journal::append(std::string_view lines)
{
    if (!_file.isOpen() || lines.empty())
        return;
    if (const int error = writeAll(_file.get(), lines); error != 0) {
        giveUp(error);
        return;
    }
    _size += std::ssize(lines);
    _isUnsynced = true;
}

/// Goes on without the file, until sync() can write it anew.
void Journal::giveUp(int error)
{
    _file.close();
    if (!std::exchange(_isGivenUp, true))
        Log::getInstance()->critical(
            kitText("JournalNotWritten", shownName(_path), systemErrorText(error)));
    postpone();
}

void Journal::postpone()
{
    _attempts.fail(QString());
    _nextAttempt = Clock::now() + _attempts.pause(FirstAttemptPause, LongestAttemptPause);
}

} // namespace KezService
