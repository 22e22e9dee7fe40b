#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

namespace {

bool isTemporaryPath(const QString &path)
{
    return QFileInfo(path).suffix() == general::temp_file_suffix;
}

/// Logs and removes a destination that is complete already. The form with a path has always named
/// it twice.
void discardCompleteFile(const char *function, AddressForm form, const FileData &file)
{
    const QFileInfo destination(file.filePath);
    if (!destination.exists() || destination.size() == 0
        || quint64(destination.size()) != file.size) {
        return;
    }
    {
        QDebug log = clientLog.debug(function);
        log << "<TarvisNet::fetchBinary> File allready exist: ";
        if (form == AddressForm::Path)
            log << file.filePath;
        log << file.filePath << " -- reloading";
    }
    QFile::remove(file.filePath);
}

void queueBinary(const TarvisNetPrivate &client, const char *function, const QUrl &url,
                 AddressForm form, FileData file)
{
    QNetworkRequest request = client.fileRequest(url, mime::wwwForm, replies::remote_binary, form);
    if (client.rules->checksFiles()) {
        client.queueChecked(function, replies::remote_binary, request, file);
        return;
    }
    file.tempFilePath = client.temporaryPath(file.filePath);
    if (!file.filePath.isEmpty()) {
        discardCompleteFile(function, form, file);
        askForRest(request, file);
    }
    client.add(newRecord(replies::remote_binary, request, QByteArray(), file));
}

} // namespace

void askForRest(QNetworkRequest &request, FileData &file)
{
    const qint64 available = QFileInfo(file.tempFilePath).size();
    const bool isBeginning = available != 0 && quint64(available) < file.size;
    file.resumeOffset = isBeginning ? available : 0;
    request.setRawHeader("Range", isBeginning ? savedfile::openRange(available) : QByteArray());
}

void TarvisNet::fetchBinary(QString _urlPath, QString _savePath, qulonglong _size, QString _hash)
{
    const QUrl url = d->serverUrl(_urlPath);
    if (!url.isValid()) {
        d->refuse(Q_FUNC_INFO, "<TarvisNet::fetchBinary> Invalid url: ", true, url.toString());
        return;
    }
    queueBinary(*d, Q_FUNC_INFO, url, AddressForm::Path,
                FileData{_savePath, QString(), _hash, _size, 0});
}

void TarvisNet::fetchBinary(QUrl _url, QString _savePath, qulonglong _size, QString _hash)
{
    if (!_url.isValid()) {
        d->refuse(Q_FUNC_INFO, invalidAnyUrl, true, _url.toString());
        return;
    }
    queueBinary(*d, Q_FUNC_INFO, withScheme(_url), AddressForm::Url,
                FileData{_savePath, QString(), _hash, _size, 0});
}

void TarvisNet::saveBinary(QNetworkReply *_reply)
{
    const QString url = d->urlText(_reply);
    const auto transfer = d->transfers.find(_reply);
    if (transfer == d->transfers.end()) {
        clientLog.warning(Q_FUNC_INFO) << "<TarvisNet::saveBinary> Unrecognized reply!";
        return;
    }
    if (transfer->checkedFile) {
        d->takeFile(_reply);
        return;
    }
    const FileData &file = transfer->record.fileData;
    if (file.filePath.isEmpty() || file.tempFilePath.isEmpty()) {
        clientLog.warning(Q_FUNC_INFO) << "File path not defined!";
        return;
    }
    const DownloadFile::Append appended = transfer->file.append(_reply);
    if (appended == DownloadFile::Append::NothingAvailable) {
        clientLog.warning(Q_FUNC_INFO) << "No bytes available!";
    } else if (appended == DownloadFile::Append::OpenFailed) {
        clientLog.warning(Q_FUNC_INFO) << "<TarvisNet::saveBinary> Error opening file to write!";
        if (d->rules->isolatesFailures()) {
            d->fail(_reply, errorcodes::file_open_failed);
            return;
        }
        d->report({errorcodes::file_open_failed, url, _reply, QJsonDocument(),
                   transfer->record.fileData});
    }
}

bool TarvisNet::renameTemporaryFile(FileData _data)
{
    if (_data.filePath.isEmpty() || !isTemporaryPath(_data.tempFilePath))
        return false;
    if (!QFileInfo::exists(_data.tempFilePath)) {
        clientLog.warning(Q_FUNC_INFO) << "Temp file not exist";
        return false;
    }
    const QFileInfo destination(_data.filePath);
    if (destination.exists())
        return d->keepDestination(Q_FUNC_INFO, destination, _data);

    if (savedfile::moveLikeCopy(_data.tempFilePath, destination.filePath()))
        return true;
    QFile temporary(_data.tempFilePath);
    if (!temporary.copy(destination.filePath())) {
        clientLog.warning(Q_FUNC_INFO)
            << "Error:" << int(temporary.error()) << " text:" << temporary.errorString();
        return false;
    }
    removeTemporaryFile(_data.tempFilePath);
    return true;
}

bool TarvisNet::removeTemporaryFile(QString _filePath)
{
    if (_filePath.isEmpty())
        return false;
    const bool isDestination = !isTemporaryPath(_filePath);
    const QString path = isDestination ? d->temporaryPath(_filePath) : _filePath;
    const bool isCopyRemoved =
        isDestination && d->rules->checksFiles() && QFile::remove(CheckedFile::copyPath(_filePath));
    if (!QFileInfo::exists(path)) {
        if (!isCopyRemoved)
            clientLog.debug(Q_FUNC_INFO) << "File:" << _filePath << " not exist";
        return isCopyRemoved;
    }
    if (!QFile::remove(path)) {
        clientLog.warning(Q_FUNC_INFO) << "Unable to remove temporary download file";
        return false;
    }
    if (d->rules->checksFiles())
        QFile::remove(CheckedFile::companionPath(path));
    return true;
}

bool TarvisNetPrivate::keepDestination(const char *function, const QFileInfo &destination,
                                       const FileData &file) const
{
    clientLog.warning(function) << "Dest file allready exist" << destination.filePath()
                                << file.tempFilePath;
    const bool isComplete = quint64(destination.size()) == file.size;
    if (isComplete)
        clientLog.debug(function) << "File already loaded. Remove temporary.";
    else if (!QFile::remove(destination.filePath()))
        clientLog.warning(function) << "Unable to remove destination file";
    q->removeTemporaryFile(file.tempFilePath);
    return isComplete;
}

QString TarvisNetPrivate::temporaryPath(const QString &filePath) const
{
    return rules->temporaryPath(temporaryDirectory, filePath);
}
