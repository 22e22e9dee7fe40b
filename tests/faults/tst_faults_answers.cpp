#include "faultbench.h"
#include "faultrows.h"
#include "files.h"
#include "servedfaults.h"
#include "testclass.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace tst_faults_answers {

using faultrows::Mode;

/// Servers that break off, frame falsely, answer something else or refuse, for every kind of
/// request.
class tst_FaultsAnswers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void failsInTheAnswer_data() { faultrows::addFaultsInBothModes(servedFaults()); }
    void failsInTheAnswer();
    void refuses_data() { faultrows::addFaultsInBothModes(refusals()); }
    void refuses();
    void endlessAnswerIsAborted_data() { faultrows::addKinds(); }
    void endlessAnswerIsAborted();
};

void tst_FaultsAnswers::failsInTheAnswer()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(ServedFault, fault);

    FaultBench bench(mode);
    HttpResponse answer;
    fault.serve(bench.server, answer);
    bench.start(kind, fault.size);
    fault.endBehind(bench.reply(), answer);
    QVERIFY(bench.waitUntilGone());

    const Ending ending = fault.outcome(mode, bench.error());
    QCOMPARE(bench.seen(), bench.expectedSignals(kind, ending));
    QCOMPARE(bench.said(), bench.expectedMessages(kind, ending));
    // Qt asks again, up to four times in all, when it got no answer.
    QVERIFY(bench.server.requests().size() <= 4);
    for (const HttpRequest &request : bench.server.requests())
        QCOMPARE(request.method, QByteArray(kind.verb));

    // A failed download keeps what it has; one that ended counts as whole, whatever it has.
    const bool hasFailed = ending.error != QNetworkReply::NoError;
    const bool isSaved = QByteArray(kind.signal).contains("File") && !hasFailed;
    const QByteArray none;
    QCOMPARE(files::read(bench.temporary()), kind.isBinary() && hasFailed ? fault.body : none);
    QCOMPARE(files::read(bench.destination()),
             isSaved || (kind.isBinary() && !hasFailed) ? fault.body : none);
}

void tst_FaultsAnswers::refuses()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(Refusal, fault);

    FaultBench bench(mode);
    bench.server.on("/fault", answers::bytes(fault.ending.body, fault.ending.status));
    bench.start(kind);
    QVERIFY(bench.waitUntilGone());

    QCOMPARE(bench.seen(), bench.expectedSignals(kind, fault.ending));
    QCOMPARE(bench.said(), bench.expectedMessages(kind, fault.ending));
    QCOMPARE(bench.server.requests().size(), 1);
    QCOMPARE(bench.server.requests().constFirst().method, QByteArray(kind.verb));
    QVERIFY(!QFileInfo::exists(bench.temporary()));
    QVERIFY(!QFileInfo::exists(bench.destination()));
}

// Chunk upon chunk and no end, until the application has enough. A pause comes in the end: while
// the next bytes always are there already, Qt only gathers them and reports nothing.
void tst_FaultsAnswers::endlessAnswerIsAborted()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);

    constexpr qint64 plenty = Q_INT64_C(1) << 24;
    constexpr int size = 1000;
    FaultBench bench(mode);
    bench.server.on("/fault", [](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, HttpResponse::Chunked);
        response.writeGenerated(plenty);
    });
    bench.start(kind, size);
    connect(
        bench.reply(), &QIODevice::readyRead, bench.client,
        [&bench] { bench.client->abortDownload(); }, Qt::QueuedConnection);
    QVERIFY(bench.waitUntilGone());

    const Ending ending = {QNetworkReply::OperationCanceledError, 200, "some"};
    QCOMPARE(bench.seen(), bench.expectedSignals(kind, ending));
    QCOMPARE(bench.said(), bench.expectedMessages(kind, ending));
    QVERIFY(!QFileInfo::exists(bench.destination()));
    const QByteArray saved = files::read(bench.temporary());
    QVERIFY(saved == HttpResponse::generated(0, saved.size()));
    QCOMPARE(saved.size() >= size, kind.isBinary());
}

const TestClass<tst_FaultsAnswers> testClass("tst_faults_answers");

} // namespace tst_faults_answers

#include "tst_faults_answers.moc"
