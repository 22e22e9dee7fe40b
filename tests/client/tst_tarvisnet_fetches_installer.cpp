#include "answers.h"
#include "fetchbench.h"
#include "files.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace {

constexpr char availableText[] = "<TarvisNet::fetchInstaller> File avalible bytes: ";

/// What the installer fetch queues.
ReplyData installerRecord(const FetchBench &bench, const QUrl &url,
                          const QByteArray &range = QByteArray())
{
    ReplyData record;
    record.replyType = replies::remote_installer;
    record.request = bench.fileRequest(url, "application/zip", range);
    return record;
}

} // namespace

class tst_TarvisNetFetchesInstaller : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void choosesTheUrl_data();
    void choosesTheUrl();
    void refusesWithoutUrl();
    void urlFormLooksAtNothingElse();
    void resumes_data();
    void resumes();
    void sendsTheRange_data();
    void sendsTheRange();
    void doesNotSaveTheBody();
};

void tst_TarvisNetFetchesInstaller::choosesTheUrl_data()
{
    QTest::addColumn<QString>("configured");
    QTest::addColumn<QString>("direct");
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("url");

    const QString direct = "http://direct.test/setup";
    QTest::newRow("configured path") << "/setup"
                                     << ""
                                     << ""
                                     << "https://example.test:8443/setup";
    QTest::newRow("argument before configured path") << "/setup"
                                                     << ""
                                                     << "/other"
                                                     << "https://example.test:8443/other";
    QTest::newRow("configured path before direct URL") << "/setup" << direct << ""
                                                       << "https://example.test:8443/setup";
    QTest::newRow("argument, configured path and direct URL") << "/setup" << direct << "/other"
                                                              << "https://example.test:8443/other";
    QTest::newRow("direct URL") << "" << direct << "" << direct;
    QTest::newRow("direct URL before the argument") << "" << direct << "/other" << direct;
    QTest::newRow("direct URL is parsed tolerantly") << ""
                                                     << "http://direct.test/a b%"
                                                     << ""
                                                     << "http://direct.test/a%20b%25";
    // Only the URL form completes a scheme.
    QTest::newRow("direct URL without a scheme") << ""
                                                 << "//direct.test/setup"
                                                 << ""
                                                 << "//direct.test/setup";
}

void tst_TarvisNetFetchesInstaller::choosesTheUrl()
{
    QFETCH(QString, configured);
    QFETCH(QString, direct);
    QFETCH(QString, argument);
    QFETCH(QString, url);

    FetchBench bench;
    bench.ask(8443, "example.test");
    bench.client.setInstallerPath(configured);
    bench.client.setDirectInstallerUrl(direct);
    bench.hold();
    bench.client.fetchInstaller(argument);
    QCOMPARE(bench.errors(), QList<int>());
    QVERIFY(bench.isPending(installerRecord(bench, QUrl(url))));
}

void tst_TarvisNetFetchesInstaller::refusesWithoutUrl()
{
    FetchBench bench;
    bench.ask(8443, "example.test");
    bench.recorder.clear();
    bench.client.fetchInstaller("/given");
    QCOMPARE(bench.recorder.names(), QStringList{"s_errorChanged"});
    QCOMPARE(bench.errors(), QList<int>{errorcodes::invalid_url});
    QCOMPARE(bench.recorder.last("s_errorChanged").at(1).toString(), QString());
    QCOMPARE(bench.log.count(QtWarningMsg, "Empty installer path. No url"), 1);
}

void tst_TarvisNetFetchesInstaller::urlFormLooksAtNothingElse()
{
    FetchBench bench;
    bench.ask(8443, "example.test");
    bench.client.setInstallerPath("/setup");
    bench.client.setDirectInstallerUrl("http://direct.test/setup");
    bench.hold();
    bench.client.fetchInstaller(QUrl("//given.test/setup"));
    QVERIFY(bench.isPending(installerRecord(bench, QUrl("https://given.test/setup"))));
}

void tst_TarvisNetFetchesInstaller::resumes_data()
{
    QTest::addColumn<int>("present");
    QTest::addColumn<quint64>("sizeAtFirst");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<QByteArray>("range");
    QTest::newRow("nothing there") << 0 << quint64(1000) << quint64(1000) << QByteArray();
    QTest::newRow("one byte there")
        << 1 << quint64(1000) << quint64(1000) << QByteArray("bytes=1-");
    QTest::newRow("part there") << 400 << quint64(1000) << quint64(1000)
                                << QByteArray("bytes=400-");
    QTest::newRow("all but one byte there")
        << 999 << quint64(1000) << quint64(1000) << QByteArray("bytes=999-");
    QTest::newRow("complete") << 1000 << quint64(1000) << quint64(1000) << QByteArray();
    QTest::newRow("as large as a smaller new version")
        << 1000 << quint64(2000) << quint64(1000) << QByteArray();
    QTest::newRow("larger than a smaller new version")
        << 1000 << quint64(2000) << quint64(900) << QByteArray();
    QTest::newRow("size forgotten") << 400 << quint64(1000) << quint64(0) << QByteArray();
    QTest::newRow("larger than 4 GiB")
        << 400 << Q_UINT64_C(5000000000) << Q_UINT64_C(5000000000) << QByteArray("bytes=400-");
    QTest::newRow("size beyond signed numbers")
        << 400 << quint64(1000) << ~quint64(0) << QByteArray("bytes=400-");
}

void tst_TarvisNetFetchesInstaller::resumes()
{
    QFETCH(int, present);
    QFETCH(quint64, sizeAtFirst);
    QFETCH(quint64, size);
    QFETCH(QByteArray, range);

    const QUrl url("https://example.test:8443/setup");
    for (const bool byPath : {true, false}) {
        FetchBench bench;
        files::write(bench.path("setup"), QByteArray(present, 'x'));
        bench.ask(8443, "example.test");
        bench.client.setInstallerPath("/setup");
        bench.client.setInstallerFileName(bench.path("setup"));
        bench.client.setInstallerFileSize(sizeAtFirst);
        bench.client.setInstallerFileSize(size);
        bench.hold();
        bench.log.clear();
        if (byPath)
            bench.client.fetchInstaller();
        else
            bench.client.fetchInstaller(url);
        const QStringList lines = range.isNull()
            ? QStringList()
            : QStringList{availableText + QStringLiteral(" \"%1\"").arg(QString(range))};
        QCOMPARE(bench.log.texts(), lines);
        QCOMPARE(bench.log.texts(QtDebugMsg), lines);
        QVERIFY(bench.isPending(installerRecord(bench, url, range)));
        QCOMPARE(files::read(bench.path("setup")).size(), present);
    }
}

void tst_TarvisNetFetchesInstaller::sendsTheRange_data()
{
    QTest::addColumn<bool>("byPath");
    QTest::newRow("by path") << true;
    QTest::newRow("by URL") << false;
}

void tst_TarvisNetFetchesInstaller::sendsTheRange()
{
    QFETCH(bool, byPath);

    ScriptedServer server(ScriptedServer::Mode::Https);
    server.on("/setup", answers::generatedFile(1000));
    FetchBench bench;
    bench.ask(server.port());
    files::write(bench.path("setup"), HttpResponse::generated(0, 400));
    bench.client.setInstallerFileName(bench.path("setup"));
    bench.client.setInstallerFileSize(1000);
    bench.client.setInstallerPath("/setup");
    if (byPath)
        bench.client.fetchInstaller();
    else
        bench.client.fetchInstaller(server.url("/setup"));
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QCOMPARE(server.requests("/setup").size(), 1);
    QCOMPARE(server.requests("/setup").first().header("range"), QByteArray("bytes=400-"));
    QCOMPARE(bench.recorder.last("s_finished").first().toString(), server.url("/setup").toString());
}

// The record names no file, so every piece is refused and the installer on disk stays as it is.
void tst_TarvisNetFetchesInstaller::doesNotSaveTheBody()
{
    ScriptedServer server(ScriptedServer::Mode::Https);
    server.on("/setup", answers::generatedFile(1000));
    FetchBench bench;
    bench.ask(server.port());
    bench.client.setInstallerFileName(bench.path("setup"));
    bench.client.setInstallerFileSize(1000);
    bench.client.setInstallerPath("/setup");
    bench.client.fetchInstaller();
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QVERIFY(bench.log.contains(QtWarningMsg, "File path not defined!"));
    QVERIFY(!QFileInfo::exists(bench.path("setup")));
    QCOMPARE(bench.errors(), QList<int>());
}

QTEST_GUILESS_MAIN(tst_TarvisNetFetchesInstaller)

#include "tst_tarvisnet_fetches_installer.moc"
