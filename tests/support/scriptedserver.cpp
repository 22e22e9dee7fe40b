#include "scriptedserver.h"

#include "httpconnection.h"

#include <QtCore/QFile>
#include <QtCore/QRandomGenerator>
#include <QtNetwork/QSslConfiguration>
#include <QtNetwork/QSslKey>
#include <QtNetwork/QSslSocket>
#include <QtNetwork/QTcpServer>

#include <algorithm>
#include <iterator>

/// Hands over descriptors, because a pending connection would already have its kind of socket.
class ScriptedTcpServer : public QTcpServer {
public:
    explicit ScriptedTcpServer(ScriptedServer *owner)
        : m_owner(owner)
    {
    }

protected:
    void incomingConnection(qintptr descriptor) override { m_owner->accept(descriptor); }

private:
    ScriptedServer *const m_owner;
};

namespace {

// Begins anywhere, so that tests that run side by side seldom meet, and goes on from there.
class PortRange {
public:
    PortRange(quint16 first, quint16 size)
        : m_first(first)
        , m_size(size)
        , m_step(QRandomGenerator::global()->bounded(size))
    {
    }

    void listenSomewhere(QTcpServer *server)
    {
        for (int attempt = 0; attempt < m_size; ++attempt) {
            const quint16 port = quint16(m_first + m_step++ % m_size);
            if (server->listen(QHostAddress::LocalHost, port))
                return;
        }
        qFatal("no port can be listened on: %s", qPrintable(server->errorString()));
    }

private:
    const quint16 m_first;
    const quint16 m_size;
    quint32 m_step;
};

QByteArray readPem(ScriptedServer::Certificate certificate, const QString &suffix)
{
    const QString name = certificate == ScriptedServer::Certificate::Good
        ? QStringLiteral("/server")
        : QStringLiteral("/wrongname");
    QFile file(QStringLiteral(TARVISNET_TEST_CERTIFICATES) + name + suffix);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", qPrintable(file.fileName()));
    return file.readAll();
}

} // namespace

ScriptedServer::ScriptedServer(Mode mode)
    : m_mode(mode)
    , m_listener(new ScriptedTcpServer(this))
    , m_fallback([](const Request &, Response &response) { response.send(404); })
{
    listenSomewhere(m_listener.data());
    m_port = m_listener->serverPort();
}

ScriptedServer::~ScriptedServer()
{
    stop();
}

void ScriptedServer::setCertificate(Certificate certificate)
{
    m_certificate = certificate;
}

void ScriptedServer::setClientCertificateRequired(bool required)
{
    m_clientCertificateRequired = required;
}

void ScriptedServer::setTlsProtocol(QSsl::SslProtocol protocol)
{
    m_protocol = protocol;
}

void ScriptedServer::on(const QByteArray &path, const Handler &handler)
{
    m_handlers.insert(path, handler);
}

void ScriptedServer::onRequest(const Handler &handler)
{
    m_fallback = handler;
}

void ScriptedServer::accept(qintptr descriptor)
{
    QTcpSocket *const socket = m_mode == Mode::Https ? new QSslSocket(this) : new QTcpSocket(this);
    if (!socket->setSocketDescriptor(descriptor)) {
        delete socket;
        return;
    }
    ++m_accepted;
    adopt(socket);
    m_awaiter.changed();
}

void ScriptedServer::adopt(QTcpSocket *socket)
{
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_open.append(socket);
    connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
        m_open.removeOne(socket);
        socket->deleteLater();
        m_awaiter.changed();
    });

    if (m_mode == Mode::CloseAfterClientHello)
        connect(socket, &QTcpSocket::readyRead, socket, [socket] {
            socket->readAll();
            socket->disconnectFromHost();
        });
    if (m_mode == Mode::Http || m_mode == Mode::Https)
        new HttpConnection(socket, [this](const Request &request, Response response) {
            handle(request, response);
        });
    if (auto *const tls = qobject_cast<QSslSocket *>(socket))
        startTls(tls);
}

void ScriptedServer::startTls(QSslSocket *socket)
{
    // Nothing is taken from the default configuration, because the client under test changes it.
    QSslConfiguration configuration;
    configuration.setProtocol(m_protocol);
    configuration.setPeerVerifyMode(m_clientCertificateRequired ? QSslSocket::VerifyPeer
                                                                : QSslSocket::VerifyNone);
    configuration.setLocalCertificate(
        QSslCertificate(readPem(m_certificate, QStringLiteral(".crt"))));
    configuration.setPrivateKey(QSslKey(readPem(m_certificate, QStringLiteral(".key")), QSsl::Rsa));
    socket->setSslConfiguration(configuration);
    socket->startServerEncryption();
}

void ScriptedServer::handle(const Request &request, Response response)
{
    m_requests.append(request);
    m_awaiter.changed();
    // A copy, because a handler may replace itself.
    const Handler handler = m_handlers.value(request.path(), m_fallback);
    handler(request, response);
}

QList<ScriptedServer::Request> ScriptedServer::requests() const
{
    return m_requests;
}

QList<ScriptedServer::Request> ScriptedServer::requests(const QByteArray &path) const
{
    QList<Request> found;
    std::copy_if(m_requests.begin(), m_requests.end(), std::back_inserter(found),
                 [&path](const Request &request) { return request.path() == path; });
    return found;
}

bool ScriptedServer::waitForRequests(int count, int msec)
{
    return m_awaiter.wait([this, count] { return m_requests.size() >= count; }, msec);
}

bool ScriptedServer::waitForAccepted(int count, int msec)
{
    return m_awaiter.wait([this, count] { return m_accepted >= count; }, msec);
}

bool ScriptedServer::waitForConnections(int count, int msec)
{
    return m_awaiter.wait([this, count] { return m_open.size() == count; }, msec);
}

void ScriptedServer::clear()
{
    m_requests.clear();
}

quint16 ScriptedServer::port() const
{
    return m_port;
}

QUrl ScriptedServer::url(const QString &pathAndQuery) const
{
    const QString scheme = m_mode == Mode::Http ? QStringLiteral("http") : QStringLiteral("https");
    return QUrl(QStringLiteral("%1://127.0.0.1:%2").arg(scheme).arg(m_port) + pathAndQuery);
}

void ScriptedServer::closeAll()
{
    const QList<QTcpSocket *> open = m_open;
    for (QTcpSocket *socket : open)
        socket->abort();
}

void ScriptedServer::refuse()
{
    m_listener->close();
}

void ScriptedServer::stop()
{
    refuse();
    closeAll();
}

void ScriptedServer::restart()
{
    if (!m_listener->listen(QHostAddress::LocalHost, m_port))
        qFatal("cannot listen on port %d again", m_port);
}

void ScriptedServer::listenSomewhere(QTcpServer *server)
{
    static PortRange range(20000, 12000);
    range.listenSomewhere(server);
}

// Where no test listens itself: whoever gets the port may take a while to use it.
quint16 ScriptedServer::freePort()
{
    static PortRange range(10000, 10000);
    QTcpServer server;
    range.listenSomewhere(&server);
    return server.serverPort();
}

#include "moc_scriptedserver.cpp"
