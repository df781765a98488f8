// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/directorywatch_p.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <sys/inotify.h>

namespace KezService {

namespace {

constexpr uint32_t Events = IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF |
                            IN_MOVE_SELF | IN_ONLYDIR;

} // namespace

DirectoryWatch::DirectoryWatch() : _events(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{}

int DirectoryWatch::set(const QByteArray& path)
{
    // The same directory has the same number.
    const int watch = ::inotify_add_watch(_events.get(), path.constData(), Events);
    const int error = watch < 0 ? errno : 0;
    if (isWatching() && watch != _watch)
        ::inotify_rm_watch(_events.get(), _watch);
    _watch = watch;
    return error;
}

bool DirectoryWatch::read(const std::function<void(const QByteArray&)>& onName)
{
    bool isListingNeeded = false;
    // NOLINTNEXTLINE(*-member-init): filled by read()
    alignas(inotify_event) std::array<char, 65536> buffer;
    ssize_t size = 0;
    while ((size = ::read(_events.get(), buffer.data(), buffer.size())) > 0) {
        for (ssize_t position = 0; position < size;) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + position, sizeof event);
            const char* const name = buffer.data() + position + sizeof event;
            position += static_cast<ssize_t>(sizeof event + event.len);
            if ((event.mask & IN_Q_OVERFLOW) != 0)
                isListingNeeded = true;
            if (event.wd != _watch || !isWatching())
                continue;
            if ((event.mask & IN_IGNORED) != 0)
                _watch = -1;
            if (event.len == 0)
                isListingNeeded = true;
            else if ((event.mask & IN_ISDIR) == 0)
                onName(QByteArray(name));
        }
    }
    return isListingNeeded;
}

} // namespace KezService
