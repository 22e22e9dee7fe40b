#include "metaobject.h"
#include "pingbench.h"
#include "testclass.h"

#include <QtCore/QWeakPointer>
#include <QtTest/QTest>

#include <functional>

namespace tst_remoteping {

namespace {

const QUrl anyUrl("http://127.0.0.1:8080");
const char sourceFile[] = "../../source/appl/remoteping";

using Edit = std::function<void(RemotePing &)>;

} // namespace

class tst_RemotePing : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void defaults();
    void periodTimerIsAChild();
    void parentOwnsTheProbe();
    void lifeCycleIsLogged();
    void logLinesTellTheirOrigin();
    void declaresThisAndNothingElse();
    void settersEditTheUrl_data();
    void settersEditTheUrl();
    void equalValuesLeaveTheUrlAlone_data();
    void equalValuesLeaveTheUrlAlone();
    void timesAreStored_data();
    void timesAreStored();
    void periodTakesEffectAtTheNextStart();
    void managerIsShared();
    void equalUrlIsIgnored();
    void sameManagerIsIgnored();
    void managerCanBeReplaced();
};

void tst_RemotePing::defaults()
{
    PingBench bench;
    RemotePing ping(bench.manager);
    QCOMPARE(ping.getUrl(), QUrl());
    QCOMPARE(ping.getScheme(), QString());
    QCOMPARE(ping.getHost(), QString());
    QCOMPARE(ping.getPort(), -1);
    QCOMPARE(ping.getTimeout(), 10000);
    QCOMPARE(ping.getPeriod(), 1000);
    QVERIFY(!ping.isRunnig());
    QVERIFY(!ping.parent());
    QCOMPARE(bench.manager->count(), 0);
}

void tst_RemotePing::periodTimerIsAChild()
{
    PingBench bench;
    const QTimer *timer = bench.timer();
    QVERIFY(timer);
    QVERIFY(!timer->isActive());
    QVERIFY(!timer->isSingleShot());
    QCOMPARE(timer->timerType(), QTimer().timerType());
}

void tst_RemotePing::parentOwnsTheProbe()
{
    PingBench bench;
    auto *parent = new QObject;
    const QPointer<RemotePing> ping = new RemotePing(bench.manager, parent);
    QCOMPARE(ping->parent(), parent);
    delete parent;
    QVERIFY(!ping);
}

void tst_RemotePing::lifeCycleIsLogged()
{
    PingBench bench;
    {
        RemotePing ping(bench.manager);
        ping.setPeriod(3600 * 1000);
        ping.start();
        ping.stop();
    }
    QCOMPARE(bench.log.texts(QtDebugMsg),
             QStringList({"RemotePing ctor", "Ping start", "Ping stop", "RemotePing dtor"}));
    QCOMPARE(bench.log.entries().size(), 4);
}

void tst_RemotePing::logLinesTellTheirOrigin()
{
    PingBench bench;
    bench.ping.reset();
    bench.log.clear();
    bench.ping.reset(new RemotePing(bench.manager));
    bench.ping->setTimeout(-1);
    bench.ping->start();
    bench.tick();
    bench.ping->setUrl(anyUrl);
    bench.send()->finish();
    bench.call("replyError", Q_ARG(QNetworkReply::NetworkError, QNetworkReply::TimeoutError));
    bench.ping->stop();
    bench.ping.reset();

    QByteArrayList functions;
    for (const LogEntry &entry : bench.log.from(sourceFile))
        functions.append(entry.function);
    QCOMPARE(functions,
             QByteArrayList({
                 "RemotePing::RemotePing(QSharedPointer<QNetworkAccessManager>, QObject*)",
                 "void RemotePing::start(int)",
                 "QNetworkReply* RemotePing::pingRequest()",
                 "void RemotePing::timeout()",
                 "void RemotePing::replyFinished()",
                 "void RemotePing::replyError(QNetworkReply::NetworkError)",
                 "void RemotePing::stop()",
                 "virtual RemotePing::~RemotePing()",
             }));
    QCOMPARE(bench.log.originFault(sourceFile), QString());
}

// The order is part of the interface: applications may connect by index.
void tst_RemotePing::declaresThisAndNothingElse()
{
    QCOMPARE(metaobject::described(RemotePing::staticMetaObject),
             QStringList({
                 "RemotePing : QObject",
                 "signal s_ping()",
                 "signal s_timeout()",
                 "signal s_error(short) errorCode",
                 "signal s_started()",
                 "signal s_stopped()",
                 "slot start(int) _count",
                 "cloned slot start()",
                 "slot stop()",
                 "private slot replyFinished()",
                 "private slot replyError(QNetworkReply::NetworkError) code",
                 "private slot sendPing()",
                 "private slot timeout()",
                 "private slot timeoutRestart()",
                 "private slot clearReplies()",
                 "private slot killReply(QNetworkReply*) reply",
             }));
}

void tst_RemotePing::settersEditTheUrl_data()
{
    QTest::addColumn<QUrl>("before");
    QTest::addColumn<Edit>("edit");
    QTest::addColumn<QUrl>("after");
    const QUrl url("https://127.0.0.1:8443/path?query");
    QTest::newRow("scheme") << url << Edit([](RemotePing &ping) { ping.setScheme("http"); })
                            << QUrl("http://127.0.0.1:8443/path?query");
    QTest::newRow("host") << url << Edit([](RemotePing &ping) { ping.setHost("localhost"); })
                          << QUrl("https://localhost:8443/path?query");
    QTest::newRow("decoded host") << url << Edit([](RemotePing &ping) {
        ping.setHost(QString::fromUtf8("b\u00fccher.de"));
    }) << QUrl("https://xn--bcher-kva.de:8443/path?query");
    QTest::newRow("port") << url << Edit([](RemotePing &ping) { ping.setPort(80); })
                          << QUrl("https://127.0.0.1:80/path?query");
    QTest::newRow("no port") << url << Edit([](RemotePing &ping) { ping.setPort(-1); })
                             << QUrl("https://127.0.0.1/path?query");
    QTest::newRow("all") << QUrl() << Edit([](RemotePing &ping) {
        ping.setScheme("http");
        ping.setHost("localhost");
        ping.setPort(32767);
    }) << QUrl("http://localhost:32767");
    QTest::newRow("url replaces all")
        << url << Edit([](RemotePing &ping) { ping.setUrl(anyUrl); }) << anyUrl;
}

void tst_RemotePing::settersEditTheUrl()
{
    PingBench bench;
    QFETCH(QUrl, before);
    QFETCH(Edit, edit);
    QFETCH(QUrl, after);

    bench.ping->setUrl(before);
    edit(*bench.ping);
    QCOMPARE(bench.ping->getUrl(), after);
    QCOMPARE(bench.ping->getScheme(), after.scheme());
    QCOMPARE(bench.ping->getHost(), after.host(QUrl::FullyDecoded));
    QCOMPARE(bench.ping->getPort(), after.port(-1));
    QCOMPARE(bench.signals.names(), QStringList());
}

void tst_RemotePing::equalValuesLeaveTheUrlAlone_data()
{
    QTest::addColumn<Edit>("edit");
    QTest::addColumn<bool>("valid");
    QTest::newRow("equal scheme") << Edit([](RemotePing &ping) { ping.setScheme("http"); })
                                  << false;
    QTest::newRow("equal host") << Edit([](RemotePing &ping) { ping.setHost("127.0.0.1"); })
                                << false;
    QTest::newRow("equal port") << Edit([](RemotePing &ping) { ping.setPort(-1); }) << false;
    QTest::newRow("other scheme") << Edit([](RemotePing &ping) { ping.setScheme("https"); })
                                  << true;
    QTest::newRow("other host") << Edit([](RemotePing &ping) { ping.setHost("localhost"); })
                                << true;
    QTest::newRow("other port") << Edit([](RemotePing &ping) { ping.setPort(80); }) << true;
}

// A port beyond the signed 16 bits makes the URL invalid, and each real change makes it valid
// again: so it shows whether a setter touched it.
void tst_RemotePing::equalValuesLeaveTheUrlAlone()
{
    PingBench bench;
    QFETCH(Edit, edit);
    QFETCH(bool, valid);

    bench.ping->setPort(short(40000));
    QVERIFY(!bench.ping->getUrl().isValid());
    edit(*bench.ping);
    QCOMPARE(bench.ping->getUrl().isValid(), valid);
}

void tst_RemotePing::timesAreStored_data()
{
    QTest::addColumn<int>("msec");
    for (const int msec : {-1, 0, 1, 1000, 10000, 2147483647})
        QTest::addRow("%d", msec) << msec;
}

void tst_RemotePing::timesAreStored()
{
    PingBench bench;
    QFETCH(int, msec);
    bench.ping->setTimeout(msec);
    bench.ping->setPeriod(77);
    QCOMPARE(bench.ping->getTimeout(), msec);
    QCOMPARE(bench.ping->getPeriod(), 77);
    bench.ping->setPeriod(msec);
    bench.ping->setTimeout(88);
    QCOMPARE(bench.ping->getPeriod(), msec);
    QCOMPARE(bench.ping->getTimeout(), 88);
}

void tst_RemotePing::periodTakesEffectAtTheNextStart()
{
    PingBench bench;
    const QTimer *timer = bench.timer();
    bench.ping->setPeriod(100000);
    bench.ping->start();
    QVERIFY(timer->isActive());
    QCOMPARE(timer->interval(), 100000);
    bench.ping->setPeriod(200000);
    QCOMPARE(timer->interval(), 100000);
    bench.ping->start();
    QCOMPARE(timer->interval(), 200000);
}

void tst_RemotePing::managerIsShared()
{
    PingBench bench;
    const QWeakPointer<FakeManager> manager = bench.manager;
    bench.manager.reset();
    QVERIFY(manager);
    bench.call("sendPing");
    QCOMPARE(manager.toStrongRef()->count(), 1);
    bench.ping.reset();
    QVERIFY(!manager);
}

// An equal URL changes nothing, not even the failure of an earlier setter.
void tst_RemotePing::equalUrlIsIgnored()
{
    PingBench bench;
    const QUrl url("http://127.0.0.1");
    bench.ping->setUrl(url);
    bench.ping->setPort(-4536);
    bench.ping->setUrl(url);
    QVERIFY(!bench.ping->getUrl().isValid());
    bench.ping->setUrl(QUrl("http://localhost"));
    QVERIFY(bench.ping->getUrl().isValid());
}

void tst_RemotePing::sameManagerIsIgnored()
{
    PingBench bench;
    const QWeakPointer<FakeManager> first = bench.manager;
    QSharedPointer<FakeManager> other(bench.manager.data(), [](FakeManager *) {});
    const QWeakPointer<FakeManager> second = other;
    bench.ping->setManager(other);
    other.reset();
    QVERIFY(!second);
    bench.manager.reset();
    QVERIFY(first);
}

void tst_RemotePing::managerCanBeReplaced()
{
    PingBench bench;
    const QSharedPointer<FakeManager> second(new FakeManager);
    const QWeakPointer<FakeManager> first = bench.manager;
    bench.ping->setManager(bench.manager);
    bench.manager.reset();
    QVERIFY(first);
    bench.ping->setManager(second);
    QVERIFY(!first);
    bench.call("sendPing");
    QCOMPARE(second->count(), 1);
}

const TestClass<tst_RemotePing> testClass("tst_remoteping");

} // namespace tst_remoteping

#include "tst_remoteping.moc"
