#include "faultrows.h"
#include "smalldisk.h"
#include "strictbench.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFileInfo>
#include <QtTest/QTest>

#include <functional>

using faultrows::Mode;

namespace {

constexpr qint64 KiB = 1024;
constexpr qint64 room = 64 * KiB;
constexpr qint64 total = 192 * KiB;
const QByteArray content = "abcdef";
const QByteArray old = "old";

/// A download, the place where it grows and the place where it goes.
struct Place : StrictBench {
    Place(Mode mode, bool isSmall)
        : StrictBench(mode)
        , disk(isSmall ? room : 4 * total)
    {
    }

    void growOnDisk() { client->setTemporaryDirectory(disk.path(".")); }
    void saveOnDisk() { destination = disk.path("file"); }
    bool fetch(const QByteArray &kind, qulonglong size)
    {
        return run(requestkinds::of(kind), size, server.url("/fault"));
    }

    SmallDisk disk;
};

/// What is in the way of a download.
struct Obstacle {
    QByteArray name;
    std::function<void(Place &)> prepare;
    Code code = 0;
    /// What the destination is in the end; null when it is no file.
    QByteArray destination = QByteArray();
    /// Whether the server is asked at all.
    bool isAsked = true;
};

QList<Obstacle> obstacles()
{
    const auto present = [](const QByteArray &bytes) {
        return [bytes](Place &place) { files::write(place.destination, bytes); };
    };
    return {
        {"nothing", [](Place &) {}, 0, content},
        {"destination of the size", present("uvwxyz"), 0, content},
        {"destination of another size", present(old), 0, content},
        {"destination is a link to nowhere",
         [](Place &place) { QFile::link("nowhere/file", place.destination); }, 0, content},
        {"destination is a directory", [](Place &place) { QDir().mkpath(place.destination); },
         -225},
        {"directory of the destination is missing",
         [](Place &place) { place.destination = place.path("missing/file"); }, -225},
        {"disk of the destination is read-only",
         [](Place &place) {
             place.saveOnDisk();
             files::write(place.destination, old);
             place.disk.protect();
         },
         -225, old},
        {"temporary directory is missing",
         [](Place &place) { place.client->setTemporaryDirectory(place.path("missing")); }, -225,
         QByteArray(), false},
        {"temporary directory is a file",
         [](Place &place) {
             files::write(place.path("taken"), old);
             place.client->setTemporaryDirectory(place.path("taken"));
         },
         -225, QByteArray(), false},
        {"disk of the temporary file is read-only",
         [](Place &place) {
             place.growOnDisk();
             place.disk.protect();
         },
         -225, QByteArray(), false},
    };
}

} // namespace

Q_DECLARE_METATYPE(Obstacle)

/// What is wrong with the disk of a strict client.
class tst_FaultsStrictFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void finds_data();
    void finds();
    void hasNoRoom_data() { faultrows::addModes(); }
    void hasNoRoom();
    void fillsUp_data() { faultrows::addModes(); }
    void fillsUp();
};

void tst_FaultsStrictFiles::finds_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<Obstacle>("obstacle");
    for (const Obstacle &obstacle : obstacles())
        faultrows::addInBothModes(obstacle);
}

void tst_FaultsStrictFiles::finds()
{
    QFETCH(Mode, mode);
    QFETCH(Obstacle, obstacle);

    for (const char *kind : {"remoteBinary", "remoteInstaller"}) {
        Place place(mode, false);
        obstacle.prepare(place);
        place.server.on("/fault", answers::file(content));
        QVERIFY(place.fetch(kind, qulonglong(content.size())));
        QCOMPARE(place.code(), obstacle.code);
        QCOMPARE(!place.server.requests("/fault").isEmpty(), obstacle.isAsked);
        QCOMPARE(files::read(place.destination), obstacle.destination);
        QVERIFY(!QFileInfo(place.destination).isSymLink());
    }
}

// Known before anything is sent.
void tst_FaultsStrictFiles::hasNoRoom()
{
    QFETCH(Mode, mode);

    for (const bool isTemporary : {true, false}) {
        Place place(mode, true);
        if (isTemporary)
            place.growOnDisk();
        else
            place.saveOnDisk();
        files::write(place.destination, old);
        place.server.on("/fault", answers::generatedFile(total));
        QVERIFY(place.fetch("remoteBinary", total));
        QCOMPARE(place.code(), -225);
        QCOMPARE(place.server.requests("/fault").size(), 0);
        QCOMPARE(files::read(place.destination), old);
    }
}

// Nobody knew the size. What is on the disk is a clean beginning, and is gone on from.
void tst_FaultsStrictFiles::fillsUp()
{
    QFETCH(Mode, mode);

    Place place(mode, true);
    place.growOnDisk();
    files::write(place.destination, old);
    place.server.on("/fault", [](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {{"ETag", "\"v1\""}}, HttpResponse::Chunked);
        response.writeGenerated(total);
        response.finish();
    });
    QVERIFY(place.fetch("remoteBinary", 0));
    QCOMPARE(place.code(), -225);
    QCOMPARE(files::read(place.destination), old);
    const QStringList names = QDir(place.disk.path(".")).entryList({"*.vtxdownload"}, QDir::Files);
    QCOMPARE(names.size(), 1);
    const QByteArray kept = files::read(place.disk.path(names.first()));
    QVERIFY(!kept.isEmpty());
    QVERIFY(kept == HttpResponse::generated(0, kept.size()));

    place.disk.resize(4 * total);
    place.server.clear();
    place.server.on("/fault", answers::generatedFile(total));
    QVERIFY(place.fetch("remoteBinary", 0));
    QCOMPARE(place.code(), 0);
    QCOMPARE(place.server.requests("/fault").first().header("range"),
             "bytes=" + QByteArray::number(kept.size()) + '-');
    QVERIFY(files::read(place.destination) == HttpResponse::generated(0, total));
}

int main(int argc, char *argv[])
{
    SmallDisk::prepare();
    QCoreApplication application(argc, argv);
    tst_FaultsStrictFiles test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_faults_strictfiles.moc"
