#include "answers.h"
#include "fetchoperations.h"
#include "files.h"

#include <QtTest/QTest>

using namespace fetches;

/// Which URL a fetch asks for.
class tst_TarvisNetFetchesUrls : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void choosesThePath_data();
    void choosesThePath();
    void buildsTheUrl_data();
    void buildsTheUrl();
    void sendsTheDecodedPath_data();
    void sendsTheDecodedPath();
    void asksTheBareServerForABinaryWithoutPath();
    void completesTheUrl_data();
    void completesTheUrl();
};

void tst_TarvisNetFetchesUrls::choosesThePath_data()
{
    QTest::addColumn<int>("operation");
    QTest::addColumn<QString>("configured");
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("path");
    for (int i = 0; i < operations.size() - 1; ++i) {
        const char *const name = operations.at(i).name;
        QTest::addRow("%s: configured", name) << i << "/configured"
                                              << ""
                                              << "/configured";
        QTest::addRow("%s: argument wins", name) << i << "/configured"
                                                 << "/given"
                                                 << "/given";
    }
    for (int i = 0; i < 3; ++i)
        QTest::addRow("%s: argument only", operations.at(i).name) << i << ""
                                                                  << "/given"
                                                                  << "/given";
}

void tst_TarvisNetFetchesUrls::choosesThePath()
{
    QFETCH(int, operation);
    QFETCH(QString, configured);
    QFETCH(QString, argument);
    QFETCH(QString, path);
    const Operation &fetch = operations.at(operation);

    ScriptedServer server(ScriptedServer::Mode::Https);
    server.onRequest(answers::bytes(answer));
    FetchBench bench;
    bench.ask(server.port());
    fetch.configure(bench.client, configured);
    fetch.byPath(bench, argument);
    QVERIFY(bench.recorder.waitFor(fetch.resultSignal));
    QCOMPARE(bench.recorder.last(fetch.resultSignal).last().toString(),
             server.url(path).toString());
    QCOMPARE(server.requests(path.toUtf8()).size(), 1);
}

void tst_TarvisNetFetchesUrls::buildsTheUrl_data()
{
    struct Case {
        const char *name;
        QString host;
        QString port;
        QString path;
        QByteArray url;
    };
    const QVector<Case> cases = {
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

    QTest::addColumn<int>("operation");
    QTest::addColumn<QString>("host");
    QTest::addColumn<QString>("port");
    QTest::addColumn<QString>("path");
    // Empty when the URL is not valid.
    QTest::addColumn<QByteArray>("url");
    for (int i = 0; i < operations.size(); ++i) {
        for (const Case &row : cases)
            QTest::addRow("%s: %s", operations.at(i).name, row.name)
                << i << row.host << row.port << row.path << row.url;
    }
}

void tst_TarvisNetFetchesUrls::buildsTheUrl()
{
    QFETCH(int, operation);
    QFETCH(QString, host);
    QFETCH(QString, port);
    QFETCH(QString, path);
    QFETCH(QByteArray, url);
    const Operation &fetch = operations.at(operation);

    FetchBench bench;
    bench.client.setServerHost(host);
    bench.client.setServerPort(port);
    bench.hold();
    fetch.byPath(bench, path);
    if (url.isEmpty()) {
        QCOMPARE(bench.errors(), QList<int>{errorcodes::invalid_url});
        QCOMPARE(bench.recorder.count("s_repliesCountChanged"), 0);
        return;
    }
    QCOMPARE(bench.errors(), QList<int>());
    const QUrl expected = QUrl::fromEncoded(url, QUrl::StrictMode);
    QVERIFY(expected.isValid());
    QVERIFY(bench.isPending(expectedRecord(bench, fetch, expected, true)));
}

void tst_TarvisNetFetchesUrls::sendsTheDecodedPath_data()
{
    QTest::addColumn<int>("operation");
    for (int i = 0; i < operations.size(); ++i)
        QTest::newRow(operations.at(i).name) << i;
}

void tst_TarvisNetFetchesUrls::sendsTheDecodedPath()
{
    QFETCH(int, operation);
    const Operation &fetch = operations.at(operation);

    ScriptedServer server(ScriptedServer::Mode::Https);
    const QByteArray target = "/a%20b%3Fc%23d%2541%C3%A4";
    server.on(target, answers::bytes(answer));
    FetchBench bench;
    bench.ask(server.port());
    fetch.byPath(bench, "/a b?c#d%41ä");
    QVERIFY(bench.recorder.waitFor(fetch.resultSignal));
    QCOMPARE(server.requests(target).size(), 1);
}

void tst_TarvisNetFetchesUrls::asksTheBareServerForABinaryWithoutPath()
{
    ScriptedServer server(ScriptedServer::Mode::Https);
    server.onRequest(answers::bytes(answer));
    FetchBench bench;
    bench.ask(server.port());
    bench.client.fetchBinary(QString(), bench.path("file"), answerSize);
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QCOMPARE(bench.recorder.last("s_finished").first().toString(), server.url("").toString());
    QCOMPARE(files::read(bench.path("file")), answer);
    QCOMPARE(bench.errors(), QList<int>());
}

void tst_TarvisNetFetchesUrls::completesTheUrl_data()
{
    QTest::addColumn<int>("operation");
    QTest::addColumn<QString>("given");
    QTest::addColumn<QString>("sent");
    for (int i = 0; i < operations.size(); ++i) {
        const char *const name = operations.at(i).name;
        QTest::addRow("%s: no scheme", name) << i << "//example.test:81/a?b=c%20d#e"
                                             << "https://example.test:81/a?b=c%20d#e";
        QTest::addRow("%s: no scheme, no port", name) << i << "//example.test/a"
                                                      << "https://example.test/a";
        QTest::addRow("%s: no scheme, no path", name) << i << "//example.test"
                                                      << "https://example.test";
        QTest::addRow("%s: http", name) << i << "http://example.test/a"
                                        << "http://example.test/a";
        QTest::addRow("%s: another scheme", name) << i << "ftp://example.test/a"
                                                  << "ftp://example.test/a";
    }
}

void tst_TarvisNetFetchesUrls::completesTheUrl()
{
    QFETCH(int, operation);
    QFETCH(QString, given);
    QFETCH(QString, sent);
    const Operation &fetch = operations.at(operation);

    FetchBench bench;
    bench.client.setServerHost("unused.test");
    bench.client.setServerPort("1");
    bench.hold();
    fetch.byUrl(bench, given);
    QCOMPARE(bench.errors(), QList<int>());
    QVERIFY(bench.isPending(expectedRecord(bench, fetch, QUrl(sent), false)));
}

QTEST_GUILESS_MAIN(tst_TarvisNetFetchesUrls)

#include "tst_tarvisnet_fetches_urls.moc"
