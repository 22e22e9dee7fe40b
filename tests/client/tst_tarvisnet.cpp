#include "answers.h"
#include "logcapture.h"
#include "queueaccess.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/errorcodes.h>
#include <tarvisnet/tarvisnet.h>

#include <QtCore/QSysInfo>
#include <QtNetwork/QSslConfiguration>
#include <QtNetwork/QSslSocket>
#include <QtTest/QTest>

#include <functional>

using namespace queueaccess;

using Operation = std::function<void(TarvisNet &, const QUrl &)>;

Q_DECLARE_METATYPE(Operation)

namespace {

const char *const sourceFile = "../../source/appl/tarvisnet";

/// A depth that nobody else sets: it tells which configuration another one was made from.
constexpr int markedDepth = 7;

QSslConfiguration strictConfiguration()
{
    QSslConfiguration configuration;
    configuration.setProtocol(QSsl::TlsV1_2);
    configuration.setPeerVerifyMode(QSslSocket::VerifyPeer);
    configuration.setPeerVerifyDepth(markedDepth);
    return configuration;
}

bool isClientConfiguration(const QSslConfiguration &configuration)
{
    return configuration.protocol() == QSsl::TlsV1_0OrLater
        && configuration.peerVerifyMode() == QSslSocket::VerifyNone
        && configuration.peerVerifyDepth() == markedDepth;
}

/// The protocol of the process when a message was logged, by the message.
QHash<QString, QSsl::SslProtocol> protocolWhenLogged;

void noteProtocol(QtMsgType, const QMessageLogContext &, const QString &text)
{
    protocolWhenLogged.insert(text, QSslConfiguration::defaultConfiguration().protocol());
}

/// How a running download and its probe end.
const QStringList timeoutSignals = {"s_repliesCountChanged", "s_stopPing", "s_aborted",
                                    "s_errorChanged"};

} // namespace

class tst_TarvisNet : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_default = QSslConfiguration::defaultConfiguration(); }
    void init();
    void cleanup();

    void logsConstruction();
    void constructsInOrder();
    void installsSslConfiguration();
    void sendsSslConfiguration_data();
    void sendsSslConfiguration();
    void wiresProbe();
    void wiresQueue();

    void logsDestruction();
    void abortsOnDestruction();
    void dropsPendingOnDestruction();
    void diesWithItsParent();

    void pingTimeoutWithoutProbe();
    void pingTimeoutStopsProbe();
    void pingTimeoutAborts();
    void silentServerTimesOut();

private:
    QSslConfiguration m_default;
    QScopedPointer<LogCapture> m_log;
};

void tst_TarvisNet::init()
{
    m_log.reset(new LogCapture);
}

void tst_TarvisNet::cleanup()
{
    m_log.reset();
    // It is the whole process that a client configures.
    QSslConfiguration::setDefaultConfiguration(m_default);
}

void tst_TarvisNet::logsConstruction()
{
    TarvisNet client;
    const QString ssl =
        QString("SSl support: %1 \"%2\" \"%3\"")
            .arg(QSslSocket::supportsSsl() ? "true" : "false",
                 QSslSocket::sslLibraryBuildVersionString(), QSslSocket::sslLibraryVersionString());
    const QString system =
        QString("System info - architecture:  \"%1\"  system:  \"%2\"  version:  \"%3\"")
            .arg(QSysInfo::currentCpuArchitecture(), QSysInfo::prettyProductName(),
                 QSysInfo::kernelVersion());
    QCOMPARE(m_log->texts(QtDebugMsg),
             QStringList({"RemotePing ctor", "TarvisNet ctor.", ssl, system}));
    QCOMPARE(m_log->texts().size(), 4);
    QCOMPARE(m_log->from(sourceFile).size(), 3);
    QCOMPARE(m_log->originFault(sourceFile), QString());
    for (const LogEntry &entry : m_log->from(sourceFile))
        QCOMPARE(entry.function, QByteArray("TarvisNet::TarvisNet(QObject*)"));
}

void tst_TarvisNet::constructsInOrder()
{
    QSslConfiguration::setDefaultConfiguration(strictConfiguration());
    protocolWhenLogged.clear();
    const QtMessageHandler before = qInstallMessageHandler(noteProtocol);
    {
        TarvisNet client;
    }
    qInstallMessageHandler(before);
    QCOMPARE(protocolWhenLogged.value("RemotePing ctor", QSsl::UnknownProtocol), QSsl::TlsV1_2);
    QCOMPARE(protocolWhenLogged.value("TarvisNet ctor.", QSsl::UnknownProtocol),
             QSsl::TlsV1_0OrLater);
}

void tst_TarvisNet::installsSslConfiguration()
{
    QSslConfiguration::setDefaultConfiguration(strictConfiguration());
    {
        TarvisNet client;
        QVERIFY(isClientConfiguration(QSslConfiguration::defaultConfiguration()));
    }
    QVERIFY(isClientConfiguration(QSslConfiguration::defaultConfiguration()));
}

void tst_TarvisNet::sendsSslConfiguration_data()
{
    QTest::addColumn<Operation>("send");
    const auto row = [](const char *name, const Operation &send) { QTest::newRow(name) << send; };
    row("rawGet", [](TarvisNet &client, const QUrl &url) { client.rawGet(url); });
    row("rawPost", [](TarvisNet &client, const QUrl &url) { client.rawPost(url, "a=1"); });
    row("rawPath", [](TarvisNet &client, const QUrl &url) { client.rawPath(url, "{}"); });
    row("rawDelete", [](TarvisNet &client, const QUrl &url) { client.rawDelete(url, "{}"); });
    row("rawGetFile", [](TarvisNet &client, const QUrl &url) { client.rawGetFile(url); });
    row("rawPostFile", [](TarvisNet &client, const QUrl &url) { client.rawPostFile(url); });
    row("forceRawGet", [](TarvisNet &client, const QUrl &url) { client.forceRawGet(url); });
    row("fetchDefinition", [](TarvisNet &client, const QUrl &url) { client.fetchDefinition(url); });
    row("fetchIndex", [](TarvisNet &client, const QUrl &url) { client.fetchIndex(url); });
    row("fetchInstaller", [](TarvisNet &client, const QUrl &url) { client.fetchInstaller(url); });
    row("fetchInstallerChangeLog",
        [](TarvisNet &client, const QUrl &url) { client.fetchInstallerChangeLog(url); });
    row("fetchBinary",
        [](TarvisNet &client, const QUrl &url) { client.fetchBinary(url, "nowhere", 1); });
}

void tst_TarvisNet::sendsSslConfiguration()
{
    QFETCH(const Operation, send);
    QSslConfiguration::setDefaultConfiguration(strictConfiguration());
    TarvisNet client;
    // What the process does later is not the client's.
    QSslConfiguration::setDefaultConfiguration(strictConfiguration());

    ScriptedServer server;
    send(client, server.url("/anything"));
    QCOMPARE(running(client).size(), 1);
    QVERIFY(isClientConfiguration(running(client).first()->request().sslConfiguration()));
}

void tst_TarvisNet::wiresProbe()
{
    TarvisNet client;
    m_log->clear();
    Q_EMIT client.s_startPing(3);
    QCOMPARE(m_log->texts(), QStringList("Ping start"));
    Q_EMIT client.s_stopPing();
    QCOMPARE(m_log->texts(), QStringList({"Ping start", "Ping stop"}));
}

void tst_TarvisNet::wiresQueue()
{
    ScriptedServer server;
    TarvisNet client;
    client.setStopProcess(true);
    client.rawGet(server.url("/waiting"));
    client.setStopProcess(false);
    QCOMPARE(runningPaths(client), QStringList());
    Q_EMIT client.s_repliesCountChanged();
    QCOMPARE(runningPaths(client), QStringList("/waiting"));
}

void tst_TarvisNet::logsDestruction()
{
    ScriptedServer server;
    server.onRequest(answers::withhold());
    QScopedPointer<TarvisNet> client(new TarvisNet);
    client->rawGet(server.url("/held"));
    connect(client.data(), &TarvisNet::s_aborted, this, [] { qDebug("aborted"); });
    QVERIFY(server.waitForRequests(1));
    client.reset();

    const QStringList last = m_log->texts().mid(m_log->texts().indexOf("aborted"));
    QCOMPARE(last, QStringList({"aborted", "TarvisNet dtor.", "RemotePing dtor"}));
    QCOMPARE(m_log->count(QtDebugMsg, "TarvisNet dtor."), 1);
    QCOMPARE(m_log->originFault(sourceFile), QString());
    QVERIFY(m_log->from(sourceFile).last().function.endsWith("TarvisNet::~TarvisNet()"));
}

void tst_TarvisNet::abortsOnDestruction()
{
    ScriptedServer server;
    server.onRequest(answers::withhold());
    QScopedPointer<TarvisNet> client(new TarvisNet);
    SignalRecorder recorder(client.data(), {"s_aborted", "s_errorChanged", "s_rawGet"});
    client->rawGet(server.url("/first"));
    client->rawGet(server.url("/second"));
    QVERIFY(server.waitForRequests(2));
    QList<QVariantList> expected;
    for (const QNetworkReply *reply : running(*client))
        expected.append({reply->url().toString()});

    client.reset();
    QCOMPARE(recorder.names(), QStringList({"s_aborted", "s_aborted"}));
    QCOMPARE(recorder.of("s_aborted"), expected);
    QVERIFY(server.waitForConnections(0));
}

void tst_TarvisNet::dropsPendingOnDestruction()
{
    ScriptedServer server;
    server.onRequest(answers::withhold());
    QScopedPointer<TarvisNet> client(new TarvisNet);
    client->setParallelRequestsCount(1);
    client->rawGet(server.url("/active"));
    client->rawGet(server.url("/pending"));
    QVERIFY(server.waitForRequests(1));

    SignalRecorder recorder(client.data(), {"s_aborted", "s_errorChanged", "s_rawGet"});
    QStringList startedMeanwhile;
    TarvisNet *const dying = client.data();
    const QNetworkAccessManager *const network = manager(*dying);
    connect(dying, &TarvisNet::s_aborted, this, [&startedMeanwhile, dying, network] {
        Q_EMIT dying->s_repliesCountChanged();
        for (const QNetworkReply *reply : network->findChildren<QNetworkReply *>())
            startedMeanwhile.append(reply->url().path());
    });
    client.reset();
    QCOMPARE(startedMeanwhile, QStringList("/active"));
    QCOMPARE(recorder.names(), QStringList("s_aborted"));
    QCOMPARE(recorder.last("s_aborted").value(0).toString(), server.url("/active").toString());
}

void tst_TarvisNet::diesWithItsParent()
{
    {
        QObject parent;
        auto *const client = new TarvisNet(&parent);
        QCOMPARE(client->parent(), &parent);
        QVERIFY(!manager(*client)->parent());
    }
    QCOMPARE(m_log->count(QtDebugMsg, "TarvisNet dtor."), 1);
}

void tst_TarvisNet::pingTimeoutWithoutProbe()
{
    TarvisNet client;
    SignalRecorder recorder(&client);
    call(client, "pingTimeout");
    QCOMPARE(recorder.names(), QStringList("s_errorChanged"));
    QCOMPARE(recorder.last("s_errorChanged"),
             QVariantList({QVariant::fromValue(short(-203)), QString(), QJsonDocument()}));
}

void tst_TarvisNet::pingTimeoutStopsProbe()
{
    TarvisNet client;
    Q_EMIT client.s_startPing(-1);
    SignalRecorder recorder(&client);
    call(client, "pingTimeout");
    QCOMPARE(recorder.names(), QStringList({"s_stopPing", "s_errorChanged"}));
}

void tst_TarvisNet::pingTimeoutAborts()
{
    ScriptedServer server;
    server.onRequest(answers::withhold());
    TarvisNet client;
    client.setPingAlwaysOn(true);
    client.rawGet(server.url("/held"));
    QVERIFY(server.waitForRequests(1));

    SignalRecorder recorder(&client);
    call(client, "pingTimeout");
    QCOMPARE(recorder.names(), timeoutSignals);
    QCOMPARE(recorder.last("s_aborted"), QVariantList({server.url("/held").toString()}));
    QCOMPARE(recorder.last("s_errorChanged"),
             QVariantList(
                 {QVariant::fromValue(short(-203)), server.url("").toString(), QJsonDocument()}));
}

void tst_TarvisNet::silentServerTimesOut()
{
    ScriptedServer server;
    server.onRequest(answers::withhold());
    TarvisNet client;
    // The probe looks once in every second.
    client.setPingTimeout(1);
    client.fetchBinary(server.url("/held"), "nowhere", 1000);
    SignalRecorder recorder(&client);
    QVERIFY(recorder.waitFor("s_errorChanged"));
    QCOMPARE(recorder.names(), timeoutSignals);
    QCOMPARE(recorder.last("s_aborted"), QVariantList({server.url("/held").toString()}));
    QCOMPARE(recorder.last("s_errorChanged").value(0).value<short>(), errorcodes::network_error);
    QCOMPARE(recorder.last("s_errorChanged").value(1).toString(), server.url("").toString());
}

QTEST_GUILESS_MAIN(tst_TarvisNet)

#include "tst_tarvisnet.moc"
