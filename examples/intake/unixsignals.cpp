// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "unixsignals.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace intake {

UnixSignals::UnixSignals(QObject* parent) : QObject(parent)
{
    sigset_t handled;
    sigemptyset(&handled);
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&handled, number);
    if (const int error = pthread_sigmask(SIG_BLOCK, &handled, nullptr); error != 0)
        throw std::system_error(error, std::generic_category(), "pthread_sigmask");
    _descriptor = signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK);
    if (_descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "signalfd");
}

UnixSignals::~UnixSignals()
{
    ::close(_descriptor);
}

void UnixSignals::listen()
{
    auto* notifier = new QSocketNotifier(_descriptor, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &UnixSignals::readOne);
}

void UnixSignals::readOne()
{
    signalfd_siginfo info{};
    if (::read(_descriptor, &info, sizeof info) != ssize_t{sizeof info})
        return;
    if (info.ssi_signo == SIGHUP) {
        Q_EMIT hangUpReceived();
        return;
    }
    Q_EMIT terminateReceived(info.ssi_signo == SIGINT ? u"SIGINT"_s : u"SIGTERM"_s);
}

} // namespace intake
