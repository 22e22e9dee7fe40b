#include "updater.h"

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonObject>
#include <QtNetwork/QSslCertificate>

namespace {

using State = DownloadModel::State;

// What is still growing has the beginning of its own name, and two parts more.
bool isPartOf(const QString &name, const QString &growing)
{
    constexpr int longestBeginning = 40;
    return growing.section(QLatin1Char('.'), 0, -3) == name.left(longestBeginning);
}

} // namespace

void Updater::setServer(const ServerSettings &settings)
{
    const bool isTrustOther = !m_client || settings.caFile != m_settings.caFile;
    m_settings = settings;
    if (isTrustOther)
        makeClient();
    if (m_client)
        configureClient();
    settleAllFromDisk();
}

void Updater::check()
{
    giveUpDocuments();
    if (m_settings.host.isEmpty() || !m_settings.url(QString()).isValid())
        Q_EMIT failed(tr("Tell the host of the server, for example localhost"), m_settings.host);
    else if (hasClient())
        askForDocuments();
}

void Updater::startDownload(int row)
{
    if (!hasClient())
        return;
    const RemoteFile file = m_downloads.file(row);
    const QString url = m_settings.url(file.path).toString();
    m_downloads.begin(row, url, partialSize(file));
    // What is wrong with the folder, the client will tell.
    QDir().mkpath(m_settings.folder);
    m_client->fetchBinary(file.path, m_settings.savePath(file.name), qulonglong(file.size),
                          file.sha256);
}

void Updater::abortDownload(int row)
{
    m_client->abortDownload(m_downloads.file(row).path);
    settleFromDisk(row);
}

void Updater::makeClient()
{
    abortAll();
    m_client.reset();
    TransferPolicy policy = TransferPolicy::strict();
    if (!m_settings.caFile.isEmpty()) {
        const QList<QSslCertificate> authorities = QSslCertificate::fromPath(m_settings.caFile);
        // Without any the system's would count, which is not what the user asked for.
        if (authorities.isEmpty())
            return;
        policy.setCaCertificates(authorities);
    }
    m_client.reset(new TarvisNet(policy));
    connectClient();
}

void Updater::configureClient()
{
    m_client->setVtxName(QStringLiteral("Updater"));
    m_client->setServerHost(m_settings.host);
    m_client->setServerPort(QString::number(m_settings.port));
    m_client->setDefinitionPath(m_settings.definitionPath);
    m_client->setIndexPath(m_settings.indexPath);
    m_client->setInstallerChangeLogPath(m_settings.changeLogPath);
    m_client->setOutputDirectory(m_settings.folder);
    // Beside the finished file, so that the parts are found again by the next run.
    m_client->setTemporaryDirectory(m_settings.folder);
}

bool Updater::hasClient()
{
    if (!m_client)
        Q_EMIT failed(tr("The CA file has no certificate in it"), m_settings.caFile);
    return !m_client.isNull();
}

void Updater::abortAll()
{
    giveUpDocuments();
    for (int row = 0; row < m_downloads.rowCount(); ++row) {
        if (m_downloads.isActive(row))
            abortDownload(row);
    }
}

void Updater::connectClient()
{
    connect(m_client.data(), &TarvisNet::s_fetchDefinition, this, &Updater::takeDefinition);
    connect(m_client.data(), &TarvisNet::s_fetchIndex, this, &Updater::takeIndex);
    connect(m_client.data(), &TarvisNet::s_fetchInstallerChangeLogData, this,
            [this](const QByteArray &text, const QString &url) {
                Q_EMIT changeLogArrived(QString::fromUtf8(text));
                endDocument(url, true);
            });
    connect(m_client.data(), &TarvisNet::s_downloadFileBytesProgress, this,
            [this](qlonglong bytes, qlonglong /*total*/, const QString &url) {
                const int row = m_downloads.activeRowOf(url);
                if (row >= 0)
                    m_downloads.setBytes(row, bytes);
            });
    connect(m_client.data(), &TarvisNet::s_finished, this, &Updater::requestFinished);
    connect(m_client.data(), &TarvisNet::s_errorChanged, this,
            [this](short /*code*/, const QString &url, const QJsonDocument &details) {
                requestFailed(url, details[QLatin1String("reason")].toString());
            });
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
        (m_client.data()->*document.fetch)(document.path);
}

void Updater::giveUpDocuments()
{
    QStringList paths;
    for (const Document &document : qAsConst(m_openDocuments))
        paths.append(document.path);
    m_openDocuments.clear();
    if (!paths.isEmpty())
        m_client->abortDownload(paths);
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

void Updater::requestFailed(const QString &url, const QString &reason)
{
    Q_EMIT failed(reason, url);
    endDocument(url, false);
    const int row = m_downloads.activeRowOf(url);
    if (row >= 0)
        m_downloads.settle(row, State::Failed, partialSize(m_downloads.file(row)), reason);
}

void Updater::requestFinished(const QString &url)
{
    const int row = m_downloads.activeRowOf(url);
    if (row >= 0)
        m_downloads.settle(row, State::Complete, m_downloads.file(row).size);
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
    // What failed stays to be tried again.
    for (int row = 0; row < m_downloads.rowCount(); ++row) {
        if (!m_downloads.isActive(row) && m_downloads.state(row) != State::Failed)
            settleFromDisk(row);
    }
}

qint64 Updater::partialSize(const RemoteFile &file) const
{
    QDirIterator growing(m_settings.folder, {QLatin1String("*.") + general::temp_file_suffix},
                         QDir::Files);
    while (growing.hasNext()) {
        growing.next();
        const qint64 size = growing.fileInfo().size();
        if (isPartOf(file.name, growing.fileName()) && size < file.size)
            return size;
    }
    return 0;
}
