#include "answers.h"
#include "logcapture.h"
#include "queueaccess.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/tarvisnet.h>

#include <QtTest/QTest>

using namespace queueaccess;

namespace {

/// What the probe looks at; a time-out tells it.
QString probedUrl(TarvisNet &client)
{
    SignalRecorder recorder(&client, {"s_errorChanged"});
    call(client, "pingTimeout");
    return recorder.last("s_errorChanged").value(1).toString();
}

} // namespace

class tst_TarvisNetProbe : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_log.reset(new LogCapture); }
    void cleanup() { m_log.reset(); }

    void startsForKind_data();
    void startsForKind();
    void startsOnceWhileRunning();
    void startsAgainOnceStopped();
    void pointsAtServer_data();
    void pointsAtServer();
    void pointsAtNextServer();
    void sendsPings();

private:
    QScopedPointer<LogCapture> m_log;
};

void tst_TarvisNetProbe::startsForKind_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("alwaysOn");
    QTest::addColumn<int>("starts");
    const QStringList fileKinds = {"remoteInstaller", "remoteBinary"};
    for (const char *kind :
         {"remoteInstaller", "remoteBinary", "remoteDefinition", "remoteIndex",
          "remoteInstallerChangeLog", "remoteInstallerCheckSum", "rawGet", "rawPost", "rawPatch",
          "rawDelete", "rawGetFile", "rawPostFile", "redirectReply", "neverHeardOf"}) {
        QTest::addRow("%s", kind) << kind << false << int(fileKinds.contains(kind));
        QTest::addRow("%s, always on", kind) << kind << true << 1;
    }
}

void tst_TarvisNetProbe::startsForKind()
{
    QFETCH(const QString, kind);
    QFETCH(const bool, alwaysOn);
    ScriptedServer server;
    TarvisNet client;
    client.setPingAlwaysOn(alwaysOn);
    SignalRecorder recorder(&client, {"s_startPing", "s_stopPing", "s_errorChanged"});
    add(client, record(kind, server.url("/there")));
    QTEST(recorder.names().size(), "starts");
    QTEST(recorder.of("s_startPing").count({-1}), "starts");
}

void tst_TarvisNetProbe::startsOnceWhileRunning()
{
    ScriptedServer server;
    ScriptedServer other;
    TarvisNet client;
    SignalRecorder recorder(&client, {"s_startPing"});
    add(client, record(replies::remote_binary, server.url("/first")));
    add(client, record(replies::remote_binary, other.url("/second")));
    QCOMPARE(running(client).size(), 2);
    QCOMPARE(recorder.count("s_startPing"), 1);
    QCOMPARE(probedUrl(client), server.url("").toString());
}

void tst_TarvisNetProbe::startsAgainOnceStopped()
{
    ScriptedServer server;
    TarvisNet client;
    SignalRecorder recorder(&client, {"s_startPing"});
    add(client, record(replies::remote_binary, server.url("/first")));
    Q_EMIT client.s_stopPing();
    add(client, record(replies::remote_installer, server.url("/second")));
    QCOMPARE(recorder.count("s_startPing"), 2);
}

void tst_TarvisNetProbe::pointsAtServer_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::addColumn<QString>("probed");
    const auto row = [](const char *url, const char *probed) {
        QTest::newRow(url) << QUrl(url) << QString(probed);
    };
    row("http://127.0.0.1:21000/file?a=b", "http://127.0.0.1:21000");
    row("https://localhost:21000/file", "https://localhost:21000");
    row("http://127.0.0.1/file", "http://127.0.0.1");
    row("http://127.0.0.1:32767/file", "http://127.0.0.1:32767");
    // The port is narrowed to a signed number of 16 bits: -4536 is none, and -1 stands for none.
    row("http://127.0.0.1:61000/file", "");
    row("http://127.0.0.1:65534/file", "");
    row("http://127.0.0.1:65535/file", "http://127.0.0.1");
}

void tst_TarvisNetProbe::pointsAtServer()
{
    QFETCH(const QUrl, url);
    TarvisNet client;
    add(client, record(replies::remote_binary, url));
    QTEST(probedUrl(client), "probed");
}

void tst_TarvisNetProbe::pointsAtNextServer()
{
    TarvisNet client;
    add(client, record(replies::remote_binary, QUrl("http://127.0.0.1:21000/file")));
    Q_EMIT client.s_stopPing();
    add(client, record(replies::remote_binary, QUrl("https://localhost/file")));
    QCOMPARE(probedUrl(client), "https://localhost");
}

void tst_TarvisNetProbe::sendsPings()
{
    ScriptedServer server;
    server.onRequest(answers::withhold());
    TarvisNet client;
    client.fetchBinary(server.url("/file"), "nowhere", 1000);
    QVERIFY(server.waitForRequests(2));
    QCOMPARE(server.requests().first().path(), QByteArray("/file"));
    QCOMPARE(server.requests().last().target, QByteArray("/"));
    QCOMPARE(server.requests().last().method, QByteArray("GET"));
}

QTEST_GUILESS_MAIN(tst_TarvisNetProbe)

#include "tst_tarvisnet_probe.moc"
