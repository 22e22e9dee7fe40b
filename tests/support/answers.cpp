#include "answers.h"

#include <QtCore/QJsonDocument>

#include <functional>

namespace {

using SendPart = std::function<void(HttpResponse &response, int status, const HttpHeaders &headers,
                                    qint64 from)>;

// Where the client wants to begin; 0 without a range. Only the form "bytes=N-" is understood.
qint64 rangeStart(const HttpRequest &request)
{
    const QByteArray range = request.header("range");
    const QByteArray prefix("bytes=");
    if (!range.startsWith(prefix) || !range.endsWith('-'))
        return 0;
    return range.mid(prefix.size(), range.size() - prefix.size() - 1).toLongLong();
}

ScriptedServer::Handler resumable(qint64 size, const SendPart &sendPart)
{
    return [size, sendPart](const HttpRequest &request, HttpResponse &response) {
        const QByteArray total = '/' + QByteArray::number(size);
        const qint64 from = rangeStart(request);
        if (request.header("range").isNull())
            return sendPart(response, 200, {{"Accept-Ranges", "bytes"}}, 0);
        if (from >= size)
            return response.send(416, {{"Content-Range", "bytes *" + total}});
        const QByteArray range = QByteArray::number(from) + '-' + QByteArray::number(size - 1);
        sendPart(response, 206, {{"Content-Range", "bytes " + range + total}}, from);
    };
}

} // namespace

ScriptedServer::Handler answers::bytes(const QByteArray &body, int status,
                                       const HttpHeaders &headers)
{
    return [body, status, headers](const HttpRequest &, HttpResponse &response) {
        response.send(status, headers, body);
    };
}

ScriptedServer::Handler answers::json(const QJsonObject &object, int status)
{
    const QByteArray body = QJsonDocument(object).toJson(QJsonDocument::Compact);
    return bytes(body, status, {{"Content-Type", "application/json"}});
}

ScriptedServer::Handler answers::status(int status)
{
    return bytes(QByteArray(), status);
}

ScriptedServer::Handler answers::redirect(int status, const QByteArray &location)
{
    const HttpHeaders headers =
        location.isNull() ? HttpHeaders() : HttpHeaders{{"Location", location}};
    return bytes(QByteArray(), status, headers);
}

ScriptedServer::Handler answers::file(const QByteArray &content)
{
    return resumable(
        content.size(),
        [content](HttpResponse &response, int status, const HttpHeaders &headers, qint64 from) {
            response.send(status, headers, content.mid(int(from)));
        });
}

ScriptedServer::Handler answers::generatedFile(qint64 size)
{
    return resumable(
        size, [size](HttpResponse &response, int status, const HttpHeaders &headers, qint64 from) {
            response.sendGenerated(status, headers, size - from, from);
        });
}

ScriptedServer::Handler answers::cutShort(const QByteArray &part, qint64 length)
{
    return [part, length](const HttpRequest &, HttpResponse &response) {
        // If the end came later, Qt would now and then take the part for the whole.
        response.cork();
        response.sendHead(200, {}, length);
        response.write(part);
        response.cut();
    };
}

ScriptedServer::Handler answers::withhold()
{
    return [](const HttpRequest &, HttpResponse &) {};
}
