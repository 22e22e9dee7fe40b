#ifndef TARVISNET_TARVISNET_P_H
#define TARVISNET_TARVISNET_P_H

#include "downloadfile_p.h"
#include "lifetime_p.h"
#include "messagelog_p.h"
#include "pendingqueue_p.h"
#include "records.h"
#include "remoteping.h"
#include "replytools_p.h"
#include "tarvisnet.h"

#include <QtCore/QHash>
#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QPointer>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QSslConfiguration>

QT_BEGIN_NAMESPACE
class QFileInfo;
QT_END_NAMESPACE

/// One log for the client, whichever of its files a line comes from.
inline constexpr MessageLog clientLog("../../source/appl/tarvisnet");

inline constexpr replytools::Engine clientEngine = {clientLog, "TarvisNet", QtWarningMsg};

/// A request in flight.
struct ActiveReply {
    ReplyData record;
    /// The reply of ReplyData::directReply as long as it lives: a new reply may get its address.
    QPointer<QNetworkReply> redirected;
    DownloadFile file;
};

/// The size that files are appended to up to. The client has always taken it for a signed number.
inline quint64 signedSize(const FileData &file)
{
    return qint64(file.size) < 0 ? 0 : file.size;
}

struct TarvisNetPrivate {
    explicit TarvisNetPrivate(TarvisNet *client)
        : q(client)
    {
    }

    /// \name Sending: each follows its reply from then on
    /// @{
    QNetworkReply *get(const QNetworkRequest &request);
    QNetworkReply *post(const QNetworkRequest &request, const QByteArray &data);
    QNetworkReply *path(const QNetworkRequest &request, const QByteArray &data);
    QNetworkReply *deleteResource(const QNetworkRequest &request, const QByteArray &data);
    /// Sends with the verb of the record's kind, and takes the body out of the record.
    QNetworkReply *send(ReplyData &record);
    QNetworkReply *follow(QNetworkReply *reply) const;
    void createReplyConnections(QNetworkReply *reply) const;
    /// @}

    /// Whether a pending request may be sent now.
    bool mayStart() const;
    /// Starts the probe beside a request that is to be watched.
    void probeServer(const ReplyData &record);
    /// Stops a running probe. The signal's receivers may do anything.
    void stopPing() const;
    /// Aborts a reply, which stays alive meanwhile.
    void abort(QNetworkReply *reply);
    /// Deletes a reply as soon as nothing on the call stack uses it.
    void release(QNetworkReply *reply);
    /// An empty path stands for any.
    QNetworkReply *firstRunningReply(const QString &urlPath) const;
    void reportLockFailure(const char *function, const QString &url) const;

    /// Delivers a finished reply, or hands its body back to the reply that was redirected to it.
    /// Returns that reply, which is to be routed next; null at the end.
    QNetworkReply *route(const char *function, QNetworkReply *reply);
    QNetworkReply *handBack(const char *function, const ActiveReply &hop);

    /// The record of \a reply; an empty one when it is not in flight.
    ReplyData record(QNetworkReply *reply) const { return replies.value(reply).record; }

    /// A request with what all requests have: content type and SSL configuration.
    QNetworkRequest request(const QUrl &url, QLatin1String contentType) const;
    /// The same with a user agent.
    QNetworkRequest documentRequest(const QUrl &url, QLatin1String contentType) const;
    void queue(QLatin1String replyType, const QNetworkRequest &request,
               const QByteArray &data = QByteArray(), const FileData &file = FileData()) const;

    /// Where the download of \a filePath grows.
    QString temporaryPath(const QString &filePath) const;
    /// What happens to a download whose destination exists already. True when that one is taken.
    bool keepDestination(const char *function, const QFileInfo &destination,
                         const FileData &file) const;

    void initializeContentTypes();
    QByteArray userAgent() const { return q->getUserAgent().toLocal8Bit(); }

    /// Logs why a request is refused and reports it. With \a showUrl the log line ends in the URL.
    void refuse(const char *function, const char *text, bool showUrl, const QString &url) const;

    TarvisNet *const q;

    QSharedPointer<User> user;
    QSharedPointer<RemotePath> remotePaths;
    QSharedPointer<QNetworkAccessManager> manager;
    QSslConfiguration sslConfiguration;
    QMap<QNetworkReply *, ActiveReply> replies;
    /// Replies whose abort() is on the call stack, and whether each is to be deleted after it.
    /// Outside an event loop deleteLater() alone would delete it in the next nested one, under
    /// abort().
    QHash<QNetworkReply *, bool> aborting;
    QString directInstallerUrl;
    QString rawFileSavePath;
    int parallelRequestsCount = 5;
    QString outputDirectory;
    QString temporaryDirectory;
    QSharedPointer<FileData> installerFile;
    /// What TarvisNet::saveInstaller() has appended to last.
    struct {
        QPointer<QNetworkReply> reply;
        DownloadFile file;
    } installerDownload;
    QSharedPointer<SystemInfoData> systemInfo;
    QSharedPointer<ApplicationData> application;
    QSharedPointer<RemotePing> remotePing;
    PendingQueue pending;
    bool pingAlwaysOn = false;
    bool stopProcess = false;
    /// Above zero while all replies are being aborted: that frees places, and none may be taken.
    int startBlocks = 0;
    QSharedPointer<QMutex> queueMutex;
    QHash<TarvisNet::ContentType, QString> contentTypes;
};

#endif // TARVISNET_TARVISNET_P_H
