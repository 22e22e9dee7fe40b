#include "clientbench.h"
#include "nginxcontent.h"
#include "testclass.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace tst_nginx_downloads {

namespace {

QByteArray rangeFrom(qint64 loaded)
{
    return loaded == 0 ? QByteArray() : "bytes=" + QByteArray::number(loaded) + '-';
}

} // namespace

class tst_NginxDownloads : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void downloads_data();
    void downloads();
    void reportsUnsatisfiableRange();
    void downloadsSeveralAtOnce();
    void abortsAndResumes();

private:
    NginxContent m_content;
    const NginxServer &m_server = m_content.server;
};

void tst_NginxDownloads::downloads_data()
{
    QTest::addColumn<QString>("scheme");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("loaded");
    QTest::addColumn<int>("status");
    for (const char *scheme : {"http", "https"}) {
        QTest::addRow("fresh, %s", scheme) << scheme << "big.bin" << 0 << 200;
        QTest::addRow("resumed, %s", scheme) << scheme << "small.bin" << 30000 << 206;
    }
}

void tst_NginxDownloads::downloads()
{
    QFETCH(const QString, scheme);
    QFETCH(const QString, name);
    QFETCH(const int, loaded);
    QFETCH(const int, status);

    ClientBench bench;
    const QByteArray path = '/' + name.toUtf8();
    const QByteArray content = name == "big.bin" ? m_content.big : m_content.small;
    const QUrl url = m_content.url(scheme, path);
    const int before = m_server.accessLog(path).size();
    const FileData file = bench.file("file", quint64(content.size()));
    if (loaded > 0)
        files::write(file.tempFilePath, content.left(loaded));
    bench.client->fetchBinary(url, file.filePath, file.size);
    QVERIFY(bench.recorder.waitFor("s_finished", 1, 60000));
    QCOMPARE(bench.recorder.last("s_finished"), QVariantList{url.toString()});
    QVERIFY(files::read(file.filePath) == content);
    QVERIFY(!QFileInfo::exists(file.tempFilePath));

    const qint64 size = content.size();
    QCOMPARE(bench.recorder.last("s_downloadFileBytesProgress"),
             QVariantList({size, size, url.toString()}));
    QCOMPARE(bench.recorder.last("s_downloadFileProgress"), QVariantList({100.0, url.toString()}));
    const QList<NginxLogEntry> seen = m_content.logged(path, before, 1);
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.first().status, status);
    QCOMPARE(seen.first().range, rangeFrom(loaded));
    QCOMPARE(seen.first().sent, size - loaded);
}

// The file on the server has become shorter than what is here already.
void tst_NginxDownloads::reportsUnsatisfiableRange()
{
    ClientBench bench;
    bench.ask(m_server.httpsPort());
    const int before = m_server.accessLog("/small.bin").size();
    const QByteArray partial = m_content.big.left(m_content.small.size() + 1);
    const FileData file = bench.file("small", quint64(m_content.big.size()));
    files::write(file.tempFilePath, partial);
    bench.client->fetchBinary("/small.bin", file.filePath, file.size);
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.errors(), QList<int>{errorcodes::network_error});

    const QList<NginxLogEntry> seen = m_content.logged("/small.bin", before, 1);
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.first().status, 416);
    QCOMPARE(seen.first().range, rangeFrom(partial.size()));
    QVERIFY(files::read(file.tempFilePath) == partial);
    QVERIFY(!QFileInfo::exists(file.filePath));
}

void tst_NginxDownloads::downloadsSeveralAtOnce()
{
    ClientBench bench;
    const int before = m_server.accessLog("/small.bin").size();
    constexpr int count = 12;
    for (int i = 0; i < count; ++i) {
        const QString query = QStringLiteral("/small.bin?%1").arg(i);
        bench.client->fetchBinary(m_content.url(i % 2 ? "http" : "https", query),
                                  bench.path(QString::number(i)), quint64(m_content.small.size()));
        bench.client->rawGet(m_server.httpsUrl(QStringLiteral("/fixed?%1").arg(i)));
    }
    QVERIFY(bench.recorder.waitFor("s_finished", count));
    QVERIFY(bench.recorder.waitFor("s_rawGet", count));
    for (int i = 0; i < count; ++i)
        QVERIFY2(files::read(bench.path(QString::number(i))) == m_content.small,
                 qPrintable(QString::number(i)));
    QCOMPARE(m_content.logged("/small.bin", before, count).size(), count);
    QCOMPARE(bench.errors(), QList<int>());
}

void tst_NginxDownloads::abortsAndResumes()
{
    ClientBench bench;
    bench.ask(m_server.httpsPort());
    const int before = m_server.accessLog("/big.bin").size();
    const FileData file = bench.file("big", quint64(m_content.big.size()));
    const QUrl slow = m_server.httpsUrl("/big.bin?rate=2m");
    bench.client->fetchBinary(slow, file.filePath, file.size);
    QTRY_VERIFY(QFileInfo(file.tempFilePath).size() > 0);
    bench.client->abortDownload(slow.path());
    QCOMPARE(bench.abortedUrls(), QStringList(slow.toString()));
    const qint64 loaded = QFileInfo(file.tempFilePath).size();
    QVERIFY(loaded > 0 && loaded < m_content.big.size());
    QVERIFY(files::read(file.tempFilePath) == m_content.big.left(int(loaded)));

    bench.client->fetchBinary("/big.bin", file.filePath, file.size);
    QVERIFY(bench.recorder.waitFor("s_finished", 1, 60000));
    QVERIFY(files::read(file.filePath) == m_content.big);
    QVERIFY(!QFileInfo::exists(file.tempFilePath));
    QCOMPARE(bench.errors(), QList<int>());

    const QList<NginxLogEntry> seen = m_content.logged("/big.bin", before, 2);
    QCOMPARE(seen.size(), 2);
    QCOMPARE(seen.at(1).status, 206);
    QCOMPARE(seen.at(1).range, rangeFrom(loaded));
    QCOMPARE(seen.at(1).sent, m_content.big.size() - loaded);
}

const TestClass<tst_NginxDownloads> testClass("tst_nginx_downloads");

} // namespace tst_nginx_downloads

#include "tst_nginx_downloads.moc"
