#include "clientbench.h"
#include "fakereply.h"
#include "lockedqueue.h"
#include "operations.h"
#include "testclass.h"

#include <QtTest/QTest>

namespace tst_tarvisnet_queue {

using namespace clientaccess;

/// When the queue sends what it holds, how, and what ends a request. Slow servers are in the tests
/// of faults.
class tst_TarvisNetQueue : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sendsVerbOfKind_data();
    void sendsVerbOfKind();

    void startsNothingWhileLocked();
    void dropsEmptyRecord();

    void limitsParallelRequests_data();
    void limitsParallelRequests();
    void sendsInOrderOfArrival();
    void startsOneRequestPerCall();
    void countsRedirects();

    void removesNoReply_data();
    void removesNoReply();
    void removesActiveReply();
};

void tst_TarvisNetQueue::sendsVerbOfKind_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QByteArray>("verb");
    for (const RequestKind &kind : requestkinds::all())
        QTest::newRow(kind.name) << QString(kind.name) << QByteArray(kind.verb);
    for (const char *kind : {"redirectReply", "neverHeardOf", "rawpost"})
        QTest::newRow(kind) << QString(kind) << QByteArray("GET");
}

void tst_TarvisNetQueue::sendsVerbOfKind()
{
    QFETCH(const QString, kind);
    QFETCH(const QByteArray, verb);
    ClientBench bench;
    ReplyData request = record(kind, bench.server.url("/there?a=b"));
    request.data = "some body";
    bench.add(request);
    QVERIFY(bench.server.waitForRequests(1));
    const HttpRequest sent = bench.server.requests().first();
    QCOMPARE(sent.target, QByteArray("/there?a=b"));
    QCOMPARE(sent.method, verb);
    QCOMPARE(sent.body, verb == "GET" ? QByteArray() : QByteArray("some body"));
}

void tst_TarvisNetQueue::startsNothingWhileLocked()
{
    ClientBench bench;
    {
        const LockedQueue locked(bench, record(replies::raw_get, bench.server.url("/held")));
        bench.call("processReplies");
        QCOMPARE(bench.log.texts(QtWarningMsg), QStringList("Unable to get reply data"));
        QCOMPARE(bench.recorder.names(), QStringList());
        QCOMPARE(bench.runningPaths(), QStringList());
    }
    bench.call("processReplies");
    QCOMPARE(bench.runningPaths(), QStringList("/held"));
}

void tst_TarvisNetQueue::dropsEmptyRecord()
{
    const ClientBench bench;
    bench.add(ReplyData());
    QCOMPARE(bench.log.texts(QtWarningMsg), QStringList("Unable to get reply data"));
    QCOMPARE(bench.recorder.names(), QStringList("s_repliesCountChanged"));

    bench.get({"/next"});
    QCOMPARE(bench.runningPaths(), QStringList("/next"));
}

void tst_TarvisNetQueue::limitsParallelRequests_data()
{
    QTest::addColumn<int>("limit");
    for (int limit = 1; limit <= 5; ++limit)
        QTest::newRow(qPrintable(QString::number(limit))) << limit;
}

void tst_TarvisNetQueue::limitsParallelRequests()
{
    QFETCH(const int, limit);
    QList<HttpResponse> held;
    ClientBench bench;
    bench.server.onRequest(
        [&held](const HttpRequest &, HttpResponse &response) { held.append(response); });
    bench.client->setParallelRequestsCount(limit);
    const int all = 7;
    for (int number = 0; number < all; ++number)
        bench.get({"/" + QString::number(number)});
    QCOMPARE(bench.running().size(), limit);

    // Each answer lets one more go.
    for (int done = 1; done <= all; ++done) {
        QVERIFY(bench.server.waitForRequests(qMin(all, limit + done - 1)));
        held.takeFirst().send(200, {}, "{}");
        QVERIFY(bench.recorder.waitFor("s_rawGet", done));
        QCOMPARE(bench.running().size(), qMin(limit, all - done));
    }
}

void tst_TarvisNetQueue::sendsInOrderOfArrival()
{
    ClientBench bench;
    bench.server.onRequest(answers::json({}));
    bench.client->setParallelRequestsCount(1);
    const QStringList paths = {"/c", "/a", "/d", "/b"};
    bench.get(paths);
    QVERIFY(bench.recorder.waitFor("s_rawGet", paths.size()));
    QStringList seen;
    for (const HttpRequest &request : bench.server.requests())
        seen.append(request.path());
    QCOMPARE(seen, paths);
}

void tst_TarvisNetQueue::startsOneRequestPerCall()
{
    ClientBench bench;
    bench.hold();
    bench.get({"/1", "/2", "/3"});
    bench.client->setStopProcess(false);
    bench.forget();
    bench.call("processReplies");
    QCOMPARE(bench.runningPaths(), QStringList("/1"));
    bench.call("processReplies");
    QCOMPARE(bench.runningPaths(), QStringList({"/1", "/2"}));
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_TarvisNetQueue::countsRedirects()
{
    HttpResponse held;
    ClientBench bench;
    bench.server.on("/old", answers::redirect(302, bench.server.url("/new").toEncoded()));
    bench.server.on("/new",
                    [&held](const HttpRequest &, HttpResponse &response) { held = response; });
    bench.server.on("/waiting", answers::json({}));
    bench.client->setParallelRequestsCount(2);
    bench.get({"/old"});
    QVERIFY(bench.server.waitForRequests(2));

    bench.get({"/waiting"});
    QCOMPARE(bench.runningPaths(), QStringList("/new"));
    held.send(200, {}, "{}");
    QVERIFY(bench.recorder.waitFor("s_rawGet", 2));
    QCOMPARE(bench.recorder.of("s_rawGet").at(0).at(1).toString(), bench.url("/old"));
    QCOMPARE(bench.recorder.of("s_rawGet").at(1).at(1).toString(), bench.url("/waiting"));
}

void tst_TarvisNetQueue::removesNoReply_data()
{
    QTest::addColumn<bool>("isNull");
    QTest::addColumn<QString>("text");
    QTest::newRow("null") << true << "Nothing to remove - reply is null";
    QTest::newRow("unknown reply") << false << "Reply is removed erlier";
}

void tst_TarvisNetQueue::removesNoReply()
{
    QFETCH(const bool, isNull);
    QFETCH(const QString, text);
    const ClientBench bench;
    const QPointer<QNetworkReply> reply = new FakeReply(QUrl("http://127.0.0.1:9/"), bench.client);
    bench.call("removeReply", isNull ? nullptr : reply.data());
    QCOMPARE(bench.log.texts(QtWarningMsg), QStringList(text));
    QCOMPARE(bench.log.texts().size(), 1);
    QCOMPARE(bench.recorder.names(), QStringList());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(reply);
}

void tst_TarvisNetQueue::removesActiveReply()
{
    WaitingBench bench;
    bench.client->setParallelRequestsCount(1);
    bench.get({"/active", "/pending"});
    QVERIFY(bench.server.waitForRequests(1));
    const QPointer<QNetworkReply> reply = bench.running().first();

    bench.forget();
    bench.call("removeReply", reply);
    QCOMPARE(bench.recorder.names(), QStringList("s_repliesCountChanged"));
    QCOMPARE(bench.log.texts(), QStringList());
    QVERIFY(reply);
    QCOMPARE(bench.runningPaths(), QStringList({"/active", "/pending"}));

    bench.call("removeReply", reply);
    QCOMPARE(bench.log.texts(QtWarningMsg), QStringList("Reply is removed erlier"));
    QCOMPARE(bench.recorder.count("s_repliesCountChanged"), 1);

    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!reply);
    QVERIFY(bench.server.waitForRequests(2));
    QCOMPARE(bench.server.requests().last().path(), QByteArray("/pending"));
}

const TestClass<tst_TarvisNetQueue> testClass("tst_tarvisnet_queue");

} // namespace tst_tarvisnet_queue

#include "tst_tarvisnet_queue.moc"
