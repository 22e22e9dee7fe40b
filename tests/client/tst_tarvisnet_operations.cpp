#include "clientbench.h"
#include "files.h"
#include "onqt6.h"
#include "operations.h"
#include "testclass.h"

#include <QtTest/QTest>

namespace tst_tarvisnet_operations {

using namespace clientaccess;

namespace {

const QByteArray answer = R"({"answer":42})";

const QByteArray localUmlaut = onQt6 ? "\xC3\xBC" : "\xFC";
const QString umlaut = QString(QChar(0xFC));

FileData download(const ClientBench &bench)
{
    FileData file = bench.file("file", quint64(answer.size()));
    file.hash = "hash";
    return file;
}

} // namespace

/// What every operation sends, queues and delivers, in each of its forms.
class tst_TarvisNetOperations : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sendsAndDelivers_data();
    void sendsAndDelivers();
    void queuesTheRecord_data() { operations::addRows(); }
    void queuesTheRecord();
    void recordsDifferByThePipeliningAttribute();
    void encodesLocally();
};

void tst_TarvisNetOperations::sendsAndDelivers_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<ScriptedServer::Mode>("mode");
    for (const Operation &operation : operations::all()) {
        // A path is asked for by https.
        if (operation.form != Operation::Path)
            QTest::addRow("%s, HTTP", operation.name) << operation << ScriptedServer::Mode::Http;
        QTest::addRow("%s, HTTPS", operation.name) << operation << ScriptedServer::Mode::Https;
    }
}

void tst_TarvisNetOperations::sendsAndDelivers()
{
    QFETCH(const Operation, operation);
    QFETCH(const ScriptedServer::Mode, mode);
    const RequestKind kind = requestkinds::of(operation.kind);
    ClientBench bench(mode);
    bench.ask(bench.server.port());
    bench.client->setVtxName("Umläut");
    bench.client->setVtxVersion("2.1");
    bench.client->setVtxId(bench.client->generateVtxId());
    bench.server.onRequest(answers::bytes(answer, 200, {{"X-Answer", "yes"}}));
    const QString path = operation.form == Operation::Path ? "/a/b" : "/a/b?c=d%20e";
    const QString url = bench.url(path);
    const FileData file = download(bench);
    operation.call(*bench.client, operation.form == Operation::Path ? path : url, file);
    QVERIFY(bench.recorder.waitFor(kind.signal));

    QCOMPARE(bench.server.requests(QByteArray("/a/b")).size(), 1);
    const HttpRequest request = bench.server.requests("/a/b").first();
    QCOMPARE(request.method, QByteArray(kind.verb));
    QCOMPARE(request.target, path.toUtf8());
    QCOMPARE(request.header("content-type"), QByteArray(kind.contentType));
    QCOMPARE(request.header("user-agent"), bench.client->getUserAgent().toLocal8Bit());
    QCOMPARE(request.header("connection"), QByteArray(kind.isFile() ? "close" : "Keep-Alive"));
    QCOMPARE(request.body, operation.hasBody ? operations::body : QByteArray());
    QVERIFY(!request.headers.contains("range"));

    using Pairs = QList<QNetworkReply::RawHeaderPair>;
    QVariantList result = bench.recorder.last(kind.signal);
    if (result.size() == 3)
        QVERIFY(result.takeLast().value<Pairs>().contains({"X-Answer", "yes"}));
    QVariantList expected = {url};
    if (kind.result == Result::Document)
        expected.prepend(QJsonDocument::fromJson(answer));
    if (kind.result == Result::Bytes)
        expected.prepend(answer);
    QCOMPARE(result, expected);
    const bool isSaved = kind.isBinary() || QByteArray(kind.name).endsWith("File");
    QCOMPARE(files::read(file.filePath), isSaved ? answer : QByteArray());
    QCOMPARE(bench.log.count(QtDebugMsg, "<TarvisNet::handleReply> Installer finished"),
             kind.isInstaller() ? 1 : 0);
    QCOMPARE(bench.recorder.count(kind.signal), 1);
    QCOMPARE(bench.errors(), QList<int>());
    if (!bench.messages().isEmpty())
        QCOMPARE(bench.log.originFault(sourceFile), QString());
}

// A second call is refused, unless it is forced, and a hand-made record that is refused too is
// equal in every field.
void tst_TarvisNetOperations::queuesTheRecord()
{
    QFETCH(const Operation, operation);
    const QUrl url("https://localhost:4433/content");
    ClientBench bench;
    bench.ask(quint16(url.port()), url.host());
    bench.client->setInstallerPath("/configured");
    bench.hold();
    const bool isPath = operation.form == Operation::Path;
    const QString address = isPath ? url.path() : url.toString();
    operation.call(*bench.client, address, download(bench));
    QCOMPARE(bench.recorder.names(), QStringList("s_repliesCountChanged"));
    QVERIFY(bench.isPending(operations::record(*bench.client, operation, url, download(bench))));

    bench.forget();
    operation.call(*bench.client, address, download(bench));
    const bool isForced = QByteArray(operation.name).startsWith("force");
    QCOMPARE(bench.recorder.names(),
             QStringList(isForced ? "s_repliesCountChanged" : "s_errorChanged"));
    QCOMPARE(bench.error(), isForced ? QVariantList() : failure(-221, url.toString()));
}

// That the attribute of the path form is seen at all, and that the URL form has none.
void tst_TarvisNetOperations::recordsDifferByThePipeliningAttribute()
{
    const QUrl url("https://localhost:4433/content");
    Operation byPath = operations::of("fetchBinary(QString)");
    Operation byUrl = operations::of("fetchBinary(QUrl)");
    for (const bool isPath : {true, false}) {
        ClientBench bench;
        bench.ask(quint16(url.port()), url.host());
        bench.hold();
        const Operation &called = isPath ? byPath : byUrl;
        called.call(*bench.client, isPath ? url.path() : url.toString(), download(bench));
        QVERIFY(!bench.isPending(
            operations::record(*bench.client, isPath ? byUrl : byPath, url, download(bench))));
    }
}

void tst_TarvisNetOperations::encodesLocally()
{
    [[maybe_unused]] const Latin1Locale locale;
    ClientBench bench;
    bench.server.onRequest(answers::json({}));
    bench.client->setVtxName(umlaut);
    bench.client->rawPost(bench.url("/text"), umlaut);
    QVERIFY(bench.recorder.waitFor("s_rawPost"));
    bench.client->rawDelete(bench.server.url("/fixed"), "\xC3");
    QVERIFY(bench.recorder.waitFor("s_rawDeleteFinished"));

    QCOMPARE(bench.server.requests("/text").value(0).body, localUmlaut);
    QCOMPARE(bench.server.requests("/fixed").value(0).body, QByteArray("\xC3"));
    for (const HttpRequest &request : bench.server.requests())
        QVERIFY(request.header("user-agent").startsWith(localUmlaut + "/0.0.0 "));
}

const TestClass<tst_TarvisNetOperations> testClass("tst_tarvisnet_operations");

} // namespace tst_tarvisnet_operations

#include "tst_tarvisnet_operations.moc"
