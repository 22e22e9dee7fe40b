#include "clientbench.h"
#include "files.h"
#include "testclass.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace tst_tarvisnet_downloads {

using namespace clientaccess;

namespace {

constexpr char openFailedText[] = "<TarvisNet::saveBinary> Error opening file to write!";
const QByteArray none;

/// The download of a file into a directory that is there.
struct DownloadBench : ClientBench {
    explicit DownloadBench(ScriptedServer::Mode mode = ScriptedServer::Mode::Http)
        : ClientBench(mode)
    {
        QDir().mkpath(path("saved"));
        ask(server.port());
    }
    // What does not concern this request must not be reported for another.
    ~DownloadBench()
    {
        for (const QVariantList &error : recorder.of("s_errorChanged"))
            QCOMPARE(error, failure(error.at(0).toInt(), url("/tool")));
        if (!messages().isEmpty())
            QCOMPARE(log.originFault(sourceFile), QString());
    }

    QString destination() const { return path("saved/tool"); }
    QString temporary() const { return path("tool.vtxdownload"); }
    /// Fetches a file of \a size bytes that is answered by \a length bytes, of which nothing is
    /// sent yet.
    bool begin(qint64 length, quint64 size)
    {
        server.on("/tool", [=](const HttpRequest &, HttpResponse &head) {
            head.sendHead(200, {}, length);
            response = head;
        });
        client->fetchBinary(server.url("/tool"), destination(), size);
        return server.waitForRequests(1);
    }
    bool finish()
    {
        response.finish();
        return recorder.waitFor("s_finished");
    }
    /// Whether the destination has the content, and there is nothing beside it.
    bool isSaved(const QByteArray &content) const
    {
        return files::read(destination()) == content && !QFileInfo::exists(temporary());
    }

    HttpResponse response;
};

} // namespace

/// The files of a download while it goes on, and at its end.
class tst_TarvisNetDownloads : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void downloads_data();
    void downloads();
    void growsPieceByPiece();
    void reportsEveryPieceThatCannotBeWritten();
    void writesWithTheNextPiece();
    void looksAtTheStatus_data();
    void looksAtTheStatus();
};

void tst_TarvisNetDownloads::downloads_data()
{
    QTest::addColumn<bool>("byPath");
    QTest::addColumn<QByteArray>("destination");
    QTest::addColumn<QByteArray>("temporary");
    QTest::addColumn<QByteArray>("range");
    const QByteArray part = HttpResponse::generated(0, 300);
    const QByteArray other(1000, 'x');
    for (const bool byPath : {true, false}) {
        const char *const form = byPath ? "by path" : "by URL";
        QTest::addRow("fresh %s", form) << byPath << none << none << none;
        QTest::addRow("resumed %s", form) << byPath << none << part << QByteArray("bytes=300-");
        QTest::addRow("again %s", form) << byPath << other << none << none;
        QTest::addRow("again and resumed %s", form)
            << byPath << other << part << QByteArray("bytes=300-");
    }
}

void tst_TarvisNetDownloads::downloads()
{
    QFETCH(const bool, byPath);
    QFETCH(const QByteArray, destination);
    QFETCH(const QByteArray, temporary);
    QFETCH(const QByteArray, range);

    DownloadBench bench(ScriptedServer::Mode::Https);
    bench.server.on("/tool", answers::generatedFile(1000));
    if (!destination.isNull())
        files::write(bench.destination(), destination);
    if (!temporary.isNull())
        files::write(bench.temporary(), temporary);
    if (byPath)
        bench.client->fetchBinary("/tool", bench.destination(), 1000);
    else
        bench.client->fetchBinary(bench.server.url("/tool"), bench.destination(), 1000);
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QVERIFY(bench.isSaved(HttpResponse::generated(0, 1000)));
    QCOMPARE(bench.server.requests("/tool").size(), 1);
    QCOMPARE(bench.server.requests("/tool").first().header("range"), range);
    QCOMPARE(bench.recorder.last("s_finished"), QVariantList{bench.url("/tool")});
    QCOMPARE(bench.errors(), QList<int>());
}

void tst_TarvisNetDownloads::growsPieceByPiece()
{
    DownloadBench bench;
    QVERIFY(bench.begin(HttpResponse::UntilClose, 9));
    QByteArray written;
    for (const char *piece : {"abc", "de", "f", "ghi"}) {
        QVERIFY(!QFileInfo::exists(bench.destination()));
        bench.response.write(piece);
        written += piece;
        QTRY_COMPARE(files::read(bench.temporary()), written);
    }
    QVERIFY(bench.finish());
    QVERIFY(bench.isSaved(written));
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.log.texts(QtWarningMsg), QStringList());
}

// The download goes on, and each piece is tried anew.
void tst_TarvisNetDownloads::reportsEveryPieceThatCannotBeWritten()
{
    DownloadBench bench;
    bench.client->setTemporaryDirectory(bench.path("missing"));
    QVERIFY(bench.begin(9, 9));
    for (int i = 1; i <= 3; ++i) {
        bench.response.write("abc");
        QVERIFY(bench.recorder.waitFor("s_errorChanged", i));
        QCOMPARE(bench.log.count(QtWarningMsg, openFailedText), i);
    }
    bench.response.finish();
    QVERIFY(bench.recorder.waitFor("s_errorChanged", 4));
    QCOMPARE(bench.errors(), QList<int>({-210, -210, -210, -218}));
    QCOMPARE(bench.log.count(QtWarningMsg, "Temp file not exist"), 1);
    QVERIFY(!QFileInfo::exists(bench.destination()));
    QVERIFY(!QFileInfo::exists(bench.path("missing")));
    QCOMPARE(bench.recorder.count("s_finished"), 0);
}

void tst_TarvisNetDownloads::writesWithTheNextPiece()
{
    DownloadBench bench;
    bench.client->setTemporaryDirectory(bench.path("late"));
    QVERIFY(bench.begin(6, 6));
    bench.response.write("abc");
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QDir().mkpath(bench.path("late"));
    bench.response.write("def");
    QVERIFY(bench.finish());
    QCOMPARE(bench.errors(), QList<int>{errorcodes::file_open_failed});
    QVERIFY(bench.isSaved("abcdef"));
}

void tst_TarvisNetDownloads::looksAtTheStatus_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("present");
    QTest::addColumn<QList<int>>("errors");
    for (const int status : {200, 201, 206, 299})
        QTest::addRow("%d", status) << status << none << QList<int>();
    const auto failing = [](int status, int code) {
        QTest::addRow("%d, fresh", status) << status << none << QList<int>{code};
        QTest::addRow("%d, resumed", status) << status << QByteArray("ab") << QList<int>{code};
    };
    failing(400, errorcodes::protocol_invalid_operation);
    failing(403, errorcodes::network_error);
    failing(404, errorcodes::content_not_found);
    failing(416, errorcodes::network_error);
    failing(500, errorcodes::network_error);
}

// Every success is saved, and nothing of a failure.
void tst_TarvisNetDownloads::looksAtTheStatus()
{
    QFETCH(const int, status);
    QFETCH(const QByteArray, present);
    QFETCH(const QList<int>, errors);
    const bool isSaved = errors.isEmpty();
    DownloadBench bench;
    if (!present.isNull())
        files::write(bench.temporary(), present);
    bench.server.on("/tool", answers::bytes("abcdef", status));
    bench.client->fetchBinary(bench.server.url("/tool"), bench.destination(), 6);
    QVERIFY(bench.recorder.waitFor(isSaved ? "s_finished" : "s_errorChanged"));
    QCOMPARE(bench.errors(), errors);
    QCOMPARE(bench.recorder.count("s_finished"), isSaved ? 1 : 0);
    QCOMPARE(QFileInfo::exists(bench.destination()), isSaved);
    QCOMPARE(files::read(bench.destination()), isSaved ? QByteArray("abcdef") : none);
    QCOMPARE(QFileInfo::exists(bench.temporary()), !present.isNull());
    QCOMPARE(files::read(bench.temporary()), present);
}

const TestClass<tst_TarvisNetDownloads> testClass("tst_tarvisnet_downloads");

} // namespace tst_tarvisnet_downloads

#include "tst_tarvisnet_downloads.moc"
