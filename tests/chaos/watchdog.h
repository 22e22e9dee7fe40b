#ifndef TARVISNET_TESTS_WATCHDOG_H
#define TARVISNET_TESTS_WATCHDOG_H

#include <QtCore/QElapsedTimer>
#include <QtCore/QTimer>

#include <atomic>
#include <thread>

/// Ends the process when the event loop that it was made in stands still for longer than the client
/// ever waits for its queue, so that the stack of the culprit can be seen.
class Watchdog {
public:
    Watchdog();
    ~Watchdog();

    /// The longest time between two heartbeats so far.
    qint64 longestGapMsec() const { return m_longest; }

private:
    Q_DISABLE_COPY(Watchdog)

    void beat();
    void watch();

    QElapsedTimer m_clock;
    QTimer m_heart;
    std::atomic<qint64> m_lastBeat{0};
    std::atomic<bool> m_stopped{false};
    qint64 m_longest = 0;
    std::thread m_thread;
};

#endif // TARVISNET_TESTS_WATCHDOG_H
