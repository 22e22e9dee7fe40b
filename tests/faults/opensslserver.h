#ifndef TARVISNET_TESTS_OPENSSLSERVER_H
#define TARVISNET_TESTS_OPENSSLSERVER_H

#include "boundprocess.h"

#include <QtCore/QUrl>

/// The TLS server that comes with openssl. It tells a client by an alert why it refuses it, and
/// waits until that was read. It is a process of its own and ends with this object.
class OpensslServer {
public:
    /// \a options are those of "openssl s_server". It is fatal when the server does not start.
    explicit OpensslServer(const QStringList &options);
    ~OpensslServer();

    QUrl url(const QString &path) const;

private:
    Q_DISABLE_COPY(OpensslServer)

    const quint16 m_port;
    BoundProcess m_process;
};

#endif // TARVISNET_TESTS_OPENSSLSERVER_H
