#ifndef TARVISNET_TARVISNET_P_H
#define TARVISNET_TARVISNET_P_H

#include "backgroundwork_p.h"
#include "checkedfile_p.h"
#include "failure_p.h"
#include "lifetime_p.h"
#include "managerpool_p.h"
#include "pendingqueue_p.h"
#include "remoteping.h"
#include "replyinfo_p.h"
#include "tarvisnet.h"
#include "tarvisnet_common_p.h"
#include "transfer_p.h"
#include "transferrules_p.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QPointer>
#include <QtCore/QSet>
#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/QTimer>
#include <QtCore/QVector>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QSslConfiguration>
#include <QtNetwork/QSslError>

#include <map>
#include <memory>
#include <utility>

QT_BEGIN_NAMESPACE
class QFileInfo;
QT_END_NAMESPACE

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
    /// False when it is refused.
    bool admit(const ReplyData &record, bool refusesEqual);
    void add(const ReplyData &record) const { q->addRequest(record); }
    /// Whether another request is there that may be sent now.
    bool mayStart() const;
    /// Whether one may be sent now if it is there.
    bool hasPlace() const;
    /// Whether a request that has not ended is to write the file \a filePath.
    bool isFileTaken(const QString &filePath) const;
    /// Drops the pending requests with the path \a urlPath. False when the client is gone.
    bool dropPending(const char *function, const QString &urlPath);
    /// Drops everything that is pending, and accepts nothing more, at the end of the client.
    void dropQueue();
    /// Tells of requests that were dropped before they ran, if that counts as an end. False when
    /// the client is gone.
    bool reportDropped(const QVector<ReplyData> &records) const;
    /// False when the client is gone.
    bool reportAborted(const QStringList &urls) const;
    void reportLockFailure(const char *function, const QString &url) const;

    /// @}
    /// \name Transfers
    /// @{

    /// Makes a transfer of \a record, and sends it.
    void start(ReplyData record);
    /// Sends a transfer, and files it under its reply.
    void attempt(Transfer transfer);
    /// False when the file cannot take what is to come; the transfer has ended then.
    bool prepareFile(Transfer &transfer);
    /// Files a transfer under its reply, unless there is one already; false then.
    bool file(QNetworkReply *reply, Transfer transfer);
    /// Each sends, and connects its reply to the client.
    QNetworkReply *get(QNetworkAccessManager &manager, const QNetworkRequest &request);
    QNetworkReply *post(const QNetworkRequest &request, const QByteArray &data);
    QNetworkReply *path(const QNetworkRequest &request, const QByteArray &data);
    QNetworkReply *deleteResource(const QNetworkRequest &request, const QByteArray &data);
    static bool isSentByGet(const QString &replyType);
    /// One whose connections are trusted.
    QNetworkAccessManager &managerFor(const Transfer &transfer);
    QNetworkAccessManager &managerForDownload();
    QNetworkReply *send(Transfer &transfer);
    /// The request as it is sent for \a transfer, which is made ready for its answer.
    QNetworkRequest requestToSend(Transfer &transfer) const;
    QNetworkReply *connected(QNetworkReply *reply) const;
    void createReplyConnections(QNetworkReply *reply) const;
    /// Delivers a finished reply, or hands its answer back to the reply that was redirected to it
    /// and is to be settled next; null at the end.
    QNetworkReply *settle(const char *function, QNetworkReply *reply);
    QNetworkReply *handBack(const char *function, const Transfer &hop);
    /// The transfer that follows a redirect of \a source, which then only waits for it.
    Transfer hopFrom(QNetworkReply *source);
    /// Delivers a finished reply, and gives its place free.
    void conclude(QNetworkReply *reply);
    /// What was asked with \a reply; an empty record when it is not in flight.
    ReplyData record(QNetworkReply *reply) const { return transfers.value(reply).record; }
    /// The URL that the application asked for.
    QUrl firstUrl(QNetworkReply *reply) const;
    QString urlText(QNetworkReply *reply) const;

    /// Ends a transfer when all are to end. It has been told of already if it is answered.
    void clear(QNetworkReply *reply);
    /// Aborts a reply, which stays alive meanwhile.
    void abort(QNetworkReply *reply);
    /// Deletes a reply as soon as nothing on the call stack uses it.
    void release(QNetworkReply *reply);
    /// An empty path stands for any.
    QNetworkReply *firstRunningReply(const QString &urlPath) const;

    /// @}
    /// \name What a policy asks for
    /// @{

    NextStep nextStep(QNetworkReply *reply) const;
    /// Whether a transfer whose reply has ended goes on, or has failed; otherwise it is to be
    /// delivered.
    bool goesOn(QNetworkReply *reply);
    /// Removes a transfer whose end is told elsewhere.
    void forget(QNetworkReply *reply);
    void perform(const NextStep &step, QNetworkReply *reply);
    /// Takes a transfer out of the table, and lets go of its reply. From here on only the caller
    /// can end it.
    Transfer withdraw(QNetworkReply *reply);
    /// The same with its sources.
    Transfer withdrawAll(QNetworkReply *reply);
    /// Takes out those that only wait for the end of \a hop, because a redirect led from them to
    /// it. Returns the first; \a hop itself when there is none.
    Transfer withdrawSources(Transfer hop);
    /// Sends a transfer once more, without a wait.
    void sendAgain(QNetworkReply *reply);
    void redirect(QNetworkReply *reply, const NextStep &step);
    void retry(QNetworkReply *reply, int waitMsec);
    void reconnect(QNetworkReply *reply);
    /// Ends a transfer with an error. The \a reason is null where Qt or the code tells it.
    void fail(QNetworkReply *reply, short code, const char *reason = nullptr);
    /// The same for a transfer that has no reply.
    void fail(const Transfer &transfer, short code, const char *reason = nullptr);
    Failure failureOf(const Transfer &transfer, const QNetworkReply *reply, short code,
                      const char *reason) const;
    void placeFreed();
    void expire(QNetworkReply *reply);
    /// Has requests to come use new connections, and settles those that may get wrong answers.
    void dropConnections(QNetworkReply *reply);
    QList<QPointer<QNetworkReply>> suspectsOf(QNetworkReply *reply) const;
    /// Has the requests to come, and the probe, leave a primary manager that is not trusted.
    void leaveDistrustedManager();
    void distrustConnectionOf(QNetworkReply *reply);
    /// No request to come is sent by HTTP/2 over the connection of \a reply, which has failed.
    void leaveHttp2ConnectionOf(QNetworkReply *reply);
    void dropUnusedManagers();
    /// Ends a transfer whose answer's body is too long, or cannot be decoded.
    void judgeBody(QNetworkReply *reply);

    /// Something has arrived or was sent.
    void noteActivity(QNetworkReply *reply);
    /// Starts the clock for a transfer that was sent.
    void watch(QNetworkReply *reply);
    /// Has the clock tick at \a deadline at the latest.
    void wakeAt(const QDeadlineTimer &deadline);
    void tick();
    QList<QPointer<QNetworkReply>> expiredReplies() const;
    /// Ends a waiting transfer that has taken too long. False when there is none.
    bool failOverdue();
    bool isRetryDue() const;
    /// Sends the transfer that has waited longest for being sent again, or ends one for which it is
    /// too late. False when none is due.
    bool startDue();
    /// Takes out the waiting transfers whose URL has the path \a urlPath.
    QStringList takeWaiting(const QString &urlPath);
    QStringList takeFirstWaiting();
    QStringList takeAllWaiting();

    /// Has the checked file of a transfer look at its answer and take what has arrived.
    void takeFile(QNetworkReply *reply);
    void finishFile(QNetworkReply *reply);
    /// The request for a file goes on as its file says.
    void obey(CheckedFile::Verdict verdict, QNetworkReply *reply);
    /// Whether the reply has ended, and its file is being checked.
    bool isBeingChecked(QNetworkReply *reply) const;

    /// @}
    /// \name The probe
    /// @{

    /// Has the peers of the probe and its answers checked if the rules ask for it.
    void guardProbe();
    /// Starts the probe beside a request that is to be watched.
    void probeServer(const Transfer &transfer);
    /// The probe got no answer: so has no request to that server.
    void expireProbed();
    /// Stops a running probe. The signal's receivers may do anything.
    void stopPing() const;

    /// @}
    /// \name Files
    /// @{

    /// Where the download of \a filePath grows.
    QString temporaryPath(const QString &filePath) const;
    /// The file of a record that is to be checked; null if it is not.
    QSharedPointer<CheckedFile> checkedFile(const ReplyData &record);
    /// Queues a download that is to be checked, unless it is refused.
    void queueChecked(const char *function, QLatin1String replyType, const QNetworkRequest &request,
                      FileData file) const;
    /// What happens to a download whose destination exists already. True when that one is taken.
    bool keepDestination(const char *function, const QFileInfo &destination,
                         const FileData &file) const;

    /// @}

    void refusePeer(QNetworkReply *reply, const char *fault);
    /// Keeps what is wrong with the peer, for when the request has failed.
    void keepTlsFault(QNetworkReply *reply, const QSslError &error);
    /// Emits TarvisNet::s_errorChanged(). Its receivers may do anything.
    void report(const Failure &failure) const;
    void report(const Failure &failure, const QJsonDocument &document) const;

    void initializeContentTypes();
    QByteArray userAgent() const { return q->getUserAgent().toLocal8Bit(); }

    TarvisNet *const q;
    const TransferPolicy policy;
    const std::unique_ptr<const TransferRules> rules;

    QSharedPointer<User> user;
    QSharedPointer<RemotePath> remotePaths;
    QSharedPointer<ManagerPool> managers;
    QSslConfiguration sslConfiguration;
    Transfers transfers;
    /// What is to be sent again, by the time when it is due.
    std::multimap<QDeadlineTimer, Transfer> waiting;
    QTimer clock;
    /// The checked files whose requests have been sent.
    QSharedPointer<QSet<QString>> growingFiles;
    QSharedPointer<BackgroundWork> background;
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
    /// Whether nothing is accepted any more.
    bool isClosed = false;
    bool pingAlwaysOn = false;
    bool stopProcess = false;
    /// Above zero while all replies are being aborted: that frees places, and none may be taken.
    int startBlocks = 0;
    QSharedPointer<QRecursiveMutex> queueMutex;
    QHash<TarvisNet::ContentType, QString> contentTypes;
};

#endif // TARVISNET_TARVISNET_P_H
