#include "clientbench.h"
#include "files.h"
#include "ownmemory.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtTest/QTest>

#include <cstdio>
#include <functional>

using namespace clientaccess;

using Mode = ScriptedServer::Mode;
using Script = std::function<void(HttpResponse &)>;

Q_DECLARE_METATYPE(Script)

namespace {

// Generous for runs under sanitizers and memory checkers.
constexpr int patience = 120000;

constexpr qint64 MiB = 1024 * 1024;
constexpr qint64 largeSize = 256 * MiB;
constexpr qint64 allowedGrowth = 40 * MiB;

const char fetchArgument[] = "--fetch";

/// The process that downloads \a url to \a path and prints by how much that made it grow. The
/// server stays behind in the process of the test, so that its memory is not counted.
int runFetch(const QUrl &url, const QString &path)
{
    const LogCapture quiet;
    TarvisNet client;
    client.setTemporaryDirectory(QFileInfo(path).path());
    const qint64 before = ownMemory("VmRSS");
    QObject::connect(&client, &TarvisNet::s_finished, [] { QCoreApplication::exit(0); });
    QObject::connect(&client, &TarvisNet::s_errorChanged,
                     [](short code) { QCoreApplication::exit(-code); });
    client.fetchBinary(url, path, largeSize);
    const int result = QCoreApplication::exec();
    std::printf("%lld", ownMemory("VmHWM") - before);
    return result;
}

} // namespace

/// Servers that answer anything, for ever, or too much.
class tst_RobustnessServers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void hostileAnswers_data();
    void hostileAnswers();
    void followsThousandsOfRedirects_data() { addModes(); }
    void followsThousandsOfRedirects();
    void largeDownloadStaysSmall_data() { addModes(); }
    void largeDownloadStaysSmall();
    void collectsManySmallPieces();
};

void tst_RobustnessServers::hostileAnswers_data()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<Script>("script");
    QTest::addColumn<QByteArray>("body");

    // Without a body it is to fail.
    const auto rows = [](const char *name, const Script &script, const QByteArray &body) {
        QTest::addRow("%s, HTTP", name) << Mode::Http << script << body;
        QTest::addRow("%s, HTTPS", name) << Mode::Https << script << body;
    };
    const auto raw = [](const QByteArray &bytes) {
        return [bytes](HttpResponse &response) {
            response.writeRaw(bytes);
            response.finish();
        };
    };
    const QByteArray good = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody";
    rows("bytes", raw(HttpResponse::generated(0, 10000)), QByteArray());
    rows("half a head", raw("HTTP/1.1 200 OK\r\nContent-Le"), QByteArray());
    rows(
        "reset at once", [](HttpResponse &response) { response.reset(); }, QByteArray());
    rows("more than announced", raw(good + " and more"), "body");
    rows("many interim answers",
         raw(QByteArray("HTTP/1.1 100 Continue\r\n\r\n").repeated(50) + good), "body");
}

// In what ways an answer may be wrong is in the tests of faults; here the client goes on after it.
void tst_RobustnessServers::hostileAnswers()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(Script, script);
    QFETCH(QByteArray, body);

    ClientBench bench(mode);
    bench.server.on("/hostile",
                    [&script](const HttpRequest &, HttpResponse &response) { script(response); });
    bench.server.on("/marker", answers::json({}));
    bench.client->rawGetFile(bench.server.url("/hostile"));
    QVERIFY(bench.recorder.waitFor("s_repliesCountChanged", 2, 10000));

    const QString url = bench.url("/hostile");
    const QVariantList result = bench.recorder.last("s_rawGetFileFinished").mid(0, 2);
    QCOMPARE(result, body.isNull() ? QVariantList() : QVariantList({body, url}));
    QCOMPARE(bench.error(), body.isNull() ? failure(-203, url) : QVariantList());
    QCOMPARE(bench.errors().size(), body.isNull() ? 1 : 0);

    bench.get({"/marker"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
}

void tst_RobustnessServers::followsThousandsOfRedirects()
{
    QFETCH(ScriptedServer::Mode, mode);

    // Over TLS now and then each of them waits for a delayed acknowledgement.
    const int hops = mode == ScriptedServer::Mode::Http ? 20000 : 2000;
    ClientBench bench(mode);
    bench.server.onRequest([&bench](const HttpRequest &request, HttpResponse &response) {
        const int rest = request.path().mid(1).toInt();
        if (rest == 0)
            return answers::json({{"answer", 42}})(request, response);
        const QUrl next = bench.server.url('/' + QString::number(rest - 1));
        response.send(302, {{"Location", next.toEncoded()}});
    });
    const QString url = bench.url('/' + QString::number(hops));
    bench.client->rawGet(QUrl(url));
    QVERIFY(bench.recorder.waitFor("s_rawGet", 1, patience));

    QCOMPARE(bench.recorder.count("s_rawGet"), 1);
    QCOMPARE(bench.recorder.last("s_rawGet").at(1).toString(), url);
    QVERIFY(!bench.recorder.last("s_rawGet").at(0).toJsonDocument().isNull());
    QCOMPARE(bench.server.requests().size(), hops + 1);
    // The request itself, and every reply of the chain.
    QCOMPARE(bench.recorder.count("s_repliesCountChanged"), hops + 2);
}

void tst_RobustnessServers::largeDownloadStaysSmall()
{
    QFETCH(ScriptedServer::Mode, mode);

    QTemporaryDir directory;
    const QString path = directory.filePath("file");
    ScriptedServer server(mode);
    server.on("/file", answers::generatedFile(largeSize));
    QProcess fetch;
    fetch.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    SignalRecorder recorder(&fetch, {"finished"});
    fetch.start(QCoreApplication::applicationFilePath(),
                {fetchArgument, server.url("/file").toString(), path});
    QVERIFY(recorder.waitFor("finished", 1, patience));

    QCOMPARE(fetch.exitStatus(), QProcess::NormalExit);
    QCOMPARE(fetch.exitCode(), 0);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.size(), largeSize);
    for (qint64 from = 0; from < largeSize; from += MiB)
        QVERIFY(file.seek(from) && file.read(4096) == HttpResponse::generated(from, 4096));
    bool isNumber = false;
    const qint64 growth = fetch.readAllStandardOutput().toLongLong(&isNumber);
    QVERIFY(isNumber);
    if (memoryIsMeasurable)
        QVERIFY2(growth < allowedGrowth, QByteArray::number(growth));
}

void tst_RobustnessServers::collectsManySmallPieces()
{
    // Copied with every piece, this body would make the program move many GiB: the more pieces,
    // the more.
    const QByteArray body = HttpResponse::generated(0, int(32 * MiB));
    ClientBench bench;
    bench.server.on("/bytes", [&body](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, body.size());
        response.dribble(body, 4096);
        response.finish();
    });
    QNetworkReply *reply = bench.start(record("rawGetFile", bench.server.url("/bytes")));
    int pieces = 0;
    connect(reply, &QIODevice::readyRead, this, [&pieces] { ++pieces; });
    QVERIFY(bench.recorder.waitFor("s_rawGetFileFinished", 1, patience));

    QVERIFY2(pieces > 200, QByteArray::number(pieces));
    QVERIFY(bench.recorder.last("s_rawGetFileFinished").at(0).toByteArray() == body);
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == fetchArgument)
        return runFetch(QUrl(arguments.value(2)), arguments.value(3));
    tst_RobustnessServers test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_robustness_servers.moc"
