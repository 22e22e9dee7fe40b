#include "interrupt.h"

#include <QtCore/QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

// A signal handler may do next to nothing, but it may write: the event loop reads the other end.
int pipeEnds[2] = {-1, -1};

void wakeEventLoop(int)
{
    const char byte = 0;
    // There is no one to tell when this fails, and a handler must leave errno as it was.
    const int before = errno;
    const ssize_t written = write(pipeEnds[1], &byte, 1);
    Q_UNUSED(written)
    errno = before;
}

void catchOnce(int signalNumber)
{
    struct sigaction action {};
    action.sa_handler = wakeEventLoop;
    action.sa_flags = SA_RESTART | SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    sigaction(signalNumber, &action, nullptr);
}

} // namespace

Interrupt::Interrupt(QObject *parent)
    : QObject(parent)
{
    if (pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    auto *notifier = new QSocketNotifier(pipeEnds[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this, notifier] {
        notifier->setEnabled(false);
        Q_EMIT interrupted();
    });
    catchOnce(SIGINT);
    catchOnce(SIGTERM);
}
