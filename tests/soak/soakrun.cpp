#include "soakrun.h"

#include "clientbench.h"
#include "processfigures.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QTextStream>
#include <QtNetwork/QNetworkAccessManager>

#include <algorithm>
#include <numeric>

namespace {

/// As many small requests as wait or run at any time: more than run at once.
constexpr int backlog = 8;
constexpr int samplePeriod = 250;
constexpr int probePeriod = 20;

} // namespace

SoakRun::SoakRun(const SoakPlan &plan)
    : m_plan(plan)
    , m_client(plan.policy)
    , m_probe(QSharedPointer<QNetworkAccessManager>::create())
    , m_samplesFile(plan.samplesFile)
{
    m_client.setPingAlwaysOn(true);
    m_client.setTemporaryDirectory(plan.directory);
    connect(&m_client, &TarvisNet::s_rawGet, this, &SoakRun::finishRequest);
    connect(&m_client, &TarvisNet::s_finished, this, &SoakRun::finishDownload);
    connect(&m_client, &TarvisNet::s_errorChanged, this, [this](short code, const QString &url) {
        fail(QStringLiteral("error %1 for %2").arg(code).arg(url));
    });
    connect(&m_client, &TarvisNet::s_aborted, this,
            [this](const QString &url) { fail(QStringLiteral("aborted: ") + url); });

    m_probe.setUrl(plan.server);
    m_probe.setPeriod(probePeriod);
    connect(&m_probe, &RemotePing::s_ping, this, [this] { ++m_pings; });
    connect(&m_probe, &RemotePing::s_error, this,
            [this] { fail(QStringLiteral("the probe reports an error")); });
    connect(&m_probe, &RemotePing::s_timeout, this,
            [this] { fail(QStringLiteral("the probe reports a time-out")); });

    connect(&m_sampler, &QTimer::timeout, this, &SoakRun::sample);
}

void SoakRun::start()
{
    if (!m_samplesFile.open(QIODevice::WriteOnly | QIODevice::Text))
        qFatal("cannot write %s", qUtf8Printable(m_plan.samplesFile));
    m_clock.start();
    m_sampler.start(samplePeriod);
    m_probe.start();
    startRound();
}

// A round is its share of the small requests, and then the downloads that run at once.
void SoakRun::startRound()
{
    if (m_downloadsDone == m_plan.downloads)
        return finish();
    const qint64 asked = std::min(m_downloadsDone + m_plan.downloadsAtOnce, m_plan.downloads);
    m_roundEnd = int(m_plan.requests * asked / m_plan.downloads);
    for (int i = 0; i < backlog; ++i)
        askNext();
}

void SoakRun::askNext()
{
    if (m_requestsAsked == m_roundEnd)
        return;
    QUrl url = m_plan.server;
    url.setPath(m_plan.paths.at(m_requestsAsked % m_plan.paths.size()));
    // Equal requests are refused while they wait.
    url.setQuery(QString::number(m_requestsAsked));
    ++m_requestsAsked;
    m_client.rawGet(url);
}

void SoakRun::finishRequest()
{
    ++m_requestsDone;
    if (m_requestsDone == m_roundEnd)
        return download();
    askNext();
}

void SoakRun::download()
{
    QUrl url = m_plan.server;
    url.setPath(m_plan.downloadPath);
    for (int i = 0; i < m_plan.downloadsAtOnce && m_downloadsAsked < m_plan.downloads; ++i) {
        url.setQuery(QString::number(++m_downloadsAsked));
        m_client.fetchBinary(url, downloadPath(url), qulonglong(m_plan.downloadSize));
    }
}

QString SoakRun::downloadPath(const QUrl &url) const
{
    return QStringLiteral("%1/%2.bin").arg(m_plan.directory, url.query());
}

void SoakRun::finishDownload(const QString &url)
{
    QFile file(downloadPath(url));
    if (file.size() != m_plan.downloadSize)
        fail(QStringLiteral("a download has %1 bytes").arg(file.size()));
    file.remove();
    if (++m_downloadsDone == m_downloadsAsked)
        startRound();
}

// Whatever fails ends the soak: a request is missing, so the round would never end.
void SoakRun::fail(const QString &text)
{
    m_failures.append(text);
    finish();
}

/// Of downloads that have not finished.
qint64 SoakRun::bytesOnDisk() const
{
    const QFileInfoList files = QDir(m_plan.directory).entryInfoList(QDir::Files | QDir::Hidden);
    return std::accumulate(files.cbegin(), files.cend(), qint64(0),
                           [](qint64 total, const QFileInfo &file) { return total + file.size(); });
}

void SoakRun::sample()
{
    SoakSample now;
    now.seconds = double(m_clock.elapsed()) / 1000;
    now.requests = m_requestsDone;
    now.downloadedBytes = m_downloadsDone * m_plan.downloadSize + bytesOnDisk();
    now.residentBytes = processfigures::residentBytes();
    now.heapBytes = processfigures::heapBytes();
    now.openFiles = processfigures::openFiles();
    now.replies = int(clientaccess::repliesOf(m_client).size());
    m_samples.append(now);
    QTextStream(&m_samplesFile) << now.seconds << ' ' << now.requests << ' ' << now.downloadedBytes
                                << ' ' << now.residentBytes << ' ' << now.heapBytes << ' '
                                << now.openFiles << ' ' << now.replies << '\n';
}

void SoakRun::finish()
{
    if (!m_sampler.isActive())
        return;
    sample();
    m_sampler.stop();
    m_probe.stop();
    // Called by a signal of the client; what is done with it is looked at later.
    QMetaObject::invokeMethod(this, &SoakRun::done, Qt::QueuedConnection);
}
