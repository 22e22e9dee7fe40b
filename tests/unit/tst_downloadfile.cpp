#include "downloadfile_p.h"
#include "fakereply.h"
#include "files.h"
#include "filesizelimit.h"
#include "testclass.h"

#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <fcntl.h>
#include <unistd.h>

namespace tst_downloadfile {

using Append = DownloadFile::Append;

} // namespace tst_downloadfile

Q_DECLARE_METATYPE(tst_downloadfile::Append)

namespace tst_downloadfile {

class tst_DownloadFile : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void appendAvailable_data();
    void appendAvailable();
    void appendsChunkByChunk();
    void appendMakesTheFile();
    void appendReportsAFileThatCannotBeOpened();
    void dropsTheRestOnceADiskIsFull();
    void movesOnlyToWhereNothingIs();
    void movesNothingThatIsNotThere();
    void movesToAFolderOfAnotherGroup();
    void closesWhatItLooksAt();
    void overwriteStart_data();
    void overwriteStart();
    void overwriteStartReportsAFileThatCannotBeOpened();
};

void tst_DownloadFile::appendAvailable_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<Append>("result");
    QTest::addColumn<QByteArray>("after");
    const QByteArray none;
    const QByteArray old("old");
    const QByteArray bytes("bytes");
    // More than is read and written at a time.
    const QByteArray large = QByteArray("0123456789").repeated(500000);
    QTest::newRow("fresh") << none << bytes << quint64(5) << Append::Written << bytes;
    QTest::newRow("resumed") << old << bytes << quint64(8) << Append::Written << old + bytes;
    QTest::newRow("large") << old << large << quint64(1 << 23) << Append::Written << old + large;
    QTest::newRow("part") << old << bytes << quint64(100) << Append::Written << old + bytes;
    QTest::newRow("surplus in the chunk that completes it")
        << old << bytes << quint64(4) << Append::Written << old + bytes;
    QTest::newRow("complete") << old << bytes << quint64(3) << Append::Complete << old;
    QTest::newRow("too long") << old << bytes << quint64(2) << Append::Complete << old;
    QTest::newRow("unknown size") << none << bytes << quint64(0) << Append::Complete << none;
    QTest::newRow("absurd size") << none << bytes << ~quint64(0) << Append::Written << bytes;
    QTest::newRow("nothing there") << old << none << quint64(8) << Append::NothingAvailable << old;
    QTest::newRow("nothing there for a complete file")
        << old << none << quint64(3) << Append::Complete << old;
}

void tst_DownloadFile::appendAvailable()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, body);
    QFETCH(quint64, size);
    QFETCH(Append, result);
    QFETCH(QByteArray, after);

    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    files::write(path, before);
    FakeReply reply;
    reply.appendBody(body);
    QCOMPARE(DownloadFile(path, size).append(&reply), result);
    QCOMPARE(files::read(path), after);
    QCOMPARE(reply.bytesAvailable(), result == Append::Written ? qint64(0) : qint64(body.size()));
}

void tst_DownloadFile::appendsChunkByChunk()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    DownloadFile file(path, 9);
    FakeReply reply;
    reply.appendBody("one ");
    QCOMPARE(file.append(&reply), Append::Written);
    QCOMPARE(files::read(path), QByteArray("one "));
    reply.appendBody("chunk");
    QCOMPARE(file.append(&reply), Append::Written);
    reply.appendBody("more");
    QCOMPARE(file.append(&reply), Append::Complete);
    QCOMPARE(files::read(path), QByteArray("one chunk"));
}

void tst_DownloadFile::appendMakesTheFile()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    FakeReply reply;
    reply.appendBody("bytes");
    QCOMPARE(DownloadFile(path, 0).append(&reply), Append::Complete);
    QVERIFY(QFileInfo::exists(path));
    QCOMPARE(QFileInfo(path).size(), qint64(0));
}

void tst_DownloadFile::appendReportsAFileThatCannotBeOpened()
{
    const QTemporaryDir directory;
    FakeReply reply;
    reply.appendBody("bytes");
    for (const QString &path : {directory.path(), directory.filePath("no/file")})
        QCOMPARE(DownloadFile(path, 100).append(&reply), Append::OpenFailed);
    QCOMPARE(reply.bytesAvailable(), qint64(5));
}

// Not a byte may follow behind a gap, and none may wait in memory until there is room.
void tst_DownloadFile::dropsTheRestOnceADiskIsFull()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    const QByteArray body = QByteArray("0123456789").repeated(500000);
    DownloadFile file(path, quint64(2 * body.size()));
    FakeReply reply;
    constexpr int room = 2000000;
    {
        const FileSizeLimit limit(room);
        for (int attempt = 0; attempt < 3; ++attempt) {
            reply.appendBody(body);
            QCOMPARE(file.append(&reply), Append::Dropped);
            QCOMPARE(reply.bytesAvailable(), qint64(0));
            QVERIFY(files::read(path) == body.left(room));
        }
    }
    reply.appendBody(body);
    QCOMPARE(file.append(&reply), Append::Dropped);
    QVERIFY(files::read(path) == body.left(room));

    // Another reply goes on with the file.
    FakeReply next;
    next.appendBody(body.mid(room));
    QCOMPARE(DownloadFile(path, quint64(2 * body.size())).append(&next), Append::Written);
    QVERIFY(files::read(path) == body);
}

void tst_DownloadFile::movesOnlyToWhereNothingIs()
{
    const QTemporaryDir directory;
    const QString source = directory.filePath("source");
    const QString destination = directory.filePath("destination");
    files::write(source, "new");
    files::write(destination, "old");
    QVERIFY(!savedfile::moveLikeCopy(source, destination));
    QCOMPARE(files::read(source), QByteArray("new"));
    QCOMPARE(files::read(destination), QByteArray("old"));

    // A name that leads nowhere is taken as well.
    QVERIFY(QFile::remove(destination));
    QVERIFY(QFile::link(directory.filePath("nowhere"), destination));
    QVERIFY(!savedfile::moveLikeCopy(source, destination));
    QCOMPARE(files::read(source), QByteArray("new"));

    QVERIFY(QFile::remove(destination));
    QVERIFY(savedfile::moveLikeCopy(source, destination));
    QVERIFY(!QFileInfo::exists(source));
    QCOMPARE(files::read(destination), QByteArray("new"));
}

void tst_DownloadFile::movesNothingThatIsNotThere()
{
    const QTemporaryDir directory;
    const QString source = directory.filePath("source");
    QVERIFY(!savedfile::moveLikeCopy(source, directory.filePath("destination")));
    QVERIFY(!savedfile::moveLikeCopy(directory.path(), directory.filePath("destination")));
    files::write(source, "new");
    QVERIFY(!savedfile::moveLikeCopy(source, directory.filePath("no/destination")));
    QCOMPARE(files::read(source), QByteArray("new"));
}

// A copy there would have the group of the process, as the file has.
void tst_DownloadFile::movesToAFolderOfAnotherGroup()
{
    const QTemporaryDir directory;
    const QString source = directory.filePath("source");
    files::write(source, "new");
    if (chown(QFile::encodeName(directory.path()).constData(), getuid(), getegid() + 1) != 0)
        QSKIP("may not give a folder to another group");
    QVERIFY(savedfile::moveLikeCopy(source, directory.filePath("destination")));
}

// Also where a program has closed its standard input, and the first number that is free is 0.
void tst_DownloadFile::closesWhatItLooksAt()
{
    const QTemporaryDir directory;
    const QString source = directory.filePath("source");
    files::write(source, "new");
    const int input = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 100);
    close(STDIN_FILENO);
    const bool isMoved = savedfile::moveLikeCopy(source, directory.filePath("destination"));
    const bool isFree = fcntl(STDIN_FILENO, F_GETFD) == -1;
    dup2(input, STDIN_FILENO);
    close(input);
    QVERIFY(isMoved);
    QVERIFY(isFree);
}

void tst_DownloadFile::overwriteStart_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("after");
    QTest::newRow("new file") << QByteArray() << QByteArray("body") << QByteArray("body");
    QTest::newRow("shorter file") << QByteArray("ab") << QByteArray("body") << QByteArray("body");
    QTest::newRow("longer file keeps its tail")
        << QByteArray("abcdefgh") << QByteArray("body") << QByteArray("bodyefgh");
    QTest::newRow("with zeros") << QByteArray("abc") << QByteArray("\0x", 2)
                                << QByteArray("\0xc", 3);
}

void tst_DownloadFile::overwriteStart()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, after);
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    if (!before.isNull())
        files::write(path, before);
    QVERIFY(savedfile::overwriteStart(path, body));
    QCOMPARE(files::read(path), after);
}

void tst_DownloadFile::overwriteStartReportsAFileThatCannotBeOpened()
{
    const QTemporaryDir directory;
    QVERIFY(!savedfile::overwriteStart(directory.path(), "body"));
    QVERIFY(!savedfile::overwriteStart(directory.filePath("no/file"), "body"));
}

const TestClass<tst_DownloadFile> testClass("tst_downloadfile");

} // namespace tst_downloadfile

#include "tst_downloadfile.moc"
