#include "answers.h"
#include "modes.h"
#include "rawclient.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <QtCore/QScopedPointer>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QTest>

#include <arpa/inet.h>
#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>

using Mode = ScriptedServer::Mode;

namespace {

const quint16 portLimit = 32768;

// How the operating system reports the end of a connection whose request the server ended: 0 for a
// close, the error number otherwise. Qt does not tell them apart.
int endSeenBySystem(ScriptedServer *server)
{
    const int client = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(server->port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const QByteArray request("GET / HTTP/1.1\r\n\r\n");
    if (::connect(client, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0
        || ::send(client, request.constData(), size_t(request.size()), 0) != request.size()
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

/// How connections of the server begin, last and end.
class tst_ScriptedServerConnections : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void listensOnLoopbackBelowTheLimit();
    void freePortIsClosed();
    void urls();
    void keepsConnections_data() { addModes(); }
    void keepsConnections();
    void closesConnections_data();
    void closesConnections();
    void answersLater_data() { addModes(); }
    void answersLater();
    void ignoresCallsAfterTheEnd();
    void noticesThatTheClientLeft_data() { addModes(); }
    void noticesThatTheClientLeft();
    void cutIsNoReset();
    void breaksOff_data();
    void breaksOff();
    void countsUnsentBytes_data() { addModes(); }
    void countsUnsentBytes();
    void closesAll_data() { addModes(); }
    void closesAll();
    void stopsAndRestarts_data() { addModes(); }
    void stopsAndRestarts();
};

void tst_ScriptedServerConnections::listensOnLoopbackBelowTheLimit()
{
    ScriptedServer first;
    ScriptedServer second;
    QVERIFY(first.port() != second.port());
    QVERIFY(first.port() >= 20000 && first.port() < portLimit);

    RawClient client(first);
    QVERIFY(client.waitForConnected());
    QCOMPARE(client.socket().peerAddress(), QHostAddress(QHostAddress::LocalHost));
    QVERIFY(first.waitForAccepted(1));
    QCOMPARE(second.acceptedConnections(), 0);
}

void tst_ScriptedServerConnections::freePortIsClosed()
{
    const quint16 port = ScriptedServer::freePort();
    QVERIFY(port > 0 && port < portLimit);

    QTcpSocket socket;
    socket.connectToHost("127.0.0.1", port);
    QVERIFY(!socket.waitForConnected());
    QCOMPARE(socket.error(), QAbstractSocket::ConnectionRefusedError);
}

void tst_ScriptedServerConnections::urls()
{
    const ScriptedServer plain;
    const ScriptedServer tls(Mode::Https);
    const QString plainRoot = QString("http://127.0.0.1:%1").arg(plain.port());

    QCOMPARE(plain.url().toString(), plainRoot + "/");
    QCOMPARE(plain.url("/a%2Fb?x=1").toString(QUrl::FullyEncoded), plainRoot + "/a%2Fb?x=1");
    QCOMPARE(tls.url("/a").toString(), QString("https://127.0.0.1:%1/a").arg(tls.port()));
}

void tst_ScriptedServerConnections::keepsConnections()
{
    QFETCH(ScriptedServer::Mode, mode);

    ScriptedServer server(mode);
    server.on("/one", answers::bytes("one"));
    server.on("/two", answers::bytes("two"));
    RawClient client(server);
    client.get("/one");
    QVERIFY(client.waitFor("one"));
    client.get("/two");
    QVERIFY(client.waitFor("two"));

    QCOMPARE(server.acceptedConnections(), 1);
    QCOMPARE(server.connections(), 1);
}

void tst_ScriptedServerConnections::closesConnections_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<HttpHeaders>("headers");
    QTest::addColumn<int>("length");
    QTest::newRow("client asks") << QByteArray("GET / HTTP/1.1\r\nConnection: Close\r\n\r\n")
                                 << HttpHeaders() << 4;
    QTest::newRow("old client") << QByteArray("GET / HTTP/1.0\r\n\r\n") << HttpHeaders() << 4;
    QTest::newRow("server says so")
        << QByteArray("GET / HTTP/1.1\r\n\r\n") << HttpHeaders{{"Connection", "close"}} << 4;
    QTest::newRow("body too short") << QByteArray("GET / HTTP/1.1\r\n\r\n") << HttpHeaders() << 5;
    QTest::newRow("no length") << QByteArray("GET / HTTP/1.1\r\n\r\n") << HttpHeaders()
                               << int(HttpResponse::UntilClose);
}

void tst_ScriptedServerConnections::closesConnections()
{
    QFETCH(QByteArray, request);
    QFETCH(HttpHeaders, headers);
    QFETCH(int, length);

    ScriptedServer server;
    server.onRequest([=](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, headers, length);
        response.write("body");
        response.finish();
    });
    RawClient client(server);
    client.send(request);

    QVERIFY(client.waitForEnd());
    QVERIFY(client.received().endsWith("\r\n\r\nbody"));
    QVERIFY(server.waitForConnections(0));
}

void tst_ScriptedServerConnections::answersLater()
{
    QFETCH(ScriptedServer::Mode, mode);

    ScriptedServer server(mode);
    HttpResponse withheld;
    server.onRequest([&](const HttpRequest &, HttpResponse &response) { withheld = response; });
    server.on("/never", answers::withhold());
    RawClient client(server);
    RawClient forgotten(server);
    client.get("/");
    forgotten.get("/never");
    QVERIFY(server.waitForRequests(2));

    QVERIFY(withheld.isAlive());
    QVERIFY(!client.waitFor("HTTP", 50));
    withheld.send(200, {}, "at last");
    QVERIFY(client.waitFor("at last"));
    QVERIFY(forgotten.received().isEmpty());
    QCOMPARE(server.connections(), 2);
}

void tst_ScriptedServerConnections::ignoresCallsAfterTheEnd()
{
    HttpResponse nobody;
    nobody.send(200);
    QVERIFY(!nobody.isAlive());
    QCOMPARE(nobody.bytesToWrite(), 0);

    ScriptedServer server;
    HttpResponse first;
    server.on("/first", [&](const HttpRequest &, HttpResponse &response) {
        first = response;
        response.send(200, {}, "first");
    });
    server.on("/second", answers::withhold());
    RawClient client(server);
    client.get("/first");
    client.get("/second");
    QVERIFY(server.waitForRequests(2));
    QVERIFY(!first.isAlive());
    first.send(200, {}, "again");
    first.writeRaw("again");
    first.reset();

    QVERIFY(!client.waitFor("again", 50));
    QCOMPARE(server.connections(), 1);
}

void tst_ScriptedServerConnections::noticesThatTheClientLeft()
{
    QFETCH(ScriptedServer::Mode, mode);

    ScriptedServer server(mode);
    HttpResponse withheld;
    server.onRequest([&](const HttpRequest &, HttpResponse &response) { withheld = response; });
    RawClient client(server);
    client.get("/");
    QVERIFY(server.waitForRequests(1));
    QCOMPARE(server.connections(), 1);
    client.socket().abort();

    QVERIFY(server.waitForConnections(0));
    QVERIFY(!withheld.isAlive());
    withheld.send(200);
    QCOMPARE(server.acceptedConnections(), 1);
}

void tst_ScriptedServerConnections::cutIsNoReset()
{
    ScriptedServer cutting;
    cutting.onRequest([](const HttpRequest &, HttpResponse &response) { response.cut(); });
    QCOMPARE(endSeenBySystem(&cutting), 0);

    ScriptedServer resetting;
    resetting.onRequest([](const HttpRequest &, HttpResponse &response) { response.reset(); });
    QCOMPARE(endSeenBySystem(&resetting), ECONNRESET);
}

void tst_ScriptedServerConnections::breaksOff_data()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<bool>("byReset");
    QTest::newRow("HTTP, cut") << Mode::Http << false;
    QTest::newRow("HTTP, reset") << Mode::Http << true;
    QTest::newRow("HTTPS, cut") << Mode::Https << false;
    QTest::newRow("HTTPS, reset") << Mode::Https << true;
}

void tst_ScriptedServerConnections::breaksOff()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(bool, byReset);

    ScriptedServer server(mode);
    server.onRequest([byReset](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, 1000);
        response.write("only a little");
        byReset ? response.reset() : response.cut();
    });
    QNetworkAccessManager manager;
    QNetworkRequest request(server.url());
    request.setSslConfiguration(RawClient::trusting());
    QNetworkReply *const reply = manager.get(request);
    SignalRecorder recorder(reply);

    QVERIFY(recorder.waitFor("finished"));
    QCOMPARE(reply->error(), QNetworkReply::RemoteHostClosedError);
    QVERIFY(server.waitForConnections(0));
}

void tst_ScriptedServerConnections::countsUnsentBytes()
{
    QFETCH(ScriptedServer::Mode, mode);

    const qint64 size = 64 * 1024 * 1024;
    ScriptedServer server(mode);
    HttpResponse large;
    server.onRequest([&](const HttpRequest &, HttpResponse &response) {
        large = response;
        response.sendHead(200, {}, size);
        response.writeGenerated(size);
        response.flush();
    });
    RawClient client(server);
    // More than this the client does not take, and the rest has to wait.
    client.socket().setReadBufferSize(1);
    client.get("/");
    QVERIFY(server.waitForRequests(1));

    QVERIFY(large.bytesToWrite() > size / 2);
    client.socket().abort();
    QVERIFY(server.waitForConnections(0));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(large.bytesToWrite(), 0);
}

void tst_ScriptedServerConnections::closesAll()
{
    QFETCH(ScriptedServer::Mode, mode);

    ScriptedServer server(mode);
    RawClient first(server);
    RawClient second(server);
    QVERIFY(first.waitForConnected());
    QVERIFY(second.waitForConnected());
    QVERIFY(server.waitForConnections(2));
    server.closeAll();

    QCOMPARE(server.connections(), 0);
    QVERIFY(first.waitForEnd());
    QVERIFY(second.waitForEnd());
    RawClient third(server);
    QVERIFY(third.waitForConnected());
    QCOMPARE(server.acceptedConnections(), 3);
}

void tst_ScriptedServerConnections::stopsAndRestarts()
{
    QFETCH(ScriptedServer::Mode, mode);

    ScriptedServer server(mode);
    const quint16 port = server.port();
    RawClient before(server);
    QVERIFY(before.waitForConnected());
    server.stop();
    QVERIFY(before.waitForEnd());
    QCOMPARE(server.port(), port);

    QTcpSocket refused;
    refused.connectToHost("127.0.0.1", port);
    QVERIFY(!refused.waitForConnected());
    QCOMPARE(refused.error(), QAbstractSocket::ConnectionRefusedError);

    server.restart();
    QCOMPARE(server.port(), port);
    RawClient after(server);
    QVERIFY(after.waitForConnected());
}

QTEST_GUILESS_MAIN(tst_ScriptedServerConnections)
#include "tst_scriptedserver_connections.moc"
