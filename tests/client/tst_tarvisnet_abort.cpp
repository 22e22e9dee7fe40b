#include "answers.h"
#include "logcapture.h"
#include "queueaccess.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QVector>
#include <QtTest/QTest>

using namespace queueaccess;

class tst_TarvisNetAbort : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void abortsPath_data();
    void abortsPath();
    void dropsPendingPath_data();
    void dropsPendingPath();
    void dropsEveryPendingRequestOfPath();
    void abortsFirstRunningReply_data();
    void abortsFirstRunningReply();
    void abortsFirstReplyOfPath();
    void skipsRepliesThatDoNotRun();
    void startsNextRequest();
    void stopsProbeFirst_data();
    void stopsProbeFirst();
    void abortsThoughQueueIsLocked();

    void abortsList();
    void abortsNothing();
    void clearsStopFlag();
    void startsOneRequestAfterList();
    void dropsLongLists();

private:
    QScopedPointer<LogCapture> m_log;
    QScopedPointer<ScriptedServer> m_server;
    QScopedPointer<TarvisNet> m_client;
};

void tst_TarvisNetAbort::init()
{
    m_log.reset(new LogCapture);
    m_server.reset(new ScriptedServer);
    m_server->onRequest(answers::withhold());
    m_client.reset(new TarvisNet);
}

void tst_TarvisNetAbort::cleanup()
{
    m_client.reset();
    m_server.reset();
    m_log.reset();
}

namespace {

/// The path that an operation is given beside the path in a URL, and whether they are the same.
void addPathRows()
{
    QTest::addColumn<QString>("pathAndQuery");
    QTest::addColumn<QString>("argument");
    QTest::addColumn<bool>("matches");
    QTest::newRow("same") << "/dir/file"
                          << "/dir/file" << true;
    QTest::newRow("other") << "/file"
                           << "/elif" << false;
    QTest::newRow("beginning") << "/dir/file"
                               << "/dir" << false;
    QTest::newRow("end") << "/dir/file"
                         << "/file" << false;
    QTest::newRow("other case") << "/file"
                                << "/File" << false;
    QTest::newRow("beside a query") << "/file?a=b"
                                    << "/file" << true;
    QTest::newRow("with the query") << "/file?a=b"
                                    << "/file?a=b" << false;
    QTest::newRow("blank") << "/my%20file"
                           << "/my file" << true;
    QTest::newRow("encoded blank") << "/my%20file"
                                   << "/my%20file" << false;
    QTest::newRow("letter") << "/%C3%BCber"
                            << QString::fromUtf8("/\xC3\xBC"
                                                 "ber")
                            << true;
    QTest::newRow("slash") << "/dir%2Ffile"
                           << "/dir/file" << true;
    QTest::newRow("percent sign") << "/100%25"
                                  << "/100%" << true;
}

} // namespace

void tst_TarvisNetAbort::abortsPath_data()
{
    addPathRows();
    QTest::newRow("any") << "/file"
                         << "" << true;
}

void tst_TarvisNetAbort::abortsPath()
{
    QFETCH(const QString, pathAndQuery);
    QFETCH(const QString, argument);
    QFETCH(const bool, matches);
    m_client->rawGet(m_server->url(pathAndQuery));
    SignalRecorder recorder(m_client.data());
    m_client->abortDownload(argument);
    QCOMPARE(recorder.names(), matches ? freedAndAborted : QStringList());
    QCOMPARE(abortedUrls(recorder), matches ? urlTexts(*m_server, {pathAndQuery}) : QStringList());
    QCOMPARE(running(*m_client).size(), matches ? 0 : 1);
}

void tst_TarvisNetAbort::dropsPendingPath_data()
{
    addPathRows();
    QTest::newRow("no path") << ""
                             << "" << true;
    QTest::newRow("root") << "/"
                          << "" << false;
    QTest::newRow("any path") << "/file"
                              << "" << false;
}

void tst_TarvisNetAbort::dropsPendingPath()
{
    QFETCH(const QString, pathAndQuery);
    QFETCH(const QString, argument);
    QFETCH(const bool, matches);
    m_client->setStopProcess(true);
    const ReplyData pending = getRecord(m_server->url(pathAndQuery));
    add(*m_client, pending);
    SignalRecorder recorder(m_client.data());
    m_client->abortDownload(argument);
    QCOMPARE(recorder.names(), QStringList());
    // What is still there is a duplicate.
    add(*m_client, pending);
    QCOMPARE(recorder.names(), QStringList(matches ? "s_repliesCountChanged" : "s_errorChanged"));
}

void tst_TarvisNetAbort::dropsEveryPendingRequestOfPath()
{
    m_client->setStopProcess(true);
    for (const char *path : {"/file?1", "/1", "/file?2", "/2", "/file?3"})
        m_client->rawGet(m_server->url(path));
    m_client->forceRawGet(m_server->url("/file?3"));
    m_client->abortDownload("/file");
    m_client->setStopProcess(false);
    for (int call = 0; call < 5; ++call)
        Q_EMIT m_client->s_repliesCountChanged();
    QCOMPARE(runningPaths(*m_client), QStringList({"/1", "/2"}));
}

void tst_TarvisNetAbort::abortsFirstRunningReply_data()
{
    QTest::addColumn<bool>("withArgument");
    QTest::newRow("without argument") << false;
    QTest::newRow("with an empty one") << true;
}

void tst_TarvisNetAbort::abortsFirstRunningReply()
{
    QFETCH(const bool, withArgument);
    for (const char *path : {"/1", "/2", "/3"})
        m_client->rawGet(m_server->url(path));
    QList<QNetworkReply *> replies = running(*m_client);
    const QString first = replies.takeFirst()->url().toString();
    SignalRecorder recorder(m_client.data());
    if (withArgument)
        m_client->abortDownload(QString());
    else
        m_client->abortDownload();
    QCOMPARE(recorder.names(), freedAndAborted);
    QCOMPARE(abortedUrls(recorder), QStringList(first));
    QCOMPARE(running(*m_client), replies);
}

void tst_TarvisNetAbort::abortsFirstReplyOfPath()
{
    for (const char *path : {"/file?1", "/other", "/file?2"})
        m_client->rawGet(m_server->url(path));
    QString expected;
    for (const QNetworkReply *reply : running(*m_client)) {
        if (expected.isEmpty() && reply->url().path() == "/file")
            expected = reply->url().toString();
    }
    SignalRecorder recorder(m_client.data());
    m_client->abortDownload("/file");
    QCOMPARE(abortedUrls(recorder), QStringList(expected));
    QCOMPARE(runningPaths(*m_client), QStringList({"/file", "/other"}));
}

void tst_TarvisNetAbort::skipsRepliesThatDoNotRun()
{
    m_server->on("/old", answers::redirect(302, m_server->url("/new").toEncoded()));
    m_client->rawGet(m_server->url("/old"));
    QVERIFY(m_server->waitForRequests(2));
    SignalRecorder recorder(m_client.data());
    m_client->abortDownload("/old");
    QCOMPARE(recorder.names(), QStringList());
    m_client->abortDownload();
    QCOMPARE(abortedUrls(recorder), urlTexts(*m_server, {"/new"}));
}

void tst_TarvisNetAbort::startsNextRequest()
{
    m_client->setParallelRequestsCount(1);
    for (const char *path : {"/file?1", "/file?2", "/next", "/last"})
        m_client->rawGet(m_server->url(path));
    QVERIFY(m_server->waitForRequests(1));
    m_client->abortDownload("/file");
    QCOMPARE(runningPaths(*m_client), QStringList("/next"));
    QVERIFY(m_server->waitForRequests(2));
    QCOMPARE(m_server->requests().last().path(), QByteArray("/next"));
}

void tst_TarvisNetAbort::stopsProbeFirst_data()
{
    QTest::addColumn<bool>("asList");
    QTest::addColumn<QStringList>("names");
    const QStringList ended = {"s_repliesCountChanged", "s_stopPing", "s_aborted"};
    QTest::newRow("one") << false << ended;
    QTest::newRow("list") << true
                          << QStringList("s_stopProcessChanged") + ended
            + QStringList("s_stopProcessChanged");
}

void tst_TarvisNetAbort::stopsProbeFirst()
{
    QFETCH(const bool, asList);
    m_client->fetchBinary(m_server->url("/file"), "nowhere", 1000);
    QVERIFY(m_server->waitForRequests(1));
    SignalRecorder recorder(m_client.data());
    m_log->clear();
    if (asList)
        m_client->abortDownload(QStringList("/file"));
    else
        m_client->abortDownload("/file");
    QTEST(recorder.names(), "names");
    // Aborting finished the reply, and so took it out of the table before its removal.
    QCOMPARE(m_log->count(QtWarningMsg, "Reply is removed erlier"), 1);
    QCOMPARE(m_log->count(QtDebugMsg, "Ping stop"), 1);
    QVERIFY(m_server->waitForConnections(0));
}

void tst_TarvisNetAbort::abortsThoughQueueIsLocked()
{
    m_client->rawGet(m_server->url("/file?active"));
    m_client->setStopProcess(true);
    SignalRecorder recorder(m_client.data());
    const ReplyData pending = getRecord(m_server->url("/file?pending"));
    {
        const LockedQueue locked(*m_client, pending);
        recorder.clear();
        m_log->clear();
        m_client->abortDownload("/file");
        QCOMPARE(recorder.names(), QStringList("s_errorChanged") + freedAndAborted);
        QCOMPARE(recorder.last("s_errorChanged"),
                 QVariantList({QVariant::fromValue(short(-219)), "/file", QJsonDocument()}));
        QCOMPARE(m_log->texts(QtWarningMsg).value(0), "Unable to lock mutex!");
        QCOMPARE(m_log->count(QtWarningMsg, "Unable to lock mutex!"), 1);
    }
    recorder.clear();
    add(*m_client, pending);
    QCOMPARE(recorder.names(), QStringList("s_errorChanged"));
}

void tst_TarvisNetAbort::abortsList()
{
    m_client->setParallelRequestsCount(3);
    for (const char *path : {"/1", "/2", "/3", "/4", "/5", "/6"})
        m_client->rawGet(m_server->url(path));
    QVector<bool> flags;
    QObject receiver;
    connect(m_client.data(), &TarvisNet::s_stopProcessChanged, &receiver,
            [this, &flags] { flags.append(m_client->isStopProcess()); });
    SignalRecorder recorder(m_client.data());
    m_client->abortDownload(QStringList({"/3", "/unknown", "/4", "/1"}));

    const QStringList flag("s_stopProcessChanged");
    QCOMPARE(recorder.names(), flag + freedAndAborted + freedAndAborted + flag);
    QCOMPARE(flags, QVector<bool>({true, false}));
    QCOMPARE(abortedUrls(recorder), urlTexts(*m_server, {"/3", "/1"}));
    // Two places are free, and one request starts at the end; "/4" is gone.
    QCOMPARE(runningPaths(*m_client), QStringList({"/2", "/5"}));
    Q_EMIT m_client->s_repliesCountChanged();
    QCOMPARE(runningPaths(*m_client), QStringList({"/2", "/5", "/6"}));
}

void tst_TarvisNetAbort::abortsNothing()
{
    m_client->rawGet(m_server->url("/file"));
    SignalRecorder recorder(m_client.data());
    m_client->abortDownload(QStringList());
    QCOMPARE(recorder.names(), QStringList({"s_stopProcessChanged", "s_stopProcessChanged"}));
    QCOMPARE(runningPaths(*m_client), QStringList("/file"));
}

void tst_TarvisNetAbort::clearsStopFlag()
{
    m_client->setStopProcess(true);
    SignalRecorder recorder(m_client.data());
    m_client->abortDownload(QStringList("/file"));
    QVERIFY(!m_client->isStopProcess());
    QCOMPARE(recorder.names(), QStringList("s_stopProcessChanged"));
}

void tst_TarvisNetAbort::startsOneRequestAfterList()
{
    m_client->setStopProcess(true);
    for (const char *path : {"/1", "/2", "/3"})
        m_client->rawGet(m_server->url(path));
    m_client->abortDownload(QStringList("/1"));
    QCOMPARE(runningPaths(*m_client), QStringList("/2"));
}

void tst_TarvisNetAbort::dropsLongLists()
{
    const int count = 100000;
    QStringList paths;
    paths.reserve(count);
    int added = 0;
    QObject receiver;
    connect(m_client.data(), &TarvisNet::s_repliesCountChanged, &receiver, [&added] { ++added; });
    m_client->setStopProcess(true);
    for (int number = 0; number < count; ++number) {
        paths.append("/" + QString::number(number));
        m_client->rawGet(m_server->url(paths.last()));
    }
    m_client->rawGet(m_server->url("/kept"));
    QCOMPARE(added, count + 1);

    SignalRecorder recorder(m_client.data(), {"s_aborted", "s_errorChanged"});
    m_client->abortDownload(paths);
    QCOMPARE(runningPaths(*m_client), QStringList("/kept"));
    Q_EMIT m_client->s_repliesCountChanged();
    QCOMPARE(runningPaths(*m_client), QStringList("/kept"));
    QCOMPARE(recorder.names(), QStringList());
}

QTEST_GUILESS_MAIN(tst_TarvisNetAbort)

#include "tst_tarvisnet_abort.moc"
