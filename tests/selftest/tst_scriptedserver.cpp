#include "answers.h"
#include "signalrecorder.h"
#include "testclass.h"

#include <QtCore/QScopedPointer>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QTest>

#include <arpa/inet.h>
#include <cerrno>
#include <functional>
#include <sys/socket.h>
#include <unistd.h>

Q_DECLARE_METATYPE(std::function<void(HttpResponse &)>)

namespace tst_scriptedserver {

using Script = std::function<void(HttpResponse &)>;

namespace {

const QByteArray plainGet = "GET / HTTP/1.1\r\n\r\n";

ScriptedServer::Handler scripted(const Script &script)
{
    return [script](const HttpRequest &, HttpResponse &response) { script(response); };
}

/// A bare connection, which shows the bytes and the end of it as they are.
struct RawClient : QTcpSocket {
    explicit RawClient(quint16 port) { connectToHost("127.0.0.1", port); }
};

// How the operating system reports the end of a connection whose request the server ended: 0 for a
// close, the error number otherwise. Qt does not tell them apart.
int endSeenBySystem(ScriptedServer *server)
{
    const int client = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(server->port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(client, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0
        || ::send(client, plainGet.constData(), size_t(plainGet.size()), 0) != plainGet.size()
        || !server->waitForRequests(1) || !server->waitForConnections(0))
        qFatal("the server did not end the connection");

    char bytes[1000];
    ssize_t received = 1;
    while (received > 0)
        received = ::recv(client, bytes, sizeof bytes, 0);
    const int error = received < 0 ? errno : 0;
    ::close(client);
    return error;
}

} // namespace

/// What the other tests cannot see for themselves: each byte, each end of a connection. Modes and
/// certificates show in the tests of faults.
class tst_ScriptedServer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_manager.reset(new QNetworkAccessManager); }

    void parsesRequests();
    void routesByPath();
    void putsOut_data();
    void putsOut();
    void closesAsTheClientWants_data();
    void closesAsTheClientWants();
    void leavesOutTheBodyOfHead();
    void dribbles();
    void answersLater();
    void cutIsNoReset();
    void portsAreBelowTheLimit();
    void servesRanges_data();
    void servesRanges();
    void generatedBytesDependOnTheirPlace();

private:
    QNetworkReply *finished(const QNetworkRequest &request);
    QByteArray bodyOf(const QUrl &url) { return finished(QNetworkRequest(url))->readAll(); }

    QScopedPointer<QNetworkAccessManager> m_manager;
};

QNetworkReply *tst_ScriptedServer::finished(const QNetworkRequest &request)
{
    QNetworkReply *const reply = m_manager->get(request);
    SignalRecorder recorder(reply, {"finished"});
    if (!recorder.waitFor("finished"))
        qFatal("no answer from %s", qPrintable(request.url().toString()));
    return reply;
}

// However they arrive.
void tst_ScriptedServer::parsesRequests()
{
    const QByteArray text = "PATCH /a%20b/c?x=1&y=%2F HTTP/1.1\r\nX-Second: 1\r\nx-first:2\r\n"
                            "X-SECOND:  3 \r\nContent-Length: 4\r\n\r\nbody"
                            "GET /next HTTP/1.1\r\n\r\n";
    HttpRequestParser parser;
    HttpRequest request;
    QList<HttpRequest> found;
    for (const char byte : text) {
        parser.feed(QByteArray(1, byte));
        if (parser.next(&request) == HttpRequestParser::Result::Complete)
            found.append(request);
    }

    QCOMPARE(found.size(), 2);
    const HttpRequest &first = found.first();
    QCOMPARE(first.method, QByteArray("PATCH"));
    QCOMPARE(first.target, QByteArray("/a%20b/c?x=1&y=%2F"));
    QCOMPARE(first.path(), QByteArray("/a%20b/c"));
    QCOMPARE(
        first.rawHeaders,
        HttpHeaders(
            {{"X-Second", "1"}, {"x-first", "2"}, {"X-SECOND", "3"}, {"Content-Length", "4"}}));
    QCOMPARE(first.header("x-second"), QByteArray("3"));
    QVERIFY(first.header("x-missing").isNull());
    QCOMPARE(first.body, QByteArray("body"));
    QCOMPARE(found.last().target, QByteArray("/next"));
    QVERIFY(found.last().headers.isEmpty());
    QVERIFY(found.last().body.isEmpty());
}

void tst_ScriptedServer::routesByPath()
{
    ScriptedServer server;
    server.on("/known", [&server](const HttpRequest &, HttpResponse &response) {
        server.on("/known", answers::bytes("by path"));
        response.send(200, {}, "at first");
    });

    QCOMPARE(bodyOf(server.url("/known?query")), QByteArray("at first"));
    QCOMPARE(finished(QNetworkRequest(server.url("/known/more")))->error(),
             QNetworkReply::ContentNotFoundError);
    server.onRequest(answers::bytes("by default"));
    QCOMPARE(bodyOf(server.url("/known")), QByteArray("by path"));
    QCOMPARE(bodyOf(server.url("/known/more")), QByteArray("by default"));

    QCOMPARE(server.requests().size(), 4);
    QCOMPARE(server.requests("/known").size(), 2);
    QCOMPARE(server.requests("/known").first().target, QByteArray("/known?query"));
    QVERIFY(server.waitForRequests(4, 0));
    QVERIFY(!server.waitForRequests(5, 0));
    server.clear();
    QVERIFY(server.requests().isEmpty());
    QCOMPARE(bodyOf(server.url("/known")), QByteArray("by path"));
}

void tst_ScriptedServer::putsOut_data()
{
    QTest::addColumn<bool>("keeps");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Script>("script");
    const auto add = [](const char *name, bool keeps, const QByteArray &bytes,
                        const Script &script) { QTest::newRow(name) << keeps << bytes << script; };

    add("whole", true, "HTTP/1.1 200 OK\r\nB: 1\r\nA: 2\r\nContent-Length: 4\r\n\r\nbody",
        [](HttpResponse &r) {
            r.send(200, {{"B", "1"}, {"A", "2"}}, "body");
        });
    add("empty", true, "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n",
        [](HttpResponse &r) { r.send(404); });
    add("no content", true, "HTTP/1.1 204 No Content\r\n\r\n",
        [](HttpResponse &r) { r.send(204, {}, "body"); });
    add("unknown status", true, "HTTP/1.1 299 Scripted\r\nContent-Length: 0\r\n\r\n",
        [](HttpResponse &r) { r.send(299); });
    add("server wants to close", false,
        "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\n\r\n", [](HttpResponse &r) {
            r.send(200, {{"Connection", "close"}});
        });
    add("own length", false, "HTTP/1.1 200 OK\r\ncontent-length: 9\r\n\r\nbody",
        [](HttpResponse &r) {
            r.send(200, {{"content-length", "9"}}, "body");
        });
    add("until close", false, "HTTP/1.1 200 OK\r\n\r\nbody", [](HttpResponse &r) {
        r.sendHead(200);
        r.write("bo");
        r.write("dy");
        r.finish();
    });
    add("announced", true, "HTTP/1.1 206 Partial Content\r\nContent-Length: 4\r\n\r\nbody",
        [](HttpResponse &r) {
            r.sendHead(206, {}, 4);
            r.write("bo");
            r.write("dy");
            r.finish();
        });
    add("chunked", true,
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
        "1c\r\nthis is a piece of 28 bytes.\r\n1\r\ny\r\n0\r\n\r\n",
        [](HttpResponse &r) {
            r.sendHead(200, {}, HttpResponse::Chunked);
            r.write("this is a piece of 28 bytes.");
            r.write("y");
            r.finish();
        });
    add("raw", false, "rubbish", [](HttpResponse &r) {
        r.writeRaw("rubbish");
        r.finish();
    });
    add("cut in mid-body", false, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nbody",
        [](HttpResponse &r) {
            r.sendHead(200, {}, 100);
            r.dribble("body", 1);
            r.cut();
        });
    add("reset in mid-body", false, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nbody",
        [](HttpResponse &r) {
            r.sendHead(200, {}, 100);
            r.write("body");
            r.reset();
        });
}

// A connection that is kept serves the next request too.
void tst_ScriptedServer::putsOut()
{
    QFETCH(bool, keeps);
    QFETCH(QByteArray, bytes);
    QFETCH(Script, script);

    ScriptedServer server;
    server.onRequest(scripted(script));
    RawClient client(server.port());
    client.write(plainGet);
    if (keeps) {
        QTRY_COMPARE(client.peek(1000), bytes);
        client.write(plainGet);
        QTRY_COMPARE(client.peek(1000), bytes + bytes);
    } else {
        QTRY_COMPARE(client.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(client.readAll(), bytes);
        QVERIFY(server.waitForConnections(0));
    }
}

void tst_ScriptedServer::closesAsTheClientWants_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::newRow("it says so") << QByteArray("GET / HTTP/1.1\r\nConnection: Close\r\n\r\n");
    QTest::newRow("it is old") << QByteArray("GET / HTTP/1.0\r\n\r\n");
}

void tst_ScriptedServer::closesAsTheClientWants()
{
    QFETCH(QByteArray, request);

    ScriptedServer server;
    server.onRequest(answers::bytes("body"));
    RawClient client(server.port());
    client.write(request);
    QTRY_COMPARE(client.state(), QAbstractSocket::UnconnectedState);
    QVERIFY(client.readAll().endsWith("\r\n\r\nbody"));
}

void tst_ScriptedServer::leavesOutTheBodyOfHead()
{
    ScriptedServer server;
    server.onRequest(answers::bytes("body"));
    RawClient client(server.port());
    client.write("HEAD / HTTP/1.1\r\n\r\nHEAD / HTTP/1.1\r\n\r\n");

    const QByteArray head("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n");
    QTRY_COMPARE(client.peek(1000), head + head);
}

void tst_ScriptedServer::dribbles()
{
    ScriptedServer server;
    server.onRequest(scripted([](HttpResponse &response) {
        response.sendHead(200);
        response.dribble("abcdefg", 3, 5);
        response.write("after it");
        response.finish();
    }));
    RawClient client(server.port());
    SignalRecorder recorder(&client, {"readyRead"});
    client.write(plainGet);

    QTRY_COMPARE(client.state(), QAbstractSocket::UnconnectedState);
    QVERIFY(client.readAll().endsWith("\r\n\r\nabcdefgafter it"));
    // The first piece leaves with the head; the others each have a pause before them.
    QVERIFY(recorder.count("readyRead") >= 3);
}

// Once, and only to the request that was asked.
void tst_ScriptedServer::answersLater()
{
    HttpResponse().send(200);

    ScriptedServer server;
    HttpResponse held;
    server.onRequest([&](const HttpRequest &, HttpResponse &response) { held = response; });
    server.on("/never", answers::withhold());
    RawClient client(server.port());
    client.write(plainGet + "GET /never HTTP/1.1\r\n\r\n");
    QVERIFY(server.waitForRequests(1));
    QVERIFY(!server.waitForRequests(2, 50));
    held.send(200, {}, "at last");
    QVERIFY(server.waitForRequests(2));
    held.send(200, {}, "again");
    held.writeRaw("again");
    held.reset();

    QTRY_VERIFY(client.peek(1000).endsWith("at last"));
    QVERIFY(!server.waitForConnections(0, 50));
    QVERIFY(client.readAll().endsWith("at last"));
    client.abort();
    QVERIFY(server.waitForConnections(0));
}

void tst_ScriptedServer::cutIsNoReset()
{
    ScriptedServer cutting;
    cutting.onRequest([](const HttpRequest &, HttpResponse &response) { response.cut(); });
    QCOMPARE(endSeenBySystem(&cutting), 0);

    ScriptedServer resetting;
    resetting.onRequest([](const HttpRequest &, HttpResponse &response) { response.reset(); });
    QCOMPARE(endSeenBySystem(&resetting), ECONNRESET);
}

// The probe keeps its port in a signed number of 16 bits.
void tst_ScriptedServer::portsAreBelowTheLimit()
{
    const ScriptedServer server;
    for (const quint16 port : {server.port(), ScriptedServer::freePort()})
        QVERIFY(port > 0 && port < 32768);
}

void tst_ScriptedServer::servesRanges_data()
{
    QTest::addColumn<QByteArray>("range");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("contentRange");
    QTest::addColumn<int>("from");
    const auto add = [](const char *name, const char *range, int status, const char *contentRange,
                        int from) {
        QTest::newRow(name) << QByteArray(range) << status << QByteArray(contentRange) << from;
    };
    add("none", nullptr, 200, nullptr, 0);
    add("from the start", "bytes=0-", 206, "bytes 0-999/1000", 0);
    add("from within", "bytes=400-", 206, "bytes 400-999/1000", 400);
    add("last byte", "bytes=999-", 206, "bytes 999-999/1000", 999);
    add("at the end", "bytes=1000-", 416, "bytes */1000", 1000);
    add("beyond", "bytes=1001-", 416, "bytes */1000", 1000);
}

void tst_ScriptedServer::servesRanges()
{
    QFETCH(QByteArray, range);
    QFETCH(int, status);
    QFETCH(QByteArray, contentRange);
    QFETCH(int, from);

    const QByteArray content = HttpResponse::generated(0, 1000);
    ScriptedServer server;
    server.on("/file", answers::file(content));
    server.on("/generated", answers::generatedFile(content.size()));
    for (const char *path : {"/file", "/generated"}) {
        QNetworkRequest request(server.url(path));
        if (!range.isNull())
            request.setRawHeader("Range", range);
        QNetworkReply *const reply = finished(request);
        QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), status);
        QCOMPARE(reply->rawHeader("Content-Range"), contentRange);
        QCOMPARE(reply->readAll(), content.mid(from));
    }
}

void tst_ScriptedServer::generatedBytesDependOnTheirPlace()
{
    const QByteArray whole = HttpResponse::generated(0, 200000);

    QCOMPARE(whole.mid(1234, 500), HttpResponse::generated(1234, 500));
    QVERIFY(whole.left(65536) != whole.mid(65536, 65536));
    QVERIFY(whole.left(4096) != whole.mid(4096, 4096));
}

const TestClass<tst_ScriptedServer> testClass("tst_scriptedserver");

} // namespace tst_scriptedserver

#include "tst_scriptedserver.moc"
