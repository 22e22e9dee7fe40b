#include "clientbench.h"
#include "fakereply.h"
#include "files.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtTest/QTest>

using namespace clientaccess;

namespace {

const char removed[] = "s_repliesCountChanged";

/// Makes \a from redirect to \a to with a body that nobody must see.
void redirect(ScriptedServer &server, const char *from, const char *to, int status = 302)
{
    const QByteArray target = server.url(to).toEncoded();
    server.on(from, answers::bytes("{\"answer\":\"redirect\"}", status, {{"Location", target}}));
}

QVariant answered(const QVariantList &arguments)
{
    return arguments.at(0).toJsonDocument().object().value("answer").toVariant();
}

} // namespace

/// Requests that the server sends elsewhere.
class tst_TarvisNetRedirects : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void follows_data();
    void follows();
    void deliversByTheFirstKind_data();
    void deliversByTheFirstKind();
    void followsWithAPlainGet();
    void deliversTheHeadersOfTheFirstReply();
    void logsTheChain();
    void removesFromTheFirstToTheLast();
    void countsHopsAsRequests();
    void unwindsQueuedRecords();
    void followsUnknownReplies();
    void tellsWhetherARedirectWasSent();
    void takesTheTargetAsItIs_data();
    void takesTheTargetAsItIs();
    void redirectedBinaryNeedsACompleteFile_data();
    void redirectedBinaryNeedsACompleteFile();
    void failedChainKeepsItsPlaces();
    void sourceIsGone();
    void recordWithoutSource();
    void recordOfAnUnknownSource();
    void abortEndsALoop();
};

void tst_TarvisNetRedirects::follows_data()
{
    QTest::addColumn<int>("status");
    for (const int status : {301, 302, 303, 307, 308})
        QTest::addRow("%d", status) << status;
}

void tst_TarvisNetRedirects::follows()
{
    QFETCH(int, status);

    ClientBench bench;
    redirect(bench.server, "/first", "/second", status);
    redirect(bench.server, "/second", "/last", status);
    bench.server.on("/last", answers::json({{"answer", "last"}}));
    bench.client->rawGet(bench.server.url("/first"));
    QVERIFY(bench.recorder.waitFor("s_rawGet"));

    const QVariantList arguments = bench.recorder.last("s_rawGet");
    QCOMPARE(answered(arguments), QVariant("last"));
    QCOMPARE(arguments.at(1).toString(), bench.url("/first"));
    QCOMPARE(bench.server.requests().size(), 3);
    // One for adding the request, three for the replies that go.
    QCOMPARE(withoutProgress(bench.recorder),
             QStringList({removed, "s_rawGet", removed, removed, removed}));
}

void tst_TarvisNetRedirects::deliversByTheFirstKind_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<QString>("name");

    const auto row = [](const char *kind, const char *name) {
        QTest::newRow(kind) << QString(kind) << QString(name);
    };
    row("remoteIndex", "s_fetchIndex");
    row("remoteDefinition", "s_fetchDefinition");
    row("remoteInstaller", "s_finished");
    row("remoteInstallerChangeLog", "s_fetchInstallerChangeLogData");
    row("remoteInstallerCheckSum", "");
    row("rawGet", "s_rawGet");
    row("rawPost", "s_rawPost");
    row("rawGetFile", "s_rawGetFileFinished");
    row("rawPostFile", "s_rawPostFileFinished");
    row("rawPatch", "s_rawPathFinished");
    row("rawDelete", "s_rawDeleteFinished");
    row("something else", "s_errorChanged");
}

void tst_TarvisNetRedirects::deliversByTheFirstKind()
{
    QFETCH(QString, replyType);
    QFETCH(QString, name);

    ClientBench bench;
    redirect(bench.server, "/first", "/last");
    bench.server.on("/last", answers::bytes("{\"answer\":\"last\"}"));
    add(*bench.client, record(replyType, bench.server.url("/first"), bench.file("file", 5)));
    QVERIFY(bench.recorder.waitFor(removed, 3));

    QStringList names = withoutProgress(bench.recorder);
    names.removeAll(removed);
    names.removeAll("s_startPing");
    names.removeAll("s_stopPing");
    QCOMPARE(names, name.isEmpty() ? QStringList() : QStringList(name));
    if (name.isEmpty())
        return;
    const QVariantList arguments = bench.recorder.last(name);
    QVERIFY(arguments.contains(bench.url("/first")));
    if (arguments.at(0).userType() == QMetaType::QJsonDocument)
        QCOMPARE(answered(arguments), QVariant("last"));
    if (arguments.at(0).userType() == QMetaType::QByteArray)
        QCOMPARE(arguments.at(0).toByteArray(), QByteArray("{\"answer\":\"last\"}"));
}

void tst_TarvisNetRedirects::followsWithAPlainGet()
{
    ClientBench bench;
    redirect(bench.server, "/first", "/last");
    bench.server.on("/last", answers::json({{"answer", "last"}}));
    ReplyData request = record("rawPost", bench.server.url("/first"));
    request.data = "request body";
    request.request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
    request.request.setHeader(QNetworkRequest::UserAgentHeader, bench.client->getUserAgent());
    request.request.setRawHeader("X-Own", "yes");
    request.request.setRawHeader("Range", "bytes=3-");
    add(*bench.client, request);
    QVERIFY(bench.recorder.waitFor("s_rawPost"));

    const HttpRequest first = bench.server.requests("/first").value(0);
    QCOMPARE(first.method, QByteArray("POST"));
    QCOMPARE(first.body, QByteArray("request body"));
    QCOMPARE(first.header("x-own"), QByteArray("yes"));
    QCOMPARE(first.header("user-agent"), bench.client->getUserAgent().toLocal8Bit());

    const HttpRequest last = bench.server.requests("/last").value(0);
    QCOMPARE(last.method, QByteArray("GET"));
    QCOMPARE(last.body, QByteArray());
    QCOMPARE(last.header("content-type"), QByteArray("application/x-www-form-urlencoded"));
    QVERIFY(last.header("x-own").isNull());
    QVERIFY(last.header("range").isNull());
    QVERIFY(!last.header("user-agent").contains("TarvisNet"));
    QCOMPARE(answered(bench.recorder.last("s_rawPost")), QVariant("last"));
    QCOMPARE(bench.recorder.last("s_rawPost").at(1).toString(), bench.url("/first"));
}

void tst_TarvisNetRedirects::deliversTheHeadersOfTheFirstReply()
{
    ClientBench bench;
    redirect(bench.server, "/first", "/last");
    bench.server.on("/last", answers::bytes("bytes", 200, {{"X-Last", "yes"}}));
    bench.client->rawGetFile(bench.server.url("/first"));
    QVERIFY(bench.recorder.waitFor("s_rawGetFileFinished"));

    const QVariantList arguments = bench.recorder.last("s_rawGetFileFinished");
    QCOMPARE(arguments.at(0).toByteArray(), QByteArray("bytes"));
    const auto headers = arguments.at(2).value<QList<QNetworkReply::RawHeaderPair>>();
    QVERIFY(headers.contains({"Location", bench.server.url("/last").toEncoded()}));
    QVERIFY(!headers.contains({"X-Last", "yes"}));
}

void tst_TarvisNetRedirects::logsTheChain()
{
    ClientBench bench;
    redirect(bench.server, "/first", "/second");
    redirect(bench.server, "/second", "/last");
    bench.server.on("/last", answers::json({}));
    bench.client->rawGet(bench.server.url("/first"));
    QVERIFY(bench.recorder.waitFor("s_rawGet"));

    const auto sent = [&bench](const char *to) {
        return QStringList{
            line({"debug: <TarvisNet::redirectReply> redirect reply:", quoted(bench.url(to))}),
            "debug:  Find previos target, set to redirect attribute",
            "debug: <TarvisNet::redirectReply> redirect send."};
    };
    const QStringList unwound = {"debug: <TarvisNet::handleReply> Redirect finished",
                                 "debug: <TarvisNet::handleReply> Found direct reply"};
    QCOMPARE(bench.messages(), sent("/second") + sent("/last") + unwound + unwound);
}

void tst_TarvisNetRedirects::removesFromTheFirstToTheLast()
{
    ClientBench bench;
    redirect(bench.server, "/first", "/second");
    redirect(bench.server, "/second", "/last");
    HttpResponse held;
    bench.server.on("/last",
                    [&held](const HttpRequest &, HttpResponse &response) { held = response; });
    bench.client->rawGet(bench.server.url("/first"));
    QVERIFY(bench.server.waitForRequests(3));
    const QList<QNetworkReply *> chain = repliesOf(*bench.client);
    QCOMPARE(chain.size(), 3);
    QStringList gone;
    for (QNetworkReply *reply : chain) {
        const QString path = reply->url().path();
        connect(reply, &QObject::destroyed, this, [&gone, path] { gone.append(path); });
    }
    held.send(200);
    QTRY_COMPARE(gone.size(), 3);
    QCOMPARE(gone, QStringList({"/first", "/second", "/last"}));
}

void tst_TarvisNetRedirects::countsHopsAsRequests()
{
    ClientBench bench;
    HttpResponse held;
    redirect(bench.server, "/first", "/last");
    bench.server.on("/last",
                    [&held](const HttpRequest &, HttpResponse &response) { held = response; });
    bench.server.on("/other", answers::json({}));
    bench.client->setParallelRequestsCount(2);
    bench.client->rawGet(bench.server.url("/first"));
    QVERIFY(bench.server.waitForRequests(2));

    bench.client->rawGet(bench.server.url("/other"));
    QCOMPARE(repliesOf(*bench.client).size(), 2);
    held.send(200);
    QVERIFY(bench.recorder.waitFor("s_rawGet", 2));
    QCOMPARE(bench.recorder.of("s_rawGet").at(0).at(1).toString(), bench.url("/first"));
    QCOMPARE(bench.recorder.of("s_rawGet").at(1).at(1).toString(), bench.url("/other"));
}

// A record of the kind that comes through the queue is unwound like one that a redirect made.
void tst_TarvisNetRedirects::unwindsQueuedRecords()
{
    ClientBench bench;
    HttpResponse held;
    bench.server.on("/first",
                    [&held](const HttpRequest &, HttpResponse &response) { held = response; });
    bench.server.on("/last", answers::json({{"last", 1}}));
    bench.client->rawGet(bench.server.url("/first"));
    QVERIFY(bench.server.waitForRequests(1));
    ReplyData next = record(replies::redirect_reply, bench.server.url("/last"));
    next.directReply = repliesOf(*bench.client).first();
    add(*bench.client, next);
    QVERIFY(bench.recorder.waitFor("s_rawGet"));

    QCOMPARE(bench.recorder.last("s_rawGet").at(0).toJsonDocument(),
             QJsonDocument::fromJson(R"({"last":1})"));
    QCOMPARE(bench.recorder.last("s_rawGet").at(1).toString(), bench.url("/first"));
    QCOMPARE(bench.messages(),
             QStringList({"debug: <TarvisNet::handleReply> Redirect finished",
                          "debug: <TarvisNet::handleReply> Found direct reply"}));
}

void tst_TarvisNetRedirects::followsUnknownReplies()
{
    ClientBench bench;
    bench.server.on("/last", answers::json({}));
    FakeReply reply(QUrl("http://127.0.0.1/unknown"));
    follow(*bench.client, reply);
    reply.setAttribute(QNetworkRequest::RedirectionTargetAttribute, bench.server.url("/last"));
    reply.finish();
    QCOMPARE(bench.messages(),
             QStringList({line({"debug: <TarvisNet::redirectReply> redirect reply:",
                                quoted(bench.url("/last"))}),
                          "debug: <TarvisNet::redirectReply> redirect send."}));

    bench.log.clear();
    QVERIFY(bench.recorder.waitFor(removed));
    QCOMPARE(bench.messages(), QStringList("warning: <TarvisNet::handleReply> Uknown reply type"));
    QCOMPARE(withoutProgress(bench.recorder), QStringList({"s_errorChanged", removed}));
    QCOMPARE(bench.recorder.last("s_errorChanged").at(0).value<short>(), short(-215));
    QCOMPARE(bench.recorder.last("s_errorChanged").at(1).toString(), bench.url("/last"));
}

void tst_TarvisNetRedirects::tellsWhetherARedirectWasSent()
{
    ClientBench bench;
    bench.server.on("/last", answers::withhold());
    const auto isSent = [&bench](QNetworkReply *reply) {
        bool sent = false;
        if (!QMetaObject::invokeMethod(bench.client, "redirectReply", Qt::DirectConnection,
                                       Q_RETURN_ARG(bool, sent), Q_ARG(QNetworkReply *, reply)))
            qFatal("no slot redirectReply");
        return sent;
    };
    FakeReply reply(QUrl("http://127.0.0.1/somewhere"));
    QVERIFY(!isSent(&reply));
    QCOMPARE(repliesOf(*bench.client).size(), 0);

    reply.setAttribute(QNetworkRequest::RedirectionTargetAttribute, bench.server.url("/last"));
    QVERIFY(isSent(&reply));
    QCOMPARE(repliesOf(*bench.client).size(), 1);
    QCOMPARE(reply.abortCalls(), 0);
}

void tst_TarvisNetRedirects::takesTheTargetAsItIs_data()
{
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<QString>("url");

    QTest::newRow("no Location") << QByteArray() << QString();
    QTest::newRow("a path") << QByteArray("/last") << QString("/last");
    QTest::newRow("a relative path") << QByteArray("last?a=1") << QString("last?a=1");
    QTest::newRow("an unknown scheme") << QByteArray("other://host/x") << QString("other://host/x");
}

void tst_TarvisNetRedirects::takesTheTargetAsItIs()
{
    QFETCH(QByteArray, location);
    QFETCH(QString, url);

    ClientBench bench;
    bench.server.on("/first", answers::redirect(302, location));
    bench.server.on("/last", answers::json({}));
    bench.client->rawGet(bench.server.url("/first"));
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    QVERIFY(bench.log.contains(QtDebugMsg,
                               line({"<TarvisNet::redirectReply> redirect reply:", quoted(url)})));
    QCOMPARE(bench.recorder.last("s_errorChanged").at(0).value<short>(), short(-203));
    QCOMPARE(bench.recorder.last("s_errorChanged").at(1).toString(), url);
    QCOMPARE(bench.recorder.count("s_rawGet"), 0);
    QCOMPARE(bench.server.requests().size(), 1);
}

void tst_TarvisNetRedirects::redirectedBinaryNeedsACompleteFile_data()
{
    QTest::addColumn<QByteArray>("temporary");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("destination");

    QTest::newRow("no temporary file") << QByteArray() << "s_errorChanged" << QByteArray();
    QTest::newRow("a complete temporary file")
        << QByteArray("complete") << "s_finished" << QByteArray("complete");
}

void tst_TarvisNetRedirects::redirectedBinaryNeedsACompleteFile()
{
    QFETCH(QByteArray, temporary);
    QFETCH(QString, name);
    QFETCH(QByteArray, destination);

    ClientBench bench;
    bench.client->setTemporaryDirectory(bench.path("temporary"));
    if (!temporary.isNull())
        files::write(bench.path("temporary/file.vtxdownload"), temporary);
    redirect(bench.server, "/first", "/last");
    bench.server.on("/last", answers::bytes("arriving"));
    bench.client->fetchBinary(bench.server.url("/first"), bench.path("file"), 8);
    QVERIFY(bench.recorder.waitFor(name));

    QVERIFY(bench.log.contains(QtDebugMsg, "<TarvisNet::replyReadyRead> Redircet attribuie:  302"));
    QVERIFY(bench.recorder.last(name).contains(bench.url("/first")));
    QCOMPARE(files::read(bench.path("file")), destination);
    QVERIFY(files::read(bench.path("temporary/file.vtxdownload")).isNull());
    QCOMPARE(bench.log.contains(QtWarningMsg, "Temp file not exist"), temporary.isNull());
    if (!temporary.isNull())
        return;
    QCOMPARE(bench.recorder.last(name).at(0).value<short>(), short(-218));
    QVERIFY(bench.recorder.last(name).at(2).toJsonDocument().isNull());
}

void tst_TarvisNetRedirects::failedChainKeepsItsPlaces()
{
    ClientBench bench;
    redirect(bench.server, "/first", "/second");
    redirect(bench.server, "/second", "/missing");
    bench.server.on("/missing", answers::json({{"error", "gone"}}, 404));
    bench.server.on("/other", answers::json({}));
    bench.client->setParallelRequestsCount(3);
    bench.client->rawGet(bench.server.url("/first"));
    QVERIFY(bench.recorder.waitFor(removed, 2));

    const QVariantList arguments = bench.recorder.last("s_errorChanged");
    QCOMPARE(arguments.at(0).value<short>(), short(-217));
    QCOMPARE(arguments.at(1).toString(), bench.url("/missing"));
    QCOMPARE(arguments.at(2).toJsonDocument().object().value("error").toString(), QString("gone"));
    QCOMPARE(bench.recorder.count("s_errorChanged"), 1);
    QCOMPARE(bench.recorder.count("s_rawGet"), 0);
    QVERIFY(!bench.log.contains(QtDebugMsg, "<TarvisNet::handleReply> Redirect finished"));

    // Two places are kept by the hops, so that of two requests one waits.
    bench.recorder.clear();
    bench.server.on("/withheld", answers::withhold());
    bench.client->rawGet(bench.server.url("/withheld"));
    bench.client->rawGet(bench.server.url("/other"));
    QVERIFY(bench.server.waitForRequests(4));
    QVERIFY(bench.server.requests("/other").isEmpty());
    bench.recorder.clear();
    QMetaObject::invokeMethod(bench.client, "clearReplies", Qt::DirectConnection);
    QStringList aborted;
    for (const QVariantList &call : bench.recorder.of("s_aborted"))
        aborted.append(call.at(0).toString());
    aborted.sort();
    QCOMPARE(aborted,
             QStringList({bench.url("/first"), bench.url("/second"), bench.url("/withheld")}));
}

void tst_TarvisNetRedirects::sourceIsGone()
{
    ClientBench bench;
    HttpResponse held;
    redirect(bench.server, "/first", "/last");
    bench.server.on("/last",
                    [&held](const HttpRequest &, HttpResponse &response) { held = response; });
    bench.client->rawGet(bench.server.url("/first"));
    QVERIFY(bench.server.waitForRequests(2));
    callWithReply(*bench.client, "removeReply", repliesOf(*bench.client).constFirst());
    bench.recorder.clear();
    bench.log.clear();
    held.send(200);
    QVERIFY(bench.recorder.waitFor(removed));

    QCOMPARE(bench.messages(),
             QStringList({"debug: <TarvisNet::handleReply> Redirect finished",
                          "warning: <TarvisNet::handleReply> Direct reply NOT found"}));
    QCOMPARE(withoutProgress(bench.recorder), QStringList(removed));
}

void tst_TarvisNetRedirects::recordWithoutSource()
{
    ClientBench bench;
    bench.server.on("/last", answers::json({}));
    add(*bench.client, record("redirectReply", bench.server.url("/last")));
    QVERIFY(bench.recorder.waitFor(removed, 2));

    QCOMPARE(bench.messages(), QStringList("debug: <TarvisNet::handleReply> Redirect finished"));
    QCOMPARE(withoutProgress(bench.recorder), QStringList({removed, removed}));
}

void tst_TarvisNetRedirects::recordOfAnUnknownSource()
{
    ClientBench bench;
    bench.server.on("/last", answers::json({}));
    FakeReply source;
    ReplyData hop = record("redirectReply", bench.server.url("/last"));
    hop.directReply = &source;
    add(*bench.client, hop);
    QVERIFY(bench.recorder.waitFor(removed, 2));

    QCOMPARE(bench.messages(),
             QStringList({"debug: <TarvisNet::handleReply> Redirect finished",
                          "warning: <TarvisNet::handleReply> Direct reply NOT found"}));
    QCOMPARE(withoutProgress(bench.recorder), QStringList({removed, removed}));
}

void tst_TarvisNetRedirects::abortEndsALoop()
{
    ClientBench bench;
    redirect(bench.server, "/one", "/two");
    redirect(bench.server, "/two", "/one");
    bench.client->rawGet(bench.server.url("/one"));
    QVERIFY(bench.server.waitForRequests(50));
    bench.client->abortDownload();

    QCOMPARE(bench.recorder.count("s_aborted"), 1);
    QCOMPARE(bench.recorder.count("s_errorChanged"), 0);
    QCOMPARE(bench.recorder.count("s_rawGet"), 0);
    for (const QNetworkReply *reply : repliesOf(*bench.client))
        QVERIFY(reply->isFinished());
}

QTEST_GUILESS_MAIN(tst_TarvisNetRedirects)
#include "tst_tarvisnet_redirects.moc"
