// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>

#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

/// While it lives, it collects what the process writes to its standard error. There can be one at a
/// time.
class StandardErrorCapture {
public:
    StandardErrorCapture()
        : _before(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)), _file(memfd_create("stderr", 0))
    {
        fcntl(_file, F_SETFL, O_APPEND);
        dup2(_file, STDERR_FILENO);
    }
    ~StandardErrorCapture()
    {
        fflush(stderr);
        dup2(_before, STDERR_FILENO);
        close(_before);
        close(_file);
    }
    StandardErrorCapture(const StandardErrorCapture&) = delete;
    StandardErrorCapture& operator=(const StandardErrorCapture&) = delete;

    QByteArray bytes() const
    {
        fflush(stderr);
        struct stat info {};
        if (fstat(_file, &info) != 0)
            return {};
        QByteArray bytes(info.st_size, '\0');
        bytes.truncate(pread(_file, bytes.data(), static_cast<size_t>(bytes.size()), 0));
        return bytes;
    }

private:
    const int _before;
    const int _file;
};
