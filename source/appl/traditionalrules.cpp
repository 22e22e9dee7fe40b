#include "traditionalrules_p.h"

#include "errorcodes.h"
#include "failure_p.h"
#include "records.h"
#include "replyinfo_p.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtNetwork/QNetworkAccessManager>

#include <algorithm>
#include <iterator>

namespace {

constexpr ErrorRule errorRules[] = {
    {QNetworkReply::OperationCanceledError, 0, 0, false},
    {QNetworkReply::SslHandshakeFailedError, errorcodes::ssl_handshake_failed,
     errorcodes::network_error, true},
    {QNetworkReply::UnknownNetworkError, errorcodes::unknown_network_error,
     errorcodes::unknown_network_error, true},
    {QNetworkReply::ContentNotFoundError, errorcodes::content_not_found,
     errorcodes::content_not_found, true},
    {QNetworkReply::AuthenticationRequiredError, errorcodes::authentication_required,
     errorcodes::network_error, false},
    {QNetworkReply::ProtocolInvalidOperationError, errorcodes::protocol_invalid_operation,
     errorcodes::network_error, false},
};

} // namespace

TransferRules::~TransferRules() = default;

/// Installed for the whole process: the certificates of content servers are not verified.
QSslConfiguration TraditionalRules::tlsConfiguration() const
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setProtocol(QSsl::TlsV1_0OrLater);
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    QSslConfiguration::setDefaultConfiguration(configuration);
    return configuration;
}

QNetworkAccessManager *TraditionalRules::newManager() const
{
    return new QNetworkAccessManager;
}

int TraditionalRules::downloadThreads() const
{
    return 1;
}

bool TraditionalRules::isSpread(const Transfer & /*transfer*/) const
{
    return false;
}

bool TraditionalRules::allowsHttp2(const Transfer & /*transfer*/) const
{
    return false;
}

bool TraditionalRules::checksPeerOfProbe() const
{
    return false;
}

/// The connection is not kept: once the file is there, nobody else is going to use it.
void TraditionalRules::prepareFileRequest(QNetworkRequest &request, const QString &replyType,
                                          AddressForm form, const QByteArray &userAgent) const
{
    request.setRawHeader("User-Agent", userAgent);
    request.setRawHeader("Connection", "close");
    if (replyType == replies::remote_binary && form == AddressForm::Path)
        request.setAttribute(QNetworkRequest::HttpPipeliningAllowedAttribute, true);
}

bool TraditionalRules::acceptsTlsErrors() const
{
    return true;
}

const char *TraditionalRules::faultOfPeer(const QSslCertificate &certificate) const
{
    if (certificate.isNull())
        return "Null cert";
    return certificate.isBlacklisted() ? "Blacklist cert (untrust)" : nullptr;
}

/// Nothing of the first request is carried over.
QNetworkRequest TraditionalRules::redirectRequest(const QUrl &target,
                                                  const QSslConfiguration &tls) const
{
    QNetworkRequest request(target);
    request.setSslConfiguration(tls);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QString(mime::wwwForm));
    return request;
}

Arrival TraditionalRules::arrival(const QString &replyType, int status) const
{
    if (!replyinfo::isFileKind(replyType))
        return Arrival::Kept;
    return status >= 200 && status < 300 ? Arrival::Saved : Arrival::Unread;
}

/// Taken as a signed number, as it always was: for a size beyond those nothing is written.
quint64 TraditionalRules::sizeToAppendTo(const FileData &file) const
{
    return qint64(file.size) < 0 ? 0 : file.size;
}

QString TraditionalRules::temporaryPath(const QString &directory, const QString &filePath) const
{
    const QDir place(directory.isEmpty() ? QDir::tempPath() : directory);
    // Appended, not formatted: the name may itself contain what looks like a place to fill in.
    return place.absoluteFilePath(QFileInfo(filePath).fileName()) + QLatin1Char('.')
        + general::temp_file_suffix;
}

bool TraditionalRules::checksFiles() const
{
    return false;
}

Limits TraditionalRules::limits() const
{
    return {};
}

bool TraditionalRules::isolatesFailures() const
{
    return false;
}

bool TraditionalRules::guardsAnswers() const
{
    return false;
}

NextStep TraditionalRules::nextStep(const Transfer & /*transfer*/,
                                    const QNetworkReply & /*reply*/) const
{
    return {};
}

NextStep TraditionalRules::stepAfterSilence(const Transfer & /*transfer*/) const
{
    return {};
}

NextStep TraditionalRules::stepAfterBreak(const Transfer & /*transfer*/) const
{
    return {};
}

NextStep TraditionalRules::stepAfterDrop(const Transfer & /*transfer*/) const
{
    return {};
}

ErrorRule TraditionalRules::errorRule(QNetworkReply::NetworkError error) const
{
    const auto rule = std::find_if(std::begin(errorRules), std::end(errorRules),
                                   [error](const ErrorRule &row) { return row.error == error; });
    if (rule != std::end(errorRules))
        return *rule;
    return {error, errorcodes::network_error, errorcodes::network_error, true};
}

QJsonDocument TraditionalRules::documentOf(const Failure &failure) const
{
    return failure.body;
}

bool TraditionalRules::putsInPlace(const QString &replyType) const
{
    return replyType == replies::remote_binary;
}
