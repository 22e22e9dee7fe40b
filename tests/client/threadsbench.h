#ifndef TARVISNET_TESTS_THREADSBENCH_H
#define TARVISNET_TESTS_THREADSBENCH_H

#include "checkedbench.h"

#include <QtNetwork/QSslCertificate>

#include <memory>
#include <utility>

/// What the tests of connections and network threads have in common.
namespace threadsbench {

// Generous for runs under sanitizers: threads that are idle stay for some seconds.
constexpr int patience = 60000;
constexpr int mostThreads = 5;

inline const QByteArray body = R"({"answer":"the whole of it"})";

inline QSslCertificate certificate(const char *name)
{
    return QSslCertificate::fromPath(QString(TARVISNET_TEST_CERTIFICATES "/%1.crt").arg(name))
        .value(0);
}

/// That policy, for a server of the tests and without a wait before a retry.
inline TransferPolicy local(TransferPolicy policy)
{
    policy.setCaCertificates({certificate("server")});
    policy.setRetryDelay(1);
    return policy;
}

inline TransferPolicy threaded(int threads)
{
    TransferPolicy policy = local(TransferPolicy::fast());
    policy.setDownloadThreads(threads);
    return policy;
}

/// \a first once, and \a then from the second request on.
inline ScriptedServer::Handler onceBefore(const ScriptedServer::Handler &first,
                                          const ScriptedServer::Handler &then)
{
    // Shared, because handlers are copied.
    const auto isFirst = std::make_shared<bool>(true);
    return [=](const HttpRequest &request, HttpResponse &response) {
        const ScriptedServer::Handler &handler = std::exchange(*isFirst, false) ? first : then;
        handler(request, response);
    };
}

/// A client with downloads on several threads.
struct ThreadsBench : CheckedBench {
    explicit ThreadsBench(const TransferPolicy &policy = threaded(mostThreads),
                          ScriptedServer::Mode mode = ScriptedServer::Mode::Https)
        : CheckedBench(mode, policy)
    {
        // The probe would have connections of its own.
        client->disconnect(SIGNAL(s_startPing(int)));
        forget();
    }

    static QByteArray filePath(int number) { return "/file" + QByteArray::number(number); }
    QString saved(int number) const { return path(QString("saved/file%1").arg(number)); }
    void download(int number, const QString &from)
    {
        client->fetchBinary(server.url(from), saved(number), qulonglong(body.size()));
    }
    void download(int number) { download(number, filePath(number)); }
    void downloadAll()
    {
        for (int number = 0; number < mostThreads; ++number)
            download(number);
    }
    bool areAllSaved() const
    {
        for (int number = 0; number < mostThreads; ++number) {
            if (files::read(saved(number)) != body)
                return false;
        }
        return true;
    }
    /// Has the server keep its answers to what is asked for from now on.
    void withhold()
    {
        server.onRequest([this](const HttpRequest &request, HttpResponse &response) {
            withheld.insert(request.path(), response);
        });
    }
    void answerWithheld()
    {
        for (HttpResponse &response : withheld)
            response.send(200, {}, body);
        withheld.clear();
    }
    /// Whether so many connections were accepted, and no more.
    bool hasAccepted(int count)
    {
        return server.waitForAccepted(count) && !server.waitForAccepted(count + 1, 0);
    }
    int outcomes(const char *signal = "s_finished") const
    {
        return recorder.count(signal) + recorder.count("s_errorChanged")
            + recorder.count("s_aborted");
    }

    /// By their path.
    QMap<QByteArray, HttpResponse> withheld;
};

} // namespace threadsbench

#endif // TARVISNET_TESTS_THREADSBENCH_H
