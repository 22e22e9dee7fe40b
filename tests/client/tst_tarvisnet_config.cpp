#include "clientbench.h"
#include "properties.h"
#include "testclass.h"

#include <QtCore/QPointer>
#include <QtNetwork/QNetworkCookie>
#include <QtNetwork/QNetworkCookieJar>
#include <QtTest/QTest>

#include <limits>

namespace tst_tarvisnet_config {

using properties::Property;

/// The settings, and the cookie jar.
class tst_TarvisNetConfig : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_log.reset(new LogCapture); }
    void cleanup() { m_log.reset(); }

    void stores_data();
    void stores();
    void leavesOthersAlone_data() { stores_data(); }
    void leavesOthersAlone();
    void storesBeforeEmitting_data() { stores_data(); }
    void storesBeforeEmitting();
    void clampsParallelRequests_data();
    void clampsParallelRequests();

    void takesCookieJar();
    void ignoresNullAndCurrentCookieJar();
    void keepsReplacedCookieJar();
    void usesCookieJar();

private:
    QScopedPointer<LogCapture> m_log;
};

void tst_TarvisNetConfig::stores_data()
{
    QTest::addColumn<Property>("property");
    for (const Property &property : properties::all())
        QTest::newRow(property.name) << property;
}

void tst_TarvisNetConfig::stores()
{
    QFETCH(const Property, property);
    TarvisNet client;
    SignalRecorder recorder(&client);
    const QStringList once = property.changed ? QStringList(property.signal()) : QStringList();

    QCOMPARE(property.get(client), property.initial);
    const QVariantList changes = {property.first, property.second, property.initial};
    QVariant stored = property.initial;
    for (const QVariant &value : changes) {
        const bool isNew = value != stored;
        recorder.clear();
        property.set(client, value);
        stored = value;
        QCOMPARE(property.get(client), value);
        QCOMPARE(recorder.names(), isNew || property.alwaysEmits ? once : QStringList());

        recorder.clear();
        property.set(client, value);
        QCOMPARE(property.get(client), value);
        QCOMPARE(recorder.names(), property.alwaysEmits ? once : QStringList());
    }
}

void tst_TarvisNetConfig::leavesOthersAlone()
{
    QFETCH(const Property, property);
    TarvisNet client;
    property.set(client, property.first);
    for (const Property &other : properties::all()) {
        // The id is one value with two ways to it.
        const bool isSame =
            other.name == property.name || (other.changed && other.changed == property.changed);
        if (!isSame)
            QVERIFY2(other.get(client) == other.initial, other.name);
    }
}

void tst_TarvisNetConfig::storesBeforeEmitting()
{
    QFETCH(const Property, property);
    TarvisNet client;
    QVariantList readBack;
    const auto read = [&] { readBack.append(property.get(client)); };
    if (property.changed)
        connect(&client, property.changed, this, read);
    property.set(client, property.first);
    QCOMPARE(readBack, property.changed ? QVariantList{property.first} : QVariantList());
}

void tst_TarvisNetConfig::clampsParallelRequests_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("asked");
    QTest::addColumn<int>("stored");
    QTest::addColumn<int>("emissions");
    QTest::newRow("zero") << 5 << 0 << 1 << 1;
    QTest::newRow("negative") << 5 << -3 << 1 << 1;
    QTest::newRow("lowest") << 5 << 1 << 1 << 1;
    QTest::newRow("highest") << 2 << 5 << 5 << 1;
    QTest::newRow("too many") << 2 << 6 << 5 << 1;
    QTest::newRow("largest number") << 2 << std::numeric_limits<int>::max() << 5 << 1;
    QTest::newRow("smallest number") << 2 << std::numeric_limits<int>::min() << 1 << 1;
    QTest::newRow("too many with the most stored") << 5 << 9 << 5 << 1;
    QTest::newRow("zero with the least stored") << 1 << 0 << 1 << 1;
    QTest::newRow("stored already") << 3 << 3 << 3 << 0;
}

void tst_TarvisNetConfig::clampsParallelRequests()
{
    QFETCH(const int, before);
    QFETCH(const int, asked);
    TarvisNet client;
    client.setParallelRequestsCount(before);
    SignalRecorder recorder(&client);
    client.setParallelRequestsCount(asked);
    QTEST(client.getParallelRequestsCount(), "stored");
    QTEST(int(recorder.names().size()), "emissions");
    QTEST(recorder.count("s_parallelRequestCountChanged"), "emissions");
}

void tst_TarvisNetConfig::takesCookieJar()
{
    QScopedPointer<TarvisNet> client(new TarvisNet);
    SignalRecorder recorder(client.data());
    QNetworkAccessManager *const manager = clientaccess::managerOf(*client);
    const QPointer<QNetworkCookieJar> jar = new QNetworkCookieJar;
    client->setCookies(jar);
    QCOMPARE(client->getCoockies(), jar.data());
    QCOMPARE(manager->cookieJar(), jar.data());
    QVERIFY(!jar->parent());
    QCOMPARE(recorder.names(), QStringList());

    client.reset();
    QVERIFY(jar);
    delete jar;
}

void tst_TarvisNetConfig::ignoresNullAndCurrentCookieJar()
{
    TarvisNet client;
    QNetworkAccessManager *const manager = clientaccess::managerOf(client);
    QVERIFY(manager);
    QNetworkCookieJar *const before = client.getCoockies();
    for (QNetworkCookieJar *jar : {before, static_cast<QNetworkCookieJar *>(nullptr)}) {
        client.setCookies(jar);
        QCOMPARE(client.getCoockies(), before);
        QCOMPARE(before->parent(), manager);
    }
}

void tst_TarvisNetConfig::keepsReplacedCookieJar()
{
    TarvisNet client;
    const QPointer<QNetworkCookieJar> own = client.getCoockies();
    QNetworkCookieJar first;
    QNetworkCookieJar second;
    client.setCookies(&first);
    QVERIFY2(!own, "the client's own jar has no other owner");
    client.setCookies(&second);
    QCOMPARE(client.getCoockies(), &second);
    QVERIFY(!first.parent());
}

void tst_TarvisNetConfig::usesCookieJar()
{
    QNetworkCookieJar jar;
    ClientBench bench;
    ScriptedServer &server = bench.server;
    server.onRequest(answers::bytes("{}", 200, {{"Set-Cookie", "crumb=1; Path=/"}}));
    bench.client->setCookies(&jar);

    bench.get({"/first"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(jar.cookiesForUrl(server.url()).value(0).toRawForm(QNetworkCookie::NameAndValueOnly),
             QByteArray("crumb=1"));
    bench.get({"/second"});
    QVERIFY(bench.recorder.waitFor("s_rawGet", 2));
    QCOMPARE(server.requests("/first").value(0).header("cookie"), QByteArray());
    QCOMPARE(server.requests("/second").value(0).header("cookie"), QByteArray("crumb=1"));
}

const TestClass<tst_TarvisNetConfig> testClass("tst_tarvisnet_config");

} // namespace tst_tarvisnet_config

#include "tst_tarvisnet_config.moc"
