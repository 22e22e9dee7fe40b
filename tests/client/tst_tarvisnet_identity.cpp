#include "logcapture.h"
#include "signalrecorder.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QSysInfo>
#include <QtCore/QUuid>
#include <QtTest/QTest>

namespace {

SystemInfoData machine;

const QUuid someId("{12345678-1234-4234-8234-123456789abc}");

/// The User-Agent up to and with the blank that ends its fixed part.
const QString bareUserAgent = QStringLiteral("Vextor-Tarvis/0.0.0 TarvisNet/1.15.0.14194 ");

} // namespace

// The client asks Qt for the machine; these answers come first in the order of symbols.
QString QSysInfo::currentCpuArchitecture()
{
    return machine.architecture;
}

QString QSysInfo::prettyProductName()
{
    return machine.system;
}

QString QSysInfo::kernelVersion()
{
    return machine.version;
}

Q_DECLARE_METATYPE(SystemInfoData)
Q_DECLARE_METATYPE(ApplicationData)

class tst_TarvisNetIdentity : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { m_log.reset(); }

    void readsIdFromText_data();
    void readsIdFromText();
    void comparesIdAsBracedText();
    void storesNullId();
    void generatesIds();

    void userAgent_data();
    void userAgent();

private:
    QScopedPointer<LogCapture> m_log;
};

void tst_TarvisNetIdentity::init()
{
    m_log.reset(new LogCapture);
    machine = {"cpu", "product", "kernel"};
}

void tst_TarvisNetIdentity::readsIdFromText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QUuid>("id");
    QTest::newRow("empty") << QString() << QUuid();
    QTest::newRow("no UUID") << "this machine" << QUuid();
    QTest::newRow("braced") << someId.toString() << someId;
    QTest::newRow("upper case") << someId.toString().toUpper() << someId;
    QTest::newRow("without braces") << someId.toString(QUuid::WithoutBraces) << someId;
    QTest::newRow("cut") << someId.toString().chopped(4) << QUuid();
}

void tst_TarvisNetIdentity::readsIdFromText()
{
    QFETCH(const QString, text);
    TarvisNet client;
    client.setVtxIdByText(text);
    QCOMPARE(client.getVtxIdText(), text);
    QTEST(client.getVtxId(), "id");
}

void tst_TarvisNetIdentity::comparesIdAsBracedText()
{
    TarvisNet client;
    client.setVtxIdByText(someId.toString(QUuid::WithoutBraces));
    SignalRecorder recorder(&client);

    client.setVtxId(someId);
    QCOMPARE(client.getVtxIdText(), "{12345678-1234-4234-8234-123456789abc}");
    QCOMPARE(recorder.names(), QStringList("s_vtxIdChanged"));

    client.setVtxId(someId);
    QCOMPARE(recorder.names(), QStringList("s_vtxIdChanged"));
}

void tst_TarvisNetIdentity::storesNullId()
{
    TarvisNet client;
    SignalRecorder recorder(&client);
    client.setVtxId(QUuid());
    QCOMPARE(client.getVtxIdText(), "{00000000-0000-0000-0000-000000000000}");
    QVERIFY(client.getVtxId().isNull());
    QCOMPARE(recorder.names(), QStringList("s_vtxIdChanged"));
}

void tst_TarvisNetIdentity::generatesIds()
{
    TarvisNet client;
    SignalRecorder recorder(&client);
    QUuid first;
    QVERIFY(QMetaObject::invokeMethod(&client, "generateVtxId", Q_RETURN_ARG(QUuid, first)));
    QVERIFY(!first.isNull());
    QVERIFY(client.generateVtxId() != first);
    QCOMPARE(client.getVtxIdText(), QString());
    QCOMPARE(recorder.names(), QStringList());
}

void tst_TarvisNetIdentity::userAgent_data()
{
    QTest::addColumn<SystemInfoData>("system");
    QTest::addColumn<ApplicationData>("application");
    QTest::addColumn<QString>("text");
    const SystemInfoData noSystem;
    const SystemInfoData system = {"x86_64", "Some OS 24", "6.8.0"};
    const QString systemText = "(x86_64; Some OS 24; 6.8.0)";
    const ApplicationData noOne;

    QTest::newRow("nothing") << noSystem << noOne << bareUserAgent;
    QTest::newRow("machine") << system << noOne << bareUserAgent + systemText;
    QTest::newRow("machine and id")
        << system << ApplicationData{"{id}", "", ""} << bareUserAgent + systemText + " vtxid/{id}";
    QTest::newRow("id only, after two blanks")
        << noSystem << ApplicationData{"{id}", "", ""} << bareUserAgent + " vtxid/{id}";
    QTest::newRow("architecture only")
        << SystemInfoData{"arm64", "", ""} << noOne << bareUserAgent + "(arm64; ; )";
    QTest::newRow("system only") << SystemInfoData{"", "Some OS", ""} << noOne
                                 << bareUserAgent + "(; Some OS; )";
    QTest::newRow("kernel only") << SystemInfoData{"", "", "6.8"} << noOne
                                 << bareUserAgent + "(; ; 6.8)";
    QTest::newRow("name") << noSystem << ApplicationData{"", "", "Updater"}
                          << "Updater/0.0.0 TarvisNet/1.15.0.14194 ";
    QTest::newRow("version") << noSystem << ApplicationData{"", "2.1", ""}
                             << "Vextor-Tarvis/2.1 TarvisNet/1.15.0.14194 ";
    QTest::newRow("everything") << system << ApplicationData{"{id}", "2.1", "Updater"}
                                << "Updater/2.1 TarvisNet/1.15.0.14194 " + systemText
            + " vtxid/{id}";
}

void tst_TarvisNetIdentity::userAgent()
{
    QFETCH(const SystemInfoData, system);
    QFETCH(const ApplicationData, application);
    machine = system;
    TarvisNet client;
    // The machine is asked once, when the client is made.
    machine = {"late", "late", "late"};
    client.setVtxName(application.name);
    client.setVtxVersion(application.version);
    client.setVtxIdByText(application.id);
    QTEST(client.getUserAgent(), "text");
}

QTEST_GUILESS_MAIN(tst_TarvisNetIdentity)

#include "tst_tarvisnet_identity.moc"
