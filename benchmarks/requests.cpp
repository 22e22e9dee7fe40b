// Sends COUNT small requests, five at a time, and parses the JSON documents that come back.

#include "support.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>

namespace {

constexpr int parallelRequests = 5;

struct Job {
    QString url;
    int count;
    bool isPost;
};

struct Outcome {
    double seconds = 0;
    int count = 0;

    void take(const QJsonDocument &document, const Job &job, const QElapsedTimer &clock)
    {
        // Only an answer that arrived as it was sent counts.
        if (document.object().value(QStringLiteral("status")).toString() == QLatin1String("fine"))
            ++count;
        if (++finished == job.count) {
            seconds = bench::seconds(clock);
            QCoreApplication::quit();
        }
    }

    int finished = 0;
};

QByteArray body(int number)
{
    return "{\"number\": " + QByteArray::number(number) + '}';
}

Outcome askWithLibrary(const Job &job)
{
    Outcome outcome;
    QElapsedTimer clock;
    clock.start();
    TarvisNet client;
    const auto take = [&](const QJsonDocument &document) { outcome.take(document, job, clock); };
    QObject::connect(&client, &TarvisNet::s_rawGet, &client, take);
    QObject::connect(&client, &TarvisNet::s_rawPost, &client, take);
    for (int i = 0; i < job.count; ++i) {
        const QUrl url = bench::numbered(job.url, i);
        if (job.isPost)
            client.rawPost(url, body(i));
        else
            client.rawGet(url);
    }
    QCoreApplication::exec();
    return outcome;
}

/// What the client does, without the client.
class BareRequests : public QObject {
public:
    explicit BareRequests(const Job &job)
        : m_job(job)
        , m_sslConfiguration(bench::installSslConfiguration())
    {
        m_clock.start();
    }

    Outcome run()
    {
        for (int i = 0; i < parallelRequests; ++i)
            startNext();
        QCoreApplication::exec();
        return m_outcome;
    }

private:
    void startNext()
    {
        if (m_started == m_job.count)
            return;
        const int number = m_started++;
        QNetworkRequest request =
            bench::request(bench::numbered(m_job.url, number),
                           m_job.isPost ? "application/x-www-form-urlencoded" : "application/json");
        request.setSslConfiguration(m_sslConfiguration);
        QNetworkReply *reply =
            m_job.isPost ? m_manager.post(request, body(number)) : m_manager.get(request);
        connect(reply, &QNetworkReply::sslErrors, reply, [reply] { reply->ignoreSslErrors(); });
        connect(reply, &QNetworkReply::finished, this, [this, reply] {
            m_outcome.take(QJsonDocument::fromJson(reply->readAll()), m_job, m_clock);
            reply->deleteLater();
            startNext();
        });
    }

    const Job &m_job;
    const QSslConfiguration m_sslConfiguration;
    QElapsedTimer m_clock;
    Outcome m_outcome;
    int m_started = 0;
    QNetworkAccessManager m_manager;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const bench::Options options({QStringLiteral("engine"), QStringLiteral("url"),
                                  QStringLiteral("count"), QStringLiteral("method")});
    bench::dropMessages();
    const Job job{options.text(QStringLiteral("url")), int(options.number(QStringLiteral("count"))),
                  options.text(QStringLiteral("method")) == QLatin1String("post")};
    const Outcome outcome = options.isLibrary() ? askWithLibrary(job) : BareRequests(job).run();
    bench::print(
        {{QStringLiteral("seconds"), outcome.seconds}, {QStringLiteral("count"), outcome.count}});
}
