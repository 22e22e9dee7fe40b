#ifndef TARVISNET_MANAGERPOOL_P_H
#define TARVISNET_MANAGERPOOL_P_H

#include <QtCore/QDeadlineTimer>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QSharedPointer>
#include <QtCore/QVector>
#include <QtNetwork/QNetworkAccessManager>

QT_BEGIN_NAMESPACE
class QNetworkCookieJar;
QT_END_NAMESPACE

class TransferRules;

/// The network access managers of a client. Each has connections of its own and, from its first
/// request on, a network thread of its own. All share one cookie jar.
///
/// An object only so that ActiveCall can keep it: a reply dies with its manager.
class ManagerPool : public QObject {
public:
    /// Starts with one manager. The \a rules make all of them, as long as their client is there.
    explicit ManagerPool(const TransferRules &rules);

    /// The one for all requests but downloads, the probe's included.
    const QSharedPointer<QNetworkAccessManager> &primary() const { return m_lines.first().manager; }

    /// The one for the next download, given those of the downloads that are running: the least busy
    /// one, or a new one where all are busy and there may be more. Those that are not trusted
    /// count, too, as long as they have replies.
    QNetworkAccessManager *forDownload(const QList<QNetworkAccessManager *> &running);

    /// One more request goes to a server by HTTP/2. The connections of a \a manager that has sent
    /// many are not used any further.
    void countHttp2(const QNetworkAccessManager *manager);

    /// No request to come may use the connections of \a manager.
    void distrust(const QNetworkAccessManager *manager);
    bool isPrimaryDistrusted() const { return m_lines.first().isDistrusted; }
    /// Makes another one the primary one, if it can one of those that are there: each costs a
    /// thread. The replies of the old one go on.
    void replacePrimary();

    /// Lets go of those that have been idle for a while, and of those that are not trusted; but not
    /// of the primary one, and of none that has a reply. One that has ended may be on the call
    /// stack, as long as it is there.
    void dropUnused();
    /// When there may be something to let go of.
    QDeadlineTimer nextDrop() const;

    QNetworkCookieJar *cookieJar() const { return primary()->cookieJar(); }
    /// The caller keeps the \a jar.
    void setCookieJar(QNetworkCookieJar *jar);

private:
    struct Line {
        QSharedPointer<QNetworkAccessManager> manager;
        QDeadlineTimer idleEnd;
        bool isDistrusted = false;
        int http2Requests = 0;
    };

    /// Null when there is none.
    Line *lineOf(const QNetworkAccessManager *manager);
    Line newLine() const;

    const TransferRules &m_rules;
    /// The primary one first; those that were replaced stay until their replies have ended.
    QVector<Line> m_lines;
};

#endif // TARVISNET_MANAGERPOOL_P_H
