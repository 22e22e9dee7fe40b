#ifndef TARVISNET_TESTS_HTTP2SERVER_H
#define TARVISNET_TESTS_HTTP2SERVER_H

#include "awaiter.h"
#include "http2connection.h"
#include "http2response.h"
#include "scriptedserver.h"

#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QUrl>
#include <QtNetwork/QTcpServer>

#include <functional>

QT_BEGIN_NAMESPACE
class QSslSocket;
QT_END_NAMESPACE

/// An HTTPS server on 127.0.0.1 that speaks HTTP/2, and HTTP/1.1 with who does not ask for it. It
/// answers what the test says, or misbehaves as it says:
///
///     Http2Server server;
///     server.on("/index.json", Http2Server::bytes("{}"));
///     server.on("/refused", [](const HttpRequest &, Http2Response &response) {
///         response.reset(Http2Response::RefusedStream);
///     });
///     client.rawGet(server.url("/index.json"));
///     QCOMPARE(server.seen(), QStringList{"h2: GET /index.json"});
///
/// As the ScriptedServer it listens from its construction on, has the certificate that is good for
/// 127.0.0.1, and lives in the test's own thread.
class Http2Server : public QObject {
public:
    using Handler = std::function<void(const HttpRequest &, Http2Response &)>;

    Http2Server();
    ~Http2Server() override;

    /// Counts for connections to come.
    void setSettings(const Http2Settings &settings) { m_settings = settings; }

    /// \name The script
    /// @{

    /// \a handler answers requests by HTTP/2 for exactly \a path, whatever their query.
    void on(const QByteArray &path, const Handler &handler);
    /// \a handlers answer such requests one after the other, the last one all that follow.
    void on(const QByteArray &path, const QList<Handler> &handlers);
    /// \a handler answers all requests by HTTP/2 whose path has no handler. Without it they get a
    /// 404.
    void onRequest(const Handler &handler);
    /// \a handler answers all requests by HTTP/1.1. Without it they get a 404.
    void onHttp1(const ScriptedServer::Handler &handler);

    static Handler bytes(const QByteArray &body, int status = 200,
                         const HttpHeaders &headers = HttpHeaders());
    /// A file that can be resumed: "Range: bytes=N-" is answered with 206 and the rest of it.
    static Handler file(const QByteArray &content, const HttpHeaders &headers = HttpHeaders());
    /// No answer at all; the stream stays open.
    static Handler withhold();

    /// @}
    /// \name What was seen
    /// @{

    /// A line for each connection whose handshake succeeded, in their order: the protocol and the
    /// requests, "h2: GET /a, POST /b".
    QStringList seen() const;
    /// Requests for exactly \a path, whatever their query, by either protocol.
    QList<HttpRequest> requests(const QByteArray &path) const;
    /// By either protocol, on whatever connections.
    int requestCount() const;
    /// Runs the event loop until there are at least \a count requests, on whatever connections.
    bool waitForRequests(int count, int msec = 10000);
    /// Runs the event loop until exactly \a count connections are open.
    bool waitForConnections(int count, int msec = 10000);

    /// @}
    /// \name The socket
    /// @{

    QUrl url(const QString &pathAndQuery = QStringLiteral("/")) const;
    /// Tells every client by HTTP/2 that no more requests are taken, and closes nothing.
    void goAway();
    /// Tells them that this will soon be so, as servers do that are about to stop.
    void announceGoAway();
    /// Says to every client that nothing follows, and leaves it to them to close the connection:
    /// when none is open any more they know.
    void closeAll();

    /// @}

private:
    class Listener;
    struct Seen {
        QByteArray protocol;
        QList<HttpRequest> requests;
    };

    void accept(qintptr descriptor);
    void startTls(QSslSocket *socket);
    void serve(QSslSocket *socket);
    void note(int connection, const HttpRequest &request);

    Http2Settings m_settings;
    QScopedPointer<QTcpServer> m_listener;
    QHash<QByteArray, Handler> m_handlers;
    Handler m_fallback;
    ScriptedServer::Handler m_http1;
    QList<Seen> m_seen;
    QList<QSslSocket *> m_open;
    QList<QPointer<Http2Connection>> m_http2;
    Awaiter m_awaiter;
};

Q_DECLARE_METATYPE(Http2Server::Handler)

#endif // TARVISNET_TESTS_HTTP2SERVER_H
