#include "answers.h"
#include "processorbench.h"

#include <QtCore/QScopedPointer>
#include <QtCore/QtNumeric>
#include <QtTest/QTest>

#include <limits>

using namespace processorbench;

class tst_NetworkProcessorProgress : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { m_quiet.reset(new LogCapture); }
    void cleanupTestCase() { m_quiet.reset(); }
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

private:
    QScopedPointer<LogCapture> m_quiet;
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
    ScriptedServer server;
    server.onRequest(answers::withhold());
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    ReplyData data = fileRecord(replies::remote_binary, server.url(), QString(), quint64(size));
    data.fileData.resumeOffset = offset;
    processor.startGet(data);
    QVERIFY(server.waitForRequests(1));
    QVERIFY(replies.at());
    LogCapture log;

    Q_EMIT replies.at()->downloadProgress(received, total);

    const QString url = server.url().toString();
    QCOMPARE(recorder.names(), downloadSignals);
    QCOMPARE(recorder.last("s_downloadFileBytesProgress"),
             (QVariantList{received + offset, size, url}));
    const QVariantList args = recorder.last("s_downloadFileProgress");
    QVERIFY2(isSame(args.at(0).toDouble(), percentage), args.at(0).toByteArray());
    QCOMPARE(args.at(1).toString(), url);
    QCOMPARE(texts(log),
             QStringList{downloadText(received, total, received + offset, size, logged)});
}

void tst_NetworkProcessorProgress::downloadWithoutARecord()
{
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const QString url = "http://127.0.0.1/path";
    const QPointer<FakeReply> reply = follow(processor, QUrl(url));
    LogCapture log;

    Q_EMIT reply->downloadProgress(5, 10);

    QCOMPARE(recorder.names(), downloadSignals);
    QCOMPARE(recorder.last("s_downloadFileBytesProgress"),
             (QVariantList{qlonglong(5), qlonglong(0), url}));
    QCOMPARE(recorder.last("s_downloadFileProgress"), (QVariantList{infinite, url}));
    QCOMPARE(texts(log), QStringList{downloadText(5, 10, 5, 0, "inf")});
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
    ScriptedServer server;
    server.onRequest(answers::bytes(body));
    LogCapture log;
    ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const QString url = server.url().toString();

    processor.startGet(fileRecord(replyType, server.url(), QString(), 20));
    QVERIFY(replies.waitUntilGone());

    const qlonglong size = body.size();
    QCOMPARE(recorder.last("s_downloadFileBytesProgress"),
             (QVariantList{size, qlonglong(20), url}));
    QCOMPARE(recorder.last("s_downloadFileProgress"), (QVariantList{percentage, url}));
    QCOMPARE(recorder.names().mid(0, 2), downloadSignals);
    QCOMPARE(texts(log, "DownloadProgress").last(), downloadText(size, size, size, 20, logged));
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
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    const QUrl url("http://127.0.0.1/path");
    const QPointer<FakeReply> reply = follow(processor, url);
    LogCapture log;

    Q_EMIT reply->uploadProgress(sent, total);

    QList<QVariantList> expected;
    for (const QVariant &percentage : percentages)
        expected.append({percentage, url.toString()});
    QCOMPARE(recorder.of("s_uploadFileProgress"), expected);
    QCOMPARE(recorder.calls().size(), expected.size());
    QCOMPARE(texts(log), QStringList{text});
}

void tst_NetworkProcessorProgress::uploadOverASocket()
{
    ScriptedServer server;
    server.onRequest(answers::json({}));
    LogCapture log;
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    ReplyData data = record(replies::raw_post, server.url());
    const QByteArray body = HttpResponse::generated(0, 4 * 1024 * 1024);

    processor.startPost(data, body);
    QVERIFY(recorder.waitFor("s_rawPost"));

    QCOMPARE(server.requests().value(0).body, body);
    QVERIFY(recorder.count("s_uploadFileProgress") > 0);
    for (const QVariantList &args : recorder.of("s_uploadFileProgress")) {
        QVERIFY(args.at(0).toDouble() > 0.0 && args.at(0).toDouble() < 100.0);
        QCOMPARE(args.at(1).toString(), server.url().toString());
    }
    QVERIFY(log.contains(QtDebugMsg, "<NetworkProcessor::replyUploadProgress> Upload complete"));
}

void tst_NetworkProcessorProgress::headers_data()
{
    using Headers = QList<QNetworkReply::RawHeaderPair>;
    QTest::addColumn<Headers>("headers");
    QTest::addColumn<QStringList>("expected");

    const QString header = "<NetworkProcessor::debugHeader> Header:  \"%1\"  value:  \"%2\"";
    const QString none = "<TarvisNet::debugHeader> Accept-Ranges NONE.";
    const QString length = "<NetworkProcessor::debugHeader> Content-Length:  \"12\"";
    QTest::newRow("no headers") << Headers() << QStringList{none};
    QTest::newRow("any header") << Headers{{"X-One", "1"}, {"X-Two", "2"}}
                                << QStringList{header.arg("X-One", "1"), header.arg("X-Two", "2"),
                                               none};
    QTest::newRow("length") << Headers{{"Content-Length", "12"}}
                            << QStringList{header.arg("Content-Length", "12"), length, none};
    QTest::newRow("ranges") << Headers{{"Accept-Ranges", "bytes"}}
                            << QStringList{header.arg("Accept-Ranges", "bytes")};
    QTest::newRow("ranges in lower case")
        << Headers{{"accept-ranges", "none"}} << QStringList{header.arg("accept-ranges", "none")};
    QTest::newRow("all") << Headers{{"Accept-Ranges", "bytes"}, {"Content-Length", "12"}}
                         << QStringList{header.arg("Accept-Ranges", "bytes"),
                                        header.arg("Content-Length", "12"), length};
}

void tst_NetworkProcessorProgress::headers()
{
    QFETCH(QList<QNetworkReply::RawHeaderPair>, headers);
    QFETCH(QStringList, expected);
    NetworkProcessor processor;
    SignalRecorder recorder(&processor);
    FakeReply reply;
    for (const auto &[name, value] : headers)
        reply.setRawHeader(name, value);
    LogCapture log;

    QVERIFY(QMetaObject::invokeMethod(&processor, "debugHeader", Qt::DirectConnection,
                                      Q_ARG(QNetworkReply *, &reply)));

    QCOMPARE(texts(log), expected);
    QCOMPARE(recorder.names(), QStringList());
}

QTEST_GUILESS_MAIN(tst_NetworkProcessorProgress)
#include "tst_networkprocessor_progress.moc"
