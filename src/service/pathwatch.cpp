// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/pathwatch_p.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KezService {

namespace {

constexpr int MostLinks = 40; // as the kernel
constexpr int MostWalks = 5;
constexpr int MostReads = 16;

constexpr std::uint32_t OfDirectory = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                      IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t OfFile =
    IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;

/// Goes along a path as the system does, and notes where it could come to lead elsewhere.
class Walk {
public:
    explicit Walk(const QByteArray& path) : _names(path.split('/')) {}

    std::vector<WatchedPlace> places()
    {
        while (!_isAtEnd && !_names.isEmpty())
            step(_names.takeFirst());
        return _places;
    }

private:
    void step(const QByteArray& name)
    {
        if (name.isEmpty() || name == ".")
            return;
        if (name == "..") {
            _directory = _directory.left(std::max<qsizetype>(_directory.lastIndexOf('/'), 0));
            return;
        }
        const QByteArray path = _directory + '/' + name;
        struct stat info {};
        if (::lstat(path.constData(), &info) != 0) {
            note(name);
            _isAtEnd = true;
        } else if (S_ISLNK(info.st_mode)) {
            note(name);
            goThroughLink(path);
        } else if (_names.isEmpty()) {
            note(name);
            _places.push_back({path, QByteArray()});
        } else {
            _directory = path;
        }
    }

    void goThroughLink(const QByteArray& path)
    {
        std::array<char, PATH_MAX> buffer; // NOLINT(*-member-init): filled by readlink()
        const ssize_t size = ::readlink(path.constData(), buffer.data(), buffer.size());
        _isAtEnd = size <= 0 || ++_links > MostLinks;
        if (_isAtEnd)
            return;
        const QByteArray target(buffer.data(), size);
        if (target.startsWith('/'))
            _directory.clear();
        _names = target.split('/') + _names;
    }

    void note(const QByteArray& name)
    {
        _places.push_back({_directory.isEmpty() ? QByteArray("/") : _directory, name});
    }

    QByteArray _directory; // free of links; empty for the root
    QByteArrayList _names; // still to go
    std::vector<WatchedPlace> _places;
    int _links = 0;
    bool _isAtEnd = false;
};

bool isExhausted(int error)
{
    return error == ENOSPC || error == ENOMEM || error == EMFILE || error == ENFILE;
}

} // namespace

PathWatch::PathWatch(const QByteArray& path, QObject* parent) : QObject(parent), _path(path)
{}

PathWatch::~PathWatch() = default;

int PathWatch::follow()
{
    if (const int error = begin(); error != 0)
        return error;
    // What changes after the walk and before the watch shows in the next walk only.
    int error = 0;
    std::vector<WatchedPlace> before;
    std::vector<WatchedPlace> places = Walk(_path).places();
    for (int walks = 0; walks < MostWalks && places != before; ++walks) {
        error = watch(places);
        before = std::exchange(places, Walk(_path).places());
    }
    return error;
}

void PathWatch::stop()
{
    _notifier.reset();
    _queue.close();
    _watches.clear();
}

/// Returns the system's error number, or 0.
int PathWatch::begin()
{
    if (_queue.isOpen())
        return 0;
    _queue = Descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!_queue.isOpen())
        return errno;
    _notifier = std::make_unique<QSocketNotifier>(_queue.get(), QSocketNotifier::Read, this);
    connect(_notifier.get(), &QSocketNotifier::activated, this, &PathWatch::readEvents);
    return 0;
}

int PathWatch::watch(const std::vector<WatchedPlace>& places)
{
    Watches watches;
    int result = 0;
    for (const WatchedPlace& place : places) {
        const std::uint32_t mask = place.name.isEmpty() ? OfFile : OfDirectory;
        const int number = ::inotify_add_watch(_queue.get(), place.path.constData(), mask);
        if (number >= 0)
            watches[number].append(place.name);
        else if (isExhausted(errno))
            result = errno;
    }
    for (const auto& [number, names] : _watches) {
        if (watches.count(number) == 0)
            ::inotify_rm_watch(_queue.get(), number);
    }
    _watches = std::move(watches);
    return result;
}

void PathWatch::readEvents()
{
    alignas(inotify_event) std::array<char, 16384> buffer; // NOLINT(*-member-init): read into
    bool isTouched = false;
    for (int reads = 0; reads < MostReads; ++reads) {
        const ssize_t size = ::read(_queue.get(), buffer.data(), buffer.size());
        if (size <= 0)
            break; // also if a signal interrupts: there will be another notification
        for (const char* next = buffer.data(); next < buffer.data() + size;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(next);
            isTouched = matters(event) || isTouched;
            next += sizeof event + event.len;
        }
    }
    if (!isTouched)
        return;
    follow();
    Q_EMIT touched();
}

bool PathWatch::matters(const inotify_event& event) const
{
    if (event.mask & IN_Q_OVERFLOW)
        return true;
    const auto found = _watches.find(event.wd);
    if (found == _watches.end())
        return false;
    // Without a name, the event is about the watched file or directory itself.
    return event.len == 0 || found->second.contains(QByteArray(event.name));
}

} // namespace KezService
