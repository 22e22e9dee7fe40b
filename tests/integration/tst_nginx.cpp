#include "clientbench.h"
#include "nginxcontent.h"
#include "operations.h"
#include "testclass.h"

#include <QtCore/QFileInfo>
#include <QtCore/QJsonObject>
#include <QtTest/QTest>

namespace tst_nginx {

using namespace clientaccess;

/// Every operation, refusals, redirects, compression and both versions of TLS.
class tst_Nginx : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void answersEveryOperation_data();
    void answersEveryOperation();
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

void tst_Nginx::answersEveryOperation_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QString>("scheme");
    for (const Operation &operation : operations::all()) {
        // A path is asked for by https.
        if (operation.form != Operation::Path)
            QTest::addRow("%s, http", operation.name) << operation << "http";
        QTest::addRow("%s, https", operation.name) << operation << "https";
    }
}

void tst_Nginx::answersEveryOperation()
{
    QFETCH(const Operation, operation);
    QFETCH(const QString, scheme);
    static const QMap<QByteArray, QString> paths = {
        {"remoteDefinition", "/definition.json"}, {"remoteIndex", "/index.json"},
        {"remoteInstaller", "/installer.zip"},    {"remoteInstallerChangeLog", "/changes.txt"},
        {"remoteBinary", "/small.bin"},           {"rawGetFile", "/small.bin"},
    };
    const RequestKind kind = requestkinds::of(operation.kind);
    const QString path = paths.value(kind.name, "/fixed");
    const QByteArray content =
        path == "/fixed" ? QByteArray("{\"fixed\":true}") : files::read(m_server.root() + path);
    const QString url = m_content.url(scheme, path).toString();

    ClientBench bench;
    bench.ask(m_server.httpsPort());
    const FileData file = bench.file("file", quint64(content.size()));
    const int before = m_server.accessLog(path.toUtf8()).size();
    operation.call(*bench.client, operation.form == Operation::Path ? path : url, file);
    QVERIFY(bench.recorder.waitFor(kind.signal));

    const QVariantList result = bench.recorder.last(kind.signal);
    if (kind.result == Result::Document)
        QCOMPARE(result.first().toJsonDocument(), QJsonDocument::fromJson(content));
    if (kind.result == Result::Bytes)
        QVERIFY(result.first().toByteArray() == content);
    QCOMPARE(result.value(kind.result == Result::Address ? 0 : 1).toString(), url);
    QCOMPARE(bench.errors(), QList<int>());
    const bool isSaved = kind.isBinary() || QByteArray(kind.name).endsWith("File");
    QVERIFY(files::read(file.filePath) == (isSaved ? content : QByteArray()));

    const QList<NginxLogEntry> seen = m_content.logged(path.toUtf8(), before, 1);
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.first().method, QByteArray(kind.verb));
    QCOMPARE(seen.first().status, 200);
    QCOMPARE(seen.first().contentType, QByteArray(kind.contentType));
    QCOMPARE(seen.first().userAgent, bench.client->getUserAgent().toLocal8Bit());
    QCOMPARE(seen.first().sent, qint64(content.size()));
    QCOMPARE(seen.first().tls.isEmpty(), scheme == "http");
}

void tst_Nginx::unpacksGzip()
{
    ClientBench bench;
    bench.client->rawGet(m_server.httpsUrl("/packed.json"));
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    const QJsonObject unpacked{{"text", QString(5000, 'x')}};
    QCOMPARE(bench.recorder.last("s_rawGet").at(0).toJsonDocument(), QJsonDocument(unpacked));
    const QList<NginxLogEntry> seen = m_content.logged("/packed.json", 0, 1);
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.first().encoding, QByteArray("gzip"));
}

void tst_Nginx::followsRedirect()
{
    ClientBench bench;
    const int before = m_server.accessLog("/index.json").size();
    const QUrl url = m_server.httpsUrl("/moved");
    bench.client->rawPost(url, QByteArray("a=1"));
    QVERIFY(bench.recorder.waitFor("s_rawPost"));
    const QJsonDocument index(QJsonObject{{"entries", 3}});
    QCOMPARE(bench.recorder.last("s_rawPost"), QVariantList({index, url.toString()}));

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
    QFETCH(const QString, path);
    QFETCH(const int, status);
    QFETCH(const int, code);

    ClientBench bench;
    bench.ask(m_server.httpsPort());
    bench.client->fetchBinary(path, bench.path("file"), 1000);
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.error(), failure(code, m_server.httpsUrl(path).toString()));
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
    QFETCH(const QByteArray, protocol);

    const NginxServer server("location / { return 200 '{\"tls\":1}'; }", protocol);
    ClientBench bench;
    bench.ask(server.httpsPort());
    bench.client->fetchIndex("/any");
    QVERIFY(bench.recorder.waitFor("s_fetchIndex"));
    QCOMPARE(bench.recorder.last("s_fetchIndex").at(0).toJsonDocument(),
             QJsonDocument(QJsonObject{{"tls", 1}}));
    QTRY_COMPARE(server.accessLog("/any").size(), 1);
    QCOMPARE(server.accessLog("/any").first().tls, protocol);
}

const TestClass<tst_Nginx> testClass("tst_nginx");

} // namespace tst_nginx

#include "tst_nginx.moc"
