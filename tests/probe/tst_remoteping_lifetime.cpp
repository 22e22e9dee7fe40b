#include "answers.h"
#include "pingbench.h"
#include "scriptedserver.h"
#include "testclass.h"

#include <QtCore/QWeakPointer>
#include <QtTest/QTest>

#include <functional>

Q_DECLARE_METATYPE(std::function<void(PingBench &)>)

namespace tst_remoteping_lifetime {

namespace {

using Step = std::function<void(PingBench &)>;

void failReply(FakeReply *reply)
{
    reply->setError(QNetworkReply::TimeoutError, "late");
    reply->finish();
}

/// One way to each signal of the probe.
struct Way {
    const char *name;
    const char *signal;
    Step go;
};

const Way ways[] = {
    {"s_started", SIGNAL(s_started()), [](PingBench &bench) { bench.ping->start(); }},
    {"s_stopped by stop", SIGNAL(s_stopped()), [](PingBench &bench) { bench.ping->stop(); }},
    {"s_stopped by the count", SIGNAL(s_stopped()),
     [](PingBench &bench) {
         bench.ping->start(0);
         bench.tick(2);
     }},
    {"s_ping", SIGNAL(s_ping()), [](PingBench &bench) { bench.send()->finish(); }},
    {"s_error", SIGNAL(s_error(short)), [](PingBench &bench) { failReply(bench.send()); }},
    {"s_timeout", SIGNAL(s_timeout()),
     [](PingBench &bench) {
         bench.ping->setTimeout(-1);
         bench.ping->start();
         bench.tick();
     }},
};

/// Does what it was told when a signal reaches it.
class Receiver : public QObject {
    Q_OBJECT

public:
    explicit Receiver(std::function<void()> action)
        : m_action(std::move(action))
    {
    }

    int calls = 0;

public Q_SLOTS:
    void receive()
    {
        ++calls;
        m_action();
    }

private:
    std::function<void()> m_action;
};

} // namespace

class tst_RemotePingLifetime : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void killReply();
    void killReplyDisconnectsEverybody();
    void clearReplies();
    void theEndAbortsEverything_data();
    void theEndAbortsEverything();
    void endlessProbeClearsItsReplies();
    void endlessProbeClearsItsRepliesByTheClock();
    void managerMayTakeItsRepliesAlong();

    void deletionInsideASignal_data();
    void deletionInsideASignal();
    void deletionInsideASignalByTheClock_data();
    void deletionInsideASignalByTheClock();
    void theReplyOutlivesItsProbe_data();
    void theReplyOutlivesItsProbe();
    void stopInsideASignal_data();
    void stopInsideASignal();
    void startInsideASignal_data();
    void startInsideASignal();
    void managerLostInsideASignal();

private:
    void addWays(bool withStop);
};

void tst_RemotePingLifetime::addWays(bool withStop)
{
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<Step>("go");
    for (const Way &way : ways) {
        if (withStop || !QByteArray(way.name).startsWith("s_stopped"))
            QTest::newRow(way.name) << QByteArray(way.signal) << way.go;
    }
}

void tst_RemotePingLifetime::killReply()
{
    PingBench bench;
    const QPointer<FakeReply> reply = bench.send();
    bench.call("killReply", Q_ARG(QNetworkReply *, nullptr));
    QCOMPARE(reply->abortCalls(), 0);
    bench.call("killReply", Q_ARG(QNetworkReply *, reply.data()));
    QCOMPARE(reply->abortCalls(), 1);
    QVERIFY(reply->isFinished());
    PingBench::releaseDeleted();
    QVERIFY(!reply);
    QCOMPARE(bench.signals.names(), QStringList());
    QCOMPARE(bench.log.texts(), QStringList());

    // What it took away, the probe must not touch when it clears its list.
    bench.ping->stop();
    QCOMPARE(bench.signals.names(), QStringList("s_stopped"));
}

void tst_RemotePingLifetime::killReplyDisconnectsEverybody()
{
    PingBench bench;
    FakeReply *reply = bench.send();
    Receiver receiver([] {});
    connect(reply, SIGNAL(finished()), &receiver, SLOT(receive()));
    SignalRecorder signalsOfManager(bench.manager.data(), {"finished"});
    bench.call("killReply", Q_ARG(QNetworkReply *, reply));
    QCOMPARE(receiver.calls, 0);
    QCOMPARE(signalsOfManager.count("finished"), 0);
}

void tst_RemotePingLifetime::clearReplies()
{
    PingBench bench;
    bench.ping->start();
    bench.tick(3);
    bench.manager->at(1).reply->finish();
    bench.signals.clear();
    bench.log.clear();
    for (int i = 0; i < 2; ++i) {
        bench.call("clearReplies");
        QCOMPARE(bench.aborts(), QList<int>({1, 1, 1}));
    }
    QCOMPARE(bench.signals.names(), QStringList());
    QCOMPARE(bench.log.texts(), QStringList());
    QVERIFY(bench.ping->isRunnig());
    PingBench::releaseDeleted();
    QCOMPARE(bench.aborts(), QList<int>({-1, -1, -1}));
}

void tst_RemotePingLifetime::theEndAbortsEverything_data()
{
    QTest::addColumn<Step>("end");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("names");
    QTest::newRow("stop") << Step([](PingBench &bench) { bench.ping->stop(); }) << "Ping stop"
                          << QStringList({"s_started", "s_stopped"});
    QTest::newRow("destructor") << Step([](PingBench &bench) { bench.ping.reset(); })
                                << "RemotePing dtor" << QStringList("s_started");
}

void tst_RemotePingLifetime::theEndAbortsEverything()
{
    QFETCH(Step, end);
    QFETCH(QString, text);
    QFETCH(QStringList, names);

    PingBench bench;
    bench.ping->start();
    bench.tick(2);
    bench.log.clear();
    end(bench);
    QCOMPARE(bench.aborts(), QList<int>({1, 1}));
    QCOMPARE(bench.signals.names(), names);
    QCOMPARE(bench.log.texts(QtDebugMsg), QStringList(text));
    PingBench::releaseDeleted();
    QCOMPARE(bench.aborts(), QList<int>({-1, -1}));
}

void tst_RemotePingLifetime::endlessProbeClearsItsReplies()
{
    PingBench bench;
    bench.ping->start();
    bench.tick(301);
    QCOMPARE(bench.manager->count(), 301);
    QCOMPARE(bench.aborts().count(0), 301);

    bench.tick();
    QCOMPARE(bench.manager->count(), 302);
    QCOMPARE(bench.aborts().count(1), 301);
    QCOMPARE(bench.aborts().last(), 0);

    // The count began again with that tick's own ping.
    bench.tick(300);
    QCOMPARE(bench.aborts().count(1), 301);
    bench.tick();
    QCOMPARE(bench.aborts().count(1), 602);
    QCOMPARE(bench.aborts().last(), 0);
    QCOMPARE(bench.signals.names(), QStringList("s_started"));
}

void tst_RemotePingLifetime::endlessProbeClearsItsRepliesByTheClock()
{
    ScriptedServer server;
    server.onRequest(answers::withhold());
    RealPing real(server.url("/"), 1, 100000);
    int most = 0;
    bool cleared = false;
    connect(PingBench::timerOf(real.ping), &QTimer::timeout, this, [&] {
        const int replies = real.manager->findChildren<QNetworkReply *>().size();
        cleared = cleared || replies < most;
        most = qMax(most, replies);
    });
    QTRY_VERIFY_WITH_TIMEOUT(cleared, 30000);
    // The tick that clears sends one more; the others die when it is done.
    QCOMPARE(most, 302);
    QVERIFY(real.ping.isRunnig());
    QCOMPARE(real.signals.names(), QStringList());
    QCOMPARE(real.log.texts(), QStringList());
}

void tst_RemotePingLifetime::managerMayTakeItsRepliesAlong()
{
    PingBench bench;
    bench.ping->start();
    bench.tick(3);
    bench.ping->setManager({});
    bench.manager.reset();
    bench.ping->stop();
    QCOMPARE(bench.signals.names(), QStringList({"s_started", "s_stopped"}));
}

void tst_RemotePingLifetime::deletionInsideASignal_data()
{
    addWays(true);
}

void tst_RemotePingLifetime::deletionInsideASignal()
{
    QFETCH(QByteArray, signal);
    QFETCH(Step, go);

    PingBench bench;
    const QPointer<RemotePing> watched = bench.ping.data();
    Receiver receiver([&bench] { delete bench.ping.take(); });
    connect(watched, signal.constData(), &receiver, SLOT(receive()));
    bench.log.clear();
    go(bench);
    QCOMPARE(receiver.calls, 1);
    QVERIFY(!watched);
    QCOMPARE(bench.log.texts().last(), QString("RemotePing dtor"));
    PingBench::releaseDeleted();
}

void tst_RemotePingLifetime::deletionInsideASignalByTheClock_data()
{
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<int>("status");
    QTest::newRow("s_ping") << QByteArray(SIGNAL(s_ping())) << 200;
    QTest::newRow("s_error") << QByteArray(SIGNAL(s_error(short))) << 500;
    QTest::newRow("s_timeout") << QByteArray(SIGNAL(s_timeout())) << 0;
    QTest::newRow("s_stopped") << QByteArray(SIGNAL(s_stopped())) << 0;
}

// Over a real socket, with a manager that nobody but the probe holds: Qt is in the middle of it.
void tst_RemotePingLifetime::deletionInsideASignalByTheClock()
{
    QFETCH(QByteArray, signal);
    QFETCH(int, status);

    LogCapture log;
    ScriptedServer server;
    server.onRequest(status == 0 ? answers::withhold() : answers::bytes("body", status));
    const QPointer<RemotePing> ping =
        new RemotePing(QSharedPointer<QNetworkAccessManager>::create());
    Receiver receiver([&ping] { delete ping; });
    connect(ping, signal.constData(), &receiver, SLOT(receive()));
    ping->setUrl(server.url("/"));
    ping->setPeriod(2);
    ping->setTimeout(signal.contains("s_timeout") ? 10 : 100000);
    ping->start(status == 0 ? 20 : -1);
    QTRY_VERIFY(!ping);
    QCOMPARE(receiver.calls, 1);
    QVERIFY(server.waitForConnections(0));
}

void tst_RemotePingLifetime::theReplyOutlivesItsProbe_data()
{
    QTest::addColumn<bool>("isAnswer");
    QTest::newRow("s_ping") << true;
    QTest::newRow("s_error") << false;
}

// Whoever emits finished() is still using the reply, and the reply would die with its manager.
void tst_RemotePingLifetime::theReplyOutlivesItsProbe()
{
    QFETCH(bool, isAnswer);
    PingBench bench;
    const QWeakPointer<FakeManager> manager = bench.manager;
    const QPointer<FakeReply> reply = bench.send();
    bench.manager.reset();
    Receiver receiver([&bench] { delete bench.ping.take(); });
    connect(bench.ping.data(), SIGNAL(s_ping()), &receiver, SLOT(receive()));
    connect(bench.ping.data(), SIGNAL(s_error(short)), &receiver, SLOT(receive()));

    if (isAnswer)
        reply->finish();
    else
        failReply(reply);
    QCOMPARE(receiver.calls, 1);
    QVERIFY(reply);
    PingBench::releaseDeleted();
    QVERIFY(!reply);
    QVERIFY(!manager);
}

void tst_RemotePingLifetime::stopInsideASignal_data()
{
    addWays(false);
}

void tst_RemotePingLifetime::stopInsideASignal()
{
    QFETCH(QByteArray, signal);
    QFETCH(Step, go);

    PingBench bench;
    Receiver receiver([&bench] { bench.ping->stop(); });
    connect(bench.ping.data(), signal.constData(), &receiver, SLOT(receive()));
    go(bench);
    QCOMPARE(receiver.calls, 1);
    QCOMPARE(bench.signals.count("s_stopped"), 1);
    QVERIFY(!bench.ping->isRunnig());
    PingBench::releaseDeleted();
}

void tst_RemotePingLifetime::startInsideASignal_data()
{
    addWays(true);
}

void tst_RemotePingLifetime::startInsideASignal()
{
    QFETCH(QByteArray, signal);
    QFETCH(Step, go);

    PingBench bench;
    Receiver receiver([&] {
        if (receiver.calls == 1)
            bench.ping->start();
    });
    connect(bench.ping.data(), signal.constData(), &receiver, SLOT(receive()));
    go(bench);
    QVERIFY(receiver.calls >= 1);
    QVERIFY(bench.ping->isRunnig());
    const int sent = bench.manager->count();
    bench.tick();
    QCOMPARE(bench.manager->count(), sent + 1);
}

void tst_RemotePingLifetime::managerLostInsideASignal()
{
    PingBench bench;
    const QPointer<FakeReply> reply = bench.send();
    bench.manager.reset();
    Receiver receiver([&bench] { bench.ping->setManager({}); });
    connect(bench.ping.data(), SIGNAL(s_ping()), &receiver, SLOT(receive()));
    reply->finish();
    QCOMPARE(receiver.calls, 1);
    bench.ping->stop();
    PingBench::releaseDeleted();
}

const TestClass<tst_RemotePingLifetime> testClass("tst_remoteping_lifetime");

} // namespace tst_remoteping_lifetime

#include "tst_remoteping_lifetime.moc"
