// Downloads COUNT files of SIZE bytes into DIRECTORY/out, five at a time, by way of temporary files
// in DIRECTORY/temp. What lies there already is continued.

#include "support.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QCryptographicHash>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>

namespace {

constexpr int parallelDownloads = 5;

struct Job {
    QString url;
    int count;
    qint64 size;
    QString directory;
    /// Of the bare manager alone; 0 for none.
    qint64 readBuffer;
    /// The SHA-256 of every file, if it is to be checked.
    QString hash;
};

struct Times {
    double downloaded = 0; ///< when all bytes were in the temporary files
    double finished = 0; ///< when the last file was in its place
    int files = 0;
    /// What the process has of the machine's memory after each thousand files.
    QJsonArray resident;

    void fileIsThere(const QElapsedTimer &clock)
    {
        finished = bench::seconds(clock);
        if (++files % 1000 == 0)
            resident.append(bench::residentBytes());
    }
};

QString target(const Job &job, int number)
{
    return job.directory + QStringLiteral("/out/") + QString::number(number);
}

QString temporary(const Job &job, int number)
{
    return QStringLiteral("%1/temp/%2.vtxdownload").arg(job.directory).arg(number);
}

Times downloadWithLibrary(const Job &job, const TransferPolicy &policy)
{
    Times times;
    QElapsedTimer clock;
    clock.start();
    TarvisNet client(policy);
    client.setTemporaryDirectory(job.directory + QStringLiteral("/temp"));
    QObject::connect(&client, &TarvisNet::s_downloadFileBytesProgress, &client,
                     [&](qlonglong sent, qlonglong total) {
                         if (sent == total)
                             times.downloaded = bench::seconds(clock);
                     });
    QObject::connect(&client, &TarvisNet::s_finished, &client, [&] {
        times.fileIsThere(clock);
        if (times.files == job.count)
            QCoreApplication::quit();
    });
    QObject::connect(
        &client, &TarvisNet::s_errorChanged, &client, [] { QCoreApplication::exit(1); },
        Qt::QueuedConnection);
    for (int i = 0; i < job.count; ++i)
        client.fetchBinary(bench::numbered(job.url, i), target(job, i), qulonglong(job.size),
                           job.hash);
    QCoreApplication::exec();
    return times;
}

/// How long the hash of a file takes by itself.
Times hashFile(const QString &path)
{
    Times times;
    QElapsedTimer clock;
    clock.start();
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file))
        return times;
    times.downloaded = times.finished = bench::seconds(clock);
    times.files = 1;
    return times;
}

/// What the client does, without the client.
class BareDownloads : public QObject {
public:
    explicit BareDownloads(const Job &job)
        : m_job(job)
        , m_sslConfiguration(bench::installSslConfiguration())
    {
        m_clock.start();
    }

    Times run()
    {
        for (int i = 0; i < parallelDownloads; ++i)
            startNext();
        QCoreApplication::exec();
        return m_times;
    }

private:
    void startNext()
    {
        if (m_started == m_job.count)
            return;
        const int number = m_started++;
        QNetworkRequest request =
            bench::request(bench::numbered(m_job.url, number), "application/x-www-form-urlencoded");
        request.setRawHeader("Connection", "close");
        request.setSslConfiguration(m_sslConfiguration);
        const qint64 available = QFileInfo(temporary(m_job, number)).size();
        if (available > 0)
            request.setRawHeader("Range", "bytes=" + QByteArray::number(available) + '-');
        QNetworkReply *reply = m_manager.get(request);
        reply->setReadBufferSize(m_job.readBuffer);
        connect(reply, &QNetworkReply::sslErrors, reply, [reply] { reply->ignoreSslErrors(); });
        connect(reply, &QIODevice::readyRead, this,
                [this, reply, number] { append(reply, number); });
        connect(reply, &QNetworkReply::finished, this, [this, reply, number] {
            finish(number);
            reply->deleteLater();
            startNext();
        });
    }

    void append(QNetworkReply *reply, int number)
    {
        QFile file(temporary(m_job, number));
        if (!file.open(QIODevice::Append) || file.size() >= m_job.size)
            return;
        file.write(reply->read(reply->bytesAvailable()));
        file.flush();
    }

    void finish(int number)
    {
        m_times.downloaded = bench::seconds(m_clock);
        QFile file(temporary(m_job, number));
        if (!file.copy(target(m_job, number)) || !file.remove())
            QCoreApplication::exit(1);
        m_times.fileIsThere(m_clock);
        if (m_times.files == m_job.count)
            QCoreApplication::quit();
    }

    const Job &m_job;
    const QSslConfiguration m_sslConfiguration;
    QElapsedTimer m_clock;
    Times m_times;
    int m_started = 0;
    QNetworkAccessManager m_manager;
};

Times run(const QString &engine, const QString &authority, const Job &job)
{
    if (const auto policy = bench::policy(engine, authority))
        return downloadWithLibrary(job, *policy);
    if (engine == QLatin1String("sha256"))
        return hashFile(job.url);
    return BareDownloads(job).run();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const bench::Options options({QStringLiteral("engine"), QStringLiteral("url"),
                                  QStringLiteral("count"), QStringLiteral("size"),
                                  QStringLiteral("directory"), QStringLiteral("read-buffer"),
                                  QStringLiteral("authority"), QStringLiteral("hash")});
    bench::dropMessages();
    const Job job{
        options.text(QStringLiteral("url")),           int(options.number(QStringLiteral("count"))),
        options.number(QStringLiteral("size")),        options.text(QStringLiteral("directory")),
        options.number(QStringLiteral("read-buffer")), options.text(QStringLiteral("hash"))};
    const Times times =
        run(options.text(QStringLiteral("engine")), options.text(QStringLiteral("authority")), job);
    bench::print({{QStringLiteral("seconds"), times.downloaded},
                  {QStringLiteral("secondsWithCopy"), times.finished},
                  {QStringLiteral("count"), times.files},
                  {QStringLiteral("resident"), times.resident}});
}
