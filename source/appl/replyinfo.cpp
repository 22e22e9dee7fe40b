#include "replyinfo_p.h"

#include "records.h"

namespace replyinfo {

int httpStatus(const QNetworkReply *reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

QString urlText(const QNetworkReply *reply)
{
    return reply ? reply->url().toString() : QString();
}

QUrl serverOf(const QUrl &url)
{
    return url.adjusted(QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery
                        | QUrl::RemoveFragment);
}

std::optional<QUrl> redirectTarget(const QNetworkReply *reply)
{
    if (!reply)
        return std::nullopt;
    const QVariant target = reply->attribute(QNetworkRequest::RedirectionTargetAttribute);
    if (!target.isValid())
        return std::nullopt;
    return target.toUrl();
}

bool isFileKind(const QString &replyType)
{
    return replyType == replies::remote_installer || replyType == replies::remote_binary;
}

} // namespace replyinfo
