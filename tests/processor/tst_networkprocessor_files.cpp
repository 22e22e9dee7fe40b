#include "files.h"
#include "operations.h"
#include "processorbench.h"
#include "testclass.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace tst_networkprocessor_files {

using namespace processorbench;

/// What goes to disk while it arrives, and the file of a finished request.
class tst_NetworkProcessorFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
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
    void boundsFilesOnly_data();
    void boundsFilesOnly();
    void rawGetFile_data();
    void rawGetFile();
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

// Keeps an answer of \a length bytes after its beginning.
ScriptedServer::Handler holding(HttpResponse &held, qint64 length, const QByteArray &beginning)
{
    return [&held, length, beginning](const HttpRequest &, HttpResponse &response) {
        held = response;
        held.sendHead(200, {}, length);
        held.write(beginning);
    };
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
    ProcessorBench bench(mode);
    if (!before.isNull())
        files::write(bench.path(), before);
    bench.server.onRequest(answers::bytes("0123456789"));

    QVERIFY(bench.run(fileRecord(replyType, bench.server.url(), bench.path(), size)));

    QCOMPARE(bench.outcomes(), Emissions{emission("s_finished", bench.url())});
    QCOMPARE(contentOf(bench.path()), after);
    QCOMPARE(contentOf(bench.path()).isNull(), false);
    QCOMPARE(QDir(bench.directory.path()).entryList(QDir::Files), QStringList{"file"});
    QCOMPARE(bench.texts("replyReadyRead") + bench.texts("saveBinary"), QStringList());
}

void tst_NetworkProcessorFiles::appendsEveryChunk()
{
    ProcessorBench bench;
    const QByteArray body = HttpResponse::generated(0, 300000);
    bench.server.onRequest([body](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, body.size());
        response.dribble(body, 10000);
    });

    QVERIFY(bench.run(fileRecord(replies::remote_binary, bench.server.url(), bench.path(), 300000),
                      true));

    QCOMPARE(files::read(bench.path()), body);
}

void tst_NetworkProcessorFiles::stopsAtTheSize()
{
    ProcessorBench bench;
    HttpResponse held;
    bench.server.onRequest(holding(held, 8, "01234"));

    bench.start(fileRecord(replies::remote_binary, bench.server.url(), bench.path(), 5));
    QTRY_COMPARE(files::read(bench.path()), QByteArray("01234"));
    held.write("567");
    held.finish();
    QVERIFY(bench.recorder.waitFor("s_finished"));

    QCOMPARE(files::read(bench.path()), QByteArray("01234"));
    QCOMPARE(bench.outcomes(), Emissions{emission("s_finished", bench.url())});
    QCOMPARE(bench.texts("saveBinary"), QStringList());
}

// The caller asks for the rest; the processor only counts what was there.
void tst_NetworkProcessorFiles::resumes()
{
    ProcessorBench bench;
    files::write(bench.path(), "0123");
    bench.server.onRequest(answers::file("0123456789"));
    ReplyData data = fileRecord(replies::remote_installer, bench.server.url(), bench.path(), 10);
    data.fileData.resumeOffset = 4;
    data.request.setRawHeader("Range", "bytes=4-");

    QVERIFY(bench.run(data));

    QCOMPARE(files::read(bench.path()), QByteArray("0123456789"));
    QCOMPARE(bench.recorder.last("s_downloadFileBytesProgress"),
             (QVariantList{qlonglong(10), qlonglong(10), bench.url()}));
    QCOMPARE(bench.recorder.last("s_downloadFileProgress"), (QVariantList{100.0, bench.url()}));
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
    ProcessorBench bench;
    bench.server.onRequest(answers::bytes("body", status));

    QVERIFY(bench.run(fileRecord(replyType, bench.server.url(), bench.path(), 4)));

    QCOMPARE(bench.texts("replyReadyRead"), log);
    QCOMPARE(contentOf(bench.path()), isSaved ? QByteArray("body") : QByteArray());
    QCOMPARE(QFileInfo::exists(bench.path()), isSaved);
    QCOMPARE(bench.outcomes(),
             Emissions{code ? failure(code, bench.url()) : emission("s_finished", bench.url())});
}

void tst_NetworkProcessorFiles::noStatus()
{
    ProcessorBench bench;
    const QUrl url("data:text/plain,body");

    bench.start(fileRecord(replies::remote_binary, url, bench.path(), 4));
    QVERIFY(bench.recorder.waitFor("s_finished"));

    QVERIFY(!QFileInfo::exists(bench.path()));
    QCOMPARE(bench.outcomes(), Emissions{emission("s_finished", url.toString())});
    QCOMPARE(bench.texts("replyReadyRead") + bench.texts("saveBinary"), QStringList());
}

void tst_NetworkProcessorFiles::reportsEveryChunkThatCannotBeSaved()
{
    ProcessorBench bench;
    HttpResponse held;
    bench.server.onRequest(holding(held, 9, "one"));

    // A directory cannot be opened as a file.
    bench.start(fileRecord(replies::remote_binary, bench.server.url(), bench.path("."), 9));
    QVERIFY(bench.recorder.waitFor("s_errorChanged", 1));
    held.write("two");
    QVERIFY(bench.recorder.waitFor("s_errorChanged", 2));
    held.write("six");
    held.finish();
    QVERIFY(bench.recorder.waitFor("s_finished"));

    const QVariantList failed = failure(-210, bench.url());
    QCOMPARE(bench.outcomes(),
             (Emissions{failed, failed, failed, emission("s_finished", bench.url())}));
    QCOMPARE(bench.texts("saveBinary"), (QStringList{openFailed, openFailed, openFailed}));
    QCOMPARE(bench.warnings(), QStringList());
}

void tst_NetworkProcessorFiles::savesNothingWithoutARecord()
{
    ProcessorBench bench;
    FakeReply reply;
    reply.appendBody("bytes");

    bench.call("saveBinary", Q_ARG(QNetworkReply *, &reply));

    QCOMPARE(bench.texts(), QStringList{"<NetworkProcessor::saveBinary> Unrecognized reply"});
    QCOMPARE(reply.bytesAvailable(), 5);
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_NetworkProcessorFiles::otherKindsWriteNoFile()
{
    ProcessorBench bench;
    bench.server.onRequest(answers::json({}));

    for (const QLatin1String kind : {replies::raw_get, replies::remote_index,
                                     replies::remote_installer_log, replies::raw_post_file})
        bench.start(fileRecord(kind, bench.server.url(), bench.path(), 100));
    bench.start(fileRecord(replies::remote_binary, bench.server.url(), QString(), 100));
    for (const char *signal : {"s_rawGet", "s_fetchIndex", "s_fetchInstallerChangeLogData",
                               "s_errorChanged", "s_finished"})
        QVERIFY2(bench.recorder.waitFor(signal), signal);

    QCOMPARE(bench.recorder.count("s_errorChanged"), 1);
    QVERIFY(!QFileInfo::exists(bench.path()));
}

void tst_NetworkProcessorFiles::boundsFilesOnly_data()
{
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : requestkinds::all())
        QTest::newRow(kind.name) << kind;
}

// Other answers are held in memory anyway.
void tst_NetworkProcessorFiles::boundsFilesOnly()
{
    QFETCH(const RequestKind, kind);
    ProcessorBench bench;
    bench.server.onRequest(answers::withhold());
    constexpr quint64 large = 20 * 1024 * 1024;
    bench.start(fileRecord(kind.name, bench.server.url(), bench.path(), large));
    QVERIFY(bench.replies.waitFor());
    QCOMPARE(bench.replies.at()->readBufferSize() > 0, kind.isFile());
}

void tst_NetworkProcessorFiles::rawGetFile_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("after");
    QTest::addColumn<QString>("place");
    QTest::addColumn<bool>("fails");
    const auto add = [](const char *name, const QByteArray &before, const QByteArray &body,
                        const QByteArray &after, const char *place = "file", bool fails = false) {
        QTest::newRow(name) << before << body << after << QString(place) << fails;
    };

    const QByteArray none;
    const QByteArray large = HttpResponse::generated(0, 300000);
    add("new file", none, "body", "body");
    add("same length", "aged", "body", "body");
    add("shorter file", "a", "body", "body");
    add("longer file keeps its tail", "old and long", "body", "bodyand long");
    add("large", none, large, large);
    add("empty body", none, none, none);
    add("empty body, old file", "old", none, "old");
    add("no directory", none, "body", none, "missing/file", true);
    add("directory", none, "body", none, ".", true);
    add("empty body, no directory", none, none, none, "missing/file");
}

void tst_NetworkProcessorFiles::rawGetFile()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, after);
    QFETCH(QString, place);
    QFETCH(bool, fails);
    ProcessorBench bench;
    const QString path = bench.path(place);
    if (!before.isNull())
        files::write(path, before);
    bench.server.onRequest(answers::bytes(body));

    QVERIFY(bench.run(fileRecord(replies::raw_get_file, bench.server.url(), path)));

    QCOMPARE(bench.outcomes(), Emissions{emission("s_rawGetFileFinished", bench.url())});
    QCOMPARE(contentOf(path), after);
    QCOMPARE(contentOf(path).isNull(), after.isNull());
    QStringList expected{"<TarvisNet::handleReply> Raw file get finished"};
    if (fails)
        expected.prepend("<TarvisNet::handleReply> Error opening file to save.");
    QCOMPARE(bench.texts("handleReply"), expected);
}

const TestClass<tst_NetworkProcessorFiles> testClass("tst_networkprocessor_files");

} // namespace tst_networkprocessor_files

#include "tst_networkprocessor_files.moc"
