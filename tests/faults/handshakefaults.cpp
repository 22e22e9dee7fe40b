#include "handshakefaults.h"

#include "nginxserver.h"
#include "opensslserver.h"

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

namespace {

using Start = std::function<ForeignServer()>;

/// Says something in clear to whoever greets in TLS.
class ClearServer : public QTcpServer {
public:
    ClearServer()
    {
        if (!listen(QHostAddress::LocalHost))
            qFatal("no server in clear");
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket *const socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket,
                    [socket] { socket->write("HTTP/1.1 400 Bad Request\r\n\r\n"); });
        });
    }
    QUrl url() const { return QUrl(QString("https://127.0.0.1:%1/fault").arg(serverPort())); }
};

ForeignServer clear()
{
    const auto server = std::make_shared<ClearServer>();
    return {server, server->url()};
}

Start nginx(const QByteArray &configuration, const QByteArray &protocols = "TLSv1.2 TLSv1.3")
{
    return [configuration, protocols]() -> ForeignServer {
        const auto server = std::make_shared<NginxServer>(configuration, protocols);
        return {server, server->httpsUrl("/fault")};
    };
}

Start openssl(const QStringList &options)
{
    return [options]() -> ForeignServer {
        const auto server = std::make_shared<OpensslServer>(options);
        return {server, server->url("/fault")};
    };
}

} // namespace

QList<HandshakeFault> handshakeFaults()
{
    const Ending failed = {QNetworkReply::SslHandshakeFailedError};
    const QByteArray asks =
        "ssl_verify_client on;\n"
        "ssl_client_certificate \"" TARVISNET_TEST_CERTIFICATES "/server.crt\";\n"
        "error_page 496 =400 /refused;\n"
        "location = /refused { internal; return 400 'no'; }";
    const QList<QSslError::SslError> selfSigned = {QSslError::SelfSignedCertificate};
    return {
        {"clear text", clear, failed},
        {"TLS 1.0 only", nginx("ssl_ciphers ALL:@SECLEVEL=0;", "TLSv1"), failed},
        {"handshake rejected", nginx("ssl_reject_handshake on;"), failed},
        {"no cipher in common", nginx("ssl_ciphers ECDHE-ECDSA-AES128-GCM-SHA256;", "TLSv1.2"),
         failed},
        {"certificate demanded, TLS 1.2", openssl({"-tls1_2", "-Verify", "1"}), failed},
        // The refusal comes when the client takes the handshake for done.
        {"certificate demanded, TLS 1.3",
         openssl({"-tls1_3", "-Verify", "1"}),
         {QNetworkReply::UnknownNetworkError},
         selfSigned},
        {"certificate demanded by the answer",
         nginx(asks),
         {QNetworkReply::ProtocolInvalidOperationError, 400, "no"},
         selfSigned},
    };
}

QUrl ForeignServers::urlOf(const HandshakeFault &fault)
{
    ForeignServer &server = m_servers[fault.name];
    if (!server.server)
        server = fault.start();
    return server.url;
}
