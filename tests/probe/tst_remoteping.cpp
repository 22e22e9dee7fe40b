#include "pingbench.h"

#include <QtCore/QMetaMethod>
#include <QtCore/QWeakPointer>
#include <QtTest/QTest>

#include <functional>
#include <iterator>

namespace {

const QUrl anyUrl("http://127.0.0.1:8080");
const char sourceFile[] = "../../source/appl/remoteping";

using Edit = std::function<void(RemotePing &)>;

struct Method {
    const char *signature;
    QMetaMethod::MethodType type;
    QMetaMethod::Access access;
    const char *parameter = "";
    bool cloned = false;
};

// In the order of their indexes.
const Method expectedMethods[] = {
    {"s_ping()", QMetaMethod::Signal, QMetaMethod::Public},
    {"s_timeout()", QMetaMethod::Signal, QMetaMethod::Public},
    {"s_error(short)", QMetaMethod::Signal, QMetaMethod::Public, "errorCode"},
    {"s_started()", QMetaMethod::Signal, QMetaMethod::Public},
    {"s_stopped()", QMetaMethod::Signal, QMetaMethod::Public},
    {"start(int)", QMetaMethod::Slot, QMetaMethod::Public, "_count"},
    {"start()", QMetaMethod::Slot, QMetaMethod::Public, "", true},
    {"stop()", QMetaMethod::Slot, QMetaMethod::Public},
    {"replyFinished()", QMetaMethod::Slot, QMetaMethod::Private},
    {"replyError(QNetworkReply::NetworkError)", QMetaMethod::Slot, QMetaMethod::Private, "code"},
    {"sendPing()", QMetaMethod::Slot, QMetaMethod::Private},
    {"timeout()", QMetaMethod::Slot, QMetaMethod::Private},
    {"timeoutRestart()", QMetaMethod::Slot, QMetaMethod::Private},
    {"clearReplies()", QMetaMethod::Slot, QMetaMethod::Private},
    {"killReply(QNetworkReply*)", QMetaMethod::Slot, QMetaMethod::Private, "reply"},
};

} // namespace

Q_DECLARE_METATYPE(Edit)

class tst_RemotePing : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void defaults();
    void periodTimerIsAChild();
    void parentOwnsTheProbe();
    void lifeCycleIsLogged();
    void logLinesTellTheirOrigin();
    void methods_data();
    void methods();
    void hasNoOtherMethods();
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

void tst_RemotePing::methods_data()
{
    QTest::addColumn<int>("index");
    for (int index = 0; index < int(std::size(expectedMethods)); ++index)
        QTest::addRow("%d %s", index, expectedMethods[index].signature) << index;
}

void tst_RemotePing::methods()
{
    QFETCH(int, index);
    const QMetaObject &meta = RemotePing::staticMetaObject;
    const QMetaMethod method = meta.method(meta.methodOffset() + index);
    const Method &expected = expectedMethods[index];
    QCOMPARE(method.methodSignature(), QByteArray(expected.signature));
    QCOMPARE(method.methodType(), expected.type);
    QCOMPARE(method.access(), expected.access);
    QCOMPARE(method.parameterNames().join(','), QByteArray(expected.parameter));
    QCOMPARE(bool(method.attributes() & QMetaMethod::Cloned), expected.cloned);
    QCOMPARE(method.typeName(), "void");
}

void tst_RemotePing::hasNoOtherMethods()
{
    const QMetaObject &meta = RemotePing::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), int(std::size(expectedMethods)));
    QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
    QCOMPARE(meta.propertyCount(), meta.propertyOffset());
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

QTEST_GUILESS_MAIN(tst_RemotePing)

#include "tst_remoteping.moc"
