#include "files.h"
#include "logcapture.h"
#include "smalldisk.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtTest/QTest>

#include <functional>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qint64 KiB = 1024;
const QByteArray content = "content";
const QString copyFailed = "Error: 14  text: ";
const QString removeFailed = "Unable to remove temporary download file";

struct stat about(const QString &path)
{
    struct stat file = {};
    lstat(QFile::encodeName(path).constData(), &file);
    return file;
}

/// Where one download ends: everything on a small disk, the temporary file in a folder of its own.
struct Place {
    Place()
        : disk(256 * KiB)
        , temporary(disk.path("temporary/file.vtxdownload"))
        , destination(disk.path("file"))
    {
        files::write(temporary, content);
    }

    QString folder() const { return disk.path("temporary"); }
    /// Puts the temporary file in place; what the client logs is in log.
    bool finish()
    {
        log.clear();
        FileData file;
        file.filePath = destination;
        file.tempFilePath = temporary;
        return client.renameTemporaryFile(file);
    }

    SmallDisk disk;
    SmallDisk other{256 * KiB};
    QString temporary;
    QString destination;
    LogCapture log;
    TarvisNet client;
};

using Change = std::function<void(Place &)>;

/// What becomes of the temporary file.
enum class Way {
    Moved,
    Copied,
    CopiedAndLeft,
    Failed,
};

} // namespace

Q_DECLARE_METATYPE(Change)
Q_DECLARE_METATYPE(Way)

/// How a finished temporary file becomes the destination: moved where that cannot be told from a
/// copy, and copied everywhere else.
class tst_FaultsFinishing : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void ways_data();
    void ways();
    void linkIsCopied();
    void permissionsAreThoseOfACopy_data();
    void permissionsAreThoseOfACopy();
    void isAsOldAsACopy();
    void otherNameKeepsItsFile();
};

void tst_FaultsFinishing::ways_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<Way>("way");
    const auto row = [](const char *name, Way way, const Change &change) {
        QTest::newRow(name) << change << way;
    };
    row("one disk", Way::Moved, [](Place &) {});
    row("empty file", Way::Moved, [](Place &place) { files::write(place.temporary, ""); });
    row("folder that gives its group", Way::Moved, [](Place &place) {
        QVERIFY(chmod(QFile::encodeName(place.disk.path(".")).constData(), 02755) == 0);
    });
    row("another disk", Way::Copied,
        [](Place &place) { place.destination = place.other.path("file"); });
    row("two names", Way::Copied, [](Place &place) {
        QVERIFY(link(QFile::encodeName(place.temporary).constData(),
                     QFile::encodeName(place.disk.path("second")).constData())
                == 0);
    });
    row("bits that a copy loses", Way::Copied, [](Place &place) {
        QVERIFY(chmod(QFile::encodeName(place.temporary).constData(), 04755) == 0);
    });
    row("read-only folder of the temporary file", Way::CopiedAndLeft,
        [](Place &place) { SmallDisk::protectFolder(place.folder()); });
    row("destination that leads nowhere", Way::Failed,
        [](Place &place) { QVERIFY(QFile::link(place.disk.path("no/where"), place.destination)); });
    row("no folder for the destination", Way::Failed,
        [](Place &place) { place.destination = place.disk.path("no/file"); });
    // A copy has no room, and so the download does not count as finished.
    row("no room for a copy", Way::Failed,
        [](Place &place) { files::write(place.temporary, QByteArray(160 * KiB, 'x')); });
}

void tst_FaultsFinishing::ways()
{
    QFETCH(const Change, change);
    QFETCH(const Way, way);

    Place place;
    change(place);
    const QByteArray expected = files::read(place.temporary);
    const ino_t before = about(place.temporary).st_ino;
    const mode_t permissions = about(place.temporary).st_mode & 0777;
    QCOMPARE(place.finish(), way != Way::Failed);

    QCOMPARE(QFileInfo::exists(place.temporary), way == Way::CopiedAndLeft || way == Way::Failed);
    QCOMPARE(QFileInfo::exists(place.destination), way != Way::Failed);
    if (way == Way::Failed) {
        QCOMPARE(place.log.texts().size(), 1);
        QVERIFY2(place.log.texts().first().startsWith(copyFailed),
                 qPrintable(place.log.texts().first()));
        QCOMPARE(files::read(place.temporary), expected);
        return;
    }
    QCOMPARE(place.log.texts(),
             way == Way::CopiedAndLeft ? QStringList(removeFailed) : QStringList());
    QCOMPARE(files::read(place.destination), expected);
    const struct stat after = about(place.destination);
    QCOMPARE(after.st_ino == before, way == Way::Moved);
    QCOMPARE(after.st_mode & 07777, permissions);
}

void tst_FaultsFinishing::linkIsCopied()
{
    Place place;
    const QString target = place.disk.path("target");
    QVERIFY(QFile::rename(place.temporary, target));
    QVERIFY(QFile::link(target, place.temporary));
    QVERIFY(place.finish());
    QVERIFY(S_ISREG(about(place.destination).st_mode));
    QCOMPARE(files::read(place.destination), content);
    QCOMPARE(files::read(target), content);
    QVERIFY(!QFileInfo(place.temporary).isSymLink());
    QCOMPARE(place.log.texts(), QStringList());
}

void tst_FaultsFinishing::permissionsAreThoseOfACopy_data()
{
    QTest::addColumn<int>("mode");
    for (const int mode : {0600, 0640, 0644, 0666, 0755})
        QTest::addRow("%o", unsigned(mode)) << mode;
}

void tst_FaultsFinishing::permissionsAreThoseOfACopy()
{
    QFETCH(const int, mode);
    Place place;
    for (const QString &destination : {place.disk.path("moved"), place.other.path("copied")}) {
        files::write(place.temporary, content);
        QVERIFY(chmod(QFile::encodeName(place.temporary).constData(), mode_t(mode)) == 0);
        place.destination = destination;
        QVERIFY(place.finish());
        const struct stat after = about(destination);
        QCOMPARE(int(after.st_mode & 07777), mode);
        QCOMPARE(after.st_uid, geteuid());
        QCOMPARE(after.st_gid, getegid());
        QCOMPARE(after.st_nlink, nlink_t(1));
    }
}

// An old temporary file that was only waiting to be put in place makes no old destination.
void tst_FaultsFinishing::isAsOldAsACopy()
{
    Place place;
    {
        QFile temporary(place.temporary);
        QVERIFY(temporary.open(QIODevice::ReadWrite));
        QVERIFY(temporary.setFileTime(QDateTime::currentDateTime().addYears(-1),
                                      QFileDevice::FileModificationTime));
    }
    QVERIFY(place.finish());
    QVERIFY(QFileInfo(place.destination).lastModified()
            > QDateTime::currentDateTime().addMonths(-1));
}

void tst_FaultsFinishing::otherNameKeepsItsFile()
{
    Place place;
    const QString second = place.disk.path("second");
    QVERIFY(
        link(QFile::encodeName(place.temporary).constData(), QFile::encodeName(second).constData())
        == 0);
    QVERIFY(place.finish());
    files::write(second, "changed");
    QCOMPARE(files::read(place.destination), content);
}

int main(int argc, char *argv[])
{
    SmallDisk::prepare();
    QCoreApplication application(argc, argv);
    tst_FaultsFinishing test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_faults_finishing.moc"
