#ifndef TARVISNET_TESTS_HTTPREQUEST_H
#define TARVISNET_TESTS_HTTPREQUEST_H

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QPair>

using HttpHeader = QPair<QByteArray, QByteArray>;
/// Header lines in order, names as they are written on the wire.
using HttpHeaders = QList<HttpHeader>;

/// A request as the ScriptedServer received it.
struct HttpRequest {
    QByteArray method;
    /// The request target as sent: path and query, percent-encoded.
    QByteArray target;
    QByteArray version;
    HttpHeaders rawHeaders;
    /// Values by lower-cased name; of repeated headers the last.
    QMap<QByteArray, QByteArray> headers;
    QByteArray body;

    /// The target without its query.
    QByteArray path() const { return target.mid(0, target.indexOf('?')); }
    /// Value of a header whose name is given in lower case; null when it is missing.
    QByteArray header(const QByteArray &name) const { return headers.value(name); }
    /// Whether the client wants the connection to be closed after the answer.
    bool wantsClose() const;
};

/// Cuts a byte stream into requests, in time linear in the number of bytes, however they arrive.
/// Bodies are taken by Content-Length.
class HttpRequestParser {
public:
    enum class Result { Incomplete, Complete, Malformed };

    void feed(const QByteArray &bytes) { m_buffer += bytes; }
    /// On Complete \a request is the next request of the stream.
    Result next(HttpRequest *request);

private:
    bool parseHead(const QByteArray &head);

    QByteArray m_buffer;
    int m_searchedTo = 0;
    bool m_headDone = false;
    int m_bodyLength = 0;
    HttpRequest m_request;
};

#endif // TARVISNET_TESTS_HTTPREQUEST_H
