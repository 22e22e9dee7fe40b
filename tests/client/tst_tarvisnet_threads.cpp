#include "testclass.h"
#include "threadsbench.h"

#include <QtNetwork/QNetworkCookieJar>
#include <QtNetwork/QSslKey>
#include <QtTest/QTest>

#include <algorithm>

namespace tst_tarvisnet_threads {

using namespace threadsbench;

using Handler = ScriptedServer::Handler;
using Mode = ScriptedServer::Mode;

namespace {

/// Network threads of this process. Qt names them, and Linux cuts the name.
int networkThreads()
{
    const QDir tasks("/proc/self/task");
    const QStringList names = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return int(std::count_if(names.begin(), names.end(), [&tasks](const QString &task) {
        return files::read(tasks.filePath(task + "/comm")).startsWith("QNetworkAccessM");
    }));
}

QByteArray keyOf(const QSslCertificate &certificate)
{
    return QCryptographicHash::hash(certificate.publicKey().toDer(), QCryptographicHash::Sha256);
}

TransferPolicy pinning(const QByteArray &key)
{
    TransferPolicy policy = threaded(mostThreads);
    policy.setPinnedKeys({key});
    return policy;
}

/// Something that may happen to each of several downloads, all of which arrive in the end.
struct Trouble {
    const char *name = "";
    Handler handler;
};

QList<Trouble> troubles()
{
    const Handler whole = answers::bytes(body);
    const auto before = [&whole](const Handler &first) { return onceBefore(first, whole); };
    return {
        {"none", whole},
        {"redirected", answers::redirect(302, "/elsewhere")},
        {"busy", before(answers::status(503))},
        {"closed", before([](const HttpRequest &, HttpResponse &response) { response.cut(); })},
        {"cut short", before(answers::cutShort(body.left(9), body.size()))},
        {"silent", before(answers::withhold())},
        {"interim answer", before([](const HttpRequest &, HttpResponse &response) {
             response.writeRaw("HTTP/1.1 103 Early Hints\r\n\r\n");
         })},
    };
}

} // namespace

/// Which network threads requests share, and that nothing else changes with them.
class tst_TarvisNetThreads : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void downloadsHaveThreads_data();
    void downloadsHaveThreads();
    void othersGoWithTheFirst();
    void plainDownloadsGoWithTheFirst();
    void idleThreadsGo();
    void cookiesAreShared();
    void jarIsReplaced();
    void peersAreChecked_data();
    void peersAreChecked();
    void allArrive_data();
    void allArrive();
    void oneIsAborted();
    void allAreAborted();
    void interimAnswerLeavesOthersAlone_data();
    void interimAnswerLeavesOthersAlone();
};

// The threads of a client may outlive it a little.
void tst_TarvisNetThreads::init()
{
    QTRY_COMPARE_WITH_TIMEOUT(networkThreads(), 0, patience);
}

void tst_TarvisNetThreads::downloadsHaveThreads_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<int>("threads");
    QTest::addColumn<int>("started");
    for (int threads = 1; threads <= mostThreads; ++threads) {
        QTest::addRow("%d, HTTP", threads) << Mode::Http << threads << 1;
        QTest::addRow("%d, HTTPS", threads) << Mode::Https << threads << threads;
    }
}

void tst_TarvisNetThreads::downloadsHaveThreads()
{
    QFETCH(const Mode, mode);
    QFETCH(const int, threads);
    QFETCH(const int, started);
    ThreadsBench bench(threaded(threads), mode);
    bench.withhold();
    for (int number = 0; number < mostThreads; ++number) {
        bench.download(number);
        QVERIFY(bench.server.waitForRequests(number + 1));
        QCOMPARE(networkThreads(), std::min(number + 1, started));
    }
    bench.answerWithheld();
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads));
    QVERIFY(bench.areAllSaved());
}

void tst_TarvisNetThreads::othersGoWithTheFirst()
{
    ThreadsBench bench;
    bench.withhold();
    for (const char *kind : {"rawGet", "rawPost", "remoteIndex", "rawDelete"})
        requestkinds::start(*bench.client, requestkinds::of(kind), bench.server.url("/a"), {}, 0);
    QVERIFY(bench.server.waitForRequests(4));
    QCOMPARE(networkThreads(), 1);
    // They are no load that a download would avoid.
    bench.download(0);
    QVERIFY(bench.server.waitForRequests(5));
    QCOMPARE(networkThreads(), 1);
}

// Nor are they any load.
void tst_TarvisNetThreads::plainDownloadsGoWithTheFirst()
{
    ScriptedServer plain;
    plain.onRequest(answers::withhold());
    ThreadsBench bench;
    bench.withhold();
    for (const int number : {0, 1}) {
        bench.client->fetchBinary(plain.url(QString(bench.filePath(number))), bench.saved(number),
                                  qulonglong(body.size()));
    }
    QVERIFY(plain.waitForRequests(2));
    bench.download(2);
    QVERIFY(bench.server.waitForRequests(1));
    QCOMPARE(networkThreads(), 1);
    bench.download(3);
    QVERIFY(bench.server.waitForRequests(2));
    QCOMPARE(networkThreads(), 2);
}

void tst_TarvisNetThreads::idleThreadsGo()
{
    ThreadsBench bench;
    bench.withhold();
    bench.downloadAll();
    QVERIFY(bench.server.waitForRequests(mostThreads));
    QCOMPARE(networkThreads(), mostThreads);
    bench.answerWithheld();
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads));
    QTRY_COMPARE_WITH_TIMEOUT(networkThreads(), 1, patience);

    bench.downloadAll();
    QVERIFY(bench.server.waitForRequests(2 * mostThreads));
    QCOMPARE(networkThreads(), mostThreads);
    bench.answerWithheld();
    QVERIFY(bench.recorder.waitFor("s_finished", 2 * mostThreads));
    QVERIFY(bench.areAllSaved());
}

// Whoever gets one, all send it.
void tst_TarvisNetThreads::cookiesAreShared()
{
    ThreadsBench bench;
    bench.withhold();
    bench.download(0);
    QVERIFY(bench.server.waitForRequests(1));
    const auto giving = [](const QByteArray &cookie) {
        return answers::bytes(body, 200, {{"Set-Cookie", cookie + "; path=/"}});
    };
    bench.server.on("/file1", giving("download=1"));
    bench.download(1);
    QVERIFY(bench.recorder.waitFor("s_finished"));
    bench.server.on("/a", giving("get=1"));
    bench.get({"/a"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    bench.server.on("/file2", answers::bytes(body));
    bench.download(2);
    QVERIFY(bench.recorder.waitFor("s_finished", 2));
    QCOMPARE(networkThreads(), 2);
    QCOMPARE(bench.server.requests("/a").constFirst().header("cookie"), QByteArray("download=1"));
    QCOMPARE(bench.server.requests("/file2").constFirst().header("cookie"),
             QByteArray("download=1; get=1"));
}

void tst_TarvisNetThreads::jarIsReplaced()
{
    QNetworkCookieJar first;
    QNetworkCookieJar second;
    ThreadsBench bench;
    const QPointer<QNetworkCookieJar> own = bench.client->getCoockies();
    bench.withhold();
    bench.downloadAll();
    QVERIFY(bench.server.waitForRequests(mostThreads));
    for (QNetworkCookieJar *jar : {&first, &second}) {
        bench.client->setCookies(jar);
        QVERIFY(!own);
        QVERIFY(!jar->parent());
    }
    for (int number = 0; number < mostThreads; ++number) {
        const QByteArray cookie = "number" + QByteArray::number(number) + "=1; path=/";
        bench.withheld[bench.filePath(number)].send(200, {{"Set-Cookie", cookie}}, body);
    }
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads));
    QCOMPARE(first.cookiesForUrl(bench.server.url()).size(), 0);
    QCOMPARE(second.cookiesForUrl(bench.server.url()).size(), mostThreads);
    QVERIFY(!second.parent());
}

void tst_TarvisNetThreads::peersAreChecked_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    QTest::addColumn<ScriptedServer::Certificate>("shown");
    QTest::addColumn<bool>("isTrusted");
    const auto good = ScriptedServer::Certificate::Good;
    const QByteArray key = keyOf(certificate("server"));
    TransferPolicy unpinned = pinning("another");
    unpinned.setPeersVerified(false);
    QTest::newRow("its authority") << threaded(mostThreads) << good << true;
    QTest::newRow("nobody signed it") << TransferPolicy::fast() << good << false;
    QTest::newRow("another name") << threaded(mostThreads) << ScriptedServer::Certificate::WrongName
                                  << false;
    QTest::newRow("pinned") << pinning(key) << good << true;
    QTest::newRow("not pinned") << pinning("another") << good << false;
    QTest::newRow("not pinned, not verified") << unpinned << good << false;
}

void tst_TarvisNetThreads::peersAreChecked()
{
    QFETCH(const TransferPolicy, policy);
    QFETCH(const ScriptedServer::Certificate, shown);
    QFETCH(const bool, isTrusted);
    ThreadsBench bench(policy, Mode::Https);
    bench.server.setCertificate(shown);
    bench.server.onRequest(answers::bytes(body));
    bench.downloadAll();
    QTRY_COMPARE_WITH_TIMEOUT(bench.outcomes(), mostThreads, patience);
    QVERIFY(bench.hasAccepted(mostThreads));
    QCOMPARE(bench.recorder.count("s_finished"), isTrusted ? mostThreads : 0);
    QCOMPARE(bench.server.requests().size(), isTrusted ? mostThreads : 0);
    const QList<int> errors = bench.errors();
    QCOMPARE(errors.count(-222), isTrusted ? 0 : mostThreads);
}

void tst_TarvisNetThreads::allArrive_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<Handler>("handler");
    for (const Trouble &trouble : troubles()) {
        QTest::addRow("%s, HTTP", trouble.name) << Mode::Http << trouble.handler;
        QTest::addRow("%s, HTTPS", trouble.name) << Mode::Https << trouble.handler;
    }
}

// In the order in which they are asked for, whatever happens to every second one of them.
void tst_TarvisNetThreads::allArrive()
{
    QFETCH(const Mode, mode);
    QFETCH(const Handler, handler);
    TransferPolicy policy = threaded(mostThreads);
    policy.setIdleTimeout(500);
    policy.setMaximumRetries(10);
    ThreadsBench bench(policy, mode);
    bench.server.onRequest(answers::bytes(body));
    for (const int number : {0, 2, 4})
        bench.server.on(bench.filePath(number), handler);
    bench.downloadAll();
    QTRY_COMPARE_WITH_TIMEOUT(bench.recorder.count("s_finished"), mostThreads, patience);
    QCOMPARE(bench.errors(), QList<int>());
    QVERIFY(bench.areAllSaved());
    QCOMPARE(bench.namesIn("temporary"), QStringList());
    bench.get({"/after"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.outcomes(), mostThreads);
}

void tst_TarvisNetThreads::oneIsAborted()
{
    ThreadsBench bench;
    bench.withhold();
    bench.downloadAll();
    QVERIFY(bench.server.waitForRequests(mostThreads));
    bench.client->abortDownload(bench.filePath(3));
    QCOMPARE(bench.abortedUrls(), bench.urls({bench.filePath(3)}));
    bench.answerWithheld();
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads - 1));
    // A thread whose connection may still carry an answer is used no more.
    bench.download(3, "/again");
    QVERIFY(bench.server.waitForRequests(mostThreads + 1));
    bench.answerWithheld();
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads));
    QVERIFY(bench.areAllSaved());
    QCOMPARE(bench.outcomes(), mostThreads + 1);
}

void tst_TarvisNetThreads::allAreAborted()
{
    ThreadsBench bench;
    bench.withhold();
    bench.downloadAll();
    QVERIFY(bench.server.waitForRequests(mostThreads));
    for (int count = 1; count <= mostThreads; ++count) {
        bench.client->abortDownload();
        QCOMPARE(bench.abortedUrls().size(), count);
    }
    QStringList aborted = bench.abortedUrls();
    QCOMPARE(aborted.removeDuplicates(), 0);
    QVERIFY(bench.server.waitForConnections(0));
    bench.server.onRequest(answers::bytes(body));
    bench.downloadAll();
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads));
    QVERIFY(bench.areAllSaved());
    QCOMPARE(bench.outcomes(), 2 * mostThreads);
}

void tst_TarvisNetThreads::interimAnswerLeavesOthersAlone_data()
{
    QTest::addColumn<int>("hinted");
    for (int number = 0; number < mostThreads; ++number)
        QTest::addRow("%d", number) << number;
}

// The first one goes with all that are no downloads.
void tst_TarvisNetThreads::interimAnswerLeavesOthersAlone()
{
    QFETCH(const int, hinted);
    ThreadsBench bench;
    bench.withhold();
    bench.downloadAll();
    QVERIFY(bench.server.waitForRequests(mostThreads));
    HttpResponse late = bench.withheld.take(bench.filePath(hinted));
    late.writeRaw("HTTP/1.1 103 Early Hints\r\n\r\n");
    QVERIFY(bench.server.waitForRequests(mostThreads + 1));
    late.writeRaw("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nlate");
    bench.answerWithheld();
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads));
    for (int number = 0; number < mostThreads; ++number)
        QCOMPARE(bench.server.requests(bench.filePath(number)).size(), number == hinted ? 2 : 1);
    QVERIFY(bench.areAllSaved());
    QCOMPARE(bench.outcomes(), mostThreads);
}

const TestClass<tst_TarvisNetThreads> testClass("tst_tarvisnet_threads");

} // namespace tst_tarvisnet_threads

#include "tst_tarvisnet_threads.moc"
