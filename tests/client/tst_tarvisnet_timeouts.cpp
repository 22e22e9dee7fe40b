#include "clientbench.h"
#include "files.h"
#include "testclass.h"

#include <QtCore/QEventLoop>
#include <QtCore/QJsonObject>
#include <QtCore/QTimer>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QTest>

namespace tst_tarvisnet_timeouts {

using namespace clientaccess;

using Handler = ScriptedServer::Handler;

namespace {

// Long enough for a machine under load to answer what is answered at once.
constexpr int shortTime = 300;
constexpr int longTime = 60 * 1000;
constexpr int delayBetweenBytes = 50;

TransferPolicy limited(int idleMsec, int totalMsec, int retries = 0)
{
    TransferPolicy policy;
    policy.setIdleTimeout(idleMsec);
    policy.setTotalTimeout(totalMsec);
    policy.setMaximumRetries(retries);
    policy.setRetryDelay(1);
    policy.setErrorsExplained(true);
    return policy;
}

/// Bytes that come one by one for longer than a short time.
Handler dripping()
{
    return [](const HttpRequest &, HttpResponse &response) {
        const QByteArray body(4 * shortTime / delayBetweenBytes, ' ');
        response.sendHead(200, {}, body.size());
        response.dribble(body, 1, delayBetweenBytes);
        response.finish();
    };
}

Handler stalling()
{
    return [](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, 1000);
        response.write("a little");
    };
}

Handler busy(const QByteArray &retryAfter)
{
    return answers::bytes("", 503, {{"Retry-After", retryAfter}});
}

} // namespace

/// Requests of which nothing comes for too long.
class tst_TarvisNetTimeouts : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void timesOut_data();
    void timesOut();
    void delivers_data();
    void delivers();
    void uploadStalls();
    void downloadStalls();
    void hopIsMute_data();
    void hopIsMute();
    void triesAgainAfterSilence();
    void othersGoOn();
    void endsWhatFindsNoPlace();
    void resultIsTheEnd();
};

void tst_TarvisNetTimeouts::timesOut_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    QTest::addColumn<Handler>("answer");
    QTest::addColumn<int>("attempts");
    QTest::addColumn<QString>("reason");
    const QString silent = "The server was silent for too long.";
    const QString late = "It took too long.";
    const auto row = [](const char *name, const TransferPolicy &policy, const Handler &answer,
                        int attempts, const QString &reason) {
        QTest::newRow(name) << policy << answer << attempts << reason;
    };
    row("mute, idle", limited(shortTime, 0), answers::withhold(), 1, silent);
    row("mute, total", limited(0, shortTime), answers::withhold(), 1, late);
    row("stalled, idle", limited(shortTime, 0), stalling(), 1, silent);
    row("stalled, total", limited(0, shortTime), stalling(), 1, late);
    row("stalled, idle first", limited(shortTime, longTime), stalling(), 1, silent);
    row("dripping, total", limited(0, shortTime), dripping(), 1, late);
    row("dripping, total before idle", limited(longTime, shortTime), dripping(), 1, late);
    row("mute, idle, retried", limited(shortTime, 0, 2), answers::withhold(), 3, silent);
    row("mute, total, not retried", limited(0, shortTime, 2), answers::withhold(), 1, late);
    row("total while it waits", limited(0, shortTime, 2), busy("300"), 1, late);
    row("total with waits and retries", limited(0, 4 * shortTime, 100), busy("1"), 2, late);
}

void tst_TarvisNetTimeouts::timesOut()
{
    QFETCH(const TransferPolicy, policy);
    QFETCH(const Handler, answer);
    QFETCH(const int, attempts);
    ClientBench bench(ScriptedServer::Mode::Http, policy);
    bench.server.on("/late", answer);
    bench.get({"/late"});
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.errors(), QList<int>{errorcodes::timed_out});
    QCOMPARE(bench.error().at(1).toString(), bench.url("/late"));
    const QJsonObject told = bench.error().at(2).toJsonDocument().object();
    QTEST(told.value("reason").toString(), "reason");
    QCOMPARE(told.value("attempts").toInt(1), attempts);
    QCOMPARE(bench.server.requests("/late").size(), attempts);
    QCOMPARE(bench.abortedUrls(), QStringList());
    QCOMPARE(bench.recorder.count("s_rawGet"), 0);
    QCOMPARE(bench.running().size(), 0);
    // Its place is free.
    bench.client->setParallelRequestsCount(1);
    bench.server.on("/there", answers::json({}));
    bench.get({"/there"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.errors().size(), 1);
}

void tst_TarvisNetTimeouts::delivers_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    QTest::addColumn<Handler>("answer");
    QTest::newRow("no bound") << limited(0, 0) << dripping();
    QTest::newRow("bytes keep it alive") << limited(shortTime, 0) << dripping();
    QTest::newRow("total is not idle") << limited(0, longTime) << dripping();
    QTest::newRow("in time") << limited(longTime, longTime) << answers::json({});
}

void tst_TarvisNetTimeouts::delivers()
{
    QFETCH(const TransferPolicy, policy);
    QFETCH(const Handler, answer);
    ClientBench bench(ScriptedServer::Mode::Http, policy);
    bench.server.on("/there", answer);
    bench.get({"/there"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.errors(), QList<int>());
}

// A server that does not read: the body is more than the sockets hold.
void tst_TarvisNetTimeouts::uploadStalls()
{
    ClientBench bench(ScriptedServer::Mode::Http, limited(shortTime, 0, 2));
    QTcpServer deaf;
    QVERIFY(deaf.listen(QHostAddress::LocalHost));
    const QUrl url(QStringLiteral("http://127.0.0.1:%1/").arg(deaf.serverPort()));
    QObject::connect(&deaf, &QTcpServer::newConnection, &deaf,
                     [&deaf] { deaf.nextPendingConnection()->setReadBufferSize(1); });
    bench.client->rawPost(url, QByteArray(32 << 20, 'x'));
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.error().mid(0, 2), failure(errorcodes::timed_out, url.toString()).mid(0, 2));
    QVERIFY(bench.recorder.count("s_uploadFileProgress") > 0);
    QCOMPARE(bench.errors().size(), 1);
}

void tst_TarvisNetTimeouts::downloadStalls()
{
    ClientBench bench(ScriptedServer::Mode::Http, limited(shortTime, 0));
    bench.server.on("/file", stalling());
    bench.client->fetchBinary(bench.server.url("/file"), bench.path("file"), 1000);
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.errors(), QList<int>{errorcodes::timed_out});
    const QJsonObject told = bench.error().at(2).toJsonDocument().object();
    QCOMPARE(told.value("expected"), QJsonValue(1000));
    QCOMPARE(told.value("received"), QJsonValue(8));
    QCOMPARE(files::read(bench.path("file.vtxdownload")), QByteArray("a little"));
    QVERIFY(!bench.recorder.names().contains("s_finished"));
}

void tst_TarvisNetTimeouts::hopIsMute_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    for (const bool isChecked : {true, false}) {
        for (TransferPolicy policy : {limited(shortTime, 0), limited(0, shortTime)}) {
            policy.setRedirectsChecked(isChecked);
            QTest::addRow("%s, %s", isChecked ? "checked" : "unchecked",
                          policy.idleTimeout() ? "idle" : "total")
                << policy;
        }
    }
}

void tst_TarvisNetTimeouts::hopIsMute()
{
    QFETCH(const TransferPolicy, policy);
    ClientBench bench(ScriptedServer::Mode::Http, policy);
    bench.server.on("/first", answers::redirect(302, bench.url("/mute").toLatin1()));
    bench.server.on("/mute", answers::withhold());
    bench.get({"/first"});
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.errors(), QList<int>{errorcodes::timed_out});
    QCOMPARE(bench.error().at(1).toString(), bench.url("/first"));
    QCOMPARE(bench.server.requests("/mute").size(), 1);
    bench.call("clearReplies");
    QCOMPARE(bench.abortedUrls(), QStringList());
}

void tst_TarvisNetTimeouts::triesAgainAfterSilence()
{
    ClientBench bench(ScriptedServer::Mode::Http, limited(shortTime, 0, 1));
    int arrivals = 0;
    bench.server.on("/late", [&arrivals](const HttpRequest &request, HttpResponse &response) {
        if (++arrivals == 2)
            answers::json({})(request, response);
    });
    bench.get({"/late"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(arrivals, 2);
    QCOMPARE(bench.errors(), QList<int>());
}

void tst_TarvisNetTimeouts::othersGoOn()
{
    ClientBench bench(ScriptedServer::Mode::Http, limited(shortTime, 0));
    bench.server.on("/mute", answers::withhold());
    bench.server.on("/dripping", dripping());
    bench.get({"/dripping", "/mute"});
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.error().at(1).toString(), bench.url("/mute"));
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.recorder.last("s_rawGet").at(1).toString(), bench.url("/dripping"));
    QCOMPARE(bench.errors().size(), 1);
    QCOMPARE(bench.abortedUrls(), QStringList());
}

// Its time runs out, whoever else is due before it.
void tst_TarvisNetTimeouts::endsWhatFindsNoPlace()
{
    ClientBench bench(ScriptedServer::Mode::Http, limited(0, shortTime, 2));
    bench.server.on("/early", busy("1"));
    bench.server.on("/late", busy("0"));
    bench.get({"/early"});
    QVERIFY(bench.recorder.waitFor("s_repliesCountChanged", 2));
    QObject untilStopped;
    connect(bench.client, &TarvisNet::s_repliesCountChanged, &untilStopped,
            [&bench] { bench.client->setStopProcess(true); });
    bench.get({"/late"});
    QVERIFY(bench.recorder.waitFor("s_errorChanged", 2));
    // In either order: a busy machine may find both over at once.
    QStringList ended;
    for (const QVariantList &error : bench.recorder.of("s_errorChanged"))
        ended.append(error.at(1).toString());
    ended.sort();
    QCOMPARE(ended, bench.urls({"/early", "/late"}));
    QCOMPARE(bench.errors(), QList<int>({errorcodes::timed_out, errorcodes::timed_out}));
    QCOMPARE(bench.server.requests("/late").size(), 1);
}

// A receiver of it may take its time.
void tst_TarvisNetTimeouts::resultIsTheEnd()
{
    ClientBench bench(ScriptedServer::Mode::Http, limited(shortTime, shortTime));
    bench.server.on("/there", answers::json({}));
    bool hasReturned = false;
    connect(bench.client, &TarvisNet::s_rawGet, this, [&hasReturned] {
        QEventLoop loop;
        QTimer::singleShot(2 * shortTime, &loop, &QEventLoop::quit);
        loop.exec();
        hasReturned = true;
    });
    bench.get({"/there"});
    QVERIFY(bench.recorder.waitFor("s_repliesCountChanged", 2));
    QVERIFY(hasReturned);
    QCOMPARE(bench.errors(), QList<int>());
}

const TestClass<tst_TarvisNetTimeouts> testClass("tst_tarvisnet_timeouts");

} // namespace tst_tarvisnet_timeouts

#include "tst_tarvisnet_timeouts.moc"
