#include "remoteping.h"

#include "errorcodes.h"
#include "lifetime_p.h"
#include "messagelog_p.h"
#include "qtversion_p.h"
#include "records.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QList>
#include <QtCore/QPointer>
#include <QtCore/QTimer>
#include <QtNetwork/QNetworkAccessManager>

#include <utility>

namespace {

constexpr MessageLog messages("../../source/appl/remoteping");

// An endless probe throws its replies away whenever it has sent more than this many.
constexpr int clearAfterPings = 300;

// Nobody reads more than this of an answer that does not end.
constexpr qint64 greatestUnreadBody = qint64(2) * 1024 * 1024;

bool isAnswer(QNetworkReply::NetworkError error)
{
    return error == QNetworkReply::NoError || error == QNetworkReply::ContentAccessDenied
        || error == QNetworkReply::ContentOperationNotPermittedError;
}

} // namespace

struct RemotePingPrivate {
    QUrl url;
    int timeoutMsec = 10000;
    int periodMsec = 1000;
    int count = 5;
    int sentCount = 0;
    bool running = false;
    QElapsedTimer pingClock;
    QElapsedTimer answerClock;
    QSharedPointer<QTimer> periodTimer;
    QSharedPointer<QNetworkAccessManager> manager;
    // Replies die with their manager, which the probe need not be the last to hold.
    QList<QPointer<QNetworkReply>> replies;

    void dropEndlessBodies() const;
};

void RemotePingPrivate::dropEndlessBodies() const
{
    for (QNetworkReply *reply : replies) {
        if (reply && reply->bytesAvailable() > greatestUnreadBody)
            reply->readAll();
    }
}

RemotePing::RemotePing(QSharedPointer<QNetworkAccessManager> manager, QObject *parent)
    : QObject(parent)
    , d(new RemotePingPrivate)
{
    d->manager = std::move(manager);
    d->periodTimer.reset(new QTimer(this));
    QTimer *timer = d->periodTimer.data();
    // The order of the connections is the order of a tick: send, then look for an answer.
    connect(timer, &QTimer::timeout, this, &RemotePing::sendPing);
    connect(timer, &QTimer::timeout, this, &RemotePing::timeout);
    connect(this, &RemotePing::s_ping, this, &RemotePing::timeoutRestart, Qt::DirectConnection);
    connect(this, &RemotePing::s_timeout, this, &RemotePing::timeoutRestart, Qt::DirectConnection);
    messages.debug(Q_FUNC_INFO) << "RemotePing ctor";
}

RemotePing::~RemotePing()
{
    clearReplies();
    messages.debug(Q_FUNC_INFO) << "RemotePing dtor";
}

QString RemotePing::getScheme() const
{
    return d->url.scheme();
}

QString RemotePing::getHost() const
{
    return d->url.host(QUrl::FullyDecoded);
}

int RemotePing::getPort() const
{
    return d->url.port(-1);
}

int RemotePing::getTimeout() const
{
    return d->timeoutMsec;
}

int RemotePing::getPeriod() const
{
    return d->periodMsec;
}

QUrl RemotePing::getUrl() const
{
    return d->url;
}

bool RemotePing::isRunnig()
{
    return d->running;
}

void RemotePing::setScheme(const QString &scheme)
{
    if (getScheme() != scheme)
        d->url.setScheme(scheme);
}

void RemotePing::setHost(const QString &host)
{
    if (getHost() != host)
        d->url.setHost(host, QUrl::DecodedMode);
}

void RemotePing::setPort(short port)
{
    if (getPort() != port)
        d->url.setPort(port);
}

void RemotePing::setTimeout(int msec)
{
    d->timeoutMsec = msec;
}

void RemotePing::setPeriod(int msec)
{
    d->periodMsec = msec;
}

void RemotePing::setManager(QSharedPointer<QNetworkAccessManager> manager)
{
    if (d->manager != manager)
        d->manager = std::move(manager);
}

void RemotePing::setUrl(QUrl url)
{
    if (d->url != url)
        d->url = std::move(url);
}

void RemotePing::start(int _count)
{
    d->count = _count;
    d->sentCount = 0;
    d->running = true;
    d->periodTimer->start(d->periodMsec);
    d->pingClock.start();
    d->answerClock.start();
    messages.debug(Q_FUNC_INFO) << "Ping start";
    Q_EMIT s_started();
}

void RemotePing::stop()
{
    d->periodTimer->stop();
    clearReplies();
    d->sentCount = 0;
    d->running = false;
    messages.debug(Q_FUNC_INFO) << "Ping stop";
    Q_EMIT s_stopped();
}

void RemotePing::sendPing()
{
    // The count is compared before it is raised, so a count of N sends N + 1 pings.
    if (d->count >= 0 && d->count < d->sentCount) {
        stop();
        return;
    }
    if (d->count < 0 && d->sentCount > clearAfterPings) {
        clearReplies();
        d->sentCount = 0;
    }
    d->dropEndlessBodies();
    d->pingClock.restart();
    if (QNetworkReply *reply = pingRequest())
        d->replies.append(reply);
    ++d->sentCount;
}

QNetworkReply *RemotePing::pingRequest()
{
    if (!d->url.isValid()) {
        messages.warning(Q_FUNC_INFO) << "Incorrect URL:" << d->url.toString();
        return nullptr;
    }
    if (!d->manager) {
        messages.warning(Q_FUNC_INFO) << "No network access manager. Must set it first!";
        return nullptr;
    }
    QNetworkRequest request(d->url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QString(mime::wwwForm));
    QNetworkReply *reply = d->manager->get(qtversion::settled(request));
    if (!reply) {
        messages.warning(Q_FUNC_INFO) << "Null ping reply.";
        return nullptr;
    }
    connect(reply, &QNetworkReply::finished, this, &RemotePing::replyFinished,
            Qt::DirectConnection);
    return reply;
}

void RemotePing::replyFinished()
{
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply)
        return;
    // Whoever shares the manager has had its chance to read the body; unread it would stay in
    // memory until the replies are cleared.
    if (d->replies.contains(reply))
        reply->readAll();
    const ActiveCall call(this, d->manager);
    if (isAnswer(reply->error())) {
        const int elapsed = int(d->pingClock.elapsed());
        if (elapsed == 0)
            messages.debug(Q_FUNC_INFO) << "PING: <1 msec";
        else
            messages.debug(Q_FUNC_INFO) << "PING:" << elapsed << " msec";
        Q_EMIT s_ping();
        return;
    }
    if (reply->error() == QNetworkReply::OperationCanceledError)
        return;
    messages.debug(Q_FUNC_INFO) << "ERROR"
                                << "\n"
                                << "code:" << reply->error() << "\n"
                                << "text:" << reply->errorString();
    Q_EMIT s_error(errorcodes::network_error);
}

void RemotePing::replyError(QNetworkReply::NetworkError code)
{
    messages.debug(Q_FUNC_INFO) << "RemotePing: Network error:" << code;
}

void RemotePing::timeout()
{
    if (d->answerClock.elapsed() <= d->timeoutMsec)
        return;
    const ActiveCall call(this, d->manager);
    messages.debug(Q_FUNC_INFO) << "Host not answered:" << d->answerClock.elapsed() << " msec";
    Q_EMIT s_timeout();
}

void RemotePing::timeoutRestart()
{
    d->answerClock.restart();
}

void RemotePing::clearReplies()
{
    while (!d->replies.isEmpty())
        killReply(d->replies.takeFirst());
}

void RemotePing::killReply(QNetworkReply *reply)
{
    if (!reply)
        return;
    disconnect(reply, &QNetworkReply::finished, nullptr, nullptr);
    reply->abort();
    reply->deleteLater();
}

#include "moc_remoteping.cpp" // NOLINT(bugprone-suspicious-include): that is what moc makes it for.
