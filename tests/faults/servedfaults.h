#ifndef TARVISNET_TESTS_SERVEDFAULTS_H
#define TARVISNET_TESTS_SERVEDFAULTS_H

#include "endings.h"
#include "scriptedserver.h"

#include <tarvisnet/tarvisnet.h>

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

    /// Has \a server answer so to "/fault", and keeps the answer in \a answer.
    void serve(ScriptedServer &server, HttpResponse &answer) const;
    /// Does all of that, however often \a client asks.
    void serve(ScriptedServer &server, HttpResponse &answer, const TarvisNet &client) const;
    /// Ends \a answer once \a reply has read of it, unless it has ended at once.
    void endBehind(QNetworkReply *reply, HttpResponse &answer) const;
    /// How the request ends, given the error that was \a seen.
    ::Ending outcome(ScriptedServer::Mode mode, QNetworkReply::NetworkError seen) const;

private:
    void answerWith(HttpResponse &response, HttpResponse &answer) const;
    void end(HttpResponse &response) const;
    bool endsAtOnce() const { return isAtOnce || body.isEmpty(); }
};

Q_DECLARE_METATYPE(ServedFault)

QList<ServedFault> servedFaults();

/// A status and a body by which a server refuses, and what Qt makes of it.
struct Refusal {
    QByteArray name;
    Ending ending;
};

Q_DECLARE_METATYPE(Refusal)

/// Each status with JSON, with something else, and with nothing.
QList<Refusal> refusals();

#endif // TARVISNET_TESTS_SERVEDFAULTS_H
