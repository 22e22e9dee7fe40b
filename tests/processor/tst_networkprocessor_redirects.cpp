#include "answers.h"
#include "files.h"
#include "processorbench.h"

#include <QtCore/QJsonArray>
#include <QtCore/QScopedPointer>
#include <QtCore/QTemporaryDir>
#include <QtNetwork/QSslConfiguration>
#include <QtTest/QTest>

using namespace processorbench;

class tst_NetworkProcessorRedirects : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_quiet.reset(new LogCapture); }
    void cleanupTestCase() { m_quiet.reset(); }
    void follows_data();
    void follows();
    void logsTheRedirect();
    void joinsTheBodiesOfAChain();
    void reportsFailuresUnderTheNewUrl();
    void takesTheTargetAsItIs_data();
    void takesTheTargetAsItIs();
    void leavesTheTlsConfigurationBehind();
    void downloadsFromTheTarget();
    void followsWithoutARecord();
    void tellsWhetherItRedirected();

private:
    QScopedPointer<LogCapture> m_quiet;
};

namespace {

const QString finishedText = "<NetworkProcessor::replyFinished>";
const QString redirectText = "<NetworkProcessor::redirectReply> redirect reply:  \"%1\"";
const QString foundText = "<NetworkProcessor::redirectReply> Find previos target, set to redirect "
                          "attribute";
const QString sentText = "<NetworkProcessor::redirectReply> redirect send.";

void redirect(ScriptedServer &server, const QByteArray &path, const QUrl &target,
              const QByteArray &body = QByteArray(), int status = 302)
{
    server.on(path, answers::bytes(body, status, {{"Location", target.toEncoded()}}));
}

} // namespace

void tst_NetworkProcessorRedirects::follows_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("isPost");

    for (const int status : {301, 302, 303, 307, 308}) {
        QTest::addRow("%d GET", status) << status << false;
        QTest::addRow("%d POST", status) << status << true;
    }
}

void tst_NetworkProcessorRedirects::follows()
{
    QFETCH(int, status);
    QFETCH(bool, isPost);
    ScriptedServer server;
    const QUrl target = server.url("/second?x=1");
    redirect(server, "/first", target, "[1,", status);
    server.on("/second", answers::bytes("2]"));
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    ReplyData data = record(replies::raw_post, server.url("/first"));
    data.request.setRawHeader("X-Own", "own value");
    data.request.setHeader(QNetworkRequest::ContentTypeHeader, QString(mime::json));

    if (isPost)
        processor.startPost(data, "body");
    else
        processor.startGet(data);
    QVERIFY(recorder.waitFor("s_rawPost"));

    QCOMPARE(outcomeNames(recorder), QStringList{"s_rawPost"});
    const QJsonDocument joined(QJsonArray{1, 2});
    QCOMPARE(recorder.last("s_rawPost").at(0).toJsonDocument(), joined);
    QCOMPARE(recorder.last("s_rawPost").at(1).toString(), target.toString());

    QCOMPARE(server.requests().size(), 2);
    const HttpRequest second = server.requests().at(1);
    QCOMPARE(second.method, QByteArray("GET"));
    QCOMPARE(second.target, QByteArray("/second?x=1"));
    QCOMPARE(second.body, QByteArray());
    QCOMPARE(second.header("content-type"), QByteArray("application/x-www-form-urlencoded"));
    // The others are Qt's own.
    const QList<QByteArray> names{
        "accept-encoding", "accept-language", "connection", "content-type", "host", "user-agent"};
    QCOMPARE(second.headers.keys(), names);

    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY2(replies.at(0), "the redirected reply is kept");
    QVERIFY(!replies.at(1));
}

void tst_NetworkProcessorRedirects::logsTheRedirect()
{
    ScriptedServer server;
    const QUrl target = server.url("/a%20b");
    redirect(server, "/first", target);
    server.on("/a%20b", answers::json({}));
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(record(replies::raw_get, server.url("/first")));
    QVERIFY(recorder.waitFor("s_rawGet"));

    QCOMPARE(texts(log, "<"),
             (QStringList{finishedText, redirectText.arg(target.toString()), foundText, sentText,
                          finishedText, "<TarvisNet::handleReply> Raw get finished"}));
    QCOMPARE(texts(log, QString(), QtWarningMsg), QStringList());
}

void tst_NetworkProcessorRedirects::joinsTheBodiesOfAChain()
{
    ScriptedServer server;
    redirect(server, "/1", server.url("/2"), "a");
    redirect(server, "/2", server.url("/3"), "b");
    redirect(server, "/3", server.url("/4"), "c");
    server.on("/4", answers::bytes("d"));
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(record(replies::remote_installer_log, server.url("/1")));
    QVERIFY(recorder.waitFor("s_fetchInstallerChangeLogData"));

    const QVariantList expected{QByteArray("abcd"), server.url("/4").toString()};
    QCOMPARE(recorder.last("s_fetchInstallerChangeLogData"), expected);
}

void tst_NetworkProcessorRedirects::reportsFailuresUnderTheNewUrl()
{
    ScriptedServer server;
    redirect(server, "/first", server.url("/missing"), "{}");
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(record(replies::raw_get, server.url("/first")));
    QVERIFY(recorder.waitFor("s_errorChanged"));

    QCOMPARE(outcomeNames(recorder), QStringList{"s_errorChanged"});
    QCOMPARE(recorder.last("s_errorChanged"), error(-217, server.url("/missing").toString()));
}

void tst_NetworkProcessorRedirects::takesTheTargetAsItIs_data()
{
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<QString>("url");

    QTest::newRow("absolute path") << QByteArray("/second") << "/second";
    QTest::newRow("relative path") << QByteArray("second") << "second";
    QTest::newRow("no scheme") << QByteArray("//127.0.0.1/second") << "//127.0.0.1/second";
    QTest::newRow("no location") << QByteArray() << QString();
}

// Relative targets lead nowhere, because they are not resolved.
void tst_NetworkProcessorRedirects::takesTheTargetAsItIs()
{
    QFETCH(QByteArray, location);
    QFETCH(QString, url);
    ScriptedServer server;
    server.on("/first", answers::redirect(302, location));
    server.on("/second", answers::json({}));
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(record(replies::raw_get, server.url("/first")));
    QVERIFY(recorder.waitFor("s_errorChanged"));

    QCOMPARE(outcomeNames(recorder), QStringList{"s_errorChanged"});
    QCOMPARE(recorder.last("s_errorChanged"), error(-203, url));
    QCOMPARE(texts(log, "redirect reply"), QStringList{redirectText.arg(url)});
    QCOMPARE(server.requests().size(), 1);
}

// An unknown certificate is accepted silently by the first request's configuration only.
void tst_NetworkProcessorRedirects::leavesTheTlsConfigurationBehind()
{
    ScriptedServer server;
    ScriptedServer tlsServer(ScriptedServer::Mode::Https);
    redirect(server, "/first", tlsServer.url("/second"));
    tlsServer.on("/second", answers::json({}));
    QSslConfiguration lenient = QSslConfiguration::defaultConfiguration();
    lenient.setPeerVerifyMode(QSslSocket::VerifyNone);
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    ReplyData data = record(replies::raw_get, server.url("/first"));
    data.request.setSslConfiguration(lenient);
    processor.startGet(data);
    QVERIFY(recorder.waitFor("s_rawGet"));

    QCOMPARE(texts(log, "replySslErrors").size(), 1);
}

void tst_NetworkProcessorRedirects::downloadsFromTheTarget()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    ScriptedServer server;
    redirect(server, "/first", server.url("/second"), "not of the file");
    server.on("/second", answers::bytes("content"));
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(fileRecord(replies::remote_binary, server.url("/first"), path, 7));
    QVERIFY(recorder.waitFor("s_finished"));

    QCOMPARE(outcomeNames(recorder), QStringList{"s_finished"});
    QCOMPARE(recorder.last("s_finished"), QVariantList{server.url("/second").toString()});
    QCOMPARE(files::read(path), QByteArray("content"));
    QCOMPARE(texts(log, "replyReadyRead"),
             QStringList{"<NetworkProcessor::replyReadyRead> Redircet attribuie:  302"});
}

// The follow-up gets an empty record, whose kind is unknown.
void tst_NetworkProcessorRedirects::followsWithoutARecord()
{
    ScriptedServer server;
    const QUrl target = server.url("/second");
    server.on("/second", answers::json({}));
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const QPointer<FakeReply> reply = follow(processor, server.url("/first"));
    reply->setAttribute(QNetworkRequest::RedirectionTargetAttribute, target);
    LogCapture log;

    reply->finish();
    QCOMPARE(texts(log),
             (QStringList{finishedText, redirectText.arg(target.toString()), sentText}));
    QCOMPARE(reply->abortCalls(), 0);
    QVERIFY(recorder.waitFor("s_errorChanged"));

    QCOMPARE(outcomeNames(recorder), QStringList{"s_errorChanged"});
    QCOMPARE(recorder.last("s_errorChanged"), error(-215, target.toString()));
    QCOMPARE(texts(log, "handleReply"), QStringList{"<TarvisNet::handleReply> Uknown reply"});
    QCOMPARE(texts(log, QString(), QtWarningMsg), QStringList());
    QVERIFY(reply);
}

void tst_NetworkProcessorRedirects::tellsWhetherItRedirected()
{
    NetworkProcessor processor;
    FakeReply reply;
    LogCapture log;
    bool redirected = true;
    const auto ask = [&] {
        return QMetaObject::invokeMethod(&processor, "redirectReply", Qt::DirectConnection,
                                         Q_RETURN_ARG(bool, redirected),
                                         Q_ARG(QNetworkReply *, &reply));
    };

    QVERIFY(ask());
    QVERIFY(!redirected);
    QCOMPARE(texts(log), QStringList());

    reply.setAttribute(QNetworkRequest::RedirectionTargetAttribute, QUrl("http://127.0.0.1/"));
    QVERIFY(ask());
    QVERIFY(redirected);
    QCOMPARE(texts(log), (QStringList{redirectText.arg("http://127.0.0.1/"), sentText}));
}

QTEST_GUILESS_MAIN(tst_NetworkProcessorRedirects)
#include "tst_networkprocessor_redirects.moc"
