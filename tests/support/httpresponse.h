#ifndef TARVISNET_TESTS_HTTPRESPONSE_H
#define TARVISNET_TESTS_HTTPRESPONSE_H

#include "httprequest.h"

#include <QtCore/QPointer>

class HttpConnection;

/// The server's end of one answer. It is a handle: a test may copy it and answer long after the
/// handler has returned; without an answer the client is left waiting. Once the answer is complete
/// or the connection gone, every call is ignored.
///
/// Calls take effect in order: what was written before cut(), for instance, still reaches the
/// client. Output is handed to the socket in bounded pieces, so that a large body is not copied.
class HttpResponse {
public:
    /// For sendHead(): the body is chunked, or ends with the connection.
    enum Framing : qint64 { Chunked = -2, UntilClose = -1 };

    HttpResponse() = default;
    HttpResponse(HttpConnection *connection, quint64 serial);

    /// \name A complete answer
    /// @{

    /// Content-Length is added unless \a headers has one. The body is left out for HEAD.
    void send(int status, const HttpHeaders &headers = HttpHeaders(),
              const QByteArray &body = QByteArray());
    /// As send() with a body of \a size bytes of generated(), of which only a piece is in memory at
    /// a time. It begins with byte \a from of the sequence.
    void sendGenerated(int status, const HttpHeaders &headers, qint64 size, qint64 from = 0);

    /// @}
    /// \name An answer in pieces
    /// @{

    /// \a contentLength may be wrong on purpose.
    void sendHead(int status, const HttpHeaders &headers = HttpHeaders(),
                  qint64 contentLength = UntilClose);
    /// A piece of the body; one chunk when the body is chunked, or several if it is larger than 64
    /// KiB.
    void write(const QByteArray &bytes);
    void writeGenerated(qint64 size, qint64 from = 0);
    /// Writes \a body in pieces of \a pieceSize bytes, one in each turn of the event loop, or one
    /// every \a msec.
    void dribble(const QByteArray &body, int pieceSize, int msec = 0);
    /// Ends the answer. The connection stays open for the next request if both sides agreed on that
    /// and the client can tell where the body ends; it is closed otherwise, also when the body is
    /// not as long as announced.
    void finish();

    /// @}
    /// \name Misbehaviour
    /// @{

    /// Bytes as they are, in place of a head or anywhere else; finish() then closes.
    void writeRaw(const QByteArray &bytes);
    /// What little follows reaches the client in one with the end of the connection, if that is
    /// closed at once.
    void cork();
    /// Closes the connection (FIN).
    void cut();
    /// Tears the connection down (RST).
    void reset();

    /// @}

    /// \a size bytes from position \a from of an endless sequence without a short period, so that
    /// lost or repeated pieces show.
    static QByteArray generated(qint64 from, qint64 size);

private:
    /// The connection while this answer may be added to, otherwise null.
    HttpConnection *live() const;

    QPointer<HttpConnection> m_connection;
    quint64 m_serial = 0;
};

#endif // TARVISNET_TESTS_HTTPRESPONSE_H
