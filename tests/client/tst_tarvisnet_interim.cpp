#include "clientbench.h"
#include "files.h"
#include "operations.h"
#include "testclass.h"

#include <QtCore/QJsonObject>
#include <QtNetwork/QNetworkCookieJar>
#include <QtTest/QTest>

#include <functional>

namespace tst_tarvisnet_interim {

using namespace clientaccess;

namespace {

const char removed[] = "s_repliesCountChanged";
const QByteArray body = R"({"answer":"mine"})";
const QByteArray strangers = R"({"answer":"of somebody else"})";

QByteArray interim(int status)
{
    return "HTTP/1.1 " + QByteArray::number(status)
        + " Wait\r\nLink: </a.css>; rel=preload\r\n\r\n";
}

QByteArray whole(const QByteArray &body)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n"
        + body;
}

TransferPolicy explained()
{
    TransferPolicy policy;
    policy.setErrorsExplained(true);
    return policy;
}

/// The strict one, but for the certificates and the wait before a retry.
TransferPolicy nearlyStrict()
{
    TransferPolicy policy = TransferPolicy::strict();
    policy.setPeersVerified(false);
    policy.setRetryDelay(0);
    return policy;
}

TransferPolicy retrying(int count)
{
    TransferPolicy policy = explained();
    policy.setMaximumRetries(count);
    policy.setRetryDelay(0);
    return policy;
}

/// A client whose server sends interim answers. The connection is kept after each.
struct InterimBench : ClientBench {
    explicit InterimBench(const TransferPolicy &policy = explained(),
                          ScriptedServer::Mode mode = ScriptedServer::Mode::Http)
        : ClientBench(mode, policy)
    {
        server.onRequest(answers::bytes(body));
    }

    /// Answers the first \a count requests for \a path with an interim answer. What follows it is
    /// sent with it, or with the next request that arrives.
    void hint(const QByteArray &path, int count, bool isLate, int status = 103)
    {
        hintsLeft = count;
        server.on(path, [=](const HttpRequest &request, HttpResponse &response) {
            sendLate();
            if (hintsLeft-- <= 0)
                return answers::bytes(body)(request, response);
            response.writeRaw(interim(status) + (isLate ? QByteArray() : whole(strangers)));
            late = response;
        });
    }
    void sendLate()
    {
        late.writeRaw(whole(strangers));
        late = HttpResponse();
    }

    HttpResponse late;
    int hintsLeft = 0;
};

} // namespace

/// Answers that are not the final one, which Qt takes for it. What follows one on its connection
/// must be nobody's answer.
class tst_TarvisNetInterim : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void getIsSentAgain_data();
    void getIsSentAgain();
    void everyPolicyMindsThem_data();
    void everyPolicyMindsThem();
    void getFailsInTheEnd_data();
    void getFailsInTheEnd();
    void othersFail_data();
    void othersFail();
    void nobodyGetsAnothersAnswer_data();
    void nobodyGetsAnothersAnswer();
    void userIsNoPartOfTheServer();
    void probeLeavesNothingBehind();
    void managersGoAway();
    void jarIsKept_data();
    void jarIsKept();
    void jarMayBeReplaced();
    void deletedWhenItFails();
};

void tst_TarvisNetInterim::getIsSentAgain_data()
{
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<TransferPolicy>("policy");
    QTest::addColumn<bool>("isLate");
    for (const RequestKind &kind : requestkinds::all()) {
        if (!*kind.signal || qstrcmp(kind.verb, "GET") != 0)
            continue;
        for (const bool isLate : {false, true}) {
            const char *time = isLate ? "later" : "at once";
            QTest::addRow("%s, %s", kind.name, time) << kind << explained() << isLate;
            QTest::addRow("%s, %s, strict", kind.name, time) << kind << nearlyStrict() << isLate;
        }
    }
}

void tst_TarvisNetInterim::getIsSentAgain()
{
    QFETCH(const RequestKind, kind);
    QFETCH(const TransferPolicy, policy);
    QFETCH(const bool, isLate);
    InterimBench bench(policy);
    bench.client->setInstallerFileName(bench.path("file"));
    bench.hint("/a", 1, isLate);
    requestkinds::start(*bench.client, kind, bench.server.url("/a"), bench.path("file"),
                        qulonglong(body.size()));
    QVERIFY(bench.recorder.waitFor(kind.signal));

    QCOMPARE(bench.recorder.count(kind.signal), 1);
    QVERIFY(bench.recorder.last(kind.signal).contains(bench.url("/a")));
    if (kind.result == Result::Bytes)
        QCOMPARE(bench.recorder.last(kind.signal).first().toByteArray(), body);
    if (kind.result == Result::Document)
        QCOMPARE(bench.recorder.last(kind.signal)
                     .first()
                     .toJsonDocument()
                     .toJson(QJsonDocument::Compact),
                 body);
    if (kind.isBinary())
        QCOMPARE(files::read(bench.path("file")), body);
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.recorder.count("s_aborted"), 0);
    QCOMPARE(bench.server.requests("/a").size(), 2);
}

void tst_TarvisNetInterim::everyPolicyMindsThem_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    QTest::addColumn<int>("status");
    const auto row = [](const char *name, void (*ask)(TransferPolicy &)) {
        TransferPolicy policy;
        ask(policy);
        for (const int status : {102, 103, 110, 199})
            QTest::addRow("%s, %d", name, status) << policy << status;
    };
    using Policy = TransferPolicy;
    row("redirects", [](Policy &policy) { policy.setRedirectsChecked(true); });
    row("files", [](Policy &policy) { policy.setFilesChecked(true); });
    row("failures", [](Policy &policy) { policy.setFailuresIsolated(true); });
    row("idle", [](Policy &policy) { policy.setIdleTimeout(60000); });
    row("total", [](Policy &policy) { policy.setTotalTimeout(60000); });
    row("retries", [](Policy &policy) { policy.setMaximumRetries(1); });
    row("size", [](Policy &policy) { policy.setMaximumBodySize(1000); });
    row("explained", [](Policy &policy) { policy.setErrorsExplained(true); });
}

void tst_TarvisNetInterim::everyPolicyMindsThem()
{
    QFETCH(const TransferPolicy, policy);
    QFETCH(const int, status);
    InterimBench bench(policy);
    bench.hint("/a", 1, true, status);
    bench.get({"/a"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    bench.get({"/b"});
    QVERIFY(bench.recorder.waitFor("s_rawGet", 2));
    for (const QVariantList &result : bench.recorder.of("s_rawGet"))
        QCOMPARE(result.first().toJsonDocument(), QJsonDocument::fromJson(body));
    QCOMPARE(bench.errors(), QList<int>());
}

void tst_TarvisNetInterim::getFailsInTheEnd_data()
{
    QTest::addColumn<int>("retries");
    QTest::addColumn<bool>("isLate");
    for (const bool isLate : {false, true}) {
        for (const int retries : {0, 1, 3})
            QTest::addRow("%d, %s", retries, isLate ? "later" : "at once") << retries << isLate;
    }
}

void tst_TarvisNetInterim::getFailsInTheEnd()
{
    QFETCH(const int, retries);
    QFETCH(const bool, isLate);
    InterimBench bench(retrying(retries));
    bench.hint("/a", 100, isLate);
    bench.get({"/a"});
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    const int sent = std::max(1, retries) + 1;
    QCOMPARE(bench.server.requests("/a").size(), sent);
    QCOMPARE(bench.errors(), QList<int>({-203}));
    QCOMPARE(bench.error().at(1).toString(), bench.url("/a"));
    const QJsonObject told = bench.error().at(2).toJsonDocument().object();
    QCOMPARE(told.value("httpStatus").toInt(), 103);
    QCOMPARE(told.value("attempts").toInt(), sent);
    QVERIFY(!told.value("reason").toString().isEmpty());
    QCOMPARE(bench.recorder.count("s_rawGet"), 0);

    bench.sendLate();
    bench.get({"/b"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.recorder.last("s_rawGet").first().toJsonDocument(),
             QJsonDocument::fromJson(body));
}

void tst_TarvisNetInterim::othersFail_data()
{
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<bool>("isLate");
    for (const RequestKind &kind : requestkinds::all()) {
        if (qstrcmp(kind.verb, "GET") == 0)
            continue;
        for (const bool isLate : {false, true})
            QTest::addRow("%s, %s", kind.name, isLate ? "later" : "at once") << kind << isLate;
    }
}

void tst_TarvisNetInterim::othersFail()
{
    QFETCH(const RequestKind, kind);
    QFETCH(const bool, isLate);
    InterimBench bench(nearlyStrict());
    bench.hint("/a", 1, isLate);
    requestkinds::start(*bench.client, kind, bench.server.url("/a"), bench.path("file"), 0);
    QVERIFY(bench.recorder.waitFor(removed, 2));
    QCOMPARE(bench.errors(), QList<int>({-203}));
    QCOMPARE(bench.error().at(1).toString(), bench.url("/a"));
    QCOMPARE(bench.recorder.count(kind.signal), 0);
    QCOMPARE(bench.recorder.count("s_aborted"), 0);
    QCOMPARE(bench.server.requests("/a").size(), 1);

    bench.sendLate();
    bench.get({"/b"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.recorder.last("s_rawGet").first().toJsonDocument(),
             QJsonDocument::fromJson(body));
}

void tst_TarvisNetInterim::nobodyGetsAnothersAnswer_data()
{
    QTest::addColumn<bool>("isLate");
    QTest::addColumn<int>("places");
    for (const bool isLate : {false, true}) {
        for (const int places : {1, 5, 20})
            QTest::addRow("%d, %s", places, isLate ? "later" : "at once") << isLate << places;
    }
}

// More places than Qt has connections make requests follow each other on one at once.
void tst_TarvisNetInterim::nobodyGetsAnothersAnswer()
{
    QFETCH(const bool, isLate);
    QFETCH(const int, places);
    const int count = 60;
    InterimBench bench;
    bench.client->setParallelRequestsCount(places);
    int arrived = 0;
    bench.server.onRequest([&](const HttpRequest &request, HttpResponse &response) {
        const QByteArray own = R"({"path":")" + request.path() + "\"}";
        bench.sendLate();
        if (++arrived % 7 != 3)
            return response.send(200, {}, own);
        response.writeRaw(interim(103) + (isLate ? QByteArray() : whole(strangers)));
        bench.late = response;
    });
    QStringList paths;
    for (int i = 0; i < count; ++i)
        paths.append(QString("/%1").arg(i));
    bench.get(paths);
    QTRY_COMPARE(bench.recorder.count("s_rawGet") + bench.recorder.count("s_errorChanged"), count);

    const QList<QVariantList> results = bench.recorder.of("s_rawGet");
    QStringList ended;
    for (const QVariantList &result : results) {
        const QString path = QUrl(result.at(1).toString()).path();
        QCOMPARE(result.at(0).toJsonDocument().object().value("path").toString(), path);
        ended.append(path);
    }
    for (const QVariantList &error : bench.recorder.of("s_errorChanged"))
        ended.append(QUrl(error.at(1).toString()).path());
    ended.sort();
    paths.sort();
    QCOMPARE(ended, paths);
}

// Qt has them share connections.
void tst_TarvisNetInterim::userIsNoPartOfTheServer()
{
    InterimBench bench;
    bench.server.on("/named", answers::withhold());
    QUrl named = bench.server.url("/named");
    named.setUserName("user");
    bench.client->rawPost(named, "");
    QVERIFY(bench.server.waitForRequests(1));
    bench.hint("/a", 1, true);
    bench.get({"/a"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.errors(), QList<int>({-203}));
    QCOMPARE(bench.error().at(1).toString(), named.toString());
}

void tst_TarvisNetInterim::probeLeavesNothingBehind()
{
    InterimBench bench;
    bench.client->setPingAlwaysOn(true);
    // The probe asks for nothing but the server.
    bench.hint("/", 1, true);
    HttpResponse held;
    bench.server.on("/a",
                    [&held](const HttpRequest &, HttpResponse &response) { held = response; });
    QPointer<QNetworkAccessManager> first = managerOf(*bench.client);
    bench.get({"/a"});
    QVERIFY(bench.server.waitForRequests(2));
    QTRY_VERIFY(managerOf(*bench.client) != first);
    bench.sendLate();
    bench.server.on("/a", answers::bytes(body));
    held.send(200, {}, body);
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    bench.get({"/b"});
    QVERIFY(bench.recorder.waitFor("s_rawGet", 2));
    QCOMPARE(bench.recorder.last("s_rawGet").first().toJsonDocument(),
             QJsonDocument::fromJson(body));
}

void tst_TarvisNetInterim::managersGoAway()
{
    InterimBench bench;
    QSet<QNetworkAccessManager *> known;
    int alive = 0;
    for (int i = 0; i < 50; ++i) {
        QNetworkAccessManager *manager = managerOf(*bench.client);
        if (!known.contains(manager)) {
            ++alive;
            known.insert(manager);
            connect(manager, &QObject::destroyed, this, [&alive, &known, manager] {
                --alive;
                known.remove(manager);
            });
        }
        QVERIFY2(alive <= 2, qPrintable(QString::number(alive)));
        bench.hint("/a", 1, i % 2 == 0);
        bench.get({"/a"});
        QVERIFY(bench.recorder.waitFor("s_rawGet", i + 1));
    }
    QTRY_COMPARE(alive, 0);
    QCOMPARE(bench.server.requests("/a").size(), 100);
    QVERIFY(managerOf(*bench.client));
}

void tst_TarvisNetInterim::jarIsKept_data()
{
    QTest::addColumn<bool>("isCallers");
    QTest::newRow("its own") << false;
    QTest::newRow("the caller's") << true;
}

void tst_TarvisNetInterim::jarIsKept()
{
    QFETCH(const bool, isCallers);
    QNetworkCookieJar callers;
    InterimBench bench;
    if (isCallers)
        bench.client->setCookies(&callers);
    QNetworkCookieJar *jar = bench.client->getCoockies();
    jar->setCookiesFromUrl({QNetworkCookie("name", "value")}, bench.server.url());
    bench.hint("/a", 1, true);
    bench.get({"/a"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.client->getCoockies(), jar);
    QCOMPARE(jar->parent() == nullptr, isCallers);
    for (const HttpRequest &request : bench.server.requests("/a"))
        QCOMPARE(request.header("cookie"), QByteArray("name=value"));
}

// While a request that has nothing to do with it still goes through the manager that was retired.
void tst_TarvisNetInterim::jarMayBeReplaced()
{
    ScriptedServer other;
    HttpResponse held;
    other.onRequest([&held](const HttpRequest &, HttpResponse &response) { held = response; });
    InterimBench bench;
    QNetworkCookieJar callers;
    bench.hint("/a", 1, true);
    bench.client->rawGet(other.url("/other"));
    QVERIFY(other.waitForRequests(1));
    bench.get({"/a"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    bench.client->setCookies(&callers);
    held.send(200, {{"Set-Cookie", "name=value"}}, body);
    QVERIFY(bench.recorder.waitFor("s_rawGet", 2));
    QCOMPARE(callers.cookiesForUrl(other.url()).size(), 1);
}

void tst_TarvisNetInterim::deletedWhenItFails()
{
    InterimBench bench;
    bench.client->setParallelRequestsCount(20);
    bench.server.onRequest(answers::withhold());
    bench.hint("/a", 100, true);
    connect(bench.client, &TarvisNet::s_errorChanged, this, [&bench] { delete bench.client; });
    for (int i = 0; i < 3; ++i)
        bench.client->rawPost(bench.server.url("/b"), QByteArray::number(i));
    QVERIFY(bench.server.waitForRequests(3));
    bench.client->rawPost(bench.server.url("/a"), "");
    QTRY_VERIFY(!bench.client);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
}

const TestClass<tst_TarvisNetInterim> testClass("tst_tarvisnet_interim");

} // namespace tst_tarvisnet_interim

#include "tst_tarvisnet_interim.moc"
