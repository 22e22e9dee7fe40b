#include "files.h"
#include "temporaryfile_p.h"
#include "testclass.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <functional>

#include <unistd.h>

namespace tst_temporaryfile {

namespace {

/// Makes what is to be refused; false where that is not permitted.
using Prepare = std::function<bool(const QByteArray &path, const QByteArray &target)>;

} // namespace

} // namespace tst_temporaryfile

Q_DECLARE_METATYPE(tst_temporaryfile::Prepare)

namespace tst_temporaryfile {

class tst_TemporaryFile : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void makesAFileForItsOwnerOnly();
    void keepsWhatIsThere();
    void findsWhatIsThere();
    void refuses_data();
    void refuses();
    void isNobodyElses();
    void knowsWhetherItIsInPlace();
    void removesOnlyItself();
    void commitsUntilAbandoned();
};

void tst_TemporaryFile::makesAFileForItsOwnerOnly()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    const QSharedPointer<TemporaryFile> file = TemporaryFile::open(path);
    QVERIFY(file);
    QCOMPARE(file->path(), path);
    QCOMPARE(file->size(), 0);
    // And so is one that was made otherwise.
    const QString other = directory.filePath("other");
    files::write(other, "content");
    QVERIFY(QFile::setPermissions(other, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther));
    QVERIFY(TemporaryFile::open(other));
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup
        | QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
    QVERIFY(!(QFileInfo(path).permissions() & others));
    QVERIFY(!(QFileInfo(other).permissions() & others));
}

void tst_TemporaryFile::keepsWhatIsThere()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    files::write(path, "content");
    const QSharedPointer<TemporaryFile> file = TemporaryFile::open(path);
    QCOMPARE(file->size(), 7);
    QCOMPARE(file->read(0, 100), QByteArray("content"));
    QCOMPARE(file->read(4, 2), QByteArray("en"));
    QCOMPARE(file->read(7, 2), QByteArray());
    QCOMPARE(file->write(7, "s"), 1);
    QVERIFY(file->truncate(4));
    QCOMPARE(file->write(4, "!"), 1);
    QCOMPARE(files::read(path), QByteArray("cont!"));
}

void tst_TemporaryFile::findsWhatIsThere()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    QVERIFY(!TemporaryFile::find(path));
    QVERIFY(!QFileInfo::exists(path));
    files::write(path, "content");
    const QSharedPointer<TemporaryFile> file = TemporaryFile::find(path);
    QVERIFY(file);
    QCOMPARE(file->read(0, 100), QByteArray("content"));
    QVERIFY(!TemporaryFile::find(path));
}

void tst_TemporaryFile::refuses_data()
{
    QTest::addColumn<Prepare>("prepare");
    QTest::addColumn<QString>("name");
    const auto row = [](const char *name, const Prepare &prepare) {
        QTest::newRow(name) << prepare << QString("file");
    };
    row("a folder", [](const QByteArray &path, const QByteArray &) {
        return mkdir(path.constData(), S_IRWXU) == 0;
    });
    row("a named pipe", [](const QByteArray &path, const QByteArray &) {
        return mkfifo(path.constData(), S_IRUSR | S_IWUSR) == 0;
    });
    row("a link", [](const QByteArray &path, const QByteArray &target) {
        return symlink(target.constData(), path.constData()) == 0;
    });
    row("a link that leads nowhere", [](const QByteArray &path, const QByteArray &target) {
        return symlink((target + '2').constData(), path.constData()) == 0;
    });
    row("a file of two names", [](const QByteArray &path, const QByteArray &target) {
        return link(target.constData(), path.constData()) == 0;
    });
    row("somebody else's file", [](const QByteArray &path, const QByteArray &) {
        files::write(QFile::decodeName(path), "content");
        return chown(path.constData(), geteuid() + 1, getegid()) == 0;
    });
    QTest::newRow("a folder that is not there")
        << Prepare([](const QByteArray &, const QByteArray &) { return true; })
        << QString("no/file");
}

void tst_TemporaryFile::refuses()
{
    QFETCH(const Prepare, prepare);
    QFETCH(const QString, name);
    const QTemporaryDir directory;
    const QString path = directory.filePath(name);
    const QString target = directory.filePath("target");
    files::write(target, "target");
    if (!prepare(QFile::encodeName(path), QFile::encodeName(target)))
        QSKIP("needs more rights");
    QVERIFY(!TemporaryFile::open(path));
    QVERIFY(!TemporaryFile::find(path));
    QCOMPARE(files::read(target), QByteArray("target"));
    QVERIFY(!QFileInfo::exists(target + '2'));
}

void tst_TemporaryFile::isNobodyElses()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    QSharedPointer<TemporaryFile> first = TemporaryFile::open(path);
    QVERIFY(!TemporaryFile::open(path));
    first->unlock();
    QSharedPointer<TemporaryFile> second = TemporaryFile::open(path);
    QVERIFY(second);
    second.reset();
    QVERIFY(TemporaryFile::open(path));
}

void tst_TemporaryFile::knowsWhetherItIsInPlace()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    const QSharedPointer<TemporaryFile> file = TemporaryFile::open(path);
    QVERIFY(file->isInPlace());
    QVERIFY(QFile::rename(path, directory.filePath("elsewhere")));
    QVERIFY(!file->isInPlace());
    files::write(path, "another");
    QVERIFY(!file->isInPlace());
}

void tst_TemporaryFile::removesOnlyItself()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    const QSharedPointer<TemporaryFile> file = TemporaryFile::open(path);
    QVERIFY(file->remove());
    QVERIFY(!QFileInfo::exists(path));
    files::write(path, "another");
    QVERIFY(!file->remove());
    QCOMPARE(files::read(path), QByteArray("another"));
}

void tst_TemporaryFile::commitsUntilAbandoned()
{
    const QTemporaryDir directory;
    const QSharedPointer<TemporaryFile> file = TemporaryFile::open(directory.filePath("file"));
    int steps = 0;
    const auto count = [&](bool result) {
        ++steps;
        return result;
    };
    QVERIFY(file->commit([&] { return count(true); }));
    QVERIFY(!file->commit([&] { return count(false); }));
    file->abandon();
    QVERIFY(!file->commit([&] { return count(true); }));
    QCOMPARE(steps, 2);
}

const TestClass<tst_TemporaryFile> testClass("tst_temporaryfile");

} // namespace tst_temporaryfile

#include "tst_temporaryfile.moc"
