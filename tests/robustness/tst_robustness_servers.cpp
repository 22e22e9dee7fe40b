#include "clientbench.h"
#include "files.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtTest/QTest>

#include <cstdio>
#include <functional>

using namespace clientaccess;

using Mode = ScriptedServer::Mode;
using Script = std::function<void(HttpResponse &)>;

/// How a request may end.
enum class Outcome { Succeeds, Fails, Either };

Q_DECLARE_METATYPE(Script)
Q_DECLARE_METATYPE(Outcome)

namespace {

// Generous for runs under sanitizers and memory checkers.
constexpr int patience = 120000;

constexpr qint64 MiB = 1024 * 1024;
constexpr qint64 largeSize = 256 * MiB;
constexpr qint64 allowedGrowth = 40 * MiB;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool memoryIsMeasurable = false;
#else
constexpr bool memoryIsMeasurable = true;
#endif

const char fetchArgument[] = "--fetch";

/// A figure of this process in bytes: VmRSS is what is resident, VmHWM the most that ever was.
qint64 ownMemory(const QByteArray &figure)
{
    for (const QByteArray &line : files::read("/proc/self/status").split('\n')) {
        if (line.startsWith(figure + ':'))
            return line.mid(figure.size() + 1).simplified().split(' ').value(0).toLongLong() * 1024;
    }
    qFatal("no figure %s", figure.constData());
}

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

void addModes()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::newRow("HTTP") << Mode::Http;
    QTest::newRow("HTTPS") << Mode::Https;
}

QByteArray manyHeaders(int count)
{
    QByteArray headers;
    for (int i = 0; i < count; ++i)
        headers += "X-Header-" + QByteArray::number(i) + ": " + QByteArray(100, 'v') + "\r\n";
    return headers;
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
    QTest::addColumn<Outcome>("outcome");
    QTest::addColumn<QByteArray>("body");

    const auto row = [](const char *name, const Script &script, Outcome outcome,
                        const QByteArray &body = QByteArray()) {
        QTest::addRow("%s, HTTP", name) << Mode::Http << script << outcome << body;
        QTest::addRow("%s, HTTPS", name) << Mode::Https << script << outcome << body;
    };
    const auto fails = [row](const char *name, const Script &script) {
        row(name, script, Outcome::Fails);
    };
    // Whether Qt takes such a body for complete depends on how the bytes come in.
    const auto fallsBack = [row](const char *name, const Script &script) {
        row(name, script, Outcome::Either);
    };
    const auto raw = [](const QByteArray &bytes) {
        return [bytes](HttpResponse &response) {
            response.writeRaw(bytes);
            response.finish();
        };
    };
    const auto chunked = [raw](const QByteArray &body) {
        return raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + body);
    };
    const auto announced = [raw](const QByteArray &length, const QByteArray &body) {
        return raw("HTTP/1.1 200 OK\r\nContent-Length: " + length + "\r\n\r\n" + body);
    };

    fails("rubbish", raw("this is no HTTP at all\r\n\r\nreally not"));
    fails("bytes", raw(HttpResponse::generated(0, 10000)));
    fails("another protocol", raw("SSH-2.0-server\r\n"));
    fails("closed at once", [](HttpResponse &response) { response.cut(); });
    fails("reset at once", [](HttpResponse &response) { response.reset(); });
    fails("half a status line", raw("HTTP/1."));
    fails("half a head", raw("HTTP/1.1 200 OK\r\nContent-Le"));
    fails("endless headers", raw("HTTP/1.1 200 OK\r\n" + manyHeaders(1000)));
    row("many headers",
        raw("HTTP/1.1 200 OK\r\n" + manyHeaders(1000) + "Content-Length: 4\r\n\r\nbody"),
        Outcome::Succeeds, "body");
    row("a long header",
        raw("HTTP/1.1 200 OK\r\nX-Long: " + QByteArray(MiB, 'x')
            + "\r\nContent-Length: 4\r\n\r\nbody"),
        Outcome::Succeeds, "body");
    row("many interim answers",
        raw(QByteArray("HTTP/1.1 100 Continue\r\n\r\n").repeated(50)
            + "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody"),
        Outcome::Succeeds, "body");
    fails("a body shorter than announced", [announced](HttpResponse &response) {
        response.cork();
        announced("1000", "only a little")(response);
    });
    row("a body longer than announced", announced("4", "body and more"), Outcome::Succeeds, "body");
    fallsBack("an absurd length", announced("9223372036854775807", "body"));
    row("a length that is no number", announced("many", "body"), Outcome::Succeeds, "body");
    row("a negative length", announced("-5", "body"), Outcome::Succeeds, "body");
    fallsBack("a body that is reset", [](HttpResponse &response) {
        response.sendHead(200, {}, 1000);
        response.write("only a little");
        response.reset();
    });
    fallsBack("a chunk that is cut", chunked("10\r\nonly a"));
    fallsBack("chunks without an end", chunked("4\r\nbody\r\n"));
    fallsBack("a chunk size that is no number", chunked("zz\r\nbody\r\n0\r\n\r\n"));
    fallsBack("a negative chunk size", chunked("-4\r\nbody\r\n0\r\n\r\n"));
    fallsBack("an absurd chunk size", chunked("7fffffffffffffff\r\nbody\r\n0\r\n\r\n"));
}

void tst_RobustnessServers::hostileAnswers()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(Script, script);
    QFETCH(Outcome, outcome);
    QFETCH(QByteArray, body);

    ClientBench bench(mode);
    bench.server.on("/hostile",
                    [&script](const HttpRequest &, HttpResponse &response) { script(response); });
    bench.server.on("/marker", answers::json({}));
    bench.client->rawGetFile(bench.server.url("/hostile"));
    QVERIFY(bench.recorder.waitFor("s_repliesCountChanged", 2, 10000));

    const QString url = bench.url("/hostile");
    const int results = bench.recorder.count("s_rawGetFileFinished");
    QCOMPARE(results + bench.recorder.count("s_errorChanged"), 1);
    if (outcome != Outcome::Either)
        QCOMPARE(results, outcome == Outcome::Succeeds ? 1 : 0);
    if (outcome == Outcome::Succeeds) {
        QCOMPARE(bench.recorder.last("s_rawGetFileFinished").mid(0, 2), QVariantList({body, url}));
    } else if (results == 0) {
        const QVariantList arguments = bench.recorder.last("s_errorChanged");
        QCOMPARE(arguments.mid(0, 2), QVariantList({QVariant::fromValue(short(-203)), url}));
        QVERIFY(arguments.at(2).toJsonDocument().isNull());
    }

    // The client still works.
    bench.client->rawGet(bench.server.url("/marker"));
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
    // Copied with every piece, this body would make the program move more than a hundred GiB.
    const QByteArray body = HttpResponse::generated(0, int(32 * MiB));
    ClientBench bench;
    bench.server.on("/bytes", [&body](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, body.size());
        response.dribble(body, 4096);
        response.finish();
    });
    QNetworkReply *reply = start(*bench.client, record("rawGetFile", bench.server.url("/bytes")));
    int pieces = 0;
    connect(reply, &QIODevice::readyRead, this, [&pieces] { ++pieces; });
    QVERIFY(bench.recorder.waitFor("s_rawGetFileFinished", 1, patience));

    QVERIFY2(pieces > 1000, QByteArray::number(pieces));
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
