#include "strictrules_p.h"

#include "checkedfile_p.h"
#include "explanation_p.h"
#include "qtversion_p.h"
#include "readbuffer_p.h"
#include "replyinfo_p.h"
#include "transfer_p.h"

#include <QtCore/QCryptographicHash>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QSslKey>
#include <QtNetwork/QSslSocket>

#include <utility>

namespace {

/// Gives every request the TLS configuration of the client, also those that somebody else builds: a
/// connection serves all requests for its server, whatever they ask of it.
class UniformManager : public QNetworkAccessManager {
public:
    explicit UniformManager(const QSslConfiguration &tls)
        : m_tls(tls)
    {
    }

protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request,
                                 QIODevice *body) override
    {
        QNetworkRequest uniform(request);
        uniform.setSslConfiguration(m_tls);
        return QNetworkAccessManager::createRequest(operation, uniform, body);
    }

private:
    const QSslConfiguration m_tls;
};

/// Whatever the process has installed, a traditional client's included, must not weaken it.
QSslConfiguration verifyingConfiguration(const QList<QSslCertificate> &authorities)
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setProtocol(QSsl::TlsV1_2OrLater);
    configuration.setPeerVerifyMode(QSslSocket::VerifyPeer);
    configuration.setPeerVerifyDepth(0);
    configuration.setCaCertificates(
        authorities.isEmpty() ? QSslConfiguration::systemCaCertificates() : authorities);
    return configuration;
}

QByteArray fingerprint(const QSslCertificate &certificate)
{
    return QCryptographicHash::hash(certificate.publicKey().toDer(), QCryptographicHash::Sha256);
}

bool isSentByTls(const Transfer &transfer)
{
    return transfer.request.url().scheme() == QLatin1String("https");
}

} // namespace

StrictRules::StrictRules(TransferPolicy policy)
    : m_policy(std::move(policy))
    , m_verifying(m_policy.peersVerified() ? verifyingConfiguration(m_policy.caCertificates())
                                           : QSslConfiguration())
{
}

QSslConfiguration StrictRules::tlsConfiguration() const
{
    return m_policy.peersVerified() ? m_verifying : TraditionalRules::tlsConfiguration();
}

QNetworkAccessManager *StrictRules::newManager() const
{
    if (!m_policy.peersVerified())
        return TraditionalRules::newManager();
    return new UniformManager(m_verifying);
}

int StrictRules::downloadThreads() const
{
    return m_policy.downloadThreads();
}

/// Only TLS is too much for one thread.
bool StrictRules::isSpread(const Transfer &transfer) const
{
    return m_policy.downloadThreads() > 1 && isSentByTls(transfer)
        && replyinfo::isFileKind(transfer.record.replyType);
}

/// By HTTP/2 Qt holds whatever has arrived, however little of it is wanted.
bool StrictRules::allowsHttp2(const Transfer &transfer) const
{
    const ReplyData &record = transfer.record;
    const bool peerComesFirst = m_policy.pinnedKeys().isEmpty() || qtversion::http2WaitsForPeer;
    return m_policy.http2Allowed() && peerComesFirst && isSentByTls(transfer)
        && !(replyinfo::isFileKind(record.replyType)
             && readbuffer::mayNeedBound(record.fileData.size));
}

/// What the probe opens, others use.
bool StrictRules::checksPeerOfProbe() const
{
    return true;
}

bool StrictRules::acceptsTlsErrors() const
{
    return !m_policy.peersVerified();
}

const char *StrictRules::faultOfPeer(const QSslCertificate &certificate) const
{
    if (const char *fault = TraditionalRules::faultOfPeer(certificate))
        return fault;
    const QList<QByteArray> pinned = m_policy.pinnedKeys();
    const bool isPinned = pinned.isEmpty() || pinned.contains(fingerprint(certificate));
    return isPinned ? nullptr : "Key not pinned";
}

/// Downloads that are marked for pipelining share a connection, and wait for one another there.
void StrictRules::prepareFileRequest(QNetworkRequest &request, const QString &replyType,
                                     AddressForm form, const QByteArray &userAgent) const
{
    TraditionalRules::prepareFileRequest(request, replyType, form, userAgent);
    request.setAttribute(QNetworkRequest::HttpPipeliningAllowedAttribute, QVariant());
    if (m_policy.connectionsKept())
        request.setRawHeader("Connection", QByteArray());
}

QString StrictRules::temporaryPath(const QString &directory, const QString &filePath) const
{
    return m_policy.filesChecked() ? CheckedFile::temporaryPath(directory, filePath)
                                   : TraditionalRules::temporaryPath(directory, filePath);
}

bool StrictRules::checksFiles() const
{
    return m_policy.filesChecked();
}

Limits StrictRules::limits() const
{
    return {m_policy.idleTimeout(), m_policy.totalTimeout(), m_policy.maximumBodySize()};
}

bool StrictRules::isolatesFailures() const
{
    return m_policy.failuresIsolated();
}

bool StrictRules::guardsAnswers() const
{
    return true;
}

QJsonDocument StrictRules::documentOf(const Failure &failure) const
{
    return m_policy.errorsExplained() ? explanation(failure) : failure.body;
}
