#include "clientbench.h"
#include "files.h"
#include "operations.h"
#include "testclass.h"

#include <QtTest/QTest>

#include <functional>

namespace tst_tarvisnet_refusals {

using namespace clientaccess;

using Call = std::function<void(TarvisNet &client)>;

/// Every way in which an operation says no.
class tst_TarvisNetRefusals : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void refuses_data();
    void refuses();
    void leavesTheFiles_data();
    void leavesTheFiles();
    void keepsTheSavePath_data();
    void keepsTheSavePath();
};

namespace {

// The text of an invalid URL is empty.
constexpr char invalidUrl[] = "http://[not-closed";
// A host cannot be followed by a path without a slash.
constexpr char invalidPath[] = "a";

Call ask(const char *operation, const char *address)
{
    const Operation called = operations::of(operation);
    return [called, address](TarvisNet &client) { called.call(client, address, FileData()); };
}

void addRow(const QByteArray &name, const Call &call, const char *line, const char *function,
            const char *url = "")
{
    QTest::newRow(name) << call << QString(line) << QByteArray("void TarvisNet::") + function
                        << QString(url);
}

void addFetchesByPath()
{
    const char *const server = "https://localhost:8443";
    const char *const definition = "fetchDefinition(QString)";
    const char *const index = "fetchIndex(QString)";
    const char *const changeLog = "fetchInstallerChangeLog(QString)";
    const char *const installer = "fetchInstaller(QString)";
    addRow("definition without a path", ask(definition, ""),
           "<TarvisNet::fetchDefinition> Invalid url: Empty definition path", definition, server);
    addRow("index without a path", ask(index, ""),
           "<TarvisNet::fetchIndex> Empty index path \"https://localhost:8443\"", index, server);
    addRow("change log without a path", ask(changeLog, ""),
           "<TarvisNet::fetchInstallerChangeLog> Empty changelog path", changeLog, server);
    const auto atAnInvalidServer = [](const char *operation) {
        return [operation](TarvisNet &client) {
            client.setServerPort("70000");
            ask(operation, "")(client);
        };
    };
    addRow("definition without a path or a server", atAnInvalidServer(definition),
           "<TarvisNet::fetchDefinition> Invalid url: Empty definition path", definition);
    addRow("index without a path or a server", atAnInvalidServer(index),
           "<TarvisNet::fetchIndex> Empty index path \"\"", index);
    addRow("change log without a path or a server", atAnInvalidServer(changeLog),
           "<TarvisNet::fetchInstallerChangeLog> Empty changelog path", changeLog);
    addRow(
        "installer without a path", [](TarvisNet &client) { client.fetchInstaller(); },
        "Empty installer path. No url", installer);
    addRow(
        "installer without a configured path",
        [](TarvisNet &client) { client.fetchInstaller("/given"); }, "Empty installer path. No url",
        installer);

    addRow("definition, invalid path", ask(definition, invalidPath),
           "<TarvisNet::fetchDefinition> Invalid url:  \"\"", definition);
    const Call configuredDefinition = [](TarvisNet &client) {
        client.setDefinitionPath(invalidPath);
        client.fetchDefinition();
    };
    addRow("definition, invalid configured path", configuredDefinition,
           "<TarvisNet::fetchDefinition> Invalid url:  \"\"", definition);
    addRow("index, invalid path", ask(index, invalidPath),
           "<TarvisNet::fetchIndex> Invalid url:  \"\"", index);
    addRow("change log, invalid path", ask(changeLog, invalidPath),
           "<TarvisNet::fetchInstallerChangeLog> Invalid url:  \"\"", changeLog);
    addRow("installer, invalid path", ask(installer, invalidPath),
           "<TarvisNet::fetchInstaller> Invalid url:  \"\"", installer);
    const Call directInstaller = [](TarvisNet &client) {
        client.setDirectInstallerUrl(invalidUrl);
        client.fetchInstaller();
    };
    addRow("installer, invalid direct URL", directInstaller,
           "<TarvisNet::fetchInstaller> Invalid direct URL:  \"\"", installer);
    addRow("binary, invalid path", ask("fetchBinary(QString)", invalidPath),
           "<TarvisNet::fetchBinary> Invalid url:  \"\"",
           "fetchBinary(QString, QString, qulonglong, QString)");
}

void addFetchesByUrl()
{
    // What the definition says; only the index has a text of its own.
    const char *const line = "<TarvisNet::fetchDefinition> Invalid url \"\"";
    const char *const definition = "fetchDefinition(QUrl)";
    addRow("definition, invalid URL", ask(definition, invalidUrl), line, definition);
    addRow("definition, empty URL", ask(definition, ""), line, definition);
    addRow("index, invalid URL", ask("fetchIndex(QUrl)", invalidUrl),
           "<TarvisNet::fetchIndex> Invalid url \"\"", "fetchIndex(QUrl)");
    addRow("change log, invalid URL", ask("fetchInstallerChangeLog(QUrl)", invalidUrl), line,
           "fetchInstallerChangeLog(QUrl)");
    // The configured path is no way out.
    const Call installer = [](TarvisNet &client) {
        client.setInstallerPath("/configured");
        client.fetchInstaller(QUrl(invalidUrl));
    };
    addRow("installer, invalid URL", installer, line, "fetchInstaller(QUrl)");
    addRow("binary, invalid URL", ask("fetchBinary(QUrl)", invalidUrl), line,
           "fetchBinary(QUrl, QString, qulonglong, QString)");
}

void addRawOperations()
{
    const auto rows = [](const QByteArray &name, const char *invalid, const char *empty) {
        const QByteArray function = name.left(name.indexOf('(') + 1);
        addRow(name + ", empty", ask(name, ""), empty, function);
        for (const char *url : {"http://[bad/", "http://127.0.0.1:99999/"})
            addRow(name + ", " + url, ask(name, url), invalid, function);
    };
    const char *const noGet = "<TarvisNet::rawGet> Invalid url \"\"";
    const char *const noPost = "<TarvisNet::rawPost> Invalid url \"\"";
    const char *const noPatch = "<TarvisNet::rawPath> Invalid url \"\"";
    const char *const noDelete = "<TarvisNet::rawDelete> Invalid or empty url";
    const char *const noGetFile = "<TarvisNet::rawGetFile> Invalid url: \"\"";
    const char *const noPostFile = "Invalid url: \"\"";
    const char *const noForcedGet = "<TarvisNet::forceRawGet> Invalid or empty url";
    rows("rawGet(QUrl)", noGet, noGet);
    rows("rawGet(QString)", noGet, "<TarvisNet::rawGet> Empty url string");
    rows("rawPost(QUrl)", noPost, noPost);
    rows("rawPost(QString)", noPost, "<TarvisNet::rawGet> Empty url string");
    rows("rawPath(QUrl)", noPatch, noPatch);
    rows("rawDelete(QUrl)", noDelete, noDelete);
    rows("rawGetFile(QUrl)", noGetFile, noGetFile);
    rows("rawGetFile(QString)", noGetFile, "<TarvisNet::rawGetFile> Empty url string");
    rows("rawPostFile(QUrl)", noPostFile, noPostFile);
    rows("rawPostFile(QUrl), no body", noPostFile, noPostFile);
    rows("rawPostFile(QString)", noPostFile, "Empty url string");
    rows("forceRawGet(QUrl)", noForcedGet, noForcedGet);
    rows("forceRawGet(QString)", noForcedGet, "<TarvisNet::forceRawGet> Empty url string");
}

} // namespace

void tst_TarvisNetRefusals::refuses_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QString>("line");
    // With its arguments, unless its forms say the same.
    QTest::addColumn<QByteArray>("function");
    QTest::addColumn<QString>("url");
    addFetchesByPath();
    addFetchesByUrl();
    addRawOperations();
}

// One line, one error and nothing else.
void tst_TarvisNetRefusals::refuses()
{
    QFETCH(const Call, call);
    QFETCH(const QString, line);
    QFETCH(const QByteArray, function);
    QFETCH(const QString, url);

    ClientBench bench;
    bench.ask(8443, "localhost");
    // Twice, so that what the row configures is neither logged nor recorded.
    call(*bench.client);
    bench.forget();
    call(*bench.client);
    QCOMPARE(bench.log.texts(), QStringList(line));
    QCOMPARE(bench.log.texts(QtWarningMsg), QStringList(line));
    QCOMPARE(bench.log.originFault(sourceFile), QString());
    QCOMPARE(bench.log.entries().first().function.left(function.size()), function);
    QCOMPARE(bench.recorder.names(), QStringList("s_errorChanged"));
    QCOMPARE(bench.error(), failure(-207, url));

    Q_EMIT bench.client->s_repliesCountChanged();
    QCOMPARE(bench.replies().size(), 0);
}

void tst_TarvisNetRefusals::leavesTheFiles_data()
{
    operations::addRows([](const Operation &operation) {
        return QByteArray(operation.name).startsWith("fetchBinary");
    });
}

void tst_TarvisNetRefusals::leavesTheFiles()
{
    QFETCH(const Operation, operation);
    const QByteArray content(1000, 'x');
    ClientBench bench;
    files::write(bench.path("tool"), content);
    const bool isPath = operation.form == Operation::Path;
    operation.call(*bench.client, isPath ? invalidPath : invalidUrl, bench.file("tool", 1000));
    QCOMPARE(bench.errors(), QList<int>{errorcodes::invalid_url});
    QCOMPARE(files::read(bench.path("tool")), content);
    QCOMPARE(bench.log.texts(QtDebugMsg), QStringList());
}

void tst_TarvisNetRefusals::keepsTheSavePath_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QString>("url");
    for (const Operation &operation : operations::all()) {
        if (!QByteArray(operation.kind).endsWith("File"))
            continue;
        QTest::addRow("%s, empty", operation.name) << operation << QString();
        QTest::addRow("%s, not valid", operation.name) << operation << QString(invalidUrl);
    }
}

void tst_TarvisNetRefusals::keepsTheSavePath()
{
    QFETCH(const Operation, operation);
    QFETCH(const QString, url);
    ClientBench bench;
    bench.server.on("/first", answers::bytes("first body"));
    bench.server.on("/second", answers::bytes("the second body"));
    bench.client->rawGetFile(bench.server.url("/first"), bench.path("A"));
    QVERIFY(bench.recorder.waitFor("s_rawGetFileFinished"));
    operation.call(*bench.client, url, bench.file("B", 0));
    QCOMPARE(bench.errors(), QList<int>{errorcodes::invalid_url});

    bench.client->rawGetFile(bench.server.url("/second"));
    QVERIFY(bench.recorder.waitFor("s_rawGetFileFinished", 2));
    QCOMPARE(files::read(bench.path("A")), QByteArray("the second body"));
    QVERIFY(files::read(bench.path("B")).isNull());
}

const TestClass<tst_TarvisNetRefusals> testClass("tst_tarvisnet_refusals");

} // namespace tst_tarvisnet_refusals

#include "tst_tarvisnet_refusals.moc"
