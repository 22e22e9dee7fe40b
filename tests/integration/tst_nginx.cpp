#include "fetchbench.h"
#include "files.h"
#include "nginxcontent.h"

#include <QtCore/QFileInfo>
#include <QtCore/QJsonObject>
#include <QtTest/QTest>

namespace {

QJsonObject parsed(const QVariant &document)
{
    return document.toJsonDocument().object();
}

} // namespace

class tst_Nginx : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fetchesDocuments_data();
    void fetchesDocuments();
    void fetchesInstaller();
    void sendsRawRequests_data();
    void sendsRawRequests();
    void savesRawFiles();
    void unpacksGzip();
    void followsRedirect();
    void reportsRefusals_data();
    void reportsRefusals();

    void speaksTls_data();
    void speaksTls();

private:
    NginxContent m_content;
    const NginxServer &m_server = m_content.server;
};
using Fetch = void (*)(TarvisNet &client, const QString &path);
Q_DECLARE_METATYPE(Fetch)

void tst_Nginx::fetchesDocuments_data()
{
    QTest::addColumn<Fetch>("fetch");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("signal");
    QTest::addColumn<QVariant>("content");
    QTest::addColumn<QByteArray>("contentType");

    const Fetch definition = [](TarvisNet &client, const QString &path) {
        client.fetchDefinition(path);
    };
    const Fetch configuredIndex = [](TarvisNet &client, const QString &path) {
        client.setIndexPath(path);
        client.fetchIndex();
    };
    const Fetch changeLog = [](TarvisNet &client, const QString &path) {
        client.fetchInstallerChangeLog(path);
    };
    const QVariant product = QJsonDocument(QJsonObject{{"product", "tool"}});
    const QVariant entries = QJsonDocument(QJsonObject{{"entries", 3}});
    const QVariant changes = QByteArray("first\nsecond\n");
    const QByteArray json("application/json");
    const QByteArray form("application/x-www-form-urlencoded");
    QTest::newRow("definition") << definition << "/definition.json"
                                << "s_fetchDefinition" << product << json;
    QTest::newRow("index") << configuredIndex << "/index.json"
                           << "s_fetchIndex" << entries << json;
    QTest::newRow("change log") << changeLog << "/changes.txt"
                                << "s_fetchInstallerChangeLogData" << changes << form;
}

void tst_Nginx::fetchesDocuments()
{
    QFETCH(Fetch, fetch);
    QFETCH(QString, path);
    QFETCH(QString, signal);
    QFETCH(QVariant, content);
    QFETCH(QByteArray, contentType);

    FetchBench bench;
    bench.ask(m_server.httpsPort());
    const int before = m_server.accessLog(path.toUtf8()).size();
    fetch(bench.client, path);
    QVERIFY(bench.recorder.waitFor(signal));
    QCOMPARE(bench.recorder.last(signal).at(0), content);
    QCOMPARE(bench.recorder.last(signal).at(1).toString(), m_server.httpsUrl(path).toString());

    const QList<NginxLogEntry> seen = m_content.logged(path.toUtf8(), before, 1);
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.first().method, QByteArray("GET"));
    QCOMPARE(seen.first().contentType, contentType);
    QCOMPARE(seen.first().userAgent, bench.client.getUserAgent().toLocal8Bit());
    QVERIFY(!seen.first().tls.isEmpty());
}

void tst_Nginx::fetchesInstaller()
{
    FetchBench bench;
    bench.ask(m_server.httpsPort());
    bench.client.setInstallerPath("/installer.zip");
    bench.client.fetchInstaller();
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QCOMPARE(bench.recorder.last("s_finished").at(0).toString(),
             m_server.httpsUrl("/installer.zip").toString());
    QCOMPARE(bench.recorder.count("s_errorChanged"), 0);

    const QList<NginxLogEntry> seen = m_content.logged("/installer.zip", 0, 1);
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.first().contentType, QByteArray("application/zip"));
    QCOMPARE(seen.first().sent, qint64(m_content.small.size()));
}

void tst_Nginx::sendsRawRequests_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("signal");
    QTest::addColumn<QString>("scheme");
    for (const char *scheme : {"http", "https"}) {
        QTest::addRow("get over %s", scheme) << QByteArray("GET") << "s_rawGet" << scheme;
        QTest::addRow("post over %s", scheme) << QByteArray("POST") << "s_rawPost" << scheme;
        QTest::addRow("patch over %s", scheme)
            << QByteArray("PATCH") << "s_rawPathFinished" << scheme;
        QTest::addRow("delete over %s", scheme)
            << QByteArray("DELETE") << "s_rawDeleteFinished" << scheme;
    }
}

void tst_Nginx::sendsRawRequests()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, signal);
    QFETCH(QString, scheme);

    FetchBench bench;
    const QUrl url = m_content.url(scheme, "/fixed");
    const int before = m_server.accessLog("/fixed").size();
    if (method == "GET")
        bench.client.rawGet(url);
    else if (method == "POST")
        bench.client.rawPost(url, QByteArray("a=1"));
    else if (method == "PATCH")
        bench.client.rawPath(url, QByteArray("{}"));
    else
        bench.client.rawDelete(url, QByteArray("a=1"));
    QVERIFY(bench.recorder.waitFor(signal));

    const QVariantList args = bench.recorder.last(signal);
    QCOMPARE(args.last().toString(), url.toString());
    if (method != "DELETE")
        QCOMPARE(parsed(args.at(0)), (QJsonObject{{"fixed", true}}));
    const QList<NginxLogEntry> seen = m_content.logged("/fixed", before, 1);
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.first().method, method);
    QCOMPARE(seen.first().status, 200);
    QCOMPARE(bench.recorder.count("s_errorChanged"), 0);
}

void tst_Nginx::savesRawFiles()
{
    FetchBench bench;
    bench.ask(m_server.httpsPort());
    bench.client.rawGetFile(m_server.httpsUrl("/small.bin"), bench.path("saved"));
    QVERIFY(bench.recorder.waitFor("s_rawGetFileFinished"));
    QVERIFY(bench.recorder.last("s_rawGetFileFinished").at(0).toByteArray() == m_content.small);
    QVERIFY(files::read(bench.path("saved")) == m_content.small);

    bench.client.rawPostFile(m_server.httpsUrl("/fixed"), bench.path("posted"), QByteArray("a=1"));
    QVERIFY(bench.recorder.waitFor("s_rawPostFileFinished"));
    QCOMPARE(files::read(bench.path("posted")), QByteArray("{\"fixed\":true}"));
}

void tst_Nginx::unpacksGzip()
{
    FetchBench bench;
    bench.ask(m_server.httpsPort());
    bench.client.rawGet(m_server.httpsUrl("/packed.json"));
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(parsed(bench.recorder.last("s_rawGet").at(0)).value("text").toString(),
             QString(5000, 'x'));
    const QList<NginxLogEntry> seen = m_content.logged("/packed.json", 0, 1);
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.first().encoding, QByteArray("gzip"));
}

void tst_Nginx::followsRedirect()
{
    FetchBench bench;
    bench.ask(m_server.httpsPort());
    const int before = m_server.accessLog("/index.json").size();
    const QUrl url = m_server.httpsUrl("/moved");
    bench.client.rawPost(url, QByteArray("a=1"));
    QVERIFY(bench.recorder.waitFor("s_rawPost"));
    QCOMPARE(parsed(bench.recorder.last("s_rawPost").at(0)), (QJsonObject{{"entries", 3}}));
    QCOMPARE(bench.recorder.last("s_rawPost").at(1).toString(), url.toString());

    const QList<NginxLogEntry> moved = m_content.logged("/moved", 0, 1);
    QCOMPARE(moved.size(), 1);
    QCOMPARE(moved.first().status, 302);
    const QList<NginxLogEntry> target = m_content.logged("/index.json", before, 1);
    QCOMPARE(target.size(), 1);
    QCOMPARE(target.first().method, QByteArray("GET"));
}

void tst_Nginx::reportsRefusals_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("code");
    QTest::newRow("not found") << "/nowhere.bin" << 404 << int(errorcodes::content_not_found);
    QTest::newRow("forbidden") << "/forbidden" << 403 << int(errorcodes::network_error);
}

void tst_Nginx::reportsRefusals()
{
    QFETCH(QString, path);
    QFETCH(int, status);
    QFETCH(int, code);

    FetchBench bench;
    bench.ask(m_server.httpsPort());
    bench.client.fetchBinary(path, bench.path("file"), 1000);
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.recorder.last("s_errorChanged").at(0).toInt(), code);
    QCOMPARE(bench.recorder.last("s_errorChanged").at(1).toString(),
             m_server.httpsUrl(path).toString());
    const QList<NginxLogEntry> seen = m_content.logged(path.toUtf8(), 0, 1);
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.first().status, status);
    QCOMPARE(bench.recorder.count("s_finished"), 0);
    QVERIFY(!QFileInfo::exists(bench.path("file")));
    QVERIFY(!QFileInfo::exists(bench.path("file.vtxdownload")));
}

void tst_Nginx::speaksTls_data()
{
    QTest::addColumn<QByteArray>("protocol");
    QTest::newRow("1.2") << QByteArray("TLSv1.2");
    QTest::newRow("1.3") << QByteArray("TLSv1.3");
}

void tst_Nginx::speaksTls()
{
    QFETCH(QByteArray, protocol);

    const NginxServer server("location / { return 200 '{\"tls\":1}'; }", protocol);
    FetchBench bench;
    bench.ask(server.httpsPort());
    bench.client.fetchIndex("/any");
    QVERIFY(bench.recorder.waitFor("s_fetchIndex"));
    QCOMPARE(parsed(bench.recorder.last("s_fetchIndex").at(0)), (QJsonObject{{"tls", 1}}));
    QTRY_COMPARE(server.accessLog("/any").size(), 1);
    QCOMPARE(server.accessLog("/any").first().tls, protocol);
}

QTEST_GUILESS_MAIN(tst_Nginx)

#include "tst_nginx.moc"
