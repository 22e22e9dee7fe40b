#include "clientbench.h"
#include "files.h"
#include "onqt6.h"
#include "operations.h"
#include "testclass.h"

#include <QtCore/QJsonObject>
#include <QtTest/QTest>

namespace tst_tarvisnet_coding {

using namespace clientaccess;

namespace {

using Headers = QList<QNetworkReply::RawHeaderPair>;

const char removed[] = "s_repliesCountChanged";
const char codings[] = "gzip, deflate";
const char *const codingsOfQt = onQt6 ? "zstd, br, gzip, deflate" : codings;
const HttpHeader deflated{"Content-Encoding", "deflate"};
const QByteArray document = "{\"why\":\"maintenance\"}";

constexpr qint64 bound = 1000;

TransferPolicy policyWith(qint64 size)
{
    TransferPolicy policy;
    policy.setMaximumBodySize(size);
    policy.setErrorsExplained(true);
    policy.setFailuresIsolated(true);
    return policy;
}

/// As the coding "deflate" has it.
QByteArray packed(const QByteArray &bytes = document)
{
    return qCompress(bytes).mid(int(sizeof(quint32)));
}

ScriptedServer::Handler answer(const QByteArray &body, int status = 200,
                               const HttpHeader &coding = deflated)
{
    return answers::bytes(body, status, {coding, {"X-Answer", "42"}});
}

struct CodingBench : ClientBench {
    explicit CodingBench(const TransferPolicy &policy = policyWith(bound))
        : ClientBench(ScriptedServer::Mode::Http, policy)
    {
    }

    /// The answers to the first request and to all others.
    void answerInTurn(const ScriptedServer::Handler &first, const ScriptedServer::Handler &other)
    {
        server.on("/a", [=](const HttpRequest &request, HttpResponse &response) {
            const bool isFirst = server.requests("/a").size() == 1;
            (isFirst ? first : other)(request, response);
        });
    }
    void fetch(const RequestKind &kind)
    {
        requestkinds::start(*client, kind, server.url("/a"), path("file"), 0);
    }
    void get(const RawHeadersMap &headers = RawHeadersMap())
    {
        client->rawGet(server.url("/a"), HeadersMap(), headers);
    }
    QJsonDocument got() { return recorder.last("s_rawGet").value(0).toJsonDocument(); }
    QJsonObject told() { return error().value(2).toJsonDocument().object(); }
};

} // namespace

/// The codings of bodies that are held in memory.
class tst_TarvisNetCoding : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void resultsAreThoseWithoutABound_data();
    void resultsAreThoseWithoutABound();
    void savesTheDecodedFile();
    void tellsDecodedBytes();
    void asksForCodings_data();
    void asksForCodings();
    void leavesTheCodingToWhoAskedForIt();
    void explainsDecoded();
    void decodesAfterARedirect_data();
    void decodesAfterARedirect();
    void decodesEachAttemptAfresh();
    void failsOnFaults_data();
    void failsOnFaults();
    void triesAgainAfterACut();
    void needsNoBody_data();
    void needsNoBody();
};

void tst_TarvisNetCoding::resultsAreThoseWithoutABound_data()
{
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<HttpHeader>("coding");
    QTest::addColumn<QByteArray>("body");
    for (const RequestKind &kind : requestkinds::all()) {
        const auto row = [&](const char *text, const QByteArray &coding, const QByteArray &body) {
            QTest::addRow("%s, %s", kind.name, text)
                << kind << HttpHeader("Content-Encoding", coding) << body;
        };
        if (kind.isFile())
            continue;
        row("deflate", "deflate", packed());
        row("gzip", "GZip", packed());
        row("identity", "identity", document);
        row("unknown", "compress", document);
        if (!onQt6)
            row("unknown to Qt 5", "br", document);
        row("nothing", "gzip", "");
    }
}

void tst_TarvisNetCoding::resultsAreThoseWithoutABound()
{
    QFETCH(const RequestKind, kind);
    QFETCH(const HttpHeader, coding);
    QFETCH(const QByteArray, body);
    CodingBench unbounded(policyWith(0));
    CodingBench bounded;
    for (CodingBench *bench : {&unbounded, &bounded}) {
        bench->server.on("/a", answer(body, 200, coding));
        bench->fetch(kind);
        QVERIFY(bench->recorder.waitFor(removed, 2));
    }
    QCOMPARE(bounded.emitted(), unbounded.emitted());
    const QVariantList result = bounded.recorder.last(kind.signal);
    const QVariantList expected = unbounded.recorder.last(kind.signal);
    if (kind.result != Result::Address)
        QCOMPARE(result.value(0), expected.value(0));
    QCOMPARE(result.value(2).value<Headers>(), expected.value(2).value<Headers>());
}

void tst_TarvisNetCoding::savesTheDecodedFile()
{
    CodingBench bench;
    bench.server.on("/a", answer(packed()));
    bench.client->rawGetFile(bench.server.url("/a"), bench.path("saved"));
    QVERIFY(bench.recorder.waitFor("s_rawGetFileFinished"));
    QCOMPARE(files::read(bench.path("saved")), document);
}

void tst_TarvisNetCoding::tellsDecodedBytes()
{
    CodingBench bench;
    const QByteArray body(int(bound), ' ');
    bench.server.on("/a", answer(packed(body)));
    bench.get();
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.recorder.last("s_downloadFileBytesProgress").value(0).toLongLong(), bound);
    QCOMPARE(bench.recorder.last("s_downloadFileProgress").value(0).toDouble(), 100.0);
}

void tst_TarvisNetCoding::asksForCodings_data()
{
    QTest::addColumn<qint64>("maximum");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("no bound") << qint64(0) << QByteArray(codingsOfQt);
    QTest::newRow("bound") << bound << QByteArray(codings);
}

void tst_TarvisNetCoding::asksForCodings()
{
    QFETCH(const qint64, maximum);
    QFETCH(const QByteArray, expected);
    CodingBench bench(policyWith(maximum));
    bench.server.on("/a", answer(packed()));
    bench.get();
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.server.requests("/a").at(0).header("accept-encoding"), expected);
}

void tst_TarvisNetCoding::leavesTheCodingToWhoAskedForIt()
{
    CodingBench bench;
    bench.server.on("/a", answer(document));
    bench.get({{"Accept-Encoding", "deflate"}});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.got(), QJsonDocument::fromJson(document));
    QCOMPARE(bench.server.requests("/a").at(0).header("accept-encoding"), QByteArray("deflate"));
}

void tst_TarvisNetCoding::explainsDecoded()
{
    CodingBench bench;
    bench.server.on("/a", answer(packed(), 500));
    bench.get();
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.told().value("httpStatus").toInt(), 500);
    QCOMPARE(bench.told().value("body").toObject(), QJsonDocument::fromJson(document).object());
}

void tst_TarvisNetCoding::decodesAfterARedirect_data()
{
    QTest::addColumn<bool>("isChecked");
    QTest::newRow("checked") << true;
    QTest::newRow("not checked") << false;
}

void tst_TarvisNetCoding::decodesAfterARedirect()
{
    QFETCH(const bool, isChecked);
    TransferPolicy policy = policyWith(bound);
    policy.setRedirectsChecked(isChecked);
    CodingBench bench(policy);
    const QByteArray target = bench.server.url("/b").toEncoded();
    bench.server.on(
        "/a", answers::bytes(packed("gone elsewhere"), 302, {deflated, {"Location", target}}));
    bench.server.on("/b", answer(packed()));
    bench.get();
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.got(), QJsonDocument::fromJson(document));
    QCOMPARE(bench.server.requests("/b").at(0).header("accept-encoding"), QByteArray(codings));

    bench.server.on("/b", answer(packed(QByteArray(int(bound) + 1, ' '))));
    bench.get();
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.errors(), QList<int>({-227}));
}

void tst_TarvisNetCoding::decodesEachAttemptAfresh()
{
    TransferPolicy policy = policyWith(bound);
    policy.setMaximumRetries(1);
    policy.setRetryDelay(0);
    CodingBench bench(policy);
    bench.answerInTurn(answer(packed(), 503), answers::bytes("{\"plain\":1}"));
    bench.get();
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.got(), QJsonDocument::fromJson("{\"plain\":1}"));
}

void tst_TarvisNetCoding::failsOnFaults_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("reason");
    const QString fault = "The body is not compressed as the server says.";
    const QString cut = "The compressed body is cut off.";
    QTest::newRow("no compressed body") << document << fault;
    QTest::newRow("without its end") << packed().chopped(1) << cut;
    QTest::newRow("only its beginning") << packed().left(1) << cut;
}

void tst_TarvisNetCoding::failsOnFaults()
{
    QFETCH(const QByteArray, body);
    QFETCH(const QString, reason);
    CodingBench bench;
    bench.server.on("/a", answer(body, 200, {"Content-Encoding", "gzip"}));
    bench.get();
    QVERIFY(bench.recorder.waitFor(removed, 2));
    QCOMPARE(bench.emitted().filter("s_rawGet"), QStringList());
    QCOMPARE(bench.errors(), QList<int>({-203}));
    QCOMPARE(bench.error().at(1).toString(), bench.url("/a"));
    QCOMPARE(bench.told().value("reason").toString(), reason);
}

void tst_TarvisNetCoding::triesAgainAfterACut()
{
    TransferPolicy policy = policyWith(bound);
    policy.setMaximumRetries(1);
    policy.setRetryDelay(0);
    CodingBench bench(policy);
    bench.answerInTurn(answer(packed().chopped(1)), answer(packed()));
    bench.get();
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.got(), QJsonDocument::fromJson(document));
    QCOMPARE(bench.errors(), QList<int>());
}

void tst_TarvisNetCoding::needsNoBody_data()
{
    QTest::addColumn<int>("status");
    for (const int status : {200, 204, 304})
        QTest::addRow("%d", status) << status;
}

void tst_TarvisNetCoding::needsNoBody()
{
    QFETCH(const int, status);
    CodingBench bench;
    bench.server.on("/a", answer(QByteArray(), status));
    bench.get();
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.got(), QJsonDocument());
    QCOMPARE(bench.errors(), QList<int>());
}

const TestClass<tst_TarvisNetCoding> testClass("tst_tarvisnet_coding");

} // namespace tst_tarvisnet_coding

#include "tst_tarvisnet_coding.moc"
