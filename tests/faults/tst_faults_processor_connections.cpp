#include "answers.h"
#include "connectionfaults.h"
#include "faultrows.h"
#include "files.h"
#include "handshakefaults.h"
#include "processorrun.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace {

const QByteArray body = R"({"answer":42})";

} // namespace

/// The stand-alone processor before servers that it does not come to terms with.
class tst_FaultsProcessorConnections : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void meets_data() { faultrows::addFaults(connectionFaults()); }
    void meets();
    void shakesHands_data() { faultrows::addFaults(handshakeFaults()); }
    void shakesHands();

private:
    ForeignServers m_foreign;
};

void tst_FaultsProcessorConnections::meets()
{
    QFETCH(ConnectionFault, fault);
    QFETCH(RequestKind, kind);

    ScriptedServer server(fault.mode);
    server.on("/fault", answers::bytes(body));
    ProcessorRun run(kind, fault.prepare(server), ulong(body.size()));
    QVERIFY(run.replies.waitUntilGone());

    const bool isAnswered = fault.isAnswered();
    const Ending ending = fault.ending(body);
    QCOMPARE(endings::seen(run.recorder), run.expectedSignals(ending));
    QCOMPARE(run.said(), run.expectedMessages(ending, fault.processorHears));
    QCOMPARE(server.requests().size(), isAnswered ? 1 : 0);
    const bool isSaved = isAnswered && (kind.isFile() || kind.name == replies::raw_get_file);
    QCOMPARE(files::read(run.path()), isSaved ? body : QByteArray());
}

void tst_FaultsProcessorConnections::shakesHands()
{
    QFETCH(HandshakeFault, fault);
    QFETCH(RequestKind, kind);

    ProcessorRun run(kind, m_foreign.urlOf(fault), 10);
    QVERIFY(run.replies.waitUntilGone());

    QCOMPARE(endings::seen(run.recorder), run.expectedSignals(fault.ending));
    QCOMPARE(run.said(), run.expectedMessages(fault.ending, fault.processorHears));
    QVERIFY(!QFileInfo::exists(run.path()));
}

QTEST_GUILESS_MAIN(tst_FaultsProcessorConnections)

#include "tst_faults_processor_connections.moc"
