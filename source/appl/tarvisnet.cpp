#include "tarvisnet.h"

#include "strictrules_p.h"
#include "tarvisnet_p.h"
#include "traditionalrules_p.h"

#include <QtCore/QSysInfo>
#include <QtNetwork/QSslSocket>

namespace {

// Whichever constructor is called, logs name the one that has always been there.
constexpr char constructorName[] = "TarvisNet::TarvisNet(QObject*)";

std::unique_ptr<const TransferRules> rulesFor(const TransferPolicy &policy)
{
    if (policy == TransferPolicy())
        return std::make_unique<TraditionalRules>();
    return std::make_unique<StrictRules>(policy);
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
    : TarvisNet(TransferPolicy(), parent)
{
}

TarvisNet::TarvisNet(const TransferPolicy &policy, QObject *parent)
    : QObject(parent)
    , d(new TarvisNetPrivate(this, policy, rulesFor(policy)))
{
    registerMetaTypes();
    d->managers.reset(new ManagerPool(*d->rules));
    // Recursive: adding a request emits, under the lock, the signal that starts one.
    d->queueMutex.reset(new QRecursiveMutex);
    d->initializeContentTypes();
    d->growingFiles.reset(new QSet<QString>);
    d->clock.setSingleShot(true);
    connect(&d->clock, &QTimer::timeout, this, [this] { d->tick(); });

    d->remotePing.reset(new RemotePing(d->managers->primary(), nullptr));
    connect(d->remotePing.data(), &RemotePing::s_timeout, this, &TarvisNet::pingTimeout);
    connect(this, &TarvisNet::s_startPing, d->remotePing.data(), &RemotePing::start);
    connect(this, &TarvisNet::s_stopPing, d->remotePing.data(), &RemotePing::stop);
    d->guardProbe();

    d->user.reset(new User);
    d->remotePaths.reset(new RemotePath);
    d->installerFile.reset(new FileData);
    d->application.reset(new ApplicationData);
    d->systemInfo.reset(new SystemInfoData(readSystemInfo()));
    d->sslConfiguration = d->rules->tlsConfiguration();

    connect(this, &TarvisNet::s_installerFileNameChanged, this, &TarvisNet::changeFileName);
    connect(this, &TarvisNet::s_installerFileSizeChanged, this, &TarvisNet::changeFileName);
    connect(this, &TarvisNet::s_repliesCountChanged, this, &TarvisNet::processReplies);
    logEnvironment(constructorName, *d->systemInfo);
}

TarvisNet::~TarvisNet()
{
    // What is still pending is dropped: no reply that ends below may start it.
    disconnect(this, &TarvisNet::s_repliesCountChanged, this, &TarvisNet::processReplies);
    d->dropQueue();
    clearReplies();
    d->queueMutex.reset();
    clientLog.debug(Q_FUNC_INFO) << "TarvisNet dtor.";
}

void TarvisNetPrivate::initializeContentTypes()
{
    contentTypes = {
        {TarvisNet::WwwForm, mime::wwwForm}, {TarvisNet::Json, mime::json},
        {TarvisNet::Xml, mime::xml},         {TarvisNet::Zip, mime::zip},
        {TarvisNet::Pdf, mime::pdf},         {TarvisNet::Plain, mime::plain},
    };
}

#include "moc_tarvisnet.cpp" // NOLINT(bugprone-suspicious-include): that is what moc makes it for.
