#include "rawclient.h"

RawClient::RawClient(const ScriptedServer &server)
{
    const QUrl url = server.url();
    const bool isTls = url.scheme() == QLatin1String("https");
    const auto connected = [this] {
        m_isConnected = true;
        m_awaiter.changed();
    };
    if (isTls)
        connect(&m_socket, &QSslSocket::encrypted, this, connected);
    else
        connect(&m_socket, &QSslSocket::connected, this, connected);
    connect(&m_socket, &QSslSocket::readyRead, this, [this] {
        m_pieces.append(m_socket.readAll());
        m_received += m_pieces.last();
        m_awaiter.changed();
    });
    connect(&m_socket, &QSslSocket::disconnected, this, [this] {
        m_hasEnded = true;
        m_awaiter.changed();
    });

    m_socket.setSslConfiguration(trusting());
    if (isTls)
        m_socket.connectToHostEncrypted(url.host(), server.port());
    else
        m_socket.connectToHost(url.host(), server.port());
}

bool RawClient::waitFor(const QByteArray &part, int msec)
{
    return m_awaiter.wait([this, &part] { return m_received.contains(part); }, msec);
}

bool RawClient::waitForEnd(int msec)
{
    return m_awaiter.wait([this] { return m_hasEnded; }, msec);
}

bool RawClient::waitForConnected(int msec)
{
    return m_awaiter.wait([this] { return m_isConnected; }, msec);
}

QSslConfiguration RawClient::trusting()
{
    QSslConfiguration configuration;
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    return configuration;
}
