#include "tarvisnet.h"

#include "tarvisnet_p.h"

namespace {

/// What tells the fetches of documents apart.
struct DocumentFetch {
    QLatin1String replyType;
    QLatin1String contentType;
    QString RemotePath::*configuredPath;
    const char *emptyPath;
    bool emptyPathShowsUrl;
    const char *invalidPath;
    const char *invalidUrl;
};

constexpr DocumentFetch definitionFetch = {
    replies::remote_definition,
    mime::json,
    &RemotePath::definitionPath,
    "<TarvisNet::fetchDefinition> Invalid url: Empty definition path",
    false,
    "<TarvisNet::fetchDefinition> Invalid url: ",
    invalidAnyUrl,
};

constexpr DocumentFetch indexFetch = {
    replies::remote_index,
    mime::json,
    &RemotePath::indexPath,
    "<TarvisNet::fetchIndex> Empty index path",
    true,
    "<TarvisNet::fetchIndex> Invalid url: ",
    "<TarvisNet::fetchIndex> Invalid url",
};

constexpr DocumentFetch changeLogFetch = {
    replies::remote_installer_log,
    mime::wwwForm,
    &RemotePath::installerChangeLogPath,
    "<TarvisNet::fetchInstallerChangeLog> Empty changelog path",
    false,
    "<TarvisNet::fetchInstallerChangeLog> Invalid url: ",
    invalidAnyUrl,
};

void queueDocument(const TarvisNetPrivate &client, const DocumentFetch &fetch, const QUrl &url)
{
    client.add(newRecord(fetch.replyType, client.documentRequest(url, fetch.contentType)));
}

void fetchPath(const TarvisNetPrivate &client, const char *function, const DocumentFetch &fetch,
               const QString &givenPath)
{
    const QString path =
        givenPath.isEmpty() ? (*client.remotePaths).*fetch.configuredPath : givenPath;
    if (path.isEmpty()) {
        // Without the path on purpose: an empty one would hide a port that is not valid.
        client.refuse(function, fetch.emptyPath, fetch.emptyPathShowsUrl,
                      client.serverUrl().toString());
        return;
    }
    const QUrl url = client.serverUrl(path);
    if (url.isValid())
        queueDocument(client, fetch, url);
    else
        client.refuse(function, fetch.invalidPath, true, url.toString());
}

void fetchUrl(const TarvisNetPrivate &client, const char *function, const DocumentFetch &fetch,
              const QUrl &url)
{
    if (url.isValid())
        queueDocument(client, fetch, withScheme(url));
    else
        client.refuse(function, fetch.invalidUrl, true, url.toString());
}

} // namespace

void TarvisNet::fetchDefinition(QString _definitionPath)
{
    fetchPath(*d, Q_FUNC_INFO, definitionFetch, _definitionPath);
}

void TarvisNet::fetchDefinition(QUrl _url)
{
    fetchUrl(*d, Q_FUNC_INFO, definitionFetch, _url);
}

void TarvisNet::fetchIndex(QString _indexPath)
{
    fetchPath(*d, Q_FUNC_INFO, indexFetch, _indexPath);
}

void TarvisNet::fetchIndex(QUrl _url)
{
    fetchUrl(*d, Q_FUNC_INFO, indexFetch, _url);
}

void TarvisNet::fetchInstallerChangeLog(QString _changeLogPath)
{
    fetchPath(*d, Q_FUNC_INFO, changeLogFetch, _changeLogPath);
}

void TarvisNet::fetchInstallerChangeLog(QUrl _url)
{
    fetchUrl(*d, Q_FUNC_INFO, changeLogFetch, _url);
}
