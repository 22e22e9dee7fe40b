#include "servedfaults.h"

#include "clientbench.h"
#include "onqt6.h"

namespace {

using Ending = ServedFault::Ending;
using Begin = std::function<void(HttpResponse &)>;

constexpr auto noError = QNetworkReply::NoError;
constexpr auto closed = QNetworkReply::RemoteHostClosedError;
constexpr auto protocolFailure = QNetworkReply::ProtocolFailure;
constexpr auto cannotDecode = onQt6 ? QNetworkReply::UnknownContentError : protocolFailure;

constexpr int longHeader = 256 * 1024;
constexpr int bombSize = 4 * 1024 * 1024;

const QByteArray document = R"({"whole":true})";
const QByteArray half = R"({"half":)";

Begin nothing()
{
    return [](HttpResponse &) {};
}

Begin raw(const QByteArray &bytes)
{
    return [bytes](HttpResponse &response) { response.writeRaw(bytes); };
}

Begin halfBody(qint64 announced)
{
    return [announced](HttpResponse &response) {
        response.sendHead(200, {}, announced);
        response.write(half);
    };
}

Begin chunks(const QByteArray &bytes)
{
    return raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + bytes);
}

Begin announced(const QByteArray &lengthLines, const QByteArray &body)
{
    return raw("HTTP/1.1 200 OK\r\n" + lengthLines + "\r\n" + body);
}

Begin packed(const QByteArray &bytes)
{
    return raw("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: "
               + QByteArray::number(bytes.size()) + "\r\n\r\n" + bytes);
}

QByteArray manyHeaders()
{
    QByteArray headers;
    for (int i = 0; i < 1000; ++i)
        headers += "X-Header-" + QByteArray::number(i) + ": " + QByteArray(100, 'v') + "\r\n";
    return headers;
}

// What zlib packs is unpacked under the name gzip too.
QByteArray deflated(const QByteArray &bytes)
{
    return qCompress(bytes, 9).mid(int(sizeof(quint32)));
}

QList<ServedFault> cutAnswers()
{
    return {
        {"closed without an answer", nothing(), Ending::Cut, closed},
        {"reset without an answer", nothing(), Ending::Reset, closed},
        {"closed in the status line", raw("HTTP/1."), Ending::Cut, closed},
        {"closed in the head", raw("HTTP/1.1 200 OK\r\nContent-Le"), Ending::Cut, closed},
        {"half a body, closed", halfBody(1000), Ending::Cut, closed, 200, half},
        {"half a body, reset", halfBody(1000), Ending::Reset, closed, 200, half},
        {"half a body at once, closed", halfBody(1000), Ending::Cut, closed, 200, half, 1000, true},
        {"half a body of no length, closed", halfBody(HttpResponse::UntilClose), Ending::Cut,
         noError, 200, half},
        {"half a body of no length, reset", halfBody(HttpResponse::UntilClose), Ending::Reset,
         noError, 200, half},
        {"half the chunks, closed", halfBody(HttpResponse::Chunked), Ending::Cut, closed, 200,
         half},
        {"half the chunks, reset", halfBody(HttpResponse::Chunked), Ending::Reset, closed, 200,
         half},
        {"half a chunk, closed", chunks("20\r\n" + half), Ending::Cut, closed, 200, half},
        {"half a chunk, reset", chunks("20\r\n" + half), Ending::Reset, closed, 200, half},
    };
}

QList<ServedFault> falseFrames()
{
    const QByteArray length = "Content-Length: ";
    return {
        {"chunk size that is no number", chunks("zz\r\nbody\r\n0\r\n\r\n"), Ending::Cut, noError,
         200},
        {"negative chunk size", chunks("-4\r\nbody\r\n0\r\n\r\n"), Ending::Cut, noError, 200},
        {"absurd chunk size", chunks("7fffffffffffffff\r\n" + half), Ending::Cut, closed, 200,
         half},
        {"chunk larger than its size", chunks("8\r\n" + half + "more\r\n0\r\n\r\n"), Ending::Cut,
         noError, 200, half},
        {"length too short", announced(length + "8\r\n", half + "more"), Ending::Finish, noError,
         200, half},
        {"length too long", announced(length + "99\r\n", half), Ending::Finish, closed, 200, half},
        {"length too long, at once", announced(length + "99\r\n", half), Ending::Finish, closed,
         200, half, 1000, true},
        {"length negative", announced(length + "-5\r\n", document), Ending::Finish, noError, 200,
         document},
        {"length twice", announced(length + "14\r\n" + length + "14\r\n", document), Ending::Finish,
         noError, 200, document},
        {"two lengths", announced(length + "8\r\n" + length + "14\r\n", document), Ending::Finish,
         noError, 200, document.left(8)},
        {"length in words", announced(length + "many\r\n", document), Ending::Finish, noError, 200,
         document},
    };
}

QList<ServedFault> oddities()
{
    const QByteArray good = "HTTP/1.1 200 OK\r\n" + manyHeaders() + "Content-Length: 14\r\n\r\n";
    return {
        {"garbage in lines", raw("this is no HTTP at all\r\n\r\nreally not"), Ending::Finish,
         closed},
        {"garbage in bytes", raw(HttpResponse::generated(0, 1000)), Ending::Finish, closed},
        {"another protocol", raw("SSH-2.0-server\r\n"), Ending::Finish, closed},
        {"a thousand headers", raw(good + document), Ending::Finish, noError, 200, document},
        {"a long header",
         announced("X-Long: " + QByteArray(longHeader, 'x') + "\r\nContent-Length: 14\r\n",
                   document),
         Ending::Finish, noError, 200, document},
        {"headers without an end", raw("HTTP/1.1 200 OK\r\n" + manyHeaders()), Ending::Cut, closed},
        {"gzip cut", packed(deflated(document).left(12)), Ending::Finish, noError, 200,
         document.left(9)},
        {"gzip that is none", packed("not packed"), Ending::Finish, cannotDecode, 200},
        {"gzip bomb", packed(deflated(QByteArray(bombSize, 'x'))), Ending::Finish, noError, 200,
         QByteArray(bombSize, 'x'), bombSize},
    };
}

} // namespace

void ServedFault::serve(ScriptedServer &server, HttpResponse &answer) const
{
    server.on("/fault", [this, &answer](const HttpRequest &, HttpResponse &response) {
        answerWith(response, answer);
    });
}

void ServedFault::serve(ScriptedServer &server, HttpResponse &answer, const TarvisNet &client) const
{
    server.on("/fault", [this, &answer, &client](const HttpRequest &, HttpResponse &response) {
        answerWith(response, answer);
        for (QNetworkReply *reply : clientaccess::repliesOf(client))
            endBehind(reply, answer);
    });
}

void ServedFault::answerWith(HttpResponse &response, HttpResponse &answer) const
{
    answer = response;
    if (isAtOnce)
        response.cork();
    begin(response);
    if (endsAtOnce())
        end(response);
}

void ServedFault::endBehind(QNetworkReply *reply, HttpResponse &answer) const
{
    if (!endsAtOnce()) {
        QObject::connect(
            reply, &QIODevice::readyRead, reply, [this, &answer] { end(answer); },
            Qt::QueuedConnection);
    }
}

::Ending ServedFault::outcome(ScriptedServer::Mode mode, QNetworkReply::NetworkError seen) const
{
    // There Qt takes a body that breaks off for cut or for whole, as its thread happens to run.
    const bool isOpen = mode == ScriptedServer::Mode::Http
        && error == QNetworkReply::RemoteHostClosedError && !endsAtOnce();
    return {isOpen && seen == noError ? noError : error, status, body};
}

void ServedFault::end(HttpResponse &response) const
{
    switch (ending) {
    case Ending::Finish:
        return response.finish();
    case Ending::Cut:
        return response.cut();
    case Ending::Reset:
        return response.reset();
    }
}

QList<ServedFault> servedFaults()
{
    return cutAnswers() + falseFrames() + oddities();
}

QList<Refusal> refusals()
{
    const QMap<int, QNetworkReply::NetworkError> errors = {
        {401, QNetworkReply::AuthenticationRequiredError},
        {403, QNetworkReply::ContentAccessDenied},
        {404, QNetworkReply::ContentNotFoundError},
        {405, QNetworkReply::ContentOperationNotPermittedError},
        {407, QNetworkReply::ProxyAuthenticationRequiredError},
        {410, QNetworkReply::ContentGoneError},
        {416, QNetworkReply::UnknownContentError},
        {418, QNetworkReply::ProtocolInvalidOperationError},
        {429, QNetworkReply::UnknownContentError},
        {500, QNetworkReply::InternalServerError},
        {503, QNetworkReply::ServiceUnavailableError},
    };
    QList<Refusal> all;
    for (auto error = errors.begin(); error != errors.end(); ++error) {
        for (const char *body : {R"({"error":"refused"})", "refused", ""})
            all.append({QByteArray::number(error.key()) + ' ' + body, {*error, error.key(), body}});
    }
    return all;
}
