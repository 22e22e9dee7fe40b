#include "answers.h"
#include "processorbench.h"

#include <QtCore/QJsonArray>
#include <QtCore/QMetaMethod>
#include <QtCore/QScopedPointer>
#include <QtCore/QSet>
#include <QtTest/QTest>

#include <thread>

using namespace processorbench;

Q_DECLARE_METATYPE(ScriptedServer::Certificate)
Q_DECLARE_METATYPE(QSslError::SslError)

class tst_NetworkProcessor : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_quiet.reset(new LogCapture); }
    void cleanupTestCase() { m_quiet.reset(); }
    void logsItsLife();
    void belongsToItsParent();
    void sends_data();
    void sends();
    void answersEachRequestByItself();
    void appendsToTheDataOfTheRecord();
    void tellsTheUrlAsText();
    void connectsInOrder();
    void connectsDirectly_data();
    void connectsDirectly();
    void leavesNothingToTheEventLoop();
    void listensToTheDeprecatedErrorSignal();
    void acceptsTlsErrors_data();
    void acceptsTlsErrors();
    void reportsAnEmptyListOfTlsErrors();
    void logsEveryTlsError();
    void logsWhereItIs_data();
    void logsWhereItIs();

private:
    QScopedPointer<LogCapture> m_quiet;
};

namespace {

// Notes what is connected.
class WatchedReply : public FakeReply {
public:
    QList<QByteArray> connected;

protected:
    void connectNotify(const QMetaMethod &method) override { connected.append(method.name()); }
};

void emitDeprecatedError(FakeReply *reply, QNetworkReply::NetworkError code)
{
    QMetaObject::invokeMethod(reply, "error", Qt::DirectConnection,
                              Q_ARG(QNetworkReply::NetworkError, code));
}

void emitAll(FakeReply *reply)
{
    Q_EMIT reply->sslErrors({});
    Q_EMIT reply->readyRead();
    Q_EMIT reply->downloadProgress(1, 2);
    Q_EMIT reply->uploadProgress(1, 2);
    emitDeprecatedError(reply, QNetworkReply::UnknownServerError);
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

    QCOMPARE(texts(log), (QStringList{"NetworkProcessor ctor", "NetworkProcessor dtor"}));
}

void tst_NetworkProcessor::belongsToItsParent()
{
    QScopedPointer<QObject> parent(new QObject);
    const QPointer<NetworkProcessor> processor = new NetworkProcessor(parent.data());
    QCOMPARE(processor->parent(), parent.data());

    LogCapture log;
    parent.reset();

    QVERIFY(!processor);
    QCOMPARE(texts(log), QStringList{"NetworkProcessor dtor"});
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
    ScriptedServer server(mode);
    server.on("/path", answers::json({{"answer", 42}}));
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    ReplyData data = record(replies::raw_get, server.url("/path?a=1&b=%20"));
    data.request.setRawHeader("X-Own", "own value");
    data.request.setHeader(QNetworkRequest::ContentTypeHeader, QString(mime::json));

    if (isPost)
        processor.startPost(data, body);
    else
        processor.startGet(data);
    QVERIFY(recorder.waitFor("s_rawGet"));

    const HttpRequest request = server.requests().value(0);
    QCOMPARE(request.method, QByteArray(isPost ? "POST" : "GET"));
    QCOMPARE(request.target, QByteArray("/path?a=1&b=%20"));
    QCOMPARE(request.header("x-own"), QByteArray("own value"));
    QCOMPARE(request.header("content-type"), QByteArray("application/json"));
    QCOMPARE(request.body, body);
    QCOMPARE(outcomeNames(recorder), QStringList{"s_rawGet"});
    const QJsonObject expected{{"answer", 42}};
    QCOMPARE(recorder.last("s_rawGet").at(0).toJsonDocument(), QJsonDocument(expected));
    QCOMPARE(texts(log, QString(), QtWarningMsg), QStringList());
}

// Neither a queue nor a limit of parallel requests: more than Qt sends to one host at a time.
void tst_NetworkProcessor::answersEachRequestByItself()
{
    ScriptedServer server;
    server.onRequest([](const HttpRequest &request, HttpResponse &response) {
        response.send(200, {}, R"({"target":")" + request.target + R"("})");
    });
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    constexpr int count = 30;

    for (int number = 0; number < count; ++number)
        processor.startGet(record(replies::raw_get, server.url(QString("/%1").arg(number))));
    QVERIFY(recorder.waitFor("s_rawGet", count));

    QSet<QString> urls;
    for (const QVariantList &args : recorder.of("s_rawGet")) {
        const QUrl url(args.at(1).toString());
        QCOMPARE(args.at(0).toJsonDocument().object().value("target").toString(), url.path());
        urls.insert(url.toString());
    }
    QCOMPARE(urls.size(), count);
    QCOMPARE(outcomes(recorder).size(), count);
}

void tst_NetworkProcessor::appendsToTheDataOfTheRecord()
{
    ScriptedServer server;
    server.on("/list", answers::bytes("2]"));
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    ReplyData data = record(replies::raw_post, server.url("/list"));
    data.data = "[1,";

    processor.startPost(data, "body");
    QVERIFY(recorder.waitFor("s_rawPost"));

    QCOMPARE(server.requests().value(0).body, QByteArray("body"));
    const QJsonDocument joined(QJsonArray{1, 2});
    QCOMPARE(recorder.last("s_rawPost").at(0).toJsonDocument(), joined);
}

void tst_NetworkProcessor::tellsTheUrlAsText()
{
    ScriptedServer server;
    server.onRequest(answers::json({}));
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(record(replies::raw_get, server.url("/a%20b?q=%C3%BC#part")));
    QVERIFY(recorder.waitFor("s_rawGet"));

    const QString root = server.url("/").toString();
    QCOMPARE(recorder.last("s_rawGet").at(1).toString(),
             root + QString::fromUtf8("a b?q=\xC3\xBC#part"));
}

void tst_NetworkProcessor::connectsInOrder()
{
    NetworkProcessor processor;
    WatchedReply reply;
    reply.connected.clear();

    QVERIFY(QMetaObject::invokeMethod(&processor, "createReplyConnections", Qt::DirectConnection,
                                      Q_ARG(QNetworkReply *, &reply)));

    const QList<QByteArray> expected{"finished", "readyRead",        "sslErrors",
                                     "error",    "downloadProgress", "uploadProgress"};
    QCOMPARE(reply.connected, expected);
}

void tst_NetworkProcessor::connectsDirectly_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("finished") << "<NetworkProcessor::replyFinished>";
    QTest::newRow("sslErrors") << "<NetworkProcessor::replySslErrors> Uknown error.";
    QTest::newRow("error") << "<NetworkProcessor::replyError> Network error: \n"
                              "  code:  QNetworkReply::UnknownServerError \n";
    QTest::newRow("downloadProgress") << "DownloadProgress   received:  1  total:  2"
                                         "  loaded:  1  full:  0  complete:  inf  % ";
    QTest::newRow("uploadProgress") << "UploadProgress   received:  1  total:  2"
                                       "  complete:  0  % ";
}

// A queued connection would wait for the event loop of the processor's own thread.
void tst_NetworkProcessor::connectsDirectly()
{
    QFETCH(QString, text);
    NetworkProcessor processor;
    const QPointer<FakeReply> reply = follow(processor);
    LogCapture log;

    std::thread([&reply] { emitAll(reply); }).join();

    QCOMPARE(log.texts().count(text), 1);
}

void tst_NetworkProcessor::leavesNothingToTheEventLoop()
{
    NetworkProcessor processor;
    const QPointer<FakeReply> reply = follow(processor);
    LogCapture log;

    std::thread([&reply] { emitAll(reply); }).join();
    const QStringList before = log.texts();
    QCoreApplication::sendPostedEvents(&processor, QEvent::MetaCall);

    QCOMPARE(log.texts(), before);
}

void tst_NetworkProcessor::listensToTheDeprecatedErrorSignal()
{
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const QPointer<FakeReply> reply = follow(processor);

    emitDeprecatedError(reply, QNetworkReply::ContentNotFoundError);
    QCOMPARE(recorder.names(), QStringList{"s_errorChanged"});

    // Qt emits both signals then, and only one of them counts.
    reply->fail(QNetworkReply::ContentNotFoundError);
    QCOMPARE(recorder.names(), (QStringList{"s_errorChanged", "s_errorChanged"}));
}

void tst_NetworkProcessor::acceptsTlsErrors_data()
{
    QTest::addColumn<ScriptedServer::Certificate>("certificate");
    QTest::addColumn<QList<QSslError::SslError>>("errors");

    QTest::newRow("self-signed") << ScriptedServer::Certificate::Good
                                 << QList<QSslError::SslError>{QSslError::SelfSignedCertificate};
    QTest::newRow("wrong name") << ScriptedServer::Certificate::WrongName
                                << QList<QSslError::SslError>{QSslError::HostNameMismatch,
                                                              QSslError::SelfSignedCertificate};
}

void tst_NetworkProcessor::acceptsTlsErrors()
{
    QFETCH(ScriptedServer::Certificate, certificate);
    QFETCH(QList<QSslError::SslError>, errors);
    ScriptedServer server(ScriptedServer::Mode::Https);
    server.setCertificate(certificate);
    server.onRequest(answers::json({{"a", 1}}));
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(record(replies::raw_get, server.url()));
    QVERIFY(recorder.waitFor("s_rawGet"));

    QStringList expected;
    for (const QSslError::SslError error : errors)
        expected.append("<NetworkProcessor::replySslErrors> \n  text:  \""
                        + QSslError(error).errorString() + '"');
    QCOMPARE(texts(log, "replySslErrors"), expected);
    QCOMPARE(outcomeNames(recorder), QStringList{"s_rawGet"});
}

void tst_NetworkProcessor::reportsAnEmptyListOfTlsErrors()
{
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const QPointer<FakeReply> reply = follow(processor, QUrl("https://127.0.0.1/path"));
    log.clear();

    Q_EMIT reply->sslErrors({});

    QCOMPARE(recorder.names(), QStringList{"s_errorChanged"});
    QCOMPARE(recorder.last("s_errorChanged"), error(-201, QString()));
    QCOMPARE(texts(log), QStringList{"<NetworkProcessor::replySslErrors> Uknown error."});
    QCOMPARE(reply->ignoreSslErrorsCalls(), 0);
}

void tst_NetworkProcessor::logsEveryTlsError()
{
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const QPointer<FakeReply> reply = follow(processor);
    log.clear();
    const QSslError first(QSslError::CertificateExpired);
    const QSslError second(QSslError::HostNameMismatch);

    Q_EMIT reply->sslErrors({first, second});

    const QString text = "<NetworkProcessor::replySslErrors> \n  text:  \"%1\"";
    QCOMPARE(texts(log),
             (QStringList{text.arg(first.errorString()), text.arg(second.errorString())}));
    QCOMPARE(reply->ignoreSslErrorsCalls(), 1);
    QCOMPARE(recorder.names(), QStringList());
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
    ScriptedServer server;
    server.on("/first", answers::redirect(302, server.url("/second").toEncoded()));
    server.on("/second", answers::json({}));
    LogCapture log;
    {
        NetworkProcessor processor;
        SignalRecorder recorder(&processor);
        QMetaObject::invokeMethod(&processor, "debugHeader", Qt::DirectConnection,
                                  Q_ARG(QNetworkReply *, follow(processor)));
        emitAll(follow(processor));
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

QTEST_GUILESS_MAIN(tst_NetworkProcessor)
#include "tst_networkprocessor.moc"
