#ifndef TARVISNET_TARVISNET_P_H
#define TARVISNET_TARVISNET_P_H

#include "failure_p.h"
#include "lifetime_p.h"
#include "messagelog_p.h"
#include "pendingqueue_p.h"
#include "records.h"
#include "remoteping.h"
#include "replyinfo_p.h"
#include "replylog_p.h"
#include "tarvisnet.h"
#include "transfer_p.h"
#include "transferrules_p.h"

#include <QtCore/QHash>
#include <QtCore/QMutex>
#include <QtCore/QPointer>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QSslConfiguration>

#include <memory>
#include <utility>

QT_BEGIN_NAMESPACE
class QFileInfo;
QT_END_NAMESPACE

/// One log for the client, whichever of its files a line comes from.
inline constexpr MessageLog clientLog("../../source/appl/tarvisnet");

inline constexpr replylog::Engine clientEngine = {clientLog, "TarvisNet", QtWarningMsg};

// Refusing the URL forms of the change log, the installer and the binary has always been logged as
// the definition's; who reads the logs relies on it.
inline constexpr char invalidAnyUrl[] = "<TarvisNet::fetchDefinition> Invalid url";

/// \a url with the scheme "https" if it has none.
QUrl withScheme(QUrl url);
/// The Range value that asks for what is still missing of a file.
QByteArray openRange(qint64 from);
/// The record of a request that is to be queued.
ReplyData newRecord(QLatin1String replyType, const QNetworkRequest &request,
                    const QByteArray &data = QByteArray(), const FileData &file = FileData());

/// Stores a new value. False when it is the stored one already.
template <typename T>
bool assign(T &stored, const T &value)
{
    if (stored == value)
        return false;
    stored = value;
    return true;
}

struct TarvisNetPrivate {
    TarvisNetPrivate(TarvisNet *client, TransferPolicy transferPolicy,
                     std::unique_ptr<const TransferRules> transferRules)
        : q(client)
        , policy(std::move(transferPolicy))
        , rules(std::move(transferRules))
    {
    }

    /// \name Building requests
    /// @{

    /// A request with what all requests have: content type and TLS configuration.
    QNetworkRequest request(const QUrl &url, QLatin1String contentType) const;
    /// The same with a user agent.
    QNetworkRequest documentRequest(const QUrl &url, QLatin1String contentType) const;
    /// The request for a file.
    QNetworkRequest fileRequest(const QUrl &url, QLatin1String contentType, QLatin1String replyType,
                                AddressForm form) const;
    /// The server's address without a path.
    QUrl serverUrl() const;
    /// The address of \a path on the server.
    QUrl serverUrl(const QString &path) const;
    /// Logs why a request is refused and reports it. With \a showUrl the log line ends in the URL.
    void refuse(const char *function, const char *text, bool showUrl, const QString &url) const;

    /// @}
    /// \name The queue
    /// @{

    /// How a record gets into the queue.
    struct Admission {
        /// On whose behalf it is logged.
        const char *function;
        /// How long the lock is waited for.
        int waitMsec;
        bool refusesEqual;
    };
    void enqueue(const ReplyData &record, const Admission &admission);
    void add(const ReplyData &record) const { q->addRequest(record); }
    /// Whether a pending request may be sent now.
    bool mayStart() const;
    /// Drops the pending requests with the path \a urlPath. False when the client is gone.
    bool dropPending(const char *function, const QString &urlPath);
    void reportLockFailure(const char *function, const QString &url) const;

    /// @}
    /// \name Transfers
    /// @{

    /// Sends the request of \a record, and files it under its reply.
    void start(ReplyData record);
    /// Files a transfer under its reply, unless there is one already; false then.
    bool file(QNetworkReply *reply, Transfer transfer);
    /// Each sends, and connects its reply to the client.
    QNetworkReply *get(const QNetworkRequest &request);
    QNetworkReply *post(const QNetworkRequest &request, const QByteArray &data);
    QNetworkReply *path(const QNetworkRequest &request, const QByteArray &data);
    QNetworkReply *deleteResource(const QNetworkRequest &request, const QByteArray &data);
    /// Sends with the verb of the record's kind, and takes the body out of the record.
    QNetworkReply *send(ReplyData &record);
    QNetworkReply *connected(QNetworkReply *reply) const;
    void createReplyConnections(QNetworkReply *reply) const;
    /// Delivers a finished reply, or hands its answer back to the reply that was redirected to it.
    /// Returns that reply, which is to be settled next; null at the end.
    QNetworkReply *settle(const char *function, QNetworkReply *reply);
    QNetworkReply *handBack(const char *function, const Transfer &hop);
    /// What was asked with \a reply; an empty record when it is not in flight.
    ReplyData record(QNetworkReply *reply) const { return transfers.value(reply).record; }

    /// Aborts a reply, which stays alive meanwhile.
    void abort(QNetworkReply *reply);
    /// Deletes a reply as soon as nothing on the call stack uses it.
    void release(QNetworkReply *reply);
    /// An empty path stands for any.
    QNetworkReply *firstRunningReply(const QString &urlPath) const;

    /// @}
    /// \name The probe
    /// @{

    /// Has the probe's peers checked if the rules ask for it.
    void guardProbe() const;
    /// Starts the probe beside a request that is to be watched.
    void probeServer(const ReplyData &record);
    /// Stops a running probe. The signal's receivers may do anything.
    void stopPing() const;

    /// @}
    /// \name Files
    /// @{

    /// Where the download of \a filePath grows.
    QString temporaryPath(const QString &filePath) const;
    /// What happens to a download whose destination exists already. True when that one is taken.
    bool keepDestination(const char *function, const QFileInfo &destination,
                         const FileData &file) const;

    /// @}

    /// Emits TarvisNet::s_errorChanged(). Its receivers may do anything.
    void report(const Failure &failure) const;

    void initializeContentTypes();
    QByteArray userAgent() const { return q->getUserAgent().toLocal8Bit(); }

    TarvisNet *const q;
    const TransferPolicy policy;
    const std::unique_ptr<const TransferRules> rules;

    QSharedPointer<User> user;
    QSharedPointer<RemotePath> remotePaths;
    QSharedPointer<QNetworkAccessManager> manager;
    QSslConfiguration sslConfiguration;
    Transfers transfers;
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
