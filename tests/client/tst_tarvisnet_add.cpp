#include "clientbench.h"
#include "lockedqueue.h"
#include "recordfields.h"
#include "testclass.h"

#include <QtTest/QTest>

#include <functional>

Q_DECLARE_METATYPE(std::function<void(ReplyData &)>)

namespace tst_tarvisnet_add {

using namespace clientaccess;

using Change = std::function<void(ReplyData &)>;

namespace {

const ReplyData some = record(replies::raw_get, QUrl("http://127.0.0.1:9/some?a=b"));
const QString someUrl = some.request.url().toString();

} // namespace

/// What the queue takes in, and what it refuses.
class tst_TarvisNetAdd : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void refusesEqualRecord_data();
    void refusesEqualRecord();
    void acceptsDifferentRecord_data();
    void acceptsDifferentRecord();
    void acceptsAgainOnceStarted();
    void forcesEqualRecord();
    void reportsLockedQueue_data();
    void reportsLockedQueue();
    void logsItsOrigin();
};

void tst_TarvisNetAdd::refusesEqualRecord_data()
{
    QTest::addColumn<int>("active");
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("after");
    QTest::newRow("alone") << 0 << 0 << 0;
    QTest::newRow("first of three") << 0 << 0 << 2;
    QTest::newRow("in the middle") << 0 << 1 << 1;
    QTest::newRow("last of three") << 0 << 2 << 0;
    QTest::newRow("beside active ones") << 2 << 1 << 0;
}

void tst_TarvisNetAdd::refusesEqualRecord()
{
    QFETCH(const int, active);
    QFETCH(const int, before);
    QFETCH(const int, after);
    WaitingBench bench;
    const auto addNumbered = [&](const char *path, int count) {
        for (int number = 0; number < count; ++number)
            bench.get({path + QString::number(number)});
    };
    addNumbered("/active", active);
    bench.client->setStopProcess(true);
    addNumbered("/before", before);
    bench.add(some);
    addNumbered("/after", after);

    bench.forget();
    bench.add(some);
    QCOMPARE(bench.recorder.names(), QStringList("s_errorChanged"));
    QCOMPARE(bench.error(), failure(-221, someUrl));
    const QString text = QString("Contains request: \"%1\" active count: %2 added count: %3")
                             .arg(someUrl)
                             .arg(active)
                             .arg(before + 1 + after);
    QCOMPARE(bench.log.texts(QtWarningMsg), QStringList(text));
    QCOMPARE(bench.log.texts().size(), 1);
}

void tst_TarvisNetAdd::acceptsDifferentRecord_data()
{
    QTest::addColumn<Change>("change");
    const auto row = [](const char *name, const Change &change) { QTest::newRow(name) << change; };
    for (const recordfields::Field &field : recordfields::all)
        row(field.name, [field](ReplyData &record) { field.set(record, 1); });
    row("query", [](ReplyData &record) { record.request.setUrl(QUrl("http://127.0.0.1:9/some")); });
    row("header", [](ReplyData &record) { record.request.setRawHeader("X-More", "x"); });
    row("attribute",
        [](ReplyData &record) { record.request.setAttribute(QNetworkRequest::User, 1); });
}

void tst_TarvisNetAdd::acceptsDifferentRecord()
{
    QFETCH(const Change, change);
    ClientBench bench;
    bench.hold();
    ReplyData changed = some;
    change(changed);
    bench.add(some);
    bench.forget();
    bench.add(changed);
    QCOMPARE(bench.recorder.names(), QStringList("s_repliesCountChanged"));
    // It was stored whole.
    QVERIFY(bench.isPending(changed));
}

void tst_TarvisNetAdd::acceptsAgainOnceStarted()
{
    WaitingBench bench;
    bench.client->setParallelRequestsCount(1);
    const ReplyData request = record(replies::raw_get, bench.server.url("/same"));
    bench.add(request);
    bench.add(request);
    QCOMPARE(bench.errors(), QList<int>());
    bench.add(request);
    QCOMPARE(bench.errors(), QList<int>{-221});

    bench.call("removeReply", bench.running().first());
    bench.add(request);
    QCOMPARE(bench.errors(), QList<int>{-221});
}

void tst_TarvisNetAdd::forcesEqualRecord()
{
    ClientBench bench;
    bench.hold();
    const ReplyData request = record(replies::raw_get, bench.server.url("/same"));
    bench.add(request);
    bench.forceAdd(request);
    bench.forceAdd(request);
    const QStringList changed("s_repliesCountChanged");
    QCOMPARE(bench.recorder.names(), changed + changed + changed);
    bench.client->setStopProcess(false);
    for (int sent = 1; sent <= 3; ++sent) {
        bench.call("processReplies");
        QCOMPARE(bench.running().size(), sent);
    }
}

void tst_TarvisNetAdd::reportsLockedQueue_data()
{
    QTest::addColumn<QByteArray>("operation");
    QTest::newRow("add") << QByteArray("addRequest");
    QTest::newRow("forced add") << QByteArray("forceAddRequest");
}

void tst_TarvisNetAdd::reportsLockedQueue()
{
    QFETCH(const QByteArray, operation);
    ClientBench bench;
    bench.hold();
    {
        const LockedQueue locked(bench, record(replies::raw_get, QUrl("http://127.0.0.1:9/held")));
        bench.call(operation, Q_ARG(ReplyData, some));
        QCOMPARE(bench.recorder.names(), QStringList("s_errorChanged"));
        QCOMPARE(bench.error(), failure(-219, someUrl));
        QCOMPARE(bench.log.texts(QtWarningMsg), QStringList("Unable to lock mutex!"));
        QCOMPARE(bench.log.texts().size(), 1);
    }
    // The request was dropped, so it is no duplicate.
    bench.forget();
    bench.add(some);
    QCOMPARE(bench.recorder.names(), QStringList("s_repliesCountChanged"));
}

void tst_TarvisNetAdd::logsItsOrigin()
{
    ClientBench bench;
    bench.hold();
    bench.add(some);
    bench.add(some);
    bench.call("removeReply", nullptr);
    QCOMPARE(bench.log.originFault(sourceFile), QString());
    const QList<LogEntry> entries = bench.log.from(sourceFile);
    QCOMPARE(entries.size(), 2);
    QCOMPARE(entries.first().function, QByteArray("void TarvisNet::addRequest(const ReplyData&)"));
    QCOMPARE(entries.last().function, QByteArray("void TarvisNet::removeReply(QNetworkReply*)"));
}

const TestClass<tst_TarvisNetAdd> testClass("tst_tarvisnet_add");

} // namespace tst_tarvisnet_add

#include "tst_tarvisnet_add.moc"
