#include "httprequest.h"

bool HttpRequest::wantsClose() const
{
    const QByteArray connection = header("connection").toLower();
    return connection == "close" || (version == "HTTP/1.0" && connection != "keep-alive");
}

HttpRequestParser::Result HttpRequestParser::next(HttpRequest *request)
{
    static const QByteArray endOfHead("\r\n\r\n");

    if (!m_headDone) {
        const int end = m_buffer.indexOf(endOfHead, m_searchedTo);
        if (end < 0) {
            // The mark may arrive in two parts.
            m_searchedTo = qMax(0, m_buffer.size() - endOfHead.size() + 1);
            return Result::Incomplete;
        }
        if (!parseHead(m_buffer.left(end)))
            return Result::Malformed;
        m_buffer.remove(0, end + endOfHead.size());
        m_headDone = true;
    }
    if (m_buffer.size() < m_bodyLength)
        return Result::Incomplete;

    m_request.body = m_buffer.left(m_bodyLength);
    m_buffer.remove(0, m_bodyLength);
    m_searchedTo = 0;
    m_headDone = false;
    *request = m_request;
    return Result::Complete;
}

bool HttpRequestParser::parseHead(const QByteArray &head)
{
    QList<QByteArray> lines = head.split('\n');
    const QList<QByteArray> words = lines.takeFirst().trimmed().split(' ');
    if (words.size() != 3 || !words.at(2).startsWith("HTTP/"))
        return false;

    m_request = HttpRequest();
    m_request.method = words.at(0);
    m_request.target = words.at(1);
    m_request.version = words.at(2);
    for (const QByteArray &line : qAsConst(lines)) {
        const int colon = line.indexOf(':');
        if (colon <= 0)
            return false;
        const QByteArray value = line.mid(colon + 1).trimmed();
        m_request.rawHeaders.append(HttpHeader(line.left(colon), value));
        m_request.headers.insert(line.left(colon).toLower(), value);
    }

    bool isNumber = true;
    const QByteArray length = m_request.header("content-length");
    m_bodyLength = length.isNull() ? 0 : length.toInt(&isNumber);
    return isNumber && m_bodyLength >= 0;
}
