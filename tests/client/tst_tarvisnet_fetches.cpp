#include "answers.h"
#include "fetchoperations.h"
#include "files.h"

#include <QtCore/QJsonObject>
#include <QtNetwork/QSslConfiguration>
#include <QtTest/QTest>

namespace {

using namespace fetches;

constexpr char sourceFile[] = "../../source/appl/tarvisnet";
const QUrl pendingUrl(QStringLiteral("https://localhost:4433/content"));
QVariant expectedContent(const Operation &operation)
{
    if (operation.resultSignal == "s_fetchInstallerChangeLogData")
        return answer;
    return QJsonDocument::fromJson(answer);
}

} // namespace

class tst_TarvisNetFetches : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sendsAndDelivers_data();
    void sendsAndDelivers();
    void keepsTheSchemeHttp_data();
    void keepsTheSchemeHttp();
    void carriesTheClientsSslConfiguration_data();
    void carriesTheClientsSslConfiguration();
    void queuesTheRecord_data();
    void queuesTheRecord();
    void recordsDifferByThePipeliningAttribute();
    void refusesAPendingTwin_data();
    void refusesAPendingTwin();

private:
    void addForms();
    void addOperations();
};

void tst_TarvisNetFetches::addOperations()
{
    QTest::addColumn<int>("operation");
    for (int i = 0; i < operations.size(); ++i)
        QTest::newRow(operations.at(i).name) << i;
}

void tst_TarvisNetFetches::addForms()
{
    QTest::addColumn<int>("operation");
    QTest::addColumn<bool>("byPath");
    for (int i = 0; i < operations.size(); ++i) {
        QTest::addRow("%s by path", operations.at(i).name) << i << true;
        QTest::addRow("%s by URL", operations.at(i).name) << i << false;
    }
}

void tst_TarvisNetFetches::sendsAndDelivers_data()
{
    addForms();
}

void tst_TarvisNetFetches::sendsAndDelivers()
{
    QFETCH(int, operation);
    QFETCH(bool, byPath);
    const Operation &fetch = operations.at(operation);

    ScriptedServer server(ScriptedServer::Mode::Https);
    server.on("/content", answers::bytes(answer));
    FetchBench bench;
    bench.ask(server.port());
    bench.client.setVtxName("Umläut");
    bench.client.setVtxVersion("2.1");
    bench.client.setVtxId(bench.client.generateVtxId());
    // Without a scheme the URL form asks by https too.
    const QUrl url = server.url("/content");
    fetch.start(bench, byPath, url.adjusted(QUrl::RemoveScheme));
    QVERIFY(bench.recorder.waitFor(fetch.resultSignal));

    QCOMPARE(server.requests("/content").size(), 1);
    const HttpRequest request = server.requests("/content").first();
    QCOMPARE(request.method, QByteArray("GET"));
    QCOMPARE(request.target, QByteArray("/content"));
    QCOMPARE(request.body, QByteArray());
    QCOMPARE(request.header("content-type"), fetch.contentType.toUtf8());
    QCOMPARE(request.header("user-agent"), bench.client.getUserAgent().toLocal8Bit());
    QCOMPARE(request.header("connection"), QByteArray(fetch.isFile ? "close" : "Keep-Alive"));
    QVERIFY(!request.headers.contains("range"));

    const QVariantList result = bench.recorder.last(fetch.resultSignal);
    QCOMPARE(result.last().toString(), url.toString());
    if (!fetch.isFile)
        QCOMPARE(result.first(), expectedContent(fetch));
    if (fetch.kind == replies::remote_binary)
        QCOMPARE(files::read(bench.path("file")), answer);
    QCOMPARE(bench.log.count(QtDebugMsg, "<TarvisNet::handleReply> Installer finished"),
             fetch.kind == replies::remote_installer ? 1 : 0);
    QCOMPARE(bench.recorder.count(fetch.resultSignal), 1);
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.log.originFault(sourceFile), QString());
}

void tst_TarvisNetFetches::keepsTheSchemeHttp_data()
{
    addOperations();
}

void tst_TarvisNetFetches::keepsTheSchemeHttp()
{
    QFETCH(int, operation);
    const Operation &fetch = operations.at(operation);

    ScriptedServer server;
    server.on("/content", answers::bytes(answer));
    FetchBench bench;
    const QString url = server.url("/content?a=b%20c").toString();
    fetch.byUrl(bench, url);
    QVERIFY(bench.recorder.waitFor(fetch.resultSignal));
    QCOMPARE(bench.recorder.last(fetch.resultSignal).last().toString(), url);
    QCOMPARE(server.requests("/content").first().target, QByteArray("/content?a=b%20c"));
}

void tst_TarvisNetFetches::carriesTheClientsSslConfiguration_data()
{
    addForms();
}

// A default that forbids what the server speaks shows whether the request has its own.
void tst_TarvisNetFetches::carriesTheClientsSslConfiguration()
{
    QFETCH(int, operation);
    QFETCH(bool, byPath);
    const Operation &fetch = operations.at(operation);

    ScriptedServer server(ScriptedServer::Mode::Https);
    server.setTlsProtocol(QSsl::TlsV1_2);
    server.on("/content", answers::bytes(answer));
    FetchBench bench;
    bench.ask(server.port());
    const QSslConfiguration ofTheClient = QSslConfiguration::defaultConfiguration();
    QSslConfiguration other = ofTheClient;
    other.setProtocol(QSsl::TlsV1_3OrLater);
    QSslConfiguration::setDefaultConfiguration(other);
    fetch.start(bench, byPath, server.url("/content"));
    const bool answered = bench.recorder.waitFor(fetch.resultSignal);
    QSslConfiguration::setDefaultConfiguration(ofTheClient);
    QVERIFY(answered);
}

void tst_TarvisNetFetches::queuesTheRecord_data()
{
    addForms();
}

void tst_TarvisNetFetches::queuesTheRecord()
{
    QFETCH(int, operation);
    QFETCH(bool, byPath);
    const Operation &fetch = operations.at(operation);

    FetchBench bench;
    bench.holdFor(pendingUrl);
    fetch.start(bench, byPath, pendingUrl);
    QCOMPARE(bench.recorder.count("s_repliesCountChanged"), 1);
    QCOMPARE(bench.errors(), QList<int>());
    QVERIFY(bench.isPending(expectedRecord(bench, fetch, pendingUrl, byPath)));
}

// That the attribute of the path form is seen at all, and that the URL form has none.
void tst_TarvisNetFetches::recordsDifferByThePipeliningAttribute()
{
    const Operation &binary = operations.last();
    for (const bool byPath : {true, false}) {
        FetchBench bench;
        bench.holdFor(pendingUrl);
        binary.start(bench, byPath, pendingUrl);
        QVERIFY(!bench.isPending(expectedRecord(bench, binary, pendingUrl, !byPath)));
    }
}

void tst_TarvisNetFetches::refusesAPendingTwin_data()
{
    addForms();
}

void tst_TarvisNetFetches::refusesAPendingTwin()
{
    QFETCH(int, operation);
    QFETCH(bool, byPath);
    const Operation &fetch = operations.at(operation);

    FetchBench bench;
    bench.holdFor(pendingUrl);
    fetch.start(bench, byPath, pendingUrl);
    fetch.start(bench, byPath, pendingUrl);
    QCOMPARE(bench.errors(), QList<int>{errorcodes::already_pending});
    QCOMPARE(bench.recorder.last("s_errorChanged").at(1).toString(), pendingUrl.toString());
}

QTEST_GUILESS_MAIN(tst_TarvisNetFetches)

#include "tst_tarvisnet_fetches.moc"
