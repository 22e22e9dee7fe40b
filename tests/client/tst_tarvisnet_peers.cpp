#include "clientbench.h"
#include "testclass.h"

#include <QtCore/QCryptographicHash>
#include <QtNetwork/QSslConfiguration>
#include <QtNetwork/QSslKey>
#include <QtTest/QTest>

namespace tst_tarvisnet_peers {

using namespace clientaccess;

namespace {

QSslCertificate certificate(const char *name)
{
    return QSslCertificate::fromPath(QString(TARVISNET_TEST_CERTIFICATES "/%1.crt").arg(name))
        .value(0);
}

QByteArray keyOf(const QSslCertificate &certificate)
{
    return QCryptographicHash::hash(certificate.publicKey().toDer(), QCryptographicHash::Sha256);
}

TransferPolicy verifiedAgainst(const QList<QSslCertificate> &authorities)
{
    TransferPolicy policy = TransferPolicy::strict();
    policy.setCaCertificates(authorities);
    return policy;
}

TransferPolicy pinned(TransferPolicy policy, const QList<QByteArray> &keys)
{
    policy.setPinnedKeys(keys);
    return policy;
}

} // namespace

/// Whom a client with a policy talks to.
class tst_TarvisNetPeers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void requests_data();
    void requests();
    void everyRequestIsRefused();
    void logsWhyItRefuses();
    void oldProtocolsAreRefused_data();
    void oldProtocolsAreRefused();
    void probe_data();
    void probe();
    void processIsLeftAlone();
    void processDoesNotWeakenIt();
    void settingsAreItsOwn();
    void emptyPolicyIsTheTraditionalClient();
    void logsNameOneConstructor();

private:
    QSslConfiguration m_default;
    QScopedPointer<LogCapture> m_log;
};

void tst_TarvisNetPeers::init()
{
    m_default = QSslConfiguration::defaultConfiguration();
    m_log.reset(new LogCapture);
}

void tst_TarvisNetPeers::cleanup()
{
    m_log.reset();
    QSslConfiguration::setDefaultConfiguration(m_default);
}

void tst_TarvisNetPeers::requests_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    QTest::addColumn<ScriptedServer::Certificate>("shown");
    QTest::addColumn<bool>("isAnswered");
    const auto good = ScriptedServer::Certificate::Good;
    const auto wrongName = ScriptedServer::Certificate::WrongName;
    const QSslCertificate server = certificate("server");
    const QSslCertificate other = certificate("wrongname");
    const TransferPolicy verified = verifiedAgainst({server, other});
    const QByteArray someKey(32, 'x');

    QTest::newRow("nothing asked") << TransferPolicy() << good << true;
    QTest::newRow("nobody signed it") << TransferPolicy::strict() << good << false;
    QTest::newRow("its authority") << verifiedAgainst({server}) << good << true;
    QTest::newRow("another authority") << verifiedAgainst({other}) << good << false;
    QTest::newRow("several authorities") << verified << good << true;
    QTest::newRow("another name") << verified << wrongName << false;
    QTest::newRow("pinned, verified") << pinned(verified, {keyOf(server)}) << good << true;
    QTest::newRow("one of several pinned")
        << pinned(verified, {someKey, keyOf(server)}) << good << true;
    QTest::newRow("not pinned, verified") << pinned(verified, {someKey}) << good << false;
    QTest::newRow("pinned, nobody signed it")
        << pinned(TransferPolicy::strict(), {keyOf(server)}) << good << false;
    QTest::newRow("pinned, not verified")
        << pinned(TransferPolicy(), {keyOf(server)}) << good << true;
    QTest::newRow("not pinned, not verified")
        << pinned(TransferPolicy(), {someKey}) << good << false;
    QTest::newRow("a pin that is none") << pinned(TransferPolicy(), {"x"}) << good << false;
}

void tst_TarvisNetPeers::requests()
{
    QFETCH(const TransferPolicy, policy);
    QFETCH(const ScriptedServer::Certificate, shown);
    QFETCH(const bool, isAnswered);

    ScriptedServer server(ScriptedServer::Mode::Https);
    server.setCertificate(shown);
    server.on("/there", answers::json({{"a", 1}}));
    TarvisNet client(policy);
    SignalRecorder recorder(&client, {"s_rawGet", "s_errorChanged"});
    client.rawGet(server.url("/there"));
    QVERIFY(recorder.waitFor(isAnswered ? "s_rawGet" : "s_errorChanged"));
    QCOMPARE(recorder.names().size(), 1);
    QCOMPARE(server.requests().size(), isAnswered ? 1 : 0);
    if (isAnswered)
        return;
    const QVariantList error = recorder.last("s_errorChanged");
    QCOMPARE(error.at(0).value<short>(), short(-222));
    QCOMPARE(error.at(1).toString(), server.url("/there").toString());
}

// A connection that was refused once is not used by what comes next.
void tst_TarvisNetPeers::everyRequestIsRefused()
{
    ScriptedServer server(ScriptedServer::Mode::Https);
    server.onRequest(answers::json({}));
    for (const TransferPolicy &policy :
         {TransferPolicy::strict(), pinned(TransferPolicy(), {QByteArray(32, 'x')})}) {
        TarvisNet client(policy);
        SignalRecorder recorder(&client, {"s_rawGet", "s_rawPost", "s_errorChanged"});
        for (int i = 1; i <= 3; ++i) {
            client.rawGet(server.url("/get"));
            QVERIFY(recorder.waitFor("s_errorChanged", 2 * i - 1));
            client.rawPost(server.url("/post"), "secret");
            QVERIFY(recorder.waitFor("s_errorChanged", 2 * i));
        }
        for (const QVariantList &error : recorder.of("s_errorChanged"))
            QCOMPARE(error.at(0).value<short>(), short(-222));
        QCOMPARE(recorder.names().size(), 6);
    }
    QCOMPARE(server.requests().size(), 0);
}

void tst_TarvisNetPeers::logsWhyItRefuses()
{
    const ScriptedServer server(ScriptedServer::Mode::Https);
    TarvisNet client(pinned(TransferPolicy(), {QByteArray(32, 'x')}));
    SignalRecorder recorder(&client, {"s_errorChanged"});
    client.rawGet(server.url());
    QVERIFY(recorder.waitFor("s_errorChanged"));
    const QString name = quoted(certificate("server").subjectDisplayName());
    QVERIFY(m_log->contains(
        QtWarningMsg,
        line({"Key not pinned", name, name, "abort", quoted(server.url().toString())})));
}

void tst_TarvisNetPeers::oldProtocolsAreRefused_data()
{
    QTest::addColumn<int>("protocol");
    QTest::addColumn<bool>("isAnswered");
    QTest::newRow("TLS 1.0") << int(QSsl::TlsV1_0) << false;
    QTest::newRow("TLS 1.1") << int(QSsl::TlsV1_1) << false;
    QTest::newRow("TLS 1.2") << int(QSsl::TlsV1_2) << true;
    QTest::newRow("TLS 1.3") << int(QSsl::TlsV1_3) << true;
}

void tst_TarvisNetPeers::oldProtocolsAreRefused()
{
    QFETCH(const int, protocol);
    QFETCH(const bool, isAnswered);
    ScriptedServer server(ScriptedServer::Mode::Https);
    server.setTlsProtocol(QSsl::SslProtocol(protocol));
    server.onRequest(answers::json({}));
    TarvisNet client(verifiedAgainst({certificate("server")}));
    SignalRecorder recorder(&client, {"s_rawGet", "s_errorChanged"});
    client.rawGet(server.url());
    QVERIFY(recorder.waitFor(isAnswered ? "s_rawGet" : "s_errorChanged"));
    QCOMPARE(server.requests().size(), isAnswered ? 1 : 0);
}

void tst_TarvisNetPeers::probe_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    QTest::addColumn<bool>("isAnswered");
    const QSslCertificate server = certificate("server");
    QTest::newRow("verified") << verifiedAgainst({server}) << true;
    QTest::newRow("not verified") << TransferPolicy::strict() << false;
    QTest::newRow("pinned") << pinned(TransferPolicy(), {keyOf(server)}) << true;
    QTest::newRow("not pinned") << pinned(TransferPolicy(), {QByteArray(32, 'x')}) << false;
}

// As the probe asks: through the client's manager, with a request of its own. What it opens, the
// client's requests would use.
void tst_TarvisNetPeers::probe()
{
    QFETCH(const TransferPolicy, policy);
    QFETCH(const bool, isAnswered);
    ScriptedServer server(ScriptedServer::Mode::Https);
    server.onRequest(answers::json({}));
    TarvisNet client(policy);
    QNetworkReply *reply = managerOf(client)->get(QNetworkRequest(server.url()));
    SignalRecorder recorder(reply, {"finished"});
    QVERIFY(recorder.waitFor("finished"));
    QCOMPARE(reply->error() == QNetworkReply::NoError, isAnswered);
    QCOMPARE(server.requests().size(), isAnswered ? 1 : 0);
}

void tst_TarvisNetPeers::processIsLeftAlone()
{
    const TarvisNet client(TransferPolicy::strict());
    QVERIFY(QSslConfiguration::defaultConfiguration() == m_default);
}

void tst_TarvisNetPeers::processDoesNotWeakenIt()
{
    const TarvisNet traditional;
    ScriptedServer server(ScriptedServer::Mode::Https);
    server.onRequest(answers::json({}));
    TarvisNet client(TransferPolicy::strict());
    SignalRecorder recorder(&client, {"s_rawGet", "s_errorChanged"});
    client.rawGet(server.url());
    QVERIFY(recorder.waitFor("s_errorChanged"));
    QCOMPARE(server.requests().size(), 0);
}

// Whatever the process has set before.
void tst_TarvisNetPeers::settingsAreItsOwn()
{
    QSslConfiguration installed = m_default;
    installed.setProtocol(QSsl::TlsV1_0OrLater);
    installed.setPeerVerifyMode(QSslSocket::VerifyNone);
    installed.setPeerVerifyDepth(1);
    installed.setCaCertificates({certificate("server")});
    QSslConfiguration::setDefaultConfiguration(installed);
    const ScriptedServer server(ScriptedServer::Mode::Https);
    TarvisNet client(TransferPolicy::strict());
    client.rawGet(server.url());
    const QSslConfiguration sent = repliesOf(client).constFirst()->request().sslConfiguration();
    QCOMPARE(sent.protocol(), QSsl::TlsV1_2OrLater);
    QCOMPARE(sent.peerVerifyMode(), QSslSocket::VerifyPeer);
    QCOMPARE(sent.peerVerifyDepth(), 0);
    QCOMPARE(sent.caCertificates(), QSslConfiguration::systemCaCertificates());
}

void tst_TarvisNetPeers::emptyPolicyIsTheTraditionalClient()
{
    const TarvisNet client{TransferPolicy()};
    const QSslConfiguration installed = QSslConfiguration::defaultConfiguration();
    QCOMPARE(installed.peerVerifyMode(), QSslSocket::VerifyNone);
    QCOMPARE(installed.protocol(), QSsl::TlsV1_0OrLater);
    QCOMPARE(client.transferPolicy(), TransferPolicy());
}

void tst_TarvisNetPeers::logsNameOneConstructor()
{
    const TarvisNet traditional;
    const TarvisNet empty{TransferPolicy()};
    const TarvisNet strict(TransferPolicy::strict());
    const QList<LogEntry> entries = m_log->from("../../source/appl/tarvisnet");
    QCOMPARE(entries.size(), 9);
    for (const LogEntry &entry : entries)
        QCOMPARE(entry.function, QByteArray("TarvisNet::TarvisNet(QObject*)"));
}

const TestClass<tst_TarvisNetPeers> testClass("tst_tarvisnet_peers");

} // namespace tst_tarvisnet_peers

#include "tst_tarvisnet_peers.moc"
