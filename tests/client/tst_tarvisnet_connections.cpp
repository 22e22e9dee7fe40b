#include "testclass.h"
#include "threadsbench.h"

#include <QtTest/QTest>

namespace tst_tarvisnet_connections {

using namespace clientaccess;
using namespace threadsbench;

using Mode = ScriptedServer::Mode;

namespace {

const char removed[] = "s_repliesCountChanged";

TransferPolicy closing()
{
    TransferPolicy policy = local(TransferPolicy::strict());
    policy.setConnectionsKept(false);
    return policy;
}

/// What becomes of the connection that a request before has left open.
struct Loss {
    const char *name = "";
    /// Whether Qt has got nothing of an answer yet, and asks again by itself.
    bool isBeforeAnswer = true;
    /// Whether it happens before the request is sent.
    bool isBeforeRequest = false;
    /// What happens when it has arrived.
    void (*lose)(HttpResponse &response) = nullptr;
};

void announceAndWriteHalf(HttpResponse &response)
{
    response.sendHead(200, {}, body.size());
    response.write(body.left(body.size() / 2));
}

const Loss losses[] = {
    {"between", true, true},
    {"closed before the answer", true, false, [](HttpResponse &response) { response.cut(); }},
    {"reset before the answer", true, false, [](HttpResponse &response) { response.reset(); }},
    {"closed amid the body", false, false,
     [](HttpResponse &response) {
         announceAndWriteHalf(response);
         response.cut();
     }},
    {"reset amid the body", false, false,
     [](HttpResponse &response) {
         announceAndWriteHalf(response);
         response.reset();
     }},
};

} // namespace

} // namespace tst_tarvisnet_connections

Q_DECLARE_METATYPE(tst_tarvisnet_connections::Loss)

namespace tst_tarvisnet_connections {

/// Which connections requests share, and what a connection that is lost costs.
class tst_TarvisNetConnections : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void filesFollowEachOther_data();
    void filesFollowEachOther();
    void connectionIsLost_data();
    void connectionIsLost();
    void connectionsAreUsedAgain_data() { addModes(); }
    void connectionsAreUsedAgain();
    void uncheckedHopLeavesTheDistrusted_data() { addModes(); }
    void uncheckedHopLeavesTheDistrusted();
};

void tst_TarvisNetConnections::filesFollowEachOther_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<bool>("isKept");
    const auto rows = [](const char *name, const TransferPolicy &policy, bool isKept) {
        for (const char *kind : {"remoteBinary", "remoteInstaller"}) {
            for (const Mode mode : {Mode::Http, Mode::Https})
                QTest::addRow("%s, %s, %s", name, kind, mode == Mode::Http ? "HTTP" : "HTTPS")
                    << policy << mode << requestkinds::of(kind) << isKept;
        }
    };
    TransferPolicy keeping;
    keeping.setConnectionsKept(true);
    rows("traditional", TransferPolicy(), false);
    rows("strict but for it", closing(), false);
    rows("nothing else", keeping, true);
    rows("strict", local(TransferPolicy::strict()), true);
    rows("fast", local(TransferPolicy::fast()), true);
}

void tst_TarvisNetConnections::filesFollowEachOther()
{
    QFETCH(const TransferPolicy, policy);
    QFETCH(const Mode, mode);
    QFETCH(const RequestKind, kind);
    QFETCH(const bool, isKept);
    const int count = 4;
    ThreadsBench bench(policy, mode);
    bench.server.onRequest(answers::bytes(body));
    for (int number = 0; number < count; ++number) {
        bench.client->setInstallerFileName(bench.saved(number));
        requestkinds::start(*bench.client, kind, bench.server.url(bench.filePath(number)),
                            bench.saved(number), qulonglong(body.size()));
        QVERIFY(bench.recorder.waitFor(kind.signal, number + 1));
    }
    QCOMPARE(bench.errors(), QList<int>());
    QVERIFY(bench.hasAccepted(isKept ? 1 : count));
    QCOMPARE(bench.server.requests().size(), count);
    for (const HttpRequest &request : bench.server.requests())
        QCOMPARE(request.wantsClose(), !isKept);
}

void tst_TarvisNetConnections::connectionIsLost_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<Loss>("loss");
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : requestkinds::all()) {
        if (kind.result == Result::Nothing)
            continue;
        for (const Loss &loss : losses) {
            QTest::addRow("%s, %s, HTTP", loss.name, kind.name) << Mode::Http << loss << kind;
            QTest::addRow("%s, %s, HTTPS", loss.name, kind.name) << Mode::Https << loss << kind;
        }
    }
}

void tst_TarvisNetConnections::connectionIsLost()
{
    QFETCH(const Mode, mode);
    QFETCH(const Loss, loss);
    QFETCH(const RequestKind, kind);
    ThreadsBench bench(threaded(mostThreads), mode);
    bench.client->setInstallerFileName(bench.destination());
    bench.client->setInstallerFileSize(quint64(body.size()));
    bench.server.onRequest(answers::bytes(body));
    bench.download(0);
    QVERIFY(bench.recorder.waitFor(removed, 2));
    QVERIFY(bench.hasAccepted(1));

    bench.forget();
    const auto lose = [&loss](const HttpRequest &, HttpResponse &response) { loss.lose(response); };
    if (loss.isBeforeRequest)
        bench.server.closeAll();
    else
        bench.server.on("/a", onceBefore(lose, answers::bytes(body)));
    requestkinds::start(*bench.client, kind, bench.server.url("/a"), bench.destination(),
                        qulonglong(body.size()));
    const bool isRepeated = loss.isBeforeAnswer || qstrcmp(kind.verb, "GET") == 0;
    QVERIFY(bench.recorder.waitFor(isRepeated ? kind.signal : "s_errorChanged"));
    QTRY_COMPARE(bench.replies().size(), 0);

    QCOMPARE(bench.outcomes(kind.signal), 1);
    QCOMPARE(bench.errors(), isRepeated ? QList<int>() : QList<int>({-203}));
    QCOMPARE(bench.server.requests("/a").size(), isRepeated && !loss.isBeforeRequest ? 2 : 1);
    const QVariant result = bench.recorder.last(kind.signal).value(0);
    if (isRepeated && kind.result == Result::Bytes)
        QCOMPARE(result.toByteArray(), body);
    if (isRepeated && kind.result == Result::Document)
        QCOMPARE(result.toJsonDocument(), QJsonDocument::fromJson(body));
    if (kind.isFile())
        QCOMPARE(files::read(bench.destination()), body);
}

void tst_TarvisNetConnections::connectionsAreUsedAgain()
{
    QFETCH(const Mode, mode);
    ThreadsBench bench(threaded(mostThreads), mode);
    for (int round = 1; round <= 3; ++round) {
        bench.withhold();
        bench.downloadAll();
        QVERIFY(bench.server.waitForRequests(round * mostThreads));
        bench.answerWithheld();
        QVERIFY(bench.recorder.waitFor("s_finished", round * mostThreads));
    }
    QVERIFY(bench.hasAccepted(mostThreads));
}

// The connection that the redirect came by is next to one that may still carry an answer.
void tst_TarvisNetConnections::uncheckedHopLeavesTheDistrusted()
{
    QFETCH(const Mode, mode);
    TransferPolicy policy;
    policy.setConnectionsKept(true);
    ThreadsBench bench(policy, mode);
    bench.server.on("/target", answers::bytes(body));
    bench.withhold();
    bench.get({"/slow", "/moved"});
    QVERIFY(bench.server.waitForRequests(2));
    bench.client->abortDownload(QString("/slow"));
    bench.withheld["/moved"].send(302, {{"Location", bench.server.url("/target").toEncoded()}});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.recorder.last("s_rawGet").value(0).toJsonDocument(),
             QJsonDocument::fromJson(body));
    QVERIFY(bench.hasAccepted(3));
}

const TestClass<tst_TarvisNetConnections> testClass("tst_tarvisnet_connections");

} // namespace tst_tarvisnet_connections

#include "tst_tarvisnet_connections.moc"
