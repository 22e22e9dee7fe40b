#include "processorbench.h"
#include "testclass.h"

#include <QtCore/QtNumeric>
#include <QtTest/QTest>

#include <limits>

namespace tst_networkprocessor_progress {

using namespace processorbench;

/// Progress of downloads and uploads, and the headers that are logged.
class tst_NetworkProcessorProgress : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void download_data();
    void download();
    void downloadWithoutARecord();
    void downloadOverASocket_data();
    void downloadOverASocket();
    void upload_data();
    void upload();
    void uploadOverASocket();
    void headers_data();
    void headers();
};

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();
constexpr double undefined = std::numeric_limits<double>::quiet_NaN();

// Unlike numbers in general, an undefined one is to be the same as another here.
bool isSame(double left, double right)
{
    return left == right || (qIsNaN(left) && qIsNaN(right));
}

QString downloadText(qlonglong received, qlonglong total, qlonglong loaded, qlonglong full,
                     const QString &percentage)
{
    return QString("DownloadProgress   received:  %1  total:  %2  loaded:  %3  full:  %4"
                   "  complete:  %5  % ")
        .arg(received)
        .arg(total)
        .arg(loaded)
        .arg(quint64(full))
        .arg(percentage);
}

QString uploadText(qlonglong sent, qlonglong total)
{
    return QString("UploadProgress   received:  %1  total:  %2  complete:  0  % ")
        .arg(sent)
        .arg(total);
}

const QStringList downloadSignals{"s_downloadFileBytesProgress", "s_downloadFileProgress"};

} // namespace

void tst_NetworkProcessorProgress::download_data()
{
    QTest::addColumn<qlonglong>("size");
    QTest::addColumn<qlonglong>("offset");
    QTest::addColumn<qlonglong>("received");
    QTest::addColumn<qlonglong>("total");
    QTest::addColumn<double>("percentage");
    QTest::addColumn<QString>("logged");

    const auto add = [](const char *name, qlonglong size, qlonglong offset, qlonglong received,
                        qlonglong total, double percentage, const char *logged) {
        QTest::newRow(name) << size << offset << received << total << percentage << logged;
    };
    add("half", 100, 0, 50, 100, 50.0, "50");
    add("all", 100, 0, 100, 100, 100.0, "100");
    add("nothing yet", 100, 0, 0, 100, 0.0, "0");
    add("resumed", 100, 25, 50, 75, 75.0, "75");
    add("resumed, all", 100, 25, 75, 75, 100.0, "100");
    add("the reply's total does not count", 200, 0, 50, 60, 25.0, "25");
    add("unknown total", 200, 0, 50, -1, 25.0, "25");
    add("more than the size", 10, 0, 30, 30, 300.0, "300");
    // In double precision this would end in ...33.
    add("single precision", 3, 0, 1, 3, 33.33333587646484375, "33.3333");
    add("operands in single precision", 33554432, 0, 16777217, 33554432, 50.0, "50");
    add("beyond 32 bits", 10000000000, 5000000000, 2500000000, 5000000000, 75.0, "75");
    // As an unsigned number, which it is, twice the bytes.
    add("size beyond signed numbers", std::numeric_limits<qlonglong>::min(), 0, 1LL << 62, -1, 50.0,
        "50");
    add("no size", 0, 0, 50, 100, infinite, "inf");
    add("no size, resumed", 0, 5, 0, 100, infinite, "inf");
    add("nothing of nothing", 0, 0, 0, 0, undefined, "nan");
}

void tst_NetworkProcessorProgress::download()
{
    QFETCH(qlonglong, size);
    QFETCH(qlonglong, offset);
    QFETCH(qlonglong, received);
    QFETCH(qlonglong, total);
    QFETCH(double, percentage);
    QFETCH(QString, logged);
    ProcessorBench bench;
    bench.server.onRequest(answers::withhold());
    ReplyData data =
        fileRecord(replies::remote_binary, bench.server.url(), QString(), quint64(size));
    data.fileData.resumeOffset = offset;
    bench.start(data);
    QVERIFY(bench.server.waitForRequests(1));
    QVERIFY(bench.replies.at());
    bench.log.clear();

    Q_EMIT bench.replies.at()->downloadProgress(received, total);

    QCOMPARE(bench.recorder.names(), downloadSignals);
    QCOMPARE(bench.recorder.last("s_downloadFileBytesProgress"),
             (QVariantList{received + offset, size, bench.url()}));
    const QVariantList args = bench.recorder.last("s_downloadFileProgress");
    QVERIFY2(isSame(args.at(0).toDouble(), percentage), args.at(0).toByteArray());
    QCOMPARE(args.at(1).toString(), bench.url());
    QCOMPARE(bench.texts(),
             QStringList{downloadText(received, total, received + offset, size, logged)});
}

void tst_NetworkProcessorProgress::downloadWithoutARecord()
{
    ProcessorBench bench;
    const QString url = "http://127.0.0.1/path";
    const QPointer<FakeReply> reply = bench.follow(QUrl(url));

    Q_EMIT reply->downloadProgress(5, 10);

    QCOMPARE(bench.recorder.names(), downloadSignals);
    QCOMPARE(bench.recorder.last("s_downloadFileBytesProgress"),
             (QVariantList{qlonglong(5), qlonglong(0), url}));
    QCOMPARE(bench.recorder.last("s_downloadFileProgress"), (QVariantList{infinite, url}));
    QCOMPARE(bench.texts(), QStringList{downloadText(5, 10, 5, 0, "inf")});
}

void tst_NetworkProcessorProgress::downloadOverASocket_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<double>("percentage");
    QTest::addColumn<QString>("logged");

    const QByteArray body("0123456789");
    for (const QLatin1String kind :
         {replies::remote_binary, replies::raw_get, replies::raw_get_file, replies::remote_index}) {
        QTest::addRow("%s", kind.data()) << QString(kind) << body << 50.0 << "50";
        QTest::addRow("%s, no body", kind.data()) << QString(kind) << QByteArray() << 0.0 << "0";
    }
}

// Every kind reports progress, not only the downloads.
void tst_NetworkProcessorProgress::downloadOverASocket()
{
    QFETCH(QString, replyType);
    QFETCH(QByteArray, body);
    QFETCH(double, percentage);
    QFETCH(QString, logged);
    ProcessorBench bench;
    bench.server.onRequest(answers::bytes(body));

    QVERIFY(bench.run(fileRecord(replyType, bench.server.url(), QString(), 20)));

    const qlonglong size = body.size();
    QCOMPARE(bench.recorder.last("s_downloadFileBytesProgress"),
             (QVariantList{size, qlonglong(20), bench.url()}));
    QCOMPARE(bench.recorder.last("s_downloadFileProgress"),
             (QVariantList{percentage, bench.url()}));
    QCOMPARE(bench.recorder.names().mid(0, 2), downloadSignals);
    QCOMPARE(bench.texts("DownloadProgress").last(), downloadText(size, size, size, 20, logged));
}

void tst_NetworkProcessorProgress::upload_data()
{
    QTest::addColumn<qlonglong>("sent");
    QTest::addColumn<qlonglong>("total");
    QTest::addColumn<QVariantList>("percentages");
    QTest::addColumn<QString>("text");

    const auto add = [](qlonglong sent, qlonglong total, const QVariantList &percentages,
                        const QString &text) {
        QTest::addRow("%lld of %lld", sent, total) << sent << total << percentages << text;
    };
    const QString complete = "<NetworkProcessor::replyUploadProgress> Upload complete";
    const QString nothing = "<NetworkProcessor::replyUploadProgress> No bytes avalible";
    add(50, 100, {50.0}, uploadText(50, 100));
    add(99, 100, {99.0}, uploadText(99, 100));
    add(1, 3, {33.33333587646484375}, uploadText(1, 3));
    add(16777217, 33554432, {50.0}, uploadText(16777217, 33554432));
    add(2500000000, 10000000000, {25.0}, uploadText(2500000000, 10000000000));
    add(-50, 100, {-50.0}, uploadText(-50, 100));
    add(100, 100, {}, complete);
    add(1, 1, {}, complete);
    add(0, 100, {}, nothing);
    add(0, 0, {}, nothing);
    add(150, 100, {}, nothing);
    add(0, -1, {}, nothing);
    add(50, -1, {}, nothing);
    add(-1, -1, {}, nothing);
}

void tst_NetworkProcessorProgress::upload()
{
    QFETCH(qlonglong, sent);
    QFETCH(qlonglong, total);
    QFETCH(QVariantList, percentages);
    QFETCH(QString, text);
    ProcessorBench bench;
    const QUrl url("http://127.0.0.1/path");
    const QPointer<FakeReply> reply = bench.follow(url);

    Q_EMIT reply->uploadProgress(sent, total);

    Emissions expected;
    for (const QVariant &percentage : percentages)
        expected.append({percentage, url.toString()});
    QCOMPARE(bench.recorder.of("s_uploadFileProgress"), expected);
    QCOMPARE(bench.recorder.calls().size(), expected.size());
    QCOMPARE(bench.texts(), QStringList{text});
}

void tst_NetworkProcessorProgress::uploadOverASocket()
{
    ProcessorBench bench;
    bench.server.onRequest(answers::json({}));
    const QByteArray body = HttpResponse::generated(0, 4 * 1024 * 1024);

    QVERIFY(bench.run(record(replies::raw_post, bench.server.url()), true, body));

    QCOMPARE(bench.server.requests().value(0).body, body);
    const Emissions reports = bench.recorder.of("s_uploadFileProgress");
    QVERIFY(!reports.isEmpty());
    for (const QVariantList &args : reports) {
        QVERIFY(args.at(0).toDouble() > 0.0 && args.at(0).toDouble() < 100.0);
        QCOMPARE(args.at(1).toString(), bench.url());
    }
    QVERIFY(bench.texts().contains("<NetworkProcessor::replyUploadProgress> Upload complete"));
}

void tst_NetworkProcessorProgress::headers_data()
{
    using Headers = QList<QNetworkReply::RawHeaderPair>;
    QTest::addColumn<Headers>("headers");
    QTest::addColumn<QStringList>("expected");

    const QString header = "<NetworkProcessor::debugHeader> Header:  \"%1\"  value:  \"%2\"";
    const QString none = "<TarvisNet::debugHeader> Accept-Ranges NONE.";
    const QString length = "<NetworkProcessor::debugHeader> Content-Length:  \"12\"";
    const auto add = [&header](const char *name, const Headers &headers,
                               const QStringList &further) {
        QStringList expected;
        for (const auto &[key, value] : headers)
            expected.append(header.arg(QString(key), QString(value)));
        QTest::newRow(name) << headers << expected + further;
    };
    add("no headers", {}, {none});
    add("any header", {{"X-One", "1"}, {"X-Two", "2"}}, {none});
    add("length", {{"Content-Length", "12"}}, {length, none});
    add("ranges", {{"Accept-Ranges", "bytes"}}, {});
    add("ranges in lower case", {{"accept-ranges", "none"}}, {});
    add("all", {{"Accept-Ranges", "bytes"}, {"Content-Length", "12"}}, {length});
}

void tst_NetworkProcessorProgress::headers()
{
    QFETCH(QList<QNetworkReply::RawHeaderPair>, headers);
    QFETCH(QStringList, expected);
    ProcessorBench bench;
    FakeReply reply;
    for (const auto &[name, value] : headers)
        reply.setRawHeader(name, value);

    bench.call("debugHeader", Q_ARG(QNetworkReply *, &reply));

    QCOMPARE(bench.texts(), expected);
    QCOMPARE(bench.recorder.names(), QStringList());
}

const TestClass<tst_NetworkProcessorProgress> testClass("tst_networkprocessor_progress");

} // namespace tst_networkprocessor_progress

#include "tst_networkprocessor_progress.moc"
