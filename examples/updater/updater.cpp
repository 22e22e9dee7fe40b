#include "updater.h"

#include "checksum.h"
#include "errortext.h"
#include "serverurl.h"

#include <tarvisnet/errorcodes.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <limits>

namespace {

using State = DownloadModel::State;

constexpr int pingTimeoutMsec = 10000;

// The client's own probe cannot ask a higher port and would take that for the server's silence.
int pingTimeoutFor(int port)
{
    return port > std::numeric_limits<short>::max() ? std::numeric_limits<int>::max()
                                                    : pingTimeoutMsec;
}

// Where the client keeps what has arrived of a file, its temporary folder being that of the file.
QString partialPath(const QString &savePath)
{
    return savePath + QLatin1Char('.') + general::temp_file_suffix;
}

} // namespace

Updater::Updater(QObject *parent)
    : QObject(parent)
{
    m_client.setVtxName(QStringLiteral("Updater"));
    connectClient();
}

Updater::~Updater()
{
    // The client reports what it aborts while it dies, but by then nobody listens.
    m_client.disconnect(this);
}

void Updater::setServer(const ServerSettings &settings)
{
    m_settings = settings;
    m_client.setServerHost(settings.host);
    m_client.setServerPort(QString::number(settings.port));
    m_client.setDefinitionPath(settings.definitionPath);
    m_client.setIndexPath(settings.indexPath);
    m_client.setInstallerChangeLogPath(settings.changeLogPath);
    m_client.setOutputDirectory(settings.folder);
    // Beside the finished file, so that the parts are found again by the next run.
    m_client.setTemporaryDirectory(settings.folder);
    m_client.setPingTimeout(pingTimeoutFor(settings.port));
    settleAllFromDisk();
}

void Updater::check()
{
    giveUpDocuments();
    if (m_settings.host.isEmpty() || !m_settings.url(QString()).isValid())
        Q_EMIT failed(tr("Tell the host of the server, for example localhost"), m_settings.host);
    else
        askForDocuments();
}

void Updater::startDownload(int row)
{
    const RemoteFile file = m_downloads.file(row);
    if (!clearTheWay(file)) {
        Q_EMIT failed(tr("%1 cannot be written").arg(file.name), m_settings.folder);
        return;
    }
    const QString savePath = m_settings.savePath(file.name);
    const QString url = m_settings.url(file.path).toString();
    m_downloads.begin(row, url, savePath, partialSize(file));
    m_client.fetchBinary(file.path, savePath, static_cast<qulonglong>(file.size), file.sha256);
}

void Updater::abortDownload(int row)
{
    // First the row, then the request: the abort of a row that is still active is not the user's.
    settleFromDisk(row);
    m_client.abortDownload(m_downloads.file(row).path);
}

void Updater::connectClient()
{
    connect(&m_client, &TarvisNet::s_fetchDefinition, this, &Updater::takeDefinition);
    connect(&m_client, &TarvisNet::s_fetchIndex, this, &Updater::takeIndex);
    connect(&m_client, &TarvisNet::s_fetchInstallerChangeLogData, this,
            [this](const QByteArray &text, const QString &url) {
                Q_EMIT changeLogArrived(QString::fromUtf8(text));
                endDocument(url, true);
            });
    connect(&m_client, &TarvisNet::s_downloadFileBytesProgress, this,
            [this](qlonglong bytes, qlonglong /*total*/, const QString &url) {
                const int row = m_downloads.activeRowOf(url);
                if (row >= 0)
                    m_downloads.setBytes(row, bytes);
            });
    connect(&m_client, &TarvisNet::s_finished, this, &Updater::requestFinished);
    connect(&m_client, &TarvisNet::s_errorChanged, this, &Updater::requestFailed);
    connect(&m_client, &TarvisNet::s_aborted, this, &Updater::requestAborted);
}

void Updater::askForDocuments()
{
    const Document documents[] = {
        {m_settings.definitionPath, &TarvisNet::fetchDefinition},
        {m_settings.indexPath, &TarvisNet::fetchIndex},
        {m_settings.changeLogPath, &TarvisNet::fetchInstallerChangeLog},
    };
    for (const Document &document : documents) {
        if (!document.path.isEmpty())
            m_openDocuments.insert(m_settings.url(document.path).toString(), document);
    }
    m_hasCheckSucceeded = true;
    Q_EMIT checkingChanged();
    const QMap<QString, Document> asked = m_openDocuments;
    for (const Document &document : asked)
        (m_client.*document.fetch)(document.path);
}

void Updater::giveUpDocuments()
{
    QStringList paths;
    for (const Document &document : qAsConst(m_openDocuments))
        paths.append(document.path);
    m_openDocuments.clear();
    if (!paths.isEmpty())
        m_client.abortDownload(paths);
}

void Updater::endDocument(const QString &url, bool succeeded)
{
    if (m_openDocuments.remove(url) == 0)
        return;
    m_hasCheckSucceeded = m_hasCheckSucceeded && succeeded;
    Q_EMIT checkingChanged();
}

void Updater::takeDefinition(const QJsonDocument &document, const QString &url)
{
    if (document.isNull())
        Q_EMIT failed(tr("The definition is not JSON"), url);
    else
        Q_EMIT definitionArrived(document);
    endDocument(url, !document.isNull());
}

void Updater::takeIndex(const QJsonDocument &document, const QString &url)
{
    if (document.isNull()) {
        Q_EMIT failed(tr("The index is not JSON"), url);
    } else {
        QStringList faults;
        takeFiles(filesOfIndex(document, &faults));
        for (const QString &fault : qAsConst(faults))
            Q_EMIT failed(fault, url);
        Q_EMIT indexArrived(document);
    }
    endDocument(url, !document.isNull());
}

void Updater::takeFiles(const QVector<RemoteFile> &files)
{
    for (int row = 0; row < m_downloads.rowCount(); ++row) {
        if (m_downloads.isActive(row) && !files.contains(m_downloads.file(row)))
            abortDownload(row);
    }
    m_downloads.setFiles(files);
    settleAllFromDisk();
}

void Updater::requestFailed(short code, const QString &url)
{
    const QString words = errorWords(code, url);
    Q_EMIT failed(words, url);
    endDocument(url, false);
    const int row = m_downloads.activeRowOf(url);
    if (row < 0 || !endsRequest(code))
        return;
    m_downloads.settle(row, State::Failed, partialSize(m_downloads.file(row)), words);
    // The request goes on, and would fail again with every piece that arrives.
    if (code == errorcodes::file_open_failed)
        m_client.abortDownload(m_downloads.file(row).path);
}

void Updater::requestAborted(const QString &url)
{
    // With a request that fails the client aborts another. A document is asked for once more: that
    // comes to an end, because every request that fails costs one other only. A download is left
    // to the user.
    const Document document = m_openDocuments.value(url);
    if (document.fetch)
        (m_client.*document.fetch)(document.path);
    const int row = m_downloads.activeRowOf(url);
    if (row < 0)
        return;
    settleFromDisk(row);
    Q_EMIT failed(tr("Stopped because another request failed"), url);
}

void Updater::requestFinished(const QString &url)
{
    const int row = m_downloads.activeRowOf(url);
    if (row >= 0)
        verify(row);
}

QString Updater::errorWords(short code, const QString &url) const
{
    const bool isServer = url == serverText(m_settings.url(QString()));
    QString words = code == errorcodes::network_error && isServer
        ? tr("the server did not answer in time")
        : errorText(code);
    words[0] = words.at(0).toUpper();
    return words;
}

bool Updater::clearTheWay(const RemoteFile &file)
{
    const QString savePath = m_settings.savePath(file.name);
    // A file of another size would make the download fail at its end, and a partial file that is
    // not shorter than the whole cannot be a part of it.
    const QFileInfo inTheWay(savePath);
    if (inTheWay.exists() && inTheWay.size() != file.size && !QFile::remove(savePath))
        return false;
    if (QFileInfo(partialPath(savePath)).size() >= file.size)
        m_client.removeTemporaryFile(savePath);
    return QDir().mkpath(m_settings.folder);
}

void Updater::verify(int row)
{
    const RemoteFile &file = m_downloads.file(row);
    const QString savePath = m_downloads.savePath(row);
    const qint64 size = QFileInfo(savePath).size();
    if (size != file.size) {
        // The client takes what the server sends for the whole file, also when that is short.
        reject(
            row,
            tr("%1 arrived with %2 bytes instead of %3").arg(file.name).arg(size).arg(file.size));
        return;
    }
    if (file.sha256.isEmpty()) {
        m_downloads.settle(row, State::Complete, size);
        return;
    }
    m_downloads.settle(row, State::Checking, size);
    const QString url = m_downloads.url(row);
    auto *checksum = new Checksum(savePath, this);
    connect(checksum, &Checksum::done, this,
            [this, url](const QString &sha256) { takeChecksum(url, sha256); });
}

void Updater::takeChecksum(const QString &url, const QString &sha256)
{
    const int row = m_downloads.rowOf(url);
    if (row < 0 || m_downloads.state(row) != State::Checking)
        return;
    const RemoteFile &file = m_downloads.file(row);
    if (file.sha256.compare(sha256, Qt::CaseInsensitive) == 0)
        m_downloads.settle(row, State::Complete, file.size);
    else
        reject(row, tr("%1 arrived damaged: its SHA-256 is wrong").arg(file.name));
}

void Updater::reject(int row, const QString &reason)
{
    // Nothing of it can be resumed.
    QFile::remove(m_downloads.savePath(row));
    m_downloads.settle(row, State::Failed, 0, reason);
    Q_EMIT failed(reason, m_downloads.url(row));
}

void Updater::settleFromDisk(int row)
{
    const RemoteFile &file = m_downloads.file(row);
    const qint64 partial = partialSize(file);
    if (partial > 0)
        m_downloads.settle(row, State::Stopped, partial);
    else if (QFileInfo(m_settings.savePath(file.name)).size() == file.size)
        m_downloads.settle(row, State::Complete, file.size);
    else
        m_downloads.settle(row, State::Absent, 0);
}

void Updater::settleAllFromDisk()
{
    for (int row = 0; row < m_downloads.rowCount(); ++row) {
        if (!m_downloads.isActive(row) && m_downloads.state(row) != State::Checking)
            settleFromDisk(row);
    }
}

qint64 Updater::partialSize(const RemoteFile &file) const
{
    const qint64 size = QFileInfo(partialPath(m_settings.savePath(file.name))).size();
    return size < file.size ? size : 0;
}
