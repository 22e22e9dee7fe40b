#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <QtCore/QStringBuilder>
#include <QtCore/QSysInfo>
#include <QtNetwork/QNetworkCookieJar>
#include <QtNetwork/QSslSocket>

#include <algorithm>

namespace {

constexpr QLatin1String libraryVersion = general::literal("1.15.0.14194");

constexpr int maximalParallelRequests = 5;

/// Stores a new value. False when it is the stored one already.
template <typename T>
bool assign(T &stored, const T &value)
{
    if (stored == value)
        return false;
    stored = value;
    return true;
}

/// Lets the types of signals and slots travel through queued connections and signal spies.
void registerMetaTypes()
{
    qRegisterMetaType<TarvisNet::ContentType>("TarvisNet::ContentType");
    qRegisterMetaType<ReplyData>("ReplyData");
    qRegisterMetaType<FileData>("FileData");
    qRegisterMetaType<HeadersMap>("HeadersMap");
    qRegisterMetaType<RawHeadersMap>("RawHeadersMap");
    qRegisterMetaType<QNetworkReply::NetworkError>("QNetworkReply::NetworkError");
    qRegisterMetaType<QList<QSslError>>("QList<QSslError>");
    qRegisterMetaType<QList<QNetworkReply::RawHeaderPair>>("QList<QNetworkReply::RawHeaderPair>");
}

SystemInfoData readSystemInfo()
{
    return {QSysInfo::currentCpuArchitecture(), QSysInfo::prettyProductName(),
            QSysInfo::kernelVersion()};
}

/// Installed for the whole process: the certificates of content servers are not verified.
QSslConfiguration installSslConfiguration()
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setProtocol(QSsl::TlsV1_0OrLater);
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    QSslConfiguration::setDefaultConfiguration(configuration);
    return configuration;
}

void logEnvironment(const char *function, const SystemInfoData &info)
{
    clientLog.debug(function) << "TarvisNet ctor.";
    clientLog.debug(function) << "SSl support:" << QSslSocket::supportsSsl()
                              << QSslSocket::sslLibraryBuildVersionString()
                              << QSslSocket::sslLibraryVersionString();
    clientLog.debug(function) << "System info - architecture: " << info.architecture
                              << " system: " << info.system << " version: " << info.version;
}

} // namespace

TarvisNet::TarvisNet(QObject *parent)
    : QObject(parent)
    , d(new TarvisNetPrivate(this))
{
    registerMetaTypes();
    d->manager.reset(new QNetworkAccessManager);
    // Recursive: adding a request emits, under the lock, the signal that starts one.
    d->queueMutex.reset(new QMutex(QMutex::Recursive));
    d->initializeContentTypes();

    d->remotePing.reset(new RemotePing(d->manager, nullptr));
    connect(d->remotePing.data(), &RemotePing::s_timeout, this, &TarvisNet::pingTimeout);
    connect(this, &TarvisNet::s_startPing, d->remotePing.data(), &RemotePing::start);
    connect(this, &TarvisNet::s_stopPing, d->remotePing.data(), &RemotePing::stop);

    d->user.reset(new User);
    d->remotePaths.reset(new RemotePath);
    d->installerFile.reset(new FileData);
    d->application.reset(new ApplicationData);
    d->systemInfo.reset(new SystemInfoData(readSystemInfo()));
    d->sslConfiguration = installSslConfiguration();

    connect(this, &TarvisNet::s_installerFileNameChanged, this, &TarvisNet::changeFileName);
    connect(this, &TarvisNet::s_installerFileSizeChanged, this, &TarvisNet::changeFileName);
    connect(this, &TarvisNet::s_repliesCountChanged, this, &TarvisNet::processReplies);
    logEnvironment(Q_FUNC_INFO, *d->systemInfo);
}

TarvisNet::~TarvisNet()
{
    // What is still pending is dropped: no reply that ends below may start it.
    disconnect(this, &TarvisNet::s_repliesCountChanged, this, &TarvisNet::processReplies);
    clearReplies();
    d->queueMutex.reset();
    clientLog.debug(Q_FUNC_INFO) << "TarvisNet dtor.";
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

QString TarvisNet::getVtxVersion() const
{
    return d->application->version;
}

void TarvisNet::setVtxVersion(const QString &version)
{
    if (assign(d->application->version, version))
        Q_EMIT s_vtxVersionChanged();
}

QString TarvisNet::getVtxName() const
{
    return d->application->name;
}

void TarvisNet::setVtxName(const QString &name)
{
    if (assign(d->application->name, name))
        Q_EMIT s_vtxNameChanged();
}

QString TarvisNet::getVtxIdText() const
{
    return d->application->id;
}

void TarvisNet::setVtxIdByText(const QString &id)
{
    if (assign(d->application->id, id))
        Q_EMIT s_vtxIdChanged();
}

QUuid TarvisNet::getVtxId() const
{
    return QUuid(d->application->id);
}

void TarvisNet::setVtxId(const QUuid &uuid)
{
    setVtxIdByText(uuid.toString());
}

QUuid TarvisNet::generateVtxId()
{
    return QUuid::createUuid();
}

QString TarvisNet::getUserAgent() const
{
    const auto orDefault = [](const QString &text, QLatin1String fallback) {
        return text.isEmpty() ? QString(fallback) : text;
    };
    const ApplicationData &application = *d->application;
    const SystemInfoData &system = *d->systemInfo;

    // Every request asks for it: % allocates once where + would each time.
    QString text = orDefault(application.name, general::default_app_name) % QLatin1Char('/')
        % orDefault(application.version, general::default_app_version)
        % QLatin1String(" TarvisNet/") % libraryVersion % QLatin1Char(' ');
    if (!(system.architecture.isEmpty() && system.system.isEmpty() && system.version.isEmpty())) {
        text += QLatin1Char('(') % system.architecture % QLatin1String("; ") % system.system
            % QLatin1String("; ") % system.version % QLatin1Char(')');
    }
    if (!application.id.isEmpty()) {
        text += QLatin1Char(' ') % general::default_id_type % QLatin1Char('/') % application.id;
    }
    return text;
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
    return d->manager->cookieJar();
}

void TarvisNet::setCookies(QNetworkCookieJar *jar)
{
    if (!jar || jar == d->manager->cookieJar())
        return;
    d->manager->setCookieJar(jar);
    // The manager has taken the jar over; the caller shall keep it.
    jar->setParent(nullptr);
}

void TarvisNet::pingTimeout()
{
    const ActiveCall call(this, d->manager);
    abortDownload(QString());
    if (call.ownerGone())
        return;
    d->stopPing();
    if (call.ownerGone())
        return;
    Q_EMIT s_errorChanged(errorcodes::network_error, d->remotePing->getUrl().toString(),
                          QJsonDocument());
}

void TarvisNetPrivate::initializeContentTypes()
{
    contentTypes = {
        {TarvisNet::WwwForm, mime::wwwForm}, {TarvisNet::Json, mime::json},
        {TarvisNet::Xml, mime::xml},         {TarvisNet::Zip, mime::zip},
        {TarvisNet::Pdf, mime::pdf},         {TarvisNet::Plain, mime::plain},
    };
}

QNetworkRequest TarvisNetPrivate::request(const QUrl &url, QLatin1String contentType) const
{
    QNetworkRequest request(url);
    request.setSslConfiguration(sslConfiguration);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QString(contentType));
    return request;
}

QNetworkRequest TarvisNetPrivate::documentRequest(const QUrl &url, QLatin1String contentType) const
{
    QNetworkRequest documentRequest = request(url, contentType);
    documentRequest.setHeader(QNetworkRequest::UserAgentHeader, userAgent());
    return documentRequest;
}

void TarvisNetPrivate::queue(QLatin1String replyType, const QNetworkRequest &request,
                             const QByteArray &data, const FileData &file) const
{
    ReplyData record;
    record.replyType = replyType;
    record.request = request;
    record.data = data;
    record.fileData = file;
    q->addRequest(record);
}

void TarvisNetPrivate::refuse(const char *function, const char *text, bool showUrl,
                              const QString &url) const
{
    {
        QDebug log = clientLog.warning(function);
        log << text;
        if (showUrl)
            log << url;
    }
    Q_EMIT q->s_errorChanged(errorcodes::invalid_url, url, QJsonDocument());
}
