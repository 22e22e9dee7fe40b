#include "clientbench.h"
#include "operations.h"
#include "testclass.h"

#include <QtTest/QTest>

#include <functional>

namespace tst_tarvisnet_urls {

using namespace clientaccess;

using Configure = std::function<void(TarvisNet &client)>;

/// Which URL an operation asks for.
class tst_TarvisNetUrls : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void choosesTheUrl_data();
    void choosesTheUrl();
    void buildsTheUrl_data();
    void buildsTheUrl();
    void sendsTheDecodedPath_data();
    void sendsTheDecodedPath();
    void asksTheBareServerForABinaryWithoutPath();
    void completesTheUrl_data();
    void completesTheUrl();
    void parsesTolerantly_data();
    void parsesTolerantly();
    void acceptsRelativeUrl_data();
    void acceptsRelativeUrl();
};

namespace {

bool isPathForm(const Operation &operation)
{
    return operation.form == Operation::Path;
}

bool isFetchByUrl(const Operation &operation)
{
    return operation.form == Operation::Url && QByteArray(operation.name).startsWith("fetch");
}

/// What a binary is to become.
FileData download(const ClientBench &bench)
{
    FileData file = bench.file("file", 10);
    file.hash = "hash";
    return file;
}

} // namespace

void tst_TarvisNetUrls::choosesTheUrl_data()
{
    QTest::addColumn<Configure>("call");
    QTest::addColumn<QString>("url");
    const auto row = [](const char *name, const Configure &call, const char *url) {
        QTest::newRow(name) << call << QString(url);
    };
    const char *const configured = "https://localhost:8443/configured";
    const char *const given = "https://localhost:8443/given";
    const char *const direct = "http://127.0.0.1:9/setup";
    struct Document {
        const char *operation;
        void (TarvisNet::*configure)(const QString &path);
    };
    const Document documents[] = {
        {"fetchDefinition(QString)", &TarvisNet::setDefinitionPath},
        {"fetchIndex(QString)", &TarvisNet::setIndexPath},
        {"fetchInstallerChangeLog(QString)", &TarvisNet::setInstallerChangeLogPath},
    };
    for (const Document &document : documents) {
        const auto fetch = [document](const char *path, const char *argument) {
            return [=](TarvisNet &client) {
                (client.*document.configure)(path);
                operations::of(document.operation).call(client, argument, FileData());
            };
        };
        const QByteArray name = document.operation;
        row(name + ": configured", fetch("/configured", ""), configured);
        row(name + ": argument wins", fetch("/configured", "/given"), given);
        row(name + ": argument only", fetch("", "/given"), given);
    }
    const auto installer = [](const char *path, const char *url, const char *argument) {
        return [=](TarvisNet &client) {
            client.setInstallerPath(path);
            client.setDirectInstallerUrl(url);
            client.fetchInstaller(argument);
        };
    };
    row("installer: configured", installer("/configured", "", ""), configured);
    row("installer: argument wins", installer("/configured", "", "/given"), given);
    row("installer: configured before direct", installer("/configured", direct, ""), configured);
    row("installer: argument, configured and direct", installer("/configured", direct, "/given"),
        given);
    row("installer: direct", installer("", direct, ""), direct);
    row("installer: direct before the argument", installer("", direct, "/given"), direct);
    row("installer: direct is parsed tolerantly", installer("", "http://127.0.0.1:9/a b%", ""),
        "http://127.0.0.1:9/a%20b%25");
    // Only the URL form completes a scheme, and it looks at nothing else.
    row("installer: direct without a scheme", installer("", "//127.0.0.1:9/setup", ""),
        "//127.0.0.1:9/setup");
    row(
        "installer: URL before all",
        [direct](TarvisNet &client) {
            client.setInstallerPath("/configured");
            client.setDirectInstallerUrl(direct);
            client.fetchInstaller(QUrl("//127.0.0.1:9/setup"));
        },
        "https://127.0.0.1:9/setup");
}

void tst_TarvisNetUrls::choosesTheUrl()
{
    QFETCH(const Configure, call);
    QFETCH(const QString, url);
    ClientBench bench;
    bench.ask(8443, "localhost");
    call(*bench.client);
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.replies().size(), 1);
    QCOMPARE(bench.replies().first()->request().url(), QUrl(url));
}

void tst_TarvisNetUrls::buildsTheUrl_data()
{
    struct Case {
        const char *name;
        QString host;
        QString port;
        QString path;
        QByteArray url;
    };
    const QList<Case> cases = {
        {"port", "example.test", "8443", "/a", "https://example.test:8443/a"},
        {"default port", "example.test", "443", "/a", "https://example.test:443/a"},
        {"no port", "example.test", "", "/a", "https://example.test:0/a"},
        {"port is not a number", "example.test", "many", "/a", "https://example.test:0/a"},
        {"port is not decimal", "example.test", "0x1f", "/a", "https://example.test:0/a"},
        {"port has a leading zero", "example.test", "0100", "/a", "https://example.test:100/a"},
        {"IPv6 host", "::1", "8443", "/a", "https://[::1]:8443/a"},
        {"host in capitals", "EXAMPLE.test", "8443", "/a", "https://example.test:8443/a"},
        // Qt forgets an invalid host or port as soon as the next part of the URL is set.
        {"percent sign in the host", "ex%61mple.test", "8443", "/a", "https://:8443/a"},
        {"host is not valid", "not a host", "8443", "/a", "https://:8443/a"},
        {"blank in the path", "example.test", "8443", "/a b", "https://example.test:8443/a%20b"},
        {"question mark", "example.test", "8443", "/a?b", "https://example.test:8443/a%3Fb"},
        {"number sign", "example.test", "8443", "/a#b", "https://example.test:8443/a%23b"},
        {"percent sign", "example.test", "8443", "/a%41", "https://example.test:8443/a%2541"},
        {"not ASCII", "example.test", "8443", "/ä", "https://example.test:8443/%C3%A4"},
        {"no host", "", "8443", "/a", "https://:8443/a"},
        {"path without slash", "example.test", "8443", "a", ""},
        {"port too large", "example.test", "65536", "/a", "https://example.test/a"},
        {"negative port", "example.test", "-2", "/a", "https://example.test/a"},
    };

    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("port");
    QTest::addColumn<QString>("path");
    // Empty when the URL is not valid.
    QTest::addColumn<QByteArray>("url");
    for (const Operation &operation : operations::all()) {
        if (!isPathForm(operation))
            continue;
        for (const Case &row : cases)
            QTest::addRow("%s: %s", operation.name, row.name)
                << operation << row.host << row.port << row.path << row.url;
    }
}

void tst_TarvisNetUrls::buildsTheUrl()
{
    QFETCH(const Operation, operation);
    QFETCH(const QString, host);
    QFETCH(const QString, port);
    QFETCH(const QString, path);
    QFETCH(const QByteArray, url);
    ClientBench bench;
    bench.client->setServerHost(host);
    bench.client->setServerPort(port);
    bench.client->setInstallerPath("/configured");
    bench.hold();
    operation.call(*bench.client, path, download(bench));
    if (url.isEmpty()) {
        QCOMPARE(bench.recorder.names(), QStringList("s_errorChanged"));
        QCOMPARE(bench.errors(), QList<int>{errorcodes::invalid_url});
        return;
    }
    QCOMPARE(bench.errors(), QList<int>());
    const QUrl expected = QUrl::fromEncoded(url, QUrl::StrictMode);
    QVERIFY(expected.isValid());
    QVERIFY(
        bench.isPending(operations::record(*bench.client, operation, expected, download(bench))));
}

void tst_TarvisNetUrls::sendsTheDecodedPath_data()
{
    operations::addRows(isPathForm);
}

void tst_TarvisNetUrls::sendsTheDecodedPath()
{
    QFETCH(const Operation, operation);
    ClientBench bench(ScriptedServer::Mode::Https);
    bench.ask(bench.server.port());
    operation.call(*bench.client, "/a b?c#d%41ä", FileData());
    QVERIFY(bench.server.waitForRequests(1));
    QCOMPARE(bench.server.requests().first().target, QByteArray("/a%20b%3Fc%23d%2541%C3%A4"));
}

void tst_TarvisNetUrls::asksTheBareServerForABinaryWithoutPath()
{
    ClientBench bench(ScriptedServer::Mode::Https);
    bench.server.onRequest(answers::bytes("0123456789"));
    bench.ask(bench.server.port());
    bench.client->fetchBinary(QString(), bench.path("file"), 10);
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QCOMPARE(bench.recorder.last("s_finished"), QVariantList{bench.url("")});
    QCOMPARE(bench.errors(), QList<int>());
}

void tst_TarvisNetUrls::completesTheUrl_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QString>("given");
    QTest::addColumn<QString>("sent");
    for (const Operation &operation : operations::all()) {
        if (!isFetchByUrl(operation))
            continue;
        const auto row = [operation](const char *name, const char *given, const char *sent) {
            QTest::addRow("%s: %s", operation.name, name)
                << operation << QString(given) << QString(sent);
        };
        row("no scheme", "//example.test:81/a?b=c%20d#e", "https://example.test:81/a?b=c%20d#e");
        row("no scheme, no port", "//example.test/a", "https://example.test/a");
        row("no scheme, no path", "//example.test", "https://example.test");
        row("http", "http://example.test/a", "http://example.test/a");
        row("another scheme", "ftp://example.test/a", "ftp://example.test/a");
    }
}

void tst_TarvisNetUrls::completesTheUrl()
{
    QFETCH(const Operation, operation);
    QFETCH(const QString, given);
    QFETCH(const QString, sent);
    ClientBench bench;
    bench.ask(1, "unused.test");
    bench.hold();
    operation.call(*bench.client, given, download(bench));
    QCOMPARE(bench.errors(), QList<int>());
    QVERIFY(
        bench.isPending(operations::record(*bench.client, operation, QUrl(sent), download(bench))));
}

void tst_TarvisNetUrls::parsesTolerantly_data()
{
    operations::addRows(
        [](const Operation &operation) { return operation.form == Operation::Text; });
}

void tst_TarvisNetUrls::parsesTolerantly()
{
    QFETCH(const Operation, operation);
    const QString text = "http://127.0.0.1:9/a b/%zz";
    QVERIFY(!QUrl(text, QUrl::StrictMode).isValid());
    const ClientBench bench;
    operation.call(*bench.client, text, FileData());
    QCOMPARE(bench.running().size(), 1);
    QCOMPARE(bench.running().first()->request().url(), QUrl(text, QUrl::TolerantMode));
}

void tst_TarvisNetUrls::acceptsRelativeUrl_data()
{
    operations::addRows(
        [](const Operation &operation) { return !QByteArray(operation.name).startsWith("fetch"); });
}

void tst_TarvisNetUrls::acceptsRelativeUrl()
{
    QFETCH(const Operation, operation);
    ClientBench bench;
    operation.call(*bench.client, "some/path", FileData());
    QCOMPARE(bench.recorder.names().value(0), "s_repliesCountChanged");
    // Nothing completes the URL, so nobody can send it.
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.error(), failure(-203, "some/path"));
}

const TestClass<tst_TarvisNetUrls> testClass("tst_tarvisnet_urls");

} // namespace tst_tarvisnet_urls

#include "tst_tarvisnet_urls.moc"
