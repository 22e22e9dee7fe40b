#include "answers.h"
#include "logcapture.h"
#include "queueaccess.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QMetaMethod>
#include <QtCore/QPointer>
#include <QtNetwork/QNetworkCookie>
#include <QtNetwork/QNetworkCookieJar>
#include <QtTest/QTest>

#include <functional>
#include <limits>
#include <type_traits>

namespace {

const QUuid someId("{12345678-1234-4234-8234-123456789abc}");

/// A value of the configuration with its way in and out.
struct Property {
    QString name;
    QString changed;
    std::function<QVariant(const TarvisNet &)> get;
    std::function<void(TarvisNet &, const QVariant &)> set;
    QVariant initial;
    QVariant first;
    QVariant second;
    bool alwaysEmits = false;
};

template <typename Got, typename Taken>
Property property(const char *name, const char *changed, Got (TarvisNet::*get)() const,
                  void (TarvisNet::*set)(Taken), const QVariant &initial, const QVariant &first,
                  const QVariant &second)
{
    return {name,
            changed,
            [get](const TarvisNet &client) { return QVariant::fromValue((client.*get)()); },
            [set](TarvisNet &client, const QVariant &value) {
                (client.*set)(value.value<std::decay_t<Taken>>());
            },
            initial,
            first,
            second};
}

Property text(const char *name, const char *changed, QString (TarvisNet::*get)() const,
              void (TarvisNet::*set)(const QString &))
{
    return property(name, changed, get, set, QString(), "first text", "second text");
}

Property flag(const char *name, const char *changed, bool (TarvisNet::*get)() const,
              void (TarvisNet::*set)(bool))
{
    return property(name, changed, get, set, false, true, false);
}

QList<Property> properties()
{
    using T = TarvisNet;
    Property installerFileName = text("installer file name", "s_installerFileNameChanged",
                                      &T::getInstallerFileName, &T::setInstallerFileName);
    installerFileName.alwaysEmits = true;
    Property directInstallerUrl =
        text("direct installer URL", "", &T::getDirectInstallerUrl, &T::setDirectInstallerUrl);
    return {
        text("server host", "s_serverHostChanged", &T::getServerHost, &T::setServerHost),
        text("server port", "s_serverPortChanged", &T::getServerPort, &T::setServerPort),
        text("user name", "s_userNameChanged", &T::getUserName, &T::setUserName),
        text("user password", "s_userPasswordChanged", &T::getUserPassword, &T::setUserPassword),
        text("user URL", "s_urlChanged", &T::getUrl, &T::setUrl),
        directInstallerUrl,
        text("definition path", "s_definitionPathChanged", &T::getDefinitionPath,
             &T::setDefinitionPath),
        text("index path", "s_indexPathChaged", &T::getIndexPath, &T::setIndexPath),
        text("installer path", "s_installerPathChanged", &T::getInstallerPath,
             &T::setInstallerPath),
        text("installer check sum path", "s_installerCheckSumPathChanged",
             &T::getInstallerCheckSumPath, &T::setInstallerCheckSumPath),
        text("installer change log path", "s_installerChangeLogPathChanged",
             &T::getInstallerChangeLogPath, &T::setInstallerChangeLogPath),
        text("version", "s_vtxVersionChanged", &T::getVtxVersion, &T::setVtxVersion),
        text("name", "s_vtxNameChanged", &T::getVtxName, &T::setVtxName),
        text("id as text", "s_vtxIdChanged", &T::getVtxIdText, &T::setVtxIdByText),
        property("id", "s_vtxIdChanged", &T::getVtxId, &T::setVtxId, QUuid(), someId,
                 QUuid("{00000000-0000-4000-8000-000000000001}")),
        installerFileName,
        property("installer file size", "s_installerFileSizeChanged", &T::getInstallerFileSize,
                 &T::setInstallerFileSize, quint64(0), quint64(1), ~quint64(0)),
        text("output directory", "s_outputDirChanged", &T::getOutputDirectory,
             &T::setOutputDirectory),
        text("temporary directory", "s_temporaryDirChange", &T::getTemporaryDirectory,
             &T::setTemporaryDirectory),
        property("parallel requests", "s_parallelRequestCountChanged", &T::getParallelRequestsCount,
                 &T::setParallelRequestsCount, 5, 1, 3),
        flag("ping always on", "s_pingAlwaysOnChanged", &T::isPingAlwaysOn, &T::setPingAlwaysOn),
        flag("stop process", "s_stopProcessChanged", &T::isStopProcess, &T::setStopProcess),
        property("ping time-out", "", &T::getPingTimeout, &T::setPingTimeout, 10000, 1, 60000),
    };
}

} // namespace

Q_DECLARE_METATYPE(Property)

class tst_TarvisNetConfig : public QObject {
    Q_OBJECT

public Q_SLOTS:
    /// Stands for a receiver that reads the new value.
    void readBack() { m_readBack.append(m_property.get(*m_client)); }

private Q_SLOTS:
    void init();
    void cleanup() { m_log.reset(); }

    void stores_data();
    void stores();
    void leavesOthersAlone_data() { stores_data(); }
    void leavesOthersAlone();
    void storesBeforeEmitting_data() { stores_data(); }
    void storesBeforeEmitting();
    void clampsParallelRequests_data();
    void clampsParallelRequests();
    void asksForTooManyAgain();

    void ignoresNullCookieJar();
    void takesCookieJar();
    void ignoresCurrentCookieJar();
    void keepsReplacedCookieJar();
    void usesCookieJar();

private:
    QScopedPointer<LogCapture> m_log;
    TarvisNet *m_client = nullptr;
    Property m_property;
    QVariantList m_readBack;
};

void tst_TarvisNetConfig::init()
{
    m_log.reset(new LogCapture);
    m_readBack.clear();
}

void tst_TarvisNetConfig::stores_data()
{
    QTest::addColumn<Property>("property");
    for (const Property &property : properties())
        QTest::newRow(qPrintable(property.name)) << property;
}

void tst_TarvisNetConfig::stores()
{
    QFETCH(const Property, property);
    TarvisNet client;
    SignalRecorder recorder(&client);
    const QStringList once =
        property.changed.isEmpty() ? QStringList() : QStringList(property.changed);

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
    for (const Property &other : properties()) {
        // The id is one value with two ways to it.
        const bool isSame = other.name == property.name
            || (!other.changed.isEmpty() && other.changed == property.changed);
        if (!isSame)
            QVERIFY2(other.get(client) == other.initial, qPrintable(other.name));
    }
}

void tst_TarvisNetConfig::storesBeforeEmitting()
{
    QFETCH(const Property, property);
    TarvisNet client;
    m_client = &client;
    m_property = property;
    if (!property.changed.isEmpty()) {
        const QMetaObject *meta = client.metaObject();
        const int signal = meta->indexOfSignal(qPrintable(property.changed + "()"));
        QVERIFY2(signal >= 0, qPrintable(property.changed));
        connect(&client, meta->method(signal), this,
                metaObject()->method(metaObject()->indexOfSlot("readBack()")));
    }
    property.set(client, property.first);
    QCOMPARE(m_readBack,
             property.changed.isEmpty() ? QVariantList() : QVariantList{property.first});
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
    QTEST(recorder.names().size(), "emissions");
    QTEST(recorder.count("s_parallelRequestCountChanged"), "emissions");
}

void tst_TarvisNetConfig::asksForTooManyAgain()
{
    TarvisNet client;
    SignalRecorder recorder(&client);
    client.setParallelRequestsCount(7);
    client.setParallelRequestsCount(7);
    QCOMPARE(client.getParallelRequestsCount(), 5);
    QCOMPARE(recorder.count("s_parallelRequestCountChanged"), 2);
}

void tst_TarvisNetConfig::ignoresNullCookieJar()
{
    TarvisNet client;
    QNetworkCookieJar *const before = client.getCoockies();
    QVERIFY(before);
    client.setCookies(nullptr);
    QCOMPARE(client.getCoockies(), before);
}

void tst_TarvisNetConfig::takesCookieJar()
{
    QScopedPointer<TarvisNet> client(new TarvisNet);
    SignalRecorder recorder(client.data());
    QNetworkAccessManager *const manager = queueaccess::manager(*client);
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

void tst_TarvisNetConfig::ignoresCurrentCookieJar()
{
    TarvisNet client;
    QNetworkAccessManager *const manager = queueaccess::manager(client);
    QVERIFY(manager);
    client.setCookies(client.getCoockies());
    QCOMPARE(client.getCoockies()->parent(), manager);
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
    ScriptedServer server;
    server.onRequest(answers::bytes("{}", 200, {{"Set-Cookie", "crumb=1; Path=/"}}));
    QNetworkCookieJar jar;
    TarvisNet client;
    SignalRecorder recorder(&client);
    client.setCookies(&jar);

    client.rawGet(server.url("/first"));
    QVERIFY(recorder.waitFor("s_rawGet"));
    QCOMPARE(jar.cookiesForUrl(server.url()).value(0).toRawForm(QNetworkCookie::NameAndValueOnly),
             QByteArray("crumb=1"));
    client.rawGet(server.url("/second"));
    QVERIFY(recorder.waitFor("s_rawGet", 2));
    QCOMPARE(server.requests("/first").value(0).header("cookie"), QByteArray());
    QCOMPARE(server.requests("/second").value(0).header("cookie"), QByteArray("crumb=1"));
}

QTEST_GUILESS_MAIN(tst_TarvisNetConfig)

#include "tst_tarvisnet_config.moc"
