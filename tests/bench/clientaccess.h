#ifndef TARVISNET_TESTS_CLIENTACCESS_H
#define TARVISNET_TESTS_CLIENTACCESS_H

#include "signalrecorder.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QByteArray>
#include <QtCore/QDebug>
#include <QtCore/QMetaObject>
#include <QtCore/QStringList>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkCookieJar>
#include <QtNetwork/QNetworkReply>

/// What tests need of a client beyond its public interface: its replies and its private slots. A
/// header only, because the support library knows nothing of the library under test.
namespace clientaccess {

/// Every message of the client carries it.
inline constexpr char sourceFile[] = "../../source/appl/tarvisnet";

/// The replies that the client's manager holds, oldest first. The manager shows itself as the owner
/// of the cookie jar, as long as the jar was not replaced.
inline QList<QNetworkReply *> repliesOf(const TarvisNet &client)
{
    return client.getCoockies()->parent()->findChildren<QNetworkReply *>();
}

inline ReplyData record(const QString &replyType, const QUrl &url,
                        const FileData &file = FileData())
{
    ReplyData record;
    record.replyType = replyType;
    record.request.setUrl(url);
    record.fileData = file;
    return record;
}

inline void add(TarvisNet &client, const ReplyData &record)
{
    QMetaObject::invokeMethod(&client, "addRequest", Qt::DirectConnection,
                              Q_ARG(ReplyData, record));
}

/// Queues a request of the kind \a replyType and returns its reply, provided that a place was free.
inline QNetworkReply *start(TarvisNet &client, const ReplyData &record)
{
    add(client, record);
    const QList<QNetworkReply *> all = repliesOf(client);
    return all.isEmpty() ? nullptr : all.last();
}

/// Connects a reply that did not come from the client's manager as the client connects its own.
inline void follow(TarvisNet &client, QNetworkReply &reply)
{
    const auto connect = [&](const char *signal, const char *slot) {
        if (!QObject::connect(&reply, signal, &client, slot, Qt::DirectConnection))
            qFatal("cannot connect %s to %s", signal, slot);
    };
    connect(SIGNAL(finished()), SLOT(replyFinished()));
    connect(SIGNAL(readyRead()), SLOT(replyReadyRead()));
    connect(SIGNAL(sslErrors(QList<QSslError>)), SLOT(replySslErrors(QList<QSslError>)));
    connect(SIGNAL(errorOccurred(QNetworkReply::NetworkError)),
            SLOT(replyError(QNetworkReply::NetworkError)));
    connect(SIGNAL(downloadProgress(qint64, qint64)),
            SLOT(replyDownloadProgress(qlonglong, qlonglong)));
    connect(SIGNAL(uploadProgress(qint64, qint64)),
            SLOT(replyUploadProgress(qlonglong, qlonglong)));
    connect(SIGNAL(encrypted()), SLOT(replyEncrypted()));
}

/// The client's private slot \a slot, which takes a reply.
inline void callWithReply(TarvisNet &client, const char *slot, QNetworkReply *reply)
{
    if (!QMetaObject::invokeMethod(&client, slot, Qt::DirectConnection,
                                   Q_ARG(QNetworkReply *, reply)))
        qFatal("no slot %s", slot);
}

/// Lets a test put a state on a reply that came from Qt.
struct ReplyState : QNetworkReply {
    static void setStatus(QNetworkReply *reply, int status)
    {
        (reply->*&ReplyState::setAttribute)(QNetworkRequest::HttpStatusCodeAttribute, status);
    }
};

/// The names of what was emitted, without the progress that depends on timing.
inline QStringList withoutProgress(const SignalRecorder &recorder)
{
    QStringList names = recorder.names();
    for (const char *progress :
         {"s_downloadFileProgress", "s_downloadFileBytesProgress", "s_uploadFileProgress"})
        names.removeAll(QString::fromLatin1(progress));
    return names;
}

/// What a debug stream makes of its items: a blank between them.
inline QString line(const QStringList &items)
{
    return items.join(QLatin1Char(' '));
}

/// What a debug stream makes of a text that is a QString or a QByteArray.
inline QString quoted(const QString &text)
{
    QString made;
    QDebug(&made).nospace() << text;
    return made;
}

} // namespace clientaccess

#endif // TARVISNET_TESTS_CLIENTACCESS_H
