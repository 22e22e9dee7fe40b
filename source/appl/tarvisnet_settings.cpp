#include "tarvisnet.h"

#include "tarvisnet_p.h"

#include <QtNetwork/QNetworkCookieJar>

#include <algorithm>

namespace {

constexpr int maximalParallelRequests = 5;

} // namespace

TransferPolicy TarvisNet::transferPolicy() const
{
    return d->policy;
}

QString TarvisNet::getServerHost() const
{
    return d->user->serverHost;
}

void TarvisNet::setServerHost(const QString &host)
{
    if (assign(d->user->serverHost, host))
        Q_EMIT s_serverHostChanged();
}

QString TarvisNet::getServerPort() const
{
    return d->user->serverPort;
}

void TarvisNet::setServerPort(const QString &port)
{
    if (assign(d->user->serverPort, port))
        Q_EMIT s_serverPortChanged();
}

QString TarvisNet::getUserName() const
{
    return d->user->userName;
}

void TarvisNet::setUserName(const QString &name)
{
    if (assign(d->user->userName, name))
        Q_EMIT s_userNameChanged();
}

QString TarvisNet::getUserPassword() const
{
    return d->user->userPassword;
}

void TarvisNet::setUserPassword(const QString &password)
{
    if (assign(d->user->userPassword, password))
        Q_EMIT s_userPasswordChanged();
}

QString TarvisNet::getUrl() const
{
    return d->user->url;
}

void TarvisNet::setUrl(const QString &url)
{
    if (assign(d->user->url, url))
        Q_EMIT s_urlChanged();
}

QString TarvisNet::getDefinitionPath() const
{
    return d->remotePaths->definitionPath;
}

void TarvisNet::setDefinitionPath(const QString &path)
{
    if (assign(d->remotePaths->definitionPath, path))
        Q_EMIT s_definitionPathChanged();
}

QString TarvisNet::getIndexPath() const
{
    return d->remotePaths->indexPath;
}

void TarvisNet::setIndexPath(const QString &path)
{
    if (assign(d->remotePaths->indexPath, path))
        Q_EMIT s_indexPathChaged();
}

QString TarvisNet::getInstallerPath() const
{
    return d->remotePaths->installerPath;
}

void TarvisNet::setInstallerPath(const QString &path)
{
    if (assign(d->remotePaths->installerPath, path))
        Q_EMIT s_installerPathChanged();
}

QString TarvisNet::getInstallerCheckSumPath() const
{
    return d->remotePaths->installerCheckSumPath;
}

void TarvisNet::setInstallerCheckSumPath(const QString &path)
{
    if (assign(d->remotePaths->installerCheckSumPath, path))
        Q_EMIT s_installerCheckSumPathChanged();
}

QString TarvisNet::getInstallerChangeLogPath() const
{
    return d->remotePaths->installerChangeLogPath;
}

void TarvisNet::setInstallerChangeLogPath(const QString &path)
{
    if (assign(d->remotePaths->installerChangeLogPath, path))
        Q_EMIT s_installerChangeLogPathChanged();
}

QString TarvisNet::getDirectInstallerUrl() const
{
    return d->directInstallerUrl;
}

void TarvisNet::setDirectInstallerUrl(const QString &url)
{
    d->directInstallerUrl = url;
}

QString TarvisNet::getInstallerFileName() const
{
    return d->installerFile->filePath;
}

void TarvisNet::setInstallerFileName(const QString &path)
{
    d->installerFile->filePath = path;
    Q_EMIT s_installerFileNameChanged();
}

quint64 TarvisNet::getInstallerFileSize() const
{
    return d->installerFile->size;
}

void TarvisNet::setInstallerFileSize(quint64 bytes)
{
    if (assign(d->installerFile->size, bytes))
        Q_EMIT s_installerFileSizeChanged();
}

QString TarvisNet::getOutputDirectory() const
{
    return d->outputDirectory;
}

void TarvisNet::setOutputDirectory(const QString &path)
{
    if (assign(d->outputDirectory, path))
        Q_EMIT s_outputDirChanged();
}

QString TarvisNet::getTemporaryDirectory() const
{
    return d->temporaryDirectory;
}

void TarvisNet::setTemporaryDirectory(const QString &path)
{
    if (assign(d->temporaryDirectory, path))
        Q_EMIT s_temporaryDirChange();
}

int TarvisNet::getParallelRequestsCount() const
{
    return d->parallelRequestsCount;
}

void TarvisNet::setParallelRequestsCount(int count)
{
    // Compared before it is clamped, so that asking for too many is always answered by the signal.
    if (count == d->parallelRequestsCount)
        return;
    d->parallelRequestsCount = std::clamp(count, 1, maximalParallelRequests);
    Q_EMIT s_parallelRequestCountChanged();
}

bool TarvisNet::isPingAlwaysOn() const
{
    return d->pingAlwaysOn;
}

void TarvisNet::setPingAlwaysOn(bool on)
{
    if (assign(d->pingAlwaysOn, on))
        Q_EMIT s_pingAlwaysOnChanged();
}

bool TarvisNet::isStopProcess() const
{
    return d->stopProcess;
}

void TarvisNet::setStopProcess(bool stop)
{
    if (assign(d->stopProcess, stop))
        Q_EMIT s_stopProcessChanged();
}

int TarvisNet::getPingTimeout() const
{
    return d->remotePing ? d->remotePing->getTimeout() : 0;
}

void TarvisNet::setPingTimeout(int msec)
{
    if (d->remotePing)
        d->remotePing->setTimeout(msec);
}

QNetworkCookieJar *TarvisNet::getCoockies() const
{
    return d->managers->cookieJar();
}

void TarvisNet::setCookies(QNetworkCookieJar *jar)
{
    if (jar && jar != d->managers->cookieJar())
        d->managers->setCookieJar(jar);
}
