#include "transferpolicy.h"

#include <QtCore/QDebug>
#include <QtCore/QSharedData>

#include <algorithm>
#include <tuple>

namespace {

/// As many as a client sends requests at a time unless told otherwise.
constexpr int mostDownloadThreads = 5;

} // namespace

class TransferPolicyPrivate : public QSharedData {
public:
    bool peersVerified = false;
    QList<QSslCertificate> caCertificates;
    QList<QByteArray> pinnedKeys;
    bool redirectsChecked = false;
    int maximumRedirects = 10;
    bool filesChecked = false;
    bool failuresIsolated = false;
    int idleTimeout = 0;
    int totalTimeout = 0;
    int maximumRetries = 0;
    int retryDelay = 500;
    qint64 maximumBodySize = 0;
    bool errorsExplained = false;
    bool connectionsKept = false;
    bool http2Allowed = false;
    int downloadThreads = 1;

    auto properties() const
    {
        return std::tie(peersVerified, caCertificates, pinnedKeys, redirectsChecked,
                        maximumRedirects, filesChecked, failuresIsolated, idleTimeout, totalTimeout,
                        maximumRetries, retryDelay, maximumBodySize, errorsExplained,
                        connectionsKept, http2Allowed, downloadThreads);
    }
};

TransferPolicy::TransferPolicy()
    : d(new TransferPolicyPrivate)
{
}

TransferPolicy::TransferPolicy(const TransferPolicy &other) = default;
TransferPolicy::TransferPolicy(TransferPolicy &&other) noexcept = default;
TransferPolicy &TransferPolicy::operator=(const TransferPolicy &other) = default;
TransferPolicy &TransferPolicy::operator=(TransferPolicy &&other) noexcept = default;
TransferPolicy::~TransferPolicy() = default;

TransferPolicy TransferPolicy::strict()
{
    TransferPolicy policy;
    policy.setPeersVerified(true);
    policy.setRedirectsChecked(true);
    policy.setFilesChecked(true);
    policy.setFailuresIsolated(true);
    policy.setIdleTimeout(30 * 1000);
    policy.setMaximumRetries(3);
    policy.setMaximumBodySize(qint64(64) * 1024 * 1024);
    policy.setErrorsExplained(true);
    policy.setConnectionsKept(true);
    return policy;
}

TransferPolicy TransferPolicy::fast()
{
    TransferPolicy policy = strict();
    policy.setHttp2Allowed(true);
    policy.setDownloadThreads(mostDownloadThreads);
    return policy;
}

bool TransferPolicy::peersVerified() const
{
    return d->peersVerified;
}

void TransferPolicy::setPeersVerified(bool on)
{
    d->peersVerified = on;
}

QList<QSslCertificate> TransferPolicy::caCertificates() const
{
    return d->caCertificates;
}

void TransferPolicy::setCaCertificates(const QList<QSslCertificate> &certificates)
{
    d->caCertificates = certificates;
}

QList<QByteArray> TransferPolicy::pinnedKeys() const
{
    return d->pinnedKeys;
}

void TransferPolicy::setPinnedKeys(const QList<QByteArray> &sha256)
{
    d->pinnedKeys = sha256;
}

bool TransferPolicy::redirectsChecked() const
{
    return d->redirectsChecked;
}

void TransferPolicy::setRedirectsChecked(bool on)
{
    d->redirectsChecked = on;
}

int TransferPolicy::maximumRedirects() const
{
    return d->maximumRedirects;
}

void TransferPolicy::setMaximumRedirects(int count)
{
    d->maximumRedirects = count;
}

bool TransferPolicy::filesChecked() const
{
    return d->filesChecked;
}

void TransferPolicy::setFilesChecked(bool on)
{
    d->filesChecked = on;
}

bool TransferPolicy::failuresIsolated() const
{
    return d->failuresIsolated;
}

void TransferPolicy::setFailuresIsolated(bool on)
{
    d->failuresIsolated = on;
}

int TransferPolicy::idleTimeout() const
{
    return d->idleTimeout;
}

void TransferPolicy::setIdleTimeout(int msec)
{
    d->idleTimeout = msec;
}

int TransferPolicy::totalTimeout() const
{
    return d->totalTimeout;
}

void TransferPolicy::setTotalTimeout(int msec)
{
    d->totalTimeout = msec;
}

int TransferPolicy::maximumRetries() const
{
    return d->maximumRetries;
}

void TransferPolicy::setMaximumRetries(int count)
{
    d->maximumRetries = count;
}

int TransferPolicy::retryDelay() const
{
    return d->retryDelay;
}

void TransferPolicy::setRetryDelay(int msec)
{
    d->retryDelay = msec;
}

qint64 TransferPolicy::maximumBodySize() const
{
    return d->maximumBodySize;
}

void TransferPolicy::setMaximumBodySize(qint64 bytes)
{
    d->maximumBodySize = bytes;
}

bool TransferPolicy::errorsExplained() const
{
    return d->errorsExplained;
}

void TransferPolicy::setErrorsExplained(bool on)
{
    d->errorsExplained = on;
}

bool TransferPolicy::connectionsKept() const
{
    return d->connectionsKept;
}

void TransferPolicy::setConnectionsKept(bool on)
{
    d->connectionsKept = on;
}

bool TransferPolicy::http2Allowed() const
{
    return d->http2Allowed;
}

void TransferPolicy::setHttp2Allowed(bool on)
{
    d->http2Allowed = on;
}

int TransferPolicy::downloadThreads() const
{
    return d->downloadThreads;
}

void TransferPolicy::setDownloadThreads(int count)
{
    d->downloadThreads = std::clamp(count, 1, mostDownloadThreads);
}

bool operator==(const TransferPolicy &left, const TransferPolicy &right)
{
    return left.d == right.d || left.d->properties() == right.d->properties();
}

QDebug operator<<(QDebug debug, const TransferPolicy &policy)
{
    const QDebugStateSaver saver(debug);
    debug.nospace() << "TransferPolicy(peersVerified " << policy.peersVerified()
                    << ", caCertificates " << policy.caCertificates().size() << ", pinnedKeys "
                    << policy.pinnedKeys().size() << ", redirectsChecked "
                    << policy.redirectsChecked() << ", maximumRedirects "
                    << policy.maximumRedirects() << ", filesChecked " << policy.filesChecked()
                    << ", failuresIsolated " << policy.failuresIsolated() << ", idleTimeout "
                    << policy.idleTimeout() << ", totalTimeout " << policy.totalTimeout()
                    << ", maximumRetries " << policy.maximumRetries() << ", retryDelay "
                    << policy.retryDelay() << ", maximumBodySize " << policy.maximumBodySize()
                    << ", errorsExplained " << policy.errorsExplained() << ", connectionsKept "
                    << policy.connectionsKept() << ", http2Allowed " << policy.http2Allowed()
                    << ", downloadThreads " << policy.downloadThreads() << ')';
    return debug;
}
