#ifndef TARVISNET_TESTS_AWAITER_H
#define TARVISNET_TESTS_AWAITER_H

#include <QtCore/QVector>

#include <functional>

/// Waits in an event loop until something has come true, without polling or sleeping: who changes
/// the state calls changed(), and every wait whose condition now holds ends.
class Awaiter {
public:
    /// True as soon as \a reached holds, false when \a msec have passed before. Waits may be
    /// nested.
    bool wait(const std::function<bool()> &reached, int msec);
    /// To be called after every change that a condition may depend on.
    void changed();

private:
    QVector<std::function<void()>> m_checks;
};

#endif // TARVISNET_TESTS_AWAITER_H
