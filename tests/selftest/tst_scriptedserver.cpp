#include "answers.h"
#include "modes.h"
#include "rawclient.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <QtCore/QScopedPointer>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>
#include <QtTest/QTest>

#include <functional>

using Script = std::function<void(HttpResponse &)>;

Q_DECLARE_METATYPE(Script)

namespace {

ScriptedServer::Handler scripted(const Script &script)
{
    return [script](const HttpRequest &, HttpResponse &response) { script(response); };
}

} // namespace

/// What the server takes in and what it puts out.
class tst_ScriptedServer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_manager.reset(new QNetworkAccessManager); }

    void keepsRequests_data() { addModes(); }
    void keepsRequests();
    void keepsHeadersInOrder();
    void joinsRequestsThatArriveInPieces();
    void answersPipelinedRequestsInOrder();
    void closesOnMalformedRequests_data();
    void closesOnMalformedRequests();
    void waitForRequestsGivesUp();
    void clearForgetsRequestsOnly();
    void routesByPath();
    void handlerMayReplaceItself();
    void putsOut_data();
    void putsOut();
    void leavesOutTheBodyOfHead();
    void sends_data() { addModes(); }
    void sends();
    void dribbles_data() { addModes(); }
    void dribbles();
    void followsLongRedirectChains();

private:
    QNetworkReply *finished(const QNetworkRequest &request, const QByteArray &method = "GET",
                            const QByteArray &body = QByteArray());

    QScopedPointer<QNetworkAccessManager> m_manager;
};

QNetworkReply *tst_ScriptedServer::finished(const QNetworkRequest &request,
                                            const QByteArray &method, const QByteArray &body)
{
    QNetworkRequest trusting(request);
    trusting.setSslConfiguration(RawClient::trusting());
    QNetworkReply *const reply = m_manager->sendCustomRequest(trusting, method, body);
    SignalRecorder recorder(reply, {"finished"});
    if (!recorder.waitFor("finished", 1, 60000))
        qFatal("no answer from %s", qPrintable(request.url().toString()));
    return reply;
}

void tst_ScriptedServer::keepsRequests()
{
    QFETCH(ScriptedServer::Mode, mode);

    ScriptedServer server(mode);
    QNetworkRequest request(server.url("/a%20b/c?x=1&y=%2F"));
    request.setRawHeader("X-Own", "some value");
    request.setHeader(QNetworkRequest::ContentTypeHeader, "text/plain");
    const QByteArray body = HttpResponse::generated(0, 300000);
    finished(request, "PATCH", body);

    QCOMPARE(server.requests().size(), 1);
    const HttpRequest seen = server.requests().first();
    QCOMPARE(seen.method, QByteArray("PATCH"));
    QCOMPARE(seen.target, QByteArray("/a%20b/c?x=1&y=%2F"));
    QCOMPARE(seen.path(), QByteArray("/a%20b/c"));
    QCOMPARE(seen.version, QByteArray("HTTP/1.1"));
    QCOMPARE(seen.header("x-own"), QByteArray("some value"));
    QCOMPARE(seen.header("content-type"), QByteArray("text/plain"));
    QVERIFY(seen.header("x-missing").isNull());
    QVERIFY(seen.body == body);
}

void tst_ScriptedServer::keepsHeadersInOrder()
{
    ScriptedServer server;
    RawClient client(server);
    client.send("GET / HTTP/1.1\r\nX-Second: 1\r\nx-first:2\r\nX-SECOND:  3 \r\n\r\n");
    QVERIFY(server.waitForRequests(1));

    const HttpRequest seen = server.requests().first();
    QCOMPARE(seen.rawHeaders,
             HttpHeaders({{"X-Second", "1"}, {"x-first", "2"}, {"X-SECOND", "3"}}));
    QCOMPARE(seen.header("x-second"), QByteArray("3"));
    QVERIFY(seen.body.isEmpty());
}

void tst_ScriptedServer::joinsRequestsThatArriveInPieces()
{
    const QByteArray text = "POST /in/pieces HTTP/1.1\r\nContent-Length: 4\r\n\r\nbody"
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
    QCOMPARE(found.at(0).target, QByteArray("/in/pieces"));
    QCOMPARE(found.at(0).body, QByteArray("body"));
    QCOMPARE(found.at(1).target, QByteArray("/next"));
    QVERIFY(found.at(1).headers.isEmpty());
}

void tst_ScriptedServer::answersPipelinedRequestsInOrder()
{
    ScriptedServer server;
    HttpResponse first;
    server.on("/first", [&](const HttpRequest &, HttpResponse &response) { first = response; });
    server.on("/second", answers::bytes("second"));

    RawClient client(server);
    client.get("/first");
    client.get("/second");
    QVERIFY(server.waitForRequests(1));
    QVERIFY(!server.waitForRequests(2, 50));
    first.send(200, {}, "first");

    QVERIFY(client.waitFor("second"));
    QVERIFY(client.received().indexOf("first") < client.received().indexOf("second"));
}

void tst_ScriptedServer::closesOnMalformedRequests_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("one word") << QByteArray("rubbish\r\n\r\n");
    QTest::newRow("no version") << QByteArray("GET / FTP\r\n\r\n");
    QTest::newRow("header without colon") << QByteArray("GET / HTTP/1.1\r\nrubbish\r\n\r\n");
    QTest::newRow("bad length") << QByteArray("GET / HTTP/1.1\r\nContent-Length: x\r\n\r\n");
    QTest::newRow("negative") << QByteArray("GET / HTTP/1.1\r\nContent-Length: -1\r\n\r\n");
}

void tst_ScriptedServer::closesOnMalformedRequests()
{
    QFETCH(QByteArray, bytes);

    ScriptedServer server;
    RawClient client(server);
    client.send(bytes);

    QVERIFY(client.waitForEnd());
    QVERIFY(client.received().isEmpty());
    QVERIFY(server.requests().isEmpty());
}

void tst_ScriptedServer::waitForRequestsGivesUp()
{
    ScriptedServer server;
    RawClient client(server);
    client.get("/");

    QVERIFY(server.waitForRequests(1));
    QVERIFY(!server.waitForRequests(2, 50));
}

void tst_ScriptedServer::clearForgetsRequestsOnly()
{
    ScriptedServer server;
    server.on("/", answers::bytes("still there"));
    finished(QNetworkRequest(server.url()));
    server.clear();
    QVERIFY(server.requests().isEmpty());

    QCOMPARE(finished(QNetworkRequest(server.url()))->readAll(), QByteArray("still there"));
    QCOMPARE(server.requests().size(), 1);
    QCOMPARE(server.acceptedConnections(), 1);
}

void tst_ScriptedServer::routesByPath()
{
    ScriptedServer server;
    server.on("/known", answers::bytes("by path"));
    const auto bodyOf = [&](const QString &path) {
        return finished(QNetworkRequest(server.url(path)));
    };

    QCOMPARE(bodyOf("/known?query")->readAll(), QByteArray("by path"));
    QCOMPARE(bodyOf("/known/more")->error(), QNetworkReply::ContentNotFoundError);
    server.onRequest(answers::bytes("by default"));
    QCOMPARE(bodyOf("/known")->readAll(), QByteArray("by path"));
    QCOMPARE(bodyOf("/known/more")->readAll(), QByteArray("by default"));

    QCOMPARE(server.requests().size(), 4);
    QCOMPARE(server.requests("/known").size(), 2);
    QCOMPARE(server.requests("/known").first().target, QByteArray("/known?query"));
}

void tst_ScriptedServer::handlerMayReplaceItself()
{
    ScriptedServer server;
    server.on("/", [&server](const HttpRequest &, HttpResponse &response) {
        server.on("/", answers::bytes("later"));
        response.send(200, {}, "at first");
    });

    QCOMPARE(finished(QNetworkRequest(server.url()))->readAll(), QByteArray("at first"));
    QCOMPARE(finished(QNetworkRequest(server.url()))->readAll(), QByteArray("later"));
}

void tst_ScriptedServer::putsOut_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("whole") << Script([](HttpResponse &r) {
        r.send(200, {{"B", "1"}, {"A", "2"}}, "body");
    }) << QByteArray("HTTP/1.1 200 OK\r\nB: 1\r\nA: 2\r\nContent-Length: 4\r\n\r\nbody");
    QTest::newRow("empty") << Script([](HttpResponse &r) { r.send(404); })
                           << QByteArray("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    QTest::newRow("no content") << Script([](HttpResponse &r) { r.send(204, {}, "body"); })
                                << QByteArray("HTTP/1.1 204 No Content\r\n\r\n");
    QTest::newRow("unknown status")
        << Script([](HttpResponse &r) { r.send(299); })
        << QByteArray("HTTP/1.1 299 Scripted\r\nContent-Length: 0\r\n\r\n");
    QTest::newRow("own length") << Script([](HttpResponse &r) {
        r.send(200, {{"content-length", "9"}}, "body");
    }) << QByteArray("HTTP/1.1 200 OK\r\ncontent-length: 9\r\n\r\nbody");
    QTest::newRow("until close") << Script([](HttpResponse &r) {
        r.sendHead(200);
        r.write("bo");
        r.write("dy");
        r.finish();
    }) << QByteArray("HTTP/1.1 200 OK\r\n\r\nbody");
    QTest::newRow("announced") << Script([](HttpResponse &r) {
        r.sendHead(206, {}, 4);
        r.write("bo");
        r.write("dy");
        r.finish();
    }) << QByteArray("HTTP/1.1 206 Partial Content\r\nContent-Length: 4\r\n\r\nbody");
    QTest::newRow("chunked") << Script([](HttpResponse &r) {
        r.sendHead(200, {}, HttpResponse::Chunked);
        r.write("this is a piece of 28 bytes.");
        r.write("y");
        r.finish();
    })
                             << QByteArray(
                                    "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                    "1c\r\nthis is a piece of 28 bytes.\r\n1\r\ny\r\n0\r\n\r\n");
    QTest::newRow("raw") << Script([](HttpResponse &r) {
        r.writeRaw("rubbish");
        r.finish();
    }) << QByteArray("rubbish");
    QTest::newRow("cut in mid-body") << Script([](HttpResponse &r) {
        r.sendHead(200, {}, 100);
        r.dribble("body", 1);
        r.cut();
    }) << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nbody");
    QTest::newRow("reset in mid-body") << Script([](HttpResponse &r) {
        r.sendHead(200, {}, 100);
        r.write("body");
        r.reset();
    }) << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nbody");
}

void tst_ScriptedServer::putsOut()
{
    QFETCH(Script, script);
    QFETCH(QByteArray, bytes);

    ScriptedServer server;
    server.onRequest(scripted(script));
    RawClient client(server);
    client.send("GET / HTTP/1.1\r\nConnection: close\r\n\r\n");

    QVERIFY(client.waitForEnd());
    QCOMPARE(client.received(), bytes);
}

void tst_ScriptedServer::leavesOutTheBodyOfHead()
{
    ScriptedServer server;
    server.onRequest(answers::bytes("body"));
    RawClient client(server);
    client.send("HEAD / HTTP/1.1\r\n\r\nHEAD / HTTP/1.1\r\nConnection: close\r\n\r\n");

    QVERIFY(client.waitForEnd());
    const QByteArray head("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n");
    QCOMPARE(client.received(), head + head);
}

void tst_ScriptedServer::sends()
{
    QFETCH(ScriptedServer::Mode, mode);

    ScriptedServer server(mode);
    const QByteArray body = HttpResponse::generated(0, 300000);
    server.on("/whole", answers::bytes(body, 200, {{"X-Own", "value"}}));
    server.on("/chunked", scripted([body](HttpResponse &response) {
                  response.sendHead(200, {}, HttpResponse::Chunked);
                  response.write(body);
                  response.finish();
              }));

    QNetworkReply *const whole = finished(QNetworkRequest(server.url("/whole")));
    QCOMPARE(whole->error(), QNetworkReply::NoError);
    QCOMPARE(whole->rawHeader("X-Own"), QByteArray("value"));
    QVERIFY(whole->readAll() == body);
    QNetworkReply *const chunked = finished(QNetworkRequest(server.url("/chunked")));
    QCOMPARE(chunked->error(), QNetworkReply::NoError);
    QVERIFY(chunked->readAll() == body);
}

void tst_ScriptedServer::dribbles()
{
    QFETCH(ScriptedServer::Mode, mode);

    ScriptedServer server(mode);
    server.onRequest(scripted([](HttpResponse &response) {
        response.sendHead(200);
        response.dribble("abcdefg", 3, 5);
        response.write("after it");
        response.finish();
    }));
    RawClient client(server);
    client.get("/");

    QVERIFY(client.waitForEnd());
    QVERIFY(client.received().endsWith("\r\n\r\nabcdefgafter it"));
    // The first piece leaves with the head; the others each have a pause before them.
    QVERIFY(client.pieces().size() >= 3);
}

void tst_ScriptedServer::followsLongRedirectChains()
{
    const int hops = 20000;
    ScriptedServer server;
    server.onRequest([](const HttpRequest &request, HttpResponse &response) {
        const int hop = request.target.mid(1).toInt();
        const QByteArray next = '/' + QByteArray::number(hop + 1);
        answers::redirect(302, hop < hops ? next : QByteArray())(request, response);
    });
    RawClient client(server);
    SignalRecorder recorder(&client.socket(), {"disconnected"});
    connect(&client.socket(), &QSslSocket::readyRead, this, [&client] {
        const QByteArray answer = client.pieces().constLast();
        const int at = answer.indexOf("Location: ");
        if (at < 0)
            return client.socket().disconnectFromHost();
        const int begin = at + int(qstrlen("Location: "));
        client.get(answer.mid(begin, answer.indexOf('\r', begin) - begin));
    });
    client.get("/0");

    QVERIFY(recorder.waitFor("disconnected", 1, 100000));
    QCOMPARE(server.requests().size(), hops + 1);
    QCOMPARE(server.acceptedConnections(), 1);
}

QTEST_GUILESS_MAIN(tst_ScriptedServer)
#include "tst_scriptedserver.moc"
