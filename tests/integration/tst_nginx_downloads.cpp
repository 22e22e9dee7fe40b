#include "fetchbench.h"
#include "files.h"
#include "nginxcontent.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace {

bool isComplete(const QString &path, const QByteArray &content)
{
    return files::read(path) == content;
}

} // namespace

class tst_NginxDownloads : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void downloadsBinary_data();
    void downloadsBinary();
    void resumesBinary_data();
    void resumesBinary();
    void reportsUnsatisfiableRange();
    void downloadsSeveralAtOnce();
    void abortsAndResumes();

private:
    static void addSchemes();

    NginxContent m_content;
    const NginxServer &m_server = m_content.server;
};

void tst_NginxDownloads::addSchemes()
{
    QTest::addColumn<QString>("scheme");
    QTest::newRow("http") << "http";
    QTest::newRow("https") << "https";
}

void tst_NginxDownloads::downloadsBinary_data()
{
    addSchemes();
}

void tst_NginxDownloads::downloadsBinary()
{
    QFETCH(QString, scheme);
    FetchBench bench;
    const int before = m_server.accessLog("/big.bin").size();
    const QUrl url = m_content.url(scheme, "/big.bin");
    bench.client.fetchBinary(url, bench.path("big"), quint64(m_content.big.size()));
    QVERIFY(bench.recorder.waitFor("s_finished", 1, 60000));
    QCOMPARE(bench.recorder.last("s_finished").at(0).toString(), url.toString());
    QVERIFY(isComplete(bench.path("big"), m_content.big));
    QVERIFY(!QFileInfo::exists(bench.path("big.vtxdownload")));

    const QVariantList progress = bench.recorder.last("s_downloadFileBytesProgress");
    QCOMPARE(progress.at(0).toLongLong(), qint64(m_content.big.size()));
    QCOMPARE(bench.recorder.last("s_downloadFileProgress").at(0).toDouble(), 100.0);
    const QList<NginxLogEntry> seen = m_content.logged("/big.bin", before, 1);
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.first().status, 200);
    QCOMPARE(seen.first().range, QByteArray());
}

void tst_NginxDownloads::resumesBinary_data()
{
    addSchemes();
}

void tst_NginxDownloads::resumesBinary()
{
    QFETCH(QString, scheme);
    FetchBench bench;
    const int before = m_server.accessLog("/small.bin").size();
    files::write(bench.path("small.vtxdownload"), m_content.small.left(30000));
    bench.client.fetchBinary(m_content.url(scheme, "/small.bin"), bench.path("small"),
                             quint64(m_content.small.size()));
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QVERIFY(isComplete(bench.path("small"), m_content.small));

    const QList<NginxLogEntry> seen = m_content.logged("/small.bin", before, 1);
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.first().status, 206);
    QCOMPARE(seen.first().range, QByteArray("bytes=30000-"));
    QCOMPARE(seen.first().sent, qint64(m_content.small.size() - 30000));
}

// The file on the server has become shorter than what is here already.
void tst_NginxDownloads::reportsUnsatisfiableRange()
{
    FetchBench bench;
    bench.ask(m_server.httpsPort());
    const int before = m_server.accessLog("/small.bin").size();
    const QByteArray partial = m_content.big.left(m_content.small.size() + 1);
    files::write(bench.path("small.vtxdownload"), partial);
    bench.client.fetchBinary("/small.bin", bench.path("small"), quint64(m_content.big.size()));
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.recorder.last("s_errorChanged").at(0).toInt(), int(errorcodes::network_error));

    const QList<NginxLogEntry> seen = m_content.logged("/small.bin", before, 1);
    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen.first().status, 416);
    QCOMPARE(seen.first().range, "bytes=" + QByteArray::number(partial.size()) + '-');
    QVERIFY(isComplete(bench.path("small.vtxdownload"), partial));
    QVERIFY(!QFileInfo::exists(bench.path("small")));
}

void tst_NginxDownloads::downloadsSeveralAtOnce()
{
    FetchBench bench;
    bench.ask(m_server.httpsPort());
    const int before = m_server.accessLog("/small.bin").size();
    constexpr int count = 12;
    for (int i = 0; i < count; ++i) {
        const QString query = QStringLiteral("/small.bin?%1").arg(i);
        const QUrl url = i % 2 ? m_server.httpUrl(query) : m_server.httpsUrl(query);
        bench.client.fetchBinary(url, bench.path(QString::number(i)),
                                 quint64(m_content.small.size()));
        bench.client.rawGet(m_server.httpsUrl(QStringLiteral("/fixed?%1").arg(i)));
    }
    QVERIFY(bench.recorder.waitFor("s_finished", count));
    QVERIFY(bench.recorder.waitFor("s_rawGet", count));
    for (int i = 0; i < count; ++i)
        QVERIFY2(isComplete(bench.path(QString::number(i)), m_content.small),
                 qPrintable(QString::number(i)));
    QCOMPARE(m_content.logged("/small.bin", before, count).size(), count);
    QCOMPARE(bench.recorder.count("s_errorChanged"), 0);
}

void tst_NginxDownloads::abortsAndResumes()
{
    FetchBench bench;
    bench.ask(m_server.httpsPort());
    const int before = m_server.accessLog("/big.bin").size();
    const QString temporary = bench.path("big.vtxdownload");
    const QUrl slow = m_server.httpsUrl("/big.bin?rate=2m");
    bench.client.fetchBinary(slow, bench.path("big"), quint64(m_content.big.size()));
    QTRY_VERIFY(QFileInfo(temporary).size() > 0);
    bench.client.abortDownload(slow.path());
    QCOMPARE(bench.recorder.of("s_aborted"), (QList<QVariantList>{{slow.toString()}}));
    const qint64 loaded = QFileInfo(temporary).size();
    QVERIFY(loaded > 0 && loaded < m_content.big.size());
    QVERIFY(isComplete(temporary, m_content.big.left(int(loaded))));

    bench.client.fetchBinary("/big.bin", bench.path("big"), quint64(m_content.big.size()));
    QVERIFY(bench.recorder.waitFor("s_finished", 1, 60000));
    QVERIFY(isComplete(bench.path("big"), m_content.big));
    QVERIFY(!QFileInfo::exists(temporary));
    QCOMPARE(bench.recorder.count("s_errorChanged"), 0);

    const QList<NginxLogEntry> seen = m_content.logged("/big.bin", before, 2);
    QCOMPARE(seen.size(), 2);
    QCOMPARE(seen.at(1).status, 206);
    QCOMPARE(seen.at(1).range, "bytes=" + QByteArray::number(loaded) + '-');
    QCOMPARE(seen.at(1).sent, m_content.big.size() - loaded);
}

QTEST_GUILESS_MAIN(tst_NginxDownloads)

#include "tst_nginx_downloads.moc"
