#ifndef TARVISNET_REMOTEPING_H
#define TARVISNET_REMOTEPING_H

#include "tarvisnet_global.h"

#include <QtCore/QObject>
#include <QtCore/QScopedPointer>
#include <QtCore/QSharedPointer>
#include <QtCore/QUrl>
#include <QtNetwork/QNetworkReply>

QT_BEGIN_NAMESPACE
class QNetworkAccessManager;
QT_END_NAMESPACE

struct RemotePingPrivate;

/// \brief Tells whether a server answers.
///
/// A running probe sends a GET request to its URL once in every period and reports each answer by
/// s_ping(), each failure by s_error() and a silence that lasts longer than the time-out by
/// s_timeout(). An answer is any reply without an error, a redirect included, and also one that
/// refuses the content (HTTP 403 and 405): a server that refuses has answered. Every other reply is
/// a failure, HTTP 404 for example. Neither failures nor time-outs stop the probe.
///
/// The probe belongs to one thread, which needs an event loop. Receivers of its signals may do
/// anything, deleting the probe included.
class TARVISNET_EXPORT RemotePing : public QObject {
    Q_OBJECT

public:
    /// Makes a stopped probe without a URL that sends through \a manager. The manager is shared: it
    /// lives as long as any of its holders. It may be null, see setManager().
    explicit RemotePing(QSharedPointer<QNetworkAccessManager> manager, QObject *parent = nullptr);

    /// Aborts the requests that are under way.
    ~RemotePing() override;

    /// Scheme of the probed URL; empty at first.
    QString getScheme() const;
    /// Host of the probed URL, decoded; empty at first.
    QString getHost() const;
    /// Port of the probed URL; -1, the scheme's own port, at first.
    int getPort() const;
    /// Longest silence before s_timeout(), in milliseconds; 10000 at first.
    int getTimeout() const;
    /// Time between two requests, in milliseconds; 1000 at first.
    int getPeriod() const;
    /// The probed URL; empty at first.
    QUrl getUrl() const;
    /// True between start() and stop().
    bool isRunnig();

    /// Takes effect with the next request, like all that changes the URL.
    void setScheme(const QString &scheme);
    /// Takes the host decoded.
    void setHost(const QString &host);
    /// Takes the port as a signed number: one above 32767 arrives negative, which no URL accepts.
    /// The probe then logs "Incorrect URL:" instead of sending.
    void setPort(short port);
    /// Takes effect at once.
    void setTimeout(int msec);
    /// Takes effect at the next start().
    void setPeriod(int msec);
    /// Without a manager a running probe sends nothing and only logs that it cannot.
    void setManager(QSharedPointer<QNetworkAccessManager> manager);
    /// Replaces the URL whole, its path and query included.
    void setUrl(QUrl url);

Q_SIGNALS:
    /// The server answered.
    void s_ping();
    /// No answer came for longer than getTimeout() milliseconds since the start, the last answer or
    /// the last time-out. Looked for once in every period.
    void s_timeout();
    /// A request failed. The code is always errorcodes::network_error.
    void s_error(short errorCode);
    /// start() was called.
    void s_started();
    /// The probe stopped: stop() was called, also on a stopped probe, or the count was used up.
    void s_stopped();

public Q_SLOTS:
    /// Starts the probe, or starts a running one anew. The first request leaves one period later.
    /// A negative \a _count probes until stop(); any other sends _count + 1 requests and stops one
    /// period after the last.
    void start(int _count = -1);

    /// Stops the probe and aborts its requests.
    void stop();

private Q_SLOTS:
    void replyFinished();
    void replyError(QNetworkReply::NetworkError code);
    void sendPing();
    void timeout();
    void timeoutRestart();
    void clearReplies();
    void killReply(QNetworkReply *reply);

private:
    // Whose server answers otherwise than to a ping.
    friend struct TarvisNetPrivate;

    Q_DISABLE_COPY(RemotePing)

    QNetworkReply *pingRequest();

    QScopedPointer<RemotePingPrivate> d;
};

#endif // TARVISNET_REMOTEPING_H
