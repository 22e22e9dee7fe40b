#include "answers.h"
#include "fetchbench.h"
#include "files.h"
#include "nginxserver.h"
#include "testclass.h"

#include <QtCore/QCryptographicHash>
#include <QtTest/QTest>

namespace tst_fetch_policy {

namespace {

enum ExitCode {
    Succeeded = 0,
    HttpError = 5,
    TimedOut = 7,
    WrongContent = 9,
    RedirectRefused = 10,
};

const QByteArray content = HttpResponse::generated(0, 10'000);
const QByteArray old = "old";

QString hashOf(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

} // namespace

/// What the console client makes of a policy.
class tst_FetchPolicy : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void downloads_data();
    void downloads();
    void leavesStandardOutputEmpty();
    void givesUp_data();
    void givesUp();
    void triesAgain_data();
    void triesAgain();
    void follows_data();
    void follows();
    void savesTheInstaller_data();
    void savesTheInstaller();
    void resumesWithoutAWord();
    void speaks_data();
    void speaks();
};

void tst_FetchPolicy::downloads_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<bool>("isSaved");
    QTest::addColumn<int>("requests");
    const QStringList size{"--size", "10000"};
    const auto row = [](const char *name, const QStringList &options, bool isSaved, int requests) {
        QTest::newRow(name) << options << isSaved << requests;
    };
    row("right hash", size + QStringList{"--hash", hashOf(content)}, true, 1);
    row("wrong hash", size + QStringList{"--hash", hashOf(old)}, false, 1);
    row("malformed hash", size + QStringList{"--hash", "sha256:12"}, false, 0);
    row("file of another size in the way", size + QStringList{"--strict"}, true, 1);
    row("the same, fast", size + QStringList{"--fast"}, true, 1);
    row("size too small", {"--size", "9999", "--strict"}, false, 1);
    row("size too large", {"--size", "10001", "--strict"}, false, 1);
}

void tst_FetchPolicy::downloads()
{
    QFETCH(const QStringList, options);
    QFETCH(const bool, isSaved);
    QFETCH(const int, requests);

    ScriptedServer server;
    server.on("/file", answers::file(content));
    FetchBench bench;
    files::write(bench.path("a"), old);
    bench.run(QStringList{"binary", server.url("/file").toString(), "-o", "a"} + options);
    QVERIFY2(bench.exitCode() == (isSaved ? Succeeded : WrongContent),
             bench.messages().constData());
    QCOMPARE(bench.messages().contains("error -226"), !isSaved);
    QVERIFY(files::read(bench.path("a")) == (isSaved ? content : old));
    QCOMPARE(server.requests("/file").size(), requests);
    QCOMPARE(bench.leftovers(), QStringList());
}

void tst_FetchPolicy::leavesStandardOutputEmpty()
{
    ScriptedServer server;
    server.on("/file", answers::file(content));
    FetchBench bench;
    bench.run({"binary", server.url("/file").toString(), "-o", "-", "--size", "10000", "--hash",
               hashOf(old)});
    QCOMPARE(bench.exitCode(), int(WrongContent));
    QCOMPARE(bench.output(), QByteArray());
    QCOMPARE(bench.leftovers(), QStringList());
}

void tst_FetchPolicy::givesUp_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::newRow("silence") << QStringList{"--idle-timeout", "1"};
    QTest::newRow("time") << QStringList{"--max-time", "1"};
}

void tst_FetchPolicy::givesUp()
{
    QFETCH(const QStringList, options);

    ScriptedServer server;
    server.onRequest(answers::withhold());
    FetchBench bench;
    bench.run(QStringList{"get", server.url("/a").toString()} + options);
    QVERIFY(bench.messages().contains("error -223"));
    QCOMPARE(bench.exitCode(), int(TimedOut));
}

void tst_FetchPolicy::triesAgain_data()
{
    QTest::addColumn<int>("refusals");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("recovers") << 2 << int(Succeeded);
    QTest::newRow("never recovers") << 1000 << int(HttpError);
}

void tst_FetchPolicy::triesAgain()
{
    QFETCH(const int, refusals);
    QFETCH(const int, exitCode);

    ScriptedServer server;
    int left = refusals;
    server.on("/a", [&left](const HttpRequest &request, HttpResponse &response) {
        if (left-- > 0)
            return answers::status(503)(request, response);
        answers::json({{"a", 1}})(request, response);
    });
    FetchBench bench;
    bench.run({"get", server.url("/a").toString(), "--retries", "2"});
    QVERIFY2(bench.exitCode() == exitCode, bench.messages().constData());
    QCOMPARE(server.requests("/a").size(), 3);
}

void tst_FetchPolicy::follows_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    const auto row = [](const char *name, const char *path, const QStringList &options,
                        ExitCode exitCode) {
        QTest::newRow(name) << QStringList{"get", path} + options << int(exitCode);
    };
    row("none allowed", "/once", {"--max-redirects", "0"}, RedirectRefused);
    row("one allowed", "/once", {"--max-redirects", "1"}, Succeeded);
    row("one allowed of two", "/twice", {"--max-redirects", "1"}, RedirectRefused);
    row("two allowed", "/twice", {"--max-redirects", "2"}, Succeeded);
    row("strict", "/twice", {"--strict", "--ca", TARVISNET_TEST_CERTIFICATES "/server.crt"},
        Succeeded);
    row("to clear text", "/down", {"--max-redirects", "10"}, RedirectRefused);
}

// The targets are relative.
void tst_FetchPolicy::follows()
{
    QFETCH(QStringList, arguments);
    QFETCH(const int, exitCode);

    ScriptedServer clear;
    clear.onRequest(answers::json({{"a", 1}}));
    ScriptedServer server(ScriptedServer::Mode::Https);
    server.on("/twice", answers::redirect(302, "once"));
    server.on("/once", answers::redirect(302, "last"));
    server.on("/down", answers::redirect(302, clear.url("/last").toEncoded()));
    server.on("/last", answers::json({{"a", 1}}));
    arguments[1] = server.url(arguments.at(1)).toString();
    FetchBench bench;
    bench.run(arguments);
    QVERIFY2(bench.exitCode() == exitCode, bench.messages().constData());
    QCOMPARE(bench.output().isEmpty(), exitCode != Succeeded);
    QCOMPARE(clear.requests().size(), 0);
}

void tst_FetchPolicy::savesTheInstaller_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<bool>("isSaved");
    QTest::newRow("of its size") << QStringList{"--size", "10000"} << true;
    QTest::newRow("of any size") << QStringList() << true;
    QTest::newRow("of another size") << QStringList{"--size", "9"} << false;
}

void tst_FetchPolicy::savesTheInstaller()
{
    QFETCH(const QStringList, options);
    QFETCH(const bool, isSaved);

    ScriptedServer server;
    server.on("/file", answers::file(content));
    for (const QString target : {"a", "-"}) {
        FetchBench bench;
        bench.run(QStringList{"installer", server.url("/file").toString(), "-o", target, "--strict"}
                  + options);
        QVERIFY2(bench.exitCode() == (isSaved ? Succeeded : WrongContent),
                 bench.messages().constData());
        QCOMPARE(bench.messages().contains("saved a (9.8 KiB)"), isSaved && target == "a");
        const QByteArray saved = target == "a" ? files::read(bench.path("a")) : bench.output();
        QVERIFY(saved == (isSaved ? content : QByteArray()));
        QVERIFY(!QFile::exists(bench.path("-")));
    }
}

// Whether a beginning is of any use, the server decides.
void tst_FetchPolicy::resumesWithoutAWord()
{
    ScriptedServer server;
    server.on("/file", answers::file(content));
    FetchBench bench;
    files::write(bench.path("temporary/a.vtxdownload"), "the beginning of something else");
    bench.run({"binary", server.url("/file").toString(), "-o", "a", "--size", "10000", "--strict",
               "--temp-dir", "temporary"});
    QCOMPARE(bench.exitCode(), int(Succeeded));
    QVERIFY(!bench.messages().contains("resuming"));
    QVERIFY(files::read(bench.path("a")) == content);
}

void tst_FetchPolicy::speaks_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("protocol");
    QTest::newRow("strict") << QStringList{"--strict"} << QByteArray("HTTP/1.1");
    QTest::newRow("fast") << QStringList{"--fast"} << QByteArray("HTTP/2.0");
    QTest::newRow("both") << QStringList{"--fast", "--strict"} << QByteArray("HTTP/2.0");
}

// The server's answer is what it was asked by.
void tst_FetchPolicy::speaks()
{
    QFETCH(QStringList, options);
    QFETCH(const QByteArray, protocol);

    const NginxServer server(R"(default_type application/json; return 200 '"$server_protocol"';)");
    options += {"--ca", TARVISNET_TEST_CERTIFICATES "/server.crt", "-o", "a"};
    const QString url = server.httpsUrl("/a").toString();
    const QList<QStringList> commands = {{"get-file"}, {"binary", "--size", "10"}};
    for (const QStringList &command : commands) {
        FetchBench bench;
        bench.run(command + options + QStringList{url});
        QVERIFY2(bench.exitCode() == Succeeded, bench.messages().constData());
        QCOMPARE(files::read(bench.path("a")), '"' + protocol + '"');
    }
}

const TestClass<tst_FetchPolicy> testClass("tst_fetch_policy");

} // namespace tst_fetch_policy

#include "tst_fetch_policy.moc"
