#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <QtCore/QFile>

namespace {

void queueInstaller(const TarvisNetPrivate &client, const char *function, const QUrl &url,
                    AddressForm form)
{
    QNetworkRequest request = client.fileRequest(url, mime::zip, replies::remote_installer, form);
    const FileData &file = *client.installerFile;
    if (client.rules->checksFiles()) {
        client.queueChecked(function, replies::remote_installer, request, file);
        return;
    }
    if (file.resumeOffset != 0 && quint64(file.resumeOffset) < file.size) {
        const QByteArray range = savedfile::openRange(file.resumeOffset);
        clientLog.debug(function) << "<TarvisNet::fetchInstaller> File avalible bytes: " << range;
        request.setRawHeader("Range", range);
    }
    client.add(newRecord(replies::remote_installer, request));
}

} // namespace

void TarvisNet::fetchInstaller(QString _installerPath)
{
    const QString configuredPath = d->remotePaths->installerPath;
    // Without a configured path there is no installer on the server: the argument alone is not one.
    const bool direct = configuredPath.isEmpty();
    if (direct && d->directInstallerUrl.isEmpty()) {
        d->refuse(Q_FUNC_INFO, "Empty installer path. No url", false, QString());
        return;
    }
    const QUrl url = direct
        ? QUrl(d->directInstallerUrl, QUrl::TolerantMode)
        : d->serverUrl(_installerPath.isEmpty() ? configuredPath : _installerPath);
    if (!url.isValid()) {
        d->refuse(Q_FUNC_INFO,
                  direct ? "<TarvisNet::fetchInstaller> Invalid direct URL: "
                         : "<TarvisNet::fetchInstaller> Invalid url: ",
                  true, url.toString());
        return;
    }
    queueInstaller(*d, Q_FUNC_INFO, url, direct ? AddressForm::Url : AddressForm::Path);
}

void TarvisNet::fetchInstaller(QUrl _url)
{
    if (_url.isValid())
        queueInstaller(*d, Q_FUNC_INFO, withScheme(_url), AddressForm::Url);
    else
        d->refuse(Q_FUNC_INFO, invalidAnyUrl, true, _url.toString());
}

void TarvisNet::saveInstaller(QNetworkReply *_reply)
{
    const FileData &file = *d->installerFile;
    if (!_reply || file.filePath.isEmpty())
        return;
    if (d->installerDownload.reply != _reply)
        d->installerDownload = {_reply, DownloadFile()};
    d->installerDownload.file.setTarget(file.filePath, d->rules->sizeToAppendTo(file));
    if (d->installerDownload.file.append(_reply) == DownloadFile::Append::OpenFailed) {
        clientLog.warning(Q_FUNC_INFO) << "<TarvisNet::saveInstaller> Error opening file to write.";
        d->report({errorcodes::file_open_failed, replyinfo::urlText(_reply), _reply});
    }
}

void TarvisNet::changeFileName()
{
    FileData &installer = *d->installerFile;
    if (installer.filePath.isEmpty())
        return;
    QFile file(installer.filePath);
    if (file.open(QIODevice::ReadOnly) && installer.size > quint64(file.size()))
        installer.resumeOffset = file.size();
}
