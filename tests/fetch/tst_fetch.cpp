#include "answers.h"
#include "fetchbench.h"
#include "files.h"
#include "testclass.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QJsonArray>
#include <QtNetwork/QSslCertificate>
#include <QtNetwork/QSslKey>
#include <QtTest/QTest>

namespace tst_fetch {

namespace {

enum ExitCode {
    Succeeded = 0,
    Refused = 3,
    NotReached = 4,
    HttpError = 5,
    TlsError = 6,
    NotWritten = 8,
    WrongContent = 9,
};

QString certificate(const char *name)
{
    return QString(TARVISNET_TEST_CERTIFICATES "/%1.crt").arg(name);
}

QString pinOf(const char *name)
{
    const QSslKey key = QSslCertificate::fromPath(certificate(name)).value(0).publicKey();
    return QCryptographicHash::hash(key.toDer(), QCryptographicHash::Sha256).toHex();
}

QByteArray file()
{
    return HttpResponse::generated(0, 10'000);
}

void script(ScriptedServer &server)
{
    for (const int status : {301, 400, 401, 403, 404, 500, 503})
        server.on('/' + QByteArray::number(status), answers::status(status));
    server.on("/json", answers::json({{"a", 1}}));
    server.on("/text", answers::bytes("no JSON"));
    server.on("/file", answers::file(file()));
    server.on("/half", answers::cutShort("half"));
    server.on("/why", answers::json({{"why", "maintenance"}, {"httpStatus", 404}}, 503));
    server.on("/list", answers::bytes("[1]", 503));
    server.on("/words", answers::bytes("maintenance", 503));
}

} // namespace

/// Whom the console client asks, and how it tells what came of it.
class tst_Fetch : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void exitCodes_data();
    void exitCodes();
    void noServer();
    void severalFailures_data();
    void severalFailures();
    void peers_data();
    void peers();
    void reasons_data();
    void reasons();
    void downloads_data();
    void downloads();

private:
    /// The arguments, in which "http:/" and "https:/" stand for the two servers.
    QStringList complete(QStringList arguments) const;

    QScopedPointer<ScriptedServer> m_http;
    QScopedPointer<ScriptedServer> m_https;
};

void tst_Fetch::init()
{
    m_http.reset(new ScriptedServer);
    m_https.reset(new ScriptedServer(ScriptedServer::Mode::Https));
    script(*m_http);
    script(*m_https);
}

QStringList tst_Fetch::complete(QStringList arguments) const
{
    const auto origin = [](const ScriptedServer &server) { return server.url().toString(); };
    arguments.replaceInStrings(QRegularExpression("^http:/(?!/)"), origin(*m_http));
    arguments.replaceInStrings(QRegularExpression("^https:/(?!/)"), origin(*m_https));
    return arguments;
}

void tst_Fetch::exitCodes_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("words");
    const auto row = [](const char *name, const QStringList &arguments, ExitCode exitCode,
                        const QString &words = QString()) {
        QTest::newRow(name) << arguments << int(exitCode) << words;
    };
    row("a document", {"get", "http:/json"}, Succeeded);
    row("a document with a policy", {"get", "http:/json", "--strict"}, Succeeded);
    row("no URL", {"get", "http://["}, Refused, "error -207");
    row("no path", {"definition", "--host", "127.0.0.1"}, Refused, "error -207");

    row("cut off", {"get", "http:/half"}, NotReached, "error -203");
    row("cut off, with a policy", {"get", "http:/half", "--pin", QString(64, 'a')}, NotReached,
        "error -203");
    for (const QString status : {"400", "401", "404"}) {
        const QStringList get{"get", "http:/" + status};
        row(qPrintable(status), get, HttpError);
        row(qPrintable(status + " with a policy"), get + QStringList{"--retries", "0"}, HttpError);
    }
    for (const QString status : {"403", "500"}) {
        const QStringList get{"get", "http:/" + status};
        row(qPrintable(status), get, NotReached, "error -203");
        row(qPrintable(status + " with a policy"), get + QStringList{"--retries", "0"}, HttpError,
            "error -203");
        row(qPrintable(status + " from the processor"), get + QStringList{"--engine", "processor"},
            NotReached, "error -203");
    }
    row("what a server says is no status", {"get", "http:/why"}, NotReached, "maintenance");

    row("no directory", {"get-file", "http:/file", "-o", "nowhere/a"}, NotWritten);
    row("no temporary directory",
        {"binary", "http:/file", "-o", "a", "--size", "10000", "--temp-dir", "occupied/a"},
        NotWritten, "cannot be made");
    row("no temporary directory, for standard output",
        {"binary", "http:/file", "-o", "-", "--size", "10000", "--temp-dir", "occupied/a"},
        NotWritten);
    row("another file in the way", {"binary", "http:/file", "-o", "occupied", "--size", "10000"},
        NotWritten, "is in the way");

    row("no JSON", {"get", "http:/text"}, WrongContent, "not JSON");
    row("fewer bytes", {"binary", "http:/file", "-o", "a", "--size", "10001"}, WrongContent,
        "10000 bytes instead of 10001");
}

void tst_Fetch::exitCodes()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const int, exitCode);
    QFETCH(const QString, words);

    FetchBench bench;
    files::write(bench.path("occupied"), "something");
    bench.run(complete(arguments));
    QVERIFY2(bench.exitCode() == exitCode, bench.messages().constData());
    QVERIFY2(bench.messages().contains(words.toUtf8()), bench.messages().constData());
}

void tst_Fetch::noServer()
{
    m_http->stop();
    FetchBench bench;
    bench.run(complete({"get", "http:/json"}));
    QCOMPARE(bench.exitCode(), int(NotReached));
}

// The client may abort one request because of another, which says nothing about the cause.
void tst_Fetch::severalFailures_data()
{
    QTest::addColumn<QStringList>("targets");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("one of two") << QStringList{"http:/json", "http:/404"} << int(HttpError);
    QTest::newRow("one after the other")
        << QStringList{"http:/text", "http:/401"} << int(WrongContent);
    QTest::newRow("the same") << QStringList{"http:/401", "http:/400"} << int(HttpError);
}

void tst_Fetch::severalFailures()
{
    QFETCH(const QStringList, targets);
    QFETCH(const int, exitCode);

    FetchBench bench;
    bench.run(complete(QStringList{"get", "--parallel", "1"} + targets));
    QVERIFY2(bench.exitCode() == exitCode, bench.messages().constData());
    QVERIFY(bench.messages().contains("of 2 requests succeeded"));
}

void tst_Fetch::peers_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<bool>("isAnswered");
    const auto row = [](const QString &name, const QStringList &options, bool isAnswered) {
        QTest::newRow(qPrintable(name)) << options << isAnswered;
    };
    const QStringList strict{"--strict"};
    const QStringList authority{"--ca", certificate("server")};
    const QStringList otherAuthority{"--ca", certificate("wrongname")};
    const QStringList pin{"--pin", pinOf("server")};
    const QStringList otherPin{"--pin", pinOf("wrongname")};
    row("nothing asked", {}, true);
    row("nobody signed it", strict, false);
    for (const QStringList &first : {QStringList(), strict}) {
        const QString before = first.join(' ') + ' ';
        row(before + "its authority", first + authority, true);
        row(before + "another authority", first + otherAuthority, false);
        row(before + "two authorities", first + otherAuthority + authority, true);
        row(before + "authority and pin", first + authority + pin, true);
        row(before + "authority and another pin", first + authority + otherPin, false);
        row(before + "another pin", first + otherPin, false);
        // A pin says nothing about who signed.
        row(before + "its pin", first + pin, first.isEmpty());
        row(before + "two pins", first + otherPin + pin, first.isEmpty());
    }
    row("a pin in capitals", {"--pin", pinOf("server").toUpper()}, true);
    row("strict in the end", authority + strict, true);
    row("another property", {"--max-time", "60"}, true);
}

void tst_Fetch::peers()
{
    QFETCH(const QStringList, options);
    QFETCH(const bool, isAnswered);

    FetchBench bench;
    bench.run(complete({"get", "https:/json"}) + options);
    QVERIFY2(bench.exitCode() == (isAnswered ? Succeeded : TlsError), bench.messages().constData());
    QCOMPARE(bench.output().isEmpty(), !isAnswered);
    QCOMPARE(m_https->requests().size(), isAnswered ? 1 : 0);
}

void tst_Fetch::reasons_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<bool>("isSaid");
    const QStringList policy{"--retries", "0"};
    const QStringList why{"get", "http:/why"};
    QTest::newRow("the server's") << why << QStringList{"\"why\": \"maintenance\""} << true;
    QTest::newRow("no reason without a policy")
        << why << QStringList{"Service Unavailable", "networkError"} << false;
    QTest::newRow("with a policy")
        << why + policy << QStringList{"Service Unavailable", "\"why\": \"maintenance\""} << true;
    QTest::newRow("a list") << QStringList{"get", "http:/list"} + policy
                            << QStringList{"Service Unavailable", "[\n    1\n]"} << true;
    QTest::newRow("no JSON") << QStringList{"get", "http:/words"} + policy
                             << QStringList{"Service Unavailable"} << true;
    QTest::newRow("a refusal") << QStringList{"get", "http://["} + policy
                               << QStringList{"The URL or path is empty or not valid."} << true;
}

void tst_Fetch::reasons()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QStringList, words);
    QFETCH(const bool, isSaid);

    FetchBench bench;
    bench.run(complete(arguments));
    QVERIFY(bench.exitCode() > 0);
    QCOMPARE(bench.output(), QByteArray());
    for (const QString &each : words) {
        QVERIFY2(bench.messages().contains(each.toUtf8()) == isSaid, bench.messages().constData());
    }
}

void tst_Fetch::downloads_data()
{
    QTest::addColumn<QStringList>("options");
    const QString sha256 = QCryptographicHash::hash(file(), QCryptographicHash::Sha256).toHex();
    const QString md5 = QCryptographicHash::hash(file(), QCryptographicHash::Md5).toHex();
    QTest::newRow("traditional") << QStringList();
    QTest::newRow("processor") << QStringList{"--engine", "processor"};
    QTest::newRow("strict") << QStringList{"--strict"};
    QTest::newRow("SHA-256") << QStringList{"--hash", sha256};
    QTest::newRow("named SHA-256") << QStringList{"--strict", "--hash", "sha256:" + sha256};
    QTest::newRow("MD5") << QStringList{"--hash", md5};
    QTest::newRow("all numbers") << QStringList{"--retries",  "1", "--idle-timeout",  "60",
                                                "--max-time", "0", "--max-redirects", "0"};
}

void tst_Fetch::downloads()
{
    QFETCH(const QStringList, options);

    FetchBench bench;
    bench.run(complete({"binary", "http:/file", "-o", "a", "--size", "10000"}) + options);
    QVERIFY2(bench.exitCode() == Succeeded, bench.messages().constData());
    QVERIFY(files::read(bench.path("a")) == file());
    QCOMPARE(bench.leftovers(), QStringList());
    QCOMPARE(bench.output(), QByteArray());
}

const TestClass<tst_Fetch> testClass("tst_fetch");

} // namespace tst_fetch

#include "tst_fetch.moc"
