#include "answers.h"
#include "logcapture.h"
#include "queueaccess.h"
#include "rawoperations.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QTextCodec>
#include <QtTest/QTest>

using namespace queueaccess;

namespace {

const char *const sourceFile = "../../source/appl/tarvisnet";

const QByteArray answer = "{\"got\":2}";

/// Makes the local encoding one that no other conversion of text gives.
class Latin1Locale {
public:
    Latin1Locale() { QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1")); }
    ~Latin1Locale() { QTextCodec::setCodecForLocale(nullptr); }
};

const QString umlaut = QString(QChar(0xFC));

QVariantList error(short code, const QString &url)
{
    return {QVariant::fromValue(code), url, QJsonDocument()};
}

void addOperations(bool (*chosen)(const RawOperation &))
{
    QTest::addColumn<RawOperation>("operation");
    for (const RawOperation &operation : rawoperations::all()) {
        if (chosen(operation))
            QTest::newRow(operation.name) << operation;
    }
}

} // namespace

class tst_TarvisNetRaw : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_log.reset(new LogCapture); }
    void cleanup() { m_log.reset(); }

    void sendsAndDelivers_data();
    void sendsAndDelivers();
    void queuesWholeRecord_data();
    void queuesWholeRecord();
    void answersThatAreNoJson_data();
    void answersThatAreNoJson();

    void parsesTolerantly_data();
    void parsesTolerantly();
    void acceptsRelativeUrl_data();
    void acceptsRelativeUrl();
    void encodesLocally();

    void refuses_data();
    void refuses();
    void refusesDuplicate_data();
    void refusesDuplicate();

private:
    QScopedPointer<LogCapture> m_log;
};

void tst_TarvisNetRaw::sendsAndDelivers_data()
{
    QTest::addColumn<RawOperation>("operation");
    QTest::addColumn<ScriptedServer::Mode>("mode");
    for (const RawOperation &operation : rawoperations::all()) {
        QTest::addRow("%s, HTTP", operation.name) << operation << ScriptedServer::Mode::Http;
        QTest::addRow("%s, HTTPS", operation.name) << operation << ScriptedServer::Mode::Https;
    }
}

void tst_TarvisNetRaw::sendsAndDelivers()
{
    QFETCH(const RawOperation, operation);
    QFETCH(const ScriptedServer::Mode, mode);
    ScriptedServer server(mode);
    server.onRequest(answers::bytes(answer, 200, {{"X-Answer", "yes"}}));
    TarvisNet client;
    SignalRecorder recorder(&client);
    const QString url = server.url("/a/b?c=d").toString();
    operation.call(client, url);
    QVERIFY(recorder.waitFor(operation.result));

    const HttpRequest request = server.requests().value(0);
    QCOMPARE(request.method, QByteArray(operation.verb));
    QCOMPARE(request.target, QByteArray("/a/b?c=d"));
    QCOMPARE(request.header("content-type"), QByteArray(operation.contentType));
    QCOMPARE(request.header("user-agent"), client.getUserAgent().toLocal8Bit());
    QCOMPARE(request.body, operation.hasBody ? rawoperations::body : QByteArray());

    using Pairs = QList<QNetworkReply::RawHeaderPair>;
    QVariantList result = recorder.last(operation.result);
    if (result.size() == 3)
        QVERIFY(result.takeLast().value<Pairs>().contains({"X-Answer", "yes"}));
    const bool isFile = QByteArray(operation.kind).endsWith("File");
    if (result.size() == 2)
        QCOMPARE(result.takeFirst(),
                 isFile ? QVariant(answer) : QVariant(QJsonDocument::fromJson(answer)));
    QCOMPARE(result, QVariantList({url}));
    QCOMPARE(server.requests().size(), 1);
    QCOMPARE(recorder.count("s_errorChanged"), 0);
    QCOMPARE(recorder.count(operation.result), 1);
}

void tst_TarvisNetRaw::queuesWholeRecord_data()
{
    addOperations([](const RawOperation &) { return true; });
}

// A hand-made record that the queue takes for a duplicate is equal in every field.
void tst_TarvisNetRaw::queuesWholeRecord()
{
    QFETCH(const RawOperation, operation);
    const QUrl url("http://127.0.0.1:9/a/b");
    TarvisNet client;
    client.setStopProcess(true);
    operation.call(client, url.toString());

    ReplyData expected;
    expected.replyType = operation.kind;
    expected.request.setHeader(QNetworkRequest::ContentTypeHeader, operation.contentType);
    expected.request.setHeader(QNetworkRequest::UserAgentHeader,
                               client.getUserAgent().toLocal8Bit());
    expected.request.setUrl(url);
    expected.data = operation.hasBody ? rawoperations::body : QByteArray();
    SignalRecorder recorder(&client);
    add(client, expected);
    QCOMPARE(recorder.names(), QStringList("s_errorChanged"));
    QCOMPARE(recorder.last("s_errorChanged"), error(-221, url.toString()));
}

void tst_TarvisNetRaw::answersThatAreNoJson_data()
{
    addOperations([](const RawOperation &operation) {
        return QByteArrayList({"s_rawGet", "s_rawPost", "s_rawPathFinished"})
            .contains(operation.result);
    });
}

void tst_TarvisNetRaw::answersThatAreNoJson()
{
    QFETCH(const RawOperation, operation);
    ScriptedServer server;
    server.onRequest(answers::bytes("no JSON"));
    TarvisNet client;
    SignalRecorder recorder(&client);
    operation.call(client, server.url("/a").toString());
    QVERIFY(recorder.waitFor(operation.result));
    QCOMPARE(recorder.last(operation.result),
             QVariantList({QJsonDocument(), server.url("/a").toString()}));
}

void tst_TarvisNetRaw::parsesTolerantly_data()
{
    addOperations([](const RawOperation &operation) { return operation.takesText; });
}

void tst_TarvisNetRaw::parsesTolerantly()
{
    QFETCH(const RawOperation, operation);
    const QString text = "http://127.0.0.1:9/a b/%zz";
    QVERIFY(!QUrl(text, QUrl::StrictMode).isValid());
    TarvisNet client;
    operation.call(client, text);
    QCOMPARE(running(client).size(), 1);
    QCOMPARE(running(client).first()->request().url(), QUrl(text, QUrl::TolerantMode));
}

void tst_TarvisNetRaw::acceptsRelativeUrl_data()
{
    addOperations([](const RawOperation &) { return true; });
}

void tst_TarvisNetRaw::acceptsRelativeUrl()
{
    QFETCH(const RawOperation, operation);
    TarvisNet client;
    SignalRecorder recorder(&client, {"s_repliesCountChanged", "s_errorChanged"});
    operation.call(client, "some/path");
    QCOMPARE(recorder.names().value(0), "s_repliesCountChanged");
    // Nothing completes the URL, so nobody can send it.
    QVERIFY(recorder.waitFor("s_errorChanged"));
    QCOMPARE(recorder.last("s_errorChanged"), error(-203, "some/path"));
}

void tst_TarvisNetRaw::encodesLocally()
{
    const Latin1Locale locale;
    ScriptedServer server;
    server.onRequest(answers::json({}));
    TarvisNet client;
    client.setVtxName(umlaut);
    SignalRecorder recorder(&client);
    client.rawPost(server.url("/text").toString(), umlaut);
    QVERIFY(recorder.waitFor("s_rawPost"));
    client.rawDelete(server.url("/fixed"), "\xC3");
    QVERIFY(recorder.waitFor("s_rawDeleteFinished"));

    QCOMPARE(server.requests("/text").value(0).body, QByteArray("\xFC"));
    QCOMPARE(server.requests("/fixed").value(0).body, QByteArray("\xC3"));
    for (const HttpRequest &request : server.requests())
        QVERIFY(request.header("user-agent").startsWith("\xFC/0.0.0 "));
}

void tst_TarvisNetRaw::refuses_data()
{
    QTest::addColumn<RawOperation>("operation");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("function");
    const QMap<QByteArray, QPair<QString, QString>> texts = {
        {"rawGet(QUrl)", {"<TarvisNet::rawGet> Invalid url \"\"", ""}},
        {"rawGet(QString)",
         {"<TarvisNet::rawGet> Invalid url \"\"", "<TarvisNet::rawGet> Empty url string"}},
        {"rawPost(QUrl)", {"<TarvisNet::rawPost> Invalid url \"\"", ""}},
        {"rawPost(QString)",
         {"<TarvisNet::rawPost> Invalid url \"\"", "<TarvisNet::rawGet> Empty url string"}},
        {"rawPath(QUrl)", {"<TarvisNet::rawPath> Invalid url \"\"", ""}},
        {"rawDelete(QUrl)", {"<TarvisNet::rawDelete> Invalid or empty url", ""}},
        {"rawGetFile(QUrl)", {"<TarvisNet::rawGetFile> Invalid url: \"\"", ""}},
        {"rawGetFile(QString)",
         {"<TarvisNet::rawGetFile> Invalid url: \"\"", "<TarvisNet::rawGetFile> Empty url string"}},
        {"rawPostFile(QUrl)", {"Invalid url: \"\"", ""}},
        {"rawPostFile(QUrl), no body", {"Invalid url: \"\"", ""}},
        {"rawPostFile(QString)", {"Invalid url: \"\"", "Empty url string"}},
        {"forceRawGet(QUrl)", {"<TarvisNet::forceRawGet> Invalid or empty url", ""}},
        {"forceRawGet(QString)",
         {"<TarvisNet::forceRawGet> Invalid or empty url",
          "<TarvisNet::forceRawGet> Empty url string"}},
    };
    for (const RawOperation &operation : rawoperations::all()) {
        const QByteArray name(operation.name);
        const auto [invalid, empty] = texts.value(name);
        const QByteArray function = "void TarvisNet::" + name.left(name.indexOf('(') + 1);
        QTest::addRow("%s, empty", operation.name)
            << operation << "" << (operation.takesText ? empty : invalid) << function;
        for (const char *url : {"http://[bad/", "http://127.0.0.1:99999/"})
            QTest::addRow("%s, %s", operation.name, url) << operation << url << invalid << function;
    }
}

void tst_TarvisNetRaw::refuses()
{
    QFETCH(const RawOperation, operation);
    QFETCH(const QString, url);
    QFETCH(const QString, text);
    QFETCH(const QByteArray, function);
    QVERIFY(!QUrl(url).isValid());
    TarvisNet client;
    SignalRecorder recorder(&client);
    m_log->clear();
    operation.call(client, url);
    QCOMPARE(recorder.names(), QStringList("s_errorChanged"));
    QCOMPARE(recorder.last("s_errorChanged"), error(-207, QUrl(url).toString()));
    QCOMPARE(m_log->texts(QtWarningMsg), QStringList(text));
    QCOMPARE(m_log->texts().size(), 1);
    QCOMPARE(m_log->originFault(sourceFile), QString());
    QVERIFY2(m_log->entries().first().function.startsWith(function),
             m_log->entries().first().function);

    recorder.clear();
    Q_EMIT client.s_repliesCountChanged();
    QCOMPARE(running(client).size(), 0);
}

void tst_TarvisNetRaw::refusesDuplicate_data()
{
    addOperations([](const RawOperation &) { return true; });
}

void tst_TarvisNetRaw::refusesDuplicate()
{
    QFETCH(const RawOperation, operation);
    const bool isForced = QByteArray(operation.name).startsWith("force");
    ScriptedServer server;
    TarvisNet client;
    client.setParallelRequestsCount(1);
    client.rawGet(server.url("/active"));
    SignalRecorder recorder(&client, {"s_errorChanged", "s_repliesCountChanged"});
    operation.call(client, server.url("/same").toString());
    operation.call(client, server.url("/same").toString());
    QCOMPARE(recorder.names(),
             QStringList(
                 {"s_repliesCountChanged", isForced ? "s_repliesCountChanged" : "s_errorChanged"}));
    if (!isForced)
        QCOMPARE(recorder.last("s_errorChanged"), error(-221, server.url("/same").toString()));
}

QTEST_GUILESS_MAIN(tst_TarvisNetRaw)

#include "tst_tarvisnet_raw.moc"
