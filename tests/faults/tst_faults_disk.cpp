#include "faultbench.h"
#include "files.h"
#include "smalldisk.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtTest/QTest>

#include <cstring>

using Mode = ScriptedServer::Mode;
using endings::signalText;

namespace {

constexpr qint64 KiB = 1024;
// Whole pages, but not whole pieces.
constexpr qint64 room = 64 * KiB;
constexpr qint64 piece = 24 * KiB;
constexpr qint64 total = 8 * piece;

const char fetchArgument[] = "--fetch";

/// The process that downloads \a url to \a path, until it is killed.
int runFetch(const QUrl &url, const QString &path)
{
    const LogCapture quiet;
    TarvisNet client;
    client.setTemporaryDirectory(QFileInfo(path).path() + "/temporary");
    client.fetchBinary(url, path, total);
    return QCoreApplication::exec();
}

void addModes()
{
    QTest::addColumn<Mode>("mode");
    QTest::newRow("HTTP") << Mode::Http;
    QTest::newRow("HTTPS") << Mode::Https;
}

} // namespace

/// Disks that are full, and processes that are killed, in the middle of a download.
class tst_FaultsDisk : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void goesOnOnceThereIsRoom_data() { addModes(); }
    void goesOnOnceThereIsRoom();
    void resumesWhatAFullDiskCut_data() { addModes(); }
    void resumesWhatAFullDiskCut();
    void noRoomForTheDestination_data() { addModes(); }
    void noRoomForTheDestination();
    void resumesAfterAKill_data() { addModes(); }
    void resumesAfterAKill();
};

// The disk takes two pieces and a part of the third. Nothing of what arrives may be lost in the
// middle of the file.
void tst_FaultsDisk::goesOnOnceThereIsRoom()
{
    QFETCH(Mode, mode);

    FaultBench bench(mode);
    SmallDisk disk(room);
    bench.client->setTemporaryDirectory(disk.path("."));
    bench.recorder.clear();
    HttpResponse answer;
    bench.server.on("/fault", [&](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, total);
        answer = response;
    });
    bench.start(requestkinds::of(replies::remote_binary), total);
    QVERIFY(bench.server.waitForRequests(1));
    answer.writeGenerated(3 * piece);
    const QFileInfo temporary(disk.path("file.vtxdownload"));
    QTRY_COMPARE(QFileInfo(temporary.filePath()).size(), room);

    disk.resize(4 * total);
    answer.writeGenerated(total - 3 * piece, 3 * piece);
    answer.finish();
    QVERIFY(bench.waitUntilGone());

    QVERIFY(files::read(bench.destination()) == HttpResponse::generated(0, total));
    QVERIFY(!QFileInfo::exists(temporary.filePath()));
    const Ending ending = {QNetworkReply::NoError, 200, "all"};
    QCOMPARE(bench.seen(), bench.expectedSignals(requestkinds::of(replies::remote_binary), ending));
    QCOMPARE(bench.said(), QStringList());
}

// Without room to the end, what is on the disk is the beginning of the file, and stays.
void tst_FaultsDisk::resumesWhatAFullDiskCut()
{
    QFETCH(Mode, mode);

    FaultBench bench(mode);
    SmallDisk disk(room);
    bench.client->setTemporaryDirectory(disk.path("."));
    bench.recorder.clear();
    bench.server.on("/fault", answers::generatedFile(total));
    const QString destination = disk.path("file");
    const QString temporary = disk.path("file.vtxdownload");
    bench.client->fetchBinary(bench.server.url("/fault"), destination, total);
    QVERIFY(bench.recorder.waitFor("s_stopPing"));

    QCOMPARE(bench.seen().value(2),
             signalText("s_errorChanged", {-218, bench.url("/fault"), QJsonDocument()}));
    QCOMPARE(bench.seen().size(), 5);
    QCOMPARE(bench.said().size(), 1);
    QVERIFY(bench.said().constFirst().startsWith("warning: Error: "));
    QVERIFY(files::read(temporary) == HttpResponse::generated(0, room));
    QVERIFY(!QFileInfo::exists(destination));

    disk.resize(4 * total);
    bench.recorder.clear();
    bench.log.clear();
    bench.client->fetchBinary(bench.server.url("/fault"), destination, total);
    QVERIFY(bench.recorder.waitFor("s_stopPing"));
    QCOMPARE(bench.server.requests().last().header("range"),
             "bytes=" + QByteArray::number(room) + '-');
    QVERIFY(files::read(destination) == HttpResponse::generated(0, total));
    QVERIFY(!QFileInfo::exists(temporary));
    QCOMPARE(bench.recorder.last("s_finished"), QVariantList{bench.url("/fault")});
    QCOMPARE(bench.said(), QStringList());
}

void tst_FaultsDisk::noRoomForTheDestination()
{
    QFETCH(Mode, mode);

    FaultBench bench(mode);
    const SmallDisk disk(room);
    bench.server.on("/fault", answers::generatedFile(total));
    bench.client->fetchBinary(bench.server.url("/fault"), disk.path("file"), total);
    QVERIFY(bench.recorder.waitFor("s_stopPing"));

    QCOMPARE(bench.seen().value(2),
             signalText("s_errorChanged", {-218, bench.url("/fault"), QJsonDocument()}));
    QCOMPARE(bench.seen().size(), 5);
    QCOMPARE(bench.said().size(), 1);
    QVERIFY(bench.said().constFirst().startsWith("warning: Error: "));
    QVERIFY(files::read(bench.temporary()) == HttpResponse::generated(0, total));
    QVERIFY(!QFileInfo::exists(disk.path("file")));
}

void tst_FaultsDisk::resumesAfterAKill()
{
    QFETCH(Mode, mode);

    FaultBench bench(mode);
    bench.server.on("/fault", [](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, total);
        response.writeGenerated(piece);
    });
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(),
                  {fetchArgument, bench.url("/fault"), bench.destination()});
    QTRY_COMPARE_WITH_TIMEOUT(QFileInfo(bench.temporary()).size(), piece, 20000);
    SignalRecorder ended(&process, {"finished"});
    process.kill();
    QVERIFY(ended.waitFor("finished"));
    QCOMPARE(process.exitStatus(), QProcess::CrashExit);
    QVERIFY(files::read(bench.temporary()) == HttpResponse::generated(0, piece));

    bench.server.on("/fault", answers::generatedFile(total));
    bench.start(requestkinds::of(replies::remote_binary), total);
    QVERIFY(bench.waitUntilGone());
    QCOMPARE(bench.server.requests().last().header("range"),
             "bytes=" + QByteArray::number(piece) + '-');
    const Ending ending = {QNetworkReply::NoError, 206, "all"};
    QCOMPARE(bench.seen(), bench.expectedSignals(requestkinds::of(replies::remote_binary), ending));
    QCOMPARE(bench.said(), QStringList());
    QVERIFY(files::read(bench.destination()) == HttpResponse::generated(0, total));
    QVERIFY(!QFileInfo::exists(bench.temporary()));
}

int main(int argc, char *argv[])
{
    const bool isFetch = argc > 3 && std::strcmp(argv[1], fetchArgument) == 0;
    if (!isFetch)
        SmallDisk::prepare();
    QCoreApplication application(argc, argv);
    if (isFetch)
        return runFetch(QUrl(argv[2]), QString::fromLocal8Bit(argv[3]));
    tst_FaultsDisk test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_faults_disk.moc"
