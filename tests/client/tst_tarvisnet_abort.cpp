#include "clientbench.h"
#include "lockedqueue.h"
#include "testclass.h"

#include <QtTest/QTest>

namespace tst_tarvisnet_abort {

using namespace clientaccess;

/// Aborting by path: what waits, what runs, and whole lists of paths.
class tst_TarvisNetAbort : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void abortsPath_data();
    void abortsPath();
    void dropsPendingPath_data();
    void dropsPendingPath();
    void dropsEveryPendingRequestOfPath();
    void abortsFirstRunningReply_data();
    void abortsFirstRunningReply();
    void abortsFirstReplyOfPath();
    void skipsRepliesThatDoNotRun();
    void startsNextRequest();
    void stopsProbeFirst_data();
    void stopsProbeFirst();
    void abortsThoughQueueIsLocked();
    void keepsReplyThatFinishesAgain();
    void followsNoRedirect_data();
    void followsNoRedirect();

    void abortsList();
    void abortsNothing();
    void clearsStopFlagAndStartsOneRequest();
    void dropsLongLists();
};

namespace {

/// The place is free before the receivers know.
const QStringList freedAndAborted = {"s_repliesCountChanged", "s_aborted"};

/// The path that an operation is given beside the path in a URL, and whether they are the same.
void addPathRows()
{
    QTest::addColumn<QString>("pathAndQuery");
    QTest::addColumn<QString>("argument");
    QTest::addColumn<bool>("matches");
    const auto row = [](const char *name, const char *pathAndQuery, const char *argument,
                        bool matches) {
        QTest::newRow(name) << QString(pathAndQuery) << QString::fromUtf8(argument) << matches;
    };
    row("same", "/dir/file", "/dir/file", true);
    row("other", "/file", "/elif", false);
    row("beginning", "/dir/file", "/dir", false);
    row("end", "/dir/file", "/file", false);
    row("other case", "/file", "/File", false);
    row("beside a query", "/file?a=b", "/file", true);
    row("with the query", "/file?a=b", "/file?a=b", false);
    row("blank", "/my%20file", "/my file", true);
    row("encoded blank", "/my%20file", "/my%20file", false);
    row("letter", "/%C3%BCber", "/über", true);
    row("slash", "/dir%2Ffile", "/dir/file", true);
    row("percent sign", "/100%25", "/100%", true);
}

} // namespace

void tst_TarvisNetAbort::abortsPath_data()
{
    addPathRows();
    QTest::newRow("any") << QString("/file") << QString() << true;
}

void tst_TarvisNetAbort::abortsPath()
{
    QFETCH(const QString, pathAndQuery);
    QFETCH(const QString, argument);
    QFETCH(const bool, matches);
    WaitingBench bench;
    bench.get({pathAndQuery});
    bench.forget();
    bench.client->abortDownload(argument);
    QCOMPARE(bench.recorder.names(), matches ? freedAndAborted : QStringList());
    QCOMPARE(bench.abortedUrls(), matches ? bench.urls({pathAndQuery}) : QStringList());
    QCOMPARE(bench.running().size(), matches ? 0 : 1);
}

void tst_TarvisNetAbort::dropsPendingPath_data()
{
    addPathRows();
    QTest::newRow("no path") << QString() << QString() << true;
    QTest::newRow("root") << QString("/") << QString() << false;
    QTest::newRow("any path") << QString("/file") << QString() << false;
}

void tst_TarvisNetAbort::dropsPendingPath()
{
    QFETCH(const QString, pathAndQuery);
    QFETCH(const QString, argument);
    QFETCH(const bool, matches);
    WaitingBench bench;
    const ReplyData pending = record(replies::raw_get, bench.server.url(pathAndQuery));
    bench.client->setStopProcess(true);
    bench.add(pending);
    bench.forget();
    bench.client->abortDownload(argument);
    QCOMPARE(bench.recorder.names(), QStringList());
    QCOMPARE(bench.isPending(pending), !matches);
}

void tst_TarvisNetAbort::dropsEveryPendingRequestOfPath()
{
    WaitingBench bench;
    bench.hold();
    bench.get({"/file?1", "/1", "/file?2", "/2", "/file?3"});
    bench.client->forceRawGet(bench.server.url("/file?3"));
    bench.client->abortDownload("/file");
    bench.client->setStopProcess(false);
    for (int call = 0; call < 5; ++call)
        Q_EMIT bench.client->s_repliesCountChanged();
    QCOMPARE(bench.runningPaths(), QStringList({"/1", "/2"}));
}

void tst_TarvisNetAbort::abortsFirstRunningReply_data()
{
    QTest::addColumn<bool>("withArgument");
    QTest::newRow("without argument") << false;
    QTest::newRow("with an empty one") << true;
}

void tst_TarvisNetAbort::abortsFirstRunningReply()
{
    QFETCH(const bool, withArgument);
    WaitingBench bench;
    bench.get({"/1", "/2", "/3"});
    QStringList urls = bench.runningUrls();
    const QString first = urls.takeFirst();
    bench.forget();
    if (withArgument)
        bench.client->abortDownload(QString());
    else
        bench.client->abortDownload();
    QCOMPARE(bench.recorder.names(), freedAndAborted);
    QCOMPARE(bench.abortedUrls(), QStringList(first));
    QCOMPARE(bench.runningUrls(), urls);
}

void tst_TarvisNetAbort::abortsFirstReplyOfPath()
{
    WaitingBench bench;
    bench.get({"/file?1", "/other", "/file?2"});
    const QString expected = bench.runningUrls().filter("/file").first();
    bench.client->abortDownload("/file");
    QCOMPARE(bench.abortedUrls(), QStringList(expected));
    QCOMPARE(bench.runningPaths(), QStringList({"/file", "/other"}));
}

void tst_TarvisNetAbort::skipsRepliesThatDoNotRun()
{
    WaitingBench bench;
    bench.server.on("/old", answers::redirect(302, bench.server.url("/new").toEncoded()));
    bench.get({"/old"});
    QVERIFY(bench.server.waitForRequests(2));
    bench.forget();
    bench.client->abortDownload("/old");
    QCOMPARE(bench.recorder.names(), QStringList());
    bench.client->abortDownload();
    QCOMPARE(bench.abortedUrls(), bench.urls({"/new"}));
}

void tst_TarvisNetAbort::startsNextRequest()
{
    WaitingBench bench;
    bench.client->setParallelRequestsCount(1);
    bench.get({"/file?1", "/file?2", "/next", "/last"});
    QVERIFY(bench.server.waitForRequests(1));
    bench.client->abortDownload("/file");
    QCOMPARE(bench.runningPaths(), QStringList("/next"));
    QVERIFY(bench.server.waitForRequests(2));
    QCOMPARE(bench.server.requests().last().path(), QByteArray("/next"));
}

void tst_TarvisNetAbort::stopsProbeFirst_data()
{
    QTest::addColumn<bool>("asList");
    QTest::addColumn<QStringList>("names");
    const QStringList flag("s_stopProcessChanged");
    const QStringList ended = {"s_repliesCountChanged", "s_stopPing", "s_aborted"};
    QTest::newRow("one") << false << ended;
    QTest::newRow("list") << true << flag + ended + flag;
}

void tst_TarvisNetAbort::stopsProbeFirst()
{
    QFETCH(const bool, asList);
    WaitingBench bench;
    bench.client->fetchBinary(bench.server.url("/file"), "nowhere", 1000);
    QVERIFY(bench.server.waitForRequests(1));
    bench.forget();
    if (asList)
        bench.client->abortDownload(QStringList("/file"));
    else
        bench.client->abortDownload("/file");
    QTEST(bench.recorder.names(), "names");
    // Aborting finished the reply, and so took it out of the table before its removal.
    QCOMPARE(bench.log.count(QtWarningMsg, "Reply is removed erlier"), 1);
    QCOMPARE(bench.log.count(QtDebugMsg, "Ping stop"), 1);
    QVERIFY(bench.server.waitForConnections(0));
}

void tst_TarvisNetAbort::abortsThoughQueueIsLocked()
{
    WaitingBench bench;
    bench.get({"/file?active"});
    bench.hold();
    const ReplyData pending = record(replies::raw_get, bench.server.url("/file?pending"));
    {
        const LockedQueue locked(bench, pending);
        bench.client->abortDownload("/file");
        QCOMPARE(bench.recorder.names(), QStringList("s_errorChanged") + freedAndAborted);
        QCOMPARE(bench.error(), failure(-219, "/file"));
        QCOMPARE(bench.log.texts(QtWarningMsg).value(0), "Unable to lock mutex!");
        QCOMPARE(bench.log.count(QtWarningMsg, "Unable to lock mutex!"), 1);
    }
    QVERIFY(bench.isPending(pending));
}

// A reply may have ended a moment before it is aborted. In a receiver's event loop it then tells of
// that end too, and nobody knows it any more; but its abort() is still on the call stack.
void tst_TarvisNetAbort::keepsReplyThatFinishesAgain()
{
    WaitingBench bench;
    bench.get({"/1"});
    const QPointer<QNetworkReply> reply = bench.running().constFirst();
    bool isThere = false;
    QObject receiver;
    connect(bench.client, &TarvisNet::s_repliesCountChanged, &receiver, [&] {
        Q_EMIT reply->finished();
        QCoreApplication::sendPostedEvents(reply, QEvent::DeferredDelete);
        isThere = !reply.isNull();
    });
    bench.client->abortDownload();
    QVERIFY(isThere);
    QCoreApplication::sendPostedEvents(reply, QEvent::DeferredDelete);
    QVERIFY(reply.isNull());
}

void tst_TarvisNetAbort::followsNoRedirect_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    TransferPolicy explained;
    explained.setErrorsExplained(true);
    QTest::newRow("any policy") << explained;
    QTest::newRow("strict") << TransferPolicy::strict();
    QTest::newRow("fast") << TransferPolicy::fast();
}

// Whose head has arrived, while its body has not.
void tst_TarvisNetAbort::followsNoRedirect()
{
    QFETCH(const TransferPolicy, policy);
    ClientBench bench(ScriptedServer::Mode::Http, policy);
    bench.server.onRequest(answers::json({}));
    bench.server.on("/a", [&bench](const HttpRequest &, HttpResponse &response) {
        response.sendHead(302, {{"Location", bench.server.url("/b").toEncoded()}}, 1000);
        response.write("This has moved.");
    });
    bench.get({"/a"});
    const QPointer<QNetworkReply> reply = bench.replies().constFirst();
    QTRY_VERIFY(reply->attribute(QNetworkRequest::RedirectionTargetAttribute).isValid());
    bench.client->abortDownload();
    bench.get({"/c"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QTRY_COMPARE(bench.replies().size(), 0);
    QCOMPARE(bench.abortedUrls(), bench.urls({"/a"}));
    QCOMPARE(bench.recorder.count("s_rawGet"), 1);
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.server.requests("/b").size(), 0);
}

void tst_TarvisNetAbort::abortsList()
{
    WaitingBench bench;
    bench.client->setParallelRequestsCount(3);
    bench.get({"/1", "/2", "/3", "/4", "/5", "/6"});
    QList<bool> flags;
    QObject receiver;
    connect(bench.client, &TarvisNet::s_stopProcessChanged, &receiver,
            [&] { flags.append(bench.client->isStopProcess()); });
    bench.forget();
    bench.client->abortDownload(QStringList({"/3", "/unknown", "/4", "/1"}));

    const QStringList flag("s_stopProcessChanged");
    QCOMPARE(bench.recorder.names(), flag + freedAndAborted + freedAndAborted + flag);
    QCOMPARE(flags, QList<bool>({true, false}));
    QCOMPARE(bench.abortedUrls(), bench.urls({"/3", "/1"}));
    // Two places are free, and one request starts at the end; "/4" is gone.
    QCOMPARE(bench.runningPaths(), QStringList({"/2", "/5"}));
    Q_EMIT bench.client->s_repliesCountChanged();
    QCOMPARE(bench.runningPaths(), QStringList({"/2", "/5", "/6"}));
}

void tst_TarvisNetAbort::abortsNothing()
{
    WaitingBench bench;
    bench.get({"/file"});
    bench.forget();
    bench.client->abortDownload(QStringList());
    QCOMPARE(bench.recorder.names(), QStringList({"s_stopProcessChanged", "s_stopProcessChanged"}));
    QCOMPARE(bench.runningPaths(), QStringList("/file"));
}

void tst_TarvisNetAbort::clearsStopFlagAndStartsOneRequest()
{
    WaitingBench bench;
    bench.hold();
    bench.get({"/1", "/2", "/3"});
    bench.forget();
    bench.client->abortDownload(QStringList("/1"));
    QVERIFY(!bench.client->isStopProcess());
    QCOMPARE(bench.recorder.names(), QStringList("s_stopProcessChanged"));
    QCOMPARE(bench.runningPaths(), QStringList("/2"));
}

void tst_TarvisNetAbort::dropsLongLists()
{
    const int count = 100000;
    int added = 0;
    WaitingBench bench;
    bench.hold();
    // Recording each of so many additions would take longer than all the rest.
    disconnect(bench.client, nullptr, &bench.recorder, nullptr);
    connect(bench.client, &TarvisNet::s_repliesCountChanged, this, [&added] { ++added; });
    QStringList paths;
    for (int number = 0; number < count; ++number)
        paths.append("/" + QString::number(number));
    bench.get(paths + QStringList("/kept"));
    QCOMPARE(added, count + 1);

    const SignalRecorder recorder(bench.client, {"s_aborted", "s_errorChanged"});
    bench.client->abortDownload(paths);
    QCOMPARE(bench.runningPaths(), QStringList("/kept"));
    Q_EMIT bench.client->s_repliesCountChanged();
    QCOMPARE(bench.runningPaths(), QStringList("/kept"));
    QCOMPARE(recorder.names(), QStringList());
}

const TestClass<tst_TarvisNetAbort> testClass("tst_tarvisnet_abort");

} // namespace tst_tarvisnet_abort

#include "tst_tarvisnet_abort.moc"
