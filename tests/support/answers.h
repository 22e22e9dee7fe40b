#ifndef TARVISNET_TESTS_ANSWERS_H
#define TARVISNET_TESTS_ANSWERS_H

#include "scriptedserver.h"

#include <QtCore/QJsonObject>

/// Ready handlers for ScriptedServer::on(). Inside another handler they are called like this:
///
///     answers::json({{"error", "gone"}}, 410)(request, response);
namespace answers {

/// A JSON document.
ScriptedServer::Handler json(const QJsonObject &object, int status = 200);
/// \a body as it is, without a Content-Type unless \a headers has one.
ScriptedServer::Handler bytes(const QByteArray &body, int status = 200,
                              const HttpHeaders &headers = HttpHeaders());
/// An empty answer.
ScriptedServer::Handler status(int status);
/// A redirect without a body; without a Location header when \a location is null.
ScriptedServer::Handler redirect(int status, const QByteArray &location = QByteArray());
/// A file that can be resumed: "Range: bytes=N-" is answered with 206 and the rest of the file, a
/// range that begins at its end or beyond with 416.
ScriptedServer::Handler file(const QByteArray &content);
/// As file() with \a size bytes of HttpResponse::generated().
ScriptedServer::Handler generatedFile(qint64 size);
/// \a part of a body that is announced to be \a length bytes long, and the end of the connection.
ScriptedServer::Handler cutShort(const QByteArray &part, qint64 length = 1000);
/// No answer at all; the connection stays open.
ScriptedServer::Handler withhold();

} // namespace answers

#endif // TARVISNET_TESTS_ANSWERS_H
