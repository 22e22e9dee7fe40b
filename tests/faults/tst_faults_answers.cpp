#include "faultbench.h"
#include "files.h"
#include "servedfaults.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

/// Servers that break off, frame falsely, or answer something else, for every kind of request.
class tst_FaultsAnswers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void failsInTheAnswer_data();
    void failsInTheAnswer();
    void endlessAnswerIsAborted_data();
    void endlessAnswerIsAborted();
};

void tst_FaultsAnswers::failsInTheAnswer_data()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<ServedFault>("fault");
    QTest::addColumn<RequestKind>("kind");

    const auto addRows = [](const char *scheme, ScriptedServer::Mode mode,
                            const QList<RequestKind> &kinds) {
        for (const ServedFault &fault : servedFaults()) {
            for (const RequestKind &kind : kinds) {
                QTest::addRow("%s, %s, %s", fault.name.constData(), kind.name, scheme)
                    << mode << fault << kind;
            }
        }
    };
    addRows("HTTP", ScriptedServer::Mode::Http, requestkinds::all());
    addRows("HTTPS", ScriptedServer::Mode::Https, requestkinds::few());
}

void tst_FaultsAnswers::failsInTheAnswer()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(ServedFault, fault);
    QFETCH(RequestKind, kind);

    FaultBench bench(mode);
    HttpResponse answer;
    bench.server.on("/fault", [&](const HttpRequest &, HttpResponse &response) {
        answer = response;
        fault.begin(response);
        if (fault.body.isEmpty())
            fault.end(response);
    });
    bench.start(kind, fault.size);
    if (!fault.body.isEmpty()) {
        connect(
            bench.reply(), &QIODevice::readyRead, this, [&] { fault.end(answer); },
            Qt::QueuedConnection);
    }
    QVERIFY(bench.waitUntilGone());

    // Over HTTP, whether Qt takes what was cut for whole depends on how the bytes come in.
    const bool mayLookWhole = mode == ScriptedServer::Mode::Http && fault.isCut();
    const QNetworkReply::NetworkError error =
        mayLookWhole && bench.error() == QNetworkReply::NoError ? bench.error() : fault.error;
    const Ending ending = {error, fault.status, fault.body};
    QCOMPARE(bench.seen(), bench.expectedSignals(kind, ending));
    QCOMPARE(bench.said(), bench.expectedMessages(kind, ending));
    // Qt repeats some of them.
    for (const HttpRequest &request : bench.server.requests())
        QCOMPARE(request.method, QByteArray(kind.verb));

    // A failed download keeps what it has; one that ended counts as whole, whatever it has.
    const bool hasFailed = error != QNetworkReply::NoError;
    const bool isSaved = QByteArray(kind.signal).contains("File") && !hasFailed;
    const QByteArray none;
    QCOMPARE(files::read(bench.temporary()), kind.isBinary() && hasFailed ? fault.body : none);
    QCOMPARE(files::read(bench.destination()),
             isSaved || (kind.isBinary() && !hasFailed) ? fault.body : none);
}

void tst_FaultsAnswers::endlessAnswerIsAborted_data()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : requestkinds::all()) {
        QTest::addRow("%s, HTTP", kind.name) << ScriptedServer::Mode::Http << kind;
        QTest::addRow("%s, HTTPS", kind.name) << ScriptedServer::Mode::Https << kind;
    }
}

// Chunk upon chunk, until the application has enough.
void tst_FaultsAnswers::endlessAnswerIsAborted()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(RequestKind, kind);

    constexpr qint64 endless = Q_INT64_C(1) << 40;
    constexpr int size = 1000;
    FaultBench bench(mode);
    bench.server.on("/fault", [](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, HttpResponse::Chunked);
        response.writeGenerated(endless);
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

QTEST_GUILESS_MAIN(tst_FaultsAnswers)

#include "tst_faults_answers.moc"
