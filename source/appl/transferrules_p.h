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

QT_BEGIN_NAMESPACE
class QNetworkAccessManager;
QT_END_NAMESPACE

struct Failure;
struct FileData;

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

/// What is decided about requests in flight. The files that follow a request ask here, and decide
/// nothing themselves.
class TransferRules {
public:
    TransferRules() = default;
    virtual ~TransferRules();

    /// The TLS configuration of all requests. Asked for once, when the client is made.
    virtual QSslConfiguration tlsConfiguration() const = 0;

    /// The manager that all requests go through, the probe's included. The caller owns it.
    virtual QNetworkAccessManager *newManager() const = 0;

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

    virtual ErrorRule errorRule(QNetworkReply::NetworkError error) const = 0;

    /// The document that is reported with a failure.
    virtual QJsonDocument documentOf(const Failure &failure) const = 0;

    /// Whether the file of a request that has ended well is then put in place.
    virtual bool putsInPlace(const QString &replyType) const = 0;

private:
    Q_DISABLE_COPY(TransferRules)
};

#endif // TARVISNET_TRANSFERRULES_P_H
