#include "http2server.h"

#include "httpconnection.h"

#include <QtCore/QFile>
#include <QtNetwork/QSslConfiguration>
#include <QtNetwork/QSslKey>
#include <QtNetwork/QSslSocket>

#include <sys/socket.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <numeric>

namespace {

const char http2[] = "h2";
const char http1[] = "http/1.1";

QString certificatePath(const char *suffix)
{
    return QStringLiteral(TARVISNET_TEST_CERTIFICATES "/server") + QLatin1String(suffix);
}

QSslConfiguration tlsConfiguration()
{
    QFile key(certificatePath(".key"));
    if (!key.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", qPrintable(key.fileName()));
    QSslConfiguration configuration;
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    configuration.setLocalCertificate(QSslCertificate::fromPath(certificatePath(".crt")).value(0));
    configuration.setPrivateKey(QSslKey(&key, QSsl::Rsa));
    configuration.setAllowedNextProtocols({http2, http1});
    return configuration;
}

} // namespace

/// Hands over descriptors, because a pending connection would already have its kind of socket.
class Http2Server::Listener : public QTcpServer {
public:
    explicit Listener(Http2Server *owner)
        : m_owner(owner)
    {
    }

protected:
    void incomingConnection(qintptr descriptor) override { m_owner->accept(descriptor); }

private:
    Http2Server *const m_owner;
};

Http2Server::Http2Server()
    : m_listener(new Listener(this))
    , m_fallback(bytes(QByteArray(), 404))
    , m_http1([](const HttpRequest &, HttpResponse &response) { response.send(404); })
{
    ScriptedServer::listenSomewhere(m_listener.data());
}

Http2Server::~Http2Server()
{
    const QList<QSslSocket *> open = m_open;
    for (QSslSocket *socket : open)
        socket->abort();
}

void Http2Server::on(const QByteArray &path, const Handler &handler)
{
    m_handlers.insert(path, handler);
}

void Http2Server::on(const QByteArray &path, const QList<Handler> &handlers)
{
    // Shared, because handlers are copied.
    const auto left = std::make_shared<QList<Handler>>(handlers);
    on(path, [left](const HttpRequest &request, Http2Response &response) {
        const Handler next = left->size() > 1 ? left->takeFirst() : left->first();
        next(request, response);
    });
}

void Http2Server::onRequest(const Handler &handler)
{
    m_fallback = handler;
}

void Http2Server::onHttp1(const ScriptedServer::Handler &handler)
{
    m_http1 = handler;
}

Http2Server::Handler Http2Server::bytes(const QByteArray &body, int status,
                                        const HttpHeaders &headers)
{
    return [body, status, headers](const HttpRequest &, Http2Response &response) {
        response.send(status, headers, body);
    };
}

Http2Server::Handler Http2Server::file(const QByteArray &content, const HttpHeaders &headers)
{
    return [content, headers](const HttpRequest &request, Http2Response &response) {
        const QByteArray range = request.header("range");
        if (range.isNull())
            return response.send(200, headers, content);
        // "bytes=N-"
        const int from = range.mid(6, range.size() - 7).toInt();
        const QByteArray part = "bytes " + QByteArray::number(from) + '-'
            + QByteArray::number(content.size() - 1) + '/' + QByteArray::number(content.size());
        response.send(206, headers + HttpHeaders{{"content-range", part}}, content.mid(from));
    };
}

Http2Server::Handler Http2Server::withhold()
{
    return [](const HttpRequest &, Http2Response &) {};
}

void Http2Server::accept(qintptr descriptor)
{
    auto *const socket = new QSslSocket(this);
    if (!socket->setSocketDescriptor(descriptor)) {
        delete socket;
        return;
    }
    m_open.append(socket);
    connect(socket, &QSslSocket::disconnected, this, [this, socket] {
        m_open.removeOne(socket);
        socket->deleteLater();
        m_awaiter.changed();
    });
    startTls(socket);
    m_awaiter.changed();
}

void Http2Server::startTls(QSslSocket *socket)
{
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    socket->setSslConfiguration(tlsConfiguration());
    connect(socket, &QSslSocket::encrypted, this, [this, socket] { serve(socket); });
    socket->startServerEncryption();
}

void Http2Server::serve(QSslSocket *socket)
{
    const bool isHttp2 = socket->sslConfiguration().nextNegotiatedProtocol() == http2;
    const int connection = m_seen.size();
    m_seen.append(Seen{isHttp2 ? http2 : http1, {}});
    if (!isHttp2) {
        new HttpConnection(socket,
                           [this, connection](const HttpRequest &request, HttpResponse response) {
                               note(connection, request);
                               m_http1(request, response);
                           });
        return;
    }
    m_http2.append(new Http2Connection(
        socket, m_settings, [this, connection](const HttpRequest &request, Http2Response response) {
            note(connection, request);
            // A copy, because a handler may replace itself.
            const Handler handler = m_handlers.value(request.path(), m_fallback);
            handler(request, response);
        }));
}

void Http2Server::note(int connection, const HttpRequest &request)
{
    m_seen[connection].requests.append(request);
    m_awaiter.changed();
}

QStringList Http2Server::seen() const
{
    QStringList lines;
    for (const Seen &connection : m_seen) {
        QStringList requests;
        for (const HttpRequest &request : connection.requests)
            requests.append(QString::fromLatin1(request.method + ' ' + request.target));
        lines.append(QString::fromLatin1(connection.protocol) + ": " + requests.join(", "));
    }
    return lines;
}

QList<HttpRequest> Http2Server::requests(const QByteArray &path) const
{
    QList<HttpRequest> found;
    for (const Seen &connection : m_seen) {
        std::copy_if(connection.requests.begin(), connection.requests.end(),
                     std::back_inserter(found),
                     [&path](const HttpRequest &request) { return request.path() == path; });
    }
    return found;
}

int Http2Server::requestCount() const
{
    return std::accumulate(m_seen.begin(), m_seen.end(), 0, [](int sum, const Seen &connection) {
        return sum + connection.requests.size();
    });
}

bool Http2Server::waitForRequests(int count, int msec)
{
    return m_awaiter.wait([this, count] { return requestCount() >= count; }, msec);
}

bool Http2Server::waitForConnections(int count, int msec)
{
    return m_awaiter.wait([this, count] { return m_open.size() == count; }, msec);
}

QUrl Http2Server::url(const QString &pathAndQuery) const
{
    return QUrl(QStringLiteral("https://127.0.0.1:%1").arg(m_listener->serverPort())
                + pathAndQuery);
}

void Http2Server::goAway()
{
    for (const QPointer<Http2Connection> &connection : qAsConst(m_http2)) {
        if (connection)
            connection->goAway();
    }
}

void Http2Server::announceGoAway()
{
    for (const QPointer<Http2Connection> &connection : qAsConst(m_http2)) {
        if (connection)
            connection->announceGoAway();
    }
}

void Http2Server::closeAll()
{
    for (QSslSocket *socket : qAsConst(m_open))
        ::shutdown(int(socket->socketDescriptor()), SHUT_WR);
}
