#ifndef TARVISNET_TESTS_SCRIPTEDSERVER_H
#define TARVISNET_TESTS_SCRIPTEDSERVER_H

#include "awaiter.h"
#include "httprequest.h"
#include "httpresponse.h"

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QScopedPointer>
#include <QtCore/QUrl>
#include <QtNetwork/QSsl>

#include <functional>

QT_BEGIN_NAMESPACE
class QTcpServer;
class QTcpSocket;
QT_END_NAMESPACE

class ScriptedTcpServer;

/// An HTTP or HTTPS server on 127.0.0.1 that answers what the test says, or misbehaves as it says:
///
///     ScriptedServer server;
///     server.on("/index.json", answers::json({{"version", 3}}));
///     server.on("/never", answers::withhold());
///     server.on("/broken", [](const HttpRequest &, HttpResponse &response) {
///         response.sendHead(200, {}, 1000);
///         response.write("only a little");
///         response.cut();
///     });
///     client.rawGet(server.url("/index.json"));
///
/// It listens from its construction on and lives in the test's own thread, in its event loop: there
/// is no concurrency to reason about, but a test that blocks the event loop blocks the server.
/// Ports are below 32768, because the reachability probe keeps its port in a signed 16-bit value.
class ScriptedServer : public QObject {
    Q_OBJECT

public:
    using Request = HttpRequest;
    using Response = HttpResponse;
    using Handler = std::function<void(const Request &, Response &)>;

    enum class Mode {
        Http,
        Https,
        /// Accepts connections and never says a word.
        MuteTls,
        /// Closes each connection as soon as the client has said something.
        CloseAfterClientHello,
    };

    /// Both are self-signed.
    enum class Certificate {
        /// For localhost and 127.0.0.1.
        Good,
        /// For elsewhere.example.
        WrongName,
    };

    explicit ScriptedServer(Mode mode = Mode::Http);
    ~ScriptedServer() override;

    /// \name TLS of the connections to come
    /// @{

    void setCertificate(Certificate certificate);
    /// Refuses clients without a certificate, which is to say all.
    void setClientCertificateRequired(bool required);
    /// QSsl::TlsV1_2 for example; by default what Qt considers secure.
    void setTlsProtocol(QSsl::SslProtocol protocol);

    /// @}
    /// \name The script
    /// @{

    /// \a handler answers requests for exactly \a path, whatever their query.
    void on(const QByteArray &path, const Handler &handler);
    /// \a handler answers all requests whose path has no handler. Without it they get a 404.
    void onRequest(const Handler &handler);

    /// @}
    /// \name What was seen
    /// @{

    /// All requests so far, in order of their completion, those that were not answered included.
    QList<Request> requests() const;
    /// Requests for exactly \a path, whatever their query.
    QList<Request> requests(const QByteArray &path) const;
    /// Runs the event loop until there are at least \a count requests. False when that takes longer
    /// than \a msec.
    bool waitForRequests(int count, int msec = 10000);
    /// Runs the event loop until at least \a count connections were accepted.
    bool waitForAccepted(int count, int msec = 10000);
    /// Runs the event loop until exactly \a count connections are open. One of HTTPS counts before
    /// its handshake too.
    bool waitForConnections(int count, int msec = 10000);
    /// Forgets the requests; connections and handlers stay.
    void clear();

    /// @}
    /// \name The socket
    /// @{

    quint16 port() const;
    /// http or https URL of \a pathAndQuery, which is taken as encoded.
    QUrl url(const QString &pathAndQuery = QStringLiteral("/")) const;
    /// Closes every open connection at once.
    void closeAll();
    /// Refuses new connections; those that are open go on, and port() remains.
    void refuse();
    /// Closes every connection and refuses new ones; port() remains.
    void stop();
    /// Listens on the same port again.
    void restart();

    /// @}

    /// Has \a server listen on some port of 127.0.0.1, below 32768.
    static void listenSomewhere(QTcpServer *server);
    /// A port of 127.0.0.1, below 20000, that nobody listens on.
    static quint16 freePort();

private:
    friend class HttpConnection;
    friend class ScriptedTcpServer;

    void accept(qintptr descriptor);
    void adopt(QTcpSocket *socket);
    void startTls(class QSslSocket *socket);
    void handle(const Request &request, Response response);

    const Mode m_mode;
    Certificate m_certificate = Certificate::Good;
    bool m_clientCertificateRequired = false;
    QSsl::SslProtocol m_protocol = QSsl::SecureProtocols;
    quint16 m_port = 0;
    QScopedPointer<ScriptedTcpServer> m_listener;
    QHash<QByteArray, Handler> m_handlers;
    Handler m_fallback;
    QList<Request> m_requests;
    QList<QTcpSocket *> m_open;
    int m_accepted = 0;
    Awaiter m_awaiter;
};

Q_DECLARE_METATYPE(ScriptedServer::Certificate)
Q_DECLARE_METATYPE(ScriptedServer::Handler)
Q_DECLARE_METATYPE(ScriptedServer::Mode)

#endif // TARVISNET_TESTS_SCRIPTEDSERVER_H
