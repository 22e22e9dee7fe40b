#include "downloadfile_p.h"

#include "temporaryfile_p.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtNetwork/QNetworkReply>

#include <algorithm>
#include <utility>

namespace {

void dropAvailable(QNetworkReply *reply)
{
    while (reply->bytesAvailable() > 0 && !reply->read(TemporaryFile::pieceSize).isEmpty()) {}
}

} // namespace

DownloadFile::DownloadFile(QString path, quint64 size)
    : m_path(std::move(path))
    , m_size(size)
{
}

void DownloadFile::setTarget(const QString &path, quint64 size)
{
    m_path = path;
    m_size = size;
}

DownloadFile::Append DownloadFile::append(QNetworkReply *reply)
{
    if (!m_isCut) {
        QFile file(m_path);
        // Unbuffered, so that what write() has counted is in the file.
        if (!file.open(QIODevice::Append | QIODevice::Unbuffered))
            return Append::OpenFailed;
        if (m_size <= quint64(file.size()))
            return Append::Complete;
        if (reply->bytesAvailable() < 1)
            return Append::NothingAvailable;
        m_isCut = !write(reply, file);
    }
    if (!m_isCut)
        return Append::Written;
    // Whatever follows would stand behind a gap, and unread it would stay in memory.
    dropAvailable(reply);
    return Append::Dropped;
}

/// False when the disk does not take all of it.
bool DownloadFile::write(QNetworkReply *reply, QFile &file) const
{
    for (qint64 left = reply->bytesAvailable(); left > 0; left -= TemporaryFile::pieceSize) {
        // Read first, which lets the network thread go on while this one writes.
        const QByteArray bytes = reply->read(std::min(left, TemporaryFile::pieceSize));
        if (file.write(bytes) != bytes.size())
            return false;
    }
    return true;
}

QByteArray savedfile::openRange(qint64 from)
{
    return "bytes=" + QByteArray::number(from) + '-';
}

bool savedfile::overwriteStart(const QString &path, const QByteArray &body)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite))
        return false;
    file.write(body);
    return true;
}
