#include "watchdog.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int heartbeat = 10;
/// The longest lock wait, and as much again as a loaded machine may need.
constexpr qint64 longestWait = 5000 + 2000;

} // namespace

Watchdog::Watchdog()
{
    m_clock.start();
    QObject::connect(&m_heart, &QTimer::timeout, &m_heart, [this] { beat(); });
    m_heart.start(heartbeat);
    m_thread = std::thread([this] { watch(); });
}

Watchdog::~Watchdog()
{
    m_stopped = true;
    m_thread.join();
}

void Watchdog::beat()
{
    const qint64 now = m_clock.elapsed();
    m_longest = qMax(m_longest, now - m_lastBeat);
    m_lastBeat = now;
}

void Watchdog::watch()
{
    while (!m_stopped) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        if (m_clock.elapsed() - m_lastBeat > longestWait) {
            std::fputs("the event loop is blocked\n", stderr);
            std::abort();
        }
    }
}
