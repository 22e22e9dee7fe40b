#ifndef TARVISNET_TESTS_HTTP2CONNECTION_H
#define TARVISNET_TESTS_HTTP2CONNECTION_H

#include "http2response.h"
#include "httprequest.h"

#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QQueue>

#include <nghttp2/nghttp2.h>

#include <functional>
#include <memory>

QT_BEGIN_NAMESPACE
class QSslSocket;
QT_END_NAMESPACE

/// What a server says of itself when a connection begins.
struct Http2Settings {
    quint32 maximumStreams = 100;
    /// How much of a body a client may send that nobody has taken; 0 has it wait for ever.
    quint32 window = 65535;
};

/// One connection of the Http2Server: nghttp2 between the socket and what the test's Http2Response
/// handles ask for. Part of the server; tests use Http2Response.
class Http2Connection : public QObject {
public:
    using RequestSink = std::function<void(const HttpRequest &, Http2Response)>;

    /// Lives as long as \a socket, whose handshake is done. \a sink gets each request together with
    /// the handle of its answer.
    Http2Connection(QSslSocket *socket, const Http2Settings &settings, RequestSink sink);

    void putInterim(qint32 stream, int status, const HttpHeaders &headers);
    void putHead(qint32 stream, int status, const HttpHeaders &headers);
    void put(qint32 stream, const QByteArray &bytes);
    void finish(qint32 stream);
    void finishWithoutHead(qint32 stream);
    void reset(qint32 stream, quint32 code);
    void goAway(qint32 lastStream, quint32 code);
    /// After the last stream that has arrived.
    void goAway();
    /// Says no more than that it soon will.
    void announceGoAway();
    void close();
    void tearDown();

private:
    struct SessionDeleter {
        void operator()(nghttp2_session *session) const { nghttp2_session_del(session); }
    };
    struct Stream {
        HttpRequest request;
        QByteArray output;
        int written = 0;
        bool isFinished = false;
    };

    static nghttp2_session_callbacks *callbacks();
    static nghttp2_data_provider outputProvider();
    void start(const Http2Settings &settings);
    void receive();
    void answerArrived();
    void transmit();
    void takeHeader(qint32 stream, const QByteArray &name, const QByteArray &value);
    ssize_t takeOutput(qint32 stream, uchar *buffer, size_t size, quint32 *flags);

    QSslSocket *const m_socket;
    const RequestSink m_sink;
    std::unique_ptr<nghttp2_session, SessionDeleter> m_session;
    QHash<qint32, Stream> m_streams;
    /// Requests that are complete, which nghttp2 does not want answered from within.
    QQueue<qint32> m_arrived;
};

#endif // TARVISNET_TESTS_HTTP2CONNECTION_H
