#include "fetchbench.h"
#include "files.h"
#include "testclass.h"

#include <QtTest/QTest>

namespace tst_fetch_usage {

namespace {

QString url()
{
    return "http://127.0.0.1:1/a";
}

QString certificate()
{
    return TARVISNET_TEST_CERTIFICATES "/server.crt";
}

} // namespace

/// What the console client takes, and how it refuses the rest before it asks anyone for anything.
class tst_FetchUsage : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void isRefused_data();
    void isRefused();
    void helpIsAResult();
};

void tst_FetchUsage::isRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("words");
    const auto row = [](const char *name, const QStringList &arguments, const QString &words) {
        QTest::newRow(name) << arguments << words;
    };
    row("nothing", {}, "no command given");
    row("no command", {"steal", url()}, "there is no command 'steal'");
    row("no option", {"get", url(), "--force"}, "Unknown option 'force'");
    row("no target", {"get"}, "'get' needs a target");
    row("no server", {"index", "/a"}, "'index' needs --host");
    row("no place for the installer", {"installer", url(), "--strict"},
        "'installer' needs --output");
    row("no size", {"binary", url(), "-o", "a"}, "'binary' needs --size");
    row("no number", {"binary", url(), "-o", "a", "--size", "x"}, "--size takes a number from 1");
    row("another engine", {"get", url(), "--engine", "steam"}, "--engine takes");
    row("no file for two", {"get-file", url(), url() + "b", "-o", "a"}, "only one target");

    row("no authorities", {"get", url(), "--ca", "nowhere"}, "--ca nowhere: No such file");
    row("nobody in them", {"get", url(), "--ca", "empty"}, "--ca takes a file of PEM certificates");
    row("nobody in the second", {"get", url(), "--ca", certificate(), "--ca", "empty"}, "empty");
    row("a key for an authority", {"get", url(), "--ca", TARVISNET_TEST_CERTIFICATES "/server.key"},
        "server.key has none");
    row("a short pin", {"get", url(), "--pin", QString(63, 'a')}, "--pin takes a SHA-256");
    row("a long pin", {"get", url(), "--pin", QString(65, 'a')}, "--pin takes a SHA-256");
    row("a pin and more", {"get", url(), "--pin", QString(64, 'a') + "\n"}, "--pin takes");
    row("a pin of other letters", {"get", url(), "--pin", QString(64, 'g')}, "--pin takes");
    row("the second pin", {"get", url(), "--pin", QString(64, 'a'), "--pin", "b"}, "--pin takes");
    row("no hash", {"binary", url(), "-o", "a", "--size", "1", "--hash", ""}, "--hash takes");
    row("a hash of a document", {"get", url(), "--hash", "a"}, "'get' does not take --hash");
    for (const QString name : {"--retries", "--idle-timeout", "--max-time", "--max-redirects"}) {
        const QString words = name + " takes a number from 0 to 2147483";
        row(qPrintable(name + " without a number"), {"get", url(), name, "soon"}, words);
        row(qPrintable(name + " below 0"), {"get", url(), name + "=-1"}, words);
        row(qPrintable(name + " beyond int"), {"get", url(), name, "2147483648"}, words);
    }

    const QList<QStringList> policies = {
        {"--strict"},
        {"--fast"},
        {"--ca", certificate()},
        {"--pin", QString(64, 'a')},
        {"--retries", "0"},
        {"--idle-timeout", "0"},
        {"--max-time", "0"},
        {"--max-redirects", "0"},
    };
    for (const QStringList &policy : policies) {
        row(qPrintable("the processor and " + policy.first()),
            QStringList({"get", url(), "--engine", "processor"}) + policy,
            "the processor does not take " + policy.first());
    }
    row("the processor and --hash",
        {"binary", url(), "-o", "a", "--size", "1", "--hash", "a", "--engine", "processor"},
        "the processor does not take --hash");

    row("a file for a document", {"get", url(), "-o", "a"}, "'get' does not take --output");
    for (const QString command : {"delete", "installer"}) {
        row(qPrintable(command + " has nothing to show"), {command, url(), "-o", "-"},
            "'" + command + "' does not take --output");
    }
    row("standard output for two",
        {"get-file", url(), url() + "b", "-o", "-", "--engine", "processor"}, "only one target");
}

void tst_FetchUsage::isRefused()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QString, words);

    FetchBench bench;
    files::write(bench.path("empty"), "");
    bench.run(arguments);
    QVERIFY2(bench.messages().contains(words.toLocal8Bit()), bench.messages().constData());
    QVERIFY(bench.messages().contains("Try 'tarvisnet-fetch --help'."));
    QCOMPARE(bench.exitCode(), 2);
    QCOMPARE(bench.output(), QByteArray());
}

void tst_FetchUsage::helpIsAResult()
{
    FetchBench bench;
    bench.run({"--help"});
    QCOMPARE(bench.exitCode(), 0);
    QCOMPARE(bench.messages(), QByteArray());
    QVERIFY(bench.output().contains("--max-redirects <N>"));
    QVERIFY(bench.output().contains("\n  --fast "));
    QVERIFY(bench.output().contains("\n    7  it took too long\n"));
}

const TestClass<tst_FetchUsage> testClass("tst_fetch_usage");

} // namespace tst_fetch_usage

#include "tst_fetch_usage.moc"
