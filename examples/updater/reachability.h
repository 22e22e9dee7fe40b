#ifndef REACHABILITY_H
#define REACHABILITY_H

#include <tarvisnet/remoteping.h>

#include <QtCore/QObject>
#include <QtCore/QSharedPointer>
#include <QtCore/QTime>
#include <QtNetwork/QNetworkAccessManager>

/// Watches whether the server answers, by a probe and a network manager of its own: the client's
/// probe runs only beside downloads and keeps what it finds to itself.
class Reachability : public QObject {
    Q_OBJECT

public:
    enum class State { Unknown, Answering, Failing, Silent };
    Q_ENUM(State)

    explicit Reachability(QObject *parent = nullptr);

    /// Longest silence before the server counts as silent, in milliseconds; 10000 at first.
    void setTimeout(int msec) { m_ping.setTimeout(msec); }
    /// Probes \a url from now on, or nothing when it is not valid.
    void watch(const QUrl &url);

    State state() const { return m_state; }
    /// Null as long as there was no answer.
    QTime lastAnswer() const { return m_lastAnswer; }

Q_SIGNALS:
    /// The state changed, or there was another answer.
    void changed();

private:
    void enter(State state);

    QSharedPointer<QNetworkAccessManager> m_manager;
    RemotePing m_ping;
    State m_state = State::Unknown;
    QTime m_lastAnswer;
};

#endif // REACHABILITY_H
