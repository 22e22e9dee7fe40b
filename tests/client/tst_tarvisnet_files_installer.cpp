#include "fakereply.h"
#include "fetchbench.h"
#include "files.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace {

constexpr int missing = -1;

void invoke(TarvisNet &client, const char *slot)
{
    QVERIFY(QMetaObject::invokeMethod(&client, slot, Qt::DirectConnection));
}

void saveInstaller(TarvisNet &client, QNetworkReply *reply)
{
    QVERIFY(QMetaObject::invokeMethod(&client, "saveInstaller", Qt::DirectConnection,
                                      Q_ARG(QNetworkReply *, reply)));
}

/// The Range value that the next installer fetch would send; null when there is none. It tells how
/// much of the installer the client believes to be there.
QByteArray nextRange(FetchBench &bench)
{
    bench.log.clear();
    bench.hold();
    bench.client.fetchInstaller(QUrl("https://example.test/setup"));
    const QStringList lines = bench.log.texts(QtDebugMsg);
    return lines.isEmpty() ? QByteArray() : lines.last().section('"', 1, 1).toUtf8();
}

} // namespace

/// The two slots that look after the installer's file.
class tst_TarvisNetFilesInstaller : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void saves_data();
    void saves();
    void savesPieceByPiece();
    void savesSilentlyWithoutName();
    void cannotOpen();
    void survivesANullReply();

    void notesWhatIsThere_data();
    void notesWhatIsThere();
    void notesNothing_data();
    void notesNothing();
    void notesAgain();
    void runsAfterBothSetters();
};

void tst_TarvisNetFilesInstaller::saves_data()
{
    QTest::addColumn<QByteArray>("present");
    QTest::addColumn<QByteArray>("arrived");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<QByteArray>("afterwards");
    QTest::addColumn<int>("unread");
    QTest::newRow("fresh") << QByteArray() << QByteArray("abc") << quint64(6) << QByteArray("abc")
                           << 0;
    QTest::newRow("appended") << QByteArray("abc") << QByteArray("def") << quint64(6)
                              << QByteArray("abcdef") << 0;
    QTest::newRow("beyond its size")
        << QByteArray("abc") << QByteArray("defghi") << quint64(4) << QByteArray("abcdefghi") << 0;
    QTest::newRow("complete") << QByteArray("abc") << QByteArray("def") << quint64(3)
                              << QByteArray("abc") << 3;
    QTest::newRow("too large") << QByteArray("abc") << QByteArray("def") << quint64(2)
                               << QByteArray("abc") << 3;
    QTest::newRow("size unknown") << QByteArray() << QByteArray("abc") << quint64(0)
                                  << QByteArray("") << 3;
    QTest::newRow("nothing arrived")
        << QByteArray("abc") << QByteArray() << quint64(6) << QByteArray("abc") << 0;
    QTest::newRow("nothing arrived yet")
        << QByteArray() << QByteArray() << quint64(6) << QByteArray("") << 0;
    // As a signed number it is negative, and no file is smaller.
    QTest::newRow("size beyond signed numbers")
        << QByteArray("abc") << QByteArray("def") << ~quint64(0) << QByteArray("abc") << 3;
}

void tst_TarvisNetFilesInstaller::saves()
{
    QFETCH(QByteArray, present);
    QFETCH(QByteArray, arrived);
    QFETCH(quint64, size);
    QFETCH(QByteArray, afterwards);
    QFETCH(int, unread);

    FetchBench bench;
    const QString path = bench.path("setup");
    if (!present.isNull())
        files::write(path, present);
    bench.client.setInstallerFileName(path);
    bench.client.setInstallerFileSize(size);
    bench.recorder.clear();
    bench.log.clear();
    FakeReply reply(QUrl("http://127.0.0.1/setup"));
    reply.setStatus(200);
    reply.appendBody(arrived);
    saveInstaller(bench.client, &reply);

    QVERIFY(QFileInfo::exists(path));
    QCOMPARE(files::read(path), afterwards);
    QVERIFY(!QFileInfo::exists(path + ".vtxdownload"));
    QCOMPARE(reply.bytesAvailable(), qint64(unread));
    QCOMPARE(bench.log.texts(), QStringList());
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_TarvisNetFilesInstaller::savesPieceByPiece()
{
    FetchBench bench;
    bench.client.setInstallerFileName(bench.path("setup"));
    bench.client.setInstallerFileSize(6);
    FakeReply reply(QUrl("http://127.0.0.1/setup"));
    for (const char *piece : {"ab", "cd", "ef", "gh"}) {
        reply.appendBody(piece);
        saveInstaller(bench.client, &reply);
    }
    QCOMPARE(files::read(bench.path("setup")), QByteArray("abcdef"));
    QCOMPARE(reply.readAll(), QByteArray("gh"));
}

void tst_TarvisNetFilesInstaller::savesSilentlyWithoutName()
{
    FetchBench bench;
    bench.client.setInstallerFileSize(6);
    bench.recorder.clear();
    bench.log.clear();
    FakeReply reply(QUrl("http://127.0.0.1/setup"));
    reply.appendBody("abc");
    saveInstaller(bench.client, &reply);
    QCOMPARE(reply.bytesAvailable(), qint64(3));
    QCOMPARE(bench.log.texts(), QStringList());
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_TarvisNetFilesInstaller::cannotOpen()
{
    FetchBench bench;
    const QString directory = bench.path("missing");
    bench.client.setInstallerFileName(directory + "/setup");
    bench.client.setInstallerFileSize(6);
    bench.recorder.clear();
    bench.log.clear();
    FakeReply reply(QUrl("http://127.0.0.1/set%20up"));
    reply.appendBody("abc");
    for (int i = 1; i <= 2; ++i) {
        saveInstaller(bench.client, &reply);
        QCOMPARE(bench.log.count(QtWarningMsg,
                                 "<TarvisNet::saveInstaller> Error opening file to write."),
                 i);
        QCOMPARE(bench.recorder.count("s_errorChanged"), i);
    }
    QCOMPARE(bench.log.texts().size(), 2);
    QCOMPARE(bench.recorder.names().size(), 2);
    const QVariantList error = bench.recorder.last("s_errorChanged");
    QCOMPARE(error.at(0).toInt(), int(errorcodes::file_open_failed));
    QCOMPARE(error.at(1).toString(), reply.url().toString());
    QVERIFY(error.at(2).toJsonDocument().isNull());
    QCOMPARE(reply.bytesAvailable(), qint64(3));
    QVERIFY(!QFileInfo::exists(directory));
    QCOMPARE(bench.log.entries().first().function,
             QByteArray("void TarvisNet::saveInstaller(QNetworkReply*)"));
    QCOMPARE(bench.log.originFault("../../source/appl/tarvisnet"), QString());
}

void tst_TarvisNetFilesInstaller::survivesANullReply()
{
    FetchBench bench;
    bench.client.setInstallerFileName(bench.path("setup"));
    bench.client.setInstallerFileSize(6);
    saveInstaller(bench.client, nullptr);
    QCOMPARE(bench.errors(), QList<int>());
}

void tst_TarvisNetFilesInstaller::notesWhatIsThere_data()
{
    QTest::addColumn<int>("present");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<QByteArray>("range");
    QTest::newRow("no file") << missing << quint64(1000) << QByteArray();
    QTest::newRow("empty") << 0 << quint64(1000) << QByteArray();
    QTest::newRow("one byte") << 1 << quint64(1000) << QByteArray("bytes=1-");
    QTest::newRow("all but one byte") << 999 << quint64(1000) << QByteArray("bytes=999-");
    QTest::newRow("complete") << 1000 << quint64(1000) << QByteArray();
    QTest::newRow("too large") << 1001 << quint64(1000) << QByteArray();
    QTest::newRow("size unknown") << 400 << quint64(0) << QByteArray();
}

void tst_TarvisNetFilesInstaller::notesWhatIsThere()
{
    QFETCH(int, present);
    QFETCH(quint64, size);
    QFETCH(QByteArray, range);

    FetchBench bench;
    bench.client.setInstallerFileName(bench.path("setup"));
    bench.client.setInstallerFileSize(size);
    if (present != missing)
        files::write(bench.path("setup"), QByteArray(present, 'x'));
    bench.recorder.clear();
    bench.log.clear();
    invoke(bench.client, "changeFileName");
    QCOMPARE(bench.log.texts(), QStringList());
    QCOMPARE(bench.recorder.names(), QStringList());
    QCOMPARE(nextRange(bench), range);
    QCOMPARE(QFileInfo::exists(bench.path("setup")), present != missing);
}

void tst_TarvisNetFilesInstaller::notesNothing_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("no name") << "";
    QTest::newRow("directory") << "directory";
    QTest::newRow("in a missing directory") << "missing/setup";
}

void tst_TarvisNetFilesInstaller::notesNothing()
{
    QFETCH(QString, name);
    FetchBench bench;
    files::write(bench.path("directory/inside"), "content");
    bench.client.setInstallerFileName(name.isEmpty() ? name : bench.path(name));
    bench.client.setInstallerFileSize(1000000);
    bench.log.clear();
    invoke(bench.client, "changeFileName");
    QCOMPARE(bench.log.texts(), QStringList());
    QCOMPARE(nextRange(bench), QByteArray());
}

// What was noted once stays until there is something else to be noted.
void tst_TarvisNetFilesInstaller::notesAgain()
{
    FetchBench bench;
    const QString path = bench.path("setup");
    files::write(path, QByteArray(400, 'x'));
    bench.client.setInstallerFileSize(1000);
    bench.client.setInstallerFileName(path);
    QCOMPARE(nextRange(bench), QByteArray("bytes=400-"));
    files::write(path, QByteArray(700, 'x'));
    invoke(bench.client, "changeFileName");
    QCOMPARE(nextRange(bench), QByteArray("bytes=700-"));
    files::write(path, QByteArray(1000, 'x'));
    invoke(bench.client, "changeFileName");
    QCOMPARE(nextRange(bench), QByteArray("bytes=700-"));
    bench.client.setInstallerFileName(QString());
    QCOMPARE(nextRange(bench), QByteArray("bytes=700-"));
}

void tst_TarvisNetFilesInstaller::runsAfterBothSetters()
{
    FetchBench bench;
    const QString path = bench.path("setup");
    files::write(path, QByteArray(400, 'x'));
    bench.client.setInstallerFileSize(1000);
    QCOMPARE(nextRange(bench), QByteArray());
    bench.client.setInstallerFileName(path);
    QCOMPARE(nextRange(bench), QByteArray("bytes=400-"));
    // Setting the same size again is no change, the same name is.
    files::write(path, QByteArray(500, 'x'));
    bench.client.setInstallerFileSize(1000);
    QCOMPARE(nextRange(bench), QByteArray("bytes=400-"));
    bench.client.setInstallerFileName(path);
    QCOMPARE(nextRange(bench), QByteArray("bytes=500-"));
    files::write(path, QByteArray(600, 'x'));
    bench.client.setInstallerFileSize(2000);
    QCOMPARE(nextRange(bench), QByteArray("bytes=600-"));
}

QTEST_GUILESS_MAIN(tst_TarvisNetFilesInstaller)

#include "tst_tarvisnet_files_installer.moc"
