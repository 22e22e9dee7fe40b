#include "checkedbench.h"
#include "testclass.h"

#include <QtCore/QTimer>

#include <algorithm>
#include <functional>

#include <sys/stat.h>
#include <unistd.h>

namespace tst_tarvisnet_destinations {

using namespace clientaccess;

namespace {

constexpr qint64 MiB = qint64(1024) * 1024;
const QByteArray content = "0123456789";
const QByteArray old = "old";
const HttpHeader tag{"ETag", "\"v1\""};
const FileAnswer whole{200, {tag}, content};
const FileAnswer cut{200, {tag}, content.left(3), content.size()};

using Bench = CheckedBench;
using Change = std::function<void(Bench &)>;

struct stat about(const QString &path)
{
    struct stat file = {};
    lstat(QFile::encodeName(path).constData(), &file);
    return file;
}

int permissionsOf(const QString &path)
{
    return int(about(path).st_mode & 07777);
}

TransferPolicy retrying()
{
    TransferPolicy policy = Bench::checkingFiles();
    policy.setFailuresIsolated(true);
    policy.setMaximumRetries(1);
    policy.setRetryDelay(1);
    return policy;
}

/// Calls \a act once the answer is complete and the file is being checked.
void whileChecking(const Bench &bench, const std::function<void()> &act)
{
    QNetworkReply *reply = bench.running().value(0);
    QObject::connect(reply, &QNetworkReply::finished, qApp, act);
}

/// How often the event loop comes round while a file is checked.
class Pulse : public QObject {
public:
    explicit Pulse(const Bench &bench)
    {
        connect(&m_timer, &QTimer::timeout, this, [this] { ++m_count; });
        whileChecking(bench, [this] { m_timer.start(0); });
        connect(bench.client, &TarvisNet::s_finished, this, [this] { m_timer.stop(); });
    }
    int count() const { return m_count; }

private:
    QTimer m_timer;
    int m_count = 0;
};

QString hashOfZeros(qint64 size)
{
    const QByteArray zeros(int(MiB), '\0');
    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (qint64 left = size; left > 0; left -= zeros.size())
        hash.addData(zeros.left(int(std::min<qint64>(left, zeros.size()))));
    return QString::fromLatin1(hash.result().toHex());
}

/// Fetches \a size zeros, of which an earlier download has left all but the last.
void fetchZeros(Bench &bench, qint64 size, const QString &hash)
{
    const QByteArray zero(1, '\0');
    const QByteArray last = QByteArray::number(size - 1);
    const QByteArray range = "bytes " + last + '-' + last + '/' + QByteArray::number(size);
    bench.answer({{200, {tag}, zero, size}});
    bench.fetch(quint64(size), hash);
    QVERIFY(bench.waitForEnds());
    QVERIFY(QFile::resize(bench.temporary(), size - 1));
    bench.forget();
    bench.answer({{206, {{"Content-Range", range}, tag}, zero}});
    bench.fetch(quint64(size), hash);
}

} // namespace

} // namespace tst_tarvisnet_destinations

Q_DECLARE_METATYPE(tst_tarvisnet_destinations::Change)

namespace tst_tarvisnet_destinations {

/// The files of checked downloads: who may write where, what is replaced, and when.
class tst_TarvisNetDestinations : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void needsADestination_data();
    void needsADestination();
    void refusesADestinationThatIsTaken_data();
    void refusesADestinationThatIsTaken();
    void takesADestinationAgain_data();
    void takesADestinationAgain();
    void replacesInOneStep();
    void growsInTheTemporaryDirectory();
    void growsBesideTheDestination();
    void isNobodyElsesBusiness();
    void neverFollowsALink();
    void removesTemporaryFiles();
    void removesCopies();
    void namesNeverCollide();
    void fetchesManyAtOnce();
    void endsWhileChecking_data();
    void endsWhileChecking();
    void checksBesideTheEventLoop();
    void copiesBesideTheEventLoop();
    void holdsLittle_data() { addModes(); }
    void holdsLittle();
};

void tst_TarvisNetDestinations::needsADestination_data()
{
    operations::addRows(
        [](const Operation &operation) { return requestkinds::of(operation.kind).isFile(); });
}

void tst_TarvisNetDestinations::needsADestination()
{
    QFETCH(const Operation, operation);
    Bench bench(ScriptedServer::Mode::Https);
    bench.answer({whole});
    bench.client->setInstallerPath("/tool");
    bench.recorder.clear();
    const bool isPath = operation.form == Operation::Path;
    operation.call(*bench.client, isPath ? QString("/tool") : bench.url("/tool"), FileData());
    QCOMPARE(bench.recorder.of("s_errorChanged"),
             QList<QVariantList>{failure(-207, bench.url("/tool"))});
    QCOMPARE(bench.recorder.names(), QStringList("s_errorChanged"));
    QCOMPARE(bench.replies().size(), 0);
}

void tst_TarvisNetDestinations::refusesADestinationThatIsTaken_data()
{
    QTest::addColumn<Change>("prepare");
    QTest::addColumn<int>("changes");
    QTest::addColumn<QString>("spelling");
    const struct {
        const char *name;
        Change prepare;
        int changes;
    } states[] = {
        {"pending", [](Bench &bench) { bench.hold(); }, 1},
        {"running", [](Bench &bench) { bench.server.on("/tool", answers::withhold()); }, 1},
        {"waiting for a retry",
         [](Bench &bench) {
             bench.answer({{503, {{"Retry-After", "100"}}, ""}});
         },
         2},
    };
    for (const auto &state : states) {
        for (const char *spelling :
             {"saved/tool", "saved/./tool", "saved/../saved/tool", "saved//tool", "link/tool"}) {
            QTest::addRow("%s, %s", state.name, spelling)
                << state.prepare << state.changes << QString(spelling);
        }
    }
}

void tst_TarvisNetDestinations::refusesADestinationThatIsTaken()
{
    QFETCH(const Change, prepare);
    QFETCH(const int, changes);
    QFETCH(const QString, spelling);
    Bench bench(ScriptedServer::Mode::Http, retrying());
    QVERIFY(QFile::link(bench.path("saved"), bench.path("link")));
    prepare(bench);
    bench.fetch(10);
    QTRY_COMPARE(bench.recorder.count("s_repliesCountChanged"), changes);
    bench.forget();
    const QUrl other = bench.server.url("/other");
    bench.client->fetchBinary(other, bench.path(spelling), 10);
    QCOMPARE(bench.recorder.of("s_errorChanged"),
             QList<QVariantList>{failure(-221, other.toString())});
    QCOMPARE(bench.told(), QStringList("s_errorChanged"));
    // Another file of that folder is none of its business.
    bench.client->fetchBinary(other, bench.path(spelling + '2'), 10);
    QCOMPARE(bench.errors(), QList<int>{-221});
}

void tst_TarvisNetDestinations::takesADestinationAgain_data()
{
    QTest::addColumn<Change>("end");
    const auto row = [](const char *name, const Change &end) { QTest::newRow(name) << end; };
    const auto withhold = [](Bench &bench) {
        bench.server.on("/tool", answers::withhold());
        bench.fetch(10);
        QVERIFY(bench.server.waitForRequests(1));
    };
    row("success", [](Bench &bench) {
        bench.answer({whole});
        bench.fetch(10);
        QVERIFY(bench.recorder.waitFor("s_finished"));
    });
    row("failure", [](Bench &bench) {
        bench.answer({{404, {}, ""}});
        bench.fetch(10);
        QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    });
    row("wrong file", [](Bench &bench) {
        bench.answer({{200, {}, "short"}});
        bench.fetch(10);
        QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    });
    row("refusal of its hash", [](Bench &bench) { bench.fetch(10, "no hash"); });
    row("no place to write", [](Bench &bench) {
        bench.client->setTemporaryDirectory(bench.path("nowhere"));
        bench.fetch(10);
        QCOMPARE(bench.errors(), QList<int>{-225});
        bench.client->setTemporaryDirectory(bench.path("temporary"));
    });
    row("abort", [withhold](Bench &bench) {
        withhold(bench);
        bench.client->abortDownload("/tool");
    });
    row("end of all", [withhold](Bench &bench) {
        withhold(bench);
        bench.client->abortDownload();
    });
    row("abort of what is pending", [](Bench &bench) {
        bench.hold();
        bench.fetch(10);
        bench.client->abortDownload("/tool");
        bench.client->setStopProcess(false);
    });
    row("abort of what waits", [](Bench &bench) {
        bench.answer({{503, {{"Retry-After", "100"}}, ""}});
        bench.fetch(10);
        QVERIFY(bench.waitForEnds());
        bench.client->abortDownload("/tool");
    });
    row("abort while it is checked", [](Bench &bench) {
        bench.answer({whole});
        bench.fetch(10, hashOf(content));
        whileChecking(bench, [&bench] { bench.client->abortDownload("/tool"); });
        QVERIFY(bench.recorder.waitFor("s_aborted"));
    });
}

void tst_TarvisNetDestinations::takesADestinationAgain()
{
    QFETCH(const Change, end);
    Bench bench(ScriptedServer::Mode::Http, retrying());
    end(bench);
    QVERIFY(!QTest::currentTestFailed());
    bench.forget();
    files::write(bench.destination(), old);
    bench.answer({{200, {tag}, content}});
    bench.fetch(10);
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(files::read(bench.destination()), content);
    QCOMPARE(bench.namesIn("temporary"), QStringList());
}

// Whoever has the old file open goes on reading it, and nobody ever sees half a file.
void tst_TarvisNetDestinations::replacesInOneStep()
{
    Bench bench;
    files::write(bench.destination(), old);
    QFile reader(bench.destination());
    QVERIFY(reader.open(QIODevice::ReadOnly));
    const QByteArray large = HttpResponse::generated(0, 5 * MiB);
    bool isUntouched = true;
    connect(bench.client, &TarvisNet::s_downloadFileBytesProgress, this,
            [&] { isUntouched &= files::read(bench.destination()) == old; });
    bool isWhole = false;
    connect(bench.client, &TarvisNet::s_finished, this,
            [&] { isWhole = files::read(bench.destination()) == large; });
    bench.answer({{200, {}, large}});
    bench.fetch(quint64(large.size()), hashOf(large));
    QVERIFY(bench.waitForEnds());
    QVERIFY(isUntouched);
    QVERIFY(isWhole);
    QCOMPARE(reader.readAll(), old);
}

void tst_TarvisNetDestinations::growsInTheTemporaryDirectory()
{
    Bench bench;
    bench.answer({cut});
    bench.fetch(10);
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.namesIn("temporary").size(), 2);
    QCOMPARE(bench.namesIn("saved"), QStringList());
}

void tst_TarvisNetDestinations::growsBesideTheDestination()
{
    Bench bench;
    bench.client->setTemporaryDirectory(QString());
    bench.answer({cut});
    bench.fetch(10);
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.namesIn("temporary"), QStringList());
    QCOMPARE(bench.namesIn("saved").size(), 2);
    QCOMPARE(bench.namesIn("saved").filter(QRegularExpression("^tool\\.")).size(), 2);
    bench.answer({whole});
    bench.fetch(10);
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QCOMPARE(bench.namesIn("saved"), QStringList("tool"));
}

void tst_TarvisNetDestinations::isNobodyElsesBusiness()
{
    Bench bench;
    const QString example = bench.path("example");
    files::write(example, content);
    bench.answer({cut});
    bench.fetch(10);
    QVERIFY(bench.waitForEnds());
    for (const QString &name : bench.namesIn("temporary"))
        QCOMPARE(permissionsOf(bench.path("temporary/" + name)), 0600);
    bench.answer({whole});
    bench.fetch(10);
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QCOMPARE(permissionsOf(bench.destination()), permissionsOf(example));

    QCOMPARE(chmod(QFile::encodeName(bench.destination()).constData(), 0640), 0);
    bench.fetch(10);
    QVERIFY(bench.recorder.waitFor("s_finished", 2));
    QCOMPARE(permissionsOf(bench.destination()), 0640);
}

void tst_TarvisNetDestinations::neverFollowsALink()
{
    Bench bench;
    bench.answer({cut});
    bench.fetch(10);
    QVERIFY(bench.waitForEnds());
    const QString temporary = bench.temporary();
    const QString victim = bench.path("victim");
    files::write(victim, old);
    files::write(bench.destination(), old);
    QVERIFY(QFile::remove(temporary));
    QVERIFY(QFile::link(victim, temporary));
    bench.server.clear();
    bench.forget();
    bench.fetch(10);
    // While it is being queued; its place becomes free later.
    QTRY_COMPARE(bench.told(),
                 QStringList({"s_errorChanged", "s_repliesCountChanged", "s_repliesCountChanged"}));
    QCOMPARE(bench.errors(), QList<int>{-225});
    QCOMPARE(files::read(victim), old);
    QCOMPARE(files::read(bench.destination()), old);
    QCOMPARE(bench.asked(), QStringList());
}

void tst_TarvisNetDestinations::removesTemporaryFiles()
{
    for (const bool isByDestination : {true, false}) {
        for (const char *directory : {"temporary", ""}) {
            Bench bench;
            bench.client->setTemporaryDirectory(*directory ? bench.path(directory) : QString());
            bench.answer({cut});
            bench.fetch(10);
            QVERIFY(bench.waitForEnds());
            const QString folder = *directory ? "temporary" : "saved";
            const QStringList names = bench.namesIn(folder);
            QCOMPARE(names.size(), 2);
            const QString path = bench.path(folder + '/' + names.filter("vtxdownload").first());
            QVERIFY(
                bench.client->removeTemporaryFile(isByDestination ? bench.destination() : path));
            QCOMPARE(bench.namesIn(folder), QStringList());
            QVERIFY(!bench.client->removeTemporaryFile(bench.destination()));
        }
    }
}

// What a kill leaves on the way from another file system.
void tst_TarvisNetDestinations::removesCopies()
{
    Bench bench;
    bench.answer({cut});
    bench.fetch(10);
    QVERIFY(bench.waitForEnds());
    const QString copy = bench.path("saved/" + QFileInfo(bench.temporary()).fileName())
                             .replace(".vtxdownload", ".copy.vtxdownload");
    // With a beginning, and without.
    for (int attempt = 0; attempt < 2; ++attempt) {
        files::write(copy, "a half");
        QVERIFY(bench.client->removeTemporaryFile(bench.destination()));
        QCOMPARE(bench.namesIn("saved"), QStringList());
        QCOMPARE(bench.namesIn("temporary"), QStringList());
        QVERIFY(!bench.client->removeTemporaryFile(bench.destination()));
    }
    // Who names one temporary file means no other.
    files::write(copy, "a half");
    QVERIFY(!bench.client->removeTemporaryFile(bench.path("temporary/tool.vtxdownload")));
    QVERIFY(bench.client->removeTemporaryFile(copy));
    QCOMPARE(bench.namesIn("saved"), QStringList());
}

// Of the same name in several folders, and of names of which only the ends differ.
void tst_TarvisNetDestinations::namesNeverCollide()
{
    Bench bench;
    const QString longName(200, 'n');
    QMap<QString, QByteArray> expected;
    for (const QString &name : {QString("one/tool"), QString("two/tool"), "one/" + longName + '1',
                                "one/" + longName + '2'}) {
        const QByteArray body = HttpResponse::generated(expected.size(), MiB);
        const QString path = '/' + QString::number(expected.size());
        expected.insert(bench.path(name), body);
        QDir().mkpath(QFileInfo(bench.path(name)).path());
        bench.server.on(path.toLatin1(), answers::file(body));
        bench.client->fetchBinary(bench.server.url(path), bench.path(name), MiB, hashOf(body));
    }
    QVERIFY(bench.recorder.waitFor("s_finished", expected.size()));
    QCOMPARE(bench.errors(), QList<int>());
    for (auto file = expected.cbegin(); file != expected.cend(); ++file)
        QVERIFY(files::read(file.key()) == *file);
    QCOMPARE(bench.namesIn("temporary"), QStringList());
}

void tst_TarvisNetDestinations::fetchesManyAtOnce()
{
    constexpr int count = 20;
    Bench bench(ScriptedServer::Mode::Https);
    QStringList saved;
    for (int i = 0; i < count; ++i) {
        const QByteArray body = HttpResponse::generated(i, 100'000 + i);
        const QString name = QString::number(i);
        saved.append(name);
        bench.server.on('/' + name.toLatin1(), answers::file(body));
        // Every third is not what it should be.
        const QString hash = hashOf(i % 3 == 0 ? content : body);
        bench.client->fetchBinary('/' + name, bench.path("saved/" + name), quint64(body.size()),
                                  hash);
    }
    QVERIFY(bench.waitForEnds(count));
    QCOMPARE(bench.errors(), QList<int>(QVector<int>(7, -226).toList()));
    QCOMPARE(bench.recorder.count("s_finished"), count - 7);
    for (int i = 0; i < count; ++i) {
        const QByteArray body = i % 3 == 0 ? QByteArray() : HttpResponse::generated(i, 100'000 + i);
        QVERIFY(files::read(bench.path("saved/" + QString::number(i))) == body);
    }
    QCOMPARE(bench.namesIn("temporary"), QStringList());
}

void tst_TarvisNetDestinations::endsWhileChecking_data()
{
    QTest::addColumn<Change>("act");
    const auto row = [](const char *name, const Change &act) { QTest::newRow(name) << act; };
    row("abort by path", [](Bench &bench) { bench.client->abortDownload("/tool"); });
    row("abort of anything", [](Bench &bench) { bench.client->abortDownload(); });
    row("abort of a list", [](Bench &bench) { bench.client->abortDownload(QStringList("/tool")); });
    row("end of its reply", [](Bench &bench) { bench.call("killReply", bench.replies().first()); });
    row("end of all replies", [](Bench &bench) { bench.call("clearReplies"); });
    row("end of the client", [](Bench &bench) { delete bench.client; });
}

// Nothing is put in place any more, and all that has come can be used by the next one.
void tst_TarvisNetDestinations::endsWhileChecking()
{
    QFETCH(const Change, act);
    // It takes far longer to read than the event loop takes to come round.
    constexpr qint64 size = 64 * MiB;
    Bench bench;
    files::write(bench.destination(), old);
    fetchZeros(bench, size, hashOf("of something else"));
    // Not in the reply's own signal, where nobody may delete it.
    whileChecking(bench, [&] { QTimer::singleShot(0, qApp, [&] { act(bench); }); });
    QVERIFY(bench.recorder.waitFor("s_aborted"));
    QTRY_VERIFY(!bench.client || bench.replies().isEmpty());
    QCOMPARE(bench.recorder.count("s_aborted"), 1);
    QCOMPARE(bench.abortedUrls(), QStringList(bench.url("/tool")));
    QCOMPARE(bench.recorder.count("s_finished"), 0);
    QCOMPARE(bench.recorder.count("s_errorChanged"), 0);
    QCOMPARE(files::read(bench.destination()), old);
    QCOMPARE(QFileInfo(bench.temporary()).size(), size);
    QCOMPARE(bench.namesIn("temporary").size(), 2);
    QCOMPARE(bench.namesIn("saved"), QStringList("tool"));
}

// What an old beginning costs to be read again is no business of the event loop.
void tst_TarvisNetDestinations::checksBesideTheEventLoop()
{
    constexpr qint64 size = 32 * MiB;
    Bench bench;
    fetchZeros(bench, size, hashOfZeros(size));
    const Pulse pulse(bench);
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QCOMPARE(QFileInfo(bench.destination()).size(), size);
    QVERIFY2(pulse.count() > 10, qPrintable(QString::number(pulse.count())));
}

void tst_TarvisNetDestinations::copiesBesideTheEventLoop()
{
    constexpr qint64 size = 64 * MiB;
    const QTemporaryDir elsewhere(QStringLiteral("/dev/shm/tst_destinations-XXXXXX"));
    Bench bench;
    if (!elsewhere.isValid() || about(elsewhere.path()).st_dev == about(bench.path()).st_dev)
        QSKIP("needs a second file system");
    QVERIFY(QFile::link(elsewhere.path(), bench.path("elsewhere")));
    QVERIFY(QDir(bench.path()).rmdir("temporary"));
    QVERIFY(QFile::rename(bench.path("elsewhere"), bench.path("temporary")));
    fetchZeros(bench, size, QString());
    const Pulse pulse(bench);
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QCOMPARE(QFileInfo(bench.destination()).size(), size);
    QVERIFY2(pulse.count() > 10, qPrintable(QString::number(pulse.count())));
    QCOMPARE(bench.namesIn("temporary"), QStringList());
    QCOMPARE(bench.namesIn("saved"), QStringList("tool"));
}

// Qt holds no more of it than the bound, however fast it comes.
void tst_TarvisNetDestinations::holdsLittle()
{
    QFETCH(const ScriptedServer::Mode, mode);
    constexpr qint64 size = 48 * MiB;
    Bench bench(mode);
    bench.server.on("/tool", [](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, HttpResponse::Chunked);
        response.writeGenerated(size);
        response.finish();
    });
    bench.fetch(0);
    QNetworkReply *reply = bench.running().value(0);
    QVERIFY(reply->readBufferSize() > 0);
    QVERIFY(reply->readBufferSize() <= 8 * MiB);
    qint64 mostUnread = 0;
    connect(reply, &QNetworkReply::downloadProgress, this,
            [&] { mostUnread = std::max(mostUnread, reply->bytesAvailable()); });
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QVERIFY2(mostUnread <= 8 * MiB, qPrintable(QString::number(mostUnread)));
    QCOMPARE(QFileInfo(bench.destination()).size(), size);
}

const TestClass<tst_TarvisNetDestinations> testClass("tst_tarvisnet_destinations");

} // namespace tst_tarvisnet_destinations

#include "tst_tarvisnet_destinations.moc"
