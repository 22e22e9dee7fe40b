#include "faultbench.h"
#include "faultrows.h"
#include "files.h"
#include "processorbench.h"
#include "smalldisk.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtTest/QTest>

#include <cstring>

using namespace processorbench;

using faultrows::Mode;

namespace {

constexpr qint64 KiB = 1024;
// Whole pages, but not whole pieces.
constexpr qint64 room = 64 * KiB;
constexpr qint64 piece = 24 * KiB;
constexpr qint64 total = 8 * piece;
const QByteArray content = "abcdef";

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

/// What a download makes of a disk on which nothing can be written or deleted.
struct ReadOnlyDisk {
    QByteArray name;
    /// Whether it is that of the temporary file, and not that of the destination.
    bool isTemporary;
    /// What is on it already; null when there is no such file.
    QByteArray present;
    QStringList said;
    QList<int> errors;
    bool isFinished;
    /// What there is on the other disk at the end.
    QByteArray elsewhere = QByteArray();
};

QList<ReadOnlyDisk> readOnlyDisks()
{
    const QString exists = "warning: Dest file allready exist";
    const QByteArray none;
    return {
        {"no temporary file",
         true,
         none,
         {openFailed, "warning: Temp file not exist"},
         {-210, -218},
         false},
        // What is there counts as the download, and stays.
        {"begun temporary file",
         true,
         "ab",
         {openFailed, "warning: Unable to remove temporary download file"},
         {-210},
         true,
         "ab"},
        {"no destination", false, none, {copyFailed}, {-218}, false, content},
        {"destination of the size",
         false,
         "uvwxyz",
         {"debug: <TarvisNet::fetchBinary> File allready exist: ", exists,
          "debug: File already loaded. Remove temporary."},
         {},
         true},
        {"destination of another size",
         false,
         "old",
         {exists, "warning: Unable to remove destination file"},
         {-218},
         false},
    };
}

} // namespace

Q_DECLARE_METATYPE(ReadOnlyDisk)

/// Disks that are full or read-only, and processes that are killed, in the middle of a download.
class tst_FaultsDisk : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void dropsWhatAFullDiskDoesNotTake_data() { faultrows::addModes(); }
    void dropsWhatAFullDiskDoesNotTake();
    void takesNoMemoryForAFullDisk_data() { faultrows::addModes(); }
    void takesNoMemoryForAFullDisk();
    void processorDropsWhatAFullDiskDoesNotTake_data() { faultrows::addModes(); }
    void processorDropsWhatAFullDiskDoesNotTake();
    void resumesWhatAFullDiskCut_data() { faultrows::addModes(); }
    void resumesWhatAFullDiskCut();
    void noRoomForTheDestination_data() { faultrows::addModes(); }
    void noRoomForTheDestination();
    void findsAReadOnlyDisk_data();
    void findsAReadOnlyDisk();
    void resumesAfterAKill_data() { faultrows::addModes(); }
    void resumesAfterAKill();
};

// The disk takes two pieces and a part of the third. What comes after that is dropped, also when
// there is room again: it would stand behind a gap. The file is a beginning that can be resumed.
void tst_FaultsDisk::dropsWhatAFullDiskDoesNotTake()
{
    QFETCH(Mode, mode);

    FaultBench bench(mode);
    SmallDisk disk(room);
    bench.setTemporaryDirectory(disk.path("."));
    HttpResponse answer;
    bench.server.on("/fault", [&](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, total);
        answer = response;
    });
    bench.start(requestkinds::of(replies::remote_binary), total);
    QVERIFY(bench.server.waitForRequests(1));
    answer.writeGenerated(3 * piece);
    QTRY_COMPARE(QFileInfo(bench.temporary()).size(), room);
    QTRY_COMPARE(bench.reply()->bytesAvailable(), qint64(0));

    disk.resize(4 * total);
    answer.writeGenerated(piece, 3 * piece);
    QTRY_COMPARE(bench.reply()->bytesAvailable(), qint64(0));
    QVERIFY(files::read(bench.temporary()) == HttpResponse::generated(0, room));
    bench.client->abortDownload(QString());
    QVERIFY(bench.waitUntilGone());

    bench.server.on("/fault", answers::generatedFile(total));
    bench.recorder.clear();
    bench.log.clear();
    bench.start(requestkinds::of(replies::remote_binary), total);
    QVERIFY(bench.waitUntilGone());
    QVERIFY(files::read(bench.destination()) == HttpResponse::generated(0, total));
    QVERIFY(!QFileInfo::exists(bench.temporary()));
    QCOMPARE(bench.seen(), bench.downloadSignals({}, true));
    QCOMPARE(bench.said(), QStringList());
}

// A download that is large enough for a bound on Qt's buffer stays as small in memory as any.
void tst_FaultsDisk::takesNoMemoryForAFullDisk()
{
    QFETCH(Mode, mode);

    constexpr qint64 large = 48 * 1024 * KiB;
    FaultBench bench(mode);
    const SmallDisk disk(room);
    bench.setTemporaryDirectory(disk.path("."));
    bench.setDestination(disk.path("file"));
    bench.server.on("/fault", answers::generatedFile(large));
    bench.start(requestkinds::of(replies::remote_binary), large);
    qint64 mostUnread = 0;
    connect(bench.reply(), &QNetworkReply::downloadProgress, this, [&bench, &mostUnread] {
        mostUnread = qMax(mostUnread, bench.reply()->bytesAvailable());
    });
    QVERIFY(bench.waitUntilGone());
    QVERIFY2(mostUnread <= 8 * 1024 * KiB, qPrintable(QString::number(mostUnread)));
    QCOMPARE(bench.seen(), bench.downloadSignals({-218}, false));
    QVERIFY(files::read(bench.temporary()) == HttpResponse::generated(0, room));
}

// The stand-alone processor appends to the finished file itself.
void tst_FaultsDisk::processorDropsWhatAFullDiskDoesNotTake()
{
    QFETCH(Mode, mode);

    ProcessorBench bench(mode);
    bench.server.on("/fault", answers::generatedFile(total));
    SmallDisk disk(room);
    const ReplyData download =
        fileRecord(replies::remote_binary, bench.server.url("/fault"), disk.path("file"), total);
    QVERIFY(bench.run(download));
    QVERIFY(files::read(disk.path("file")) == HttpResponse::generated(0, room));
    QCOMPARE(bench.outcomes(), Emissions{emission("s_finished", bench.url("/fault"))});

    disk.resize(4 * total);
    bench.server.on("/fault", [](const HttpRequest &, HttpResponse &response) {
        response.sendHead(206, {}, total - room);
        response.writeGenerated(total - room, room);
        response.finish();
    });
    bench.start(download);
    QVERIFY(bench.recorder.waitFor("s_finished", 2));
    QVERIFY(files::read(disk.path("file")) == HttpResponse::generated(0, total));
}

// Without room to the end, what is on the disk is the beginning of the file, and stays.
void tst_FaultsDisk::resumesWhatAFullDiskCut()
{
    QFETCH(Mode, mode);

    FaultBench bench(mode);
    SmallDisk disk(room);
    bench.setTemporaryDirectory(disk.path("."));
    bench.setDestination(disk.path("file"));
    bench.server.on("/fault", answers::generatedFile(total));
    const RequestKind binary = requestkinds::of(replies::remote_binary);
    bench.start(binary, total);
    QVERIFY(bench.waitUntilGone());

    QCOMPARE(bench.seen(), bench.downloadSignals({-218}, false));
    QCOMPARE(bench.saidAs({copyFailed}), QStringList(copyFailed));
    QVERIFY(files::read(bench.temporary()) == HttpResponse::generated(0, room));
    QVERIFY(!QFileInfo::exists(bench.destination()));

    disk.resize(4 * total);
    bench.recorder.clear();
    bench.log.clear();
    bench.start(binary, total);
    QVERIFY(bench.waitUntilGone());
    QCOMPARE(bench.server.requests().last().header("range"),
             "bytes=" + QByteArray::number(room) + '-');
    QVERIFY(files::read(bench.destination()) == HttpResponse::generated(0, total));
    QVERIFY(!QFileInfo::exists(bench.temporary()));
    QCOMPARE(bench.seen(), bench.downloadSignals({}, true));
    QCOMPARE(bench.said(), QStringList());
}

void tst_FaultsDisk::noRoomForTheDestination()
{
    QFETCH(Mode, mode);

    FaultBench bench(mode);
    const SmallDisk disk(room);
    bench.setDestination(disk.path("file"));
    bench.server.on("/fault", answers::generatedFile(total));
    bench.start(requestkinds::of(replies::remote_binary), total);
    QVERIFY(bench.waitUntilGone());

    QCOMPARE(bench.seen(), bench.downloadSignals({-218}, false));
    QCOMPARE(bench.saidAs({copyFailed}), QStringList(copyFailed));
    QVERIFY(files::read(bench.temporary()) == HttpResponse::generated(0, total));
    QVERIFY(!QFileInfo::exists(bench.destination()));
}

void tst_FaultsDisk::findsAReadOnlyDisk_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<ReadOnlyDisk>("row");
    for (const ReadOnlyDisk &row : readOnlyDisks())
        faultrows::addInBothModes(row);
}

void tst_FaultsDisk::findsAReadOnlyDisk()
{
    QFETCH(Mode, mode);
    QFETCH(ReadOnlyDisk, row);

    FaultBench bench(mode);
    SmallDisk disk(room);
    if (row.isTemporary)
        bench.setTemporaryDirectory(disk.path("."));
    else
        bench.setDestination(disk.path("file"));
    const QString onDisk = row.isTemporary ? bench.temporary() : bench.destination();
    if (!row.present.isNull())
        files::write(onDisk, row.present);
    disk.protect();
    bench.server.on("/fault", answers::file(content));
    bench.start(requestkinds::of(replies::remote_binary), ulong(content.size()));
    QVERIFY(bench.waitUntilGone());

    QCOMPARE(bench.seen(), bench.downloadSignals(row.errors, row.isFinished));
    QCOMPARE(bench.saidAs(row.said), row.said);
    QCOMPARE(files::read(onDisk), row.present);
    QCOMPARE(files::read(row.isTemporary ? bench.destination() : bench.temporary()), row.elsewhere);
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
    QCOMPARE(bench.seen(), bench.downloadSignals({}, true));
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
