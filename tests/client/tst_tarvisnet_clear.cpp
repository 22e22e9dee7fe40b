#include "clientbench.h"
#include "fakereply.h"
#include "testclass.h"

#include <QtCore/QRegularExpression>
#include <QtTest/QTest>

namespace tst_tarvisnet_clear {

/// Aborting one reply, and all of them.
class tst_TarvisNetClear : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void killsReply();
    void killsActiveReply();

    void clearsReplies();
    void clearsWithoutStarting();
    void clearsRedirectedReply();
};

namespace {

/// The place is free before the receivers know.
const QStringList freedAndAborted = {"s_repliesCountChanged", "s_aborted"};

} // namespace

void tst_TarvisNetClear::killsReply()
{
    const WaitingBench bench;
    FakeReply reply(QUrl("http://127.0.0.1:9/a%20b?c=d"));
    const SignalRecorder replyRecorder(&reply, {"finished"});
    bench.call("killReply", nullptr);
    QCOMPARE(bench.recorder.names(), QStringList());
    bench.call("killReply", &reply);
    QCOMPARE(reply.abortCalls(), 1);
    QCOMPARE(bench.recorder.names(), QStringList("s_aborted"));
    QCOMPARE(bench.abortedUrls(), QStringList(reply.url().toString()));
    QVERIFY(replyRecorder.calls().value(0).order < bench.recorder.calls().value(0).order);
}

void tst_TarvisNetClear::killsActiveReply()
{
    WaitingBench bench;
    bench.get({"/file"});
    bench.forget();
    bench.call("killReply", bench.running().first());
    QCOMPARE(bench.recorder.names(), freedAndAborted);
    QCOMPARE(bench.abortedUrls(), bench.urls({"/file"}));
    QCOMPARE(bench.runningPaths(), QStringList());
}

void tst_TarvisNetClear::clearsReplies()
{
    WaitingBench bench;
    bench.get({"/1", "/2", "/3"});
    const QStringList inTableOrder = bench.runningUrls();

    bench.forget();
    bench.call("clearReplies");
    QCOMPARE(bench.abortedUrls(), inTableOrder);
    QCOMPARE(bench.recorder.names(), freedAndAborted + freedAndAborted + freedAndAborted);
    QCOMPARE(bench.runningPaths(), QStringList());

    bench.call("clearReplies");
    QCOMPARE(bench.recorder.count("s_aborted"), 3);
}

void tst_TarvisNetClear::clearsWithoutStarting()
{
    WaitingBench bench;
    bench.client->setParallelRequestsCount(2);
    bench.get({"/1", "/2", "/3", "/4"});
    QStringList started;
    QObject receiver;
    connect(bench.client, &TarvisNet::s_aborted, &receiver, [&bench, &started] {
        Q_EMIT bench.client->s_repliesCountChanged();
        started += bench.runningPaths().filter(QRegularExpression("[34]"));
    });
    bench.call("clearReplies");
    QCOMPARE(started, QStringList());
    QCOMPARE(bench.runningPaths(), QStringList());

    Q_EMIT bench.client->s_repliesCountChanged();
    QCOMPARE(bench.runningPaths(), QStringList("/3"));
    Q_EMIT bench.client->s_repliesCountChanged();
    QCOMPARE(bench.runningPaths(), QStringList({"/3", "/4"}));
}

// A redirected reply is finished and still in the table: nothing but clearing takes it out.
void tst_TarvisNetClear::clearsRedirectedReply()
{
    WaitingBench bench;
    bench.server.on("/old", answers::redirect(302, bench.server.url("/new").toEncoded()));
    bench.get({"/old"});
    const QPointer<QNetworkReply> redirected = bench.running().first();
    QVERIFY(bench.server.waitForRequests(2));

    bench.forget();
    bench.call("clearReplies");
    QStringList aborted = bench.abortedUrls();
    aborted.sort();
    QCOMPARE(aborted, bench.urls({"/new", "/old"}));
    QCOMPARE(bench.recorder.count("s_repliesCountChanged"), 1);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY2(redirected, "cleared replies are not deleted");

    bench.call("removeReply", redirected);
    QVERIFY(bench.log.contains(QtWarningMsg, "Reply is removed erlier"));
}

const TestClass<tst_TarvisNetClear> testClass("tst_tarvisnet_clear");

} // namespace tst_tarvisnet_clear

#include "tst_tarvisnet_clear.moc"
