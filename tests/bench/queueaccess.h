#ifndef TARVISNET_TESTS_QUEUEACCESS_H
#define TARVISNET_TESTS_QUEUEACCESS_H

#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QMetaObject>
#include <QtCore/QSemaphore>
#include <QtCore/QThread>
#include <QtCore/QtGlobal>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkCookieJar>

#include <algorithm>
#include <thread>

/// What the tests of the client's queue need beyond its public interface.
namespace queueaccess {

inline ReplyData record(const QString &kind, const QUrl &url, const QByteArray &data = QByteArray())
{
    ReplyData record;
    record.replyType = kind;
    record.request.setUrl(url);
    record.request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("text/plain"));
    record.data = data;
    return record;
}

inline ReplyData getRecord(const QUrl &url)
{
    return record(replies::raw_get, url);
}

/// Calls a slot that only the meta-object shows. A name that is none would test nothing.
inline void call(TarvisNet &client, const char *slot,
                 const QGenericArgument &argument = QGenericArgument())
{
    if (!QMetaObject::invokeMethod(&client, slot, Qt::DirectConnection, argument))
        qFatal("the client has no slot %s", slot);
}

inline void add(TarvisNet &client, const ReplyData &record)
{
    call(client, "addRequest", Q_ARG(ReplyData, record));
}

inline void forceAdd(TarvisNet &client, const ReplyData &record)
{
    call(client, "forceAddRequest", Q_ARG(ReplyData, record));
}

/// The manager that a client sends through. It owns the cookie jar that the client begins with.
inline QNetworkAccessManager *manager(const TarvisNet &client)
{
    return qobject_cast<QNetworkAccessManager *>(client.getCoockies()->parent());
}

/// The running replies in the order in which the client walks through its table. Pings, which have
/// no path, are left out.
inline QList<QNetworkReply *> running(const TarvisNet &client)
{
    QList<QNetworkReply *> replies = manager(client)->findChildren<QNetworkReply *>();
    const auto isNone = [](QNetworkReply *reply) {
        return !reply->isRunning() || reply->url().path().isEmpty();
    };
    replies.erase(std::remove_if(replies.begin(), replies.end(), isNone), replies.end());
    std::sort(replies.begin(), replies.end(), std::less<>());
    return replies;
}

/// The paths of the running replies in alphabetical order.
inline QStringList runningPaths(const TarvisNet &client)
{
    QStringList paths;
    for (const QNetworkReply *reply : running(client))
        paths.append(reply->url().path());
    paths.sort();
    return paths;
}

inline QStringList urlTexts(const ScriptedServer &server, const QStringList &paths)
{
    QStringList texts;
    for (const QString &path : paths)
        texts.append(server.url(path).toString());
    return texts;
}

/// What every s_aborted carried.
inline QStringList abortedUrls(const SignalRecorder &recorder)
{
    QStringList urls;
    for (const QVariantList &args : recorder.of(QStringLiteral("s_aborted")))
        urls.append(args.value(0).toString());
    return urls;
}

/// What a client emits when it aborts a request: the place is free before the receivers know.
inline const QStringList freedAndAborted = {QStringLiteral("s_repliesCountChanged"),
                                            QStringLiteral("s_aborted")};

/// Keeps the queue of a client locked from another thread: that one is held in the middle of adding
/// a request, which stays pending.
class LockedQueue {
public:
    LockedQueue(TarvisNet &client, const ReplyData &pending)
    {
        const auto hold = [this, &client] {
            if (QThread::currentThread() == client.thread())
                return;
            m_locked.release();
            m_released.acquire();
        };
        m_connection = QObject::connect(&client, &TarvisNet::s_repliesCountChanged, hold);
        m_thread = std::thread([&client, pending] { add(client, pending); });
        m_locked.acquire();
    }

    ~LockedQueue()
    {
        QObject::disconnect(m_connection);
        m_released.release();
        m_thread.join();
    }

private:
    Q_DISABLE_COPY(LockedQueue)

    QSemaphore m_locked;
    QSemaphore m_released;
    QMetaObject::Connection m_connection;
    std::thread m_thread;
};

} // namespace queueaccess

#endif // TARVISNET_TESTS_QUEUEACCESS_H
