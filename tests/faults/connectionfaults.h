#ifndef TARVISNET_TESTS_CONNECTIONFAULTS_H
#define TARVISNET_TESTS_CONNECTIONFAULTS_H

#include "endings.h"
#include "scriptedserver.h"

#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QSslError>

#include <functional>

/// A way of not coming to an answer, or of coming to it by a certificate of no worth.
struct ConnectionFault {
    QByteArray name;
    ScriptedServer::Mode mode = ScriptedServer::Mode::Http;
    /// Makes the server fail and returns what it is to be asked for.
    std::function<QUrl(ScriptedServer &)> prepare;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    /// What is said against the certificate to the client, which verifies nobody, and to the
    /// processor, which has Qt do so.
    QList<QSslError::SslError> clientHears = {};
    QList<QSslError::SslError> processorHears = {};

    bool isAnswered() const { return error == QNetworkReply::NoError; }
    /// How a request ends whose answer would be \a body.
    Ending ending(const QByteArray &body) const
    {
        return isAnswered() ? Ending{error, 200, body} : Ending{error};
    }
};

Q_DECLARE_METATYPE(ConnectionFault)

QList<ConnectionFault> connectionFaults();

#endif // TARVISNET_TESTS_CONNECTIONFAULTS_H
