// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

#include <cerrno>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

/// A file system of a few megabytes that only this process and its children see. An ordinary user
/// can have one, too, where the system lets users have name spaces. It is gone when they have
/// ended.
class SmallDisk {
public:
    /// Gives the process mounts of its own. To be called while it has one thread. False with errno
    /// if the system does not let it.
    static bool makeMountsPrivate()
    {
        const QByteArray user = mapOf(::getuid());
        const QByteArray group = mapOf(::getgid());
        if (::unshare(CLONE_NEWNS) != 0) {
            if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
                return false;
            if (!write("/proc/self/setgroups", "deny") || !write("/proc/self/uid_map", user) ||
                !write("/proc/self/gid_map", group))
                return false;
        }
        return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }

    SmallDisk() = default;
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk()
    {
        if (isMounted())
            ::umount2(_path.constData(), MNT_DETACH);
    }

    /// False with errno if it cannot be mounted.
    bool mount(const QString& path, int megabytes)
    {
        const QByteArray place = QFile::encodeName(path);
        const QByteArray size = "mode=700,size=" + QByteArray::number(megabytes) + 'M';
        if (::mount("small", place.constData(), "tmpfs", MS_NOSUID | MS_NODEV, size.constData()) !=
            0)
            return false;
        _path = place;
        _filler.setFileName(path + QStringLiteral("/filler"));
        return true;
    }

    bool isMounted() const { return !_path.isEmpty(); }

    /// Takes what is free. To be called again, since others give space back.
    void fill()
    {
        const QByteArray page(4096, '.');
        if (!_filler.isOpen() && !_filler.open(QFile::WriteOnly | QFile::Unbuffered))
            return;
        while (_filler.write(page) == page.size()) {}
    }

    void giveBack()
    {
        _filler.close();
        _filler.remove();
    }

private:
    static QByteArray mapOf(uid_t id)
    {
        const QByteArray number = QByteArray::number(id);
        return number + ' ' + number + " 1";
    }

    static bool write(const char* path, const QByteArray& text)
    {
        QFile file(QString::fromLatin1(path));
        return file.open(QFile::WriteOnly | QFile::Unbuffered) && file.write(text) == text.size();
    }

    QByteArray _path;
    QFile _filler;
};
