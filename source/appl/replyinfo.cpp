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

bool isSameServer(const QUrl &left, const QUrl &right)
{
    const int usualPort = left.scheme() == QLatin1String("https") ? 443 : 80;
    return left.scheme() == right.scheme() && left.host() == right.host()
        && left.port(usualPort) == right.port(usualPort);
}

bool mayUseHttp2(const QNetworkReply &reply)
{
    return reply.request().attribute(QNetworkRequest::Http2AllowedAttribute).toBool();
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
