#include "tarvisnet.h"

#include "tarvisnet_p.h"

#include <utility>

namespace {

/// The texts that refuse a raw operation. Some are bare or name another operation: that is how logs
/// have always read.
struct RefusalTexts {
    const char *emptyText;
    const char *invalidUrl;
    bool invalidUrlShowsUrl;
};

constexpr RefusalTexts getTexts = {"<TarvisNet::rawGet> Empty url string",
                                   "<TarvisNet::rawGet> Invalid url", true};
constexpr RefusalTexts postTexts = {"<TarvisNet::rawGet> Empty url string",
                                    "<TarvisNet::rawPost> Invalid url", true};
constexpr RefusalTexts patchTexts = {nullptr, "<TarvisNet::rawPath> Invalid url", true};
constexpr RefusalTexts deleteTexts = {nullptr, "<TarvisNet::rawDelete> Invalid or empty url",
                                      false};
constexpr RefusalTexts getFileTexts = {"<TarvisNet::rawGetFile> Empty url string",
                                       "<TarvisNet::rawGetFile> Invalid url:", true};
constexpr RefusalTexts postFileTexts = {"Empty url string", "Invalid url:", true};
constexpr RefusalTexts forceGetTexts = {"<TarvisNet::forceRawGet> Empty url string",
                                        "<TarvisNet::forceRawGet> Invalid or empty url", false};

/// True when the text may be parsed as a URL; otherwise it has been refused.
bool acceptText(const TarvisNetPrivate &client, const char *function, const RefusalTexts &texts,
                const QString &text)
{
    if (text.isEmpty())
        client.refuse(function, texts.emptyText, false, QString());
    return !text.isEmpty();
}

/// True when the URL may be asked for; otherwise it has been refused.
bool acceptUrl(const TarvisNetPrivate &client, const char *function, const RefusalTexts &texts,
               const QUrl &url)
{
    if (!url.isValid())
        client.refuse(function, texts.invalidUrl, texts.invalidUrlShowsUrl, url.toString());
    return url.isValid();
}

QUrl parse(const QString &text)
{
    return QUrl(text, QUrl::TolerantMode);
}

/// The value of the Content-Type header; an invalid one, which removes the header, when \a type is
/// nothing that could be a ContentType.
QVariant contentTypeText(TarvisNetPrivate &client, const QVariant &type)
{
    if (!type.canConvert<int>())
        return QVariant();
    // A number outside the enumeration gets an entry of its own, with an empty text. That is no
    // header.
    const QString text = client.contentTypes[TarvisNet::ContentType(type.toInt())];
    return text.isEmpty() ? QVariant() : text;
}

QNetworkRequest requestWithHeaders(TarvisNetPrivate &client, const QUrl &url,
                                   QLatin1String defaultType, const HeadersMap &headers,
                                   const RawHeadersMap &rawHeaders)
{
    // An application that gives a user agent, even an empty one, does not want to send the
    // client's, which names the installation.
    QNetworkRequest request = headers.contains(QNetworkRequest::UserAgentHeader)
        ? client.request(url, defaultType)
        : client.documentRequest(url, defaultType);
    for (auto header = headers.cbegin(); header != headers.cend(); ++header) {
        const bool isContentType = header.key() == QNetworkRequest::ContentTypeHeader;
        request.setHeader(header.key(),
                          isContentType ? contentTypeText(client, header.value()) : header.value());
    }
    for (auto header = rawHeaders.cbegin(); header != rawHeaders.cend(); ++header)
        request.setRawHeader(header.key(), header.value());
    return request;
}

void queueFile(TarvisNetPrivate &client, QLatin1String replyType, const QUrl &url,
               const QString &savePath, const QByteArray &data)
{
    if (!savePath.isEmpty())
        client.rawFileSavePath = savePath;
    client.add(newRecord(replyType, client.documentRequest(url, mime::wwwForm), data));
}

void getFile(TarvisNetPrivate &client, const char *function, const QUrl &url,
             const QString &savePath)
{
    if (acceptUrl(client, function, getFileTexts, url))
        queueFile(client, replies::raw_get_file, url, savePath, QByteArray());
}

void postFile(TarvisNetPrivate &client, const char *function, const QUrl &url,
              const QString &savePath, const QByteArray &data)
{
    if (acceptUrl(client, function, postFileTexts, url))
        queueFile(client, replies::raw_post_file, url, savePath, data);
}

} // namespace

void TarvisNet::rawGet(QUrl _rawUrl, HeadersMap _headers, RawHeadersMap _rawHeaders)
{
    if (!acceptUrl(*d, Q_FUNC_INFO, getTexts, _rawUrl))
        return;
    d->add(newRecord(replies::raw_get,
                     requestWithHeaders(*d, _rawUrl, mime::json, _headers, _rawHeaders)));
}

void TarvisNet::rawGet(QString _rawPath)
{
    if (acceptText(*d, Q_FUNC_INFO, getTexts, _rawPath))
        rawGet(parse(_rawPath));
}

void TarvisNet::rawPost(QUrl _rawUrl, QByteArray _data, HeadersMap _headers,
                        RawHeadersMap _rawHeaders)
{
    if (!acceptUrl(*d, Q_FUNC_INFO, postTexts, _rawUrl))
        return;
    d->add(newRecord(replies::raw_post,
                     requestWithHeaders(*d, _rawUrl, mime::wwwForm, _headers, _rawHeaders), _data));
}

void TarvisNet::rawPost(QString _rawPath, QString _data)
{
    if (acceptText(*d, Q_FUNC_INFO, postTexts, _rawPath))
        rawPost(parse(_rawPath), _data.toLocal8Bit());
}

void TarvisNet::rawPath(QUrl _rawUrl, QByteArray _data, HeadersMap _headers,
                        RawHeadersMap _rawHeaders)
{
    if (!acceptUrl(*d, Q_FUNC_INFO, patchTexts, _rawUrl))
        return;
    d->add(newRecord(replies::raw_patch,
                     requestWithHeaders(*d, _rawUrl, mime::json, _headers, _rawHeaders), _data));
}

void TarvisNet::rawDelete(QUrl _rawUrl, QByteArray _data)
{
    if (acceptUrl(*d, Q_FUNC_INFO, deleteTexts, _rawUrl))
        d->add(newRecord(replies::raw_delete, d->documentRequest(_rawUrl, mime::json), _data));
}

void TarvisNet::rawGetFile(QUrl _rawFileUrl, QString _savePath)
{
    getFile(*d, Q_FUNC_INFO, _rawFileUrl, _savePath);
}

void TarvisNet::rawGetFile(QString _filePath, QString _savePath)
{
    if (acceptText(*d, Q_FUNC_INFO, getFileTexts, _filePath))
        getFile(*d, Q_FUNC_INFO, parse(_filePath), _savePath);
}

void TarvisNet::rawPostFile(QUrl _rawFileUrl, QString _savePath, QByteArray _data)
{
    postFile(*d, Q_FUNC_INFO, _rawFileUrl, _savePath, _data);
}

void TarvisNet::rawPostFile(QString _rawPath, QString _savePath, QByteArray _data)
{
    if (acceptText(*d, Q_FUNC_INFO, postFileTexts, _rawPath))
        postFile(*d, Q_FUNC_INFO, parse(_rawPath), _savePath, _data);
}

void TarvisNet::forceRawGet(QUrl _rawUrl)
{
    if (!acceptUrl(*d, Q_FUNC_INFO, forceGetTexts, _rawUrl))
        return;
    forceAddRequest(newRecord(replies::raw_get, d->documentRequest(_rawUrl, mime::json)));
}

void TarvisNet::forceRawGet(QString _rawPath)
{
    if (acceptText(*d, Q_FUNC_INFO, forceGetTexts, _rawPath))
        forceRawGet(parse(_rawPath));
}
