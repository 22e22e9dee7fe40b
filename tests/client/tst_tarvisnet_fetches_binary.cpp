#include "answers.h"
#include "fetchbench.h"
#include "files.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace {

constexpr char formType[] = "application/x-www-form-urlencoded";
constexpr char existsText[] = "<TarvisNet::fetchBinary> File allready exist: ";
const QUrl url(QStringLiteral("https://example.test:8443/tool"));

/// In place of a size: there is no such file.
constexpr int missing = -1;

void writeUnlessMissing(const QString &path, int size)
{
    if (size != missing)
        files::write(path, QByteArray(size, 'x'));
}

int sizeOf(const QString &path)
{
    return QFileInfo::exists(path) ? int(QFileInfo(path).size()) : missing;
}

void fetch(FetchBench &bench, bool byPath, const QString &savePath, qulonglong size,
           const QString &hash = QString())
{
    if (byPath)
        bench.client.fetchBinary(url.path(), savePath, size, hash);
    else
        bench.client.fetchBinary(url, savePath, size, hash);
}

/// A record of the binary fetch without what depends on the file.
ReplyData binaryRecord(const FetchBench &bench, bool byPath, const QByteArray &range = QByteArray())
{
    ReplyData record;
    record.replyType = replies::remote_binary;
    record.request = bench.fileRequest(url, formType, range);
    if (byPath)
        record.request.setAttribute(QNetworkRequest::HttpPipeliningAllowedAttribute, true);
    return record;
}

} // namespace

class tst_TarvisNetFetchesBinary : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void looksAtTheFiles_data();
    void looksAtTheFiles();
    void namesTheTemporaryFile_data();
    void namesTheTemporaryFile();
    void keepsWhatIsNotGiven_data();
    void keepsWhatIsNotGiven();
    void leavesACompleteFileThatCannotBeDeleted();
    void refusalLeavesTheFiles_data();
    void refusalLeavesTheFiles();
    void withoutSavePathNothingIsSaved();
    void downloads_data();
    void downloads();

private:
    static void prepare(FetchBench &bench);
};

void tst_TarvisNetFetchesBinary::prepare(FetchBench &bench)
{
    bench.holdFor(url);
    bench.log.clear();
}

void tst_TarvisNetFetchesBinary::looksAtTheFiles_data()
{
    QTest::addColumn<int>("destination");
    QTest::addColumn<int>("temporary");
    QTest::addColumn<qulonglong>("size");
    QTest::addColumn<bool>("isDiscarded");
    QTest::addColumn<int>("resumedFrom");

    const qulonglong size = 1000;
    QTest::newRow("no files") << missing << missing << size << false << 0;
    QTest::newRow("complete destination") << 1000 << missing << size << true << 0;
    QTest::newRow("smaller destination") << 999 << missing << size << false << 0;
    QTest::newRow("larger destination") << 1001 << missing << size << false << 0;
    QTest::newRow("empty destination") << 0 << missing << size << false << 0;
    QTest::newRow("empty destination, size unknown") << 0 << missing << 0ULL << false << 0;
    QTest::newRow("destination, size unknown") << 1000 << missing << 0ULL << false << 0;
    QTest::newRow("partial temporary file") << missing << 300 << size << false << 300;
    QTest::newRow("one byte of a temporary file") << missing << 1 << size << false << 1;
    QTest::newRow("temporary file without its last byte") << missing << 999 << size << false << 999;
    QTest::newRow("complete temporary file") << missing << 1000 << size << false << 0;
    QTest::newRow("too large temporary file") << missing << 1001 << size << false << 0;
    QTest::newRow("empty temporary file") << missing << 0 << size << false << 0;
    QTest::newRow("temporary file, size unknown") << missing << 300 << 0ULL << false << 0;
    QTest::newRow("complete destination and partial temporary file")
        << 1000 << 300 << size << true << 300;
    QTest::newRow("other destination and partial temporary file")
        << 500 << 300 << size << false << 300;
    QTest::newRow("size larger than 4 GiB") << 1000 << 300 << 5000000000ULL << false << 300;
    QTest::newRow("size beyond signed numbers") << missing << 300 << ~0ULL << false << 300;
}

void tst_TarvisNetFetchesBinary::looksAtTheFiles()
{
    QFETCH(int, destination);
    QFETCH(int, temporary);
    QFETCH(qulonglong, size);
    QFETCH(bool, isDiscarded);
    QFETCH(int, resumedFrom);

    for (const bool byPath : {true, false}) {
        FetchBench bench;
        const QString savePath = bench.path("saved/tool");
        const QString temporaryPath = bench.path("tool.vtxdownload");
        writeUnlessMissing(savePath, destination);
        writeUnlessMissing(temporaryPath, temporary);
        prepare(bench);
        fetch(bench, byPath, savePath, size, "hash");

        QCOMPARE(sizeOf(savePath), isDiscarded ? missing : destination);
        QCOMPARE(sizeOf(temporaryPath), temporary);
        const QString named = QStringLiteral(" \"%1\"").arg(savePath);
        const QString line = existsText + named + (byPath ? named : QString()) + "  -- reloading";
        const QStringList lines = isDiscarded ? QStringList{line} : QStringList();
        QCOMPARE(bench.log.texts(), lines);
        QCOMPARE(bench.log.texts(QtDebugMsg), lines);

        const QByteArray range = "bytes=" + QByteArray::number(resumedFrom) + '-';
        ReplyData record = binaryRecord(bench, byPath, resumedFrom ? range : QByteArray());
        record.fileData.filePath = savePath;
        record.fileData.tempFilePath = temporaryPath;
        record.fileData.hash = "hash";
        record.fileData.size = size;
        record.fileData.resumeOffset = resumedFrom;
        QVERIFY(bench.isPending(record));
    }
}

void tst_TarvisNetFetchesBinary::namesTheTemporaryFile_data()
{
    QTest::addColumn<QString>("temporaryDirectory");
    QTest::addColumn<QString>("savePath");
    QTest::addColumn<QString>("temporaryPath");

    const QString system = QDir::tempPath();
    QTest::newRow("given directory") << "/somewhere"
                                     << "/data/pkg/tool.zip"
                                     << "/somewhere/tool.zip.vtxdownload";
    QTest::newRow("system directory") << ""
                                      << "/data/pkg/tool.zip" << system + "/tool.zip.vtxdownload";
    QTest::newRow("relative destination") << "/somewhere"
                                          << "tool.zip"
                                          << "/somewhere/tool.zip.vtxdownload";
    QTest::newRow("relative directory")
        << "below"
        << "/data/pkg/tool.zip"
        << QDir::current().absoluteFilePath("below") + "/tool.zip.vtxdownload";
    QTest::newRow("no suffix") << "/somewhere"
                               << "/data/tool"
                               << "/somewhere/tool.vtxdownload";
    QTest::newRow("has the suffix") << "/somewhere"
                                    << "/data/a.vtxdownload"
                                    << "/somewhere/a.vtxdownload.vtxdownload";
    QTest::newRow("percent signs") << "/some%2where"
                                   << "/data/%1 %2"
                                   << "/some%2where/%1 %2.vtxdownload";
    QTest::newRow("no save path") << "/somewhere"
                                  << ""
                                  << "/somewhere.vtxdownload";
    QTest::newRow("no save path, system directory") << ""
                                                    << "" << system + ".vtxdownload";
}

void tst_TarvisNetFetchesBinary::namesTheTemporaryFile()
{
    QFETCH(QString, temporaryDirectory);
    QFETCH(QString, savePath);
    QFETCH(QString, temporaryPath);

    for (const bool byPath : {true, false}) {
        FetchBench bench;
        bench.client.setTemporaryDirectory(temporaryDirectory);
        prepare(bench);
        fetch(bench, byPath, savePath, 1000);
        ReplyData record = binaryRecord(bench, byPath);
        record.fileData.filePath = savePath;
        record.fileData.tempFilePath = temporaryPath;
        record.fileData.size = 1000;
        QVERIFY(bench.isPending(record));
    }
}

void tst_TarvisNetFetchesBinary::keepsWhatIsNotGiven_data()
{
    QTest::addColumn<bool>("byPath");
    QTest::newRow("by path") << true;
    QTest::newRow("by URL") << false;
}

// A file that would be resumed if there were a save path.
void tst_TarvisNetFetchesBinary::keepsWhatIsNotGiven()
{
    QFETCH(bool, byPath);

    FetchBench bench;
    bench.client.setTemporaryDirectory(bench.path("below"));
    files::write(bench.path("below.vtxdownload"), QByteArray(300, 'x'));
    prepare(bench);
    for (const qulonglong size : {0ULL, 1000ULL}) {
        fetch(bench, byPath, QString(), size);
        ReplyData record = binaryRecord(bench, byPath);
        record.fileData.tempFilePath = bench.path("below.vtxdownload");
        record.fileData.size = size;
        QVERIFY(bench.isPending(record));
    }
    QCOMPARE(bench.log.texts(QtDebugMsg), QStringList());
}

void tst_TarvisNetFetchesBinary::leavesACompleteFileThatCannotBeDeleted()
{
    for (const bool byPath : {true, false}) {
        FetchBench bench;
        const QString savePath = bench.path("saved");
        files::write(savePath + "/inside", "content");
        const auto size = qulonglong(QFileInfo(savePath).size());
        QVERIFY(size > 0);
        prepare(bench);
        fetch(bench, byPath, savePath, size);
        QVERIFY(bench.log.containsPart(QtDebugMsg, existsText));
        QVERIFY(QFileInfo(savePath).isDir());
        QCOMPARE(bench.recorder.names(), QStringList{"s_repliesCountChanged"});
        QCOMPARE(bench.log.texts(QtWarningMsg), QStringList());
    }
}

void tst_TarvisNetFetchesBinary::refusalLeavesTheFiles_data()
{
    keepsWhatIsNotGiven_data();
}

void tst_TarvisNetFetchesBinary::refusalLeavesTheFiles()
{
    QFETCH(bool, byPath);

    FetchBench bench;
    files::write(bench.path("tool"), QByteArray(1000, 'x'));
    prepare(bench);
    if (byPath)
        bench.client.fetchBinary(QString("no slash"), bench.path("tool"), 1000);
    else
        bench.client.fetchBinary(QUrl("http://[not-closed"), bench.path("tool"), 1000);
    QCOMPARE(bench.errors(), QList<int>{errorcodes::invalid_url});
    QCOMPARE(sizeOf(bench.path("tool")), 1000);
    QCOMPARE(bench.log.texts(QtDebugMsg), QStringList());
}

void tst_TarvisNetFetchesBinary::withoutSavePathNothingIsSaved()
{
    ScriptedServer server(ScriptedServer::Mode::Https);
    server.on("/tool", answers::generatedFile(1000));
    FetchBench bench;
    bench.ask(server.port());
    bench.client.setTemporaryDirectory(bench.path("below"));
    bench.client.fetchBinary("/tool", QString(), 1000);
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.errors(), QList<int>{errorcodes::file_not_completed});
    QVERIFY(bench.log.contains(QtWarningMsg, "File path not defined!"));
    QVERIFY(!QFileInfo::exists(bench.path("below.vtxdownload")));
    QCOMPARE(bench.recorder.count("s_finished"), 0);
}

void tst_TarvisNetFetchesBinary::downloads_data()
{
    QTest::addColumn<bool>("byPath");
    QTest::addColumn<int>("destination");
    QTest::addColumn<int>("temporary");
    QTest::addColumn<QByteArray>("range");
    for (const bool byPath : {true, false}) {
        const char *const form = byPath ? "by path" : "by URL";
        QTest::addRow("fresh %s", form) << byPath << missing << missing << QByteArray();
        QTest::addRow("resumed %s", form) << byPath << missing << 300 << QByteArray("bytes=300-");
        QTest::addRow("again %s", form) << byPath << 1000 << missing << QByteArray();
        QTest::addRow("again and resumed %s", form)
            << byPath << 1000 << 300 << QByteArray("bytes=300-");
    }
}

void tst_TarvisNetFetchesBinary::downloads()
{
    QFETCH(bool, byPath);
    QFETCH(int, destination);
    QFETCH(int, temporary);
    QFETCH(QByteArray, range);

    ScriptedServer server(ScriptedServer::Mode::Https);
    server.on("/tool", answers::generatedFile(1000));
    FetchBench bench;
    bench.ask(server.port());
    writeUnlessMissing(bench.path("saved/tool"), destination);
    QDir(bench.path()).mkpath("saved");
    if (temporary != missing)
        files::write(bench.path("tool.vtxdownload"), HttpResponse::generated(0, temporary));
    if (byPath)
        bench.client.fetchBinary("/tool", bench.path("saved/tool"), 1000);
    else
        bench.client.fetchBinary(server.url("/tool"), bench.path("saved/tool"), 1000);
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QCOMPARE(files::read(bench.path("saved/tool")), HttpResponse::generated(0, 1000));
    QVERIFY(!QFileInfo::exists(bench.path("tool.vtxdownload")));
    QCOMPARE(server.requests("/tool").size(), 1);
    QCOMPARE(server.requests("/tool").first().header("range"), range);
    QCOMPARE(bench.recorder.last("s_finished").first().toString(), server.url("/tool").toString());
    QCOMPARE(bench.errors(), QList<int>());
}

QTEST_GUILESS_MAIN(tst_TarvisNetFetchesBinary)

#include "tst_tarvisnet_fetches_binary.moc"
