// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QtGlobal>

/// Sets an environment variable while it lives, or unsets it if the value is null.
class EnvironmentGuard {
public:
    EnvironmentGuard(const char* name, const QByteArray& value)
        : _name(name), _wasSet(qEnvironmentVariableIsSet(name)), _previous(qgetenv(name))
    {
        if (value.isNull())
            qunsetenv(name);
        else
            qputenv(name, value);
    }
    ~EnvironmentGuard()
    {
        if (_wasSet)
            qputenv(_name, _previous);
        else
            qunsetenv(_name);
    }
    EnvironmentGuard(const EnvironmentGuard&) = delete;
    EnvironmentGuard& operator=(const EnvironmentGuard&) = delete;

private:
    const char* _name;
    bool _wasSet;
    QByteArray _previous;
};
