#include "retryschedule_p.h"

#include <QtCore/QLocale>

#include <algorithm>
#include <iterator>

namespace {

constexpr int passingStatuses[] = {408, 425, 429, 500, 502, 503, 504};

constexpr QNetworkReply::NetworkError connectionErrors[] = {
    QNetworkReply::ConnectionRefusedError,
    QNetworkReply::RemoteHostClosedError,
    QNetworkReply::HostNotFoundError,
    QNetworkReply::TimeoutError,
    QNetworkReply::TemporaryNetworkFailureError,
    QNetworkReply::NetworkSessionFailedError,
    QNetworkReply::ProxyConnectionRefusedError,
    QNetworkReply::ProxyConnectionClosedError,
    QNetworkReply::ProxyTimeoutError,
    QNetworkReply::UnknownNetworkError,
};

/// What ends a stream of HTTP/2. Qt has the same ones for a status that is final.
constexpr QNetworkReply::NetworkError streamErrors[] = {
    QNetworkReply::ContentReSendError,
    QNetworkReply::ProtocolFailure,
    QNetworkReply::InternalServerError,
    QNetworkReply::UnknownServerError,
};

constexpr int longestWaitMsec = 30 * 1000;

template <typename Value, std::size_t size>
bool contains(const Value (&values)[size], Value value)
{
    return std::find(std::begin(values), std::end(values), value) != std::end(values);
}

} // namespace

namespace retryschedule {

bool mayPass(QNetworkReply::NetworkError error, int status)
{
    return contains(passingStatuses, status) || contains(connectionErrors, error)
        || (status < 400 && contains(streamErrors, error));
}

int waitMsec(int firstMsec, int retries, double chance)
{
    qint64 wait = std::max(0, firstMsec);
    for (int retry = 0; retry < retries && wait < longestWaitMsec; ++retry)
        wait *= 2;
    wait = std::min<qint64>(wait, longestWaitMsec);
    return int(wait - qint64(double(wait) / 2 * chance));
}

std::optional<qint64> retryAfter(const QByteArray &text, const QDateTime &now)
{
    bool isNumber = false;
    const qint64 seconds = text.trimmed().toLongLong(&isNumber);
    if (isNumber)
        return std::max<qint64>(0, seconds);
    QDateTime date = QLocale::c().toDateTime(QString::fromLatin1(text.trimmed()),
                                             QStringLiteral("ddd, dd MMM yyyy hh:mm:ss 'GMT'"));
    if (!date.isValid())
        return std::nullopt;
    date.setTimeSpec(Qt::UTC);
    return std::max<qint64>(0, now.secsTo(date));
}

} // namespace retryschedule
