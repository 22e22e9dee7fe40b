#include "clientbench.h"
#include "fakereply.h"
#include "files.h"
#include "testclass.h"

#include <QtNetwork/QNetworkCookie>
#include <QtNetwork/QNetworkCookieJar>
#include <QtTest/QTest>

namespace tst_tarvisnet_redirects {

using namespace clientaccess;

namespace {

const char removed[] = "s_repliesCountChanged";
const QByteArray body = R"({"answer":"last"})";
const QJsonDocument document = QJsonDocument::fromJson(body);

/// A client whose server sends requests elsewhere, and keeps what nobody answers.
struct RedirectBench : ClientBench {
    RedirectBench()
    {
        server.on("/last", answers::bytes(body, 200, {{"X-Last", "yes"}}));
        server.onRequest([this](const HttpRequest &, HttpResponse &response) { held = response; });
    }

    /// Makes \a from redirect to \a to with a body that nobody must see.
    void redirect(const char *from, const char *to, int status = 302)
    {
        const QByteArray target = server.url(to).toEncoded();
        server.on(from,
                  answers::bytes("{\"answer\":\"redirect\"}", status, {{"Location", target}}));
    }
    /// What is logged when a request is sent on to \a path.
    QStringList sentOn(const char *path, bool isKnown = true) const
    {
        QStringList messages(
            line({"debug: <TarvisNet::redirectReply> redirect reply:", quoted(url(path))}));
        if (isKnown)
            messages << "debug:  Find previos target, set to redirect attribute";
        return messages << "debug: <TarvisNet::redirectReply> redirect send.";
    }

    HttpResponse held;
};

const QString finished = "debug: <TarvisNet::handleReply> Redirect finished";
const QString found = "debug: <TarvisNet::handleReply> Found direct reply";
const QString notFound = "warning: <TarvisNet::handleReply> Direct reply NOT found";

/// What a hop that the application queues calls the reply that it comes from.
enum class Source { None, Unknown, Running };

/// Logs when a request is about to be sent.
class LoggingJar : public QNetworkCookieJar {
public:
    QList<QNetworkCookie> cookiesForUrl(const QUrl &url) const override
    {
        qDebug("sending %s", qPrintable(url.path()));
        return {};
    }
};

} // namespace

} // namespace tst_tarvisnet_redirects

Q_DECLARE_METATYPE(tst_tarvisnet_redirects::Source)

namespace tst_tarvisnet_redirects {

/// Requests that the server sends elsewhere. Chains and dead ends for every kind of request are in
/// the tests of faults.
class tst_TarvisNetRedirects : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void follows_data();
    void follows();
    void followsWithAPlainGet();
    void deliversTheHeadersOfTheFirstReply();
    void removesFromTheFirstToTheLast();
    void unwindsQueuedRecords_data();
    void unwindsQueuedRecords();
    void sourceIsGone_data();
    void sourceIsGone();
    void followsUnknownReplies();
    void tellsWhetherARedirectWasSent();
    void saysSoOnceItIsSent();
    void finishesACompleteBinary();
    void failedChainKeepsItsPlaces();
    void abortEndsALoop();
};

void tst_TarvisNetRedirects::follows_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("result");
    for (const int status : {301, 302, 303, 307, 308})
        QTest::addRow("%d", status) << status << "rawGet" << QString("s_rawGet");
    QTest::newRow("an unknown kind") << 302 << "something else" << QString("s_errorChanged");
}

void tst_TarvisNetRedirects::follows()
{
    QFETCH(const int, status);
    QFETCH(const QString, kind);
    QFETCH(const QString, result);

    RedirectBench bench;
    bench.redirect("/first", "/second", status);
    bench.redirect("/second", "/last", status);
    bench.add(record(kind, bench.server.url("/first")));
    QVERIFY(bench.recorder.waitFor(removed, 4));

    const QString url = bench.url("/first");
    QCOMPARE(bench.recorder.last(result),
             result == "s_rawGet" ? QVariantList({document, url}) : failure(-215, url));
    QCOMPARE(bench.server.requests().size(), 3);
    // One for adding the request, three for the replies that go.
    QCOMPARE(bench.emitted(), QStringList({removed, result, removed, removed, removed}));
    QStringList messages = bench.sentOn("/second") + bench.sentOn("/last");
    messages << finished << found << finished << found;
    if (result != "s_rawGet")
        messages << "warning: <TarvisNet::handleReply> Uknown reply type";
    QCOMPARE(bench.messages(), messages);
}

void tst_TarvisNetRedirects::followsWithAPlainGet()
{
    RedirectBench bench;
    bench.redirect("/first", "/last");
    ReplyData request = record("rawPost", bench.server.url("/first"));
    request.data = "request body";
    request.request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
    request.request.setHeader(QNetworkRequest::UserAgentHeader, bench.client->getUserAgent());
    request.request.setRawHeader("X-Own", "yes");
    request.request.setRawHeader("Range", "bytes=3-");
    bench.add(request);
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
    QCOMPARE(bench.recorder.last("s_rawPost"), QVariantList({document, bench.url("/first")}));
}

void tst_TarvisNetRedirects::deliversTheHeadersOfTheFirstReply()
{
    RedirectBench bench;
    bench.redirect("/first", "/last");
    bench.client->rawGetFile(bench.server.url("/first"));
    QVERIFY(bench.recorder.waitFor("s_rawGetFileFinished"));

    const QVariantList arguments = bench.recorder.last("s_rawGetFileFinished");
    QCOMPARE(arguments.at(0).toByteArray(), body);
    const auto headers = arguments.at(2).value<QList<QNetworkReply::RawHeaderPair>>();
    QVERIFY(headers.contains({"Location", bench.server.url("/last").toEncoded()}));
    QVERIFY(!headers.contains({"X-Last", "yes"}));
}

void tst_TarvisNetRedirects::removesFromTheFirstToTheLast()
{
    QStringList gone;
    RedirectBench bench;
    bench.redirect("/first", "/second");
    bench.redirect("/second", "/held");
    bench.get({"/first"});
    QVERIFY(bench.server.waitForRequests(3));
    for (QNetworkReply *reply : bench.replies()) {
        const QString path = reply->url().path();
        connect(reply, &QObject::destroyed, this, [&gone, path] { gone.append(path); });
    }
    bench.held.send(200);
    QTRY_COMPARE(gone.size(), 3);
    QCOMPARE(gone, QStringList({"/first", "/second", "/held"}));
}

void tst_TarvisNetRedirects::unwindsQueuedRecords_data()
{
    QTest::addColumn<Source>("source");
    QTest::addColumn<QStringList>("messages");
    QTest::addColumn<QStringList>("names");
    const QStringList gone = {removed, removed};
    QTest::newRow("without a source") << Source::None << QStringList(finished) << gone;
    QTest::newRow("of an unknown one")
        << Source::Unknown << QStringList({finished, notFound}) << gone;
    QTest::newRow("of one that runs") << Source::Running << QStringList({finished, found})
                                      << QStringList({removed, "s_rawGet", removed, removed});
}

// A record of the kind that comes through the queue is unwound like one that a redirect made.
void tst_TarvisNetRedirects::unwindsQueuedRecords()
{
    QFETCH(const Source, source);
    QFETCH(const QStringList, messages);
    QFETCH(const QStringList, names);

    RedirectBench bench;
    bench.get({"/held"});
    QVERIFY(bench.server.waitForRequests(1));
    FakeReply unknown;
    ReplyData hop = record(replies::redirect_reply, bench.server.url("/last"));
    if (source != Source::None)
        hop.directReply = source == Source::Running ? bench.replies().first() : &unknown;
    bench.forget();
    bench.add(hop);
    QVERIFY(bench.recorder.waitFor(removed, names.count(removed)));

    QCOMPARE(bench.messages(), messages);
    QCOMPARE(bench.emitted(), names);
    QCOMPARE(bench.recorder.last("s_rawGet"),
             source == Source::Running ? QVariantList({document, bench.url("/held")})
                                       : QVariantList());
}

void tst_TarvisNetRedirects::sourceIsGone_data()
{
    QTest::addColumn<bool>("isDeleted");
    QTest::newRow("deleted") << true;
    QTest::newRow("about to be deleted") << false;
}

void tst_TarvisNetRedirects::sourceIsGone()
{
    QFETCH(const bool, isDeleted);
    RedirectBench bench;
    bench.redirect("/first", "/held");
    bench.get({"/first"});
    QVERIFY(bench.server.waitForRequests(2));
    bench.call("removeReply", bench.replies().constFirst());
    bench.forget();
    if (isDeleted)
        bench.held.send(200);
    else
        Q_EMIT bench.replies().constLast()->finished();
    QVERIFY(bench.recorder.waitFor(removed));

    QCOMPARE(bench.messages(), QStringList({finished, notFound}));
    QCOMPARE(bench.emitted(), QStringList(removed));
}

void tst_TarvisNetRedirects::followsUnknownReplies()
{
    RedirectBench bench;
    FakeReply reply(QUrl("http://127.0.0.1/unknown"));
    bench.follow(reply);
    reply.setAttribute(QNetworkRequest::RedirectionTargetAttribute, bench.server.url("/last"));
    reply.finish();
    QCOMPARE(bench.messages(), bench.sentOn("/last", false));

    bench.log.clear();
    QVERIFY(bench.recorder.waitFor(removed));
    QCOMPARE(bench.messages(), QStringList("warning: <TarvisNet::handleReply> Uknown reply type"));
    QCOMPARE(bench.emitted(), QStringList({"s_errorChanged", removed}));
    QCOMPARE(bench.error(), failure(-215, bench.url("/last")));
}

void tst_TarvisNetRedirects::tellsWhetherARedirectWasSent()
{
    const RedirectBench bench;
    const auto isSent = [&bench](QNetworkReply *reply) {
        bool sent = false;
        if (!QMetaObject::invokeMethod(bench.client, "redirectReply", Qt::DirectConnection,
                                       Q_RETURN_ARG(bool, sent), Q_ARG(QNetworkReply *, reply)))
            qFatal("no slot redirectReply");
        return sent;
    };
    FakeReply reply(QUrl("http://127.0.0.1/somewhere"));
    QVERIFY(!isSent(&reply));
    QCOMPARE(bench.replies().size(), 0);

    reply.setAttribute(QNetworkRequest::RedirectionTargetAttribute, bench.server.url("/held"));
    QVERIFY(isSent(&reply));
    QCOMPARE(bench.replies().size(), 1);
    QCOMPARE(reply.abortCalls(), 0);
}

void tst_TarvisNetRedirects::saysSoOnceItIsSent()
{
    LoggingJar jar;
    RedirectBench bench;
    bench.client->setCookies(&jar);
    bench.redirect("/first", "/held");
    bench.get({"/first"});
    QVERIFY(bench.server.waitForRequests(2));
    const QStringList texts = bench.log.texts();
    QCOMPARE(texts.mid(texts.indexOf("sending /held")),
             QStringList({"sending /held", "<TarvisNet::redirectReply> redirect send."}));
}

// The bytes of the target are not saved, so that only what is there already can be the file.
void tst_TarvisNetRedirects::finishesACompleteBinary()
{
    RedirectBench bench;
    const FileData file = bench.file("file", 8);
    files::write(file.tempFilePath, "complete");
    bench.redirect("/first", "/last");
    bench.client->fetchBinary(bench.server.url("/first"), file.filePath, file.size);
    QVERIFY(bench.recorder.waitFor("s_finished"));

    QVERIFY(bench.log.contains(QtDebugMsg, "<TarvisNet::replyReadyRead> Redircet attribuie:  302"));
    QCOMPARE(bench.recorder.last("s_finished"), QVariantList{bench.url("/first")});
    QCOMPARE(files::read(file.filePath), QByteArray("complete"));
    QVERIFY(files::read(file.tempFilePath).isNull());
    QCOMPARE(bench.log.texts(QtWarningMsg), QStringList());
}

void tst_TarvisNetRedirects::failedChainKeepsItsPlaces()
{
    RedirectBench bench;
    bench.redirect("/first", "/second");
    bench.redirect("/second", "/missing");
    bench.server.on("/missing", answers::bytes(body, 404));
    bench.client->setParallelRequestsCount(3);
    bench.get({"/first"});
    QVERIFY(bench.recorder.waitFor(removed, 2));

    QCOMPARE(bench.error(), failure(-217, bench.url("/missing"), document));
    QCOMPARE(bench.errors().size(), 1);
    QCOMPARE(bench.recorder.count("s_rawGet"), 0);
    QVERIFY(!bench.messages().contains(finished));

    // Two places are kept by the hops, so that of two requests one waits.
    bench.get({"/withheld", "/other"});
    QVERIFY(bench.server.waitForRequests(4));
    QVERIFY(bench.server.requests("/other").isEmpty());
    bench.recorder.clear();
    bench.call("clearReplies");
    QStringList aborted = bench.abortedUrls();
    aborted.sort();
    QCOMPARE(aborted, bench.urls({"/first", "/second", "/withheld"}));
}

void tst_TarvisNetRedirects::abortEndsALoop()
{
    RedirectBench bench;
    bench.redirect("/one", "/two");
    bench.redirect("/two", "/one");
    bench.get({"/one"});
    QVERIFY(bench.server.waitForRequests(50));
    bench.client->abortDownload();

    QCOMPARE(bench.recorder.count("s_aborted"), 1);
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.recorder.count("s_rawGet"), 0);
    for (const QNetworkReply *reply : bench.replies())
        QVERIFY(reply->isFinished());
}

const TestClass<tst_TarvisNetRedirects> testClass("tst_tarvisnet_redirects");

} // namespace tst_tarvisnet_redirects

#include "tst_tarvisnet_redirects.moc"
