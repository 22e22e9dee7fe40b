#include "clientbench.h"
#include "files.h"
#include "operations.h"
#include "testclass.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace tst_tarvisnet_binary {

using namespace clientaccess;

namespace {

constexpr char existsText[] = "<TarvisNet::fetchBinary> File allready exist: ";
const QUrl toolUrl(QStringLiteral("https://localhost:8443/tool"));

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

/// A client that keeps what it queues, asked in one of the two forms.
struct BinaryBench : ClientBench {
    explicit BinaryBench(const Operation &form)
        : operation(form)
    {
        ask(quint16(toolUrl.port()), toolUrl.host());
        hold();
    }
    void fetch(const FileData &file) const
    {
        operation.call(
            *client, operation.form == Operation::Path ? toolUrl.path() : toolUrl.toString(), file);
    }
    bool isQueued(const FileData &file, const QByteArray &range = QByteArray()) const
    {
        return isPending(operations::record(*client, operation, toolUrl, file, range));
    }

    const Operation operation;
};

const Operation forms[] = {operations::of("fetchBinary(QString)"),
                           operations::of("fetchBinary(QUrl)")};

} // namespace

/// What the fetch of a binary makes of the files that it finds, before it is sent.
class tst_TarvisNetBinary : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void looksAtTheFiles_data();
    void looksAtTheFiles();
    void namesTheTemporaryFile_data();
    void namesTheTemporaryFile();
    void keepsWhatIsNotGiven();
    void leavesACompleteFileThatCannotBeDeleted();
};

void tst_TarvisNetBinary::looksAtTheFiles_data()
{
    QTest::addColumn<int>("destination");
    QTest::addColumn<int>("temporary");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<bool>("isDiscarded");
    QTest::addColumn<int>("resumedFrom");

    const auto row = [](const char *name, int destination, int temporary, quint64 size,
                        bool isDiscarded, int resumedFrom) {
        QTest::newRow(name) << destination << temporary << size << isDiscarded << resumedFrom;
    };
    row("no files", missing, missing, 1000, false, 0);
    row("complete destination", 1000, missing, 1000, true, 0);
    row("smaller destination", 999, missing, 1000, false, 0);
    row("larger destination", 1001, missing, 1000, false, 0);
    row("empty destination", 0, missing, 1000, false, 0);
    row("empty destination, size unknown", 0, missing, 0, false, 0);
    row("destination, size unknown", 1000, missing, 0, false, 0);
    row("partial temporary file", missing, 300, 1000, false, 300);
    row("one byte of a temporary file", missing, 1, 1000, false, 1);
    row("temporary file without its last byte", missing, 999, 1000, false, 999);
    row("complete temporary file", missing, 1000, 1000, false, 0);
    row("too large temporary file", missing, 1001, 1000, false, 0);
    row("empty temporary file", missing, 0, 1000, false, 0);
    row("temporary file, size unknown", missing, 300, 0, false, 0);
    row("complete destination and partial temporary file", 1000, 300, 1000, true, 300);
    row("other destination and partial temporary file", 500, 300, 1000, false, 300);
    row("size larger than 4 GiB", 1000, 300, 5000000000, false, 300);
    row("size beyond signed numbers", missing, 300, ~quint64(0), false, 300);
}

void tst_TarvisNetBinary::looksAtTheFiles()
{
    QFETCH(const int, destination);
    QFETCH(const int, temporary);
    QFETCH(const quint64, size);
    QFETCH(const bool, isDiscarded);
    QFETCH(const int, resumedFrom);

    for (const Operation &form : forms) {
        BinaryBench bench(form);
        FileData file = bench.file("tool", size);
        file.filePath = bench.path("saved/tool");
        file.hash = "hash";
        writeUnlessMissing(file.filePath, destination);
        writeUnlessMissing(file.tempFilePath, temporary);
        bench.fetch(file);

        QCOMPARE(sizeOf(file.filePath), isDiscarded ? missing : destination);
        QCOMPARE(sizeOf(file.tempFilePath), temporary);
        const QString named = ' ' + quoted(file.filePath);
        const QString twice = form.form == Operation::Path ? named : QString();
        const QString line = existsText + named + twice + "  -- reloading";
        const QStringList lines = isDiscarded ? QStringList(line) : QStringList();
        QCOMPARE(bench.log.texts(), lines);
        QCOMPARE(bench.log.texts(QtDebugMsg), lines);

        file.resumeOffset = resumedFrom;
        const QByteArray range = "bytes=" + QByteArray::number(resumedFrom) + '-';
        QVERIFY(bench.isQueued(file, resumedFrom ? range : QByteArray()));
    }
}

void tst_TarvisNetBinary::namesTheTemporaryFile_data()
{
    QTest::addColumn<QString>("temporaryDirectory");
    QTest::addColumn<QString>("savePath");
    QTest::addColumn<QString>("temporaryPath");

    const auto row = [](const char *name, const char *directory, const char *savePath,
                        const QString &temporaryPath) {
        QTest::newRow(name) << QString(directory) << QString(savePath) << temporaryPath;
    };
    const QString system = QDir::tempPath();
    const QString here = QDir::currentPath();
    row("given directory", "/somewhere", "/data/pkg/tool.zip", "/somewhere/tool.zip.vtxdownload");
    row("system directory", "", "/data/pkg/tool.zip", system + "/tool.zip.vtxdownload");
    row("relative destination", "/somewhere", "tool.zip", "/somewhere/tool.zip.vtxdownload");
    row("relative directory", "below", "/data/tool.zip", here + "/below/tool.zip.vtxdownload");
    row("no suffix", "/somewhere", "/data/tool", "/somewhere/tool.vtxdownload");
    row("has the suffix", "/somewhere", "/a.vtxdownload", "/somewhere/a.vtxdownload.vtxdownload");
    row("percent signs", "/some%2where", "/data/%1 %2", "/some%2where/%1 %2.vtxdownload");
    row("no save path", "/somewhere", "", "/somewhere.vtxdownload");
    row("no save path, system directory", "", "", system + ".vtxdownload");
}

void tst_TarvisNetBinary::namesTheTemporaryFile()
{
    QFETCH(const QString, temporaryDirectory);
    QFETCH(const QString, savePath);
    QFETCH(const QString, temporaryPath);
    FileData file;
    file.filePath = savePath;
    file.tempFilePath = temporaryPath;
    file.size = 1000;
    for (const Operation &form : forms) {
        const BinaryBench bench(form);
        bench.client->setTemporaryDirectory(temporaryDirectory);
        bench.fetch(file);
        QVERIFY(bench.isQueued(file));
    }
}

// A file that would be resumed if there were a save path.
void tst_TarvisNetBinary::keepsWhatIsNotGiven()
{
    for (const Operation &form : forms) {
        const BinaryBench bench(form);
        bench.client->setTemporaryDirectory(bench.path("below"));
        FileData file;
        file.tempFilePath = bench.path("below.vtxdownload");
        files::write(file.tempFilePath, QByteArray(300, 'x'));
        for (const quint64 size : {0, 1000}) {
            file.size = size;
            bench.fetch(file);
            QVERIFY(bench.isQueued(file));
        }
        QCOMPARE(bench.log.texts(QtDebugMsg), QStringList());
    }
}

void tst_TarvisNetBinary::leavesACompleteFileThatCannotBeDeleted()
{
    for (const Operation &form : forms) {
        const BinaryBench bench(form);
        files::write(bench.path("saved/inside"), "content");
        const FileData file = bench.file("saved", quint64(QFileInfo(bench.path("saved")).size()));
        QVERIFY(file.size > 0);
        bench.fetch(file);
        QVERIFY(bench.log.containsPart(QtDebugMsg, existsText));
        QVERIFY(QFileInfo(file.filePath).isDir());
        QCOMPARE(bench.recorder.names(), QStringList("s_repliesCountChanged"));
        QCOMPARE(bench.log.texts(QtWarningMsg), QStringList());
    }
}

const TestClass<tst_TarvisNetBinary> testClass("tst_tarvisnet_binary");

} // namespace tst_tarvisnet_binary

#include "tst_tarvisnet_binary.moc"
