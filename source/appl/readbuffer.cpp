#include "readbuffer_p.h"

#include <QtNetwork/QNetworkReply>

namespace {

constexpr qint64 KiB = 1024;
constexpr qint64 MiB = 1024 * KiB;

// Below this size a bound costs more speed than the memory is worth.
constexpr quint64 boundedFromSize = 16 * MiB;
// Found by measurement: less slows plain HTTP down, more only takes memory.
constexpr qint64 plainReadBuffer = 4 * MiB;
// As much as Qt lets a TLS socket hold, which then goes on in one block. With any other bound it
// goes on in the 4 KiB that Qt decrypts at a time.
constexpr qint64 tlsReadBuffer = 64 * KiB;
// More than Qt ever takes in one block of a bounded reply.
constexpr int greatestBlock = 8 * MiB;

} // namespace

namespace readbuffer {

bool mayNeedBound(quint64 size)
{
    return size == 0 || size >= boundedFromSize;
}

void limit(QNetworkReply *reply, quint64 expectedSize)
{
    if (expectedSize < boundedFromSize)
        return;
    // Taken only to be freed: until glibc has freed a block this large, it returns every block of
    // the download to the system, which then has to clear the pages each time.
    QByteArray().reserve(greatestBlock);
    const bool isTls = reply->url().scheme() == QLatin1String("https");
    reply->setReadBufferSize(isTls ? tlsReadBuffer : plainReadBuffer);
}

void releaseUnread(QNetworkReply *reply)
{
    if (reply->readBufferSize() > 0 && reply->bytesAvailable() > 0)
        reply->setReadBufferSize(0);
}

} // namespace readbuffer
