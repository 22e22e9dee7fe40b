#include "clientbench.h"
#include "files.h"
#include "operations.h"
#include "testclass.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QJsonObject>
#include <QtCore/QMetaMethod>
#include <QtTest/QTest>

#include <algorithm>
#include <functional>
#include <utility>

namespace tst_tarvisnet_checkedredirects {

using namespace clientaccess;

using Mode = ScriptedServer::Mode;

namespace {

const char removed[] = "s_repliesCountChanged";
const QByteArray body = R"({"answer":"last"})";
const QByteArray seen = R"({"answer":"redirect"})";
// Long enough not to be sent in one piece.
const QByteArray longBody(1000000, 'x');

TransferPolicy checked(int maximum = 10)
{
    TransferPolicy policy;
    policy.setRedirectsChecked(true);
    policy.setMaximumRedirects(maximum);
    policy.setErrorsExplained(true);
    return policy;
}

TransferPolicy withCheckedFiles()
{
    TransferPolicy policy = checked();
    policy.setFilesChecked(true);
    return policy;
}

/// An answer that leads to \a location, with a body that nobody must see.
ScriptedServer::Handler leadsTo(const QByteArray &location, int status = 302)
{
    return answers::bytes(seen, status, {{"Location", location}});
}

/// A client that checks redirects. Its server keeps what nobody answers.
struct CheckedBench : ClientBench {
    explicit CheckedBench(const TransferPolicy &policy = checked(), Mode mode = Mode::Http)
        : ClientBench(mode, policy)
    {
        server.on("/last", answers::bytes(body, 200, {{"X-Last", "yes"}}));
        server.onRequest([this](const HttpRequest &, HttpResponse &response) { held = response; });
    }

    QJsonObject explained() const { return error().value(2).toJsonDocument().object(); }

    HttpResponse held;
};

using Scenario = std::function<void(CheckedBench &)>;

/// Deletes the client in one of its signals.
class Deleter : public QObject {
    Q_OBJECT

public:
    Deleter(TarvisNet *client, const char *signal)
        : m_client(client)
    {
        const QMetaObject &type = TarvisNet::staticMetaObject;
        const QMetaMethod act = staticMetaObject.method(staticMetaObject.indexOfSlot("act()"));
        for (int i = type.methodOffset(); i < type.methodCount(); ++i) {
            if (type.method(i).name() == signal)
                connect(client, type.method(i), this, act, Qt::DirectConnection);
        }
    }

private Q_SLOTS:
    // Its destructor emits too.
    void act() { delete std::exchange(m_client, nullptr); }

private:
    TarvisNet *m_client;
};

} // namespace

} // namespace tst_tarvisnet_checkedredirects

Q_DECLARE_METATYPE(tst_tarvisnet_checkedredirects::Scenario)

namespace tst_tarvisnet_checkedredirects {

/// Redirects under a policy that has them checked.
class tst_TarvisNetCheckedRedirects : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void follows_data();
    void follows();
    void resolves_data();
    void resolves();
    void refuses_data();
    void refuses();
    void countsHops_data();
    void countsHops();
    void tellsWhereItFailed_data();
    void tellsWhereItFailed();
    void keepsSecretsFromOthers_data();
    void keepsSecretsFromOthers();
    void dropsTheLengthOfADroppedBody_data();
    void dropsTheLengthOfADroppedBody();
    void holdsOnePlace_data();
    void holdsOnePlace();
    void resumesDownloads_data();
    void resumesDownloads();
    void abortNamesTheFirst_data();
    void abortNamesTheFirst();
    void progressNamesTheFirst();
    void deletedInASignal_data();
    void deletedInASignal();
    void longChainKeepsNothing();
};

void tst_TarvisNetCheckedRedirects::follows_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<int>("status");
    for (const Operation &operation : operations::all()) {
        for (const int status : {301, 302, 303, 307, 308})
            QTest::addRow("%s, %d", operation.name, status) << operation << status;
    }
}

void tst_TarvisNetCheckedRedirects::follows()
{
    QFETCH(const Operation, operation);
    QFETCH(const int, status);
    const RequestKind kind = requestkinds::of(operation.kind);
    const bool isPath = operation.form == Operation::Path;
    // A path is asked for by https.
    CheckedBench bench(checked(), isPath ? Mode::Https : Mode::Http);
    bench.ask(bench.server.port());
    bench.server.on("/first", leadsTo("/second", status));
    bench.server.on("/second", leadsTo("/last", status));
    const FileData file = bench.file("file", quint64(body.size()));
    operation.call(*bench.client, isPath ? QStringLiteral("/first") : bench.url("/first"), file);
    QVERIFY(bench.recorder.waitFor(removed, 2));

    const bool isPost = qstrcmp(kind.verb, "POST") == 0;
    const bool becomesGet = status == 303 || (isPost && status < 303);
    const HttpRequest first = bench.server.requests("/first").value(0);
    const HttpRequest last = bench.server.requests("/last").value(0);
    QCOMPARE(first.method, QByteArray(kind.verb));
    QCOMPARE(last.method, becomesGet ? QByteArray("GET") : first.method);
    QCOMPARE(last.body, becomesGet ? QByteArray() : first.body);
    for (const char *header : {"user-agent", "content-type", "connection"})
        QCOMPARE(last.header(header), first.header(header));

    QCOMPARE(bench.emitted().filter(kind.signal), QStringList(kind.signal));
    QVariantList result = bench.recorder.last(kind.signal);
    if (result.size() == 3) {
        QVERIFY(result.takeLast().value<QList<QNetworkReply::RawHeaderPair>>().contains(
            {"X-Last", "yes"}));
    }
    QVariantList expected = {bench.url("/first")};
    if (kind.result == Result::Document)
        expected.prepend(QJsonDocument::fromJson(body));
    if (kind.result == Result::Bytes)
        expected.prepend(body);
    QCOMPARE(result, expected);
    const bool isSaved = kind.isBinary() || QByteArray(kind.name).endsWith("File");
    QCOMPARE(files::read(file.filePath), isSaved ? body : QByteArray());
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.server.requests().size(), 3);
}

void tst_TarvisNetCheckedRedirects::resolves_data()
{
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<QByteArray>("target");
    const auto row = [](const char *name, const QByteArray &location, const QByteArray &target) {
        QTest::newRow(name) << location << target;
    };
    row("relative", "last", "/a/b/last");
    row("upwards", "../last?c=1", "/a/last?c=1");
    row("path", "/last", "/last");
    row("query only", "?c=1", "/a/b/first?c=1");
    row("without a scheme", "//127.0.0.1:PORT/last", "/last");
    row("whole", "http://127.0.0.1:PORT/last?c=1", "/last?c=1");
    row("capitals", "HTTP://127.0.0.1:PORT/last", "/last");
    row("another host", "http://localhost:PORT/last", "/last");
    row("fragment", "/last#part", "/last");
    row("encoded", "/l%61st?c=%2F%20", "/last?c=%2F%20");
    row("with a blank", "/la st", "/la%20st");
    row("not ASCII", "/l\xc3\xa4st", "/l%C3%A4st");
}

void tst_TarvisNetCheckedRedirects::resolves()
{
    QFETCH(QByteArray, location);
    QFETCH(const QByteArray, target);
    CheckedBench bench;
    location.replace("PORT", QByteArray::number(bench.server.port()));
    bench.server.onRequest([&location](const HttpRequest &request, HttpResponse &response) {
        const bool isFirst = request.target == "/a/b/first?x=1";
        (isFirst ? leadsTo(location) : answers::bytes(body))(request, response);
    });
    bench.client->rawGet(bench.server.url("/a/b/first?x=1"));
    QVERIFY(bench.recorder.waitFor(removed, 2));
    QCOMPARE(bench.recorder.last("s_rawGet"),
             QVariantList({QJsonDocument::fromJson(body), bench.url("/a/b/first?x=1")}));
    QCOMPARE(bench.server.requests().value(1).target, target);
}

void tst_TarvisNetCheckedRedirects::refuses_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<int>("code");
    const auto rows = [](int code, int status, const QByteArray &location, Mode mode = Mode::Http) {
        for (const RequestKind &kind : requestkinds::all()) {
            if (*kind.signal) {
                QTest::addRow("%s: %d, %s", kind.name, status,
                              location.isNull() ? "nowhere" : location.constData())
                    << QString(kind.name) << mode << status << location << code;
            }
        }
    };
    rows(-224, 302, "ftp://127.0.0.1/last");
    rows(-224, 307, "file:///etc/passwd");
    rows(-224, 303, "data:text/plain,last");
    rows(-224, 301, "mailto:someone@example.org");
    rows(-224, 308, "http:///last");
    rows(-224, 302, "http://");
    rows(-224, 302, "http://127.0.0.1:99999/last");
    rows(-224, 302, "http://127.0.0.1:1/", Mode::Https);
    rows(-203, 301, QByteArray());
    rows(-203, 307, "");
    rows(-203, 300, "/last");
    rows(-203, 300, QByteArray());
    rows(-203, 304, QByteArray());
    rows(-203, 305, "/last");
    rows(-203, 306, "/last");
}

void tst_TarvisNetCheckedRedirects::refuses()
{
    QFETCH(const QString, kind);
    QFETCH(const Mode, mode);
    QFETCH(const int, status);
    QFETCH(const QByteArray, location);
    QFETCH(const int, code);
    CheckedBench bench(checked(), mode);
    bench.server.on("/first",
                    location.isNull() ? answers::bytes(seen, status) : leadsTo(location, status));
    requestkinds::start(*bench.client, requestkinds::of(kind), bench.server.url("/first"),
                        bench.path("file"), 100);
    QVERIFY(bench.recorder.waitFor(removed, 2));

    QCOMPARE(bench.emitted().filter("s_errorChanged").size(), 1);
    QCOMPARE(bench.error().mid(0, 2), failure(code, bench.url("/first")).mid(0, 2));
    QVERIFY(!bench.explained().value("reason").toString().isEmpty());
    QCOMPARE(bench.explained().value("httpStatus").toInt(), status);
    QVERIFY(!bench.explained().contains("url"));
    QCOMPARE(bench.recorder.count(requestkinds::of(kind).signal), 0);
    QCOMPARE(bench.recorder.count("s_aborted"), 0);
    QCOMPARE(bench.server.requests().size(), 1);
}

void tst_TarvisNetCheckedRedirects::countsHops_data()
{
    QTest::addColumn<int>("maximum");
    QTest::addColumn<int>("hops");
    QTest::newRow("none allowed") << 0 << 1;
    QTest::newRow("none needed") << 0 << 0;
    QTest::newRow("as many as allowed") << 3 << 3;
    QTest::newRow("one more") << 3 << 4;
    QTest::newRow("a loop") << 10 << -1;
}

void tst_TarvisNetCheckedRedirects::countsHops()
{
    QFETCH(const int, maximum);
    QFETCH(const int, hops);
    CheckedBench bench(checked(maximum));
    int left = hops;
    bench.server.on("/first", [&left](const HttpRequest &request, HttpResponse &response) {
        (left-- == 0 ? answers::bytes(body) : leadsTo("/first"))(request, response);
    });
    bench.get({"/first"});
    QVERIFY(bench.recorder.waitFor(removed, 2));

    const bool isRefused = hops < 0 || hops > maximum;
    QCOMPARE(bench.errors(), isRefused ? QList<int>({-224}) : QList<int>());
    QCOMPARE(bench.recorder.count("s_rawGet"), isRefused ? 0 : 1);
    QCOMPARE(bench.server.requests().size(), isRefused ? maximum + 1 : hops + 1);
}

void tst_TarvisNetCheckedRedirects::tellsWhereItFailed_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<int>("code");
    QTest::newRow("refused") << 302 << QByteArray("ftp://127.0.0.1/") << -224;
    QTest::newRow("nowhere") << 302 << QByteArray() << -203;
    QTest::newRow("not modified") << 304 << QByteArray() << -203;
    QTest::newRow("missing") << 404 << QByteArray() << -217;
    QTest::newRow("forbidden") << 401 << QByteArray() << -213;
}

void tst_TarvisNetCheckedRedirects::tellsWhereItFailed()
{
    QFETCH(const int, status);
    QFETCH(const QByteArray, location);
    QFETCH(const int, code);
    TransferPolicy policy = checked();
    policy.setFailuresIsolated(true);
    CheckedBench bench(policy);
    bench.server.on("/first", leadsTo("/second"));
    bench.server.on("/second", answers::redirect(status, location));
    bench.get({"/first"});
    QVERIFY(bench.recorder.waitFor(removed, 2));

    QCOMPARE(bench.errors(), QList<int>({code}));
    QCOMPARE(bench.error().value(1).toString(), bench.url("/first"));
    QCOMPARE(bench.explained().value("url").toString(), bench.url("/second"));
    QCOMPARE(bench.explained().value("httpStatus").toInt(), status);
}

void tst_TarvisNetCheckedRedirects::keepsSecretsFromOthers_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<bool>("isKnownForm");
    QTest::addColumn<bool>("isSent");
    for (const bool isKnownForm : {false, true}) {
        const auto row = [isKnownForm](const char *name, const QString &target, bool isSent) {
            QTest::addRow("%s, %s", name, isKnownForm ? "known" : "raw")
                << target << isKnownForm << isSent;
        };
        row("same server", "/last", true);
        row("same server, in full", "http://127.0.0.1:OWN/last", true);
        row("another port", "http://127.0.0.1:OTHER/last", false);
        row("another name", "http://localhost:OWN/last", false);
        row("another scheme", "https://127.0.0.1:TLS/last", false);
        row("elsewhere and back", "http://127.0.0.1:OTHER/back", false);
    }
}

void tst_TarvisNetCheckedRedirects::keepsSecretsFromOthers()
{
    QFETCH(QString, target);
    QFETCH(const bool, isKnownForm);
    QFETCH(const bool, isSent);
    CheckedBench bench;
    ScriptedServer other;
    ScriptedServer tls(Mode::Https);
    target.replace("OWN", QString::number(bench.server.port()))
        .replace("OTHER", QString::number(other.port()))
        .replace("TLS", QString::number(tls.port()));
    bench.server.on("/first", leadsTo(target.toLatin1()));
    other.on("/back", leadsTo(bench.server.url("/last").toEncoded()));
    other.on("/last", answers::bytes(body));
    tls.on("/last", answers::bytes(body));

    ReplyData asked = record("rawGet", bench.server.url("/first"));
    QNetworkRequest &request = asked.request;
    request.setRawHeader("authorization", "Basic c2VjcmV0");
    request.setRawHeader("Proxy-Authorization", "Basic c2VjcmV0");
    request.setRawHeader("X-Own", "yes");
    request.setRawHeader("Range", "bytes=3-");
    if (isKnownForm) {
        const QVariant cookies =
            QVariant::fromValue(QList<QNetworkCookie>({QNetworkCookie("name", "secret")}));
        request.setHeader(QNetworkRequest::CookieHeader, cookies);
    } else {
        request.setRawHeader("Cookie", "name=secret");
    }
    bench.add(asked);
    QVERIFY(bench.recorder.waitFor("s_rawGet"));

    const HttpRequest first = bench.server.requests("/first").value(0);
    const QList<HttpRequest> arrived = bench.server.requests("/last") + other.requests("/last")
        + other.requests("/back") + tls.requests("/last");
    for (const HttpRequest &last : arrived) {
        for (const char *name : {"authorization", "cookie", "proxy-authorization"}) {
            QVERIFY(first.headers.contains(name));
            QCOMPARE(last.header(name), isSent ? first.header(name) : QByteArray());
            QCOMPARE(last.headers.contains(name), isSent);
        }
        for (const char *name : {"x-own", "range", "content-type"})
            QCOMPARE(last.header(name), first.header(name));
    }
}

void tst_TarvisNetCheckedRedirects::dropsTheLengthOfADroppedBody_data()
{
    QTest::addColumn<bool>("isKnownForm");
    QTest::newRow("raw") << false;
    QTest::newRow("known") << true;
}

void tst_TarvisNetCheckedRedirects::dropsTheLengthOfADroppedBody()
{
    QFETCH(const bool, isKnownForm);
    CheckedBench bench;
    bench.server.on("/first", leadsTo("/last", 303));
    ReplyData asked = record("rawPost", bench.server.url("/first"));
    asked.data = operations::body;
    if (isKnownForm)
        asked.request.setHeader(QNetworkRequest::ContentLengthHeader, asked.data.size());
    else
        asked.request.setRawHeader("Content-Length", QByteArray::number(asked.data.size()));
    bench.add(asked);
    QVERIFY(bench.recorder.waitFor("s_rawPost"));
    QCOMPARE(bench.server.requests("/first").value(0).body, operations::body);
    QVERIFY(!bench.server.requests("/last").value(0).headers.contains("content-length"));
}

void tst_TarvisNetCheckedRedirects::holdsOnePlace_data()
{
    QTest::addColumn<Scenario>("end");
    QTest::addColumn<QString>("outcome");
    const auto row = [](const char *name, const QString &outcome, const Scenario &end) {
        QTest::newRow(name) << end << outcome;
    };
    row("result", "s_rawGet", [](CheckedBench &bench) { bench.held.send(200, {}, body); });
    row("missing", "s_errorChanged", [](CheckedBench &bench) { bench.held.send(404); });
    row("refused", "s_errorChanged", [](CheckedBench &bench) {
        bench.held.send(302, {{"Location", "ftp://127.0.0.1/"}});
    });
    row("nowhere", "s_errorChanged", [](CheckedBench &bench) { bench.held.send(302); });
    row("cut", "s_errorChanged", [](CheckedBench &bench) {
        bench.held.sendHead(200, {}, 1000);
        bench.held.write("part");
        bench.held.cut();
    });
    row("aborted", "s_aborted", [](CheckedBench &bench) { bench.client->abortDownload("/first"); });
}

void tst_TarvisNetCheckedRedirects::holdsOnePlace()
{
    QFETCH(const Scenario, end);
    QFETCH(const QString, outcome);
    TransferPolicy policy = checked();
    policy.setFailuresIsolated(true);
    CheckedBench bench(policy);
    bench.client->setParallelRequestsCount(2);
    bench.server.on("/other", answers::json({{"other", true}}));
    bench.server.on("/first", leadsTo("/second"));
    bench.server.on("/second", leadsTo("/held"));
    bench.get({"/first"});
    QVERIFY(bench.server.waitForRequests(3));
    const HttpResponse held = bench.held;
    QCOMPARE(bench.running().size(), 1);

    // The second place is free, and the only one.
    bench.get({"/withheld", "/other"});
    QVERIFY(bench.server.waitForRequests(4));
    QVERIFY(bench.server.requests("/other").isEmpty());
    bench.held = held;
    bench.forget();
    end(bench);
    QVERIFY(bench.server.waitForRequests(5));
    QCOMPARE(bench.server.requests("/other").size(), 1);
    QCOMPARE(bench.recorder.count(outcome), 1);
    QCOMPARE(bench.recorder.last(outcome).value(outcome == "s_aborted" ? 0 : 1).toString(),
             bench.url("/first"));
}

void tst_TarvisNetCheckedRedirects::resumesDownloads_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    QTest::newRow("files not checked") << checked();
    QTest::newRow("files checked") << withCheckedFiles();
}

void tst_TarvisNetCheckedRedirects::resumesDownloads()
{
    QFETCH(const TransferPolicy, policy);
    const QByteArray content = HttpResponse::generated(0, 1000);
    const QString hash = QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex();
    CheckedBench bench(policy);
    ScriptedServer other;
    bench.server.on("/first", leadsTo(other.url("/file").toEncoded(), 307));
    other.on("/file", answers::cutShort(content.left(400), content.size()));
    const auto fetch = [&] {
        bench.client->fetchBinary(bench.server.url("/first"), bench.path("file"),
                                  qulonglong(content.size()), hash);
    };
    fetch();
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    other.on("/file", answers::file(content));
    fetch();
    QVERIFY(bench.recorder.waitFor("s_finished"));

    QCOMPARE(bench.errors(), QList<int>({-203}));
    QCOMPARE(bench.recorder.last("s_finished"), QVariantList{bench.url("/first")});
    QCOMPARE(files::read(bench.path("file")), content);
    QCOMPARE(bench.server.requests("/first").last().header("range"), QByteArray("bytes=400-"));
    QCOMPARE(other.requests("/file").last().header("range"), QByteArray("bytes=400-"));
}

void tst_TarvisNetCheckedRedirects::abortNamesTheFirst_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("any") << QString();
    QTest::newRow("by its path") << QString("/first");
}

void tst_TarvisNetCheckedRedirects::abortNamesTheFirst()
{
    QFETCH(const QString, path);
    CheckedBench bench;
    bench.server.on("/first", leadsTo("/second"));
    bench.server.on("/second", leadsTo("/held"));
    bench.get({"/first"});
    QVERIFY(bench.server.waitForRequests(3));
    bench.forget();
    bench.client->abortDownload(path);
    QCOMPARE(bench.abortedUrls(), bench.urls({"/first"}));
    QCOMPARE(bench.emitted(), QStringList({removed, "s_aborted"}));
    QVERIFY(bench.running().isEmpty());
}

void tst_TarvisNetCheckedRedirects::progressNamesTheFirst()
{
    CheckedBench bench;
    bench.server.on("/first", leadsTo("/second", 307));
    bench.server.on("/second", leadsTo("/last", 307));
    bench.client->rawPost(bench.server.url("/first"), longBody);
    QVERIFY(bench.recorder.waitFor("s_rawPost"));
    for (const char *name :
         {"s_uploadFileProgress", "s_downloadFileProgress", "s_downloadFileBytesProgress"}) {
        QVERIFY(bench.recorder.count(name) > 0);
        for (const QVariantList &arguments : bench.recorder.of(name))
            QCOMPARE(arguments.last().toString(), bench.url("/first"));
    }
}

void tst_TarvisNetCheckedRedirects::deletedInASignal_data()
{
    QTest::addColumn<Scenario>("run");
    QTest::addColumn<QByteArray>("signal");
    const auto rows = [](const char *name, const Scenario &run, const QList<QByteArray> &all) {
        for (const QByteArray &signal : all)
            QTest::addRow("%s, %s", name, signal.constData()) << run << signal;
    };
    const auto post = [](CheckedBench &bench) {
        bench.client->rawPost(bench.server.url("/first"), longBody);
    };
    rows("posted", post,
         {removed, "s_rawPost", "s_uploadFileProgress", "s_downloadFileProgress",
          "s_downloadFileBytesProgress"});
    rows("downloaded",
         [](CheckedBench &bench) {
             bench.client->fetchBinary(bench.server.url("/first"), bench.path("file"),
                                       qulonglong(body.size()));
         },
         {removed, "s_startPing", "s_stopPing", "s_downloadFileProgress",
          "s_downloadFileBytesProgress", "s_finished"});
    rows("missing",
         [post](CheckedBench &bench) {
             bench.server.on("/last", answers::status(404));
             post(bench);
         },
         {"s_errorChanged"});
    rows("refused",
         [post](CheckedBench &bench) {
             bench.server.on("/last", leadsTo("ftp://127.0.0.1/"));
             post(bench);
         },
         {"s_errorChanged"});
    rows("aborted",
         [post](CheckedBench &bench) {
             bench.server.on("/last", [&bench](const HttpRequest &, HttpResponse &) {
                 bench.client->abortDownload();
             });
             post(bench);
         },
         {"s_aborted"});
}

void tst_TarvisNetCheckedRedirects::deletedInASignal()
{
    QFETCH(const Scenario, run);
    QFETCH(const QByteArray, signal);
    CheckedBench bench;
    bench.server.on("/first", leadsTo("/second", 307));
    bench.server.on("/second", leadsTo("/last", 307));
    const Deleter deleter(bench.client, signal);
    run(bench);
    QTRY_VERIFY(!bench.client);
    // What is left behind is deleted now.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
}

void tst_TarvisNetCheckedRedirects::longChainKeepsNothing()
{
    const int hops = 5000;
    int mostReplies = 0;
    CheckedBench bench(checked(hops));
    bench.server.onRequest([&](const HttpRequest &request, HttpResponse &response) {
        mostReplies = std::max(mostReplies, int(bench.replies().size()));
        const int left = request.path().mid(1).toInt();
        (left == 0 ? answers::bytes(body) : leadsTo(QByteArray::number(left - 1)))(request,
                                                                                   response);
    });
    bench.get({"/" + QString::number(hops)});
    QVERIFY(bench.recorder.waitFor(removed, 2, 60000));
    QCOMPARE(bench.recorder.last("s_rawGet").value(1).toString(),
             bench.url("/" + QString::number(hops)));
    QCOMPARE(bench.server.requests().size(), hops + 1);
    // One that runs, and those that are about to be deleted.
    QVERIFY2(mostReplies <= 3, qPrintable(QString::number(mostReplies)));
}

const TestClass<tst_TarvisNetCheckedRedirects> testClass("tst_tarvisnet_checkedredirects");

} // namespace tst_tarvisnet_checkedredirects

#include "tst_tarvisnet_checkedredirects.moc"
