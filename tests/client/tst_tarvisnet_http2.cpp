#include "files.h"
#include "http2bench.h"
#include "operations.h"
#include "testclass.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QProcess>
#include <QtNetwork/QNetworkCookieJar>
#include <QtTest/QTest>

namespace tst_tarvisnet_http2 {

using namespace clientaccess;

using Adjust = void (*)(TransferPolicy &);
using Handler = Http2Server::Handler;
using Mode = ScriptedServer::Mode;

} // namespace tst_tarvisnet_http2

Q_DECLARE_METATYPE(tst_tarvisnet_http2::Adjust)

namespace tst_tarvisnet_http2 {

namespace {

constexpr qulonglong MiB = 1024 * 1024;
constexpr int shortIdleMsec = 500;
// No test waits for even half of it.
constexpr int longDelay = 30 * 1000;

const QByteArray document = R"({"answer":42})";
const HttpHeaders tag = {{"etag", "\"1\""}};

TransferPolicy fast(Adjust adjust)
{
    TransferPolicy policy = Http2Bench::fast();
    adjust(policy);
    return policy;
}

/// Starts a request of \a kind; a file is saved as "file" and has \a size bytes.
void start(const Http2Bench &bench, const RequestKind &kind, const QUrl &url,
           qulonglong size = qulonglong(document.size()))
{
    bench.client->setInstallerFileName(bench.path("file"));
    bench.client->setInstallerFileSize(size);
    requestkinds::start(*bench.client, kind, url, bench.path("file"), size);
}

/// What ends() tells of a request of \a kind for \a path that is answered with the document.
QString resultOf(const RequestKind &kind, const QString &path)
{
    const bool isAddress = kind.result == Result::Address;
    return path + ' ' + kind.signal + (isAddress ? QString() : ' ' + QString(document));
}

/// All that there is an operation for.
void addKinds()
{
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : requestkinds::all()) {
        if (kind.result != Result::Nothing)
            QTest::newRow(kind.name) << kind;
    }
}

QByteArray gzip(const QByteArray &bytes)
{
    QProcess program;
    program.start("gzip", {"-9"});
    program.write(bytes);
    program.closeWriteChannel();
    if (!program.waitForFinished() || program.exitCode() != 0)
        qFatal("cannot compress: %s", qPrintable(program.errorString()));
    return program.readAllStandardOutput();
}

QString sha256(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

} // namespace

/// A client whose policy allows HTTP/2: what is sent by it and over how many connections, and that
/// everything else is as by HTTP/1.1.
class tst_TarvisNetHttp2 : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void speaksIt_data() { addKinds(); }
    void speaksIt();
    void sharesAConnection();
    void sharesAConnectionAtOnce();
    void spreadsFiles_data();
    void spreadsFiles();
    void leavesItForLargeFiles_data();
    void leavesItForLargeFiles();
    void needsPermission_data();
    void needsPermission();
    void neverUpgrades();
    void makesDoWithHttp1();
    void sendsHeaders();
    void givesHeaders();
    void keepsCookies();
    void isRedirected_data();
    void isRedirected();
    void changesConnectionsInTime_data();
    void changesConnectionsInTime();
    void keepsSecrets();
    void boundsBodies_data();
    void boundsBodies();
    void endsInTime_data();
    void endsInTime();
    void triesAgain();
    void reportsStatus();
    void resumes();
    void startsAfresh();
    void checksHashes_data();
    void checksHashes();
    void abortsOne();
    void refusesThePeerForAll_data();
    void refusesThePeerForAll();
};

void tst_TarvisNetHttp2::speaksIt()
{
    QFETCH(const RequestKind, kind);
    Http2Bench bench;
    bench.http2.on("/a", Http2Server::bytes(document));
    start(bench, kind, bench.http2.url("/a?b=c%20d"));
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.ends(), QStringList{resultOf(kind, "/a")});
    QCOMPARE(bench.http2.seen(), QStringList{QString("h2: %1 /a?b=c%20d").arg(kind.verb)});
    const HttpRequest request = bench.http2.requests("/a").value(0);
    const bool hasBody = qstrcmp(kind.verb, "GET") != 0;
    QCOMPARE(request.body, hasBody ? operations::body : QByteArray());
    QCOMPARE(request.header("content-type"), QByteArray(kind.contentType));
    QCOMPARE(request.header("connection"), QByteArray());
    if (kind.isFile())
        QCOMPARE(files::read(bench.path("file")), document);
}

void tst_TarvisNetHttp2::sharesAConnection()
{
    Http2Bench bench;
    bench.http2.onRequest(Http2Server::bytes(document));
    QStringList requests;
    QStringList expected;
    for (const RequestKind &kind : requestkinds::all()) {
        if (kind.result == Result::Nothing)
            continue;
        const QString path = QString("/%1").arg(kind.name);
        start(bench, kind, bench.http2.url(path));
        requests.append(QString("%1 %2").arg(kind.verb, path));
        expected.append(resultOf(kind, path));
        QVERIFY(bench.waitForEnds(requests.size()));
    }
    expected.sort();
    QCOMPARE(bench.ends(), expected);
    QCOMPARE(bench.http2.seen(), QStringList{"h2: " + requests.join(", ")});
}

void tst_TarvisNetHttp2::sharesAConnectionAtOnce()
{
    const int count = 50;
    Http2Bench bench;
    bench.http2.onRequest([](const HttpRequest &request, Http2Response &response) {
        response.send(200, {}, R"({"path":")" + request.path() + "\"}");
    });
    QStringList expected;
    for (int i = 0; i < count; ++i) {
        const QString path = QString("/%1").arg(i);
        bench.client->rawGet(bench.http2.url(path));
        expected.append(QString("%1 s_rawGet {\"path\":\"%1\"}").arg(path));
    }
    expected.sort();
    QVERIFY(bench.waitForEnds(count));
    QCOMPARE(bench.ends(), expected);
    QCOMPARE(bench.http2.seen().size(), 1);
    QCOMPARE(bench.http2.requestCount(), count);
}

void tst_TarvisNetHttp2::spreadsFiles_data()
{
    QTest::addColumn<int>("threads");
    QTest::addColumn<int>("connections");
    QTest::newRow("one") << 1 << 1;
    QTest::newRow("two") << 2 << 2;
    QTest::newRow("five") << 5 << 5;
}

// None is answered before all are there.
void tst_TarvisNetHttp2::spreadsFiles()
{
    QFETCH(const int, threads);
    QFETCH(const int, connections);
    const int count = 5;
    TransferPolicy policy = Http2Bench::fast();
    policy.setDownloadThreads(threads);
    Http2Bench bench(policy);
    QList<Http2Response> arrived;
    bench.http2.onRequest(
        [&](const HttpRequest &, Http2Response &response) { arrived.append(response); });
    for (int i = 0; i < count; ++i) {
        const QString name = QString("/%1").arg(i);
        bench.client->fetchBinary(bench.http2.url(name), bench.path(name.mid(1)),
                                  qulonglong(document.size()));
    }
    QVERIFY(bench.http2.waitForRequests(count));
    for (Http2Response &response : arrived)
        response.send(200, {}, document);
    QVERIFY(bench.waitForEnds(count));
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.http2.seen().filter("h2: GET").size(), connections);
    QCOMPARE(bench.http2.seen().size(), connections);
    for (int i = 0; i < count; ++i)
        QCOMPARE(files::read(bench.path(QString::number(i))), document);
}

void tst_TarvisNetHttp2::leavesItForLargeFiles_data()
{
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<qulonglong>("size");
    QTest::addColumn<QString>("protocol");
    for (const char *type : {"remoteBinary", "remoteInstaller"}) {
        const auto row = [type](const char *name, qulonglong size, const char *protocol) {
            QTest::addRow("%s, %s", type, name)
                << requestkinds::of(type) << size << QString(protocol);
        };
        row("a byte", 1, "h2");
        row("less than 16 MiB", 16 * MiB - 1, "h2");
        row("16 MiB", 16 * MiB, "http/1.1");
        row("more", 64 * MiB, "http/1.1");
        row("unknown", 0, "http/1.1");
    }
}

void tst_TarvisNetHttp2::leavesItForLargeFiles()
{
    QFETCH(const RequestKind, kind);
    QFETCH(const qulonglong, size);
    QFETCH(const QString, protocol);
    Http2Bench bench;
    bench.http2.onRequest(Http2Server::bytes(QByteArray(), 404));
    start(bench, kind, bench.http2.url("/a"), size);
    QVERIFY(bench.waitForEnds());
    start(bench, kind, bench.http2.url("/b"), size);
    QVERIFY(bench.waitForEnds(2));
    QCOMPARE(bench.ends(), QStringList({"/a -217", "/b -217"}));
    QCOMPARE(bench.http2.seen(), QStringList{protocol + ": GET /a, GET /b"});
}

void tst_TarvisNetHttp2::needsPermission_data()
{
    QTest::addColumn<Adjust>("adjust");
    QTest::newRow("nothing asked for")
        << Adjust([](TransferPolicy &policy) { policy = TransferPolicy(); });
    QTest::newRow("strict") << Adjust([](TransferPolicy &policy) {
        const auto authorities = policy.caCertificates();
        policy = TransferPolicy::strict();
        policy.setCaCertificates(authorities);
    });
    QTest::newRow("fast without it")
        << Adjust([](TransferPolicy &policy) { policy.setHttp2Allowed(false); });
}

void tst_TarvisNetHttp2::needsPermission()
{
    QFETCH(const Adjust, adjust);
    Http2Bench bench(fast(adjust));
    bench.http2.onHttp1(answers::bytes(document));
    bench.client->rawGet(bench.http2.url("/a"));
    QVERIFY(bench.waitForEnds());
    bench.client->rawPost(bench.http2.url("/b"), "{}");
    QVERIFY(bench.waitForEnds(2));
    bench.client->fetchBinary(bench.http2.url("/c"), bench.path("file"),
                              qulonglong(document.size()));
    QVERIFY(bench.waitForEnds(3));
    QCOMPARE(bench.errors(), QList<int>());
    for (const QString &line : bench.http2.seen())
        QVERIFY2(line.startsWith("http/1.1: "), qPrintable(line));
}

void tst_TarvisNetHttp2::neverUpgrades()
{
    Http2Bench bench(Http2Bench::fast(), Mode::Http);
    bench.server.onRequest(answers::bytes(document));
    for (int i = 0; i < 3; ++i) {
        bench.client->rawGet(bench.server.url(QString("/%1").arg(i)));
        QVERIFY(bench.waitForEnds(i + 1));
    }
    QCOMPARE(bench.errors(), QList<int>());
    QVERIFY(bench.server.waitForConnections(1));
    for (const HttpRequest &request : bench.server.requests()) {
        QCOMPARE(request.version, QByteArray("HTTP/1.1"));
        QCOMPARE(request.header("upgrade"), QByteArray());
        QCOMPARE(request.header("http2-settings"), QByteArray());
        QCOMPARE(request.header("connection"), QByteArray("Keep-Alive"));
    }
}

void tst_TarvisNetHttp2::makesDoWithHttp1()
{
    Http2Bench bench;
    bench.server.onRequest(answers::bytes(document));
    QStringList expected;
    for (const char *type : {"rawGet", "rawPost", "remoteBinary", "remoteIndex"}) {
        const RequestKind kind = requestkinds::of(type);
        const QString path = QString("/%1").arg(type);
        start(bench, kind, bench.server.url(path));
        expected.append(resultOf(kind, path));
        QVERIFY(bench.waitForEnds(expected.size()));
    }
    expected.sort();
    QCOMPARE(bench.ends(), expected);
    QVERIFY(bench.server.waitForConnections(1));
    for (const HttpRequest &request : bench.server.requests())
        QCOMPARE(request.version, QByteArray("HTTP/1.1"));
}

void tst_TarvisNetHttp2::sendsHeaders()
{
    Http2Bench bench;
    bench.http2.on("/a", Http2Server::bytes(document));
    bench.client->rawGet(bench.http2.url("/a"), {},
                         {{"Authorization", "Bearer 1"}, {"X-Some-Name", "Some Value"}});
    QVERIFY(bench.waitForEnds());
    const HttpRequest request = bench.http2.requests("/a").value(0);
    QCOMPARE(request.header(":scheme"), QByteArray("https"));
    QCOMPARE(request.header(":authority"), bench.http2.url().authority().toLatin1());
    QCOMPARE(request.header("authorization"), QByteArray("Bearer 1"));
    QCOMPARE(request.header("x-some-name"), QByteArray("Some Value"));
    QCOMPARE(request.header("user-agent"), bench.client->getUserAgent().toLocal8Bit());
}

void tst_TarvisNetHttp2::givesHeaders()
{
    Http2Bench bench;
    bench.http2.on("/a", Http2Server::bytes(document, 200, {{"x-some-name", "Some Value"}}));
    bench.client->rawGetFile(bench.http2.url("/a"));
    QVERIFY(bench.waitForEnds());
    const auto headers = bench.recorder.last("s_rawGetFileFinished")
                             .at(2)
                             .value<QList<QNetworkReply::RawHeaderPair>>();
    QVERIFY(headers.contains({"x-some-name", "Some Value"}));
    QVERIFY(headers.contains({"Content-Length", QByteArray::number(document.size())}));
}

void tst_TarvisNetHttp2::keepsCookies()
{
    Http2Bench bench;
    bench.http2.on(
        "/a",
        Http2Server::bytes(document, 200, {{"set-cookie", "one=1"}, {"set-cookie", "two=2"}}));
    bench.http2.onRequest(Http2Server::bytes(document));
    bench.client->rawGet(bench.http2.url("/a"));
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.client->getCoockies()->cookiesForUrl(bench.http2.url("/b")).size(), 2);
    bench.client->rawGet(bench.http2.url("/b"));
    QVERIFY(bench.waitForEnds(2));
    // A file that another thread fetches has the same ones.
    bench.client->fetchBinary(bench.http2.url("/c"), bench.path("file"),
                              qulonglong(document.size()));
    QVERIFY(bench.waitForEnds(3));
    QCOMPARE(bench.http2.requests("/a").value(0).header("cookie"), QByteArray());
    QCOMPARE(bench.http2.requests("/b").value(0).header("cookie"), QByteArray("one=1; two=2"));
    QCOMPARE(bench.http2.requests("/c").value(0).header("cookie"), QByteArray("one=1; two=2"));
}

void tst_TarvisNetHttp2::isRedirected_data()
{
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("verb");
    for (const char *type : {"rawGet", "rawPost", "remoteBinary"}) {
        const RequestKind kind = requestkinds::of(type);
        for (const int status : {301, 302, 303, 307, 308}) {
            const bool isKept = status >= 307;
            QTest::addRow("%s, %d", type, status)
                << kind << status << (isKept ? QString(kind.verb) : QString("GET"));
        }
    }
}

// Within the server and to another one, and from there to one that speaks HTTP/1.1 only.
void tst_TarvisNetHttp2::isRedirected()
{
    QFETCH(const RequestKind, kind);
    QFETCH(const int, status);
    QFETCH(const QString, verb);
    Http2Bench bench;
    Http2Server other;
    const auto leadTo = [status](const QByteArray &target) {
        return Http2Server::bytes(QByteArray(), status, {{"location", target}});
    };
    bench.http2.on("/a/first", leadTo("second"));
    bench.http2.on("/a/second", leadTo("/third"));
    bench.http2.on("/third", leadTo(other.url("/fourth").toEncoded()));
    other.on("/fourth", leadTo(bench.server.url("/last").toEncoded()));
    bench.server.on("/last", answers::bytes(document));
    start(bench, kind, bench.http2.url("/a/first"));
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.ends(), QStringList{resultOf(kind, "/a/first")});
    QCOMPARE(bench.http2.seen(),
             QStringList{QString("h2: %1 /a/first, %2 /a/second, %2 /third").arg(kind.verb, verb)});
    QCOMPARE(other.seen(), QStringList{QString("h2: %1 /fourth").arg(verb)});
    QCOMPARE(bench.server.requests().size(), 1);
    const HttpRequest last = bench.server.requests().value(0);
    QCOMPARE(QString(last.method), verb);
    QCOMPARE(last.body, verb == "POST" ? operations::body : QByteArray());
}

void tst_TarvisNetHttp2::changesConnectionsInTime_data()
{
    QTest::addColumn<bool>("checked");
    QTest::newRow("redirects checked") << true;
    QTest::newRow("not checked") << false;
}

// Each hop is one of the requests that a connection serves before the server goes away.
void tst_TarvisNetHttp2::changesConnectionsInTime()
{
    QFETCH(const bool, checked);
    const int count = 500;
    TransferPolicy policy = Http2Bench::fast();
    policy.setRedirectsChecked(checked);
    Http2Bench bench(policy);
    bench.http2.on(
        "/moved",
        Http2Server::bytes(QByteArray(), 302, {{"location", bench.http2.url("/a").toEncoded()}}));
    bench.http2.on("/a", Http2Server::bytes(document));
    for (int i = 0; i < count; ++i)
        bench.client->rawGet(bench.http2.url(QString("/moved?%1").arg(i)));
    QVERIFY(bench.waitForEnds(count));
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.http2.requestCount(), 2 * count);
    QCOMPARE(bench.http2.seen().size(), 2);
}

void tst_TarvisNetHttp2::keepsSecrets()
{
    Http2Bench bench;
    Http2Server other;
    bench.http2.on("/a", Http2Server::bytes(QByteArray(), 307, {{"location", "/b"}}));
    bench.http2.on(
        "/b", Http2Server::bytes(QByteArray(), 307, {{"location", other.url("/c").toEncoded()}}));
    other.on("/c", Http2Server::bytes(document));
    bench.client->rawGet(bench.http2.url("/a"), {}, {{"Authorization", "Bearer 1"}});
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.http2.requests("/b").value(0).header("authorization"), QByteArray("Bearer 1"));
    QCOMPARE(other.requests("/c").value(0).header("authorization"), QByteArray());
}

void tst_TarvisNetHttp2::boundsBodies_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("isPacked");
    QTest::addColumn<bool>("isTooLong");
    for (const bool isPacked : {false, true}) {
        const auto row = [isPacked](int size) {
            QTest::addRow("%d bytes%s", size, isPacked ? ", packed" : "")
                << QByteArray(size, '1') << isPacked << (size > 1000);
        };
        row(999);
        row(1000);
        row(1001);
        row(10000000);
    }
}

void tst_TarvisNetHttp2::boundsBodies()
{
    QFETCH(const QByteArray, content);
    QFETCH(const bool, isPacked);
    QFETCH(const bool, isTooLong);
    Http2Bench bench(fast([](TransferPolicy &policy) { policy.setMaximumBodySize(1000); }));
    const HttpHeaders coding = {{"content-encoding", "gzip"}};
    bench.http2.on("/a",
                   isPacked ? Http2Server::bytes(gzip(content), 200, coding)
                            : Http2Server::bytes(content));
    bench.http2.on("/b", Http2Server::bytes(document));
    bench.client->rawGetFile(bench.http2.url("/a"));
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.ends(),
             QStringList{isTooLong ? QString("/a -227")
                                   : QString("/a s_rawGetFileFinished ") + content});
    QCOMPARE(bench.http2.requests("/a").size(), 1);

    bench.client->rawGet(bench.http2.url("/b"));
    QVERIFY(bench.waitForEnds(2));
    QCOMPARE(bench.ends().last(), resultOf(requestkinds::of(replies::raw_get), "/b"));
}

void tst_TarvisNetHttp2::endsInTime_data()
{
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<Adjust>("adjust");
    QTest::addColumn<Handler>("serve");
    for (const char *type : {"rawGet", "rawPost", "remoteBinary"}) {
        const RequestKind kind = requestkinds::of(type);
        const Adjust idle = [](TransferPolicy &policy) {
            policy.setIdleTimeout(shortIdleMsec);
            policy.setMaximumRetries(0);
        };
        const Adjust total = [](TransferPolicy &policy) { policy.setTotalTimeout(shortIdleMsec); };
        const Handler begin = [](const HttpRequest &, Http2Response &response) {
            response.sendHead(200, {}, document.size());
            response.write(document.left(3));
        };
        QTest::addRow("idle, %s", type) << kind << idle << Http2Server::withhold();
        QTest::addRow("idle within the body, %s", type) << kind << idle << begin;
        QTest::addRow("in all, %s", type) << kind << total << Http2Server::withhold();
        QTest::addRow("in all within the body, %s", type) << kind << total << begin;
    }
}

void tst_TarvisNetHttp2::endsInTime()
{
    QFETCH(const RequestKind, kind);
    QFETCH(const Adjust, adjust);
    QFETCH(const Handler, serve);
    Http2Bench bench(fast(adjust));
    bench.http2.on("/a", serve);
    bench.http2.on("/b", Http2Server::bytes(document));
    start(bench, kind, bench.http2.url("/a"));
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.ends(), QStringList{"/a -223"});
    QCOMPARE(bench.http2.requests("/a").size(), 1);

    bench.client->rawGet(bench.http2.url("/b"));
    QVERIFY(bench.waitForEnds(2));
    QCOMPARE(bench.ends().last(), resultOf(requestkinds::of(replies::raw_get), "/b"));
}

// Who did not ask the server would wait for longer than the test does.
void tst_TarvisNetHttp2::triesAgain()
{
    Http2Bench bench(fast([](TransferPolicy &policy) { policy.setRetryDelay(longDelay); }));
    const Handler busy = Http2Server::bytes(QByteArray(), 503, {{"retry-after", "0"}});
    bench.http2.on("/a", {busy, busy, Http2Server::bytes(document)});
    bench.client->rawGet(bench.http2.url("/a"));
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.ends(), QStringList{resultOf(requestkinds::of(replies::raw_get), "/a")});
    // An answer that is an error is still an answer.
    QCOMPARE(bench.http2.seen(), QStringList{"h2: GET /a, GET /a, GET /a"});
}

void tst_TarvisNetHttp2::reportsStatus()
{
    Http2Bench bench;
    bench.http2.on("/a", Http2Server::bytes(R"({"why":"gone"})", 404));
    bench.client->rawPost(bench.http2.url("/a"), "{}");
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.ends(), QStringList{"/a -217"});
    const QJsonObject told = bench.error().at(2).toJsonDocument().object();
    QCOMPARE(told.value("httpStatus"), QJsonValue(404));
    QCOMPARE(told.value("body"), QJsonValue(QJsonObject{{"why", "gone"}}));
}

void tst_TarvisNetHttp2::resumes()
{
    const QByteArray content = HttpResponse::generated(0, 100000);
    Http2Bench bench;
    const Handler cut = [content](const HttpRequest &, Http2Response &response) {
        response.sendHead(200, tag, content.size());
        response.write(content.left(40000));
        response.cut();
    };
    bench.http2.on("/a", {cut, Http2Server::file(content, tag)});
    bench.client->fetchBinary(bench.http2.url("/a"), bench.path("file"), qulonglong(content.size()),
                              sha256(content));
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.ends(), QStringList{"/a s_finished"});
    QCOMPARE(files::read(bench.path("file")), content);
    QCOMPARE(bench.http2.seen(), QStringList({"h2: GET /a", "h2: GET /a"}));
    const HttpRequest second = bench.http2.requests("/a").value(1);
    QCOMPARE(second.header("range"), QByteArray("bytes=40000-"));
    QCOMPARE(second.header("if-range"), QByteArray("\"1\""));
    QCOMPARE(second.header("accept-encoding"), QByteArray("identity"));
}

// The file has changed in between.
void tst_TarvisNetHttp2::startsAfresh()
{
    const QByteArray old = HttpResponse::generated(0, 1000);
    const QByteArray content = HttpResponse::generated(5000, 1000);
    Http2Bench bench;
    const Handler cut = [old](const HttpRequest &, Http2Response &response) {
        response.sendHead(200, tag, old.size());
        response.write(old.left(400));
        response.reset(Http2Response::InternalError);
    };
    bench.http2.on("/a", {cut, Http2Server::bytes(content, 200, {{"etag", "\"2\""}})});
    bench.client->fetchBinary(bench.http2.url("/a"), bench.path("file"),
                              qulonglong(content.size()));
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.ends(), QStringList{"/a s_finished"});
    QCOMPARE(files::read(bench.path("file")), content);
    QCOMPARE(bench.http2.requests("/a").size(), 2);
    QCOMPARE(bench.http2.requests("/a").at(1).header("range"), QByteArray("bytes=400-"));
}

void tst_TarvisNetHttp2::checksHashes_data()
{
    QTest::addColumn<QString>("hash");
    QTest::addColumn<QString>("end");
    QTest::newRow("right") << sha256(document) << "/a s_finished";
    QTest::newRow("wrong") << sha256("something else") << "/a -226";
}

void tst_TarvisNetHttp2::checksHashes()
{
    QFETCH(const QString, hash);
    QFETCH(const QString, end);
    Http2Bench bench;
    files::write(bench.path("file"), "old");
    bench.http2.on("/a", Http2Server::file(document, tag));
    bench.client->fetchBinary(bench.http2.url("/a"), bench.path("file"),
                              qulonglong(document.size()), hash);
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.ends(), QStringList{end});
    QCOMPARE(files::read(bench.path("file")), bench.errors().isEmpty() ? document : "old");
}

// The others on the connection go on.
void tst_TarvisNetHttp2::abortsOne()
{
    Http2Bench bench;
    QList<Http2Response> arrived;
    bench.http2.onRequest(
        [&](const HttpRequest &, Http2Response &response) { arrived.append(response); });
    for (const char *path : {"/a", "/b", "/c"})
        bench.client->rawGet(bench.http2.url(path));
    QVERIFY(bench.http2.waitForRequests(3));
    bench.client->abortDownload(QString("/b"));
    for (Http2Response &response : arrived)
        response.send(200, {}, document);
    QVERIFY(bench.waitForEnds(3));
    const RequestKind kind = requestkinds::of(replies::raw_get);
    QCOMPARE(bench.ends(),
             QStringList({resultOf(kind, "/a"), "/b s_aborted", resultOf(kind, "/c")}));
    QCOMPARE(bench.http2.seen().size(), 1);
}

void tst_TarvisNetHttp2::refusesThePeerForAll_data()
{
    QTest::addColumn<bool>("isolated");
    QTest::newRow("failures isolated") << true;
    QTest::newRow("not isolated") << false;
}

// Qt tells of the connection by one of those that share it.
void tst_TarvisNetHttp2::refusesThePeerForAll()
{
    QFETCH(const bool, isolated);
    TransferPolicy policy = Http2Bench::fast();
    policy.setPinnedKeys({QByteArray(32, 'x')});
    policy.setFailuresIsolated(isolated);
    policy.setIdleTimeout(0);
    Http2Bench bench(policy);
    bench.http2.onRequest(Http2Server::bytes(document));
    QStringList expected;
    for (const char *path : {"/1", "/2", "/3", "/4", "/5"}) {
        bench.client->rawGet(bench.http2.url(path));
        expected.append(QString("%1 -222").arg(path));
        if (!isolated)
            expected.append(QString("%1 s_aborted").arg(path));
    }
    QVERIFY(bench.waitForEnds(int(expected.size())));
    QCOMPARE(bench.ends(), expected);
    QCOMPARE(bench.http2.seen(), QStringList());
}

const TestClass<tst_TarvisNetHttp2> testClass("tst_tarvisnet_http2");

} // namespace tst_tarvisnet_http2

#include "tst_tarvisnet_http2.moc"
