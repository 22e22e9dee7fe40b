#include "answers.h"
#include "processorbench.h"

#include <QtCore/QMetaEnum>
#include <QtCore/QScopedPointer>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QTest>

using namespace processorbench;

using Results = QList<QVariantList>;

class tst_NetworkProcessorErrors : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_quiet.reset(new LogCapture); }
    void cleanupTestCase() { m_quiet.reset(); }
    void errorCodes_data();
    void errorCodes();
    void failingAnswers_data();
    void failingAnswers();
    void failingConnections_data();
    void failingConnections();
    void answerInClear();
    void brokenBody_data();
    void brokenBody();
    void canceledReply();
    void readsNothingAfterAnError();

private:
    QScopedPointer<LogCapture> m_quiet;
};

namespace {

QString errorText(const QString &name)
{
    return "<NetworkProcessor::replyError> Network error: \n  code:  " + name + " \n";
}

} // namespace

void tst_NetworkProcessorErrors::errorCodes_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("name");
    QTest::addColumn<Results>("expected");

    const QMap<int, Results> special{{5, {}}, {99, {error(-216, {})}}, {203, {error(-217, {})}}};
    const Results other{error(-203, {})};
    const auto errors = QMetaEnum::fromType<QNetworkReply::NetworkError>();
    for (int index = 0; index < errors.keyCount(); ++index) {
        const int code = errors.value(index);
        QTest::newRow(errors.key(index))
            << code << QString("QNetworkReply::") + errors.key(index) << special.value(code, other);
    }
    QTest::newRow("no enumerator") << 500 << "QNetworkReply::NetworkError(500)" << other;
}

void tst_NetworkProcessorErrors::errorCodes()
{
    QFETCH(int, code);
    QFETCH(QString, name);
    QFETCH(Results, expected);
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const QUrl url("http://127.0.0.1/some path");
    const QPointer<FakeReply> reply = follow(processor, url);
    log.clear();

    reply->fail(QNetworkReply::NetworkError(code));

    for (QVariantList &args : expected)
        args.last() = url.toString();
    QCOMPARE(recorder.of("s_errorChanged"), expected);
    QCOMPARE(recorder.calls().size(), expected.size());
    QCOMPARE(texts(log), QStringList{errorText(name)});
}

void tst_NetworkProcessorErrors::failingAnswers_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<short>("code");
    QTest::addColumn<QString>("name");

    const auto add = [](int status, short code, const char *name) {
        QTest::addRow("%d", status) << status << code << QString(name);
    };
    add(400, -203, "ProtocolInvalidOperationError");
    add(401, -203, "AuthenticationRequiredError");
    add(403, -203, "ContentAccessDenied");
    add(404, -217, "ContentNotFoundError");
    add(410, -203, "ContentGoneError");
    add(418, -203, "ProtocolInvalidOperationError");
    add(500, -203, "InternalServerError");
    add(503, -203, "ServiceUnavailableError");
}

void tst_NetworkProcessorErrors::failingAnswers()
{
    QFETCH(int, status);
    QFETCH(short, code);
    QFETCH(QString, name);
    ScriptedServer server;
    server.onRequest(answers::json({{"error", "text"}}, status));
    LogCapture log;
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(record(replies::raw_get, server.url()));
    QVERIFY(replies.waitUntilGone());

    QCOMPARE(outcomeNames(recorder), QStringList{"s_errorChanged"});
    QCOMPARE(recorder.last("s_errorChanged"), error(code, server.url().toString()));
    QCOMPARE(texts(log, "replyError"), QStringList{errorText("QNetworkReply::" + name)});
    QCOMPARE(texts(log, "handleReply"), QStringList());
}

void tst_NetworkProcessorErrors::failingConnections_data()
{
    using Mode = ScriptedServer::Mode;
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<QString>("scheme");
    QTest::addColumn<bool>("isStopped");
    QTest::addColumn<bool>("demandsCertificate");
    QTest::addColumn<QString>("name");

    QTest::newRow("refused") << Mode::Http << "http" << true << false << "ConnectionRefusedError";
    QTest::newRow("closed in the handshake")
        << Mode::CloseAfterClientHello << "https" << false << false << "RemoteHostClosedError";
    QTest::newRow("demanded client certificate")
        << Mode::Https << "https" << false << true << "RemoteHostClosedError";
    QTest::newRow("unknown scheme")
        << Mode::Http << "gopher" << false << false << "ProtocolUnknownError";
}

void tst_NetworkProcessorErrors::failingConnections()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(QString, scheme);
    QFETCH(bool, isStopped);
    QFETCH(bool, demandsCertificate);
    QFETCH(QString, name);
    ScriptedServer server(mode);
    server.setClientCertificateRequired(demandsCertificate);
    if (isStopped)
        server.stop();
    LogCapture log;
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    QUrl url = server.url();
    url.setScheme(scheme);

    processor.startPost(record(replies::raw_post, url), "body");
    QVERIFY(replies.waitUntilGone());

    QCOMPARE(outcomeNames(recorder), QStringList{"s_errorChanged"});
    QCOMPARE(recorder.last("s_errorChanged"), error(-203, url.toString()));
    QCOMPARE(texts(log, "replyError"), QStringList{errorText("QNetworkReply::" + name)});
}

// The client has a code of its own for a failed handshake; this engine has none.
void tst_NetworkProcessorErrors::answerInClear()
{
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    connect(&server, &QTcpServer::newConnection, this,
            [&server] { server.nextPendingConnection()->write("HTTP/1.0 400 No TLS\r\n\r\n"); });
    LogCapture log;
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const QUrl url(QString("https://127.0.0.1:%1/").arg(server.serverPort()));

    processor.startGet(record(replies::raw_get, url));
    QVERIFY(replies.waitUntilGone());

    QCOMPARE(outcomeNames(recorder), QStringList{"s_errorChanged"});
    QCOMPARE(recorder.last("s_errorChanged"), error(-203, url.toString()));
    QCOMPARE(texts(log, "replyError"),
             QStringList{errorText("QNetworkReply::SslHandshakeFailedError")});
}

void tst_NetworkProcessorErrors::brokenBody_data()
{
    QTest::addColumn<QString>("replyType");

    for (const QLatin1String kind : {replies::raw_get, replies::remote_installer_log,
                                     replies::raw_get_file, replies::remote_binary})
        QTest::newRow(kind.data()) << QString(kind);
}

// What arrived of a body is no result.
void tst_NetworkProcessorErrors::brokenBody()
{
    QFETCH(QString, replyType);
    ScriptedServer server;
    server.onRequest(answers::cutShort(R"({"a":1})"));
    LogCapture log;
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(record(replyType, server.url()));
    QVERIFY(replies.waitUntilGone());

    QCOMPARE(outcomeNames(recorder), QStringList{"s_errorChanged"});
    QCOMPARE(recorder.last("s_errorChanged"), error(-203, server.url().toString()));
    QCOMPARE(texts(log, "replyError"),
             QStringList{errorText("QNetworkReply::RemoteHostClosedError")});
    QCOMPARE(texts(log, "handleReply"), QStringList());
}

void tst_NetworkProcessorErrors::canceledReply()
{
    ScriptedServer server;
    server.onRequest(answers::withhold());
    LogCapture log;
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    processor.startGet(record(replies::raw_get, server.url()));
    QVERIFY(server.waitForRequests(1));

    replies.at()->abort();
    QVERIFY(replies.waitUntilGone());

    QCOMPARE(outcomeNames(recorder), QStringList());
    QCOMPARE(texts(log, "replyError"),
             QStringList{errorText("QNetworkReply::OperationCanceledError")});
    QCOMPARE(texts(log, "replyFinished"), QStringList{"<NetworkProcessor::replyFinished>"});
}

void tst_NetworkProcessorErrors::readsNothingAfterAnError()
{
    NetworkProcessor processor;
    const QPointer<FakeReply> reply = follow(processor);
    reply->fail(QNetworkReply::InternalServerError, "broken by the test");
    reply->appendBody("bytes");
    LogCapture log;

    Q_EMIT reply->readyRead();
    Q_EMIT reply->readyRead();

    const QString text = "<NetworkProcessor::replyReadyRead> some error:  \"broken by the test\"";
    QCOMPARE(texts(log), (QStringList{text, text}));
    QCOMPARE(reply->bytesAvailable(), 5);
}

QTEST_GUILESS_MAIN(tst_NetworkProcessorErrors)
#include "tst_networkprocessor_errors.moc"
