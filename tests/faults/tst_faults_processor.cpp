#include "answers.h"
#include "faultrows.h"
#include "files.h"
#include "processorrun.h"
#include "servedfaults.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace {

using Mode = ScriptedServer::Mode;

// Our certificate is nobody's but our own.
QList<QSslError::SslError> tlsErrors(Mode mode)
{
    const QList<QSslError::SslError> selfSigned = {QSslError::SelfSignedCertificate};
    return mode == Mode::Https ? selfSigned : QList<QSslError::SslError>();
}

} // namespace

/// The stand-alone processor before servers that fail. It knows fewer codes and aborts nothing.
class tst_FaultsProcessor : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void failsInTheAnswer_data();
    void failsInTheAnswer();
    void refuses_data();
    void refuses();
};

void tst_FaultsProcessor::failsInTheAnswer_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<ServedFault>("fault");
    QTest::addColumn<RequestKind>("kind");

    faultrows::forEachKind([](const char *scheme, Mode mode, const RequestKind &kind) {
        for (const ServedFault &fault : servedFaults()) {
            QTest::addRow("%s, %s, %s", fault.name.constData(), kind.name, scheme)
                << mode << fault << kind;
        }
    });
}

void tst_FaultsProcessor::failsInTheAnswer()
{
    QFETCH(Mode, mode);
    QFETCH(ServedFault, fault);
    QFETCH(RequestKind, kind);

    ScriptedServer server(mode);
    HttpResponse answer;
    server.on("/fault", [&](const HttpRequest &, HttpResponse &response) {
        answer = response;
        if (fault.isAtOnce)
            response.cork();
        fault.begin(response);
        if (fault.endsAtOnce())
            fault.end(response);
    });
    ProcessorRun run(kind, server.url("/fault"), fault.size);
    QVERIFY(run.replies.waitFor());
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    connect(run.replies.at(), &QNetworkReply::errorOccurred, this,
            [&error](QNetworkReply::NetworkError code) { error = code; });
    if (!fault.endsAtOnce()) {
        connect(
            run.replies.at(), &QIODevice::readyRead, this, [&] { fault.end(answer); },
            Qt::QueuedConnection);
    }
    QVERIFY(run.replies.waitUntilGone());

    const bool mayLookWhole = mode == Mode::Http && fault.mayLookWhole();
    if (!mayLookWhole || error != QNetworkReply::NoError)
        error = fault.error;
    const Ending ending = {error, fault.status, fault.body};
    QCOMPARE(endings::seen(run.recorder), run.expectedSignals(ending));
    QCOMPARE(run.said(), run.expectedMessages(ending, tlsErrors(mode)));
    const bool isSaved = kind.name == replies::raw_get_file && error == QNetworkReply::NoError;
    QCOMPARE(files::read(run.path()), isSaved || kind.isFile() ? fault.body : QByteArray());
}

void tst_FaultsProcessor::refuses_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QNetworkReply::NetworkError>("error");
    QTest::addColumn<QByteArray>("body");

    faultrows::forEachKind([](const char *scheme, Mode mode, const RequestKind &kind) {
        for (const Refusal &refusal : refusals()) {
            for (const QByteArray &body : refusalBodies()) {
                QTest::addRow("%d %s, %s, %s", refusal.status, body.constData(), kind.name, scheme)
                    << mode << kind << refusal.status << refusal.error << body;
            }
        }
    });
}

void tst_FaultsProcessor::refuses()
{
    QFETCH(Mode, mode);
    QFETCH(RequestKind, kind);
    QFETCH(int, status);
    QFETCH(QNetworkReply::NetworkError, error);
    QFETCH(QByteArray, body);

    ScriptedServer server(mode);
    server.on("/fault", answers::bytes(body, status));
    ProcessorRun run(kind, server.url("/fault"), 1000);
    QVERIFY(run.replies.waitUntilGone());

    const Ending ending = {error, status, body};
    QCOMPARE(endings::seen(run.recorder), run.expectedSignals(ending));
    QCOMPARE(run.said(), run.expectedMessages(ending, tlsErrors(mode)));
    QVERIFY(!QFileInfo::exists(run.path()));
}

QTEST_GUILESS_MAIN(tst_FaultsProcessor)

#include "tst_faults_processor.moc"
