#include "clientbench.h"
#include "files.h"
#include "operations.h"
#include "testclass.h"

#include <QtCore/QDateTime>
#include <QtCore/QLocale>
#include <QtNetwork/QSslCertificate>
#include <QtTest/QTest>

#include <functional>
#include <memory>

namespace tst_tarvisnet_retries {

using namespace clientaccess;

using Handler = ScriptedServer::Handler;
using Mode = ScriptedServer::Mode;

namespace {

constexpr int retries = 2;
constexpr int attempts = retries + 1;
// No test waits for even half of it.
constexpr int longDelay = 30 * 1000;

TransferPolicy retrying(int delayMsec = 1)
{
    TransferPolicy policy;
    policy.setMaximumRetries(retries);
    policy.setRetryDelay(delayMsec);
    policy.setErrorsExplained(true);
    return policy;
}

TransferPolicy isolated(TransferPolicy policy)
{
    policy.setFailuresIsolated(true);
    return policy;
}

Handler busy(const QByteArray &retryAfter = QByteArray())
{
    return answers::bytes("{\"error\":\"busy\"}", 503,
                          retryAfter.isNull() ? HttpHeaders()
                                              : HttpHeaders{{"Retry-After", retryAfter}});
}

/// \a bad until \a good has to come, which is after \a failures times.
Handler afterFailures(int failures, const Handler &bad, const Handler &good)
{
    // Shared, because handlers are copied.
    const auto left = std::make_shared<int>(failures);
    return [=](const HttpRequest &request, HttpResponse &response) {
        const Handler &answer = (*left)-- > 0 ? bad : good;
        answer(request, response);
    };
}

/// A bench, and what the rows here ask of it.
struct Retry {
    explicit Retry(const TransferPolicy &policy = retrying(), Mode mode = Mode::Http)
        : bench(mode, policy)
    {
    }

    QJsonObject told() const { return bench.error().value(2).toJsonDocument().object(); }
    int seen(const QByteArray &path) const { return bench.server.requests(path).size(); }
    /// Has a request wait to be sent again.
    bool wait(const QString &path)
    {
        bench.server.on(path.toLatin1(), busy());
        bench.get({path});
        return bench.recorder.waitFor("s_repliesCountChanged", 2);
    }

    ClientBench bench;
};

/// Lets all retries of another client pass, so that there was time enough for one that must not be.
bool letOthersRetry()
{
    ClientBench other(Mode::Http, retrying());
    other.server.on("/busy", afterFailures(retries, busy(), answers::json({})));
    other.get({"/busy"});
    return other.recorder.waitFor("s_rawGet");
}

using End = std::function<void(ClientBench &)>;

} // namespace

/// Which requests are sent again after a failure, and what comes of them.
class tst_TarvisNetRetries : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void retriesAfter_data();
    void retriesAfter();
    void retriesConnections_data();
    void retriesConnections();
    void leavesTlsFailures();
    void repeatsOnlyGets_data();
    void repeatsOnlyGets();
    void deliversOnce_data();
    void deliversOnce();
    void tellsTheLastFailure();
    void obeysTheServer_data();
    void obeysTheServer();
    void goesFromTheFirstUrl();
    void goesOnWhereItStopped();
    void goesOnAfterEachFailure();
    void takesNoPlace();
    void waitsForAPlace();
    void endsAtOnce_data();
    void endsAtOnce();
    void endsWithTheClient();
    void abortsWhatRunsFirst();
    void stays_data();
    void stays();
};

void tst_TarvisNetRetries::retriesAfter_data()
{
    QTest::addColumn<Handler>("fail");
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("arrivals");
    for (const int status : {408, 425, 429, 500, 502, 503, 504})
        QTest::addRow("%d", status) << answers::status(status) << -203 << attempts;
    QTest::newRow("400") << answers::status(400) << -220 << 1;
    QTest::newRow("401") << answers::status(401) << -213 << 1;
    QTest::newRow("403") << answers::status(403) << -203 << 1;
    QTest::newRow("404") << answers::status(404) << -217 << 1;
    QTest::newRow("405") << answers::status(405) << -203 << 1;
    QTest::newRow("410") << answers::status(410) << -203 << 1;
    QTest::newRow("418") << answers::status(418) << -220 << 1;
    QTest::newRow("501") << answers::status(501) << -203 << 1;
    QTest::newRow("505") << answers::status(505) << -203 << 1;
    QTest::newRow("cut within") << answers::cutShort("a little") << -203 << attempts;
    QTest::newRow("reset within") << Handler([](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, 1000);
        response.write("a little");
        response.reset();
    }) << -203 << attempts;
}

void tst_TarvisNetRetries::retriesAfter()
{
    QFETCH(const Handler, fail);
    QFETCH(const int, code);
    QFETCH(const int, arrivals);
    Retry retry(isolated(retrying()));
    retry.bench.server.on("/failing", fail);
    retry.bench.get({"/failing"});
    QVERIFY(retry.bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(retry.bench.errors(), QList<int>{code});
    QCOMPARE(retry.bench.error().at(1).toString(), retry.bench.url("/failing"));
    QCOMPARE(retry.seen("/failing"), arrivals);
    QCOMPARE(retry.told().value("attempts"),
             arrivals > 1 ? QJsonValue(attempts) : QJsonValue(QJsonValue::Undefined));
    QCOMPARE(retry.bench.recorder.count("s_rawGet"), 0);
    QCOMPARE(retry.bench.recorder.count("s_aborted"), 0);
}

void tst_TarvisNetRetries::retriesConnections_data()
{
    QTest::addColumn<End>("spoil");
    QTest::addColumn<bool>("isGet");
    const auto rows = [](const char *name, const End &spoil) {
        QTest::addRow("%s, GET", name) << spoil << true;
        QTest::addRow("%s, POST", name) << spoil << false;
    };
    rows("nobody there", [](ClientBench &bench) { bench.server.stop(); });
    rows("cut", [](ClientBench &bench) {
        bench.server.onRequest([](const HttpRequest &, HttpResponse &response) { response.cut(); });
    });
    rows("reset", [](ClientBench &bench) {
        bench.server.onRequest(
            [](const HttpRequest &, HttpResponse &response) { response.reset(); });
    });
}

// More requests may arrive than the client sends: Qt itself sends one again whose connection ended
// before an answer.
void tst_TarvisNetRetries::retriesConnections()
{
    QFETCH(const End, spoil);
    QFETCH(const bool, isGet);
    Retry retry;
    spoil(retry.bench);
    if (isGet)
        retry.bench.client->rawGet(retry.bench.server.url());
    else
        retry.bench.client->rawPost(retry.bench.server.url(), "{}");
    QVERIFY(retry.bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(retry.bench.errors(), QList<int>{-203});
    QCOMPARE(retry.told().value("attempts").toInt(1), isGet ? attempts : 1);
}

void tst_TarvisNetRetries::leavesTlsFailures()
{
    TransferPolicy policy = isolated(retrying());
    policy.setPeersVerified(true);
    Retry retry(policy, Mode::Https);
    retry.bench.get({"/"});
    QVERIFY(retry.bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(retry.bench.errors(), QList<int>{-222});
    QVERIFY(!retry.told().contains("attempts"));
    QCOMPARE(retry.seen("/"), 0);
}

void tst_TarvisNetRetries::repeatsOnlyGets_data()
{
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : requestkinds::all())
        QTest::newRow(kind.name) << kind;
}

void tst_TarvisNetRetries::repeatsOnlyGets()
{
    QFETCH(const RequestKind, kind);
    Retry retry(isolated(retrying()));
    retry.bench.server.on("/busy", busy());
    requestkinds::start(*retry.bench.client, kind, retry.bench.server.url("/busy"),
                        retry.bench.path("file"), 10);
    QVERIFY(retry.bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(retry.bench.errors(), QList<int>{-203});
    const QList<HttpRequest> sent = retry.bench.server.requests("/busy");
    QCOMPARE(sent.size(), qstrcmp(kind.verb, "GET") == 0 ? attempts : 1);
    for (const HttpRequest &request : sent)
        QCOMPARE(request.rawHeaders, sent.first().rawHeaders);
}

void tst_TarvisNetRetries::deliversOnce_data()
{
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<TransferPolicy>("policy");
    for (const RequestKind &kind : requestkinds::all()) {
        if (qstrcmp(kind.verb, "GET") != 0 || kind.result == Result::Nothing)
            continue;
        QTest::addRow("%s", kind.name) << kind << retrying();
        QTest::addRow("%s, isolated", kind.name) << kind << isolated(retrying());
    }
}

void tst_TarvisNetRetries::deliversOnce()
{
    QFETCH(const RequestKind, kind);
    QFETCH(const TransferPolicy, policy);
    Retry retry(policy);
    retry.bench.server.on("/there",
                          afterFailures(retries, busy(), answers::bytes("{\"answer\":42}")));
    // An unchecked installer is looked for where it should be.
    retry.bench.client->setOutputDirectory(retry.bench.path());
    requestkinds::start(*retry.bench.client, kind, retry.bench.server.url("/there"),
                        retry.bench.path("file"), 13);
    QVERIFY(retry.bench.recorder.waitFor(kind.signal));
    QCOMPARE(retry.bench.recorder.count(kind.signal), 1);
    QVERIFY(retry.bench.recorder.last(kind.signal).contains(retry.bench.url("/there")));
    QCOMPARE(retry.bench.errors(), QList<int>());
    QCOMPARE(retry.bench.abortedUrls(), QStringList());
    QCOMPARE(retry.seen("/there"), attempts);
    if (kind.isBinary())
        QCOMPARE(files::read(retry.bench.path("file")), QByteArray("{\"answer\":42}"));
}

void tst_TarvisNetRetries::tellsTheLastFailure()
{
    Retry retry;
    retry.bench.server.on("/failing",
                          afterFailures(1, busy(), answers::json({{"why", "broken"}}, 500)));
    retry.bench.get({"/failing"});
    QVERIFY(retry.bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(retry.bench.errors(), QList<int>{-203});
    QCOMPARE(retry.told().value("httpStatus"), QJsonValue(500));
    QCOMPARE(retry.told().value("body"), QJsonValue(QJsonObject{{"why", "broken"}}));
    QCOMPARE(retry.seen("/failing"), attempts);
}

void tst_TarvisNetRetries::obeysTheServer_data()
{
    QTest::addColumn<QByteArray>("retryAfter");
    QTest::addColumn<int>("delay");
    QTest::addColumn<bool>("isRetried");
    const auto row = [](const QByteArray &text, int delay, bool isRetried) {
        QTest::newRow(text) << text << delay << isRetried;
    };
    // Whoever did not ask the server would wait for longer than the test does.
    row("0", longDelay, true);
    row("1", longDelay, true);
    row("Sun, 06 Nov 1994 08:49:37 GMT", longDelay, true);
    row("soon", 1, true);
    row("301", 1, false);
    const QDateTime tomorrow = QDateTime::currentDateTimeUtc().addDays(1);
    row(QLocale::c().toString(tomorrow, "ddd, dd MMM yyyy hh:mm:ss 'GMT'").toLatin1(), 1, false);
}

void tst_TarvisNetRetries::obeysTheServer()
{
    QFETCH(const QByteArray, retryAfter);
    QFETCH(const int, delay);
    QFETCH(const bool, isRetried);
    Retry retry(retrying(delay));
    retry.bench.server.on("/busy", afterFailures(1, busy(retryAfter), answers::json({})));
    retry.bench.get({"/busy"});
    QVERIFY(retry.bench.recorder.waitFor(isRetried ? "s_rawGet" : "s_errorChanged"));
    QCOMPARE(retry.seen("/busy"), isRetried ? 2 : 1);
    QCOMPARE(retry.bench.errors().size(), isRetried ? 0 : 1);
    QCOMPARE(retry.told().contains("retryAfter"), !isRetried);
}

// Where the first URL leads may be what fails.
void tst_TarvisNetRetries::goesFromTheFirstUrl()
{
    for (const bool isChecked : {true, false}) {
        TransferPolicy policy = isolated(retrying());
        policy.setRedirectsChecked(isChecked);
        Retry retry(policy);
        retry.bench.server.on(
            "/first",
            afterFailures(1, answers::redirect(302, retry.bench.url("/bad").toLatin1()),
                          answers::redirect(302, retry.bench.url("/good").toLatin1())));
        retry.bench.server.on("/bad", busy());
        retry.bench.server.on("/good", answers::json({}));
        retry.bench.get({"/first"});
        QVERIFY(retry.bench.recorder.waitFor("s_rawGet"));
        QCOMPARE(retry.bench.recorder.last("s_rawGet").at(1).toString(), retry.bench.url("/first"));
        QCOMPARE(retry.seen("/first"), 2);
        QCOMPARE(retry.seen("/bad"), 1);
        QCOMPARE(retry.bench.errors(), QList<int>());
    }
}

void tst_TarvisNetRetries::goesOnWhereItStopped()
{
    const QByteArray content = HttpResponse::generated(0, 1000);
    Retry retry;
    retry.bench.server.on("/file",
                          afterFailures(1, answers::cutShort(content.left(400), content.size()),
                                        answers::file(content)));
    retry.bench.client->fetchBinary(retry.bench.server.url("/file"), retry.bench.path("file"),
                                    content.size());
    QVERIFY(retry.bench.recorder.waitFor("s_finished"));
    const QList<HttpRequest> sent = retry.bench.server.requests("/file");
    QCOMPARE(sent.size(), 2);
    QCOMPARE(sent.first().header("range"), QByteArray());
    QCOMPARE(sent.last().header("range"), QByteArray("bytes=400-"));
    QCOMPARE(files::read(retry.bench.path("file")), content);
    QCOMPARE(retry.bench.recorder.last("s_downloadFileBytesProgress").at(0).toLongLong(),
             content.size());
}

// Over HTTPS, because without it Qt now and then takes the part for the whole.
void tst_TarvisNetRetries::goesOnAfterEachFailure()
{
    const QByteArray content = HttpResponse::generated(0, 1000);
    Retry retry(retrying(), Mode::Https);
    files::write(retry.bench.path("file.vtxdownload"), content.left(100));
    int step = 0;
    retry.bench.server.on("/file", [&](const HttpRequest &request, HttpResponse &response) {
        if (++step == attempts)
            return answers::file(content)(request, response);
        response.sendHead(206, {}, 1000 - 100 * step);
        response.write(content.mid(100 * step, 100));
        response.cut();
    });
    retry.bench.client->fetchBinary(retry.bench.server.url("/file"), retry.bench.path("file"),
                                    content.size());
    QVERIFY(retry.bench.recorder.waitFor("s_finished"));
    QList<QByteArray> ranges;
    for (const HttpRequest &request : retry.bench.server.requests("/file"))
        ranges.append(request.header("range"));
    QCOMPARE(ranges, QList<QByteArray>({"bytes=100-", "bytes=200-", "bytes=300-"}));
    QCOMPARE(files::read(retry.bench.path("file")), content);
}

void tst_TarvisNetRetries::takesNoPlace()
{
    Retry retry(retrying(longDelay));
    retry.bench.client->setParallelRequestsCount(1);
    retry.bench.server.on("/busy", busy());
    retry.bench.server.on("/other", answers::json({}));
    retry.bench.get({"/busy", "/other"});
    QVERIFY(retry.bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(retry.bench.recorder.last("s_rawGet").at(1).toString(), retry.bench.url("/other"));
    QCOMPARE(retry.seen("/busy"), 1);
    QCOMPARE(retry.bench.replies().size(), 1);
    QCOMPARE(retry.bench.errors(), QList<int>());
}

void tst_TarvisNetRetries::waitsForAPlace()
{
    Retry retry;
    retry.bench.client->setParallelRequestsCount(1);
    retry.bench.server.on("/busy", afterFailures(1, busy(), answers::json({})));
    HttpResponse held;
    retry.bench.server.on(
        "/held", [&held](const HttpRequest &, HttpResponse &response) { held = response; });
    retry.bench.server.on("/marker", answers::json({}));
    retry.bench.get({"/busy", "/held"});
    QVERIFY(retry.bench.server.waitForRequests(2));
    QVERIFY(letOthersRetry());
    QCOMPARE(retry.seen("/busy"), 1);

    held.send(200, {}, "{}");
    QVERIFY(retry.bench.recorder.waitFor("s_rawGet", 2));
    QCOMPARE(retry.seen("/busy"), 2);
    QCOMPARE(retry.bench.recorder.last("s_rawGet").at(1).toString(), retry.bench.url("/busy"));
}

void tst_TarvisNetRetries::endsAtOnce_data()
{
    QTest::addColumn<End>("end");
    QTest::addColumn<TransferPolicy>("policy");
    const auto rows = [](const char *name, const End &end) {
        QTest::addRow("%s", name) << end << retrying(longDelay);
        QTest::addRow("%s, isolated", name) << end << isolated(retrying(longDelay));
    };
    rows("abort its path", [](ClientBench &bench) { bench.client->abortDownload("/busy"); });
    rows("abort the first", [](ClientBench &bench) { bench.client->abortDownload(); });
    rows("abort a list", [](ClientBench &bench) {
        bench.client->abortDownload(QStringList({"/other", "/busy", "/busy"}));
    });
    rows("clear", [](ClientBench &bench) { bench.call("clearReplies"); });
    rows("delete", [](ClientBench &bench) { delete bench.client; });
}

void tst_TarvisNetRetries::endsAtOnce()
{
    QFETCH(const End, end);
    QFETCH(const TransferPolicy, policy);
    Retry retry(policy);
    QVERIFY(retry.wait("/busy"));
    end(retry.bench);
    QCOMPARE(retry.bench.abortedUrls(), retry.bench.urls({"/busy"}));
    QCOMPARE(retry.bench.errors(), QList<int>());
    if (!retry.bench.client)
        return;
    // Nothing is left of it.
    retry.bench.call("clearReplies");
    QCOMPARE(retry.bench.abortedUrls().size(), 1);
}

void tst_TarvisNetRetries::endsWithTheClient()
{
    Retry retry(retrying(longDelay));
    for (const char *path : {"/a", "/b", "/c"})
        retry.bench.server.on(path, busy());
    retry.bench.get({"/a", "/b", "/c"});
    QVERIFY(retry.bench.recorder.waitFor("s_repliesCountChanged", 6));
    delete retry.bench.client;
    QStringList aborted = retry.bench.abortedUrls();
    aborted.sort();
    QCOMPARE(aborted, retry.bench.urls({"/a", "/b", "/c"}));
}

void tst_TarvisNetRetries::abortsWhatRunsFirst()
{
    Retry retry(retrying(longDelay));
    QVERIFY(retry.wait("/busy"));
    retry.bench.server.on("/held", answers::withhold());
    retry.bench.get({"/held"});
    retry.bench.client->abortDownload();
    retry.bench.client->abortDownload();
    retry.bench.client->abortDownload();
    QCOMPARE(retry.bench.abortedUrls(), retry.bench.urls({"/held", "/busy"}));
}

void tst_TarvisNetRetries::stays_data()
{
    QTest::addColumn<bool>("isStopped");
    QTest::newRow("no other is aborted") << false;
    QTest::newRow("none is to start") << true;
}

// The flag does not end what waits, and nothing is sent while it is set.
void tst_TarvisNetRetries::stays()
{
    QFETCH(const bool, isStopped);
    Retry retry;
    retry.bench.server.on("/busy", afterFailures(1, busy(), answers::json({})));
    retry.bench.get({"/busy"});
    if (isStopped) {
        QObject untilStopped;
        connect(retry.bench.client, &TarvisNet::s_repliesCountChanged, &untilStopped,
                [&retry] { retry.bench.client->setStopProcess(true); });
        QVERIFY(retry.bench.recorder.waitFor("s_stopProcessChanged"));
        QVERIFY(letOthersRetry());
        QCOMPARE(retry.seen("/busy"), 1);
        retry.bench.client->setStopProcess(false);
        Q_EMIT retry.bench.client->s_repliesCountChanged();
    } else {
        retry.bench.client->abortDownload("/elsewhere");
    }
    QVERIFY(retry.bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(retry.bench.abortedUrls(), QStringList());
    QCOMPARE(retry.bench.errors(), QList<int>());
}

const TestClass<tst_TarvisNetRetries> testClass("tst_tarvisnet_retries");

} // namespace tst_tarvisnet_retries

#include "tst_tarvisnet_retries.moc"
