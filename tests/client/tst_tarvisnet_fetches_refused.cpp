#include "fetchbench.h"

#include <QtTest/QTest>

namespace {

using Call = void (*)(TarvisNet &client);

constexpr char invalidUrl[] = "http://[not-closed";

} // namespace

Q_DECLARE_METATYPE(Call)

/// Every way in which a fetch says no.
class tst_TarvisNetFetchesRefused : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void emptyPaths_data();
    void emptyPaths();
    void emptyPathsOfAnInvalidServer_data();
    void emptyPathsOfAnInvalidServer();
    void noInstaller_data();
    void noInstaller();
    void builtUrls_data();
    void builtUrls();
    void givenUrls_data();
    void givenUrls();

private:
    static void addColumns();
    static void addRow(const char *name, Call call, const char *line, const char *function);
    static void check(const QString &urlText);
};

void tst_TarvisNetFetchesRefused::addColumns()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("function");
}

void tst_TarvisNetFetchesRefused::addRow(const char *name, Call call, const char *line,
                                         const char *function)
{
    QTest::newRow(name) << call << QString(line) << QByteArray(function);
}

/// Makes the call of the current row, and expects one line, one error and nothing else of it.
void tst_TarvisNetFetchesRefused::check(const QString &urlText)
{
    QFETCH(Call, call);
    QFETCH(QString, line);
    QFETCH(QByteArray, function);

    FetchBench bench;
    bench.ask(8443, "example.test");
    // Twice, so that what the row configures is neither logged nor recorded.
    call(bench.client);
    bench.recorder.clear();
    bench.log.clear();
    call(bench.client);
    QCOMPARE(bench.log.texts(), QStringList{line});
    QCOMPARE(bench.log.texts(QtWarningMsg), QStringList{line});
    QCOMPARE(bench.log.entries().first().function, function);
    QCOMPARE(bench.log.originFault("../../source/appl/tarvisnet"), QString());

    QCOMPARE(bench.recorder.names(), QStringList{"s_errorChanged"});
    const QVariantList error = bench.recorder.last("s_errorChanged");
    QCOMPARE(error.at(0).toInt(), int(errorcodes::invalid_url));
    QCOMPARE(error.at(1).toString(), urlText);
    QVERIFY(error.at(2).toJsonDocument().isNull());
}

void tst_TarvisNetFetchesRefused::emptyPaths_data()
{
    addColumns();
    addRow(
        "definition", [](TarvisNet &client) { client.fetchDefinition(); },
        "<TarvisNet::fetchDefinition> Invalid url: Empty definition path",
        "void TarvisNet::fetchDefinition(QString)");
    addRow(
        "index", [](TarvisNet &client) { client.fetchIndex(); },
        "<TarvisNet::fetchIndex> Empty index path \"https://example.test:8443\"",
        "void TarvisNet::fetchIndex(QString)");
    addRow(
        "change log", [](TarvisNet &client) { client.fetchInstallerChangeLog(); },
        "<TarvisNet::fetchInstallerChangeLog> Empty changelog path",
        "void TarvisNet::fetchInstallerChangeLog(QString)");
}

void tst_TarvisNetFetchesRefused::emptyPaths()
{
    check("https://example.test:8443");
}

void tst_TarvisNetFetchesRefused::emptyPathsOfAnInvalidServer_data()
{
    addColumns();
    // The text of an invalid URL is empty.
    addRow(
        "definition",
        [](TarvisNet &client) {
            client.setServerPort("70000");
            client.fetchDefinition();
        },
        "<TarvisNet::fetchDefinition> Invalid url: Empty definition path",
        "void TarvisNet::fetchDefinition(QString)");
    addRow(
        "index",
        [](TarvisNet &client) {
            client.setServerPort("70000");
            client.fetchIndex();
        },
        "<TarvisNet::fetchIndex> Empty index path \"\"", "void TarvisNet::fetchIndex(QString)");
    addRow(
        "change log",
        [](TarvisNet &client) {
            client.setServerPort("70000");
            client.fetchInstallerChangeLog();
        },
        "<TarvisNet::fetchInstallerChangeLog> Empty changelog path",
        "void TarvisNet::fetchInstallerChangeLog(QString)");
}

void tst_TarvisNetFetchesRefused::emptyPathsOfAnInvalidServer()
{
    check(QString());
}

void tst_TarvisNetFetchesRefused::noInstaller_data()
{
    addColumns();
    const char *const function = "void TarvisNet::fetchInstaller(QString)";
    const char *const line = "Empty installer path. No url";
    addRow(
        "nothing given", [](TarvisNet &client) { client.fetchInstaller(); }, line, function);
    addRow(
        "an argument", [](TarvisNet &client) { client.fetchInstaller("/given"); }, line, function);
}

void tst_TarvisNetFetchesRefused::noInstaller()
{
    check(QString());
}

void tst_TarvisNetFetchesRefused::builtUrls_data()
{
    addColumns();
    // A host cannot be followed by a path without a slash. The text of an invalid URL is empty.
    const char *const definition = "void TarvisNet::fetchDefinition(QString)";
    addRow(
        "definition", [](TarvisNet &client) { client.fetchDefinition("a"); },
        "<TarvisNet::fetchDefinition> Invalid url:  \"\"", definition);
    addRow(
        "configured definition",
        [](TarvisNet &client) {
            client.setDefinitionPath("a");
            client.fetchDefinition();
        },
        "<TarvisNet::fetchDefinition> Invalid url:  \"\"", definition);
    addRow(
        "index", [](TarvisNet &client) { client.fetchIndex("a"); },
        "<TarvisNet::fetchIndex> Invalid url:  \"\"", "void TarvisNet::fetchIndex(QString)");
    addRow(
        "change log", [](TarvisNet &client) { client.fetchInstallerChangeLog("a"); },
        "<TarvisNet::fetchInstallerChangeLog> Invalid url:  \"\"",
        "void TarvisNet::fetchInstallerChangeLog(QString)");
    addRow(
        "installer",
        [](TarvisNet &client) {
            client.setInstallerPath("a");
            client.fetchInstaller();
        },
        "<TarvisNet::fetchInstaller> Invalid url:  \"\"",
        "void TarvisNet::fetchInstaller(QString)");
    addRow(
        "direct installer",
        [](TarvisNet &client) {
            client.setDirectInstallerUrl(invalidUrl);
            client.fetchInstaller();
        },
        "<TarvisNet::fetchInstaller> Invalid direct URL:  \"\"",
        "void TarvisNet::fetchInstaller(QString)");
    addRow(
        "binary", [](TarvisNet &client) { client.fetchBinary("a"); },
        "<TarvisNet::fetchBinary> Invalid url:  \"\"",
        "void TarvisNet::fetchBinary(QString, QString, qulonglong, QString)");
}

void tst_TarvisNetFetchesRefused::builtUrls()
{
    check(QString());
}

void tst_TarvisNetFetchesRefused::givenUrls_data()
{
    addColumns();
    // What the definition says; only the index has a text of its own.
    const char *const line = "<TarvisNet::fetchDefinition> Invalid url \"\"";
    addRow(
        "definition", [](TarvisNet &client) { client.fetchDefinition(QUrl(invalidUrl)); }, line,
        "void TarvisNet::fetchDefinition(QUrl)");
    addRow(
        "empty definition", [](TarvisNet &client) { client.fetchDefinition(QUrl()); }, line,
        "void TarvisNet::fetchDefinition(QUrl)");
    addRow(
        "index", [](TarvisNet &client) { client.fetchIndex(QUrl(invalidUrl)); },
        "<TarvisNet::fetchIndex> Invalid url \"\"", "void TarvisNet::fetchIndex(QUrl)");
    addRow(
        "change log", [](TarvisNet &client) { client.fetchInstallerChangeLog(QUrl(invalidUrl)); },
        line, "void TarvisNet::fetchInstallerChangeLog(QUrl)");
    // The configured path is no way out.
    addRow(
        "installer",
        [](TarvisNet &client) {
            client.setInstallerPath("/configured");
            client.fetchInstaller(QUrl(invalidUrl));
        },
        line, "void TarvisNet::fetchInstaller(QUrl)");
    addRow(
        "binary", [](TarvisNet &client) { client.fetchBinary(QUrl(invalidUrl), "/tmp/any", 10); },
        line, "void TarvisNet::fetchBinary(QUrl, QString, qulonglong, QString)");
}

void tst_TarvisNetFetchesRefused::givenUrls()
{
    check(QString());
}

QTEST_GUILESS_MAIN(tst_TarvisNetFetchesRefused)

#include "tst_tarvisnet_fetches_refused.moc"
