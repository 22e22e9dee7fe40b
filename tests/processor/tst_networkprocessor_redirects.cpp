#include "files.h"
#include "processorbench.h"
#include "testclass.h"

#include <QtCore/QJsonArray>
#include <QtNetwork/QSslConfiguration>
#include <QtTest/QTest>

namespace tst_networkprocessor_redirects {

using namespace processorbench;

/// The one way on that a redirect leads, and what is kept of the way there.
class tst_NetworkProcessorRedirects : public QObject {
    Q_OBJECT

private Q_SLOTS:
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

// The request that is redirected.
ReplyData firstRecord(const ProcessorBench &bench, const QString &replyType = replies::raw_get)
{
    return record(replyType, bench.server.url("/first"));
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
    ProcessorBench bench;
    const QUrl target = bench.server.url("/second?x=1");
    redirect(bench.server, "/first", target, "[1,", status);
    bench.server.on("/second", answers::bytes("2]"));
    ReplyData data = firstRecord(bench, replies::raw_post);
    data.request.setRawHeader("X-Own", "own value");
    data.request.setHeader(QNetworkRequest::ContentTypeHeader, QString(mime::json));

    bench.start(data, isPost);
    QVERIFY(bench.recorder.waitFor("s_rawPost"));

    const QJsonDocument joined(QJsonArray{1, 2});
    QCOMPARE(bench.outcomes(), Emissions{emission("s_rawPost", joined, target.toString())});
    QCOMPARE(bench.server.requests().size(), 2);
    const HttpRequest second = bench.server.requests().at(1);
    QCOMPARE(second.method, QByteArray("GET"));
    QCOMPARE(second.target, QByteArray("/second?x=1"));
    QCOMPARE(second.body, QByteArray());
    QCOMPARE(second.header("content-type"), QByteArray("application/x-www-form-urlencoded"));
    // The others are Qt's own.
    const QList<QByteArray> names{
        "accept-encoding", "accept-language", "connection", "content-type", "host", "user-agent"};
    QCOMPARE(second.headers.keys(), names);

    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY2(bench.replies.at(0), "the redirected reply is kept");
    QVERIFY(!bench.replies.at(1));
}

void tst_NetworkProcessorRedirects::logsTheRedirect()
{
    ProcessorBench bench;
    const QUrl target = bench.server.url("/a%20b");
    redirect(bench.server, "/first", target);
    bench.server.on("/a%20b", answers::json({}));

    bench.start(firstRecord(bench));
    QVERIFY(bench.recorder.waitFor("s_rawGet"));

    QCOMPARE(bench.texts("<"),
             (QStringList{finishedText, redirectText.arg(target.toString()), foundText, sentText,
                          finishedText, "<TarvisNet::handleReply> Raw get finished"}));
    QCOMPARE(bench.warnings(), QStringList());
}

void tst_NetworkProcessorRedirects::joinsTheBodiesOfAChain()
{
    ProcessorBench bench;
    redirect(bench.server, "/first", bench.server.url("/2"), "a");
    redirect(bench.server, "/2", bench.server.url("/3"), "b");
    redirect(bench.server, "/3", bench.server.url("/4"), "c");
    bench.server.on("/4", answers::bytes("d"));

    bench.start(firstRecord(bench, replies::remote_installer_log));
    QVERIFY(bench.recorder.waitFor("s_fetchInstallerChangeLogData"));

    QCOMPARE(bench.recorder.last("s_fetchInstallerChangeLogData"),
             (QVariantList{QByteArray("abcd"), bench.url("/4")}));
}

void tst_NetworkProcessorRedirects::reportsFailuresUnderTheNewUrl()
{
    ProcessorBench bench;
    redirect(bench.server, "/first", bench.server.url("/missing"), "{}");

    bench.start(firstRecord(bench));
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    QCOMPARE(bench.outcomes(), Emissions{failure(-217, bench.url("/missing"))});
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
    ProcessorBench bench;
    bench.server.on("/first", answers::redirect(302, location));
    bench.server.on("/second", answers::json({}));

    bench.start(firstRecord(bench));
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    QCOMPARE(bench.outcomes(), Emissions{failure(-203, url)});
    QCOMPARE(bench.texts("redirect reply"), QStringList{redirectText.arg(url)});
    QCOMPARE(bench.server.requests().size(), 1);
}

// An unknown certificate is accepted silently by the first request's configuration only.
void tst_NetworkProcessorRedirects::leavesTheTlsConfigurationBehind()
{
    ProcessorBench bench;
    ScriptedServer tlsServer(ScriptedServer::Mode::Https);
    redirect(bench.server, "/first", tlsServer.url("/second"));
    tlsServer.on("/second", answers::json({}));
    QSslConfiguration lenient = QSslConfiguration::defaultConfiguration();
    lenient.setPeerVerifyMode(QSslSocket::VerifyNone);

    ReplyData data = firstRecord(bench);
    data.request.setSslConfiguration(lenient);
    bench.start(data);
    QVERIFY(bench.recorder.waitFor("s_rawGet"));

    QCOMPARE(bench.texts("replySslErrors").size(), 1);
}

void tst_NetworkProcessorRedirects::downloadsFromTheTarget()
{
    ProcessorBench bench;
    redirect(bench.server, "/first", bench.server.url("/second"), "not of the file");
    bench.server.on("/second", answers::bytes("content"));

    bench.start(fileRecord(replies::remote_binary, bench.server.url("/first"), bench.path(), 7));
    QVERIFY(bench.recorder.waitFor("s_finished"));

    QCOMPARE(bench.outcomes(), Emissions{emission("s_finished", bench.url("/second"))});
    QCOMPARE(files::read(bench.path()), QByteArray("content"));
    QCOMPARE(bench.texts("replyReadyRead"),
             QStringList{"<NetworkProcessor::replyReadyRead> Redircet attribuie:  302"});
}

// The follow-up gets an empty record, whose kind is unknown.
void tst_NetworkProcessorRedirects::followsWithoutARecord()
{
    ProcessorBench bench;
    const QUrl target = bench.server.url("/second");
    bench.server.on("/second", answers::json({}));
    const QPointer<FakeReply> reply = bench.follow(bench.server.url("/first"));
    reply->setAttribute(QNetworkRequest::RedirectionTargetAttribute, target);

    reply->finish();
    QCOMPARE(bench.texts(),
             (QStringList{finishedText, redirectText.arg(target.toString()), sentText}));
    QCOMPARE(reply->abortCalls(), 0);
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    QCOMPARE(bench.outcomes(), Emissions{failure(-215, target.toString())});
    QCOMPARE(bench.texts("handleReply"), QStringList{"<TarvisNet::handleReply> Uknown reply"});
    QCOMPARE(bench.warnings(), QStringList());
    QVERIFY(reply);
}

void tst_NetworkProcessorRedirects::tellsWhetherItRedirected()
{
    ProcessorBench bench;
    FakeReply reply;
    bool redirected = true;
    const auto ask = [&] {
        bench.call("redirectReply", Q_RETURN_ARG(bool, redirected), Q_ARG(QNetworkReply *, &reply));
        return redirected;
    };

    QVERIFY(!ask());
    QCOMPARE(bench.texts(), QStringList());

    reply.setAttribute(QNetworkRequest::RedirectionTargetAttribute, QUrl("http://127.0.0.1/"));
    QVERIFY(ask());
    QCOMPARE(bench.texts(), (QStringList{redirectText.arg("http://127.0.0.1/"), sentText}));
}

const TestClass<tst_NetworkProcessorRedirects> testClass("tst_networkprocessor_redirects");

} // namespace tst_networkprocessor_redirects

#include "tst_networkprocessor_redirects.moc"
