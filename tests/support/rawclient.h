#ifndef TARVISNET_TESTS_RAWCLIENT_H
#define TARVISNET_TESTS_RAWCLIENT_H

#include "awaiter.h"
#include "scriptedserver.h"

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtNetwork/QSslConfiguration>
#include <QtNetwork/QSslSocket>

/// A bare connection to a ScriptedServer, which shows the bytes and the end of the connection as
/// they are. It trusts every certificate.
class RawClient : public QObject {
    Q_OBJECT

public:
    explicit RawClient(const ScriptedServer &server);

    void send(const QByteArray &bytes) { m_socket.write(bytes); }
    /// Sends a GET request without further headers.
    void get(const QByteArray &target) { send("GET " + target + " HTTP/1.1\r\n\r\n"); }

    QByteArray received() const { return m_received; }
    /// What was received in one go, piece by piece.
    QList<QByteArray> pieces() const { return m_pieces; }
    QSslSocket &socket() { return m_socket; }

    bool waitFor(const QByteArray &part, int msec = 10000);
    /// Waits until the connection has ended.
    bool waitForEnd(int msec = 10000);
    /// Waits until the connection is there, encrypted if it is to be.
    bool waitForConnected(int msec = 10000);

    /// A client configuration that accepts every certificate.
    static QSslConfiguration trusting();

private:
    QByteArray m_received;
    QList<QByteArray> m_pieces;
    bool m_isConnected = false;
    bool m_hasEnded = false;
    Awaiter m_awaiter;
    // The last, because its destructor emits.
    QSslSocket m_socket;
};

#endif // TARVISNET_TESTS_RAWCLIENT_H
