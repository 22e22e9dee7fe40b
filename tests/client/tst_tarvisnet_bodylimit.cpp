#include "clientbench.h"
#include "files.h"
#include "operations.h"
#include "ownmemory.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QJsonObject>
#include <QtCore/QProcess>
#include <QtTest/QTest>

#include <cstdio>

using namespace clientaccess;

namespace {

const char removed[] = "s_repliesCountChanged";
constexpr qint64 MiB = 1024 * 1024;

constexpr int bound = 1000;
// More than the bound that is measured, and what Qt holds of what is on its way.
constexpr qint64 largeBound = 16 * MiB;
constexpr qint64 allowedGrowth = 3 * largeBound;

const char fetchArgument[] = "--fetch";

TransferPolicy bounded(qint64 size)
{
    TransferPolicy policy;
    policy.setMaximumBodySize(size);
    policy.setErrorsExplained(true);
    policy.setFailuresIsolated(true);
    return policy;
}

/// What `gzip` makes of the output of the shell command \a command.
QByteArray gzip(const QString &command)
{
    QProcess shell;
    shell.start("sh", {"-c", command + " | gzip -9"});
    if (!shell.waitForFinished(120000) || shell.exitCode() != 0)
        qFatal("cannot compress: %s", qPrintable(shell.errorString()));
    return shell.readAllStandardOutput();
}

/// Zeros, far more of them than the bound.
const QByteArray &bomb()
{
    static const QByteArray packed = gzip("head -c 268435456 /dev/zero");
    return packed;
}

/// How the end of a body is known.
enum class Framing { Length, Chunks, Close };

ScriptedServer::Handler framed(const QByteArray &body, Framing framing, int status = 200,
                               const HttpHeaders &headers = HttpHeaders())
{
    return [=](const HttpRequest &, HttpResponse &response) {
        if (framing == Framing::Length)
            return response.send(status, headers, body);
        response.sendHead(status, headers,
                          framing == Framing::Chunks ? HttpResponse::Chunked
                                                     : HttpResponse::UntilClose);
        response.write(body);
        response.finish();
    };
}

/// The process that asks for \a url and prints by how much that made it grow. The server stays
/// behind in the process of the test, so that its memory is not counted.
int runFetch(const QUrl &url)
{
    const LogCapture quiet;
    TarvisNet client(bounded(largeBound));
    const qint64 before = ownMemory("VmRSS");
    QObject::connect(&client, &TarvisNet::s_rawGetFileFinished, [] { QCoreApplication::exit(0); });
    QObject::connect(&client, &TarvisNet::s_errorChanged,
                     [](short code) { QCoreApplication::exit(-code); });
    client.rawGetFile(url, QString());
    const int result = QCoreApplication::exec();
    std::printf("%lld", ownMemory("VmHWM") - before);
    return result;
}

} // namespace

Q_DECLARE_METATYPE(Framing)

/// How long the body of an answer may be that is held in memory.
class tst_TarvisNetBodyLimit : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void bounds_data();
    void bounds();
    void boundsEveryKind_data();
    void boundsEveryKind();
    void countsDecodedBytes_data();
    void countsDecodedBytes();
    void filesAreNotBounded_data();
    void filesAreNotBounded();
    void memoryStaysNearTheBound_data();
    void memoryStaysNearTheBound();
};

void tst_TarvisNetBodyLimit::bounds_data()
{
    QTest::addColumn<int>("maximum");
    QTest::addColumn<int>("size");
    QTest::addColumn<Framing>("framing");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("isTooLong");
    const QPair<const char *, Framing> framings[] = {
        {"length", Framing::Length}, {"chunked", Framing::Chunks}, {"until close", Framing::Close}};
    for (const auto &[name, framing] : framings) {
        for (const int status : {200, 404, 500}) {
            const auto row = [&, framing = framing, name = name](const char *text, int maximum,
                                                                 int size, bool isTooLong) {
                QTest::addRow("%s, %s, %d", text, name, status)
                    << maximum << size << framing << status << isTooLong;
            };
            row("nothing", bound, 0, false);
            row("as long as may be", bound, bound, false);
            row("one byte more", bound, bound + 1, true);
            row("many more", bound, 1000 * bound, true);
            row("no bound", 0, 1000 * bound, false);
        }
    }
}

void tst_TarvisNetBodyLimit::bounds()
{
    QFETCH(const int, maximum);
    QFETCH(const int, size);
    QFETCH(const Framing, framing);
    QFETCH(const int, status);
    QFETCH(const bool, isTooLong);
    ClientBench bench(ScriptedServer::Mode::Http, bounded(maximum));
    const QByteArray body = HttpResponse::generated(0, size);
    bench.server.on("/a", framed(body, framing, status));
    bench.client->rawGetFile(bench.server.url("/a"));
    QVERIFY(bench.recorder.waitFor(removed, 2));

    const bool isResult = !isTooLong && status == 200;
    QCOMPARE(bench.recorder.count("s_rawGetFileFinished"), isResult ? 1 : 0);
    QCOMPARE(bench.recorder.last("s_rawGetFileFinished").value(0).toByteArray(),
             isResult ? body : QByteArray());
    QCOMPARE(bench.errors().size(), isResult ? 0 : 1);
    QCOMPARE(bench.errors().contains(-227), isTooLong);
    QCOMPARE(bench.recorder.count("s_aborted"), 0);
    if (!isTooLong)
        return;
    const QJsonObject told = bench.error().at(2).toJsonDocument().object();
    QCOMPARE(bench.error().at(1).toString(), bench.url("/a"));
    QCOMPARE(told.value("httpStatus").toInt(), status);
    QCOMPARE(told.value("reason").toString(), QString("The body is longer than it may be."));
}

void tst_TarvisNetBodyLimit::boundsEveryKind_data()
{
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : requestkinds::all()) {
        if (!kind.isFile())
            QTest::newRow(kind.name) << kind;
    }
}

void tst_TarvisNetBodyLimit::boundsEveryKind()
{
    QFETCH(const RequestKind, kind);
    ClientBench bench(ScriptedServer::Mode::Http, bounded(bound));
    bench.server.on("/a", answers::bytes(QByteArray(bound + 1, 'x')));
    requestkinds::start(*bench.client, kind, bench.server.url("/a"), bench.path("file"), 0);
    QVERIFY(bench.recorder.waitFor(removed, 2));
    QCOMPARE(bench.emitted(), QStringList({removed, "s_errorChanged", removed}));
    QCOMPARE(bench.errors(), QList<int>({-227}));
    QVERIFY(files::read(bench.path("file")).isNull());
}

void tst_TarvisNetBodyLimit::countsDecodedBytes_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("isTooLong");
    QTest::newRow("as long as may be") << bound << false;
    QTest::newRow("one byte more") << bound + 1 << true;
}

void tst_TarvisNetBodyLimit::countsDecodedBytes()
{
    QFETCH(const int, size);
    QFETCH(const bool, isTooLong);
    const QByteArray packed = gzip(QString("head -c %1 /dev/zero").arg(size));
    ClientBench bench(ScriptedServer::Mode::Http, bounded(bound));
    bench.server.on("/a", framed(packed, Framing::Length, 200, {{"Content-Encoding", "gzip"}}));
    bench.client->rawGetFile(bench.server.url("/a"));
    QVERIFY(bench.recorder.waitFor(removed, 2));
    QCOMPARE(bench.errors(), isTooLong ? QList<int>({-227}) : QList<int>());
    QCOMPARE(bench.recorder.last("s_rawGetFileFinished").value(0).toByteArray(),
             isTooLong ? QByteArray() : QByteArray(size, '\0'));
}

void tst_TarvisNetBodyLimit::filesAreNotBounded_data()
{
    QTest::addColumn<bool>("isChecked");
    QTest::newRow("checked") << true;
    QTest::newRow("not checked") << false;
}

void tst_TarvisNetBodyLimit::filesAreNotBounded()
{
    QFETCH(const bool, isChecked);
    TransferPolicy policy = bounded(bound);
    policy.setFilesChecked(isChecked);
    ClientBench bench(ScriptedServer::Mode::Http, policy);
    const QByteArray content = HttpResponse::generated(0, 1000 * bound);
    bench.server.on("/a", answers::file(content));
    bench.client->fetchBinary(bench.server.url("/a"), bench.path("file"),
                              qulonglong(content.size()));
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(files::read(bench.path("file")), content);
}

void tst_TarvisNetBodyLimit::memoryStaysNearTheBound_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<Framing>("framing");
    QTest::addColumn<bool>("isCompressed");
    QTest::newRow("plain") << 200 << Framing::Length << false;
    QTest::newRow("compressed") << 200 << Framing::Length << true;
    QTest::newRow("compressed, chunked") << 200 << Framing::Chunks << true;
    QTest::newRow("compressed, until close") << 200 << Framing::Close << true;
    QTest::newRow("compressed, of an error") << 500 << Framing::Length << true;
}

void tst_TarvisNetBodyLimit::memoryStaysNearTheBound()
{
    if (!memoryIsMeasurable)
        QSKIP("The sanitizer holds freed memory back.");
    QFETCH(const int, status);
    QFETCH(const Framing, framing);
    QFETCH(const bool, isCompressed);
    ScriptedServer server;
    if (isCompressed) {
        server.on("/a", framed(bomb(), framing, status, {{"Content-Encoding", "gzip"}}));
    } else {
        server.on("/a", [](const HttpRequest &, HttpResponse &response) {
            response.sendGenerated(200, {}, 1024 * MiB);
        });
    }
    QProcess fetch;
    fetch.start(QCoreApplication::applicationFilePath(),
                {fetchArgument, server.url("/a").toString()});
    QTRY_COMPARE_WITH_TIMEOUT(fetch.state(), QProcess::NotRunning, 60000);
    QCOMPARE(fetch.exitCode(), 227);
    const qint64 growth = fetch.readAllStandardOutput().toLongLong();
    QVERIFY2(growth < allowedGrowth, qPrintable(QString::number(growth)));
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == QLatin1String(fetchArgument))
        return runFetch(QUrl(arguments.value(2)));
    tst_TarvisNetBodyLimit test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tarvisnet_bodylimit.moc"
