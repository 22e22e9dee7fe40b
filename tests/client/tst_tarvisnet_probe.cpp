#include "clientbench.h"
#include "operations.h"
#include "testclass.h"

#include <QtTest/QTest>

namespace tst_tarvisnet_probe {

using namespace clientaccess;

namespace {

/// How a running download and its probe end.
const QStringList timeoutSignals = {"s_repliesCountChanged", "s_stopPing", "s_aborted",
                                    "s_errorChanged"};

/// What the probe looks at; a time-out tells it.
QString probedUrl(const ClientBench &bench)
{
    bench.call("pingTimeout");
    return bench.error().value(1).toString();
}

} // namespace

/// When the client asks whether the server is still there, and what it does if not.
class tst_TarvisNetProbe : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startsForKind_data();
    void startsForKind();
    void startsOnceWhileRunning();
    void startsAgainOnceStopped();
    void pointsAtServer_data();
    void pointsAtServer();
    void sendsPings();

    void timesOut_data();
    void timesOut();
    void silentServerTimesOut();
};

void tst_TarvisNetProbe::startsForKind_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("alwaysOn");
    QTest::addColumn<int>("starts");
    const auto rows = [](const QString &kind, bool isFile) {
        QTest::addRow("%s", qPrintable(kind)) << kind << false << int(isFile);
        QTest::addRow("%s, always on", qPrintable(kind)) << kind << true << 1;
    };
    for (const RequestKind &kind : requestkinds::all())
        rows(kind.name, kind.isFile());
    rows("redirectReply", false);
    rows("neverHeardOf", false);
}

void tst_TarvisNetProbe::startsForKind()
{
    QFETCH(const QString, kind);
    QFETCH(const bool, alwaysOn);
    ClientBench bench;
    bench.client->setPingAlwaysOn(alwaysOn);
    const SignalRecorder recorder(bench.client, {"s_startPing", "s_stopPing", "s_errorChanged"});
    bench.add(record(kind, bench.server.url("/there")));
    QTEST(int(recorder.names().size()), "starts");
    QTEST(int(recorder.of("s_startPing").count({-1})), "starts");
}

void tst_TarvisNetProbe::startsOnceWhileRunning()
{
    ClientBench bench;
    const ScriptedServer other;
    bench.add(record(replies::remote_binary, bench.server.url("/first")));
    bench.add(record(replies::remote_binary, other.url("/second")));
    QCOMPARE(bench.running().size(), 2);
    QCOMPARE(bench.recorder.count("s_startPing"), 1);
    QCOMPARE(probedUrl(bench), bench.url(""));
}

void tst_TarvisNetProbe::startsAgainOnceStopped()
{
    ClientBench bench;
    bench.add(record(replies::remote_binary, QUrl("http://127.0.0.1:21000/file")));
    Q_EMIT bench.client->s_stopPing();
    bench.add(record(replies::remote_installer, QUrl("https://localhost/file")));
    QCOMPARE(bench.recorder.count("s_startPing"), 2);
    QCOMPARE(probedUrl(bench), "https://localhost");
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
    const ClientBench bench;
    // It points there before it starts.
    QString probedAtStart;
    connect(bench.client, &TarvisNet::s_startPing, this, [&] { probedAtStart = probedUrl(bench); });
    bench.add(record(replies::remote_binary, url));
    QTEST(probedAtStart, "probed");
}

void tst_TarvisNetProbe::sendsPings()
{
    WaitingBench bench;
    bench.client->fetchBinary(bench.server.url("/file"), "nowhere", 1000);
    QVERIFY(bench.server.waitForRequests(2));
    QCOMPARE(bench.server.requests().first().path(), QByteArray("/file"));
    QCOMPARE(bench.server.requests().last().target, QByteArray("/"));
    QCOMPARE(bench.server.requests().last().method, QByteArray("GET"));
}

void tst_TarvisNetProbe::timesOut_data()
{
    QTest::addColumn<bool>("hasProbe");
    QTest::addColumn<bool>("hasRequest");
    QTest::addColumn<QStringList>("names");
    QTest::newRow("without a probe") << false << false << QStringList("s_errorChanged");
    QTest::newRow("with a probe") << true << false << QStringList({"s_stopPing", "s_errorChanged"});
    QTest::newRow("beside a request") << true << true << timeoutSignals;
}

void tst_TarvisNetProbe::timesOut()
{
    QFETCH(const bool, hasProbe);
    QFETCH(const bool, hasRequest);
    WaitingBench bench;
    bench.client->setPingAlwaysOn(true);
    if (hasRequest)
        bench.get({"/held"});
    else if (hasProbe)
        Q_EMIT bench.client->s_startPing(-1);
    QVERIFY(bench.server.waitForRequests(hasRequest ? 1 : 0));

    bench.forget();
    bench.call("pingTimeout");
    QTEST(bench.recorder.names(), "names");
    QCOMPARE(bench.abortedUrls(), hasRequest ? bench.urls({"/held"}) : QStringList());
    QCOMPARE(bench.error(), failure(-203, hasRequest ? bench.url("") : QString()));
}

void tst_TarvisNetProbe::silentServerTimesOut()
{
    WaitingBench bench;
    // The probe looks once in every second.
    bench.client->setPingTimeout(1);
    bench.client->fetchBinary(bench.server.url("/held"), "nowhere", 1000);
    bench.forget();
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.recorder.names(), timeoutSignals);
    QCOMPARE(bench.abortedUrls(), bench.urls({"/held"}));
    QCOMPARE(bench.error(), failure(-203, bench.url("")));
}

const TestClass<tst_TarvisNetProbe> testClass("tst_tarvisnet_probe");

} // namespace tst_tarvisnet_probe

#include "tst_tarvisnet_probe.moc"
