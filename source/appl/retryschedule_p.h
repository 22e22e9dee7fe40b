#ifndef TARVISNET_RETRYSCHEDULE_P_H
#define TARVISNET_RETRYSCHEDULE_P_H

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtNetwork/QNetworkReply>

#include <optional>

/// When a request that failed is worth another try.
namespace retryschedule {

/// Whether the failure may pass. \a status is 0 where there was no answer.
bool mayPass(QNetworkReply::NetworkError error, int status);

/// Milliseconds before the retry that comes after \a retries others. The first wait is \a firstMsec
/// long, at most; each is twice as long as the one before, up to 30 seconds, and \a chance, from 0
/// to below 1, takes up to half of it away, so that many clients do not come back as one.
int waitMsec(int firstMsec, int retries, double chance);

/// The seconds of a Retry-After header, a number or a date; none if it is neither.
std::optional<qint64> retryAfter(const QByteArray &text, const QDateTime &now);

/// How long the server may have us wait, in seconds.
inline constexpr qint64 longestRetryAfter = qint64(5) * 60;

} // namespace retryschedule

#endif // TARVISNET_RETRYSCHEDULE_P_H
