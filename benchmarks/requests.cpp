// Sends COUNT small requests, five at a time, and parses the JSON documents that come back.

#include "support.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>

#include <memory>
#include <vector>

namespace {

constexpr int parallelRequests = 5;

struct Job {
    QString url;
    int count;
    bool isPost;
    /// Of the bare manager alone; a client has a policy.
    bool isHttp2;
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

Outcome askWithLibrary(const Job &job, const TransferPolicy &policy)
{
    Outcome outcome;
    QElapsedTimer clock;
    clock.start();
    TarvisNet client(policy);
    const auto take = [&](const QJsonDocument &document) { outcome.take(document, job, clock); };
    QObject::connect(&client, &TarvisNet::s_rawGet, &client, take);
    QObject::connect(&client, &TarvisNet::s_rawPost, &client, take);
    QObject::connect(
        &client, &TarvisNet::s_errorChanged, &client, [] { QCoreApplication::exit(1); },
        Qt::QueuedConnection);
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
        if (m_job.isHttp2)
            request.setAttribute(QNetworkRequest::Http2AllowedAttribute, true);
        QNetworkAccessManager &manager = managerFor(number);
        QNetworkReply *reply =
            m_job.isPost ? manager.post(request, body(number)) : manager.get(request);
        connect(reply, &QNetworkReply::sslErrors, reply, [reply] { reply->ignoreSslErrors(); });
        connect(reply, &QNetworkReply::finished, this, [this, reply] {
            m_outcome.take(QJsonDocument::fromJson(reply->readAll()), m_job, m_clock);
            reply->deleteLater();
            startNext();
        });
    }

    /// After a thousand requests by HTTP/2 the server goes away, and Qt loses what it is given to
    /// send until the connection is closed.
    QNetworkAccessManager &managerFor(int number)
    {
        if (m_managers.empty() || (m_job.isHttp2 && number % 900 == 0))
            m_managers.push_back(std::make_unique<QNetworkAccessManager>());
        return *m_managers.back();
    }

    const Job &m_job;
    const QSslConfiguration m_sslConfiguration;
    QElapsedTimer m_clock;
    Outcome m_outcome;
    int m_started = 0;
    std::vector<std::unique_ptr<QNetworkAccessManager>> m_managers;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const bench::Options options({QStringLiteral("engine"), QStringLiteral("url"),
                                  QStringLiteral("count"), QStringLiteral("method"),
                                  QStringLiteral("authority")});
    bench::dropMessages();
    const QString engine = options.text(QStringLiteral("engine"));
    const Job job{options.text(QStringLiteral("url")), int(options.number(QStringLiteral("count"))),
                  options.text(QStringLiteral("method")) == QLatin1String("post"),
                  engine == QLatin1String("manager-h2")};
    const auto policy = bench::policy(engine, options.text(QStringLiteral("authority")));
    const Outcome outcome = policy ? askWithLibrary(job, *policy) : BareRequests(job).run();
    bench::print(
        {{QStringLiteral("seconds"), outcome.seconds}, {QStringLiteral("count"), outcome.count}});
}
