#include "connectionfaults.h"
#include "faultrows.h"
#include "files.h"
#include "handshakefaults.h"
#include "processorrun.h"
#include "servedfaults.h"
#include "testclass.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace tst_faults_processor {

namespace {

using Mode = ScriptedServer::Mode;

const QByteArray body = R"({"answer":42})";

// Our certificate is nobody's but our own.
QList<QSslError::SslError> tlsErrors(Mode mode)
{
    const QList<QSslError::SslError> selfSigned = {QSslError::SelfSignedCertificate};
    return mode == Mode::Https ? selfSigned : QList<QSslError::SslError>();
}

} // namespace

/// The stand-alone processor before servers that fail, or that it does not come to terms with. It
/// knows fewer codes and aborts nothing.
class tst_FaultsProcessor : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void failsInTheAnswer_data() { faultrows::addFaultsInBothModes(servedFaults()); }
    void failsInTheAnswer();
    void refuses_data() { faultrows::addFaultsInBothModes(refusals()); }
    void refuses();
    void meets_data() { faultrows::addFaults(connectionFaults()); }
    void meets();
    void shakesHands_data() { faultrows::addFaults(handshakeFaults()); }
    void shakesHands();

private:
    ForeignServers m_foreign;
};

void tst_FaultsProcessor::failsInTheAnswer()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(ServedFault, fault);

    ProcessorRun run(mode, kind);
    HttpResponse answer;
    fault.serve(run.server, answer);
    run.ask(run.server.url("/fault"), fault.size);
    QVERIFY(run.replies.waitFor());
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    connect(run.replies.at(), &QNetworkReply::errorOccurred, this,
            [&error](QNetworkReply::NetworkError code) { error = code; });
    fault.endBehind(run.replies.at(), answer);
    QVERIFY(run.replies.waitUntilGone());

    const Ending ending = fault.outcome(mode, error);
    QCOMPARE(endings::seen(run.recorder), run.expectedSignals(ending));
    QCOMPARE(run.said(), run.expectedMessages(ending, tlsErrors(mode)));
    const bool isSaved =
        kind.name == replies::raw_get_file && ending.error == QNetworkReply::NoError;
    QCOMPARE(files::read(run.path()), isSaved || kind.isFile() ? fault.body : QByteArray());
}

void tst_FaultsProcessor::refuses()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(Refusal, fault);

    ProcessorRun run(mode, kind);
    run.server.on("/fault", answers::bytes(fault.ending.body, fault.ending.status));
    run.ask(run.server.url("/fault"), 1000);
    QVERIFY(run.replies.waitUntilGone());

    QCOMPARE(endings::seen(run.recorder), run.expectedSignals(fault.ending));
    QCOMPARE(run.said(), run.expectedMessages(fault.ending, tlsErrors(mode)));
    QVERIFY(!QFileInfo::exists(run.path()));
}

void tst_FaultsProcessor::meets()
{
    QFETCH(ConnectionFault, fault);
    QFETCH(RequestKind, kind);

    ProcessorRun run(fault.mode, kind);
    run.server.on("/fault", answers::bytes(body));
    run.ask(fault.prepare(run.server), ulong(body.size()));
    QVERIFY(run.replies.waitUntilGone());

    const bool isAnswered = fault.isAnswered();
    const Ending ending = fault.ending(body);
    QCOMPARE(endings::seen(run.recorder), run.expectedSignals(ending));
    QCOMPARE(run.said(), run.expectedMessages(ending, fault.processorHears));
    QCOMPARE(run.server.requests().size(), isAnswered ? 1 : 0);
    const bool isSaved = isAnswered && (kind.isFile() || kind.name == replies::raw_get_file);
    QCOMPARE(files::read(run.path()), isSaved ? body : QByteArray());
}

void tst_FaultsProcessor::shakesHands()
{
    QFETCH(HandshakeFault, fault);
    QFETCH(RequestKind, kind);

    ProcessorRun run(Mode::Http, kind);
    run.ask(m_foreign.urlOf(fault), 10);
    QVERIFY(run.replies.waitUntilGone());

    QCOMPARE(endings::seen(run.recorder), run.expectedSignals(fault.ending));
    QCOMPARE(run.said(), run.expectedMessages(fault.ending, fault.processorHears));
    QVERIFY(!QFileInfo::exists(run.path()));
}

const TestClass<tst_FaultsProcessor> testClass("tst_faults_processor");

} // namespace tst_faults_processor

#include "tst_faults_processor.moc"
