#include "http2connection.h"

#include <QtNetwork/QSslSocket>

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace {

Http2Connection *connectionOf(void *data)
{
    return static_cast<Http2Connection *>(data);
}

QByteArray bytesOf(const uchar *data, size_t size)
{
    return {reinterpret_cast<const char *>(data), int(size)};
}

void require(int result)
{
    if (result != 0)
        qFatal("nghttp2: %s", nghttp2_strerror(result));
}

/// HTTP/2 wants names in lower case. Points into \a fields.
std::vector<nghttp2_nv> pointersTo(HttpHeaders &fields)
{
    std::vector<nghttp2_nv> pointers;
    for (HttpHeader &field : fields) {
        field.first = field.first.toLower();
        pointers.push_back({reinterpret_cast<uchar *>(field.first.data()),
                            reinterpret_cast<uchar *>(field.second.data()),
                            size_t(field.first.size()), size_t(field.second.size()),
                            NGHTTP2_NV_FLAG_NONE});
    }
    return pointers;
}

HttpHeaders withStatus(int status, const HttpHeaders &headers)
{
    return HttpHeaders{{":status", QByteArray::number(status)}} + headers;
}

} // namespace

Http2Connection::Http2Connection(QSslSocket *socket, const Http2Settings &settings,
                                 RequestSink sink)
    : QObject(socket)
    , m_socket(socket)
    , m_sink(std::move(sink))
{
    connect(socket, &QSslSocket::readyRead, this, &Http2Connection::receive);
    start(settings);
    receive();
}

nghttp2_session_callbacks *Http2Connection::callbacks()
{
    nghttp2_session_callbacks *made = nullptr;
    require(nghttp2_session_callbacks_new(&made));
    nghttp2_session_callbacks_set_on_header_callback(
        made,
        [](nghttp2_session *, const nghttp2_frame *frame, const uint8_t *name, size_t nameSize,
           const uint8_t *value, size_t valueSize, uint8_t, void *data) {
            connectionOf(data)->takeHeader(frame->hd.stream_id, bytesOf(name, nameSize),
                                           bytesOf(value, valueSize));
            return 0;
        });
    nghttp2_session_callbacks_set_on_data_chunk_recv_callback(
        made,
        [](nghttp2_session *, uint8_t, int32_t stream, const uint8_t *bytes, size_t size,
           void *data) {
            connectionOf(data)->m_streams[stream].request.body += bytesOf(bytes, size);
            return 0;
        });
    nghttp2_session_callbacks_set_on_frame_recv_callback(
        made, [](nghttp2_session *, const nghttp2_frame *frame, void *data) {
            const bool isRequest =
                frame->hd.type == NGHTTP2_HEADERS || frame->hd.type == NGHTTP2_DATA;
            if (isRequest && (frame->hd.flags & NGHTTP2_FLAG_END_STREAM))
                connectionOf(data)->m_arrived.enqueue(frame->hd.stream_id);
            return 0;
        });
    nghttp2_session_callbacks_set_on_stream_close_callback(
        made, [](nghttp2_session *, int32_t stream, uint32_t, void *data) {
            connectionOf(data)->m_streams.remove(stream);
            return 0;
        });
    return made;
}

void Http2Connection::start(const Http2Settings &settings)
{
    nghttp2_session_callbacks *const made = callbacks();
    nghttp2_option *option = nullptr;
    require(nghttp2_option_new(&option));
    nghttp2_option_set_no_auto_window_update(option, settings.window == 0);
    nghttp2_session *session = nullptr;
    require(nghttp2_session_server_new2(&session, made, this, option));
    m_session.reset(session);
    nghttp2_option_del(option);
    nghttp2_session_callbacks_del(made);

    const nghttp2_settings_entry entries[] = {
        {NGHTTP2_SETTINGS_MAX_CONCURRENT_STREAMS, settings.maximumStreams},
        {NGHTTP2_SETTINGS_INITIAL_WINDOW_SIZE, settings.window},
    };
    require(nghttp2_submit_settings(session, NGHTTP2_FLAG_NONE, entries, std::size(entries)));
    transmit();
}

void Http2Connection::receive()
{
    const QByteArray bytes = m_socket->readAll();
    const auto *data = reinterpret_cast<const uchar *>(bytes.constData());
    // What is no HTTP/2 ends the connection, as a server does that takes itself seriously.
    if (nghttp2_session_mem_recv(m_session.get(), data, size_t(bytes.size())) < 0)
        return tearDown();
    transmit();
    answerArrived();
}

void Http2Connection::answerArrived()
{
    while (!m_arrived.isEmpty()) {
        const qint32 stream = m_arrived.dequeue();
        if (m_streams.contains(stream))
            m_sink(m_streams.value(stream).request, {this, stream});
    }
}

/// After every call, because nghttp2 would put what is urgent before what was said earlier.
void Http2Connection::transmit()
{
    const uchar *data = nullptr;
    ssize_t size = 0;
    while ((size = nghttp2_session_mem_send(m_session.get(), &data)) > 0)
        m_socket->write(reinterpret_cast<const char *>(data), size);
    m_socket->flush();
}

void Http2Connection::takeHeader(qint32 stream, const QByteArray &name, const QByteArray &value)
{
    HttpRequest &request = m_streams[stream].request;
    request.version = "HTTP/2";
    if (name == ":method")
        request.method = value;
    else if (name == ":path")
        request.target = value;
    request.rawHeaders.append({name, value});
    request.headers.insert(name, value);
}

ssize_t Http2Connection::takeOutput(qint32 stream, uchar *buffer, size_t size, quint32 *flags)
{
    Stream &from = m_streams[stream];
    const size_t left = size_t(from.output.size() - from.written);
    const size_t taken = std::min(size, left);
    if (taken == 0 && !from.isFinished)
        return NGHTTP2_ERR_DEFERRED;
    std::copy_n(from.output.constData() + from.written, taken, buffer);
    from.written += int(taken);
    if (taken == left && from.isFinished)
        *flags |= NGHTTP2_DATA_FLAG_EOF;
    return ssize_t(taken);
}

nghttp2_data_provider Http2Connection::outputProvider()
{
    nghttp2_data_provider provider = {};
    provider.read_callback = [](nghttp2_session *, int32_t stream, uint8_t *buffer, size_t size,
                                uint32_t *flags, nghttp2_data_source *, void *data) {
        return connectionOf(data)->takeOutput(stream, buffer, size, flags);
    };
    return provider;
}

void Http2Connection::putInterim(qint32 stream, int status, const HttpHeaders &headers)
{
    HttpHeaders fields = withStatus(status, headers);
    const std::vector<nghttp2_nv> pointers = pointersTo(fields);
    nghttp2_submit_headers(m_session.get(), NGHTTP2_FLAG_NONE, stream, nullptr, pointers.data(),
                           pointers.size(), nullptr);
    transmit();
}

void Http2Connection::putHead(qint32 stream, int status, const HttpHeaders &headers)
{
    HttpHeaders fields = withStatus(status, headers);
    const std::vector<nghttp2_nv> pointers = pointersTo(fields);
    const nghttp2_data_provider provider = outputProvider();
    nghttp2_submit_response(m_session.get(), stream, pointers.data(), pointers.size(), &provider);
    transmit();
}

void Http2Connection::put(qint32 stream, const QByteArray &bytes)
{
    if (!m_streams.contains(stream))
        return;
    m_streams[stream].output += bytes;
    nghttp2_session_resume_data(m_session.get(), stream);
    transmit();
}

void Http2Connection::finish(qint32 stream)
{
    if (!m_streams.contains(stream))
        return;
    m_streams[stream].isFinished = true;
    nghttp2_session_resume_data(m_session.get(), stream);
    transmit();
}

/// The one frame that nghttp2 refuses to send: DATA, empty, the last one.
void Http2Connection::finishWithoutHead(qint32 stream)
{
    const char frame[] = {0,
                          0,
                          0,
                          NGHTTP2_DATA,
                          NGHTTP2_FLAG_END_STREAM,
                          char(stream >> 24),
                          char(stream >> 16),
                          char(stream >> 8),
                          char(stream)};
    m_socket->write(frame, sizeof(frame));
}

void Http2Connection::reset(qint32 stream, quint32 code)
{
    nghttp2_submit_rst_stream(m_session.get(), NGHTTP2_FLAG_NONE, stream, code);
    transmit();
}

void Http2Connection::goAway(qint32 lastStream, quint32 code)
{
    nghttp2_submit_goaway(m_session.get(), NGHTTP2_FLAG_NONE, lastStream, code, nullptr, 0);
    transmit();
}

void Http2Connection::goAway()
{
    goAway(nghttp2_session_get_last_proc_stream_id(m_session.get()), Http2Response::NoError);
}

void Http2Connection::announceGoAway()
{
    nghttp2_submit_shutdown_notice(m_session.get());
    transmit();
}

void Http2Connection::close()
{
    m_socket->disconnectFromHost();
}

void Http2Connection::tearDown()
{
    m_socket->flush();
    m_socket->abort();
}
