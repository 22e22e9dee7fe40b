#include "answers.h"
#include "fakereply.h"
#include "logcapture.h"
#include "queueaccess.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QPointer>
#include <QtTest/QTest>

using namespace queueaccess;

namespace {

const QUrl someUrl("http://127.0.0.1:9/some?a=b");

} // namespace

class tst_TarvisNetQueue : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_log.reset(new LogCapture); }
    void cleanup() { m_log.reset(); }

    void sendsVerbOfKind_data();
    void sendsVerbOfKind();
    void takesBodyOutOfRecord_data();
    void takesBodyOutOfRecord();

    void startsNothingWhileLocked();
    void dropsEmptyRecord();

    void limitsParallelRequests_data();
    void limitsParallelRequests();
    void sendsInOrderOfArrival();
    void startsOneRequestPerCall();
    void raisedLimitStartsOnNextChange();
    void stopFlagHoldsRequests();
    void countsRedirects();

    void removesNull();
    void removesUnknownReply();
    void removesActiveReply();

private:
    QScopedPointer<LogCapture> m_log;
};

void tst_TarvisNetQueue::sendsVerbOfKind_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QByteArray>("verb");
    QTest::addColumn<QByteArray>("body");
    const QByteArray body = "some body";
    const auto row = [](const QString &kind, const QByteArray &verb, const QByteArray &body) {
        QTest::newRow(qPrintable(kind)) << kind << verb << body;
    };
    row("rawPost", "POST", body);
    row("rawPostFile", "POST", body);
    row("rawPatch", "PATCH", body);
    row("rawDelete", "DELETE", body);
    for (const char *kind : {"remoteDefinition", "remoteIndex", "remoteInstaller",
                             "remoteInstallerChangeLog", "remoteInstallerCheckSum", "remoteBinary",
                             "rawGet", "rawGetFile", "redirectReply", "neverHeardOf", "rawpost"})
        row(kind, "GET", QByteArray());
}

void tst_TarvisNetQueue::sendsVerbOfKind()
{
    QFETCH(const QString, kind);
    ScriptedServer server;
    TarvisNet client;
    add(client, record(kind, server.url("/there?a=b"), "some body"));
    QVERIFY(server.waitForRequests(1));
    const HttpRequest request = server.requests().first();
    QCOMPARE(request.target, QByteArray("/there?a=b"));
    QTEST(request.method, "verb");
    QTEST(request.body, "body");
}

void tst_TarvisNetQueue::takesBodyOutOfRecord_data()
{
    QTest::addColumn<QString>("kind");
    for (const char *kind : {"rawPost", "rawPostFile", "rawPatch", "rawDelete"})
        QTest::newRow(kind) << QString(kind);
}

// A body that stayed in the record would stand before the answer's.
void tst_TarvisNetQueue::takesBodyOutOfRecord()
{
    QFETCH(const QString, kind);
    ScriptedServer server;
    server.onRequest(answers::json({{"why", "conflict"}}, 409));
    TarvisNet client;
    SignalRecorder recorder(&client);
    add(client, record(kind, server.url("/there"), "{\"sent\":1}"));
    QVERIFY(recorder.waitFor("s_errorChanged"));
    QCOMPARE(
        recorder.last("s_errorChanged").value(2).toJsonDocument().toJson(QJsonDocument::Compact),
        QByteArray("{\"why\":\"conflict\"}"));
}

void tst_TarvisNetQueue::startsNothingWhileLocked()
{
    ScriptedServer server;
    TarvisNet client;
    SignalRecorder recorder(&client);
    {
        const LockedQueue locked(client, getRecord(server.url("/held")));
        recorder.clear();
        m_log->clear();
        call(client, "processReplies");
        QCOMPARE(m_log->texts(QtWarningMsg), QStringList("Unable to get reply data"));
        QCOMPARE(recorder.names(), QStringList());
        QCOMPARE(runningPaths(client), QStringList());
    }
    call(client, "processReplies");
    QCOMPARE(runningPaths(client), QStringList("/held"));
}

void tst_TarvisNetQueue::dropsEmptyRecord()
{
    ScriptedServer server;
    TarvisNet client;
    SignalRecorder recorder(&client);
    m_log->clear();
    add(client, ReplyData());
    QCOMPARE(m_log->texts(QtWarningMsg), QStringList("Unable to get reply data"));
    QCOMPARE(recorder.names(), QStringList("s_repliesCountChanged"));

    add(client, getRecord(server.url("/next")));
    QCOMPARE(runningPaths(client), QStringList("/next"));
}

void tst_TarvisNetQueue::limitsParallelRequests_data()
{
    QTest::addColumn<int>("limit");
    for (int limit = 1; limit <= 5; ++limit)
        QTest::newRow(qPrintable(QString::number(limit))) << limit;
}

void tst_TarvisNetQueue::limitsParallelRequests()
{
    QFETCH(const int, limit);
    QList<HttpResponse> held;
    ScriptedServer server;
    server.onRequest(
        [&held](const HttpRequest &, HttpResponse &response) { held.append(response); });
    TarvisNet client;
    client.setParallelRequestsCount(limit);
    SignalRecorder recorder(&client);
    const int all = 7;
    for (int number = 0; number < all; ++number)
        client.rawGet(server.url("/" + QString::number(number)));
    QCOMPARE(running(client).size(), limit);

    // Each answer lets one more go.
    for (int done = 1; done <= all; ++done) {
        QVERIFY(server.waitForRequests(qMin(all, limit + done - 1)));
        held.takeFirst().send(200, {}, "{}");
        QVERIFY(recorder.waitFor("s_rawGet", done));
        QCOMPARE(running(client).size(), qMin(limit, all - done));
    }
}

void tst_TarvisNetQueue::sendsInOrderOfArrival()
{
    ScriptedServer server;
    server.onRequest(answers::json({}));
    TarvisNet client;
    client.setParallelRequestsCount(1);
    SignalRecorder recorder(&client);
    const QList<QByteArray> paths = {"/c", "/a", "/d", "/b"};
    for (const QByteArray &path : paths)
        client.rawGet(server.url(path));
    QVERIFY(recorder.waitFor("s_rawGet", paths.size()));
    QList<QByteArray> seen;
    for (const HttpRequest &request : server.requests())
        seen.append(request.path());
    QCOMPARE(seen, paths);
}

void tst_TarvisNetQueue::startsOneRequestPerCall()
{
    ScriptedServer server;
    TarvisNet client;
    client.setStopProcess(true);
    for (const char *path : {"/1", "/2", "/3"})
        client.rawGet(server.url(path));
    client.setStopProcess(false);
    SignalRecorder recorder(&client);
    call(client, "processReplies");
    QCOMPARE(runningPaths(client), QStringList("/1"));
    call(client, "processReplies");
    QCOMPARE(runningPaths(client), QStringList({"/1", "/2"}));
    QCOMPARE(recorder.names(), QStringList());
}

void tst_TarvisNetQueue::raisedLimitStartsOnNextChange()
{
    ScriptedServer server;
    TarvisNet client;
    client.setParallelRequestsCount(1);
    for (const char *path : {"/1", "/2", "/3"})
        client.rawGet(server.url(path));
    client.setParallelRequestsCount(5);
    QCOMPARE(runningPaths(client), QStringList("/1"));
    client.rawGet(server.url("/4"));
    QCOMPARE(runningPaths(client), QStringList({"/1", "/2"}));
}

void tst_TarvisNetQueue::stopFlagHoldsRequests()
{
    ScriptedServer server;
    TarvisNet client;
    client.rawGet(server.url("/active"));
    client.setStopProcess(true);
    for (const char *path : {"/1", "/2", "/3"})
        client.rawGet(server.url(path));
    call(client, "removeReply", Q_ARG(QNetworkReply *, running(client).first()));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(runningPaths(client), QStringList());

    client.setStopProcess(false);
    QCOMPARE(runningPaths(client), QStringList());
    client.rawGet(server.url("/4"));
    QCOMPARE(runningPaths(client), QStringList("/1"));
    call(client, "removeReply", Q_ARG(QNetworkReply *, running(client).first()));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(runningPaths(client), QStringList("/2"));
}

void tst_TarvisNetQueue::countsRedirects()
{
    HttpResponse held;
    ScriptedServer server;
    server.on("/old", answers::redirect(302, server.url("/new").toEncoded()));
    server.on("/new", [&held](const HttpRequest &, HttpResponse &response) { held = response; });
    TarvisNet client;
    client.setParallelRequestsCount(2);
    SignalRecorder recorder(&client);
    client.rawGet(server.url("/old"));
    QVERIFY(server.waitForRequests(2));

    client.rawGet(server.url("/waiting"));
    QCOMPARE(runningPaths(client), QStringList("/new"));
    held.send(200, {}, "{}");
    QVERIFY(recorder.waitFor("s_rawGet"));
    QTRY_COMPARE(server.requests("/waiting").size(), 1);
}

void tst_TarvisNetQueue::removesNull()
{
    TarvisNet client;
    SignalRecorder recorder(&client);
    m_log->clear();
    call(client, "removeReply", Q_ARG(QNetworkReply *, nullptr));
    QCOMPARE(m_log->texts(QtWarningMsg), QStringList("Nothing to remove - reply is null"));
    QCOMPARE(m_log->texts().size(), 1);
    QCOMPARE(recorder.names(), QStringList());
}

void tst_TarvisNetQueue::removesUnknownReply()
{
    TarvisNet client;
    SignalRecorder recorder(&client);
    const QPointer<QNetworkReply> reply = new FakeReply(someUrl, this);
    m_log->clear();
    call(client, "removeReply", Q_ARG(QNetworkReply *, reply.data()));
    QCOMPARE(m_log->texts(QtWarningMsg), QStringList("Reply is removed erlier"));
    QCOMPARE(m_log->texts().size(), 1);
    QCOMPARE(recorder.names(), QStringList());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(reply);
    delete reply;
}

void tst_TarvisNetQueue::removesActiveReply()
{
    ScriptedServer server;
    server.onRequest(answers::withhold());
    TarvisNet client;
    client.setParallelRequestsCount(1);
    client.rawGet(server.url("/active"));
    client.rawGet(server.url("/pending"));
    QVERIFY(server.waitForRequests(1));
    const QPointer<QNetworkReply> reply = running(client).first();

    SignalRecorder recorder(&client);
    m_log->clear();
    call(client, "removeReply", Q_ARG(QNetworkReply *, reply.data()));
    QCOMPARE(recorder.names(), QStringList("s_repliesCountChanged"));
    QCOMPARE(m_log->texts(), QStringList());
    QVERIFY(reply);
    QCOMPARE(runningPaths(client), QStringList({"/active", "/pending"}));

    call(client, "removeReply", Q_ARG(QNetworkReply *, reply.data()));
    QCOMPARE(m_log->texts(QtWarningMsg), QStringList("Reply is removed erlier"));
    QCOMPARE(recorder.count("s_repliesCountChanged"), 1);

    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!reply);
    QVERIFY(server.waitForRequests(2));
    QCOMPARE(server.requests().last().path(), QByteArray("/pending"));
}

QTEST_GUILESS_MAIN(tst_TarvisNetQueue)

#include "tst_tarvisnet_queue.moc"
