#include "http2response.h"

#include "http2connection.h"

Http2Response::Http2Response(Http2Connection *connection, qint32 stream)
    : m_connection(connection)
    , m_stream(stream)
{
}

void Http2Response::send(int status, const HttpHeaders &headers, const QByteArray &body)
{
    sendHead(status, headers, body.size());
    write(body);
    finish();
}

void Http2Response::sendInterim(int status, const HttpHeaders &headers)
{
    if (m_connection)
        m_connection->putInterim(m_stream, status, headers);
}

void Http2Response::sendHead(int status, const HttpHeaders &headers, qint64 contentLength)
{
    HttpHeaders all = headers;
    if (contentLength != NoLength)
        all.append({"content-length", QByteArray::number(contentLength)});
    if (m_connection)
        m_connection->putHead(m_stream, status, all);
}

void Http2Response::write(const QByteArray &bytes)
{
    if (m_connection)
        m_connection->put(m_stream, bytes);
}

void Http2Response::finish()
{
    if (m_connection)
        m_connection->finish(m_stream);
}

void Http2Response::finishWithoutHead()
{
    if (m_connection)
        m_connection->finishWithoutHead(m_stream);
}

void Http2Response::reset(Code code)
{
    if (m_connection)
        m_connection->reset(m_stream, code);
}

void Http2Response::goAwayAfter(Code code)
{
    if (m_connection)
        m_connection->goAway(m_stream, code);
}

void Http2Response::goAwayBefore(Code code)
{
    // The client's streams have odd numbers.
    if (m_connection)
        m_connection->goAway(qMax(0, m_stream - 2), code);
}

void Http2Response::cut()
{
    if (m_connection)
        m_connection->close();
}

void Http2Response::tearDown()
{
    if (m_connection)
        m_connection->tearDown();
}
