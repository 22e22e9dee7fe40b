#include "clientbench.h"
#include "fakereply.h"
#include "testclass.h"

#include <QtCore/QJsonDocument>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <limits>

Q_DECLARE_METATYPE(QList<QNetworkReply::RawHeaderPair>)

namespace tst_tarvisnet_progress {

using namespace clientaccess;

namespace {

const char bytesProgress[] = "s_downloadFileBytesProgress";
const char fileProgress[] = "s_downloadFileProgress";
const char uploadProgress[] = "s_uploadFileProgress";
const QUrl strangeUrl("http://127.0.0.1/unknown?a=1");

QString uploadLine(qlonglong sent, qlonglong total)
{
    return line({"debug: UploadProgress ", " received: ", QString::number(sent),
                 " total: ", QString::number(total), " complete: ", "0", " % "});
}

/// QCOMPARE takes doubles for equal that differ a little; here every bit counts.
bool isExactly(const QVariant &value, double expected)
{
    return value.userType() == QMetaType::Double && !(value.toDouble() < expected)
        && !(value.toDouble() > expected);
}

} // namespace

/// The progress that a client tells of, and the headers that it can show.
class tst_TarvisNetProgress : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void tellsDownloads_data();
    void tellsDownloads();
    void tellsWithoutRecord_data();
    void tellsWithoutRecord();
    void tellsDownloadsToASingleListener_data();
    void tellsDownloadsToASingleListener();
    void tellsDownloadsOfAServer();
    void tellsUploads_data();
    void tellsUploads();
    void tellsUploadsToAServer();
    void showsHeaders_data();
    void showsHeaders();
};

void tst_TarvisNetProgress::tellsDownloads_data()
{
    QTest::addColumn<qlonglong>("size");
    QTest::addColumn<qlonglong>("loaded");
    QTest::addColumn<qlonglong>("received");
    QTest::addColumn<qlonglong>("total");
    QTest::addColumn<qlonglong>("bytes");
    QTest::addColumn<double>("percentage");

    struct Row {
        const char *name;
        qlonglong size, loaded, received, total, bytes;
        double percentage;
    };
    // Negative bytes stand for no emission. The odd percentages are what single precision gives.
    const Row rows[] = {
        {"a resumed download", 1000, 400, 100, 600, 500, 50.0},
        {"a fresh download", 1000, 0, 1000, 1000, 1000, 100.0},
        {"the server's total does not count beside a size", 1000, 0, 500, 7, 500, 50.0},
        {"the server's total may be unknown beside a size", 1000, 0, 500, -1, 500, 50.0},
        {"more than the size", 1000, 900, 600, 600, 1500, 150.0},
        {"one third", 3, 0, 1, 3, 1, 33.333335876464844},
        // As an unsigned number, which it is, twice the bytes.
        {"a size beyond signed numbers", std::numeric_limits<qlonglong>::min(), 0, 1LL << 62, -1,
         1LL << 62, 50.0},
        {"two thirds", 3, 1, 1, 2, 2, 66.666671752929688},
        {"seven ninths", 9, 0, 7, 9, 7, 77.777778625488281},
        {"nearly all rounds to all", 1000000000, 0, 999999999, 1000000000, 999999999, 100.0},
        {"more than 32 bits", 10737418240, 5000000000, 368709121, -1, 5368709121, 50.0},
        {"no size", 0, 0, 50, 200, 50, 25.0},
        {"no size, one third", 0, 0, 1, 3, 1, 33.333335876464844},
        {"no size, but bytes of an earlier download", 0, 400, 50, 200, 450, 25.0},
        {"no size and no total", 0, 0, 50, 0, 50, 0.0},
        {"no size and an unknown total", 0, 0, 50, -1, 50, 0.0},
        {"nothing received", 1000, 400, 0, 1000, -1, 0.0},
        {"nothing received of nothing", 0, 0, 0, 0, -1, 0.0},
        {"less than nothing received", 1000, 400, -1, 1000, -1, 0.0},
    };
    for (const Row &row : rows) {
        QTest::newRow(row.name) << row.size << row.loaded << row.received << row.total << row.bytes
                                << row.percentage;
    }
}

void tst_TarvisNetProgress::tellsDownloads()
{
    QFETCH(qlonglong, size);
    QFETCH(qlonglong, loaded);
    QFETCH(qlonglong, received);
    QFETCH(qlonglong, total);
    QFETCH(qlonglong, bytes);
    QFETCH(double, percentage);

    WaitingBench bench;
    FileData file;
    file.size = quint64(size);
    file.resumeOffset = loaded;
    const QUrl url = bench.server.url("/file?a=1");
    QNetworkReply *reply = bench.start(record("rawGet", url, file));
    bench.recorder.clear();
    Q_EMIT reply->downloadProgress(received, total);

    QCOMPARE(bench.messages(), QStringList());
    if (bytes < 0) {
        QCOMPARE(bench.recorder.names(), QStringList());
        return;
    }
    QCOMPARE(bench.recorder.names(), QStringList({bytesProgress, fileProgress}));
    QCOMPARE(bench.recorder.last(bytesProgress), QVariantList({bytes, size, url.toString()}));
    QVERIFY(isExactly(bench.recorder.last(fileProgress).at(0), percentage));
    QCOMPARE(bench.recorder.last(fileProgress).at(1).toString(), url.toString());
}

void tst_TarvisNetProgress::tellsWithoutRecord_data()
{
    QTest::addColumn<bool>("hasSender");
    QTest::addColumn<QString>("url");
    QTest::newRow("unknown reply") << true << strangeUrl.toString();
    QTest::newRow("no sender") << false << QString();
}

void tst_TarvisNetProgress::tellsWithoutRecord()
{
    QFETCH(const bool, hasSender);
    QFETCH(const QString, url);

    ClientBench bench;
    FakeReply reply(strangeUrl);
    bench.follow(reply);
    if (hasSender) {
        Q_EMIT reply.downloadProgress(50, 200);
        Q_EMIT reply.uploadProgress(50, 200);
    } else {
        bench.call("replyDownloadProgress", Q_ARG(qlonglong, 50), Q_ARG(qlonglong, 200));
        bench.call("replyUploadProgress", Q_ARG(qlonglong, 50), Q_ARG(qlonglong, 200));
    }
    QCOMPARE(bench.recorder.names(), QStringList({bytesProgress, fileProgress, uploadProgress}));
    QCOMPARE(bench.recorder.last(bytesProgress), QVariantList({50LL, 0LL, url}));
    QCOMPARE(bench.recorder.last(fileProgress), QVariantList({25.0, url}));
    QCOMPARE(bench.recorder.last(uploadProgress), QVariantList({25.0, url}));
    QCOMPARE(bench.messages(), QStringList(uploadLine(50, 200)));
}

void tst_TarvisNetProgress::tellsDownloadsToASingleListener_data()
{
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<QVariantList>("arguments");
    const QString url = strangeUrl.toString();
    QTest::newRow("bytes") << QByteArray(
        SIGNAL(s_downloadFileBytesProgress(qlonglong, qlonglong, QString)))
                           << QVariantList{1LL, 0LL, url};
    QTest::newRow("percentage") << QByteArray(SIGNAL(s_downloadFileProgress(double, QString)))
                                << QVariantList{25.0, url};
}

void tst_TarvisNetProgress::tellsDownloadsToASingleListener()
{
    QFETCH(QByteArray, signal);
    QFETCH(QVariantList, arguments);
    ClientBench bench;
    disconnect(bench.client, nullptr, &bench.recorder, nullptr);
    FakeReply reply(strangeUrl);
    bench.follow(reply);
    Q_EMIT reply.downloadProgress(1, 4); // nobody listens
    QSignalSpy spy(bench.client, signal.constData());
    QVERIFY(spy.isValid());
    Q_EMIT reply.downloadProgress(1, 4);
    QCOMPARE(spy.size(), 1);
    QCOMPARE(spy.constFirst(), arguments);
}

void tst_TarvisNetProgress::tellsDownloadsOfAServer()
{
    ClientBench bench;
    bench.server.on("/answer", answers::bytes(HttpResponse::generated(0, 3000)));
    bench.client->fetchInstallerChangeLog(bench.server.url("/answer"));
    QVERIFY(bench.recorder.waitFor("s_fetchInstallerChangeLogData"));

    const QString url = bench.url("/answer");
    QCOMPARE(bench.recorder.last(bytesProgress), QVariantList({3000LL, 0LL, url}));
    QCOMPARE(bench.recorder.last(fileProgress), QVariantList({100.0, url}));
}

void tst_TarvisNetProgress::tellsUploads_data()
{
    QTest::addColumn<qlonglong>("sent");
    QTest::addColumn<qlonglong>("total");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("isTold");
    QTest::addColumn<double>("percentage");

    const auto told = [](const char *name, qlonglong sent, qlonglong total, double percentage) {
        QTest::newRow(name) << sent << total << uploadLine(sent, total) << true << percentage;
    };
    const auto logged = [](const char *name, qlonglong sent, qlonglong total, const char *message) {
        QTest::newRow(name) << sent << total << QString(message) << false << 0.0;
    };
    const char complete[] = "debug: <TarvisNet::UploadProgress> Upload complete";
    const char nothing[] = "debug: <TarvisNet::UploadProgress> no bytes avalible";
    told("half", 50, 100, 50.0);
    told("one third", 1, 3, 33.333335876464844);
    told("two thirds", 2, 3, 66.666671752929688);
    told("nearly all", 999999999, 1000000000, 100.0);
    told("less than nothing", -1, 100, -1.0);
    logged("all", 100, 100, complete);
    logged("a single byte", 1, 1, complete);
    logged("a request without a body", 0, 0, nothing);
    logged("the beginning", 0, 100, nothing);
    logged("an unknown total", 50, -1, nothing);
    logged("more than all", 101, 100, nothing);
    logged("nothing of an unknown total", 0, -1, nothing);
}

void tst_TarvisNetProgress::tellsUploads()
{
    QFETCH(qlonglong, sent);
    QFETCH(qlonglong, total);
    QFETCH(QString, message);
    QFETCH(bool, isTold);
    QFETCH(double, percentage);

    ClientBench bench;
    FakeReply reply(strangeUrl);
    bench.follow(reply);
    Q_EMIT reply.uploadProgress(sent, total);

    QCOMPARE(bench.messages(), QStringList(message));
    QCOMPARE(bench.recorder.names(), isTold ? QStringList(uploadProgress) : QStringList());
    if (!isTold)
        return;
    QVERIFY(isExactly(bench.recorder.last(uploadProgress).at(0), percentage));
    QCOMPARE(bench.recorder.last(uploadProgress).at(1).toString(), reply.url().toString());
}

void tst_TarvisNetProgress::tellsUploadsToAServer()
{
    ClientBench bench;
    bench.server.on("/upload", answers::json({}));
    // Large enough not to fit into the buffers of the connection at once.
    const QByteArray body(16 * 1024 * 1024, 'x');
    bench.client->rawPost(bench.server.url("/upload"), body);
    QVERIFY(bench.recorder.waitFor("s_rawPost"));

    QCOMPARE(bench.server.requests().value(0).body.size(), body.size());
    QVERIFY(bench.recorder.count(uploadProgress) > 0);
    for (const QVariantList &arguments : bench.recorder.of(uploadProgress)) {
        QVERIFY(arguments.at(0).toDouble() > 0 && arguments.at(0).toDouble() < 100);
        QCOMPARE(arguments.at(1).toString(), bench.url("/upload"));
    }
    QCOMPARE(bench.log.count(QtDebugMsg, "<TarvisNet::UploadProgress> Upload complete"), 1);
}

void tst_TarvisNetProgress::showsHeaders_data()
{
    QTest::addColumn<QList<QNetworkReply::RawHeaderPair>>("headers");
    QTest::addColumn<QStringList>("messages");

    const auto header = [](const char *name, const char *value) {
        return line(
            {"debug: <TarvisNet::debugHeader> Header:", quoted(name), " value: ", quoted(value)});
    };
    const QString length = line({"debug: <TarvisNet::debugHeader> Content-Length:", quoted("12")});
    const QString none = "debug: <TarvisNet::debugHeader> Accept-Ranges NONE.";
    const auto row = [](const char *name, const QList<QNetworkReply::RawHeaderPair> &headers,
                        const QStringList &messages) {
        QTest::newRow(name) << headers << messages;
    };
    row("no headers", {}, {});
    row("headers in order", {{"X-Second", "2"}, {"X-First", "1"}},
        {header("X-Second", "2"), header("X-First", "1"), none});
    row("a length", {{"Content-Length", "12"}}, {header("Content-Length", "12"), length, none});
    row("ranges", {{"Accept-Ranges", "bytes"}}, {header("Accept-Ranges", "bytes")});
    row("ranges, refused in words", {{"Accept-Ranges", "none"}}, {header("Accept-Ranges", "none")});
    row("a length and ranges", {{"Accept-Ranges", "bytes"}, {"Content-Length", "12"}},
        {header("Accept-Ranges", "bytes"), header("Content-Length", "12"), length});
}

void tst_TarvisNetProgress::showsHeaders()
{
    QFETCH(QList<QNetworkReply::RawHeaderPair>, headers);
    QFETCH(QStringList, messages);

    ClientBench bench;
    FakeReply reply;
    for (const QNetworkReply::RawHeaderPair &header : headers)
        reply.setRawHeader(header.first, header.second);
    bench.call("debugHeader", &reply);
    bench.call("debugHeader", nullptr);

    QCOMPARE(bench.messages(), messages);
    QCOMPARE(bench.recorder.names(), QStringList());
}

const TestClass<tst_TarvisNetProgress> testClass("tst_tarvisnet_progress");

} // namespace tst_tarvisnet_progress

#include "tst_tarvisnet_progress.moc"
