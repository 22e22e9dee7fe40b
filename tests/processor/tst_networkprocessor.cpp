#include "onqt6.h"
#include "processorbench.h"
#include "testclass.h"

#include <QtCore/QJsonArray>
#include <QtCore/QMetaMethod>
#include <QtCore/QScopedPointer>
#include <QtCore/QSet>
#include <QtTest/QTest>

#include <thread>

namespace tst_networkprocessor {

using namespace processorbench;

/// Requests, the connections of their replies, TLS errors, and where messages come from.
class tst_NetworkProcessor : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void logsItsLife();
    void belongsToItsParent();
    void sends_data();
    void sends();
    void answersEachRequestByItself();
    void appendsToTheDataOfTheRecord();
    void tellsTheUrlAsText();
    void connectsInOrder();
    void connectsDirectly();
    void listensToOneErrorSignal();
    void reportsAnEmptyListOfTlsErrors();
    void logsEveryTlsError();
    void logsWhereItIs_data();
    void logsWhereItIs();
};

namespace {

// Notes what is connected.
class WatchedReply : public FakeReply {
public:
    QList<QByteArray> connected;

protected:
    void connectNotify(const QMetaMethod &method) override { connected.append(method.name()); }
};

// Qt 6 has no other.
const char *const errorSignal = onQt6 ? "errorOccurred" : "error";

void emitErrorSignal(FakeReply *reply, QNetworkReply::NetworkError code)
{
    QMetaObject::invokeMethod(reply, errorSignal, Qt::DirectConnection,
                              Q_ARG(QNetworkReply::NetworkError, code));
}

void emitAll(FakeReply *reply)
{
    Q_EMIT reply->sslErrors({});
    Q_EMIT reply->readyRead();
    Q_EMIT reply->downloadProgress(1, 2);
    Q_EMIT reply->uploadProgress(1, 2);
    emitErrorSignal(reply, QNetworkReply::UnknownServerError);
    reply->finish();
}

} // namespace

void tst_NetworkProcessor::logsItsLife()
{
    LogCapture log;
    {
        const NetworkProcessor processor;
        QCOMPARE(log.texts(), QStringList{"NetworkProcessor ctor"});
    }

    QCOMPARE(log.texts(QtDebugMsg),
             (QStringList{"NetworkProcessor ctor", "NetworkProcessor dtor"}));
}

void tst_NetworkProcessor::belongsToItsParent()
{
    LogCapture log;
    QScopedPointer<QObject> parent(new QObject);
    const QPointer<NetworkProcessor> processor = new NetworkProcessor(parent.data());
    QCOMPARE(processor->parent(), parent.data());

    parent.reset();

    QVERIFY(!processor);
}

void tst_NetworkProcessor::sends_data()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<bool>("isPost");
    QTest::addColumn<QByteArray>("body");

    for (const auto mode : {ScriptedServer::Mode::Http, ScriptedServer::Mode::Https}) {
        const char *name = mode == ScriptedServer::Mode::Http ? "http" : "https";
        QTest::addRow("GET %s", name) << mode << false << QByteArray();
        QTest::addRow("POST %s", name) << mode << true << QByteArray("a\0b", 3);
        QTest::addRow("POST without a body %s", name) << mode << true << QByteArray();
    }
}

void tst_NetworkProcessor::sends()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(bool, isPost);
    QFETCH(QByteArray, body);
    ProcessorBench bench(mode);
    bench.server.on("/path", answers::json({{"answer", 42}}));
    const QString target = "/path?a=1&b=%20";
    ReplyData data = record(replies::raw_get, bench.server.url(target));
    data.request.setRawHeader("X-Own", "own value");
    data.request.setHeader(QNetworkRequest::ContentTypeHeader, QString(mime::json));

    QVERIFY(bench.run(data, isPost, body));

    const HttpRequest request = bench.server.requests().value(0);
    QCOMPARE(request.method, QByteArray(isPost ? "POST" : "GET"));
    QCOMPARE(request.target, target.toLatin1());
    QCOMPARE(request.header("x-own"), QByteArray("own value"));
    QCOMPARE(request.header("content-type"), QByteArray("application/json"));
    QCOMPARE(request.body, body);
    const QJsonDocument answer(QJsonObject{{"answer", 42}});
    QCOMPARE(bench.outcomes(), Emissions{emission("s_rawGet", answer, bench.url(target))});
    QCOMPARE(bench.warnings(), QStringList());
}

// Neither a queue nor a limit of parallel requests: more than Qt sends to one host at a time.
void tst_NetworkProcessor::answersEachRequestByItself()
{
    ProcessorBench bench;
    bench.server.onRequest([](const HttpRequest &request, HttpResponse &response) {
        response.send(200, {}, R"({"target":")" + request.target + R"("})");
    });
    constexpr int count = 30;

    for (int number = 0; number < count; ++number)
        bench.start(record(replies::raw_get, bench.server.url(QString("/%1").arg(number))));
    QVERIFY(bench.recorder.waitFor("s_rawGet", count));

    QSet<QString> urls;
    for (const QVariantList &args : bench.recorder.of("s_rawGet")) {
        const QUrl url(args.at(1).toString());
        QCOMPARE(args.at(0).toJsonDocument().object().value("target").toString(), url.path());
        urls.insert(url.toString());
    }
    QCOMPARE(urls.size(), count);
    QCOMPARE(bench.outcomes().size(), count);
}

void tst_NetworkProcessor::appendsToTheDataOfTheRecord()
{
    ProcessorBench bench;
    bench.server.on("/", answers::bytes("2]"));
    ReplyData data = record(replies::raw_post, bench.server.url());
    data.data = "[1,";

    QVERIFY(bench.run(data, true));

    QCOMPARE(bench.server.requests().value(0).body, QByteArray("body"));
    const QJsonDocument joined(QJsonArray{1, 2});
    QCOMPARE(bench.outcomes(), Emissions{emission("s_rawPost", joined, bench.url())});
}

void tst_NetworkProcessor::tellsTheUrlAsText()
{
    ProcessorBench bench;
    bench.server.onRequest(answers::json({}));

    QVERIFY(bench.run(record(replies::raw_get, bench.server.url("/a%20b?q=%C3%BC#part"))));

    QCOMPARE(bench.recorder.last("s_rawGet").at(1).toString(),
             bench.url("/") + QString::fromUtf8("a b?q=\xC3\xBC#part"));
}

void tst_NetworkProcessor::connectsInOrder()
{
    ProcessorBench bench;
    WatchedReply reply;
    reply.connected.clear();

    bench.call("createReplyConnections", Q_ARG(QNetworkReply *, &reply));

    const QList<QByteArray> expected{"finished",  "readyRead",        "sslErrors",
                                     errorSignal, "downloadProgress", "uploadProgress"};
    QCOMPARE(reply.connected, expected);
}

// A queued connection would wait for the event loop of the processor's own thread. In another
// thread a slot does not know its sender, so that the reply's bytes are nobody's.
void tst_NetworkProcessor::connectsDirectly()
{
    ProcessorBench bench;
    const QPointer<FakeReply> reply = bench.follow();

    std::thread([&reply] { emitAll(reply); }).join();
    const QStringList expected{
        "<NetworkProcessor::replySslErrors> Uknown error.",
        "DownloadProgress   received:  1  total:  2  loaded:  1  full:  0  complete:  inf  % ",
        "UploadProgress   received:  1  total:  2  complete:  0  % ",
        "<NetworkProcessor::replyError> Network error: \n"
        "  code:  QNetworkReply::UnknownServerError \n",
        "<NetworkProcessor::replyFinished>",
        "<NetworkProcessor::replyFinished> Uknown reply."};
    QCOMPARE(bench.log.texts(), expected);

    QCoreApplication::sendPostedEvents(bench.processor, QEvent::MetaCall);
    QCOMPARE(bench.log.texts(), expected);
}

void tst_NetworkProcessor::listensToOneErrorSignal()
{
    ProcessorBench bench;
    const QPointer<FakeReply> reply = bench.follow();

    emitErrorSignal(reply, QNetworkReply::ContentNotFoundError);
    QCOMPARE(bench.recorder.names(), QStringList{"s_errorChanged"});

    // Qt 5 emits both signals then, and only one of them counts.
    reply->fail(QNetworkReply::ContentNotFoundError);
    QCOMPARE(bench.recorder.names(), (QStringList{"s_errorChanged", "s_errorChanged"}));
}

void tst_NetworkProcessor::reportsAnEmptyListOfTlsErrors()
{
    ProcessorBench bench;
    const QPointer<FakeReply> reply = bench.follow(QUrl("https://127.0.0.1/path"));

    Q_EMIT reply->sslErrors({});

    QCOMPARE(bench.outcomes(), Emissions{failure(-201, QString())});
    QCOMPARE(bench.texts(), QStringList{"<NetworkProcessor::replySslErrors> Uknown error."});
    QCOMPARE(reply->ignoreSslErrorsCalls(), 0);
}

void tst_NetworkProcessor::logsEveryTlsError()
{
    ProcessorBench bench;
    const QPointer<FakeReply> reply = bench.follow();
    const QSslError first(QSslError::CertificateExpired);
    const QSslError second(QSslError::HostNameMismatch);

    Q_EMIT reply->sslErrors({first, second});

    const QString text = "<NetworkProcessor::replySslErrors> \n  text:  \"%1\"";
    QCOMPARE(bench.texts(),
             (QStringList{text.arg(first.errorString()), text.arg(second.errorString())}));
    QCOMPARE(reply->ignoreSslErrorsCalls(), 1);
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_NetworkProcessor::logsWhereItIs_data()
{
    QTest::addColumn<QString>("part");
    QTest::addColumn<QByteArray>("function");

    QTest::newRow("ctor") << "ctor" << QByteArray("NetworkProcessor::NetworkProcessor(QObject*)");
    QTest::newRow("dtor") << "dtor" << QByteArray("virtualNetworkProcessor::~NetworkProcessor()");
    const QByteArray slot("voidNetworkProcessor::");
    QTest::newRow("finished") << "replyFinished>" << slot + "replyFinished()";
    QTest::newRow("ready") << "Unrecognized" << slot + "replyReadyRead()";
    QTest::newRow("error") << "replyError>" << slot + "replyError(QNetworkReply::NetworkError)";
    QTest::newRow("tls") << "replySslErrors>" << slot + "replySslErrors(QList<QSslError>)";
    QTest::newRow("download") << "DownloadProgress "
                              << slot + "replyDownloadProgress(qlonglong,qlonglong)";
    QTest::newRow("upload") << "UploadProgress "
                            << slot + "replyUploadProgress(qlonglong,qlonglong)";
    QTest::newRow("header") << "Accept-Ranges" << slot + "debugHeader(QNetworkReply*)";
    QTest::newRow("result") << "Raw get" << slot + "handleReply(QNetworkReply*)";
    QTest::newRow("redirect") << "redirect send"
                              << QByteArray("boolNetworkProcessor::redirectReply(QNetworkReply*)");
}

void tst_NetworkProcessor::logsWhereItIs()
{
    QFETCH(QString, part);
    QFETCH(QByteArray, function);
    LogCapture log;
    ScriptedServer server;
    server.on("/first", answers::redirect(302, server.url("/second").toEncoded()));
    server.on("/second", answers::json({}));
    {
        NetworkProcessor processor;
        SignalRecorder recorder(&processor);
        auto *reply = new FakeReply(QUrl(), &processor);
        for (const char *slot : {"createReplyConnections", "debugHeader"})
            QMetaObject::invokeMethod(&processor, slot, Q_ARG(QNetworkReply *, reply));
        emitAll(reply);
        processor.startGet(record(replies::raw_get, server.url("/first")));
        QVERIFY(recorder.waitFor("s_rawGet"));
    }

    QCOMPARE(log.originFault(sourceFile), QString());
    int found = 0;
    for (const LogEntry &entry : log.from(sourceFile)) {
        if (!entry.text.contains(part))
            continue;
        QCOMPARE(QByteArray(entry.function).replace(' ', ""), function);
        ++found;
    }
    QVERIFY(found > 0);
}

const TestClass<tst_NetworkProcessor> testClass("tst_networkprocessor");

} // namespace tst_networkprocessor

#include "tst_networkprocessor.moc"
