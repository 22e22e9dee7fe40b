#include "awaiter.h"
#include "clientbench.h"
#include "distrustedserver.h"
#include "files.h"
#include "testclass.h"

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QTest>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace tst_tarvisnet_isolated {

using namespace clientaccess;

using Mode = ScriptedServer::Mode;
using Action = std::function<void(ClientBench &)>;

namespace {

// The probe looks once in a second, and sends its next ping before it looks.
constexpr int pingTimeout = 1500;

TransferPolicy isolated()
{
    TransferPolicy policy;
    policy.setFailuresIsolated(true);
    return policy;
}

TransferPolicy retrying()
{
    TransferPolicy policy = isolated();
    policy.setMaximumRetries(1);
    policy.setRetryDelay(30 * 1000);
    return policy;
}

TransferPolicy checked()
{
    TransferPolicy policy = isolated();
    policy.setFilesChecked(true);
    policy.setRedirectsChecked(true);
    return policy;
}

struct IsolatedBench : ClientBench {
    explicit IsolatedBench(const TransferPolicy &policy = isolated())
        : ClientBench(Mode::Http, policy)
    {
        server.on("/there", answers::json({}));
        server.on("/bytes", answers::bytes("0123456789"));
        server.on("/missing", answers::json({{"error", "gone"}}, 404));
        server.on("/busy", answers::status(503));
        server.on("/held", answers::withhold());
        for (const char *target : {"/there", "/held", "/missing", "/bytes"})
            server.on(QByteArray("/to") + target, answers::redirect(302, url(target).toLatin1()));
    }

    /// How many requests for \a url have ended.
    int endsOf(const QString &url) const
    {
        int ends = 0;
        for (const char *signal : {"s_rawGet", "s_rawGetFileFinished", "s_errorChanged"}) {
            for (const QVariantList &arguments : recorder.of(signal))
                ends += arguments.at(1) == url;
        }
        return ends + recorder.of("s_finished").count({url}) + abortedUrls().count(url);
    }
};

/// What ends everything, one way or another.
struct End {
    const char *name;
    Action act;
};

const End ends[] = {
    {"abort the path", [](ClientBench &bench) { bench.client->abortDownload("/held"); }},
    {"abort all paths",
     [](ClientBench &bench) {
         bench.client->abortDownload(QStringList({"/held", "/to/held", "/busy", "/file"}));
     }},
    {"abort the first", [](ClientBench &bench) { bench.client->abortDownload(); }},
    {"clear", [](ClientBench &bench) { bench.call("clearReplies"); }},
    {"delete", [](ClientBench &bench) { delete bench.client; }},
};

} // namespace

/// A failure ends the request that failed and no other, and every request ends exactly once.
class tst_TarvisNetIsolated : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void failsAlone_data();
    void failsAlone();
    void endsOnce_data();
    void endsOnce();
    void resultIsTheOnlyEnd_data();
    void resultIsTheOnlyEnd();
    void abortsByTheFirstUrl();
    void redirectFreesItsPlaces();
    void destructorRefuses();

    void probeEndsItsServers();
    void probeWithoutRequests();
    void probesEveryPort();
    void anyAnswerIsOne();
    void bytesAreAnAnswer();
    void silenceIsNone();

private:
    DistrustedServer m_distrusted;
};

void tst_TarvisNetIsolated::failsAlone_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<Action>("start");
    QTest::addColumn<int>("code");
    const auto get = [](const char *name, const QString &url, int code) {
        const auto start = [url](ClientBench &bench) {
            bench.client->rawGet(bench.server.url().resolved(QUrl(url)));
        };
        QTest::newRow(name) << url << Action(start) << code;
    };
    const auto fetch = [](const char *name, const QString &path, const QString &file, int code) {
        const auto start = [path, file](ClientBench &bench) {
            FileData data = bench.file("file", 10);
            data.tempFilePath = bench.path(file);
            bench.add(record(replies::remote_binary, bench.server.url(path), data));
        };
        QTest::newRow(name) << path << Action(start) << code;
    };
    for (const int status : {403, 405, 408, 429, 500, 501, 503})
        get(qPrintable(QString::number(status)), QStringLiteral("/%1").arg(status), -203);
    get("400", "/400", -220);
    get("401", "/401", -213);
    get("404", "/404", -217);
    get("418", "/418", -220);
    get("cut", "/cut", -203);
    get("reset", "/reset", -203);
    get("nobody there", QStringLiteral("http://127.0.0.1:%1/").arg(ScriptedServer::freePort()),
        -203);
    get("distrusted", m_distrusted.url().toString(), -222);
    get("redirected to a failure", "/to/missing", -217);
    get("redirected to nobody", "/to/nobody", -203);
    fetch("download not found", "/404", "file.vtxdownload", -217);
    fetch("download cut", "/cut", "file.vtxdownload", -203);
    fetch("file that cannot be opened", "/pieces", QString(), -210);
    fetch("file that is not completed", "/nothing", "other.vtxdownload", -218);
    QTest::newRow("unknown kind") << "/there" << Action([](ClientBench &bench) {
        bench.add(record("x", bench.server.url("/there")));
    }) << -215;
}

void tst_TarvisNetIsolated::failsAlone()
{
    QFETCH(QString, url);
    QFETCH(const Action, start);
    QFETCH(const int, code);
    IsolatedBench bench;
    QList<HttpResponse> held;
    bench.server.onRequest([](const HttpRequest &request, HttpResponse &response) {
        response.send(request.path().mid(1).toInt());
    });
    bench.server.on(
        "/other", [&held](const HttpRequest &, HttpResponse &response) { held.append(response); });
    bench.server.on("/cut", answers::cutShort("a little"));
    bench.server.on("/reset",
                    [](const HttpRequest &, HttpResponse &response) { response.reset(); });
    bench.server.on("/nothing", answers::bytes(QByteArray()));
    bench.server.on("/pieces", [](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, 10);
        response.dribble("0123456789", 1);
        response.finish();
    });
    bench.server.on("/to/nobody",
                    answers::redirect(
                        302, "http://127.0.0.1:" + QByteArray::number(ScriptedServer::freePort())));
    for (int i = 0; i < 4; ++i)
        bench.client->forceRawGet(bench.server.url("/other"));
    QVERIFY(bench.server.waitForRequests(4));
    start(bench);
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    for (HttpResponse &response : held)
        response.send(200, {}, "{}");
    QVERIFY(bench.recorder.waitFor("s_rawGet", 4));

    QCOMPARE(bench.recorder.count("s_rawGet"), 4);
    QCOMPARE(bench.errors(), QList<int>{code});
    if (url.startsWith('/'))
        url = bench.url(url);
    QCOMPARE(bench.error().at(1).toString(), url);
    QCOMPARE(bench.abortedUrls(), QStringList());
    QCOMPARE(bench.recorder.count("s_finished"), 0);
    // No place is lost.
    QCOMPARE(bench.running().size(), 0);
    QCOMPARE(bench.recorder.count("s_repliesCountChanged"), 10);
}

void tst_TarvisNetIsolated::endsOnce_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("isPending");
    QTest::addColumn<Action>("end");
    for (const End &end : ends) {
        const auto row = [&end](const char *name, const TransferPolicy &policy, const char *path,
                                bool isPending = false) {
            QTest::addRow("%s, %s", end.name, name)
                << policy << QString(path) << isPending << end.act;
        };
        row("pending", isolated(), "/held", true);
        row("running", isolated(), "/held");
        row("waiting", retrying(), "/busy");
        row("redirected", isolated(), "/to/held");
        row("redirected, checked", checked(), "/to/held");
    }
}

void tst_TarvisNetIsolated::endsOnce()
{
    QFETCH(const TransferPolicy, policy);
    QFETCH(const QString, path);
    QFETCH(const bool, isPending);
    QFETCH(const Action, end);
    IsolatedBench bench(policy);
    bench.client->setStopProcess(isPending);
    bench.get({path});
    if (!isPending)
        QVERIFY(bench.server.waitForRequests(path.startsWith("/to") ? 2 : 1));
    if (path == "/busy")
        QVERIFY(bench.recorder.waitFor("s_repliesCountChanged", 2));
    end(bench);
    delete bench.client;
    QCOMPARE(bench.endsOf(bench.url(path)), 1);
    QCOMPARE(bench.abortedUrls(), bench.urls({path}));
    QCOMPARE(bench.errors(), QList<int>());
}

void tst_TarvisNetIsolated::resultIsTheOnlyEnd_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    QTest::addColumn<QString>("path");
    QTest::addColumn<Action>("act");
    for (const End &end : ends) {
        const auto row = [&end](const char *name, const TransferPolicy &policy, const char *path) {
            QTest::addRow("%s, %s", end.name, name) << policy << QString(path) << end.act;
        };
        row("result", isolated(), "/there");
        row("failure", isolated(), "/missing");
        row("result of a hop", isolated(), "/to/there");
        row("failure of a hop", isolated(), "/to/missing");
        row("result of a checked hop", checked(), "/to/there");
        row("file", isolated(), "/bytes");
        row("checked file", checked(), "/bytes");
        row("checked file of a hop", checked(), "/to/bytes");
        row("failure of a checked file", checked(), "/missing");
    }
}

// Whoever hears of it may abort everything: it has ended.
void tst_TarvisNetIsolated::resultIsTheOnlyEnd()
{
    QFETCH(const TransferPolicy, policy);
    QFETCH(const QString, path);
    QFETCH(const Action, act);
    IsolatedBench bench(policy);
    Awaiter awaiter;
    bool hasActed = false;
    const auto actOnce = [&] {
        if (std::exchange(hasActed, true))
            return;
        act(bench);
        awaiter.changed();
    };
    connect(bench.client, &TarvisNet::s_rawGet, this, actOnce);
    connect(bench.client, &TarvisNet::s_finished, this, actOnce);
    connect(bench.client, &TarvisNet::s_errorChanged, this, actOnce);
    if (path.endsWith("/bytes"))
        bench.client->fetchBinary(bench.server.url(path), bench.path("file"), 10);
    else
        bench.get({path});
    QVERIFY(awaiter.wait([&hasActed] { return hasActed; }, 10000));
    delete bench.client;
    QCOMPARE(bench.endsOf(bench.url(path)), 1);
    QCOMPARE(bench.abortedUrls(), QStringList());
}

// A redirect that is followed as ever leads to another URL, which the application never asked for.
void tst_TarvisNetIsolated::abortsByTheFirstUrl()
{
    IsolatedBench bench;
    bench.get({"/to/held"});
    QVERIFY(bench.server.waitForRequests(2));
    bench.client->abortDownload("/held");
    QCOMPARE(bench.abortedUrls(), QStringList());
    bench.client->abortDownload("/to/held");
    QCOMPARE(bench.abortedUrls(), bench.urls({"/to/held"}));
}

void tst_TarvisNetIsolated::redirectFreesItsPlaces()
{
    IsolatedBench bench;
    bench.client->setParallelRequestsCount(1);
    for (const char *path : {"/to/missing", "/to/held"}) {
        bench.get({path});
        if (qstrcmp(path, "/to/held") == 0) {
            QVERIFY(bench.server.waitForRequests(4));
            bench.client->abortDownload();
        } else {
            QVERIFY(bench.recorder.waitFor("s_errorChanged"));
        }
    }
    bench.get({"/there"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
}

void tst_TarvisNetIsolated::destructorRefuses()
{
    IsolatedBench bench;
    bench.client->setParallelRequestsCount(1);
    bench.get({"/held?1", "/held?2", "/held?3"});
    QVERIFY(bench.server.waitForRequests(1));
    TarvisNet *const client = bench.client;
    const QUrl late = bench.server.url("/late");
    connect(client, &TarvisNet::s_aborted, client, [&] { client->rawGet(late); });
    bench.forget();
    delete client;
    QCOMPARE(bench.abortedUrls().size(), 3);
    for (const QString &url : bench.urls({"/held?1", "/held?2", "/held?3"}))
        QCOMPARE(bench.endsOf(url), 1);
    QCOMPARE(bench.errors(), QList<int>({-219, -219, -219}));
    QCOMPARE(bench.error().at(1).toString(), late.toString());
}

void tst_TarvisNetIsolated::probeEndsItsServers()
{
    IsolatedBench bench;
    ScriptedServer other;
    other.onRequest(answers::withhold());
    bench.client->setPingAlwaysOn(true);
    bench.get({"/held?1", "/held?2"});
    bench.client->rawGet(other.url("/held"));
    QCOMPARE(bench.running().size(), 3);
    bench.forget();
    bench.call("pingTimeout");
    QCOMPARE(bench.errors(), QList<int>({errorcodes::timed_out, errorcodes::timed_out}));
    QCOMPARE(bench.endsOf(bench.url("/held?1")), 1);
    QCOMPARE(bench.endsOf(bench.url("/held?2")), 1);
    QCOMPARE(bench.runningUrls(), QStringList(other.url("/held").toString()));
    QCOMPARE(bench.recorder.count("s_stopPing"), 1);
    QCOMPARE(bench.abortedUrls(), QStringList());
}

void tst_TarvisNetIsolated::probeWithoutRequests()
{
    IsolatedBench bench;
    bench.call("pingTimeout");
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_TarvisNetIsolated::probesEveryPort()
{
    QTcpServer server;
    quint16 port = 60000;
    while (!server.listen(QHostAddress::LocalHost, port))
        --port;
    Awaiter awaiter;
    QByteArrayList targets;
    connect(&server, &QTcpServer::newConnection, &server, [&] {
        QTcpSocket *socket = server.nextPendingConnection();
        connect(socket, &QIODevice::readyRead, socket, [&, socket] {
            targets.append(socket->readAll().split(' ').value(1));
            awaiter.changed();
        });
    });
    IsolatedBench bench;
    const QUrl url(QStringLiteral("http://127.0.0.1:%1/file").arg(port));
    bench.client->fetchBinary(url, bench.path("file"), 10);
    QVERIFY(awaiter.wait([&targets] { return targets.size() == 2; }, 10000));
    QCOMPARE(targets, QByteArrayList({"/file", "/"}));
    bench.call("pingTimeout");
    QCOMPARE(bench.errors(), QList<int>{errorcodes::timed_out});
    QCOMPARE(bench.error().at(1).toString(), url.toString());
}

// All at once, because the probe takes its time.
void tst_TarvisNetIsolated::anyAnswerIsOne()
{
    std::vector<std::unique_ptr<IsolatedBench>> benches;
    for (const int status : {200, 401, 403, 404, 500, 503}) {
        benches.push_back(std::make_unique<IsolatedBench>());
        IsolatedBench &bench = *benches.back();
        bench.server.on("/", answers::status(status));
        bench.client->setPingTimeout(pingTimeout);
        bench.client->fetchBinary(bench.server.url("/held"), bench.path("file"), 10);
    }
    for (const auto &bench : benches) {
        QVERIFY(bench->server.waitForRequests(4));
        QCOMPARE(bench->errors(), QList<int>());
        QCOMPARE(bench->running().size(), 1);
    }
}

// Of a server with a single worker, which answers no ping while it sends.
void tst_TarvisNetIsolated::bytesAreAnAnswer()
{
    IsolatedBench bench;
    const QByteArray content(100, 'x');
    bench.server.on("/", answers::withhold());
    bench.server.on("/file", [&content](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, content.size());
        response.dribble(content, 1, 30);
        response.finish();
    });
    bench.client->setPingTimeout(pingTimeout);
    bench.client->fetchBinary(bench.server.url("/file"), bench.path("file"), content.size());
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QVERIFY(!bench.server.requests("/").isEmpty());
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(files::read(bench.path("file")), content);
}

void tst_TarvisNetIsolated::silenceIsNone()
{
    IsolatedBench bench;
    bench.server.on("/", answers::withhold());
    bench.client->setPingTimeout(1);
    bench.client->fetchBinary(bench.server.url("/held"), bench.path("file"), 10);
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.errors(), QList<int>{errorcodes::timed_out});
    QCOMPARE(bench.error().at(1).toString(), bench.url("/held"));
}

const TestClass<tst_TarvisNetIsolated> testClass("tst_tarvisnet_isolated");

} // namespace tst_tarvisnet_isolated

#include "tst_tarvisnet_isolated.moc"
