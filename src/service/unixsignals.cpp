// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/unixsignals.h"

#include "service/kittexts_p.h"

#include <QSocketNotifier>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace KezService {

namespace {

constexpr std::array<int, 3> Numbers{SIGTERM, SIGINT, SIGHUP};

// A handler knows nothing but global variables. The pipe is never closed while its process lives: a
// handler may be running in another thread when the object is destroyed, and would write into
// another file.
constinit std::atomic<pid_t> receiver{0};  // the process that has an object; 0 for none
constinit std::atomic<pid_t> pipeOwner{0}; // the process that has made the pipe
constinit std::atomic<int> readEnd{-1};
constinit std::atomic<int> writeEnd{-1};

extern "C" void writeNumber(int number)
{
    const int error = errno;
    if (::getpid() == pipeOwner) {
        const auto byte = static_cast<unsigned char>(number);
        [[maybe_unused]] const ssize_t written = ::write(writeEnd, &byte, sizeof byte);
    } else { // a forked child: it ends when this function returns
        ::signal(number, SIG_DFL);
        ::raise(number);
    }
    errno = error;
}

/// Those of the three signals for which `isMember(number)` holds.
template <typename Predicate>
sigset_t signalSet(Predicate isMember)
{
    sigset_t set{};
    sigemptyset(&set);
    for (const int number : Numbers) {
        if (isMember(number))
            sigaddset(&set, number);
    }
    return set;
}

/// One of the numbers that are waiting; 0 if there is none.
int takeNumber()
{
    unsigned char byte = 0;
    ssize_t count = 0;
    do
        count = ::read(readEnd, &byte, sizeof byte);
    while (count < 0 && errno == EINTR);
    return count == sizeof byte ? byte : 0;
}

/// Makes the pipe, or empties the one that is there. That of a parent process is left to it.
bool openPipe()
{
    if (pipeOwner == ::getpid()) {
        while (takeNumber() != 0) {}
        return true;
    }
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    if (pipeOwner != 0) {
        ::close(readEnd);
        ::close(writeEnd);
    }
    readEnd = ends[0];
    writeEnd = ends[1];
    pipeOwner = ::getpid();
    return true;
}

/// False if this process has an object already. That of its parent is not its own.
bool claim()
{
    const pid_t own = ::getpid();
    pid_t other = receiver;
    return other != own && receiver.compare_exchange_strong(other, own);
}

} // namespace

struct UnixSignals::Private {
    std::array<struct sigaction, Numbers.size()> handlersBefore{};
    sigset_t blockedBefore{};
    const pid_t process = ::getpid();
    bool isListening = false;
    bool isStopping = false;

    void takeOver();
    void giveBack();
};

void UnixSignals::Private::takeOver()
{
    struct sigaction action {};
    action.sa_handler = &writeNumber;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < Numbers.size(); ++i) {
        ::sigaction(Numbers[i], &action, &handlersBefore[i]);
        if (handlersBefore[i].sa_handler == &writeNumber) // of the parent's object
            handlersBefore[i].sa_handler = SIG_DFL;
    }

    // Whoever started the process may have blocked them.
    const sigset_t handled = signalSet([](int) { return true; });
    sigset_t before{};
    ::pthread_sigmask(SIG_UNBLOCK, &handled, &before);
    blockedBefore = signalSet([&](int number) { return sigismember(&before, number) == 1; });
}

void UnixSignals::Private::giveBack()
{
    ::pthread_sigmask(SIG_BLOCK, &blockedBefore, nullptr);
    for (std::size_t i = 0; i < Numbers.size(); ++i)
        ::sigaction(Numbers[i], &handlersBefore[i], nullptr);
}

UnixSignals::UnixSignals(QObject* parent) : QObject(parent), _d(std::make_unique<Private>())
{
    if (!claim())
        raise("FrameSignalsTaken");
    if (!openPipe()) {
        const int error = errno;
        receiver = 0;
        raise("FrameSignalsFailed", systemErrorText(error));
    }
    _d->takeOver();
}

UnixSignals::~UnixSignals()
{
    if (receiver != _d->process) // a child has one of its own, beside this copy of its parent's
        return;
    _d->giveBack();
    receiver = 0;
}

void UnixSignals::listen()
{
    if (_d->isListening)
        return;
    _d->isListening = true;
    const auto* const notifier = new QSocketNotifier(readEnd, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &UnixSignals::readOne);
}

/// One at a time: what a signal starts may destroy this object.
void UnixSignals::readOne()
{
    const int number = takeNumber();
    if (number == SIGHUP) {
        Q_EMIT hangUpReceived();
    } else if (number != 0) {
        const QString name =
            number == SIGINT ? QStringLiteral("SIGINT") : QStringLiteral("SIGTERM");
        if (std::exchange(_d->isStopping, true))
            Q_EMIT stopRequestedAgain(name);
        else
            Q_EMIT stopRequested(name);
    }
}

} // namespace KezService
