#include "httpconnection.h"

#include <QtCore/QScopedValueRollback>
#include <QtNetwork/QSslSocket>
#include <QtNetwork/QTcpSocket>

#include <algorithm>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace {

// More than this does not wait in a socket, so that a large body is never in memory as a whole.
const qint64 socketRoom = 256 * 1024;

struct Reason {
    int status;
    const char *text;
};

const Reason reasons[] = {
    {200, "OK"},
    {204, "No Content"},
    {206, "Partial Content"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {307, "Temporary Redirect"},
    {308, "Permanent Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {410, "Gone"},
    {416, "Range Not Satisfiable"},
    {500, "Internal Server Error"},
    {503, "Service Unavailable"},
};

QByteArray reasonOf(int status)
{
    const auto *const found =
        std::find_if(std::begin(reasons), std::end(reasons),
                     [status](const Reason &reason) { return reason.status == status; });
    return found == std::end(reasons) ? "Scripted" : found->text;
}

QByteArray valueOf(const HttpHeaders &headers, const QByteArray &name)
{
    for (const HttpHeader &header : headers) {
        if (header.first.toLower() == name)
            return header.second;
    }
    return QByteArray();
}

bool mayHaveBody(int status)
{
    return status >= 200 && status != 204 && status != 304;
}

QByteArray headText(int status, const HttpHeaders &headers)
{
    QByteArray text = "HTTP/1.1 " + QByteArray::number(status) + ' ' + reasonOf(status) + "\r\n";
    for (const HttpHeader &header : headers)
        text += header.first + ": " + header.second + "\r\n";
    return text + "\r\n";
}

} // namespace

HttpConnection::HttpConnection(QTcpSocket *socket, const RequestSink &sink)
    : QObject(socket)
    , m_socket(socket)
    , m_sink(sink)
{
    m_pause.setSingleShot(true);
    connect(&m_pause, &QTimer::timeout, this, &HttpConnection::pump);
    connect(socket, &QTcpSocket::readyRead, this, &HttpConnection::receive);
    // Later: pumping may end the connection, and Qt 6 goes on with one over TLS that it is just
    // telling of bytes written.
    connect(socket, &QTcpSocket::bytesWritten, this, &HttpConnection::pump, Qt::QueuedConnection);
    if (auto *const tls = qobject_cast<QSslSocket *>(socket)) {
        connect(tls, &QSslSocket::encryptedBytesWritten, this, &HttpConnection::pump,
                Qt::QueuedConnection);
    }
}

HttpConnection::Output HttpConnection::outputOf(const QByteArray &bytes)
{
    Output output;
    output.size = bytes.size();
    output.read = [bytes](qint64 from, qint64 size) { return bytes.mid(int(from), int(size)); };
    return output;
}

bool HttpConnection::isOpen() const
{
    return m_socket->state() == QAbstractSocket::ConnectedState;
}

void HttpConnection::receive()
{
    m_parser.feed(m_socket->readAll());
    // An answer that completes at once comes back here; the loop below goes on with the next.
    if (m_isReceiving)
        return;
    const QScopedValueRollback<bool> guard(m_isReceiving, true);
    while (!m_isAnswering && isOpen()) {
        HttpRequest request;
        const HttpRequestParser::Result result = m_parser.next(&request);
        if (result == HttpRequestParser::Result::Incomplete)
            return;
        if (result == HttpRequestParser::Result::Complete)
            answer(request);
        else
            m_socket->disconnectFromHost();
    }
}

void HttpConnection::answer(const HttpRequest &request)
{
    ++m_serial;
    m_isAnswering = true;
    m_ending = Ending::None;
    m_isHeadRequest = request.method == "HEAD";
    m_keepAlive = !request.wantsClose();
    m_hasBody = !m_isHeadRequest;
    m_announced = HttpResponse::UntilClose;
    m_bodyWritten = 0;
    m_sink(request, HttpResponse(this, m_serial));
}

void HttpConnection::putHead(int status, HttpHeaders headers, qint64 contentLength)
{
    const bool mayHave = mayHaveBody(status);
    const QByteArray ownLength = valueOf(headers, "content-length");
    m_hasBody = mayHave && !m_isHeadRequest;
    m_announced = ownLength.isNull() ? contentLength : ownLength.toLongLong();
    if (valueOf(headers, "connection").toLower() == "close")
        m_keepAlive = false;
    if (mayHave && m_announced == HttpResponse::Chunked)
        headers.append(HttpHeader("Transfer-Encoding", "chunked"));
    if (mayHave && ownLength.isNull() && m_announced >= 0)
        headers.append(HttpHeader("Content-Length", QByteArray::number(m_announced)));

    Output head = outputOf(headText(status, headers));
    head.isBody = false;
    put(head);
}

void HttpConnection::putRaw(const QByteArray &bytes)
{
    // After bytes of unknown meaning the client cannot know where the next answer begins.
    m_keepAlive = false;
    Output raw = outputOf(bytes);
    raw.isBody = false;
    put(raw);
}

void HttpConnection::put(const Output &output)
{
    if (output.size <= 0 || (output.isBody && !m_hasBody))
        return;
    m_outputs.enqueue(output);
    pump();
}

void HttpConnection::end(Ending ending)
{
    if (ending == Ending::Finish && m_hasBody && m_announced == HttpResponse::Chunked) {
        Output lastChunk = outputOf("0\r\n\r\n");
        lastChunk.isBody = false;
        m_outputs.enqueue(lastChunk);
    }
    m_ending = ending;
    pump();
}

void HttpConnection::cork()
{
    const int on = 1;
    setsockopt(int(m_socket->socketDescriptor()), IPPROTO_TCP, TCP_CORK, &on, sizeof on);
}

// Writing may emit, and so come back here; the outermost call does the work.
void HttpConnection::pump()
{
    if (m_isPumping || !isOpen())
        return;
    {
        const QScopedValueRollback<bool> guard(m_isPumping, true);
        while (!m_outputs.isEmpty() && !m_pause.isActive() && unsent() < socketRoom)
            writePiece();
        // A piece that is followed by a pause, and the last one, need not wait for the event loop.
        if (m_outputs.isEmpty() || m_pause.isActive())
            m_socket->flush();
    }
    if (m_outputs.isEmpty() && !m_pause.isActive())
        carryOutEnding();
}

void HttpConnection::writePiece()
{
    Output &output = m_outputs.head();
    const qint64 size = std::min(output.pieceSize, output.size - output.done);
    m_socket->write(framed(output.read(output.done, size), output));
    output.done += size;
    if (output.isBody)
        m_bodyWritten += size;
    if (output.msec >= 0)
        m_pause.start(output.msec);
    if (output.done == output.size)
        m_outputs.dequeue();
}

QByteArray HttpConnection::framed(const QByteArray &piece, const Output &output) const
{
    if (!output.isBody || m_announced != HttpResponse::Chunked)
        return piece;
    return QByteArray::number(piece.size(), 16) + "\r\n" + piece + "\r\n";
}

// What the socket has, encrypted or not, and the operating system has not.
qint64 HttpConnection::unsent() const
{
    const auto *const tls = qobject_cast<QSslSocket *>(m_socket);
    return m_socket->bytesToWrite() + (tls ? tls->encryptedBytesToWrite() : 0);
}

void HttpConnection::carryOutEnding()
{
    switch (m_ending) {
    case Ending::None:
        return;
    case Ending::Finish:
        return completeAnswer();
    case Ending::Cut:
        return m_socket->disconnectFromHost();
    case Ending::Reset:
        // A reset throws away what the operating system has not got yet.
        if (unsent() == 0)
            reset();
        return;
    }
}

void HttpConnection::completeAnswer()
{
    if (!m_isAnswering)
        return;
    if (!m_keepAlive || !clientSeesTheEnd())
        return m_socket->disconnectFromHost();
    m_isAnswering = false;
    receive();
}

bool HttpConnection::clientSeesTheEnd() const
{
    return !m_hasBody || m_announced == HttpResponse::Chunked || m_announced == m_bodyWritten;
}

void HttpConnection::reset()
{
    const linger atOnce{1, 0};
    setsockopt(int(m_socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    m_socket->abort();
}
