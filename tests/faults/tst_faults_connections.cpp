#include "connectionfaults.h"
#include "faultbench.h"
#include "faultrows.h"
#include "files.h"
#include "handshakefaults.h"
#include "testclass.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace tst_faults_connections {

using namespace clientaccess;

using Mode = ScriptedServer::Mode;

namespace {

const QByteArray body = R"({"answer":42})";

} // namespace

/// Servers that are not there, do not talk, or talk another TLS, for every kind of request.
class tst_FaultsConnections : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void meets_data() { faultrows::addFaults(connectionFaults()); }
    void meets();
    void shakesHands_data() { faultrows::addFaults(handshakeFaults()); }
    void shakesHands();
    void muteServerIsAborted_data();
    void muteServerIsAborted();

private:
    ForeignServers m_foreign;
};

void tst_FaultsConnections::meets()
{
    QFETCH(ConnectionFault, fault);
    QFETCH(RequestKind, kind);

    FaultBench bench(fault.mode);
    bench.server.on("/fault", answers::bytes(body));
    bench.start(kind, ulong(body.size()), fault.prepare(bench.server));
    QVERIFY(bench.waitUntilGone());

    const bool isAnswered = fault.isAnswered();
    const Ending ending = fault.ending(body);
    QStringList messages;
    for (const QSslError::SslError error : fault.clientHears) {
        messages.append(line({"debug: <TarvisNet::replySslErrors> \n",
                              " text: ", quoted(QSslError(error).errorString())}));
    }
    QCOMPARE(bench.seen(), bench.expectedSignals(kind, ending));
    QCOMPARE(bench.said(), messages + bench.expectedMessages(kind, ending));
    QCOMPARE(bench.server.requests().size(), isAnswered ? 1 : 0);
    const bool isSaved =
        isAnswered && (kind.isBinary() || QByteArray(kind.signal).contains("File"));
    QCOMPARE(files::read(bench.destination()), isSaved ? body : QByteArray());
    QVERIFY(!QFileInfo::exists(bench.temporary()));
}

void tst_FaultsConnections::shakesHands()
{
    QFETCH(HandshakeFault, fault);
    QFETCH(RequestKind, kind);

    FaultBench bench;
    bench.start(kind, 10, m_foreign.urlOf(fault));
    QVERIFY(bench.waitUntilGone());

    QCOMPARE(bench.seen(), bench.expectedSignals(kind, fault.ending));
    QCOMPARE(bench.said(), bench.expectedMessages(kind, fault.ending));
    QVERIFY(!QFileInfo::exists(bench.destination()));
    QVERIFY(!QFileInfo::exists(bench.temporary()));
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

const TestClass<tst_FaultsConnections> testClass("tst_faults_connections");

} // namespace tst_faults_connections

#include "tst_faults_connections.moc"
