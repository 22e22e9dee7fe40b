#ifndef TARVISNET_TESTS_SERVEDFAULTS_H
#define TARVISNET_TESTS_SERVEDFAULTS_H

#include "scriptedserver.h"

#include <QtNetwork/QNetworkReply>

#include <functional>

/// One way in which a server fails in its answer, and what of it reaches the application.
struct ServedFault {
    enum class Ending { Finish, Cut, Reset };

    QByteArray name;
    std::function<void(HttpResponse &)> begin;
    /// Follows as soon as the client has read what begin sent, or at once when there is no body:
    /// a reset throws away what is still on its way.
    Ending ending = Ending::Finish;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    /// As Qt tells it at the end; 0 when no status line arrived.
    int status = 0;
    /// What of the body reaches the application.
    QByteArray body = QByteArray();
    /// Size that a download is said to have.
    qulonglong size = 1000;
    /// Whether body and ending come in one.
    bool isAtOnce = false;

    void end(HttpResponse &response) const;
    bool endsAtOnce() const { return isAtOnce || body.isEmpty(); }
    /// Whether the outcome is open over HTTP: there Qt takes a body that breaks off for cut or for
    /// whole, as its thread happens to run.
    bool mayLookWhole() const
    {
        return error == QNetworkReply::RemoteHostClosedError && !endsAtOnce();
    }
};

Q_DECLARE_METATYPE(ServedFault)

QList<ServedFault> servedFaults();

/// A status by which a server refuses, and what Qt makes of it.
struct Refusal {
    int status;
    QNetworkReply::NetworkError error;
};

QList<Refusal> refusals();
/// JSON, something else, and nothing.
QList<QByteArray> refusalBodies();

#endif // TARVISNET_TESTS_SERVEDFAULTS_H
