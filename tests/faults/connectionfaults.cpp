#include "connectionfaults.h"

namespace {

using Mode = ScriptedServer::Mode;
using Prepare = std::function<QUrl(ScriptedServer &)>;

constexpr auto noNetworkError = QNetworkReply::NoError;
constexpr auto refused = QNetworkReply::ConnectionRefusedError;
constexpr auto hostClosed = QNetworkReply::RemoteHostClosedError;
constexpr auto notFound = QNetworkReply::HostNotFoundError;

QUrl urlOf(ScriptedServer &server)
{
    return server.url("/fault");
}

QUrl stopped(ScriptedServer &server)
{
    server.stop();
    return urlOf(server);
}

QUrl inClear(ScriptedServer &server)
{
    QUrl url = urlOf(server);
    url.setScheme("http");
    return url;
}

QUrl withWrongName(ScriptedServer &server)
{
    server.setCertificate(ScriptedServer::Certificate::WrongName);
    return urlOf(server);
}

Prepare elsewhere(const char *scheme)
{
    // No name server is asked for a name that is too long for one.
    const QString host = (QString(60, 'a') + '.').repeated(5) + "invalid";
    const QUrl url(QString("%1://%2/fault").arg(scheme, host));
    return [url](ScriptedServer &) { return url; };
}

Prepare demanding(QSsl::SslProtocol protocol)
{
    return [protocol](ScriptedServer &server) {
        server.setTlsProtocol(protocol);
        server.setClientCertificateRequired(true);
        return urlOf(server);
    };
}

} // namespace

QList<ConnectionFault> connectionFaults()
{
    const auto selfSigned = QSslError::SelfSignedCertificate;
    const auto mismatch = QSslError::HostNameMismatch;
    return {
        {"closed port, HTTP", Mode::Http, stopped, refused},
        {"closed port, HTTPS", Mode::Https, stopped, refused},
        {"unknown host, HTTP", Mode::Http, elsewhere("http"), notFound},
        {"unknown host, HTTPS", Mode::Https, elsewhere("https"), notFound},
        {"closed after the greeting", Mode::CloseAfterClientHello, urlOf, hostClosed},
        {"HTTP to a TLS port", Mode::Https, inClear, hostClosed},
        // Qt's own server closes without a word. Those of others say why, and end otherwise.
        {"client certificate demanded, TLS 1.2", Mode::Https, demanding(QSsl::TlsV1_2), hostClosed},
        // The client is through with its part of the handshake before it is refused.
        {"client certificate demanded, TLS 1.3",
         Mode::Https,
         demanding(QSsl::TlsV1_3),
         hostClosed,
         {},
         {selfSigned}},
        {"self-signed certificate", Mode::Https, urlOf, noNetworkError, {}, {selfSigned}},
        {"certificate of another name",
         Mode::Https,
         withWrongName,
         noNetworkError,
         {mismatch},
         {mismatch, selfSigned}},
    };
}
