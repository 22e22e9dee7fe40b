#include "answers.h"
#include "fetchbench.h"
#include "files.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtNetwork/QNetworkCookieJar>
#include <QtTest/QTest>

namespace {

constexpr char openFailedText[] = "<TarvisNet::saveBinary> Error opening file to write!";

} // namespace

/// The files of a download while it goes on, and at its end.
class tst_TarvisNetFilesDownloads : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void growsPieceByPiece();
    void reportsEveryPieceThatCannotBeWritten();
    void writesWithTheNextPiece();
    void leavesSurplusUnread();
    void writesNothingOfUnknownSize();
    void addsNothingToACompleteFile_data();
    void addsNothingToACompleteFile();
    void continuesAPartialFile();
    void warnsWhenThereIsNothingToRead();
    void savesNothingOfAFailure_data();
    void savesNothingOfAFailure();
    void savesEverySuccess_data();
    void savesEverySuccess();
    void findsADestinationAtItsEnd_data();
    void findsADestinationAtItsEnd();
    void keepsWhatCannotBeCopied();

private:
    /// Answers "/tool" with \a status and a body of \a length bytes, of which nothing is sent yet.
    void begin(qint64 length, int status = 200);
    void fetch(qulonglong size);
    QString destination() const { return m_bench->path("saved/tool"); }
    QString temporary() const { return m_bench->path("tool.vtxdownload"); }
    QString url() const { return m_server->url("/tool").toString(); }

    QScopedPointer<ScriptedServer> m_server;
    QScopedPointer<FetchBench> m_bench;
    HttpResponse m_response;
};

void tst_TarvisNetFilesDownloads::init()
{
    m_server.reset(new ScriptedServer);
    m_bench.reset(new FetchBench);
    QDir(m_bench->path()).mkpath("saved");
}

// What does not concern this request must not be reported for another.
void tst_TarvisNetFilesDownloads::cleanup()
{
    const QList<QVariantList> errors = m_bench->recorder.of("s_errorChanged");
    for (const QVariantList &error : errors)
        QCOMPARE(error.at(1).toString(), url());
    QCOMPARE(m_bench->log.originFault("../../source/appl/tarvisnet"), QString());
    m_bench.reset();
    m_server.reset();
}

void tst_TarvisNetFilesDownloads::begin(qint64 length, int status)
{
    m_server->on("/tool", [=](const HttpRequest &, HttpResponse &response) {
        response.sendHead(status, {}, length);
        m_response = response;
    });
}

void tst_TarvisNetFilesDownloads::fetch(qulonglong size)
{
    m_bench->client.fetchBinary(m_server->url("/tool"), destination(), size);
}

void tst_TarvisNetFilesDownloads::growsPieceByPiece()
{
    begin(HttpResponse::UntilClose);
    fetch(9);
    QVERIFY(m_server->waitForRequests(1));
    QByteArray written;
    for (const char *piece : {"abc", "de", "f", "ghi"}) {
        QVERIFY(!QFileInfo::exists(destination()));
        m_response.write(piece);
        written += piece;
        QTRY_COMPARE(files::read(temporary()), written);
    }
    m_response.finish();
    QVERIFY(m_bench->recorder.waitFor("s_finished"));
    QCOMPARE(files::read(destination()), written);
    QVERIFY(!QFileInfo::exists(temporary()));
    QCOMPARE(m_bench->errors(), QList<int>());
    QCOMPARE(m_bench->log.texts(QtWarningMsg), QStringList());
}

// The download goes on, and each piece is tried anew.
void tst_TarvisNetFilesDownloads::reportsEveryPieceThatCannotBeWritten()
{
    m_bench->client.setTemporaryDirectory(m_bench->path("missing"));
    begin(9);
    fetch(9);
    QVERIFY(m_server->waitForRequests(1));
    for (int i = 1; i <= 3; ++i) {
        m_response.write("abc");
        QVERIFY(m_bench->recorder.waitFor("s_errorChanged", i));
        QCOMPARE(m_bench->log.count(QtWarningMsg, openFailedText), i);
    }
    const QVariantList error = m_bench->recorder.last("s_errorChanged");
    QVERIFY(error.at(2).toJsonDocument().isNull());
    m_response.finish();
    QVERIFY(m_bench->recorder.waitFor("s_errorChanged", 4));
    const int failed = errorcodes::file_open_failed;
    QCOMPARE(m_bench->errors(),
             (QList<int>{failed, failed, failed, errorcodes::file_not_completed}));
    QCOMPARE(m_bench->log.count(QtWarningMsg, "Temp file not exist"), 1);
    QVERIFY(!QFileInfo::exists(destination()));
    QVERIFY(!QFileInfo::exists(m_bench->path("missing")));
    QCOMPARE(m_bench->recorder.count("s_finished"), 0);
}

void tst_TarvisNetFilesDownloads::writesWithTheNextPiece()
{
    m_bench->client.setTemporaryDirectory(m_bench->path("late"));
    begin(6);
    fetch(6);
    QVERIFY(m_server->waitForRequests(1));
    m_response.write("abc");
    QVERIFY(m_bench->recorder.waitFor("s_errorChanged"));
    QDir(m_bench->path()).mkpath("late");
    m_response.write("def");
    m_response.finish();
    QVERIFY(m_bench->recorder.waitFor("s_finished"));
    QCOMPARE(m_bench->errors(), QList<int>{errorcodes::file_open_failed});
    QCOMPARE(files::read(destination()), QByteArray("abcdef"));
}

void tst_TarvisNetFilesDownloads::leavesSurplusUnread()
{
    begin(12);
    fetch(6);
    QVERIFY(m_server->waitForRequests(1));
    m_response.write("abcdef");
    QTRY_COMPARE(files::read(temporary()), QByteArray("abcdef"));
    m_response.write("ghijkl");
    m_response.finish();
    QVERIFY(m_bench->recorder.waitFor("s_finished"));
    QCOMPARE(files::read(destination()), QByteArray("abcdef"));
    QCOMPARE(m_bench->log.texts(QtWarningMsg), QStringList());
}

void tst_TarvisNetFilesDownloads::writesNothingOfUnknownSize()
{
    begin(HttpResponse::UntilClose);
    fetch(0);
    QVERIFY(m_server->waitForRequests(1));
    m_response.write("abcdef");
    QTRY_VERIFY(QFileInfo::exists(temporary()));
    QCOMPARE(QFileInfo(temporary()).size(), qint64(0));
    m_response.finish();
    QVERIFY(m_bench->recorder.waitFor("s_finished"));
    QVERIFY(QFileInfo::exists(destination()));
    QCOMPARE(QFileInfo(destination()).size(), qint64(0));
    QVERIFY(!QFileInfo::exists(temporary()));
    QCOMPARE(m_bench->errors(), QList<int>());
}

void tst_TarvisNetFilesDownloads::addsNothingToACompleteFile_data()
{
    QTest::addColumn<QByteArray>("present");
    QTest::newRow("complete") << QByteArray("uvwxyz");
    QTest::newRow("too large") << QByteArray("uvwxyz and more");
}

void tst_TarvisNetFilesDownloads::addsNothingToACompleteFile()
{
    QFETCH(QByteArray, present);
    files::write(temporary(), present);
    m_server->on("/tool", answers::file("abcdef"));
    fetch(6);
    QVERIFY(m_bench->recorder.waitFor("s_finished"));
    QVERIFY(!m_server->requests("/tool").first().headers.contains("range"));
    QCOMPARE(files::read(destination()), present);
    QVERIFY(!QFileInfo::exists(temporary()));
    QCOMPARE(m_bench->log.texts(QtWarningMsg), QStringList());
}

void tst_TarvisNetFilesDownloads::continuesAPartialFile()
{
    files::write(temporary(), "ab");
    m_server->on("/tool", answers::file("abcdef"));
    fetch(6);
    QVERIFY(m_bench->recorder.waitFor("s_finished"));
    QCOMPARE(m_server->requests("/tool").first().header("range"), QByteArray("bytes=2-"));
    QCOMPARE(files::read(destination()), QByteArray("abcdef"));
    QVERIFY(!QFileInfo::exists(temporary()));
}

void tst_TarvisNetFilesDownloads::warnsWhenThereIsNothingToRead()
{
    // The jar of the network manager belongs to it, and so do the replies.
    QObject *const manager = m_bench->client.getCoockies()->parent();
    begin(6);
    fetch(6);
    QVERIFY(m_server->waitForRequests(1));
    m_response.write("abc");
    QTRY_COMPARE(files::read(temporary()), QByteArray("abc"));
    QNetworkReply *reply = nullptr;
    const auto replies = manager->findChildren<QNetworkReply *>();
    for (QNetworkReply *candidate : replies) {
        if (candidate->url() == m_server->url("/tool"))
            reply = candidate;
    }
    QVERIFY(reply);
    m_bench->log.clear();
    QMetaObject::invokeMethod(&m_bench->client, "saveBinary", Qt::DirectConnection,
                              Q_ARG(QNetworkReply *, reply));
    QCOMPARE(m_bench->log.texts(), QStringList{"No bytes available!"});
    QCOMPARE(m_bench->log.texts(QtWarningMsg), QStringList{"No bytes available!"});
    QCOMPARE(files::read(temporary()), QByteArray("abc"));
    QCOMPARE(m_bench->errors(), QList<int>());
    m_response.write("def");
    m_response.finish();
    QVERIFY(m_bench->recorder.waitFor("s_finished"));
    QCOMPARE(files::read(destination()), QByteArray("abcdef"));
}

void tst_TarvisNetFilesDownloads::savesNothingOfAFailure_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("code");
    QTest::addColumn<QByteArray>("present");
    const QVector<QPair<int, int>> codes = {
        {400, errorcodes::protocol_invalid_operation},
        {403, errorcodes::network_error},
        {404, errorcodes::content_not_found},
        {416, errorcodes::network_error},
        {500, errorcodes::network_error},
    };
    for (const auto &row : codes) {
        QTest::addRow("%d, fresh", row.first) << row.first << row.second << QByteArray();
        QTest::addRow("%d, resumed", row.first) << row.first << row.second << QByteArray("ab");
    }
}

void tst_TarvisNetFilesDownloads::savesNothingOfAFailure()
{
    QFETCH(int, status);
    QFETCH(int, code);
    QFETCH(QByteArray, present);
    if (!present.isNull())
        files::write(temporary(), present);
    m_server->on("/tool", answers::bytes("refused", status));
    fetch(6);
    QVERIFY(m_bench->recorder.waitFor("s_errorChanged"));
    QCOMPARE(m_bench->errors(), QList<int>{code});
    QCOMPARE(QFileInfo::exists(temporary()), !present.isNull());
    QCOMPARE(files::read(temporary()), present);
    QVERIFY(!QFileInfo::exists(destination()));
    QCOMPARE(m_bench->recorder.count("s_finished"), 0);
}

void tst_TarvisNetFilesDownloads::savesEverySuccess_data()
{
    QTest::addColumn<int>("status");
    for (const int status : {200, 201, 206, 299})
        QTest::addRow("%d", status) << status;
}

void tst_TarvisNetFilesDownloads::savesEverySuccess()
{
    QFETCH(int, status);
    m_server->on("/tool", answers::bytes("abcdef", status));
    fetch(6);
    QVERIFY(m_bench->recorder.waitFor("s_finished"));
    QCOMPARE(files::read(destination()), QByteArray("abcdef"));
}

void tst_TarvisNetFilesDownloads::findsADestinationAtItsEnd_data()
{
    QTest::addColumn<QByteArray>("present");
    QTest::addColumn<bool>("isTaken");
    QTest::newRow("complete") << QByteArray("uvwxyz") << true;
    QTest::newRow("another size") << QByteArray("old") << false;
    QTest::newRow("empty") << QByteArray("") << false;
}

void tst_TarvisNetFilesDownloads::findsADestinationAtItsEnd()
{
    QFETCH(QByteArray, present);
    QFETCH(bool, isTaken);
    begin(6);
    fetch(6);
    QVERIFY(m_server->waitForRequests(1));
    files::write(destination(), present);
    m_response.write("abcdef");
    m_response.finish();
    QVERIFY(m_bench->recorder.waitFor(isTaken ? "s_finished" : "s_errorChanged"));
    QCOMPARE(m_bench->errors(),
             isTaken ? QList<int>() : QList<int>{errorcodes::file_not_completed});
    QCOMPARE(m_bench->recorder.count("s_finished"), isTaken ? 1 : 0);
    QCOMPARE(files::read(destination()), isTaken ? present : QByteArray());
    QCOMPARE(QFileInfo::exists(destination()), isTaken);
    QVERIFY(!QFileInfo::exists(temporary()));
}

// What is here already need not be fetched again once there is a place for it.
void tst_TarvisNetFilesDownloads::keepsWhatCannotBeCopied()
{
    QDir(m_bench->path()).rmdir("saved");
    m_server->on("/tool", answers::file("abcdef"));
    fetch(6);
    QVERIFY(m_bench->recorder.waitFor("s_errorChanged"));
    QCOMPARE(m_bench->errors(), QList<int>{errorcodes::file_not_completed});
    QVERIFY(m_bench->log.containsPart(QtWarningMsg, "Error: 14  text: "));
    QCOMPARE(files::read(temporary()), QByteArray("abcdef"));

    QDir(m_bench->path()).mkpath("saved");
    fetch(6);
    QVERIFY(m_bench->recorder.waitFor("s_finished"));
    QCOMPARE(files::read(destination()), QByteArray("abcdef"));
    QVERIFY(!QFileInfo::exists(temporary()));
}

QTEST_GUILESS_MAIN(tst_TarvisNetFilesDownloads)

#include "tst_tarvisnet_files_downloads.moc"
