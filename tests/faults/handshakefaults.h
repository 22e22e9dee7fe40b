#ifndef TARVISNET_TESTS_HANDSHAKEFAULTS_H
#define TARVISNET_TESTS_HANDSHAKEFAULTS_H

#include "endings.h"

#include <QtCore/QHash>
#include <QtCore/QUrl>
#include <QtNetwork/QSslError>

#include <functional>
#include <memory>

/// A server that listens as long as it is held.
struct ForeignServer {
    std::shared_ptr<void> server;
    QUrl url;
};

/// A server that is not ours, and with which there is no handshake, or one for nothing.
struct HandshakeFault {
    QByteArray name;
    std::function<ForeignServer()> start;
    Ending ending;
    /// What the processor, which has Qt verify, hears against the certificate before.
    QList<QSslError::SslError> processorHears = {};
};

Q_DECLARE_METATYPE(HandshakeFault)

QList<HandshakeFault> handshakeFaults();

/// Starts each of the servers once, when it is needed.
class ForeignServers {
public:
    QUrl urlOf(const HandshakeFault &fault);

private:
    QHash<QByteArray, ForeignServer> m_servers;
};

#endif // TARVISNET_TESTS_HANDSHAKEFAULTS_H
