#include "processorbench.h"
#include "testclass.h"

#include <QtCore/QJsonObject>
#include <QtCore/QMetaEnum>
#include <QtTest/QTest>

#include <functional>

Q_DECLARE_METATYPE(std::function<void(ProcessorBench &)>)

namespace tst_networkprocessor_replies {

using namespace processorbench;

using Action = std::function<void(ProcessorBench &)>;

/// What each kind of request ends with, and what each error does.
class tst_NetworkProcessorReplies : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void results_data();
    void results();
    void unhandledKinds_data();
    void unhandledKinds();
    void warnsOfBytesWithoutARecord();
    void finishesWithoutARecord();
    void answerWithoutARecordOverASocket();
    void errorCodes_data();
    void errorCodes();
    void unknownScheme();
    void canceledReply();
    void abortsAndDeletesEveryReply();
    void readsNothingAfterAnError();
    void logsBeforeItEmits_data();
    void logsBeforeItEmits();
};

namespace {

const QString handled = "<TarvisNet::handleReply> ";

/// A request of the kind \a replyType that is answered.
Action answered(const QString &replyType, const QString &file = QStringLiteral("file"))
{
    return [replyType, file](ProcessorBench &bench) {
        bench.server.onRequest(answers::bytes("body"));
        QVERIFY(bench.run(fileRecord(replyType, bench.server.url(), bench.path(file), 4)));
    };
}

QString errorText(const QString &name)
{
    return "<NetworkProcessor::replyError> Network error: \n  code:  " + name + " \n";
}

// The URL follows in every emission.
void addResultRow(const QString &replyType, const QByteArray &body, const QString &text,
                  const Emissions &expected)
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

} // namespace

void tst_NetworkProcessorReplies::results_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("isPost");
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<Emissions>("expected");

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
        addResultRow(kind.replyType, json, kind.text, {emission(kind.signal, document)});
        addResultRow(kind.replyType, notJson, kind.text, {emission(kind.signal, null)});
        addResultRow(kind.replyType, QByteArray(), kind.text, {emission(kind.signal, null)});
    }

    addResultRow(replies::redirect_reply, json, "Redirect finished", {});
    addResultRow(replies::remote_binary, json, "Binary finished", {emission("s_finished")});
    addResultRow(replies::remote_installer, json, "Installer finished", {emission("s_finished")});
    addResultRow(replies::remote_installer_sum, json, "Installer check summ finished", {});

    const QByteArray text("\xC3\x84nderung\nzwei");
    const QByteArray withNul("before\0behind", 13);
    const auto addChangeLog = [](const QByteArray &body, const QString &asText) {
        addResultRow(replies::remote_installer_log, body, "Installer change log finished",
                     {emission("s_fetchInstallerChangeLog", asText),
                      emission("s_fetchInstallerChangeLogData", body)});
    };
    addChangeLog(text, QString::fromUtf8(text));
    addChangeLog(withNul, "before");
    addChangeLog(QByteArray(), "");
    addResultRow(replies::raw_get_file, QByteArray(), "Raw file get finished",
                 {emission("s_rawGetFileFinished")});
}

void tst_NetworkProcessorReplies::results()
{
    QFETCH(QString, replyType);
    QFETCH(QByteArray, body);
    QFETCH(bool, isPost);
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(QStringList, log);
    QFETCH(Emissions, expected);
    ProcessorBench bench(mode);
    bench.server.on("/path", answers::bytes(body));

    QVERIFY(bench.run(record(replyType, bench.server.url("/path")), isPost));

    for (QVariantList &call : expected)
        call.append(bench.url("/path"));
    QCOMPARE(bench.outcomes(), expected);
    QCOMPARE(bench.texts("<TarvisNet"), log);
    QCOMPARE(bench.texts("replyFinished"), QStringList{"<NetworkProcessor::replyFinished>"});
    QCOMPARE(bench.warnings(), QStringList());
}

void tst_NetworkProcessorReplies::unhandledKinds_data()
{
    QTest::addColumn<QString>("replyType");

    for (const char *kind : {"rawDelete", "rawPatch", "rawPostFile", "", "RawGet", "rawGetFile2"})
        QTest::newRow(kind) << QString(kind);
}

void tst_NetworkProcessorReplies::unhandledKinds()
{
    QFETCH(QString, replyType);
    ProcessorBench bench;
    bench.server.onRequest(answers::json({}));

    QVERIFY(bench.run(record(replyType, bench.server.url())));

    QCOMPARE(bench.outcomes(), Emissions{failure(-215, bench.url())});
    QCOMPARE(bench.texts("<TarvisNet"), QStringList{handled + "Uknown reply"});
}

void tst_NetworkProcessorReplies::warnsOfBytesWithoutARecord()
{
    ProcessorBench bench;
    const QPointer<FakeReply> reply = bench.follow();
    reply->setStatus(404);
    reply->appendBody("bytes");

    Q_EMIT reply->readyRead();

    QCOMPARE(bench.warnings(),
             QStringList{"<NetworkProcessor::replyReadyRead> Unrecognized reply"});
    QCOMPARE(bench.texts(), QStringList());
    QCOMPARE(reply->bytesAvailable(), 5);
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_NetworkProcessorReplies::finishesWithoutARecord()
{
    ProcessorBench bench;
    const QPointer<FakeReply> reply = bench.follow(QUrl("http://127.0.0.1/path"));

    reply->finish();

    QCOMPARE(bench.outcomes(), Emissions{failure(-215, QString())});
    QCOMPARE(bench.texts(),
             (QStringList{"<NetworkProcessor::replyFinished>",
                          "<NetworkProcessor::replyFinished> Uknown reply."}));
    QCOMPARE(reply->abortCalls(), 1);
}

void tst_NetworkProcessorReplies::answerWithoutARecordOverASocket()
{
    ProcessorBench bench;
    bench.server.onRequest(answers::json({}));
    QNetworkReply *reply = nullptr;

    bench.call("get", Q_RETURN_ARG(QNetworkReply *, reply),
               Q_ARG(QNetworkRequest, QNetworkRequest(bench.server.url())));
    QVERIFY(reply);
    QVERIFY(bench.replies.waitUntilGone());

    QCOMPARE(bench.outcomes(), Emissions{failure(-215, QString())});
    QCOMPARE(bench.warnings(),
             QStringList{"<NetworkProcessor::replyReadyRead> Unrecognized reply"});
}

void tst_NetworkProcessorReplies::errorCodes_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("name");
    QTest::addColumn<Emissions>("expected");

    const QString url = "http://127.0.0.1/some path";
    const QMap<int, Emissions> special{
        {5, {}}, {99, {failure(-216, url)}}, {203, {failure(-217, url)}}};
    const Emissions other{failure(-203, url)};
    const auto errors = QMetaEnum::fromType<QNetworkReply::NetworkError>();
    for (int index = 0; index < errors.keyCount(); ++index) {
        const int code = errors.value(index);
        QTest::newRow(errors.key(index))
            << code << QString("QNetworkReply::") + errors.key(index) << special.value(code, other);
    }
    QTest::newRow("no enumerator") << 500 << "QNetworkReply::NetworkError(500)" << other;
}

void tst_NetworkProcessorReplies::errorCodes()
{
    QFETCH(int, code);
    QFETCH(QString, name);
    QFETCH(Emissions, expected);
    ProcessorBench bench;
    const QPointer<FakeReply> reply = bench.follow(QUrl("http://127.0.0.1/some path"));

    reply->fail(QNetworkReply::NetworkError(code));

    QCOMPARE(bench.outcomes(), expected);
    QCOMPARE(bench.recorder.calls().size(), expected.size());
    QCOMPARE(bench.texts(), QStringList{errorText(name)});
}

void tst_NetworkProcessorReplies::unknownScheme()
{
    ProcessorBench bench;
    const QString url = "gopher://127.0.0.1/path";

    QVERIFY(bench.run(record(replies::raw_post, QUrl(url)), true));

    QCOMPARE(bench.outcomes(), Emissions{failure(-203, url)});
    QCOMPARE(bench.texts("replyError"),
             QStringList{errorText("QNetworkReply::ProtocolUnknownError")});
}

void tst_NetworkProcessorReplies::canceledReply()
{
    ProcessorBench bench;
    bench.server.onRequest(answers::withhold());
    bench.start(record(replies::raw_get, bench.server.url()));
    QVERIFY(bench.server.waitForRequests(1));

    bench.replies.at()->abort();
    QVERIFY(bench.replies.waitUntilGone());

    QCOMPARE(bench.outcomes(), Emissions());
    QCOMPARE(bench.texts("replyError"),
             QStringList{errorText("QNetworkReply::OperationCanceledError")});
    QCOMPARE(bench.texts("replyFinished"), QStringList{"<NetworkProcessor::replyFinished>"});
}

// The processor aborts even what has finished, and the reply of a finished request is not kept.
void tst_NetworkProcessorReplies::abortsAndDeletesEveryReply()
{
    ProcessorBench bench;
    const QPointer<FakeReply> reply = bench.follow();

    reply->fail(QNetworkReply::TimeoutError);
    reply->finish();

    QCOMPARE(bench.outcomes(), (Emissions{failure(-203, QString()), failure(-215, QString())}));
    QCOMPARE(reply->abortCalls(), 1);
    QCoreApplication::sendPostedEvents(reply, QEvent::DeferredDelete);
    QVERIFY(!reply);
}

void tst_NetworkProcessorReplies::readsNothingAfterAnError()
{
    ProcessorBench bench;
    const QPointer<FakeReply> reply = bench.follow();
    reply->fail(QNetworkReply::InternalServerError, "broken by the test");
    reply->appendBody("bytes");
    bench.log.clear();

    Q_EMIT reply->readyRead();
    Q_EMIT reply->readyRead();

    const QString text = "<NetworkProcessor::replyReadyRead> some error:  \"broken by the test\"";
    QCOMPARE(bench.texts(), (QStringList{text, text}));
    QCOMPARE(reply->bytesAvailable(), 5);
}

void tst_NetworkProcessorReplies::logsBeforeItEmits_data()
{
    QTest::addColumn<Action>("act");
    QTest::addColumn<QString>("message");
    const auto row = [](const char *name, const QString &message, const Action &act) {
        QTest::newRow(name) << act << message;
    };
    row("file not opened", "<NetworkProcessor::saveBinary> Error opening file to write.",
        answered(replies::remote_binary, "."));
    row("unknown kind", handled + "Uknown reply", answered("neverHeardOf"));
    row("raw file", handled + "Raw file get finished", answered(replies::raw_get_file));
    row("unknown reply", "<NetworkProcessor::replyFinished> Uknown reply.",
        [](const ProcessorBench &bench) { bench.follow()->finish(); });
    row("network error", errorText("QNetworkReply::TimeoutError"),
        [](const ProcessorBench &bench) { bench.follow()->fail(QNetworkReply::TimeoutError); });
    row("no TLS errors", "<NetworkProcessor::replySslErrors> Uknown error.",
        [](const ProcessorBench &bench) { Q_EMIT bench.follow()->sslErrors({}); });
}

// Whoever reads the log from a receiver finds there what has happened, as its latest line.
void tst_NetworkProcessorReplies::logsBeforeItEmits()
{
    QFETCH(const Action, act);
    QFETCH(const QString, message);

    ProcessorBench bench;
    QStringList lastMessages;
    const auto note = [&] {
        lastMessages.append(bench.log.texts().value(bench.log.texts().size() - 1));
    };
    connect(bench.processor, &NetworkProcessor::s_errorChanged, this, note);
    connect(bench.processor, &NetworkProcessor::s_rawGetFileFinished, this, note);
    act(bench);
    QCOMPARE(lastMessages.value(0), message);
}

const TestClass<tst_NetworkProcessorReplies> testClass("tst_networkprocessor_replies");

} // namespace tst_networkprocessor_replies

#include "tst_networkprocessor_replies.moc"
