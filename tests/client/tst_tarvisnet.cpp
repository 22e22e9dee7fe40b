#include "clientbench.h"
#include "operations.h"
#include "testclass.h"

#include <QtCore/QChildEvent>
#include <QtCore/QSysInfo>
#include <QtNetwork/QSslConfiguration>
#include <QtNetwork/QSslSocket>
#include <QtTest/QTest>

namespace tst_tarvisnet {

using namespace clientaccess;

namespace {

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

/// A client from the first step of its construction on, and what it says of its ping time-out when
/// a message is logged.
QObject *clientInTheMaking = nullptr;
QHash<QString, int> timeoutWhenLogged;

class EarlyParent : public QObject {
protected:
    void childEvent(QChildEvent *event) override { clientInTheMaking = event->child(); }
};

void noteTimeout(QtMsgType, const QMessageLogContext &, const QString &text)
{
    if (const auto *client = qobject_cast<TarvisNet *>(clientInTheMaking))
        timeoutWhenLogged.insert(text, client->getPingTimeout());
}

} // namespace

/// A client's beginning and end, and what it does to the process.
class tst_TarvisNet : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_default = QSslConfiguration::defaultConfiguration(); }
    // It is the whole process that a client configures.
    void cleanup() { QSslConfiguration::setDefaultConfiguration(m_default); }

    void logsConstruction();
    void constructsInOrder();
    void hasNoPingTimeoutBeforeItsProbe();
    void installsSslConfiguration();
    void sendsSslConfiguration_data() { operations::addRows(); }
    void sendsSslConfiguration();

    void logsDestruction();
    void abortsOnDestruction();
    void dropsPendingOnDestruction();
    void diesWithItsParent();

private:
    QSslConfiguration m_default;
};

void tst_TarvisNet::logsConstruction()
{
    const LogCapture log;
    TarvisNet client;
    const QString ssl =
        QString("SSl support: %1 \"%2\" \"%3\"")
            .arg(QSslSocket::supportsSsl() ? "true" : "false",
                 QSslSocket::sslLibraryBuildVersionString(), QSslSocket::sslLibraryVersionString());
    const QString system =
        QString("System info - architecture:  \"%1\"  system:  \"%2\"  version:  \"%3\"")
            .arg(QSysInfo::currentCpuArchitecture(), QSysInfo::prettyProductName(),
                 QSysInfo::kernelVersion());
    QCOMPARE(log.texts(QtDebugMsg),
             QStringList({"RemotePing ctor", "TarvisNet ctor.", ssl, system}));
    QCOMPARE(log.texts().size(), 4);
    QCOMPARE(log.from(sourceFile).size(), 3);
    QCOMPARE(log.originFault(sourceFile), QString());
    for (const LogEntry &entry : log.from(sourceFile))
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

void tst_TarvisNet::hasNoPingTimeoutBeforeItsProbe()
{
    const QtMessageHandler before = qInstallMessageHandler(noteTimeout);
    EarlyParent parent;
    const TarvisNet *const client = new TarvisNet(&parent);
    qInstallMessageHandler(before);
    QCOMPARE(timeoutWhenLogged.value("RemotePing ctor", -1), 0);
    QCOMPARE(timeoutWhenLogged.value("TarvisNet ctor.", -1), client->getPingTimeout());
}

void tst_TarvisNet::installsSslConfiguration()
{
    QSslConfiguration::setDefaultConfiguration(strictConfiguration());
    {
        const ClientBench bench;
        QVERIFY(isClientConfiguration(QSslConfiguration::defaultConfiguration()));
    }
    QVERIFY(isClientConfiguration(QSslConfiguration::defaultConfiguration()));
}

void tst_TarvisNet::sendsSslConfiguration()
{
    QFETCH(const Operation, operation);
    QSslConfiguration::setDefaultConfiguration(strictConfiguration());
    ClientBench bench;
    // What the process does later is not the client's.
    QSslConfiguration::setDefaultConfiguration(strictConfiguration());

    bench.ask(bench.server.port());
    const bool isPath = operation.form == Operation::Path;
    operation.call(*bench.client, isPath ? "/anything" : bench.url("/anything"), FileData());
    QCOMPARE(bench.running().size(), 1);
    QVERIFY(isClientConfiguration(bench.running().first()->request().sslConfiguration()));
}

void tst_TarvisNet::logsDestruction()
{
    WaitingBench bench;
    bench.get({"/held"});
    connect(bench.client, &TarvisNet::s_aborted, this, [] { qDebug("aborted"); });
    QVERIFY(bench.server.waitForRequests(1));
    delete bench.client;

    const QStringList last = bench.log.texts().mid(bench.log.texts().indexOf("aborted"));
    QCOMPARE(last, QStringList({"aborted", "TarvisNet dtor.", "RemotePing dtor"}));
    QCOMPARE(bench.log.count(QtDebugMsg, "TarvisNet dtor."), 1);
    QCOMPARE(bench.log.originFault(sourceFile), QString());
    QVERIFY(bench.log.from(sourceFile).last().function.endsWith("TarvisNet::~TarvisNet()"));
}

void tst_TarvisNet::abortsOnDestruction()
{
    WaitingBench bench;
    const SignalRecorder recorder(bench.client, {"s_aborted", "s_errorChanged", "s_rawGet"});
    bench.get({"/first", "/second"});
    QVERIFY(bench.server.waitForRequests(2));
    const QStringList expected = bench.runningUrls();

    delete bench.client;
    QCOMPARE(recorder.names(), QStringList({"s_aborted", "s_aborted"}));
    QCOMPARE(bench.abortedUrls(), expected);
    QVERIFY(bench.server.waitForConnections(0));
}

void tst_TarvisNet::dropsPendingOnDestruction()
{
    QStringList startedMeanwhile;
    WaitingBench bench;
    bench.client->setParallelRequestsCount(1);
    bench.get({"/active", "/pending"});
    QVERIFY(bench.server.waitForRequests(1));

    const SignalRecorder recorder(bench.client, {"s_aborted", "s_errorChanged", "s_rawGet"});
    TarvisNet *const dying = bench.client;
    const QNetworkAccessManager *const network = managerOf(*dying);
    connect(dying, &TarvisNet::s_aborted, this, [&startedMeanwhile, dying, network] {
        Q_EMIT dying->s_repliesCountChanged();
        for (const QNetworkReply *reply : network->findChildren<QNetworkReply *>())
            startedMeanwhile.append(reply->url().path());
    });
    delete bench.client;
    QCOMPARE(startedMeanwhile, QStringList("/active"));
    QCOMPARE(recorder.names(), QStringList("s_aborted"));
    QCOMPARE(recorder.last("s_aborted"), QVariantList{bench.url("/active")});
}

void tst_TarvisNet::diesWithItsParent()
{
    const LogCapture log;
    {
        QObject parent;
        auto *const client = new TarvisNet(&parent);
        QCOMPARE(client->parent(), &parent);
        QVERIFY(!managerOf(*client)->parent());
    }
    QCOMPARE(log.count(QtDebugMsg, "TarvisNet dtor."), 1);
}

const TestClass<tst_TarvisNet> testClass("tst_tarvisnet");

} // namespace tst_tarvisnet

#include "tst_tarvisnet.moc"
