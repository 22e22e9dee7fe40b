#include "tarvisnet.h"

#include "tarvisnet_p.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

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

// Refusing the URL forms of the change log, the installer and the binary has always been logged as
// the definition's; who reads the logs relies on it.
constexpr char invalidAnyUrl[] = "<TarvisNet::fetchDefinition> Invalid url";

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

QString orDefault(const QString &text, const QString &fallback)
{
    return text.isEmpty() ? fallback : text;
}

QUrl withScheme(QUrl url)
{
    if (url.scheme().isEmpty())
        url.setScheme(QStringLiteral("https"));
    return url;
}

/// The Range value that asks for what is still missing of a file.
QByteArray openRange(qint64 from)
{
    return "bytes=" + QByteArray::number(from) + '-';
}

QUrl serverUrl(const TarvisNetPrivate &client)
{
    QUrl url;
    url.setScheme(QStringLiteral("https"));
    url.setHost(client.user->serverHost, QUrl::DecodedMode);
    url.setPort(client.user->serverPort.toInt(nullptr, 10));
    return url;
}

QUrl serverUrl(const TarvisNetPrivate &client, const QString &path)
{
    QUrl url = serverUrl(client);
    url.setPath(path, QUrl::DecodedMode);
    return url;
}

void queueDocument(const TarvisNetPrivate &client, const DocumentFetch &fetch, const QUrl &url)
{
    client.queue(fetch.replyType, client.documentRequest(url, fetch.contentType));
}

void fetchPath(const TarvisNetPrivate &client, const char *function, const DocumentFetch &fetch,
               const QString &givenPath)
{
    const QString path = orDefault(givenPath, (*client.remotePaths).*fetch.configuredPath);
    if (path.isEmpty()) {
        // Without the path on purpose: an empty one would hide a port that is not valid.
        client.refuse(function, fetch.emptyPath, fetch.emptyPathShowsUrl,
                      serverUrl(client).toString());
        return;
    }
    const QUrl url = serverUrl(client, path);
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

/// A request for a file. Its connection is not kept: a long download would hold it for nobody.
QNetworkRequest fileRequest(const TarvisNetPrivate &client, const QUrl &url, QLatin1String type)
{
    QNetworkRequest request = client.request(url, type);
    request.setRawHeader("User-Agent", client.userAgent());
    request.setRawHeader("Connection", "close");
    return request;
}

void queueInstaller(const TarvisNetPrivate &client, const char *function, const QUrl &url)
{
    QNetworkRequest request = fileRequest(client, url, mime::zip);
    const FileData &file = *client.installerFile;
    if (file.resumeOffset != 0 && quint64(file.resumeOffset) < file.size) {
        const QByteArray range = openRange(file.resumeOffset);
        clientLog.debug(function) << "<TarvisNet::fetchInstaller> File avalible bytes: " << range;
        request.setRawHeader("Range", range);
    }
    client.queue(replies::remote_installer, request);
}

/// Logs and removes a destination that is complete already. How often the log line names it has
/// always depended on the operation.
void discardCompleteFile(const char *function, const FileData &file, int timesNamed)
{
    const QFileInfo destination(file.filePath);
    if (!destination.exists() || destination.size() == 0
        || quint64(destination.size()) != file.size) {
        return;
    }
    {
        QDebug log = clientLog.debug(function);
        log << "<TarvisNet::fetchBinary> File allready exist: ";
        for (int i = 0; i < timesNamed; ++i)
            log << file.filePath;
        log << " -- reloading";
    }
    QFile::remove(file.filePath);
}

void queueBinary(const TarvisNetPrivate &client, const char *function, QNetworkRequest request,
                 FileData file, int timesNamed)
{
    file.tempFilePath = client.temporaryPath(file.filePath);
    if (!file.filePath.isEmpty()) {
        discardCompleteFile(function, file, timesNamed);
        const qint64 available = QFileInfo(file.tempFilePath).size();
        if (available != 0 && quint64(available) < file.size) {
            request.setRawHeader("Range", openRange(available));
            file.resumeOffset = available;
        }
    }
    client.queue(replies::remote_binary, request, QByteArray(), file);
}

FileData fileToWrite(const QString &savePath, quint64 size, const QString &hash)
{
    FileData file;
    file.filePath = savePath;
    file.size = size;
    file.hash = hash;
    return file;
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

void TarvisNet::fetchInstaller(QString _installerPath)
{
    const QString configuredPath = d->remotePaths->installerPath;
    // Without a configured path there is no installer on the server: the argument alone is not one.
    const bool direct = configuredPath.isEmpty();
    if (direct && d->directInstallerUrl.isEmpty()) {
        d->refuse(Q_FUNC_INFO, "Empty installer path. No url", false, QString());
        return;
    }
    const QUrl url = direct ? QUrl(d->directInstallerUrl, QUrl::TolerantMode)
                            : serverUrl(*d, orDefault(_installerPath, configuredPath));
    if (!url.isValid()) {
        d->refuse(Q_FUNC_INFO,
                  direct ? "<TarvisNet::fetchInstaller> Invalid direct URL: "
                         : "<TarvisNet::fetchInstaller> Invalid url: ",
                  true, url.toString());
        return;
    }
    queueInstaller(*d, Q_FUNC_INFO, url);
}

void TarvisNet::fetchInstaller(QUrl _url)
{
    if (_url.isValid())
        queueInstaller(*d, Q_FUNC_INFO, withScheme(_url));
    else
        d->refuse(Q_FUNC_INFO, invalidAnyUrl, true, _url.toString());
}

void TarvisNet::fetchBinary(QString _urlPath, QString _savePath, qulonglong _size, QString _hash)
{
    const QUrl url = serverUrl(*d, _urlPath);
    if (!url.isValid()) {
        d->refuse(Q_FUNC_INFO, "<TarvisNet::fetchBinary> Invalid url: ", true, url.toString());
        return;
    }
    QNetworkRequest request = fileRequest(*d, url, mime::wwwForm);
    request.setAttribute(QNetworkRequest::HttpPipeliningAllowedAttribute, true);
    queueBinary(*d, Q_FUNC_INFO, request, fileToWrite(_savePath, _size, _hash), 2);
}

void TarvisNet::fetchBinary(QUrl _url, QString _savePath, qulonglong _size, QString _hash)
{
    if (!_url.isValid()) {
        d->refuse(Q_FUNC_INFO, invalidAnyUrl, true, _url.toString());
        return;
    }
    const QNetworkRequest request = fileRequest(*d, withScheme(_url), mime::wwwForm);
    queueBinary(*d, Q_FUNC_INFO, request, fileToWrite(_savePath, _size, _hash), 1);
}
