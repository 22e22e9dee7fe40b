#include "httpresponse.h"

#include "httpconnection.h"

namespace {

HttpConnection::Output generatedOutput(qint64 size, qint64 from)
{
    HttpConnection::Output output;
    output.size = size;
    output.read = [from](qint64 done, qint64 length) {
        return HttpResponse::generated(from + done, length);
    };
    return output;
}

} // namespace

HttpResponse::HttpResponse(HttpConnection *connection, quint64 serial)
    : m_connection(connection)
    , m_serial(serial)
{
}

HttpConnection *HttpResponse::live() const
{
    const bool isLive = m_connection && m_connection->serial() == m_serial && m_connection->isOpen()
        && !m_connection->isEnding();
    return isLive ? m_connection.data() : nullptr;
}

void HttpResponse::send(int status, const HttpHeaders &headers, const QByteArray &body)
{
    sendHead(status, headers, body.size());
    write(body);
    finish();
}

void HttpResponse::sendGenerated(int status, const HttpHeaders &headers, qint64 size, qint64 from)
{
    sendHead(status, headers, size);
    writeGenerated(size, from);
    finish();
}

void HttpResponse::sendHead(int status, const HttpHeaders &headers, qint64 contentLength)
{
    if (HttpConnection *const connection = live())
        connection->putHead(status, headers, contentLength);
}

void HttpResponse::write(const QByteArray &bytes)
{
    if (HttpConnection *const connection = live())
        connection->put(HttpConnection::outputOf(bytes));
}

void HttpResponse::writeGenerated(qint64 size, qint64 from)
{
    if (HttpConnection *const connection = live())
        connection->put(generatedOutput(size, from));
}

void HttpResponse::dribble(const QByteArray &body, int pieceSize, int msec)
{
    HttpConnection::Output output = HttpConnection::outputOf(body);
    output.pieceSize = pieceSize;
    output.msec = msec;
    if (HttpConnection *const connection = live())
        connection->put(output);
}

void HttpResponse::finish()
{
    if (HttpConnection *const connection = live())
        connection->end(HttpConnection::Ending::Finish);
}

void HttpResponse::writeRaw(const QByteArray &bytes)
{
    if (HttpConnection *const connection = live())
        connection->putRaw(bytes);
}

void HttpResponse::cork()
{
    if (HttpConnection *const connection = live())
        connection->cork();
}

void HttpResponse::cut()
{
    if (HttpConnection *const connection = live())
        connection->end(HttpConnection::Ending::Cut);
}

void HttpResponse::reset()
{
    if (HttpConnection *const connection = live())
        connection->end(HttpConnection::Ending::Reset);
}

QByteArray HttpResponse::generated(qint64 from, qint64 size)
{
    QByteArray bytes(int(size), Qt::Uninitialized);
    quint64 position = quint64(from);
    // The top byte of a multiplicative hash: cheap, and no two places look alike.
    for (char &byte : bytes)
        byte = char((position++ * 0x9e3779b97f4a7c15u) >> 56);
    return bytes;
}
