#include "answers.h"
#include "files.h"
#include "processorbench.h"

#include <QtCore/QFileInfo>
#include <QtCore/QScopedPointer>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

using namespace processorbench;

class tst_NetworkProcessorFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_quiet.reset(new LogCapture); }
    void cleanupTestCase() { m_quiet.reset(); }
    void downloads_data();
    void downloads();
    void appendsEveryChunk();
    void stopsAtTheSize();
    void resumes();
    void statusClasses_data();
    void statusClasses();
    void noStatus();
    void reportsEveryChunkThatCannotBeSaved();
    void savesNothingWithoutARecord();
    void otherKindsWriteNoFile();
    void rawGetFile_data();
    void rawGetFile();

private:
    QScopedPointer<LogCapture> m_quiet;
};

namespace {

const auto http = ScriptedServer::Mode::Http;
const auto https = ScriptedServer::Mode::Https;
const QString openFailed = "<NetworkProcessor::saveBinary> Error opening file to write.";

// Null stands for no file; an empty array is an empty file.
QByteArray contentOf(const QString &path)
{
    if (!QFileInfo(path).isFile())
        return QByteArray();
    const QByteArray content = files::read(path);
    return content.isNull() ? QByteArray("") : content;
}

} // namespace

void tst_NetworkProcessorFiles::downloads_data()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<QByteArray>("after");

    const QByteArray body("0123456789");
    const auto add = [](const char *name, const QByteArray &before, quint64 size,
                        const QByteArray &after) {
        for (const auto mode : {http, https}) {
            for (const QLatin1String kind : {replies::remote_binary, replies::remote_installer})
                QTest::addRow("%s %s %d", name, kind.data(), int(mode))
                    << mode << QString(kind) << before << size << after;
        }
    };
    add("new file", QByteArray(), 10, body);
    add("empty file", "", 10, body);
    add("partial file", "abc", 13, "abc" + body);
    add("larger than announced", QByteArray(), 20, body);
    add("size reached within the chunk", QByteArray(), 5, body);
    add("one byte missing", "abcd", 5, "abcd" + body);
    // Compared as it is declared, without a sign.
    add("size beyond signed numbers", "abc", ~quint64(0), "abc" + body);
    add("complete", "abcdefghij", 10, "abcdefghij");
    add("beyond the size", "abcdefghijk", 10, "abcdefghijk");
    add("unknown size", QByteArray(), 0, "");
    add("unknown size of a partial file", "abc", 0, "abc");
}

void tst_NetworkProcessorFiles::downloads()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(QString, replyType);
    QFETCH(QByteArray, before);
    QFETCH(quint64, size);
    QFETCH(QByteArray, after);
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    if (!before.isNull())
        files::write(path, before);
    ScriptedServer server(mode);
    server.onRequest(answers::bytes("0123456789"));
    LogCapture log;
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(fileRecord(replyType, server.url(), path, size));
    QVERIFY(replies.waitUntilGone());

    QCOMPARE(outcomeNames(recorder), QStringList{"s_finished"});
    QCOMPARE(recorder.last("s_finished"), QVariantList{server.url().toString()});
    QCOMPARE(contentOf(path), after);
    QCOMPARE(contentOf(path).isNull(), false);
    QCOMPARE(QDir(directory.path()).entryList(QDir::Files), QStringList{"file"});
    QCOMPARE(texts(log, "replyReadyRead") + texts(log, "saveBinary"), QStringList());
}

void tst_NetworkProcessorFiles::appendsEveryChunk()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    const QByteArray body = HttpResponse::generated(0, 300000);
    ScriptedServer server;
    server.onRequest([body](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, body.size());
        response.dribble(body, 10000);
    });
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startPost(fileRecord(replies::remote_binary, server.url(), path, 300000), "body");
    QVERIFY(recorder.waitFor("s_finished"));

    QCOMPARE(files::read(path), body);
}

void tst_NetworkProcessorFiles::stopsAtTheSize()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    HttpResponse held;
    ScriptedServer server;
    server.onRequest([&held](const HttpRequest &, HttpResponse &response) {
        held = response;
        held.sendHead(200, {}, 8);
        held.write("01234");
    });
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(fileRecord(replies::remote_binary, server.url(), path, 5));
    QTRY_COMPARE(files::read(path), QByteArray("01234"));
    held.write("567");
    held.finish();
    QVERIFY(recorder.waitFor("s_finished"));

    QCOMPARE(files::read(path), QByteArray("01234"));
    QCOMPARE(outcomeNames(recorder), QStringList{"s_finished"});
    QCOMPARE(texts(log, "saveBinary"), QStringList());
}

// The caller asks for the rest; the processor only counts what was there.
void tst_NetworkProcessorFiles::resumes()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    files::write(path, "0123");
    ScriptedServer server;
    server.onRequest(answers::file("0123456789"));
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    ReplyData data = fileRecord(replies::remote_installer, server.url(), path, 10);
    data.fileData.resumeOffset = 4;
    data.request.setRawHeader("Range", "bytes=4-");

    processor.startGet(data);
    QVERIFY(recorder.waitFor("s_finished"));

    QCOMPARE(files::read(path), QByteArray("0123456789"));
    const QString url = server.url().toString();
    QCOMPARE(recorder.last("s_downloadFileBytesProgress"),
             (QVariantList{qlonglong(10), qlonglong(10), url}));
    QCOMPARE(recorder.last("s_downloadFileProgress"), (QVariantList{100.0, url}));
}

void tst_NetworkProcessorFiles::statusClasses_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<bool>("isSaved");
    QTest::addColumn<short>("code");

    const auto add = [](int status, const char *text, short code) {
        QStringList log;
        if (text)
            log.append(QString("<NetworkProcessor::replyReadyRead> %1:  %2").arg(text).arg(status));
        for (const QLatin1String kind : {replies::remote_binary, replies::remote_installer})
            QTest::addRow("%d %s", status, kind.data())
                << QString(kind) << status << log << !text << code;
    };
    const char *redirect = "Redircet attribuie";
    const char *client = "Client or network error";
    const char *server = "Server error";
    for (const int status : {200, 201, 206, 250, 299})
        add(status, nullptr, 0);
    for (const int status : {300, 306, 350, 399})
        add(status, redirect, 0);
    for (const int status : {400, 403, 410, 416, 499})
        add(status, client, -203);
    add(404, client, -217);
    for (const int status : {500, 503, 599, 600, 999})
        add(status, server, -203);
}

void tst_NetworkProcessorFiles::statusClasses()
{
    QFETCH(QString, replyType);
    QFETCH(int, status);
    QFETCH(QStringList, log);
    QFETCH(bool, isSaved);
    QFETCH(short, code);
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    ScriptedServer server;
    server.onRequest(answers::bytes("body", status));
    LogCapture capture;
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(fileRecord(replyType, server.url(), path, 4));
    QVERIFY(replies.waitUntilGone());

    QCOMPARE(texts(capture, "replyReadyRead"), log);
    QCOMPARE(contentOf(path), isSaved ? QByteArray("body") : QByteArray());
    QCOMPARE(QFileInfo::exists(path), isSaved);
    QCOMPARE(outcomeNames(recorder), QStringList{code ? "s_errorChanged" : "s_finished"});
    const QString url = server.url().toString();
    const QVariantList expected = code ? error(code, url) : QVariantList{url};
    QCOMPARE(outcomes(recorder).last().args, expected);
}

void tst_NetworkProcessorFiles::noStatus()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(fileRecord(replies::remote_binary, QUrl("data:text/plain,body"), path, 4));
    QVERIFY(recorder.waitFor("s_finished"));

    QVERIFY(!QFileInfo::exists(path));
    QCOMPARE(outcomeNames(recorder), QStringList{"s_finished"});
    QCOMPARE(texts(log, "replyReadyRead") + texts(log, "saveBinary"), QStringList());
}

void tst_NetworkProcessorFiles::reportsEveryChunkThatCannotBeSaved()
{
    // A directory cannot be opened as a file.
    const QTemporaryDir directory;
    HttpResponse held;
    ScriptedServer server;
    server.onRequest([&held](const HttpRequest &, HttpResponse &response) {
        held = response;
        held.sendHead(200, {}, 9);
        held.write("one");
    });
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(fileRecord(replies::remote_binary, server.url(), directory.path(), 9));
    QVERIFY(recorder.waitFor("s_errorChanged", 1));
    held.write("two");
    QVERIFY(recorder.waitFor("s_errorChanged", 2));
    held.write("six");
    held.finish();
    QVERIFY(recorder.waitFor("s_finished"));

    const QVariantList failure = error(-210, server.url().toString());
    QCOMPARE(recorder.of("s_errorChanged"), (QList<QVariantList>{failure, failure, failure}));
    QCOMPARE(outcomeNames(recorder).last(), QString("s_finished"));
    QCOMPARE(texts(log, "saveBinary"), (QStringList{openFailed, openFailed, openFailed}));
    QCOMPARE(texts(log, QString(), QtWarningMsg), QStringList());
}

void tst_NetworkProcessorFiles::savesNothingWithoutARecord()
{
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    FakeReply reply;
    reply.appendBody("bytes");
    LogCapture log;

    QVERIFY(QMetaObject::invokeMethod(&processor, "saveBinary", Qt::DirectConnection,
                                      Q_ARG(QNetworkReply *, &reply)));

    QCOMPARE(texts(log), QStringList{"<NetworkProcessor::saveBinary> Unrecognized reply"});
    QCOMPARE(reply.bytesAvailable(), 5);
    QCOMPARE(recorder.names(), QStringList());
}

void tst_NetworkProcessorFiles::otherKindsWriteNoFile()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    ScriptedServer server;
    server.onRequest(answers::json({}));
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    for (const QLatin1String kind : {replies::raw_get, replies::remote_index,
                                     replies::remote_installer_log, replies::raw_post_file})
        processor.startGet(fileRecord(kind, server.url(), path, 100));
    processor.startGet(fileRecord(replies::remote_binary, server.url(), QString(), 100));
    for (const char *signal : {"s_rawGet", "s_fetchIndex", "s_fetchInstallerChangeLogData",
                               "s_errorChanged", "s_finished"})
        QVERIFY2(recorder.waitFor(signal), signal);

    QCOMPARE(recorder.of("s_errorChanged").size(), 1);
    QVERIFY(!QFileInfo::exists(path));
}

void tst_NetworkProcessorFiles::rawGetFile_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("after");
    QTest::addColumn<QString>("place");
    QTest::addColumn<bool>("fails");

    const QByteArray none;
    const QByteArray large = HttpResponse::generated(0, 300000);
    QTest::newRow("new file") << none << QByteArray("body") << QByteArray("body") << "file"
                              << false;
    QTest::newRow("same length") << QByteArray("aged") << QByteArray("body") << QByteArray("body")
                                 << "file" << false;
    QTest::newRow("shorter file") << QByteArray("a") << QByteArray("body") << QByteArray("body")
                                  << "file" << false;
    QTest::newRow("longer file keeps its tail") << QByteArray("old and long") << QByteArray("body")
                                                << QByteArray("bodyand long") << "file" << false;
    QTest::newRow("large") << none << large << large << "file" << false;
    QTest::newRow("empty body") << none << QByteArray() << none << "file" << false;
    QTest::newRow("empty body, old file")
        << QByteArray("old") << QByteArray() << QByteArray("old") << "file" << false;
    QTest::newRow("no directory") << none << QByteArray("body") << none << "missing/file" << true;
    QTest::newRow("directory") << none << QByteArray("body") << none << "." << true;
    QTest::newRow("empty body, no directory")
        << none << QByteArray() << none << "missing/file" << false;
}

void tst_NetworkProcessorFiles::rawGetFile()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, after);
    QFETCH(QString, place);
    QFETCH(bool, fails);
    const QTemporaryDir directory;
    const QString path = directory.filePath(place);
    if (!before.isNull())
        files::write(path, before);
    ScriptedServer server;
    server.onRequest(answers::bytes(body));
    LogCapture log;
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);

    processor.startGet(fileRecord(replies::raw_get_file, server.url(), path));
    QVERIFY(replies.waitUntilGone());

    QCOMPARE(outcomeNames(recorder), QStringList{"s_rawGetFileFinished"});
    QCOMPARE(recorder.last("s_rawGetFileFinished"), QVariantList{server.url().toString()});
    QCOMPARE(contentOf(path), after);
    QCOMPARE(contentOf(path).isNull(), after.isNull());
    QStringList expected{"<TarvisNet::handleReply> Raw file get finished"};
    if (fails)
        expected.prepend("<TarvisNet::handleReply> Error opening file to save.");
    QCOMPARE(texts(log, "handleReply"), expected);
}

QTEST_GUILESS_MAIN(tst_NetworkProcessorFiles)
#include "tst_networkprocessor_files.moc"
