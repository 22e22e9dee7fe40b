#include "answers.h"
#include "pingbench.h"
#include "scriptedserver.h"
#include "testclass.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QRegularExpression>
#include <QtTest/QTest>

#include <functional>

namespace tst_remoteping_timeout {

using Action = std::function<void(const PingBench &)>;

} // namespace tst_remoteping_timeout

Q_DECLARE_METATYPE(tst_remoteping_timeout::Action)

namespace tst_remoteping_timeout {

namespace {

// A silence of any length, even of none, is longer than this.
const int always = -1;
const int never = 2147483647;

QRegularExpressionMatch matchNotAnswered(const QString &text)
{
    static const QRegularExpression notAnswered(R"(^Host not answered: (\d+)  msec$)");
    return notAnswered.match(text);
}

// Lets real time pass: there is nothing else to wait for.
bool passTime(int msec)
{
    QElapsedTimer clock;
    clock.start();
    return QTest::qWaitFor([&] { return clock.hasExpired(msec); });
}

} // namespace

class tst_RemotePingTimeout : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyTickLooksForAnAnswer();
    void silenceMustBeLonger();
    void timeOutIsLogged();
    void sendsBeforeItLooks();
    void theStoppingTickStillLooks();
    void theClockRestarts_data();
    void theClockRestarts();
    void theClockRestartsBeforeTheReceivers_data();
    void theClockRestartsBeforeTheReceivers();
    void anUnstartedClockIsNeverLate();
    void muteServer();
    void timeOutsDoNotStopTheProbe();
    void answersPreventTimeOuts();
    void failuresAreNoAnswers();
};

void tst_RemotePingTimeout::everyTickLooksForAnAnswer()
{
    PingBench bench;
    bench.ping->setTimeout(always);
    bench.ping->start();
    for (int ticks = 1; ticks <= 3; ++ticks) {
        bench.tick();
        QCOMPARE(bench.signals.count("s_timeout"), ticks);
    }
    // A new time-out holds from the next tick on.
    bench.ping->setTimeout(never);
    bench.tick(3);
    QCOMPARE(bench.signals.count("s_timeout"), 3);
    QVERIFY(bench.ping->isRunnig());
}

// A silence as long as the time-out is none yet: with 0 the ticks of the first millisecond pass.
void tst_RemotePingTimeout::silenceMustBeLonger()
{
    PingBench bench;
    bench.ping->setTimeout(0);
    bool passed = false;
    for (int i = 0; i < 100 && !passed; ++i) {
        bench.signals.clear();
        bench.call("timeoutRestart");
        bench.call("timeout");
        passed = bench.signals.count("s_timeout") == 0;
    }
    QVERIFY(passed);
    QVERIFY(passTime(5));
    bench.signals.clear();
    bench.call("timeout");
    QCOMPARE(bench.signals.names(), QStringList("s_timeout"));
}

void tst_RemotePingTimeout::timeOutIsLogged()
{
    PingBench bench;
    bench.ping->start();
    QVERIFY(passTime(20));
    bench.ping->setTimeout(10);
    bench.log.clear();
    bench.call("timeout");

    QCOMPARE(bench.log.entries().size(), 1);
    const LogEntry entry = bench.log.entries().first();
    QCOMPARE(entry.type, QtDebugMsg);
    const QRegularExpressionMatch match = matchNotAnswered(entry.text);
    QVERIFY2(match.hasMatch(), qPrintable(entry.text));
    QVERIFY(match.captured(1).toInt() >= 20);
}

void tst_RemotePingTimeout::sendsBeforeItLooks()
{
    PingBench bench;
    bench.ping->setTimeout(always);
    bench.ping->setManager({});
    bench.ping->start();
    bench.log.clear();
    bench.tick();
    QCOMPARE(bench.log.texts().size(), 2);
    QCOMPARE(bench.log.texts().first(), QString("No network access manager. Must set it first!"));
    QVERIFY(matchNotAnswered(bench.log.texts().last()).hasMatch());
}

void tst_RemotePingTimeout::theStoppingTickStillLooks()
{
    PingBench bench;
    bench.ping->setTimeout(never);
    bench.ping->start(0);
    bench.tick();
    bench.ping->setTimeout(always);
    bench.log.clear();
    bench.tick();
    QCOMPARE(bench.signals.names(), QStringList({"s_started", "s_stopped", "s_timeout"}));
    QCOMPARE(bench.log.texts().first(), QString("Ping stop"));
    QVERIFY(matchNotAnswered(bench.log.texts().last()).hasMatch());
}

void tst_RemotePingTimeout::theClockRestarts_data()
{
    QTest::addColumn<Action>("action");
    QTest::addColumn<int>("timeouts");
    QTest::newRow("start") << Action([](const PingBench &bench) { bench.ping->start(); }) << 0;
    QTest::newRow("answer") << Action([](const PingBench &bench) { bench.send()->finish(); }) << 0;
    QTest::newRow("s_ping") << Action([](const PingBench &bench) { Q_EMIT bench.ping->s_ping(); })
                            << 0;
    QTest::newRow("s_timeout") << Action([](const PingBench &bench) {
        Q_EMIT bench.ping->s_timeout();
    }) << 0;
    QTest::newRow("timeoutRestart")
        << Action([](const PingBench &bench) { bench.call("timeoutRestart"); }) << 0;
    QTest::newRow("nothing") << Action([](const PingBench &) {}) << 1;
    QTest::newRow("sent ping") << Action([](const PingBench &bench) { bench.send(); }) << 1;
    QTest::newRow("stop") << Action([](const PingBench &bench) { bench.ping->stop(); }) << 1;
    QTest::newRow("s_error") << Action([](const PingBench &bench) {
        Q_EMIT bench.ping->s_error(-203);
    }) << 1;
    QTest::newRow("cancelled reply")
        << Action([](const PingBench &bench) { bench.send()->abort(); }) << 1;
}

void tst_RemotePingTimeout::theClockRestarts()
{
    QFETCH(Action, action);
    QFETCH(int, timeouts);

    const int timeout = 200;
    PingBench bench;
    bench.ping->start();
    QVERIFY(passTime(timeout + 1));
    bench.ping->setTimeout(timeout);
    action(bench);
    bench.signals.clear();
    bench.call("timeout");
    QCOMPARE(bench.signals.count("s_timeout"), timeouts);
}

void tst_RemotePingTimeout::theClockRestartsBeforeTheReceivers_data()
{
    QTest::addColumn<bool>("byAnswer");
    QTest::newRow("s_ping") << true;
    QTest::newRow("s_timeout") << false;
}

// So after a time-out the next one is a whole time-out away, whatever receivers do.
void tst_RemotePingTimeout::theClockRestartsBeforeTheReceivers()
{
    QFETCH(bool, byAnswer);
    const int timeout = 200;
    PingBench bench;
    bench.ping->start();
    FakeReply *reply = bench.send();
    QVERIFY(passTime(timeout + 1));
    bench.ping->setTimeout(timeout);

    int calls = 0;
    const auto lookAgain = [&bench, &calls] {
        if (++calls == 1)
            bench.call("timeout");
    };
    connect(bench.ping.data(), &RemotePing::s_ping, this, lookAgain);
    connect(bench.ping.data(), &RemotePing::s_timeout, this, lookAgain);
    if (byAnswer)
        reply->finish();
    else
        bench.call("timeout");
    QCOMPARE(calls, 1);
    QCOMPARE(bench.signals.count("s_timeout"), byAnswer ? 0 : 1);
}

void tst_RemotePingTimeout::anUnstartedClockIsNeverLate()
{
    PingBench bench;
    bench.ping->setTimeout(always);
    bench.tick();
    QCOMPARE(bench.signals.names(), QStringList());
    bench.call("timeoutRestart");
    bench.tick();
    QCOMPARE(bench.signals.names(), QStringList("s_timeout"));
}

void tst_RemotePingTimeout::muteServer()
{
    ScriptedServer server;
    server.onRequest(answers::withhold());
    RealPing real(server.url("/"), 1, 30);
    QVERIFY(real.signals.waitFor("s_timeout", 3));
    real.ping.stop();

    QCOMPARE(real.signals.count("s_ping"), 0);
    QCOMPARE(real.signals.count("s_error"), 0);
    int lines = 0;
    for (const QString &text : real.log.texts(QtDebugMsg)) {
        const QRegularExpressionMatch match = matchNotAnswered(text);
        lines += match.hasMatch() ? 1 : 0;
        // What is logged is the silence since the time-out before, not since the start.
        QVERIFY(!match.hasMatch() || match.captured(1).toInt() > 30);
    }
    QCOMPARE(lines, real.signals.count("s_timeout"));
}

void tst_RemotePingTimeout::timeOutsDoNotStopTheProbe()
{
    ScriptedServer server;
    server.onRequest(answers::withhold());
    RealPing real(server.url("/"), 5, 20);
    real.ping.start(50);
    QVERIFY(real.signals.waitFor("s_timeout"));
    QVERIFY(real.ping.isRunnig());
    QVERIFY(real.signals.waitFor("s_stopped"));
    QVERIFY(!real.ping.isRunnig());
}

void tst_RemotePingTimeout::answersPreventTimeOuts()
{
    ScriptedServer server;
    server.onRequest(answers::status(405));
    RealPing real(server.url("/"), 2, 5000);
    QVERIFY(real.signals.waitFor("s_ping", 20));
    QCOMPARE(real.signals.count("s_timeout"), 0);
    QCOMPARE(real.signals.count("s_error"), 0);
}

void tst_RemotePingTimeout::failuresAreNoAnswers()
{
    ScriptedServer server;
    server.onRequest(answers::status(500));
    RealPing real(server.url("/"), 2, 50);
    QVERIFY(real.signals.waitFor("s_timeout", 2));
    QVERIFY(real.signals.count("s_error") > 0);
    QCOMPARE(real.signals.count("s_ping"), 0);
}

const TestClass<tst_RemotePingTimeout> testClass("tst_remoteping_timeout");

} // namespace tst_remoteping_timeout

#include "tst_remoteping_timeout.moc"
