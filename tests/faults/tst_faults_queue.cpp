#include "clientbench.h"
#include "endings.h"
#include "faultrows.h"
#include "strictbench.h"
#include "testclass.h"

#include <QtTest/QTest>

#include <algorithm>

namespace tst_faults_queue {

using namespace clientaccess;

using endings::signalText;
using faultrows::Mode;

/// How a server fails one request for ever, and how that ends.
struct Failing {
    QByteArray name;
    ScriptedServer::Handler answer;
    Code code;
};

} // namespace tst_faults_queue

Q_DECLARE_METATYPE(tst_faults_queue::Failing)

namespace tst_faults_queue {

namespace {

const QString changed = "s_repliesCountChanged";

/// A client that asks a server which keeps each answer until it is told to give it.
struct QueueBench : ClientBench {
    explicit QueueBench(Mode mode, const TransferPolicy &policy = StrictBench::impatient())
        : ClientBench(mode, policy)
    {
        server.onRequest([this](const HttpRequest &request, HttpResponse &response) {
            held.insert(request.path(), response);
        });
    }

    void ask(const QList<QByteArray> &paths)
    {
        for (const QByteArray &path : paths)
            client->rawGet(server.url(path));
    }
    /// Gives the answer to \a path and waits until the client is done with it.
    bool answer(const QByteArray &path)
    {
        const int before = recorder.count(changed);
        held[path].send(200, {}, "[]");
        return recorder.waitFor(changed, before + 1);
    }
    /// The result of a request for \a path.
    QString result(const QString &path) const
    {
        return signalText("s_rawGet", {QJsonDocument::fromJson("[]"), url(path)});
    }
    /// The URLs of all results, in alphabetical order.
    QStringList results() const
    {
        QStringList urls;
        for (const QVariantList &arguments : recorder.of("s_rawGet"))
            urls.append(arguments.at(1).toString());
        urls.sort();
        return urls;
    }
    /// What the server was asked for, in the order of arrival.
    QList<QByteArray> asked() const
    {
        QList<QByteArray> paths;
        for (const HttpRequest &request : server.requests())
            paths.append(request.path());
        return paths;
    }
    /// How many requests the client is waiting for.
    int running() const
    {
        int count = 0;
        for (const QNetworkReply *reply : repliesOf(*client))
            count += reply->isRunning() ? 1 : 0;
        return count;
    }

    QMap<QByteArray, HttpResponse> held;
};

/// Over HTTP and over HTTPS, without a policy and with a strict one.
void addModesAndPolicies()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<TransferPolicy>("policy");
    QTest::newRow("HTTP") << Mode::Http << TransferPolicy();
    QTest::newRow("HTTPS") << Mode::Https << TransferPolicy();
    QTest::newRow("HTTP, strict") << Mode::Http << StrictBench::impatient();
    QTest::newRow("HTTPS, strict") << Mode::Https << StrictBench::impatient();
}

} // namespace

/// Requests that wait for their turn, while the server is slow.
class tst_FaultsQueue : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void limitIsRaised_data() { addModesAndPolicies(); }
    void limitIsRaised();
    void stopFlagHoldsRequests_data() { addModesAndPolicies(); }
    void stopFlagHoldsRequests();
    void stopFlagLetsRedirectsGo_data() { addModesAndPolicies(); }
    void stopFlagLetsRedirectsGo();
    void failsAlone_data();
    void failsAlone();
    void failsUnderTheStopFlag_data() { faultrows::addModes(); }
    void failsUnderTheStopFlag();
    void endsWithTheClient_data() { faultrows::addModes(); }
    void endsWithTheClient();
};

// Each change starts one request, however many places are free.
void tst_FaultsQueue::limitIsRaised()
{
    QFETCH(Mode, mode);
    QFETCH(TransferPolicy, policy);

    QueueBench bench(mode, policy);
    bench.client->setParallelRequestsCount(1);
    bench.recorder.clear();
    bench.ask({"/1", "/2", "/3", "/4"});
    bench.client->setParallelRequestsCount(3);
    QCOMPARE(bench.running(), 1);
    QVERIFY(bench.server.waitForRequests(1));

    QVERIFY(bench.answer("/1"));
    QCOMPARE(bench.running(), 1);
    QVERIFY(bench.server.waitForRequests(2));
    bench.ask({"/5"});
    QCOMPARE(bench.running(), 2);
    QVERIFY(bench.server.waitForRequests(3));
    for (const char *path : {"/2", "/3"})
        QVERIFY(bench.answer(path));
    QVERIFY(bench.server.waitForRequests(5));
    for (const char *path : {"/4", "/5"})
        QVERIFY(bench.answer(path));

    QList<QByteArray> asked = bench.asked();
    // The last two are on their way side by side.
    std::sort(asked.begin() + 3, asked.end());
    QCOMPARE(asked, QList<QByteArray>({"/1", "/2", "/3", "/4", "/5"}));
    QCOMPARE(endings::seen(bench.recorder),
             QStringList({changed, changed, changed, changed, "s_parallelRequestCountChanged",
                          bench.result("/1"), changed, changed, bench.result("/2"), changed,
                          bench.result("/3"), changed, bench.result("/4"), changed,
                          bench.result("/5"), changed}));
    QCOMPARE(bench.messages(), QStringList());
}

// What runs is answered all the same. Clearing the flag starts nothing, the next change does.
void tst_FaultsQueue::stopFlagHoldsRequests()
{
    QFETCH(Mode, mode);
    QFETCH(TransferPolicy, policy);

    QueueBench bench(mode, policy);
    bench.ask({"/1"});
    QVERIFY(bench.server.waitForRequests(1));
    bench.client->setStopProcess(true);
    bench.ask({"/2", "/3"});
    QVERIFY(bench.answer("/1"));
    QCOMPARE(bench.running(), 0);
    bench.client->setStopProcess(false);
    QCOMPARE(bench.running(), 0);

    bench.ask({"/4"});
    QCOMPARE(bench.running(), 1);
    for (int done = 1; done <= 3; ++done) {
        QVERIFY(bench.server.waitForRequests(done + 1));
        QVERIFY(bench.answer(bench.asked().constLast()));
    }

    QCOMPARE(bench.asked(), QList<QByteArray>({"/1", "/2", "/3", "/4"}));
    QCOMPARE(endings::seen(bench.recorder),
             QStringList({changed, "s_stopProcessChanged", changed, changed, bench.result("/1"),
                          changed, "s_stopProcessChanged", changed, bench.result("/2"), changed,
                          bench.result("/3"), changed, bench.result("/4"), changed}));
    QCOMPARE(bench.messages(), QStringList());
}

// They do not pass through the queue.
void tst_FaultsQueue::stopFlagLetsRedirectsGo()
{
    QFETCH(Mode, mode);
    QFETCH(TransferPolicy, policy);

    QueueBench bench(mode, policy);
    bench.ask({"/1"});
    QVERIFY(bench.server.waitForRequests(1));
    bench.client->setStopProcess(true);
    const QByteArray target = bench.server.url("/2").toEncoded();
    bench.held["/1"].send(302, {{"Location", target}});
    QVERIFY(bench.server.waitForRequests(2));
    QVERIFY(bench.answer("/2"));
    QTRY_COMPARE(repliesOf(*bench.client).size(), 0);

    QCOMPARE(bench.asked(), QList<QByteArray>({"/1", "/2"}));
    QStringList expected = {changed, "s_stopProcessChanged", bench.result("/1"), changed};
    // The redirect has a place of its own, unless it is checked.
    if (!policy.redirectsChecked())
        expected.append(changed);
    QCOMPARE(endings::seen(bench.recorder), expected);
}

void tst_FaultsQueue::failsAlone_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<Failing>("failing");
    const Failing rows[] = {
        {"refused", answers::status(404), -217},
        {"not authorised", answers::status(401), -213},
        {"forbidden", answers::status(403), -203},
        {"failing for ever", answers::status(503), -203},
        {"cut", answers::cutShort("[]"), -203},
        {"astray", answers::redirect(302, "other://127.0.0.1/1"), -224},
    };
    for (const Failing &row : rows)
        faultrows::addInBothModes(row);
}

// Two at a time, one of which is answered last. The other place is that of all the others.
void tst_FaultsQueue::failsAlone()
{
    QFETCH(Mode, mode);
    QFETCH(Failing, failing);

    QueueBench bench(mode);
    bench.server.on("/1", failing.answer);
    for (const char *path : {"/3", "/4"})
        bench.server.on(path, answers::bytes("[]"));
    bench.client->setParallelRequestsCount(2);
    bench.ask({"/1", "/2", "/3", "/4"});
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QVERIFY(bench.recorder.waitFor("s_rawGet", 2));
    QVERIFY(bench.answer("/2"));

    QCOMPARE(bench.errors(), QList<int>{failing.code});
    QCOMPARE(bench.error().at(1).toString(), bench.url("/1"));
    QCOMPARE(bench.results(), bench.urls({"/2", "/3", "/4"}));
    QCOMPARE(bench.abortedUrls(), QStringList());
    QCOMPARE(bench.running(), 0);
}

// What waits goes on waiting, and is asked for as ever.
void tst_FaultsQueue::failsUnderTheStopFlag()
{
    QFETCH(Mode, mode);

    QueueBench bench(mode);
    bench.ask({"/1"});
    QVERIFY(bench.server.waitForRequests(1));
    bench.client->setStopProcess(true);
    bench.ask({"/2", "/3"});
    bench.held["/1"].send(404);
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.running(), 0);
    bench.client->setStopProcess(false);
    bench.ask({"/4"});
    for (int done = 1; done <= 3; ++done) {
        QVERIFY(bench.server.waitForRequests(done + 1));
        QVERIFY(bench.answer(bench.asked().constLast()));
    }

    QCOMPARE(bench.errors(), QList<int>{-217});
    QCOMPARE(bench.results(), bench.urls({"/2", "/3", "/4"}));
    QCOMPARE(bench.abortedUrls(), QStringList());
}

// Also what nobody has asked the server for yet.
void tst_FaultsQueue::endsWithTheClient()
{
    QFETCH(Mode, mode);

    QueueBench bench(mode);
    bench.client->setParallelRequestsCount(1);
    bench.ask({"/1", "/2"});
    QVERIFY(bench.server.waitForRequests(1));
    bench.client->setStopProcess(true);
    bench.ask({"/3"});
    delete bench.client;

    QStringList aborted = bench.abortedUrls();
    aborted.sort();
    QCOMPARE(aborted, bench.urls({"/1", "/2", "/3"}));
    QCOMPARE(bench.asked(), QList<QByteArray>{"/1"});
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.results(), QStringList());
}

const TestClass<tst_FaultsQueue> testClass("tst_faults_queue");

} // namespace tst_faults_queue

#include "tst_faults_queue.moc"
