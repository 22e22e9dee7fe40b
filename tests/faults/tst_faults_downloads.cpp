#include "faultbench.h"
#include "faultrows.h"
#include "files.h"
#include "testclass.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtTest/QTest>

#include <functional>

namespace tst_faults_downloads {

using namespace clientaccess;

using endings::signalText;
using faultrows::Mode;
using Prepare = std::function<void(FaultBench &)>;

/// What a server makes of a request for the rest of a file.
struct RangeAnswer {
    QByteArray name;
    int status;
    HttpHeaders headers;
    QByteArray body;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    /// What the destination becomes; null when there is none, and the temporary file stays.
    QByteArray saved = QByteArray();
};

/// What a download finds on the disk at its start, and what there is at its end.
struct FileFault {
    QByteArray name;
    Prepare prepare;
    /// In between the request and the end of it, as FaultBench tells it.
    QStringList said;
    QList<int> errors;
    bool isFinished = false;
    /// Null when there is no such file.
    QByteArray temporary = QByteArray();
    QByteArray destination = QByteArray();
};

} // namespace tst_faults_downloads

Q_DECLARE_METATYPE(tst_faults_downloads::RangeAnswer)
Q_DECLARE_METATYPE(tst_faults_downloads::FileFault)

namespace tst_faults_downloads {

namespace {

const QByteArray content = "abcdef";
const QByteArray begun = "ab";

QList<RangeAnswer> rangeAnswers()
{
    const QByteArray parts = "\r\n--x\r\nContent-Range: bytes 2-5/6\r\n\r\ncdef\r\n--x--\r\n";
    return {
        {"206 right", 206, {{"Content-Range", "bytes 2-5/6"}}, "cdef", {}, content},
        // What a server says of the place of its bytes is not looked at.
        {"206 of another place", 206, {{"Content-Range", "bytes 0-3/6"}}, "abcd", {}, "ababcd"},
        {"206 of no place", 206, {}, "cdef", {}, content},
        {"206 of less", 206, {{"Content-Range", "bytes 2-3/6"}}, "cd", {}, "abcd"},
        {"200 with all", 200, {}, content, {}, begun + content},
        {"204", 204, {}, {}, {}, begun},
        {"416", 416, {{"Content-Range", "bytes */2"}}, "no", QNetworkReply::UnknownContentError},
        {"multipart",
         206,
         {{"Content-Type", "multipart/byteranges; boundary=x"}},
         parts,
         {},
         begun + parts},
    };
}

} // namespace

/// Ranges that are answered amiss, and files that are in the way.
class tst_FaultsDownloads : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void answersToARange_data();
    void answersToARange();
    void answersToTheRangeOfAnInstaller_data() { answersToARange_data(); }
    void answersToTheRangeOfAnInstaller();
    void findsFiles_data();
    void findsFiles();
    void temporaryFileIsReadOnly_data() { faultrows::addModes(); }
    void temporaryFileIsReadOnly();
    void twoDownloadsOfOneName_data() { faultrows::addModes(); }
    void twoDownloadsOfOneName();
};

void tst_FaultsDownloads::answersToARange_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RangeAnswer>("answer");
    for (const RangeAnswer &answer : rangeAnswers())
        faultrows::addInBothModes(answer);
}

void tst_FaultsDownloads::answersToARange()
{
    QFETCH(Mode, mode);
    QFETCH(RangeAnswer, answer);

    const RequestKind binary = requestkinds::of(replies::remote_binary);
    FaultBench bench(mode);
    files::write(bench.temporary(), begun);
    bench.server.on("/fault", answers::bytes(answer.body, answer.status, answer.headers));
    bench.start(binary, ulong(content.size()));
    QVERIFY(bench.waitUntilGone());

    const bool isSaved = answer.error == QNetworkReply::NoError;
    // Even an answer without a body ends a download whose temporary file is there.
    const Ending ending = {answer.error, answer.status, isSaved ? answer.saved : answer.body};
    QCOMPARE(bench.seen(), bench.expectedSignals(binary, ending));
    QCOMPARE(bench.said(), bench.expectedMessages(binary, ending));
    QCOMPARE(bench.server.requests().size(), 1);
    QCOMPARE(bench.server.requests().first().header("range"), QByteArray("bytes=2-"));
    QCOMPARE(files::read(bench.destination()), answer.saved);
    QCOMPARE(files::read(bench.temporary()), isSaved ? QByteArray() : begun);
}

// Nothing of an installer's body is saved, whatever the answer.
void tst_FaultsDownloads::answersToTheRangeOfAnInstaller()
{
    QFETCH(Mode, mode);
    QFETCH(RangeAnswer, answer);

    const RequestKind installer = requestkinds::of(replies::remote_installer);
    FaultBench bench(mode);
    files::write(bench.path("setup"), begun);
    bench.client->setInstallerFileSize(quint64(content.size()));
    bench.client->setInstallerFileName(bench.path("setup"));
    bench.recorder.clear();
    bench.server.on("/fault", answers::bytes(answer.body, answer.status, answer.headers));
    bench.start(installer);
    QVERIFY(bench.waitUntilGone());

    const Ending ending = {answer.error, answer.status, answer.body};
    const QString range =
        line({"debug: <TarvisNet::fetchInstaller> File avalible bytes: ", quoted("bytes=2-")});
    QCOMPARE(bench.seen(), bench.expectedSignals(installer, ending));
    QCOMPARE(bench.said(), QStringList(range) + bench.expectedMessages(installer, ending));
    QCOMPARE(bench.server.requests().first().header("range"), QByteArray("bytes=2-"));
    QCOMPARE(files::read(bench.path("setup")), begun);
    QVERIFY(!QFileInfo::exists(bench.temporary()));
}

void tst_FaultsDownloads::findsFiles_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<FileFault>("fault");

    const auto addFile = [](const FileFault &fault) { faultrows::addInBothModes(fault); };
    const auto temporary = [](const QByteArray &bytes) {
        return [bytes](FaultBench &bench) { files::write(bench.temporary(), bytes); };
    };
    const auto destination = [](const QByteArray &bytes) {
        return [bytes](FaultBench &bench) { files::write(bench.destination(), bytes); };
    };
    const QString exists = "warning: Dest file allready exist";
    const QByteArray none;

    addFile({"nothing", [](FaultBench &) {}, {}, {}, true, none, content});
    addFile({"stale temporary file", temporary("xy"), {}, {}, true, none, "xycdef"});
    addFile({"whole temporary file", temporary("uvwxyz"), {}, {}, true, none, "uvwxyz"});
    addFile({"temporary file too long", temporary("uvwxyz+"), {}, {}, true, none, "uvwxyz+"});
    addFile({"temporary file is a directory",
             [](FaultBench &bench) { QDir().mkpath(bench.temporary()); },
             {openFailed, copyFailed},
             {-210, -218}});
    addFile({"temporary directory is missing",
             [](FaultBench &bench) { QDir(bench.path("temporary")).removeRecursively(); },
             {openFailed, "warning: Temp file not exist"},
             {-210, -218}});
    addFile({"destination of the size",
             destination("uvwxyz"),
             {"debug: <TarvisNet::fetchBinary> File allready exist: "},
             {},
             true,
             none,
             content});
    addFile({"destination of another size", destination("old"), {exists}, {-218}});
    addFile({"destination is a directory",
             [](FaultBench &bench) { QDir().mkpath(bench.destination()); },
             {exists, "warning: Unable to remove destination file"},
             {-218}});
    addFile({"destination is a link to nowhere",
             [](FaultBench &bench) { QFile::link("nowhere/file", bench.destination()); },
             {copyFailed},
             {-218},
             false,
             content});
    addFile({"directory of the destination is missing",
             [](FaultBench &bench) { bench.setDestination(bench.path("missing/file")); },
             {copyFailed},
             {-218},
             false,
             content});
}

void tst_FaultsDownloads::findsFiles()
{
    QFETCH(Mode, mode);
    QFETCH(FileFault, fault);

    FaultBench bench(mode);
    fault.prepare(bench);
    bench.server.on("/fault", answers::file(content));
    bench.start(requestkinds::of(replies::remote_binary), ulong(content.size()));
    QVERIFY(bench.waitUntilGone());

    QCOMPARE(bench.seen(), bench.downloadSignals(fault.errors, fault.isFinished));
    QCOMPARE(bench.saidAs(fault.said), fault.said);
    QCOMPARE(files::read(bench.temporary()), fault.temporary);
    QCOMPARE(files::read(bench.destination()), fault.destination);
}

// A program that runs cannot be written to, not even by root. What the file holds counts as the
// download all the same.
void tst_FaultsDownloads::temporaryFileIsReadOnly()
{
    QFETCH(Mode, mode);

    FaultBench bench(mode);
    const QString sleep = QStandardPaths::findExecutable("sleep");
    QVERIFY(QFile::copy(sleep, bench.temporary()));
    QProcess program;
    program.start(bench.temporary(), {"600"});
    QVERIFY(program.waitForStarted());
    bench.server.on("/fault", answers::file(content));
    bench.start(requestkinds::of(replies::remote_binary), ulong(content.size()));
    QVERIFY(bench.waitUntilGone());
    program.kill();
    QVERIFY(program.waitForFinished());

    QCOMPARE(bench.seen(), bench.downloadSignals({-210}, true));
    QCOMPARE(bench.said(), QStringList(openFailed));
    QVERIFY(files::read(bench.destination()) == files::read(sleep));
    QVERIFY(!QFileInfo::exists(bench.temporary()));
}

// They share their temporary file: whoever ends first takes what both have written.
void tst_FaultsDownloads::twoDownloadsOfOneName()
{
    QFETCH(Mode, mode);

    FaultBench bench(mode);
    QMap<QByteArray, HttpResponse> held;
    bench.server.onRequest([&held](const HttpRequest &request, HttpResponse &response) {
        response.sendHead(200, {}, content.size());
        held.insert(request.path(), response);
    });
    for (const char *path : {"/one", "/two"}) {
        bench.client->fetchBinary(bench.server.url(path), bench.destination(),
                                  ulong(content.size()));
    }
    QVERIFY(bench.server.waitForRequests(2));
    held["/one"].write("abc");
    QTRY_COMPARE(files::read(bench.temporary()), QByteArray("abc"));
    held["/two"].write("uvw");
    QTRY_COMPARE(files::read(bench.temporary()), QByteArray("abcuvw"));
    held["/one"].write("def");
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QCOMPARE(files::read(bench.destination()), QByteArray("abcuvw"));
    held["/two"].write("xyz");
    QVERIFY(bench.recorder.waitFor("s_finished", 2));
    QTRY_COMPARE(repliesOf(*bench.client).size(), 0);

    QCOMPARE(bench.seen(),
             QStringList({"s_startPing|-1", "s_repliesCountChanged", "s_repliesCountChanged",
                          signalText("s_finished", {bench.url("/one")}), "s_repliesCountChanged",
                          "s_stopPing", signalText("s_finished", {bench.url("/two")}),
                          "s_repliesCountChanged"}));
    // The rest of the second goes to a new temporary file, and is dropped for what is there.
    QCOMPARE(bench.said(),
             QStringList({line({"warning: Dest file allready exist", quoted(bench.destination()),
                                quoted(bench.temporary())}),
                          "debug: File already loaded. Remove temporary."}));
    QVERIFY(!QFileInfo::exists(bench.temporary()));
    QCOMPARE(files::read(bench.destination()), QByteArray("abcuvw"));
}

const TestClass<tst_FaultsDownloads> testClass("tst_faults_downloads");

} // namespace tst_faults_downloads

#include "tst_faults_downloads.moc"
