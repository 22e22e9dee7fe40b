#include "rawclient.h"
#include "scriptedserver.h"

#include <QtTest/QTest>

using Mode = ScriptedServer::Mode;

Q_DECLARE_METATYPE(ScriptedServer::Certificate)
Q_DECLARE_METATYPE(QSsl::SslProtocol)

class tst_ScriptedServerTls : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void certificates_data();
    void certificates();
    void limitsTheProtocol_data();
    void limitsTheProtocol();
    void refusesClientsWithoutCertificate_data();
    void refusesClientsWithoutCertificate();
    void muteTlsStaysMute();
    void closesAfterClientHello();
};

void tst_ScriptedServerTls::certificates_data()
{
    QTest::addColumn<ScriptedServer::Certificate>("certificate");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("mismatch");
    QTest::newRow("good") << ScriptedServer::Certificate::Good << "localhost" << false;
    QTest::newRow("wrong name") << ScriptedServer::Certificate::WrongName << "elsewhere.example"
                                << true;
}

void tst_ScriptedServerTls::certificates()
{
    QFETCH(ScriptedServer::Certificate, certificate);
    QFETCH(QString, name);
    QFETCH(bool, mismatch);

    ScriptedServer server(Mode::Https);
    server.setCertificate(certificate);
    RawClient client(server);
    bool sawMismatch = false;
    connect(&client.socket(), QOverload<const QList<QSslError> &>::of(&QSslSocket::sslErrors), this,
            [&](const QList<QSslError> &errors) {
                for (const QSslError &error : errors)
                    sawMismatch = sawMismatch || error.error() == QSslError::HostNameMismatch;
                client.socket().ignoreSslErrors();
            });

    QVERIFY(client.waitForConnected());
    const QSslCertificate seen = client.socket().peerCertificate();
    QCOMPARE(seen.subjectInfo(QSslCertificate::CommonName), QStringList(name));
    QVERIFY(seen.isSelfSigned());
    QCOMPARE(sawMismatch, mismatch);
}

void tst_ScriptedServerTls::limitsTheProtocol_data()
{
    QTest::addColumn<QSsl::SslProtocol>("protocol");
    QTest::newRow("1.2") << QSsl::TlsV1_2;
    QTest::newRow("1.3") << QSsl::TlsV1_3;
}

void tst_ScriptedServerTls::limitsTheProtocol()
{
    QFETCH(QSsl::SslProtocol, protocol);

    ScriptedServer server(Mode::Https);
    server.setTlsProtocol(protocol);
    RawClient client(server);

    QVERIFY(client.waitForConnected());
    QCOMPARE(client.socket().sessionProtocol(), protocol);
}

void tst_ScriptedServerTls::refusesClientsWithoutCertificate_data()
{
    limitsTheProtocol_data();
}

void tst_ScriptedServerTls::refusesClientsWithoutCertificate()
{
    QFETCH(QSsl::SslProtocol, protocol);

    ScriptedServer server(Mode::Https);
    server.setTlsProtocol(protocol);
    server.setClientCertificateRequired(true);
    RawClient client(server);
    client.get("/");

    QVERIFY(client.waitForEnd());
    QVERIFY(server.waitForConnections(0));
    QVERIFY(server.requests().isEmpty());
    QVERIFY(client.received().isEmpty());
}

void tst_ScriptedServerTls::muteTlsStaysMute()
{
    ScriptedServer server(Mode::MuteTls);
    RawClient client(server);

    QVERIFY(server.waitForAccepted(1));
    QVERIFY(!client.waitForConnected(100));
    QCOMPARE(server.connections(), 1);
    QCOMPARE(client.socket().state(), QAbstractSocket::ConnectedState);
    QVERIFY(!client.socket().isEncrypted());
}

void tst_ScriptedServerTls::closesAfterClientHello()
{
    ScriptedServer server(Mode::CloseAfterClientHello);
    RawClient client(server);

    QVERIFY(client.waitForEnd());
    QVERIFY(!client.socket().isEncrypted());
    QVERIFY(server.waitForConnections(0));
    QCOMPARE(server.acceptedConnections(), 1);
}

QTEST_GUILESS_MAIN(tst_ScriptedServerTls)
#include "tst_scriptedserver_tls.moc"
