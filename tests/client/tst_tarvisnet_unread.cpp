#include "clientbench.h"
#include "files.h"
#include "operations.h"
#include "testclass.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace tst_tarvisnet_unread {

using namespace clientaccess;

namespace {

constexpr qint64 MiB = 1024 * 1024;
// Far more than any buffer between server and client holds, and more than the size from which on
// the client lets Qt read ahead only a little.
constexpr qint64 bodySize = 20 * MiB;

/// A client that downloads a file while nothing else may be on its way.
struct UnreadBench : ClientBench {
    explicit UnreadBench(ScriptedServer::Mode mode)
        : ClientBench(mode)
    {
        client->setParallelRequestsCount(1);
        server.on("/next", answers::json({{"next", true}}));
    }

    QString destination() const { return path("tool"); }
    QString temporary() const { return path("tool.vtxdownload"); }
    void fetch(const QString &savePath, qint64 size) const
    {
        client->fetchBinary(server.url("/tool"), savePath, qulonglong(size));
    }
    /// Whether a request behind the download is answered.
    bool isRoom()
    {
        get({"/next"});
        return recorder.waitFor("s_rawGet", 1, 30000);
    }
};

} // namespace

/// Large bodies that nobody reads, on purpose: the download ends all the same, and makes room for
/// the next request.
class tst_TarvisNetUnread : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void endsAndMakesRoom_data();
    void endsAndMakesRoom();
    void surplus_data() { addModes(); }
    void surplus();
    void cannotBeOpened_data() { addModes(); }
    void cannotBeOpened();
    void redirect_data() { addModes(); }
    void redirect();
    void boundsFilesOnly_data();
    void boundsFilesOnly();
};

void tst_TarvisNetUnread::endsAndMakesRoom_data()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("hasSavePath");
    // -1: there is no such file.
    QTest::addColumn<qint64>("present");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QList<int>>("errors");
    QTest::addColumn<qint64>("saved");

    const auto rows = [](const char *name, int status, bool hasSavePath, qint64 present,
                         qint64 size, const QList<int> &errors, qint64 saved) {
        for (const auto mode : {ScriptedServer::Mode::Http, ScriptedServer::Mode::Https}) {
            const bool isTls = mode == ScriptedServer::Mode::Https;
            QTest::addRow("%s over %s", name, isTls ? "https" : "http")
                << mode << status << hasSavePath << present << size << errors << saved;
        }
    };
    rows("not found", 404, true, -1, bodySize, {errorcodes::content_not_found}, -1);
    rows("not found, resumed", 404, true, 100, bodySize, {errorcodes::content_not_found}, -1);
    rows("forbidden", 403, true, -1, bodySize, {errorcodes::network_error}, -1);
    rows("server error", 500, true, -1, bodySize, {errorcodes::network_error}, -1);
    rows("no save path", 200, false, -1, bodySize, {errorcodes::file_not_completed}, -1);
    rows("complete temporary file", 200, true, bodySize, bodySize, {}, bodySize);
    rows("too large temporary file", 200, true, bodySize + 1, bodySize, {}, bodySize + 1);
    rows("size unknown", 200, true, -1, 0, {}, 0);
}

void tst_TarvisNetUnread::endsAndMakesRoom()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(int, status);
    QFETCH(bool, hasSavePath);
    QFETCH(qint64, present);
    QFETCH(qint64, size);
    QFETCH(QList<int>, errors);
    QFETCH(qint64, saved);

    UnreadBench bench(mode);
    bench.server.on("/tool", [=](const HttpRequest &, HttpResponse &response) {
        response.sendGenerated(status, {}, bodySize);
    });
    if (present >= 0)
        files::write(bench.temporary(), QByteArray(int(present), 'x'));
    bench.fetch(hasSavePath ? bench.destination() : QString(), size);
    QVERIFY(bench.isRoom());
    QCOMPARE(bench.errors(), errors);
    QCOMPARE(bench.recorder.count("s_finished"), errors.isEmpty() ? 1 : 0);
    QCOMPARE(QFileInfo::exists(bench.destination()), saved >= 0);
    QVERIFY(files::read(bench.destination()) == QByteArray(int(qMax(saved, qint64(0))), 'x'));
    QCOMPARE(bench.log.contains(QtWarningMsg, "File path not defined!"), !hasSavePath);
    QVERIFY(!QFileInfo::exists(bench.path() + ".vtxdownload"));
    // A failure keeps what was there.
    const bool isKept = present >= 0 && saved < 0;
    QCOMPARE(files::read(bench.temporary()).size(), isKept ? int(present) : 0);
}

void tst_TarvisNetUnread::surplus()
{
    QFETCH(ScriptedServer::Mode, mode);

    const qint64 size = 17 * MiB;
    UnreadBench bench(mode);
    HttpResponse answer;
    bench.server.on("/tool", [&](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, size + bodySize);
        response.writeGenerated(size);
        answer = response;
    });
    bench.fetch(bench.destination(), size);
    QTRY_COMPARE_WITH_TIMEOUT(QFileInfo(bench.temporary()).size(), size, 30000);
    answer.writeGenerated(bodySize, size);
    answer.finish();
    QVERIFY(bench.isRoom());
    QCOMPARE(bench.recorder.count("s_finished"), 1);
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.log.texts(QtWarningMsg), QStringList());
    QVERIFY(files::read(bench.destination()) == HttpResponse::generated(0, size));
}

void tst_TarvisNetUnread::cannotBeOpened()
{
    QFETCH(ScriptedServer::Mode, mode);

    UnreadBench bench(mode);
    bench.server.on("/tool", answers::generatedFile(bodySize));
    bench.client->setTemporaryDirectory(bench.path("missing"));
    bench.fetch(bench.destination(), bodySize);
    QVERIFY(bench.isRoom());
    QList<int> errors = bench.errors();
    QCOMPARE(errors.takeLast(), int(errorcodes::file_not_completed));
    QVERIFY(!errors.isEmpty());
    QCOMPARE(errors.count(errorcodes::file_open_failed), errors.size());
    QCOMPARE(bench.log.count(QtWarningMsg, "<TarvisNet::saveBinary> Error opening file to write!"),
             errors.size());
    QVERIFY(!QFileInfo::exists(bench.destination()));
}

// The target is collected in memory, so that the temporary file receives nothing of it.
void tst_TarvisNetUnread::redirect()
{
    QFETCH(ScriptedServer::Mode, mode);

    UnreadBench bench(mode);
    const QByteArray target = bench.server.url("/target").toEncoded();
    bench.server.on("/tool", [=](const HttpRequest &, HttpResponse &response) {
        response.sendGenerated(302, {{"Location", target}}, bodySize);
    });
    bench.server.on("/target", answers::generatedFile(bodySize));
    bench.fetch(bench.destination(), bodySize);
    QVERIFY(bench.isRoom());
    QCOMPARE(bench.errors(), QList<int>{errorcodes::file_not_completed});
    QCOMPARE(bench.log.count(QtWarningMsg, "Temp file not exist"), 1);
    QVERIFY(!QFileInfo::exists(bench.destination()));
}

void tst_TarvisNetUnread::boundsFilesOnly_data()
{
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : requestkinds::all())
        QTest::newRow(kind.name) << kind;
}

// Other answers are held in memory anyway.
void tst_TarvisNetUnread::boundsFilesOnly()
{
    QFETCH(const RequestKind, kind);
    const WaitingBench bench;
    const QNetworkReply *reply =
        bench.start(record(kind.name, bench.server.url("/held"), bench.file("file", bodySize)));
    QCOMPARE(reply->readBufferSize() > 0, kind.isFile());
}

const TestClass<tst_TarvisNetUnread> testClass("tst_tarvisnet_unread");

} // namespace tst_tarvisnet_unread

#include "tst_tarvisnet_unread.moc"
