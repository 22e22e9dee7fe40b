#include "explanation_p.h"

#include "errorcodes.h"
#include "replyinfo_p.h"
#include "retryschedule_p.h"

#include <QtCore/QDateTime>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QMetaEnum>

#include <algorithm>
#include <iterator>

namespace {

struct Reason {
    short code;
    const char *sentence;
};

constexpr Reason reasons[] = {
    {errorcodes::ssl_error_list_empty, "Qt reported TLS errors, but named none."},
    {errorcodes::network_error, "The server does not answer."},
    {errorcodes::invalid_url, "The URL or path is empty or not valid."},
    {errorcodes::file_open_failed, "The file of the download cannot be opened."},
    {errorcodes::authentication_required, "The server asks for credentials."},
    {errorcodes::unknown_reply, "An answer came that belongs to no request that is handled."},
    {errorcodes::unknown_network_error, "Qt knows of a failure, but not of which."},
    {errorcodes::content_not_found, "The server does not have the content."},
    {errorcodes::file_not_completed, "The finished file could not be put in place."},
    {errorcodes::queue_locked, "Another thread held the queue for too long."},
    {errorcodes::already_pending, "An equal request is waiting already."},
    {errorcodes::protocol_invalid_operation, "The server finds the request faulty."},
    {errorcodes::ssl_handshake_failed, "The server is not one to trust, or the handshake failed."},
    {errorcodes::timed_out, "The server was silent for too long."},
    {errorcodes::file_write_failed, "The disk does not take the file."},
    {errorcodes::file_corrupted, "The server's answer is no file."},
    {errorcodes::body_too_large, "The body is longer than it may be."},
};

bool hasNetworkError(const Failure &failure)
{
    return failure.reply && failure.reply->error() != QNetworkReply::NoError;
}

/// Qt's own sentence where it has one, because that says more than the code.
QString reasonOf(const Failure &failure)
{
    if (!failure.reason.isEmpty())
        return failure.reason;
    if (hasNetworkError(failure))
        return failure.reply->errorString();
    const auto reason =
        std::find_if(std::begin(reasons), std::end(reasons),
                     [&failure](const Reason &row) { return row.code == failure.code; });
    return reason == std::end(reasons) ? QString() : QString::fromLatin1(reason->sentence);
}

QString errorName(QNetworkReply::NetworkError error)
{
    return QString::fromLatin1(
        QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(error));
}

qint64 receivedOf(const Failure &failure)
{
    return failure.received < 0 ? QFileInfo(failure.file.tempFilePath).size() : failure.received;
}

QJsonValue valueOf(const QJsonDocument &document)
{
    return document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
}

void addReply(QJsonObject &told, const Failure &failure)
{
    const QNetworkReply &reply = *failure.reply;
    if (const QString url = replyinfo::urlText(&reply); url != failure.url)
        told.insert(QStringLiteral("url"), url);
    if (const int status = replyinfo::httpStatus(&reply))
        told.insert(QStringLiteral("httpStatus"), status);
    if (reply.error() != QNetworkReply::NoError)
        told.insert(QStringLiteral("networkError"), errorName(reply.error()));
    if (const auto seconds = retryschedule::retryAfter(reply.rawHeader("Retry-After"),
                                                       QDateTime::currentDateTimeUtc()))
        told.insert(QStringLiteral("retryAfter"), *seconds);
}

} // namespace

QJsonDocument explanation(const Failure &failure)
{
    QJsonObject told;
    told.insert(QStringLiteral("reason"), reasonOf(failure));
    if (failure.reply)
        addReply(told, failure);
    if (failure.attempts > 1)
        told.insert(QStringLiteral("attempts"), failure.attempts);
    if (failure.file.size != 0) {
        told.insert(QStringLiteral("expected"), qint64(failure.file.size));
        told.insert(QStringLiteral("received"), receivedOf(failure));
    }
    if (!failure.body.isNull())
        told.insert(QStringLiteral("body"), valueOf(failure.body));
    return QJsonDocument(told);
}
