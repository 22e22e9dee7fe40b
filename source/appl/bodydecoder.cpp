#include "bodydecoder_p.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <iterator>

struct BodyCoding {
    const char *name;
    /// Some servers take the name "deflate" at its word, and leave the header out.
    bool mayLackHeader;
};

namespace {

constexpr BodyCoding codings[] = {{"gzip", false}, {"x-gzip", false}, {"deflate", true}};

constexpr int pieceSize = 16 * 1024;

// What zlib calls the forms that compressed data may have.
constexpr int headerOfGzipOrZlib = MAX_WBITS + 32;
constexpr int noHeader = -MAX_WBITS;

constexpr Bytef gzipStart = 0x1f;

/// Null when it is not one that is decoded.
const BodyCoding *findCoding(const QByteArray &name)
{
    const auto row =
        std::find_if(std::begin(codings), std::end(codings), [&](const BodyCoding &known) {
            return name.compare(known.name, Qt::CaseInsensitive) == 0;
        });
    return row == std::end(codings) ? nullptr : row;
}

/// No compressor begins data without a header by a byte that could begin a header.
bool beginsHeader(Bytef first)
{
    return first == gzipStart || (first & 0x0f) == Z_DEFLATED;
}

} // namespace

bool BodyDecoder::decodes(const QByteArray &coding)
{
    return findCoding(coding);
}

BodyDecoder::BodyDecoder(const QByteArray &coding, qint64 maximumSize)
    : m_coding(findCoding(coding))
    , m_maximumSize(maximumSize)
    , m_stream(new z_stream())
{
    // Where this fails for want of memory, so does all that follows.
    if (m_coding)
        inflateInit2(m_stream.get(), headerOfGzipOrZlib);
}

BodyDecoder::~BodyDecoder()
{
    inflateEnd(m_stream.get());
}

void BodyDecoder::take(const QByteArray &bytes, QByteArray &body)
{
    if (!m_coding) {
        append(bytes.constData(), bytes.size(), body);
        return;
    }
    m_stream->next_in = reinterpret_cast<const Bytef *>(bytes.constData());
    m_stream->avail_in = uInt(bytes.size());
    while (isUnfinished()) {
        if (m_place == Place::Within)
            decodePiece(body);
        else
            begin();
    }
}

bool BodyDecoder::isUnfinished() const
{
    if (m_state != State::Good || m_place == Place::AfterLast)
        return false;
    return m_stream->avail_in > 0 || (m_place == Place::Within && m_stream->avail_out == 0);
}

/// Only what gzip made can be followed by more of it; anything else is ignored there, as usual.
void BodyDecoder::begin()
{
    const Bytef first = *m_stream->next_in;
    if (m_place == Place::Between && first != gzipStart) {
        m_place = Place::AfterLast;
        return;
    }
    const bool hasHeader = !m_coding->mayLackHeader || beginsHeader(first);
    inflateReset2(m_stream.get(), hasHeader ? headerOfGzipOrZlib : noHeader);
    m_place = Place::Within;
}

void BodyDecoder::decodePiece(QByteArray &body)
{
    std::array<char, pieceSize> piece;
    m_stream->next_out = reinterpret_cast<Bytef *>(piece.data());
    m_stream->avail_out = uInt(piece.size());
    const int result = inflate(m_stream.get(), Z_NO_FLUSH);
    append(piece.data(), int(piece.size() - m_stream->avail_out), body);
    if (result == Z_STREAM_END)
        m_place = Place::Between;
    else if (result != Z_OK && result != Z_BUF_ERROR) // Having nothing to do is no fault.
        m_state = State::Faulty;
}

void BodyDecoder::append(const char *bytes, int size, QByteArray &body)
{
    if (size > m_maximumSize - body.size())
        m_state = State::TooLong;
    else if (m_state == State::Good)
        body.append(bytes, size);
}
