#include "answers.h"
#include "processorbench.h"

#include <QtCore/QJsonObject>
#include <QtCore/QScopedPointer>
#include <QtTest/QTest>

using namespace processorbench;

using Results = QList<QVariantList>;

class tst_NetworkProcessorReplies : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_quiet.reset(new LogCapture); }
    void cleanupTestCase() { m_quiet.reset(); }
    void results_data();
    void results();
    void unhandledKinds_data();
    void unhandledKinds();
    void warnsOfBytesWithoutARecord();
    void finishesWithoutARecord();
    void abortsAndDeletesEveryReply();
    void answerWithoutARecordOverASocket();

private:
    QScopedPointer<LogCapture> m_quiet;
};

namespace {

const QString handled = "<TarvisNet::handleReply> ";

QVariantList result(const char *signal)
{
    return {QString(signal)};
}

QVariantList result(const char *signal, const QVariant &value)
{
    return {QString(signal), value};
}

void addResultRow(const QString &replyType, const QByteArray &body, const QString &text,
                  const Results &expected)
{
    for (const bool isPost : {false, true}) {
        for (const auto mode : {ScriptedServer::Mode::Http, ScriptedServer::Mode::Https}) {
            const QString name = QString("%1 %2 %3 %4")
                                     .arg(replyType, QString(body.toHex()))
                                     .arg(isPost ? "POST" : "GET")
                                     .arg(int(mode));
            QTest::newRow(qPrintable(name))
                << replyType << body << isPost << mode << QStringList{handled + text} << expected;
        }
    }
}

// What was emitted, each as the signal's name and its arguments without the URL, which is compared.
Results emitted(const SignalRecorder &recorder, const QString &url)
{
    Results found;
    for (const SignalCall &call : outcomes(recorder)) {
        QVariantList args = call.args;
        if (args.takeLast() != url)
            args.append("under another URL");
        found.append(QVariantList{call.name} + args);
    }
    return found;
}

} // namespace

void tst_NetworkProcessorReplies::results_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("isPost");
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<Results>("expected");

    const QByteArray json(R"({"a":1})");
    const QJsonDocument document(QJsonObject{{"a", 1}});
    const QByteArray notJson("not JSON");
    const QJsonDocument null;
    const struct {
        QLatin1String replyType;
        const char *text;
        const char *signal;
    } jsonKinds[] = {
        {replies::remote_index, "Index finished", "s_fetchIndex"},
        {replies::remote_definition, "Definition finished", "s_fetchDefinition"},
        {replies::raw_get, "Raw get finished", "s_rawGet"},
        {replies::raw_post, "Raw post finished", "s_rawPost"},
    };
    for (const auto &kind : jsonKinds) {
        addResultRow(kind.replyType, json, kind.text, {result(kind.signal, document)});
        addResultRow(kind.replyType, notJson, kind.text, {result(kind.signal, null)});
        addResultRow(kind.replyType, QByteArray(), kind.text, {result(kind.signal, null)});
    }

    addResultRow(replies::redirect_reply, json, "Redirect finished", {});
    addResultRow(replies::remote_binary, json, "Binary finished", {result("s_finished")});
    addResultRow(replies::remote_installer, json, "Installer finished", {result("s_finished")});
    addResultRow(replies::remote_installer_sum, json, "Installer check summ finished", {});

    const QByteArray text("\xC3\x84nderung\nzwei");
    const QByteArray withNul("before\0behind", 13);
    const QString changeLog = "Installer change log finished";
    addResultRow(replies::remote_installer_log, text, changeLog,
                 {result("s_fetchInstallerChangeLog", QString::fromUtf8(text)),
                  result("s_fetchInstallerChangeLogData", text)});
    addResultRow(replies::remote_installer_log, withNul, changeLog,
                 {result("s_fetchInstallerChangeLog", "before"),
                  result("s_fetchInstallerChangeLogData", withNul)});
    addResultRow(replies::remote_installer_log, QByteArray(), changeLog,
                 {result("s_fetchInstallerChangeLog", QString("")),
                  result("s_fetchInstallerChangeLogData", QByteArray())});
    addResultRow(replies::raw_get_file, QByteArray(), "Raw file get finished",
                 {result("s_rawGetFileFinished")});
}

void tst_NetworkProcessorReplies::results()
{
    QFETCH(QString, replyType);
    QFETCH(QByteArray, body);
    QFETCH(bool, isPost);
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(QStringList, log);
    QFETCH(Results, expected);
    ScriptedServer server(mode);
    server.on("/path", answers::bytes(body));
    LogCapture capture;
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const ReplyData data = record(replyType, server.url("/path"));

    if (isPost)
        processor.startPost(data, "sent");
    else
        processor.startGet(data);
    QVERIFY(replies.waitUntilGone());

    QCOMPARE(emitted(recorder, data.request.url().toString()), expected);
    QCOMPARE(texts(capture, "<TarvisNet"), log);
    QCOMPARE(texts(capture, "replyFinished"), QStringList{"<NetworkProcessor::replyFinished>"});
    QCOMPARE(texts(capture, QString(), QtWarningMsg), QStringList());
}

void tst_NetworkProcessorReplies::unhandledKinds_data()
{
    QTest::addColumn<QString>("replyType");

    QTest::newRow("rawDelete") << QString(replies::raw_delete);
    QTest::newRow("rawPatch") << QString(replies::raw_patch);
    QTest::newRow("rawPostFile") << QString(replies::raw_post_file);
    QTest::newRow("none") << QString();
    QTest::newRow("other case") << "RawGet";
    QTest::newRow("longer") << "rawGetFile2";
    QTest::newRow("unheard of") << "something";
}

void tst_NetworkProcessorReplies::unhandledKinds()
{
    QFETCH(QString, replyType);
    ScriptedServer server;
    server.onRequest(answers::json({}));
    LogCapture log;
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(record(replyType, server.url()));
    QVERIFY(replies.waitUntilGone());

    QCOMPARE(outcomeNames(recorder), QStringList{"s_errorChanged"});
    QCOMPARE(recorder.last("s_errorChanged"), error(-215, server.url().toString()));
    QCOMPARE(texts(log, "<TarvisNet"), QStringList{handled + "Uknown reply"});
}

void tst_NetworkProcessorReplies::warnsOfBytesWithoutARecord()
{
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const QPointer<FakeReply> reply = follow(processor);
    reply->setStatus(404);
    reply->appendBody("bytes");
    LogCapture log;

    Q_EMIT reply->readyRead();

    QCOMPARE(texts(log, QString(), QtWarningMsg),
             QStringList{"<NetworkProcessor::replyReadyRead> Unrecognized reply"});
    QCOMPARE(texts(log), QStringList());
    QCOMPARE(reply->bytesAvailable(), 5);
    QCOMPARE(recorder.names(), QStringList());
}

void tst_NetworkProcessorReplies::finishesWithoutARecord()
{
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const QPointer<FakeReply> reply = follow(processor, QUrl("http://127.0.0.1/path"));
    LogCapture log;

    reply->finish();

    QCOMPARE(recorder.names(), QStringList{"s_errorChanged"});
    QCOMPARE(recorder.last("s_errorChanged"), error(-215, QString()));
    QCOMPARE(texts(log),
             (QStringList{"<NetworkProcessor::replyFinished>",
                          "<NetworkProcessor::replyFinished> Uknown reply."}));
    QCOMPARE(reply->abortCalls(), 1);
    deleteNow(reply);
    QVERIFY(!reply);
}

// The processor aborts even what has finished, and the reply of a finished request is not kept.
void tst_NetworkProcessorReplies::abortsAndDeletesEveryReply()
{
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const QPointer<FakeReply> reply = follow(processor);

    reply->fail(QNetworkReply::TimeoutError);
    reply->finish();

    QCOMPARE(recorder.of("s_errorChanged"), (Results{error(-203, {}), error(-215, {})}));
    QCOMPARE(reply->abortCalls(), 1);
    deleteNow(reply);
    QVERIFY(!reply);
}

void tst_NetworkProcessorReplies::answerWithoutARecordOverASocket()
{
    ScriptedServer server;
    server.onRequest(answers::json({}));
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    ReplyCatcher replies;
    QNetworkReply *reply = nullptr;

    QVERIFY(QMetaObject::invokeMethod(&processor, "get", Qt::DirectConnection,
                                      Q_RETURN_ARG(QNetworkReply *, reply),
                                      Q_ARG(QNetworkRequest, QNetworkRequest(server.url()))));
    QVERIFY(reply);
    QVERIFY(replies.waitUntilGone());

    QCOMPARE(outcomeNames(recorder), QStringList{"s_errorChanged"});
    QCOMPARE(recorder.last("s_errorChanged"), error(-215, QString()));
    QCOMPARE(texts(log, QString(), QtWarningMsg),
             QStringList{"<NetworkProcessor::replyReadyRead> Unrecognized reply"});
}

QTEST_GUILESS_MAIN(tst_NetworkProcessorReplies)
#include "tst_networkprocessor_replies.moc"
