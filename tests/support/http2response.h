#ifndef TARVISNET_TESTS_HTTP2RESPONSE_H
#define TARVISNET_TESTS_HTTP2RESPONSE_H

#include "httprequest.h"

#include <QtCore/QPointer>

class Http2Connection;

/// The server's end of one stream of HTTP/2. It is a handle: a test may copy it and answer long
/// after the handler has returned; without an answer the client is left waiting. Once the stream or
/// the connection is gone, every call is ignored.
///
/// Calls take effect in order, as far as the client's windows allow: what was written before
/// reset(), for instance, still reaches the client.
class Http2Response {
public:
    /// Of RST_STREAM and GOAWAY.
    enum Code : quint32 {
        NoError = 0,
        InternalError = 2,
        RefusedStream = 7,
        Cancel = 8,
    };
    /// For sendHead(): nothing is said of the body's length.
    static constexpr qint64 NoLength = -1;

    Http2Response() = default;
    Http2Response(Http2Connection *connection, qint32 stream);

    /// \name A complete answer
    /// @{

    /// Content-Length is added.
    void send(int status, const HttpHeaders &headers = HttpHeaders(),
              const QByteArray &body = QByteArray());

    /// @}
    /// \name An answer in pieces
    /// @{

    /// A head that is not the final one.
    void sendInterim(int status, const HttpHeaders &headers = HttpHeaders());
    /// \a contentLength may be wrong on purpose.
    void sendHead(int status, const HttpHeaders &headers = HttpHeaders(),
                  qint64 contentLength = NoLength);
    void write(const QByteArray &bytes);
    /// Ends the stream. The connection stays open for others.
    void finish();

    /// @}
    /// \name Misbehaviour
    /// @{

    /// Ends the stream without a head.
    void finishWithoutHead();
    /// Ends the stream, RST_STREAM.
    void reset(Code code);
    /// Takes no more requests on this connection: GOAWAY, which tells that this stream is still
    /// answered.
    void goAwayAfter(Code code = NoError);
    /// The same, but this stream is none of those that are answered any more.
    void goAwayBefore(Code code = NoError);
    /// Closes the connection as TLS and TCP have it.
    void cut();
    /// Tears the connection down without a word of TLS.
    void tearDown();

    /// @}

private:
    QPointer<Http2Connection> m_connection;
    qint32 m_stream = 0;
};

#endif // TARVISNET_TESTS_HTTP2RESPONSE_H
