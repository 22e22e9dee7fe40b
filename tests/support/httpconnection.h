#ifndef TARVISNET_TESTS_HTTPCONNECTION_H
#define TARVISNET_TESTS_HTTPCONNECTION_H

#include "httprequest.h"
#include "httpresponse.h"

#include <QtCore/QObject>
#include <QtCore/QQueue>
#include <QtCore/QTimer>

#include <functional>

QT_BEGIN_NAMESPACE
class QTcpSocket;
QT_END_NAMESPACE

/// One connection of the ScriptedServer: takes the requests off the socket one after the other and
/// puts out what the test's HttpResponse handles ask for. Part of the server; tests use
/// HttpResponse.
class HttpConnection : public QObject {
public:
    using RequestSink = std::function<void(const HttpRequest &, HttpResponse)>;

    /// How an answer ends, once all its output is written.
    enum class Ending { None, Finish, Cut, Reset };

    /// Some bytes to be written, fetched piece by piece when the socket has room for them.
    struct Output {
        std::function<QByteArray(qint64 from, qint64 size)> read;
        qint64 size = 0;
        /// Whether it is a part of the body, and not bytes around it.
        bool isBody = true;
        qint64 pieceSize = 64 * 1024;
        /// Pause after each piece; negative for none.
        int msec = -1;
        qint64 done = 0;
    };

    /// Lives as long as \a socket. \a sink gets each request together with the handle of its
    /// answer.
    HttpConnection(QTcpSocket *socket, const RequestSink &sink);

    quint64 serial() const { return m_serial; }
    bool isOpen() const;
    bool isEnding() const { return m_ending != Ending::None; }

    void putHead(int status, HttpHeaders headers, qint64 contentLength);
    void putRaw(const QByteArray &bytes);
    void put(const Output &output);
    void end(Ending ending);
    void cork();

    static Output outputOf(const QByteArray &bytes);

private:
    void receive();
    void answer(const HttpRequest &request);
    void pump();
    void writePiece();
    QByteArray framed(const QByteArray &piece, const Output &output) const;
    qint64 unsent() const;
    void carryOutEnding();
    void completeAnswer();
    bool clientSeesTheEnd() const;
    void reset();

    QTcpSocket *const m_socket;
    const RequestSink m_sink;
    HttpRequestParser m_parser;
    QQueue<Output> m_outputs;
    QTimer m_pause;
    quint64 m_serial = 0;
    Ending m_ending = Ending::None;
    bool m_isAnswering = false;
    bool m_isReceiving = false;
    bool m_isPumping = false;
    // Of the current answer.
    bool m_isHeadRequest = false;
    bool m_keepAlive = false;
    bool m_hasBody = true;
    qint64 m_announced = HttpResponse::UntilClose;
    qint64 m_bodyWritten = 0;
};

#endif // TARVISNET_TESTS_HTTPCONNECTION_H
