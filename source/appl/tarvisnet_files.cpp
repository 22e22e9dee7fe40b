#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

namespace {

bool isTemporaryPath(const QString &path)
{
    return QFileInfo(path).suffix() == general::temp_file_suffix;
}

} // namespace

void TarvisNet::saveBinary(QNetworkReply *_reply)
{
    const QString url = replytools::urlText(_reply);
    const auto active = d->replies.find(_reply);
    if (active == d->replies.end()) {
        clientLog.warning(Q_FUNC_INFO) << "<TarvisNet::saveBinary> Unrecognized reply!";
        return;
    }
    const FileData &file = active->record.fileData;
    if (file.filePath.isEmpty() || file.tempFilePath.isEmpty()) {
        clientLog.warning(Q_FUNC_INFO) << "File path not defined!";
        return;
    }
    const DownloadFile::Append appended = active->file.append(_reply);
    if (appended == DownloadFile::Append::NothingAvailable) {
        clientLog.warning(Q_FUNC_INFO) << "No bytes available!";
    } else if (appended == DownloadFile::Append::OpenFailed) {
        clientLog.warning(Q_FUNC_INFO) << "<TarvisNet::saveBinary> Error opening file to write!";
        Q_EMIT s_errorChanged(errorcodes::file_open_failed, url, QJsonDocument());
    }
}

void TarvisNet::saveInstaller(QNetworkReply *_reply)
{
    const FileData &file = *d->installerFile;
    if (!_reply || file.filePath.isEmpty())
        return;
    if (d->installerDownload.reply != _reply)
        d->installerDownload = {_reply, DownloadFile()};
    d->installerDownload.file.setTarget(file.filePath, signedSize(file));
    if (d->installerDownload.file.append(_reply) == DownloadFile::Append::OpenFailed) {
        clientLog.warning(Q_FUNC_INFO) << "<TarvisNet::saveInstaller> Error opening file to write.";
        Q_EMIT s_errorChanged(errorcodes::file_open_failed, replytools::urlText(_reply),
                              QJsonDocument());
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
    const QString path = isTemporaryPath(_filePath) ? _filePath : d->temporaryPath(_filePath);
    if (!QFileInfo::exists(path)) {
        clientLog.debug(Q_FUNC_INFO) << "File:" << _filePath << " not exist";
        return false;
    }
    if (!QFile::remove(path)) {
        clientLog.warning(Q_FUNC_INFO) << "Unable to remove temporary download file";
        return false;
    }
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
    const QDir directory(temporaryDirectory.isEmpty() ? QDir::tempPath() : temporaryDirectory);
    // Appended, not formatted: the name may itself contain what looks like a place to fill in.
    return directory.absoluteFilePath(QFileInfo(filePath).fileName()) + QLatin1Char('.')
        + general::temp_file_suffix;
}
