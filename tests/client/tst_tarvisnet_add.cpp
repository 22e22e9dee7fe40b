#include "answers.h"
#include "fakereply.h"
#include "logcapture.h"
#include "queueaccess.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QJsonDocument>
#include <QtTest/QTest>

#include <functional>

using namespace queueaccess;

using Change = std::function<void(ReplyData &)>;

Q_DECLARE_METATYPE(Change)

namespace {

const char *const sourceFile = "../../source/appl/tarvisnet";

const QUrl someUrl("http://127.0.0.1:9/some?a=b");

QVariantList error(short code, const QUrl &url)
{
    return {QVariant::fromValue(code), url.toString(), QJsonDocument()};
}

} // namespace

class tst_TarvisNetAdd : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_log.reset(new LogCapture); }
    void cleanup() { m_log.reset(); }

    void refusesEqualRecord_data();
    void refusesEqualRecord();
    void acceptsDifferentRecord_data();
    void acceptsDifferentRecord();
    void acceptsAgainOnceStarted();
    void forcesEqualRecord();
    void reportsLockedQueue_data();
    void reportsLockedQueue();
    void logsItsOrigin();

private:
    QScopedPointer<LogCapture> m_log;
};

void tst_TarvisNetAdd::refusesEqualRecord_data()
{
    QTest::addColumn<int>("active");
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("after");
    QTest::newRow("alone") << 0 << 0 << 0;
    QTest::newRow("first of three") << 0 << 0 << 2;
    QTest::newRow("in the middle") << 0 << 1 << 1;
    QTest::newRow("last of three") << 0 << 2 << 0;
    QTest::newRow("beside active ones") << 2 << 1 << 0;
}

void tst_TarvisNetAdd::refusesEqualRecord()
{
    QFETCH(const int, active);
    QFETCH(const int, before);
    QFETCH(const int, after);
    ScriptedServer server;
    server.onRequest(answers::withhold());
    TarvisNet client;
    const auto addNumbered = [&](const char *path, int count) {
        for (int number = 0; number < count; ++number)
            add(client, getRecord(server.url(path + QString::number(number))));
    };
    addNumbered("/active", active);
    client.setStopProcess(true);
    addNumbered("/before", before);
    const QUrl url = server.url("/twice?a=b");
    add(client, getRecord(url));
    addNumbered("/after", after);

    SignalRecorder recorder(&client);
    m_log->clear();
    add(client, getRecord(url));
    QCOMPARE(recorder.names(), QStringList("s_errorChanged"));
    QCOMPARE(recorder.last("s_errorChanged"), error(-221, url));
    const QString text = QString("Contains request: \"%1\" active count: %2 added count: %3")
                             .arg(url.toString())
                             .arg(active)
                             .arg(before + 1 + after);
    QCOMPARE(m_log->texts(QtWarningMsg), QStringList(text));
    QCOMPARE(m_log->texts().size(), 1);
}

void tst_TarvisNetAdd::acceptsDifferentRecord_data()
{
    QTest::addColumn<Change>("change");
    const auto row = [](const char *name, const Change &change) { QTest::newRow(name) << change; };
    row("tag", [](ReplyData &record) { record.tag = 1; });
    row("kind", [](ReplyData &record) { record.replyType = replies::raw_get_file; });
    row("data", [](ReplyData &record) { record.data = "x"; });
    row("file", [](ReplyData &record) { record.fileData.filePath = "x"; });
    row("temporary file", [](ReplyData &record) { record.fileData.tempFilePath = "x"; });
    row("hash", [](ReplyData &record) { record.fileData.hash = "x"; });
    row("size", [](ReplyData &record) { record.fileData.size = 1; });
    row("resume offset", [](ReplyData &record) { record.fileData.resumeOffset = 1; });
    row("URL", [](ReplyData &record) { record.request.setUrl(QUrl("http://127.0.0.1:9/other")); });
    row("query", [](ReplyData &record) { record.request.setUrl(QUrl("http://127.0.0.1:9/some")); });
    row("header", [](ReplyData &record) { record.request.setRawHeader("X-More", "x"); });
    row("attribute",
        [](ReplyData &record) { record.request.setAttribute(QNetworkRequest::User, 1); });
    row("redirected reply", [](ReplyData &record) {
        static FakeReply reply;
        record.directReply = &reply;
    });
}

void tst_TarvisNetAdd::acceptsDifferentRecord()
{
    QFETCH(const Change, change);
    TarvisNet client;
    client.setStopProcess(true);
    ReplyData changed = getRecord(someUrl);
    change(changed);
    add(client, getRecord(someUrl));
    SignalRecorder recorder(&client);
    add(client, changed);
    QCOMPARE(recorder.names(), QStringList("s_repliesCountChanged"));
    // It was stored whole: now it is there, too.
    add(client, changed);
    QCOMPARE(recorder.names(), QStringList({"s_repliesCountChanged", "s_errorChanged"}));
}

void tst_TarvisNetAdd::acceptsAgainOnceStarted()
{
    ScriptedServer server;
    server.onRequest(answers::withhold());
    TarvisNet client;
    client.setParallelRequestsCount(1);
    SignalRecorder recorder(&client, {"s_errorChanged"});
    const ReplyData request = getRecord(server.url("/same"));
    add(client, request);
    add(client, request);
    QCOMPARE(recorder.count("s_errorChanged"), 0);
    add(client, request);
    QCOMPARE(recorder.count("s_errorChanged"), 1);

    call(client, "removeReply", Q_ARG(QNetworkReply *, running(client).first()));
    add(client, request);
    QCOMPARE(recorder.count("s_errorChanged"), 1);
}

void tst_TarvisNetAdd::forcesEqualRecord()
{
    ScriptedServer server;
    TarvisNet client;
    client.setStopProcess(true);
    SignalRecorder recorder(&client);
    add(client, getRecord(server.url("/same")));
    forceAdd(client, getRecord(server.url("/same")));
    forceAdd(client, getRecord(server.url("/same")));
    QCOMPARE(
        recorder.names(),
        QStringList({"s_repliesCountChanged", "s_repliesCountChanged", "s_repliesCountChanged"}));
    client.setStopProcess(false);
    for (int sent = 1; sent <= 3; ++sent) {
        call(client, "processReplies");
        QCOMPARE(running(client).size(), sent);
    }
}

void tst_TarvisNetAdd::reportsLockedQueue_data()
{
    QTest::addColumn<QByteArray>("operation");
    QTest::newRow("add") << QByteArray("addRequest");
    QTest::newRow("forced add") << QByteArray("forceAddRequest");
}

void tst_TarvisNetAdd::reportsLockedQueue()
{
    QFETCH(const QByteArray, operation);
    TarvisNet client;
    client.setStopProcess(true);
    SignalRecorder recorder(&client);
    {
        const LockedQueue locked(client, getRecord(QUrl("http://127.0.0.1:9/held")));
        recorder.clear();
        m_log->clear();
        call(client, operation, Q_ARG(ReplyData, getRecord(someUrl)));
        QCOMPARE(recorder.names(), QStringList("s_errorChanged"));
        QCOMPARE(recorder.last("s_errorChanged"), error(-219, someUrl));
        QCOMPARE(m_log->texts(QtWarningMsg), QStringList("Unable to lock mutex!"));
        QCOMPARE(m_log->texts().size(), 1);
    }
    // The request was dropped, so it is no duplicate.
    recorder.clear();
    add(client, getRecord(someUrl));
    QCOMPARE(recorder.names(), QStringList("s_repliesCountChanged"));
}

void tst_TarvisNetAdd::logsItsOrigin()
{
    TarvisNet client;
    client.setStopProcess(true);
    m_log->clear();
    add(client, getRecord(someUrl));
    add(client, getRecord(someUrl));
    call(client, "removeReply", Q_ARG(QNetworkReply *, nullptr));
    QCOMPARE(m_log->originFault(sourceFile), QString());
    const QList<LogEntry> entries = m_log->from(sourceFile);
    QCOMPARE(entries.size(), 2);
    QCOMPARE(entries.first().function, QByteArray("void TarvisNet::addRequest(const ReplyData&)"));
    QCOMPARE(entries.last().function, QByteArray("void TarvisNet::removeReply(QNetworkReply*)"));
}

QTEST_GUILESS_MAIN(tst_TarvisNetAdd)

#include "tst_tarvisnet_add.moc"
