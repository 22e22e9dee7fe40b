#include "pingbench.h"
#include "testclass.h"

#include <QtTest/QTest>

#include <functional>

namespace tst_remoteping_count {

namespace {

using Edit = std::function<void(RemotePing &)>;

} // namespace

class tst_RemotePingCount : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startAndStop();
    void flagIsSetBeforeTheSignals();
    void stopsTheTimerFirst();
    void startsAgainWhileRunning();
    void countRule_data();
    void countRule();
    void countRuleByTheClock_data() { countRule_data(); }
    void countRuleByTheClock();
    void startWithoutCountIsEndless();
    void countBeforeTheFirstStart();
    void stopForgetsWhatWasSent();
    void failedSendsAreCounted_data();
    void failedSendsAreCounted();
};

void tst_RemotePingCount::startAndStop()
{
    PingBench bench;
    bench.ping->start();
    QVERIFY(bench.ping->isRunnig());
    QVERIFY(bench.timer()->isActive());
    QCOMPARE(bench.manager->count(), 0);
    QCOMPARE(bench.signals.names(), QStringList("s_started"));
    bench.ping->stop();
    QVERIFY(!bench.ping->isRunnig());
    QVERIFY(!bench.timer()->isActive());
    QCOMPARE(bench.signals.names(), QStringList({"s_started", "s_stopped"}));
    QCOMPARE(bench.log.texts(QtDebugMsg), QStringList({"Ping start", "Ping stop"}));

    bench.ping->stop();
    QCOMPARE(bench.signals.names(), QStringList({"s_started", "s_stopped", "s_stopped"}));
    QCOMPARE(bench.log.count(QtDebugMsg, "Ping stop"), 2);
}

void tst_RemotePingCount::flagIsSetBeforeTheSignals()
{
    PingBench bench;
    QStringList seen;
    const auto note = [&seen, &bench] {
        seen.append(QString("%1 %2").arg(bench.ping->isRunnig()).arg(bench.log.texts().last()));
    };
    connect(bench.ping.data(), &RemotePing::s_started, this, note);
    connect(bench.ping.data(), &RemotePing::s_stopped, this, note);
    bench.ping->start();
    bench.ping->stop();
    QCOMPARE(seen, QStringList({"1 Ping start", "0 Ping stop"}));
}

// Whoever hears that a reply is aborted may run an event loop: no ping is sent from there.
void tst_RemotePingCount::stopsTheTimerFirst()
{
    PingBench bench;
    bench.ping->start();
    bench.tick();
    QList<bool> active;
    connect(bench.manager->last().reply, &QNetworkReply::errorOccurred, this,
            [&] { active.append(bench.timer()->isActive()); });
    bench.ping->stop();
    QCOMPARE(active, QList<bool>{false});
}

void tst_RemotePingCount::startsAgainWhileRunning()
{
    PingBench bench;
    bench.ping->start(3);
    bench.tick(3);
    bench.ping->start(1);
    QVERIFY(bench.ping->isRunnig());
    QCOMPARE(bench.signals.names(), QStringList({"s_started", "s_started"}));
    QCOMPARE(bench.log.count(QtDebugMsg, "Ping start"), 2);

    // What is under way goes on; only the count begins anew.
    QCOMPARE(bench.aborts(), QList<int>({0, 0, 0}));
    bench.tick(2);
    QCOMPARE(bench.manager->count(), 3 + 2);
    QVERIFY(bench.ping->isRunnig());
    bench.tick();
    QCOMPARE(bench.manager->count(), 3 + 2);
    QVERIFY(!bench.ping->isRunnig());
}

void tst_RemotePingCount::countRule_data()
{
    QTest::addColumn<int>("count");
    // The last one clears nothing on its way.
    for (const int count : {0, 1, 3, 5, 320})
        QTest::addRow("%d", count) << count;
}

void tst_RemotePingCount::countRule()
{
    PingBench bench;
    QFETCH(int, count);

    bench.ping->start(count);
    for (int pings = 1; pings <= count + 1; ++pings) {
        bench.tick();
        QCOMPARE(bench.manager->count(), pings);
        QVERIFY(bench.ping->isRunnig());
        QCOMPARE(bench.aborts().count(0), pings);
    }
    bench.tick();
    QVERIFY(!bench.ping->isRunnig());
    QVERIFY(!bench.timer()->isActive());
    QCOMPARE(bench.signals.names(), QStringList({"s_started", "s_stopped"}));
    QCOMPARE(bench.manager->count(), count + 1);
    QCOMPARE(bench.aborts().count(1), count + 1);
}

void tst_RemotePingCount::countRuleByTheClock()
{
    PingBench bench;
    QFETCH(int, count);

    bench.ping->setPeriod(1);
    bench.ping->start(count);
    QVERIFY(bench.signals.waitFor("s_stopped"));
    QCOMPARE(bench.manager->count(), count + 1);
    QCOMPARE(bench.signals.count("s_stopped"), 1);
}

void tst_RemotePingCount::startWithoutCountIsEndless()
{
    PingBench bench;
    bench.call("start");
    bench.tick(50);
    QCOMPARE(bench.manager->count(), 50);
    QVERIFY(bench.ping->isRunnig());

    bench.ping->start(-7);
    bench.tick(50);
    QCOMPARE(bench.manager->count(), 100);
    QVERIFY(bench.ping->isRunnig());
}

// A probe that was never started has a count of five.
void tst_RemotePingCount::countBeforeTheFirstStart()
{
    PingBench bench;
    for (int i = 1; i <= 6; ++i) {
        bench.call("sendPing");
        QCOMPARE(bench.manager->count(), i);
    }
    QCOMPARE(bench.signals.names(), QStringList());
    bench.call("sendPing");
    QCOMPARE(bench.manager->count(), 6);
    QCOMPARE(bench.signals.names(), QStringList("s_stopped"));
}

void tst_RemotePingCount::stopForgetsWhatWasSent()
{
    PingBench bench;
    bench.ping->start(1);
    bench.tick(2);
    bench.ping->stop();
    bench.tick(2);
    QCOMPARE(bench.manager->count(), 4);
    QCOMPARE(bench.signals.count("s_stopped"), 1);
    bench.tick();
    QCOMPARE(bench.manager->count(), 4);
    QCOMPARE(bench.signals.count("s_stopped"), 2);
}

void tst_RemotePingCount::failedSendsAreCounted_data()
{
    QTest::addColumn<Edit>("spoil");
    QTest::addColumn<QString>("warning");
    const QString noUrl = "Incorrect URL: \"\"";
    QTest::newRow("no URL") << Edit([](RemotePing &ping) { ping.setUrl(QUrl()); }) << noUrl;
    QTest::newRow("invalid URL") << Edit([](RemotePing &ping) { ping.setUrl(QUrl("http://[")); })
                                 << noUrl;
    QTest::newRow("port above 32767")
        << Edit([](RemotePing &ping) { ping.setPort(short(40000)); }) << noUrl;
    QTest::newRow("no manager") << Edit([](RemotePing &ping) { ping.setManager({}); })
                                << "No network access manager. Must set it first!";
    QTest::newRow("neither URL nor manager") << Edit([](RemotePing &ping) {
        ping.setManager({});
        ping.setUrl(QUrl());
    }) << noUrl;
}

void tst_RemotePingCount::failedSendsAreCounted()
{
    PingBench bench;
    QFETCH(Edit, spoil);
    QFETCH(QString, warning);

    spoil(*bench.ping);
    bench.ping->start(1);
    bench.tick(2);
    QVERIFY(bench.ping->isRunnig());
    QCOMPARE(bench.log.texts(QtWarningMsg), QStringList({warning, warning}));
    QCOMPARE(bench.signals.names(), QStringList("s_started"));
    bench.tick();
    QCOMPARE(bench.signals.names(), QStringList({"s_started", "s_stopped"}));
    QCOMPARE(bench.log.texts(QtWarningMsg).size(), 2);
    QCOMPARE(bench.manager->count(), 0);
}

const TestClass<tst_RemotePingCount> testClass("tst_remoteping_count");

} // namespace tst_remoteping_count

#include "tst_remoteping_count.moc"
