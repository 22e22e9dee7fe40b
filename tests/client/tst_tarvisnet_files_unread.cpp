#include "answers.h"
#include "fetchbench.h"
#include "files.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace {

constexpr qint64 MiB = 1024 * 1024;
// Far more than any buffer between server and client holds, and more than the size from which on
// the client lets Qt read ahead only a little.
constexpr qint64 bodySize = 20 * MiB;

} // namespace

/// Large bodies that nobody reads, on purpose: the download ends all the same, and makes room for
/// the next request.
class tst_TarvisNetFilesUnread : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void endsAndMakesRoom_data();
    void endsAndMakesRoom();
    void surplus_data();
    void surplus();
    void cannotBeOpened_data();
    void cannotBeOpened();
    void redirect_data();
    void redirect();

private:
    static void addModes();
    static bool isRoom(FetchBench &bench, ScriptedServer &server);
};

void tst_TarvisNetFilesUnread::addModes()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::newRow("http") << ScriptedServer::Mode::Http;
    QTest::newRow("https") << ScriptedServer::Mode::Https;
}

/// Whether a request behind the download is answered, when one at a time is in flight.
bool tst_TarvisNetFilesUnread::isRoom(FetchBench &bench, ScriptedServer &server)
{
    server.on("/next", answers::json({{"next", true}}));
    bench.client.rawGet(server.url("/next"));
    return bench.recorder.waitFor("s_rawGet", 1, 30000);
}

void tst_TarvisNetFilesUnread::endsAndMakesRoom_data()
{
    struct Case {
        const char *name;
        int status;
        bool hasSavePath;
        qint64 present;
        qint64 size;
        QList<int> errors;
        qint64 saved;
    };
    const QList<int> none;
    const QVector<Case> cases = {
        {"not found", 404, true, -1, bodySize, {errorcodes::content_not_found}, -1},
        {"not found, resumed", 404, true, 100, bodySize, {errorcodes::content_not_found}, -1},
        {"forbidden", 403, true, -1, bodySize, {errorcodes::network_error}, -1},
        {"server error", 500, true, -1, bodySize, {errorcodes::network_error}, -1},
        {"no save path", 200, false, -1, bodySize, {errorcodes::file_not_completed}, -1},
        {"complete temporary file", 200, true, bodySize, bodySize, none, bodySize},
        {"too large temporary file", 200, true, bodySize + 1, bodySize, none, bodySize + 1},
        {"size unknown", 200, true, -1, 0, none, 0},
    };

    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("hasSavePath");
    // -1: there is no such file.
    QTest::addColumn<qint64>("present");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QList<int>>("errors");
    QTest::addColumn<qint64>("saved");
    for (const Case &row : cases) {
        QTest::addRow("%s over http", row.name)
            << ScriptedServer::Mode::Http << row.status << row.hasSavePath << row.present
            << row.size << row.errors << row.saved;
        QTest::addRow("%s over https", row.name)
            << ScriptedServer::Mode::Https << row.status << row.hasSavePath << row.present
            << row.size << row.errors << row.saved;
    }
}

void tst_TarvisNetFilesUnread::endsAndMakesRoom()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(int, status);
    QFETCH(bool, hasSavePath);
    QFETCH(qint64, present);
    QFETCH(qint64, size);
    QFETCH(QList<int>, errors);
    QFETCH(qint64, saved);

    ScriptedServer server(mode);
    server.on("/tool", [=](const HttpRequest &, HttpResponse &response) {
        response.sendGenerated(status, {}, bodySize);
    });
    FetchBench bench;
    const QString destination = bench.path("tool");
    const QString temporary = bench.path("tool.vtxdownload");
    if (present >= 0)
        files::write(temporary, QByteArray(int(present), 'x'));
    bench.client.setParallelRequestsCount(1);
    bench.client.fetchBinary(server.url("/tool"), hasSavePath ? destination : QString(),
                             qulonglong(size));
    QVERIFY(isRoom(bench, server));
    QCOMPARE(bench.errors(), errors);
    QCOMPARE(bench.recorder.count("s_finished"), errors.isEmpty() ? 1 : 0);
    QCOMPARE(QFileInfo::exists(destination), saved >= 0);
    QCOMPARE(files::read(destination).count('x'), int(qMax(saved, qint64(0))));
    // A failure keeps what was there.
    const bool isKept = present >= 0 && saved < 0;
    QCOMPARE(files::read(temporary).size(), isKept ? int(present) : 0);
}

void tst_TarvisNetFilesUnread::surplus_data()
{
    addModes();
}

void tst_TarvisNetFilesUnread::surplus()
{
    QFETCH(ScriptedServer::Mode, mode);

    const qint64 size = 17 * MiB;
    ScriptedServer server(mode);
    HttpResponse answer;
    server.on("/tool", [&](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, size + bodySize);
        response.writeGenerated(size);
        answer = response;
    });
    FetchBench bench;
    bench.client.setParallelRequestsCount(1);
    bench.client.fetchBinary(server.url("/tool"), bench.path("tool"), qulonglong(size));
    QTRY_COMPARE_WITH_TIMEOUT(QFileInfo(bench.path("tool.vtxdownload")).size(), size, 30000);
    answer.writeGenerated(bodySize, size);
    answer.finish();
    QVERIFY(isRoom(bench, server));
    QCOMPARE(bench.recorder.count("s_finished"), 1);
    QCOMPARE(bench.errors(), QList<int>());
    QVERIFY(files::read(bench.path("tool")) == HttpResponse::generated(0, size));
}

void tst_TarvisNetFilesUnread::cannotBeOpened_data()
{
    addModes();
}

void tst_TarvisNetFilesUnread::cannotBeOpened()
{
    QFETCH(ScriptedServer::Mode, mode);

    ScriptedServer server(mode);
    server.on("/tool", answers::generatedFile(bodySize));
    FetchBench bench;
    bench.client.setTemporaryDirectory(bench.path("missing"));
    bench.client.setParallelRequestsCount(1);
    bench.client.fetchBinary(server.url("/tool"), bench.path("tool"), qulonglong(bodySize));
    QVERIFY(isRoom(bench, server));
    QList<int> errors = bench.errors();
    QCOMPARE(errors.takeLast(), int(errorcodes::file_not_completed));
    QVERIFY(!errors.isEmpty());
    QCOMPARE(errors.count(errorcodes::file_open_failed), errors.size());
    QCOMPARE(bench.log.count(QtWarningMsg, "<TarvisNet::saveBinary> Error opening file to write!"),
             errors.size());
    QVERIFY(!QFileInfo::exists(bench.path("tool")));
}

void tst_TarvisNetFilesUnread::redirect_data()
{
    addModes();
}

// The target is collected in memory, so that the temporary file receives nothing of it.
void tst_TarvisNetFilesUnread::redirect()
{
    QFETCH(ScriptedServer::Mode, mode);

    ScriptedServer server(mode);
    const QByteArray target = server.url("/target").toEncoded();
    server.on("/tool", [=](const HttpRequest &, HttpResponse &response) {
        response.sendGenerated(302, {{"Location", target}}, bodySize);
    });
    server.on("/target", answers::generatedFile(bodySize));
    FetchBench bench;
    bench.client.setParallelRequestsCount(1);
    bench.client.fetchBinary(server.url("/tool"), bench.path("tool"), qulonglong(bodySize));
    QVERIFY(isRoom(bench, server));
    QCOMPARE(bench.errors(), QList<int>{errorcodes::file_not_completed});
    QCOMPARE(bench.log.count(QtWarningMsg, "Temp file not exist"), 1);
    QVERIFY(!QFileInfo::exists(bench.path("tool")));
}

QTEST_GUILESS_MAIN(tst_TarvisNetFilesUnread)

#include "tst_tarvisnet_files_unread.moc"
