#ifndef TARVISNET_TESTS_SOAKRUN_H
#define TARVISNET_TESTS_SOAKRUN_H

#include <tarvisnet/remoteping.h>
#include <tarvisnet/tarvisnet.h>
#include <tarvisnet/transferpolicy.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QTimer>
#include <QtCore/QVector>

/// What a soak is to do.
struct SoakPlan {
    TransferPolicy policy;
    QUrl server;
    /// Small requests in all, and the paths that they ask for in turn.
    int requests = 0;
    QStringList paths;
    /// Downloads of the file at this path, which has this size; so many at once.
    int downloads = 0;
    int downloadsAtOnce = 1;
    QString downloadPath;
    qint64 downloadSize = 0;
    /// Where downloads are put.
    QString directory;
    /// One line for each sample.
    QString samplesFile;
};

/// What was seen of the process at one moment.
struct SoakSample {
    double seconds = 0;
    int requests = 0;
    qint64 downloadedBytes = 0;
    qint64 residentBytes = 0;
    qint64 heapBytes = 0;
    int openFiles = 0;
    int replies = 0;
};

/// One client under load: small requests and downloads by turns, with its probe always on and a
/// second probe beside it that asks many times a second.
class SoakRun : public QObject {
    Q_OBJECT

public:
    explicit SoakRun(const SoakPlan &plan);

    void start();
    QVector<SoakSample> samples() const { return m_samples; }
    /// What went wrong; empty when all requests succeeded.
    QStringList failures() const { return m_failures; }
    int pings() const { return m_pings; }
    int requestsDone() const { return m_requestsDone; }
    int downloadsDone() const { return m_downloadsDone; }

Q_SIGNALS:
    void done();

private:
    void startRound();
    void askNext();
    void download();
    void finishRequest();
    void finishDownload(const QString &url);
    QString downloadPath(const QUrl &url) const;
    qint64 bytesOnDisk() const;
    void fail(const QString &text);
    void sample();
    void finish();

    const SoakPlan m_plan;
    TarvisNet m_client;
    RemotePing m_probe;
    QTimer m_sampler;
    QFile m_samplesFile;
    QElapsedTimer m_clock;
    QVector<SoakSample> m_samples;
    QStringList m_failures;
    int m_requestsAsked = 0;
    int m_requestsDone = 0;
    int m_roundEnd = 0;
    int m_downloadsAsked = 0;
    int m_downloadsDone = 0;
    int m_pings = 0;
};

#endif // TARVISNET_TESTS_SOAKRUN_H
