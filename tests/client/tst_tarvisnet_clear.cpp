#include "answers.h"
#include "fakereply.h"
#include "logcapture.h"
#include "queueaccess.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QPointer>
#include <QtCore/QRegularExpression>
#include <QtTest/QTest>

using namespace queueaccess;

class tst_TarvisNetClear : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void killsReply();
    void killsActiveReply();
    void killsNothing();

    void clearsReplies();
    void clearsWithoutStarting();
    void clearsRedirectedReply();

private:
    QScopedPointer<LogCapture> m_log;
    QScopedPointer<ScriptedServer> m_server;
    QScopedPointer<TarvisNet> m_client;
};

void tst_TarvisNetClear::init()
{
    m_log.reset(new LogCapture);
    m_server.reset(new ScriptedServer);
    m_server->onRequest(answers::withhold());
    m_client.reset(new TarvisNet);
}

void tst_TarvisNetClear::cleanup()
{
    m_client.reset();
    m_server.reset();
    m_log.reset();
}

void tst_TarvisNetClear::killsReply()
{
    FakeReply reply(QUrl("http://127.0.0.1:9/a%20b?c=d"));
    SignalRecorder replyRecorder(&reply, {"finished"});
    SignalRecorder recorder(m_client.data());
    call(*m_client, "killReply", Q_ARG(QNetworkReply *, &reply));
    QCOMPARE(reply.abortCalls(), 1);
    QCOMPARE(recorder.names(), QStringList("s_aborted"));
    QCOMPARE(recorder.last("s_aborted"), QVariantList({reply.url().toString()}));
    QVERIFY(replyRecorder.calls().value(0).order < recorder.calls().value(0).order);
}

void tst_TarvisNetClear::killsActiveReply()
{
    m_client->rawGet(m_server->url("/file"));
    SignalRecorder recorder(m_client.data());
    call(*m_client, "killReply", Q_ARG(QNetworkReply *, running(*m_client).first()));
    QCOMPARE(recorder.names(), freedAndAborted);
    QCOMPARE(abortedUrls(recorder), urlTexts(*m_server, {"/file"}));
    QCOMPARE(runningPaths(*m_client), QStringList());
}

void tst_TarvisNetClear::killsNothing()
{
    SignalRecorder recorder(m_client.data());
    call(*m_client, "killReply", Q_ARG(QNetworkReply *, nullptr));
    QCOMPARE(recorder.names(), QStringList());
}

void tst_TarvisNetClear::clearsReplies()
{
    for (const char *path : {"/1", "/2", "/3"})
        m_client->rawGet(m_server->url(path));
    QStringList inTableOrder;
    for (const QNetworkReply *reply : running(*m_client))
        inTableOrder.append(reply->url().toString());

    SignalRecorder recorder(m_client.data());
    call(*m_client, "clearReplies");
    QCOMPARE(abortedUrls(recorder), inTableOrder);
    QCOMPARE(recorder.names(), freedAndAborted + freedAndAborted + freedAndAborted);
    QCOMPARE(runningPaths(*m_client), QStringList());

    call(*m_client, "clearReplies");
    QCOMPARE(recorder.count("s_aborted"), 3);
}

void tst_TarvisNetClear::clearsWithoutStarting()
{
    m_client->setParallelRequestsCount(2);
    for (const char *path : {"/1", "/2", "/3", "/4"})
        m_client->rawGet(m_server->url(path));
    QStringList started;
    QObject receiver;
    connect(m_client.data(), &TarvisNet::s_aborted, &receiver, [this, &started] {
        Q_EMIT m_client->s_repliesCountChanged();
        started += runningPaths(*m_client).filter(QRegularExpression("[34]"));
    });
    call(*m_client, "clearReplies");
    QCOMPARE(started, QStringList());
    QCOMPARE(runningPaths(*m_client), QStringList());

    Q_EMIT m_client->s_repliesCountChanged();
    QCOMPARE(runningPaths(*m_client), QStringList("/3"));
    Q_EMIT m_client->s_repliesCountChanged();
    QCOMPARE(runningPaths(*m_client), QStringList({"/3", "/4"}));
}

// A redirected reply is finished and still in the table: nothing but clearing takes it out.
void tst_TarvisNetClear::clearsRedirectedReply()
{
    m_server->on("/old", answers::redirect(302, m_server->url("/new").toEncoded()));
    m_client->rawGet(m_server->url("/old"));
    const QPointer<QNetworkReply> redirected = running(*m_client).first();
    QVERIFY(m_server->waitForRequests(2));

    SignalRecorder recorder(m_client.data());
    call(*m_client, "clearReplies");
    QStringList aborted = abortedUrls(recorder);
    aborted.sort();
    QCOMPARE(aborted, urlTexts(*m_server, {"/new", "/old"}));
    QCOMPARE(recorder.count("s_repliesCountChanged"), 1);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY2(redirected, "cleared replies are not deleted");

    call(*m_client, "removeReply", Q_ARG(QNetworkReply *, redirected.data()));
    QVERIFY(m_log->contains(QtWarningMsg, "Reply is removed erlier"));
}

QTEST_GUILESS_MAIN(tst_TarvisNetClear)

#include "tst_tarvisnet_clear.moc"
