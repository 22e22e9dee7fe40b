#ifndef TARVISNET_TRANSFERRULES_P_H
#define TARVISNET_TRANSFERRULES_P_H

#include <QtCore/QByteArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QString>
#include <QtCore/QUrl>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QNetworkRequest>
#include <QtNetwork/QSslCertificate>
#include <QtNetwork/QSslConfiguration>

#include <optional>

QT_BEGIN_NAMESPACE
class QNetworkAccessManager;
QT_END_NAMESPACE

struct Failure;
struct FileData;
struct Transfer;

/// How the address of a file was given.
enum class AddressForm { Path, Url };

/// What becomes of bytes that have arrived.
enum class Arrival {
    /// They belong to the answer, which is held in memory.
    Kept,
    /// They belong to the download's file.
    Saved,
    /// They stay where they are.
    Unread,
};

/// What an error of the network means to the application.
struct ErrorRule {
    QNetworkReply::NetworkError error;
    /// Code that the client reports; 0 for none.
    short clientCode;
    /// Code that the stand-alone processor reports; 0 for none.
    short processorCode;
    /// Whether the client then aborts the first request that is running.
    bool abortsFirstRunning;
};

/// What happens next to a request whose reply has ended.
struct NextStep {
    enum class Kind {
        /// What has always happened.
        AsEver,
        /// It is sent to another URL.
        Redirect,
        /// It is sent again from the beginning, after a wait.
        Retry,
        /// It is sent again at once, over another connection.
        Reconnect,
        /// The file that it was for is checked, and put in place.
        FinishFile,
        /// The connections are not to be trusted any more; it is then sent again or fails.
        DropConnections,
        Fail,
    };
    Kind kind = Kind::AsEver;
    /// Of a failure, with a sentence where Qt and the code tell too little.
    short code = 0;
    const char *reason = nullptr;
    /// Before a retry.
    int waitMsec = 0;
    /// Of a redirect.
    std::optional<QNetworkRequest> request = std::nullopt;
    bool becomesGet = false;
};

/// What bounds a request; 0 stands for no bound.
struct Limits {
    int idleMsec = 0;
    int totalMsec = 0;
    /// Bytes of a body that is held in memory.
    qint64 bodySize = 0;
};

/// What is decided about requests in flight. The files that follow a request ask here, and decide
/// nothing themselves.
class TransferRules {
public:
    TransferRules() = default;
    virtual ~TransferRules();

    /// The TLS configuration of all requests. Asked for once, when the client is made.
    virtual QSslConfiguration tlsConfiguration() const = 0;

    /// A manager for requests, the probe's included. The caller owns it.
    virtual QNetworkAccessManager *newManager() const = 0;

    /// How many managers, with a network thread each, the running downloads are spread over.
    virtual int downloadThreads() const = 0;

    /// Whether a request is one of these downloads.
    virtual bool isSpread(const Transfer &transfer) const = 0;

    /// Whether a request may be sent by HTTP/2, over TLS.
    virtual bool allowsHttp2(const Transfer &transfer) const = 0;

    /// Whether the probe may only talk to whom faultOfPeer() finds no fault with.
    virtual bool checksPeerOfProbe() const = 0;

    /// Gives the request for a file what other requests do not have.
    virtual void prepareFileRequest(QNetworkRequest &request, const QString &replyType,
                                    AddressForm form, const QByteArray &userAgent) const = 0;

    /// Whether what Qt finds wrong with a certificate is only logged.
    virtual bool acceptsTlsErrors() const = 0;

    /// Why the server must not be talked to, for the log; null if it may.
    virtual const char *faultOfPeer(const QSslCertificate &certificate) const = 0;

    /// The request that follows a redirect to \a target.
    virtual QNetworkRequest redirectRequest(const QUrl &target,
                                            const QSslConfiguration &tls) const = 0;

    /// What becomes of the bytes of an answer with the HTTP status \a status.
    virtual Arrival arrival(const QString &replyType, int status) const = 0;

    /// The size up to which the client appends to a file.
    virtual quint64 sizeToAppendTo(const FileData &file) const = 0;

    /// Where the download of \a filePath grows, unless \a directory is empty in that directory.
    virtual QString temporaryPath(const QString &directory, const QString &filePath) const = 0;

    /// Whether files are checked before they are put in place.
    virtual bool checksFiles() const = 0;

    virtual Limits limits() const = 0;

    /// Whether a failure ends the request that failed, and no other.
    virtual bool isolatesFailures() const = 0;

    /// What follows the end of \a reply, with which \a transfer was last sent.
    virtual NextStep nextStep(const Transfer &transfer, const QNetworkReply &reply) const = 0;

    /// Whether an answer must reach none but the request that it belongs to: not one that was
    /// aborted, nor the next one on its connection.
    virtual bool guardsAnswers() const = 0;

    /// What follows when nothing has come of a transfer for too long.
    virtual NextStep stepAfterSilence(const Transfer &transfer) const = 0;

    /// What follows when the connection of a transfer has ended before its answer, and Qt says
    /// nothing of it.
    virtual NextStep stepAfterBreak(const Transfer &transfer) const = 0;

    /// What follows when the connection of a transfer cannot be trusted.
    virtual NextStep stepAfterDrop(const Transfer &transfer) const = 0;

    virtual ErrorRule errorRule(QNetworkReply::NetworkError error) const = 0;

    /// The document that is reported with a failure.
    virtual QJsonDocument documentOf(const Failure &failure) const = 0;

    /// Whether the file of a request that has ended well is then put in place.
    virtual bool putsInPlace(const QString &replyType) const = 0;

private:
    Q_DISABLE_COPY(TransferRules)
};

#endif // TARVISNET_TRANSFERRULES_P_H
