// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/logringcheck.h"

#include "log/loggerkeys_p.h"
#include "log/ringname_p.h"
#include "service/durablefiles_p.h"
#include "service/kittexts_p.h"

#include <kez/logger.h>

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace KezService {

namespace {

const QLatin1String LogSuffix(".log");
const QLatin1String MovingSuffix(".moving");
const QLatin1String AsideSuffix(".aside");

/// How many files of one name are put aside before the next one stays where it is.
constexpr int MostAside = 10000;

struct RingFile {
    quint32 index = 0;
    bool isMoving = false; ///< on its way down from an index above the ring
    QString name;
    QString origin; ///< the name under which it was listed
};

/// The digits in "<digits>.log"; nothing if the text is not of that form.
std::optional<QStringView> digitsIn(QStringView text)
{
    if (!text.endsWith(LogSuffix))
        return std::nullopt;
    const QStringView digits = text.chopped(LogSuffix.size());
    const auto isDigit = [](QChar c) { return c >= QLatin1Char('0') && c <= QLatin1Char('9'); };
    const bool isNumber = !digits.isEmpty() && std::all_of(digits.begin(), digits.end(), isDigit);
    return isNumber ? std::optional(digits) : std::nullopt;
}

/// The index that a logger writes like that: without leading zeros.
std::optional<quint32> indexIn(QStringView digits)
{
    bool fits = false;
    const quint32 index = digits.toUInt(&fits);
    return fits && digits == QString::number(index) ? std::optional(index) : std::nullopt;
}

/// Whether one more byte would be over the process's limit. The signal that this raises may end the
/// process.
bool isAtProcessLimit(off_t size)
{
    rlimit limit{};
    return ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
           static_cast<rlim_t>(size) >= limit.rlim_cur;
}

/// Appends a line feed to a file that does not end with one. The result is the system's error
/// number, or 0, and whether it did so.
std::pair<int, bool> endLine(const QByteArray& path)
{
    const Descriptor file = openFile(path, O_RDWR | O_APPEND | O_NONBLOCK | O_NOCTTY);
    struct stat info {};
    if (!file.isOpen() || ::fstat(file.get(), &info) != 0)
        return {errno, false};
    char last = '\n';
    if (info.st_size > 0 && ::pread(file.get(), &last, 1, info.st_size - 1) < 0)
        return {errno, false};
    if (last == '\n')
        return {0, false};
    const int error = isAtProcessLimit(info.st_size) ? EFBIG : writeAll(file.get(), "\n");
    return {error, error == 0};
}

/// The repair of one ring. The names alone say what a file is, so that a crash leaves nothing but
/// another ring to repair.
class RingRepair {
public:
    RingRepair(const QString& pattern, quint32 kept)
        : _directory(pattern.left(pattern.lastIndexOf(QLatin1Char('/')) + 1)),
          _head(RingName::head(pattern)),
          _kept(kept)
    {}

    RingReport run();

private:
    void list();
    void sortIn(const QString& name, unsigned char type);
    bool isLogFile(const QString& name, unsigned char type) const;
    void tellForeign();

    void putForeignAside();
    bool liftAboveRing();
    bool putOldestAside();
    bool closeGaps();
    void endLastLine();

    bool rename(const QString& from, const QString& to);
    std::optional<QString> putAside(const QString& name);

    QString path(const QString& name) const { return _directory + name; }
    QString shown(const QString& name) const { return shownName(path(name)); }
    QByteArray systemPath(const QString& name) const { return QFile::encodeName(path(name)); }
    QString ringName(quint32 index) const { return _head + QString::number(index) + LogSuffix; }

    template <typename... Arguments>
    void say(const char* key, const Arguments&... arguments)
    {
        _report.texts.append(kitText(key, arguments...));
    }
    template <typename... Arguments>
    void sayFailure(const char* key, const Arguments&... arguments)
    {
        say(key, arguments...);
        _report.isRingSound = false;
    }

    const QString _directory; // with a "/" at its end
    const QString _head;
    const quint32 _kept;
    QList<RingFile> _files; // oldest first
    QStringList _foreign;
    RingReport _report;
};

RingReport RingRepair::run()
{
    list();
    tellForeign();
    putForeignAside();
    if (liftAboveRing() && putOldestAside())
        closeGaps();
    endLastLine();
    return _report;
}

void RingRepair::list()
{
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(
        ::opendir(QFile::encodeName(_directory).constData()), &::closedir);
    errno = directory ? 0 : errno;
    while (const dirent* const entry = directory ? ::readdir(directory.get()) : nullptr) {
        sortIn(QFile::decodeName(entry->d_name), entry->d_type);
        errno = 0;
    }
    if (errno != 0)
        raise("FrameRingNotListed", shownName(_directory), systemErrorText(errno));
}

/// Enters a name into one of the two lists if it has the form of a ring file's.
void RingRepair::sortIn(const QString& name, unsigned char type)
{
    if (!name.startsWith(_head))
        return;
    const bool isMoving = name.endsWith(MovingSuffix);
    const QStringView whole = QStringView(name).sliced(_head.size());
    const auto digits = digitsIn(isMoving ? whole.chopped(MovingSuffix.size()) : whole);
    const auto index = digits ? indexIn(*digits) : std::nullopt;
    if (!digits || (isMoving && !index))
        return;
    if (index && isLogFile(name, type))
        _files.append({*index, isMoving, name, name});
    else
        _foreign.append(name);
}

/// Whether it is what a logger can write to: a regular file, or a link to one.
bool RingRepair::isLogFile(const QString& name, unsigned char type) const
{
    if (type != DT_LNK && type != DT_UNKNOWN)
        return type == DT_REG;
    struct stat info {};
    return ::stat(systemPath(name).constData(), &info) == 0 && S_ISREG(info.st_mode);
}

/// Sorts the files by age and takes out those above the ring, unless they are what is left of a
/// larger one.
void RingRepair::tellForeign()
{
    std::sort(_files.begin(), _files.end(), [](const RingFile& a, const RingFile& b) {
        return std::tie(a.index, a.isMoving) < std::tie(b.index, b.isMoving);
    });
    quint64 end = _kept; // of what is known to be of the ring
    std::optional<quint32> previous;
    const auto isForeign = [&](const RingFile& file) {
        // A file that moved had an index of its own, unless somebody has written since.
        const bool isOfRing = file.isMoving ? file.index != previous : file.index <= end;
        if (!isOfRing)
            return true;
        previous = file.index;
        end = std::max(end, quint64{file.index} + 1);
        return false;
    };
    QList<RingFile> kept;
    for (const RingFile& file : std::as_const(_files)) {
        if (isForeign(file))
            _foreign.append(file.name);
        else
            kept.append(file);
    }
    _files = kept;
}

void RingRepair::putForeignAside()
{
    _foreign.sort();
    for (const QString& name : std::as_const(_foreign)) {
        if (const auto aside = putAside(name))
            say("FrameRingForeign", shown(name), shownName(*aside));
    }
}

/// Gives the files that come down from above the ring a name that says so, the highest first. If
/// they came down at once, a crash would leave a gap above the ring, and what is above that gap
/// would look foreign.
bool RingRepair::liftAboveRing()
{
    const auto staying = std::min<qsizetype>(_files.size(), _kept);
    for (qsizetype i = _files.size() - 1; i >= _files.size() - staying; --i) {
        RingFile& file = _files[i];
        if (file.index < _kept)
            break;
        if (file.isMoving)
            continue;
        const QString name = file.name + MovingSuffix;
        if (!rename(file.name, name))
            return false;
        file.name = name;
        file.isMoving = true;
    }
    return true;
}

bool RingRepair::putOldestAside()
{
    while (_files.size() > qsizetype{_kept}) {
        const auto aside = putAside(_files.first().name);
        if (!aside)
            return false;
        say("FrameRingTooMany", shown(_files.first().origin), shownName(*aside),
            QString::number(_kept));
        _files.removeFirst();
    }
    return true;
}

/// The lowest first: so no two files change their order, whatever interrupts it.
bool RingRepair::closeGaps()
{
    quint32 index = 0;
    for (RingFile& file : _files) {
        const QString name = ringName(index++);
        if (file.name == name)
            continue;
        if (!rename(file.name, name))
            return false;
        file.name = name;
        say("FrameRingMoved", shown(file.origin), shownName(name));
        _report.moved.append({path(file.origin), path(name)});
    }
    return true;
}

/// The newest file is the only one to which the logger appends.
void RingRepair::endLastLine()
{
    if (_files.isEmpty())
        return;
    const QString& name = _files.last().name;
    const auto [error, isEnded] = endLine(systemPath(name));
    if (error != 0)
        sayFailure("FrameRingNotEnded", shown(name), systemErrorText(error));
    if (!isEnded)
        return;
    say("FrameRingEnded", shown(name));
    _report.ended = path(name);
}

bool RingRepair::rename(const QString& from, const QString& to)
{
    const int error = renameWithoutReplacing(systemPath(from), systemPath(to));
    if (error != 0)
        sayFailure("FrameRingNotRenamed", shown(from), shownName(to), systemErrorText(error));
    return error == 0;
}

/// The name under which it is now, or nothing after a failure.
std::optional<QString> RingRepair::putAside(const QString& name)
{
    const QString aside =
        (name.endsWith(MovingSuffix) ? name.chopped(MovingSuffix.size()) : name) + AsideSuffix;
    QString to = aside;
    int error = EEXIST;
    for (int i = 2; error == EEXIST && i <= MostAside; ++i) {
        error = renameWithoutReplacing(systemPath(name), systemPath(to));
        if (error == 0) {
            _report.putAside.append({path(name), path(to)});
            return to;
        }
        if (error == EEXIST)
            to = aside + QLatin1Char('-') + QString::number(i);
    }
    sayFailure("FrameRingNotRenamed", shown(name), shownName(aside), systemErrorText(error));
    return std::nullopt;
}

} // namespace

void RingReport::logTo(Logger& logger) const
{
    for (const QString& text : texts)
        logger.warning(text);
}

RingReport checkLogRing(const QString& fileName, quint32 kept)
{
    const QString pattern = RingName::absolutePattern(RingName::pattern(fileName));
    return RingRepair(pattern, kept == 0 ? LoggerKeys::KeptForZero : kept).run();
}

} // namespace KezService
