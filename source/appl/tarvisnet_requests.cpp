#include "errorcodes.h"
#include "tarvisnet_p.h"

QUrl withScheme(QUrl url)
{
    if (url.scheme().isEmpty())
        url.setScheme(QStringLiteral("https"));
    return url;
}

ReplyData newRecord(QLatin1String replyType, const QNetworkRequest &request, const QByteArray &data,
                    const FileData &file)
{
    ReplyData record;
    record.replyType = replyType;
    record.request = request;
    record.data = data;
    record.fileData = file;
    return record;
}

QNetworkRequest TarvisNetPrivate::request(const QUrl &url, QLatin1String contentType) const
{
    QNetworkRequest request(url);
    request.setSslConfiguration(sslConfiguration);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QString(contentType));
    return request;
}

QNetworkRequest TarvisNetPrivate::documentRequest(const QUrl &url, QLatin1String contentType) const
{
    QNetworkRequest documentRequest = request(url, contentType);
    documentRequest.setHeader(QNetworkRequest::UserAgentHeader, userAgent());
    return documentRequest;
}

QNetworkRequest TarvisNetPrivate::fileRequest(const QUrl &url, QLatin1String contentType,
                                              QLatin1String replyType, AddressForm form) const
{
    QNetworkRequest fileRequest = request(url, contentType);
    rules->prepareFileRequest(fileRequest, replyType, form, userAgent());
    return fileRequest;
}

QUrl TarvisNetPrivate::serverUrl() const
{
    QUrl url;
    url.setScheme(QStringLiteral("https"));
    url.setHost(user->serverHost, QUrl::DecodedMode);
    url.setPort(user->serverPort.toInt(nullptr, 10));
    return url;
}

QUrl TarvisNetPrivate::serverUrl(const QString &path) const
{
    QUrl url = serverUrl();
    url.setPath(path, QUrl::DecodedMode);
    return url;
}

void TarvisNetPrivate::refuse(const char *function, const char *text, bool showUrl,
                              const QString &url) const
{
    {
        QDebug log = clientLog.warning(function);
        log << text;
        if (showUrl)
            log << url;
    }
    report({errorcodes::invalid_url, url});
}
