#include "faultbench.h"
#include "files.h"
#include "nginxserver.h"

#include <QtCore/QFileInfo>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QTest>

#include <functional>

using namespace clientaccess;

using Mode = ScriptedServer::Mode;

/// A way of not coming to an answer, or of coming to it by a certificate of no worth.
struct ConnectionFault {
    QByteArray name;
    Mode mode = Mode::Http;
    std::function<void(ScriptedServer &)> prepare = [](ScriptedServer &) {};
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    /// Of the request, when it is not that of the server.
    QString scheme = QString();
    QStringList tlsErrors = QStringList();
};

Q_DECLARE_METATYPE(ConnectionFault)

namespace {

const QByteArray body = R"({"answer":42})";

QList<ConnectionFault> connectionFaults()
{
    const auto nothing = [](ScriptedServer &) {};
    const auto stop = [](ScriptedServer &server) { server.stop(); };
    const auto demandCertificate = [](QSsl::SslProtocol protocol) {
        return [protocol](ScriptedServer &server) {
            server.setTlsProtocol(protocol);
            server.setClientCertificateRequired(true);
        };
    };
    const auto wrongName = [](ScriptedServer &server) {
        server.setCertificate(ScriptedServer::Certificate::WrongName);
    };
    constexpr auto refused = QNetworkReply::ConnectionRefusedError;
    constexpr auto closed = QNetworkReply::RemoteHostClosedError;
    const QString mismatch = QSslError(QSslError::HostNameMismatch).errorString();
    return {
        {"closed port, HTTP", Mode::Http, stop, refused},
        {"closed port, HTTPS", Mode::Https, stop, refused},
        {"closed after the greeting", Mode::CloseAfterClientHello, nothing, closed},
        {"HTTP to a TLS port", Mode::Https, nothing, closed, "http"},
        {"client certificate demanded, TLS 1.2", Mode::Https, demandCertificate(QSsl::TlsV1_2),
         closed},
        {"client certificate demanded, TLS 1.3", Mode::Https, demandCertificate(QSsl::TlsV1_3),
         closed},
        {"self-signed certificate", Mode::Https, nothing},
        {"certificate of another name",
         Mode::Https,
         wrongName,
         QNetworkReply::NoError,
         QString(),
         {mismatch}},
    };
}

/// Says something in clear to whoever greets in TLS.
class ClearServer : public QTcpServer {
public:
    ClearServer()
    {
        if (!listen(QHostAddress::LocalHost))
            qFatal("no server in clear");
        connect(this, &QTcpServer::newConnection, this, [this] {
            QTcpSocket *const socket = nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket,
                    [socket] { socket->write("HTTP/1.1 400 Bad Request\r\n\r\n"); });
        });
    }
    QUrl url() const { return QUrl(QString("https://127.0.0.1:%1/fault").arg(serverPort())); }
};

void addKinds()
{
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : requestkinds::all())
        QTest::newRow(kind.name) << kind;
}

} // namespace

/// Servers that are not there, do not talk, or talk another TLS, for every kind of request.
class tst_FaultsConnections : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void meets_data();
    void meets();
    void unknownHost_data() { addKinds(); }
    void unknownHost();
    void clearTextOnATlsPort_data() { addKinds(); }
    void clearTextOnATlsPort();
    void muteServerIsAborted_data();
    void muteServerIsAborted();
    void nginxDemandsACertificate_data() { addKinds(); }
    void nginxDemandsACertificate();
    void nginxSpeaksOldTls_data() { addKinds(); }
    void nginxSpeaksOldTls();

private:
    QScopedPointer<NginxServer> m_demanding;
    QScopedPointer<NginxServer> m_old;
};

void tst_FaultsConnections::initTestCase()
{
    m_demanding.reset(new NginxServer(
        "ssl_verify_client on;\nssl_client_certificate \"" TARVISNET_TEST_CERTIFICATES
        "/server.crt\";\n"
        "error_page 496 =400 /refused;\n"
        "location = /refused { internal; return 400 'no'; }"));
    m_old.reset(new NginxServer("ssl_ciphers ALL:@SECLEVEL=0;", "TLSv1"));
}

void tst_FaultsConnections::meets_data()
{
    QTest::addColumn<ConnectionFault>("fault");
    QTest::addColumn<RequestKind>("kind");
    for (const ConnectionFault &fault : connectionFaults()) {
        for (const RequestKind &kind : requestkinds::all())
            QTest::addRow("%s, %s", fault.name.constData(), kind.name) << fault << kind;
    }
}

void tst_FaultsConnections::meets()
{
    QFETCH(ConnectionFault, fault);
    QFETCH(RequestKind, kind);

    FaultBench bench(fault.mode);
    bench.server.on("/fault", answers::bytes(body));
    fault.prepare(bench.server);
    QUrl url = bench.server.url("/fault");
    if (!fault.scheme.isEmpty())
        url.setScheme(fault.scheme);
    bench.start(kind, ulong(body.size()), url);
    QVERIFY(bench.waitUntilGone());

    const bool isAnswered = fault.error == QNetworkReply::NoError;
    const Ending ending = {fault.error, isAnswered ? 200 : 0, isAnswered ? body : QByteArray()};
    QStringList messages;
    for (const QString &text : fault.tlsErrors) {
        messages.append(line({"debug: <TarvisNet::replySslErrors> \n", " text: ", quoted(text)}));
    }
    QCOMPARE(bench.seen(), bench.expectedSignals(kind, ending));
    QCOMPARE(bench.said(), messages + bench.expectedMessages(kind, ending));
    QCOMPARE(bench.server.requests().size(), isAnswered ? 1 : 0);
    QVERIFY(!QFileInfo::exists(bench.temporary()));
}

void tst_FaultsConnections::unknownHost()
{
    QFETCH(RequestKind, kind);

    FaultBench bench;
    // No name server is asked for a name that is too long for one.
    const QString host = (QString(60, 'a') + '.').repeated(5) + "invalid";
    bench.start(kind, 10, QUrl("http://" + host + "/fault"));
    QVERIFY(bench.waitUntilGone());

    const Ending ending = {QNetworkReply::HostNotFoundError};
    QCOMPARE(bench.seen(), bench.expectedSignals(kind, ending));
    QCOMPARE(bench.said(), bench.expectedMessages(kind, ending));
}

void tst_FaultsConnections::clearTextOnATlsPort()
{
    QFETCH(RequestKind, kind);

    const ClearServer server;
    FaultBench bench;
    bench.start(kind, 10, server.url());
    QVERIFY(bench.waitUntilGone());

    const Ending ending = {QNetworkReply::SslHandshakeFailedError};
    QCOMPARE(bench.seen(), bench.expectedSignals(kind, ending));
    QCOMPARE(bench.said(), bench.expectedMessages(kind, ending));
}

void tst_FaultsConnections::muteServerIsAborted_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : requestkinds::all()) {
        QTest::addRow("%s, HTTP", kind.name) << Mode::Http << kind;
        QTest::addRow("%s, HTTPS", kind.name) << Mode::Https << kind;
        QTest::addRow("%s, before the handshake", kind.name) << Mode::MuteTls << kind;
    }
}

void tst_FaultsConnections::muteServerIsAborted()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);

    FaultBench bench(mode);
    bench.server.on("/fault", answers::withhold());
    bench.start(kind);
    QVERIFY(mode == Mode::MuteTls ? bench.server.waitForAccepted(1)
                                  : bench.server.waitForRequests(1));
    bench.client->abortDownload();
    QVERIFY(bench.waitUntilGone());

    const Ending ending = {QNetworkReply::OperationCanceledError};
    QCOMPARE(bench.seen(), bench.expectedSignals(kind, ending));
    QCOMPARE(bench.said(), bench.expectedMessages(kind, ending));
    QVERIFY(!QFileInfo::exists(bench.temporary()));
}

void tst_FaultsConnections::nginxDemandsACertificate()
{
    QFETCH(RequestKind, kind);

    FaultBench bench;
    bench.start(kind, 10, m_demanding->httpsUrl("/fault"));
    QVERIFY(bench.waitUntilGone());

    const Ending ending = {QNetworkReply::ProtocolInvalidOperationError, 400, "no"};
    QCOMPARE(bench.seen(), bench.expectedSignals(kind, ending));
    QCOMPARE(bench.said(), bench.expectedMessages(kind, ending));
}

void tst_FaultsConnections::nginxSpeaksOldTls()
{
    QFETCH(RequestKind, kind);

    FaultBench bench;
    bench.start(kind, 10, m_old->httpsUrl("/fault"));
    QVERIFY(bench.waitUntilGone());

    const Ending ending = {QNetworkReply::SslHandshakeFailedError};
    QCOMPARE(bench.seen(), bench.expectedSignals(kind, ending));
    QCOMPARE(bench.said(), bench.expectedMessages(kind, ending));
}

QTEST_GUILESS_MAIN(tst_FaultsConnections)

#include "tst_faults_connections.moc"
