#include "clientbench.h"
#include "fakereply.h"
#include "files.h"
#include "operations.h"
#include "testclass.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace tst_tarvisnet_installer {

using namespace clientaccess;

namespace {

constexpr int missing = -1;
const QUrl setupUrl("https://127.0.0.1:8443/setup");

/// A client with an installer that is to become 1000 bytes large.
struct InstallerBench : ClientBench {
    explicit InstallerBench(ScriptedServer::Mode mode = ScriptedServer::Mode::Http)
        : ClientBench(mode)
    {
        client->setInstallerFileSize(1000);
        client->setInstallerFileName(setup());
        client->setInstallerPath("/setup");
        ask(mode == ScriptedServer::Mode::Https ? server.port() : quint16(setupUrl.port()));
        forget();
    }

    QString setup() const { return path("setup"); }
    void write(int size) const { files::write(setup(), QByteArray(size, 'x')); }
    /// The Range value that the next fetch would send; null when there is none. It tells how much
    /// of the installer the client believes to be there.
    QByteArray nextRange()
    {
        log.clear();
        hold();
        client->fetchInstaller(setupUrl);
        const QStringList lines = log.texts(QtDebugMsg);
        return lines.isEmpty() ? QByteArray() : lines.last().section('"', 1, 1).toUtf8();
    }
};

} // namespace

/// The installer's file: what is noted of it, asked for and saved.
class tst_TarvisNetInstaller : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void resumes_data();
    void resumes();
    void doesNotSaveTheBody();

    void notesNothing_data();
    void notesNothing();
    void notesAgain();
    void runsAfterBothSetters();

    void saves_data();
    void saves();
    void savesNothing_data();
    void savesNothing();
    void cannotOpen();
    void startsAfreshWithAnotherReply();
};

void tst_TarvisNetInstaller::resumes_data()
{
    QTest::addColumn<int>("present");
    QTest::addColumn<quint64>("sizeAtFirst");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<QByteArray>("range");
    const auto row = [](const char *name, int present, quint64 sizeAtFirst, quint64 size,
                        const QByteArray &range) {
        QTest::newRow(name) << present << sizeAtFirst << size << range;
    };
    row("nothing there", missing, 1000, 1000, QByteArray());
    row("empty", 0, 1000, 1000, QByteArray());
    row("one byte there", 1, 1000, 1000, "bytes=1-");
    row("part there", 400, 1000, 1000, "bytes=400-");
    row("all but one byte there", 999, 1000, 1000, "bytes=999-");
    row("complete", 1000, 1000, 1000, QByteArray());
    row("too large", 1001, 1000, 1000, QByteArray());
    row("size unknown", 400, 0, 0, QByteArray());
    row("as large as a smaller new version", 1000, 2000, 1000, QByteArray());
    row("larger than a smaller new version", 1000, 2000, 900, QByteArray());
    row("size forgotten", 400, 1000, 0, QByteArray());
    row("larger than 4 GiB", 400, 5000000000, 5000000000, "bytes=400-");
    row("size beyond signed numbers", 400, 1000, ~quint64(0), "bytes=400-");
}

void tst_TarvisNetInstaller::resumes()
{
    QFETCH(const int, present);
    QFETCH(const quint64, sizeAtFirst);
    QFETCH(const quint64, size);
    QFETCH(const QByteArray, range);

    for (const char *form : {"fetchInstaller(QString)", "fetchInstaller(QUrl)"}) {
        const Operation operation = operations::of(form);
        InstallerBench bench;
        bench.client->setInstallerFileSize(0);
        if (present != missing)
            bench.write(present);
        bench.client->setInstallerFileSize(sizeAtFirst);
        bench.client->setInstallerFileSize(size);
        bench.hold();
        bench.call("changeFileName");
        QCOMPARE(bench.log.texts(), QStringList());
        QCOMPARE(bench.recorder.names(), QStringList());
        operation.call(*bench.client, operation.form == Operation::Path ? "" : setupUrl.toString(),
                       FileData());
        const QStringList lines = range.isNull()
            ? QStringList()
            : QStringList("<TarvisNet::fetchInstaller> File avalible bytes:  " + quoted(range));
        QCOMPARE(bench.log.texts(), lines);
        QCOMPARE(bench.log.texts(QtDebugMsg), lines);
        QVERIFY(bench.isPending(
            operations::record(*bench.client, operation, setupUrl, FileData(), range)));
        QCOMPARE(QFileInfo::exists(bench.setup()), present != missing);
        QCOMPARE(files::read(bench.setup()).size(), qMax(0, present));
    }
}

// The record names no file, so every piece is refused and the installer on disk stays as it is.
void tst_TarvisNetInstaller::doesNotSaveTheBody()
{
    InstallerBench bench(ScriptedServer::Mode::Https);
    bench.server.on("/setup", answers::generatedFile(1000));
    bench.client->fetchInstaller();
    QVERIFY(bench.recorder.waitFor("s_finished"));
    QVERIFY(bench.log.contains(QtWarningMsg, "File path not defined!"));
    QVERIFY(!QFileInfo::exists(bench.setup()));
    QCOMPARE(bench.errors(), QList<int>());
}

void tst_TarvisNetInstaller::notesNothing_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("no name") << "";
    QTest::newRow("directory") << "directory";
    QTest::newRow("in a missing directory") << "missing/setup";
}

void tst_TarvisNetInstaller::notesNothing()
{
    QFETCH(const QString, name);
    InstallerBench bench;
    files::write(bench.path("directory/inside"), "content");
    bench.client->setInstallerFileName(name.isEmpty() ? name : bench.path(name));
    bench.client->setInstallerFileSize(1000000);
    bench.log.clear();
    bench.call("changeFileName");
    QCOMPARE(bench.log.texts(), QStringList());
    QCOMPARE(bench.nextRange(), QByteArray());
}

// What was noted once stays until there is something else to be noted.
void tst_TarvisNetInstaller::notesAgain()
{
    InstallerBench bench;
    bench.write(700);
    bench.call("changeFileName");
    QCOMPARE(bench.nextRange(), QByteArray("bytes=700-"));
    bench.write(1000);
    bench.call("changeFileName");
    QCOMPARE(bench.nextRange(), QByteArray("bytes=700-"));
    bench.client->setInstallerFileName(QString());
    QCOMPARE(bench.nextRange(), QByteArray("bytes=700-"));
}

void tst_TarvisNetInstaller::runsAfterBothSetters()
{
    InstallerBench bench;
    bench.write(400);
    QCOMPARE(bench.nextRange(), QByteArray());
    bench.client->setInstallerFileName(bench.setup());
    QCOMPARE(bench.nextRange(), QByteArray("bytes=400-"));
    // Setting the same size again is no change, the same name is.
    bench.write(500);
    bench.client->setInstallerFileSize(1000);
    QCOMPARE(bench.nextRange(), QByteArray("bytes=400-"));
    bench.client->setInstallerFileName(bench.setup());
    QCOMPARE(bench.nextRange(), QByteArray("bytes=500-"));
    bench.write(600);
    bench.client->setInstallerFileSize(2000);
    QCOMPARE(bench.nextRange(), QByteArray("bytes=600-"));
}

void tst_TarvisNetInstaller::saves_data()
{
    QTest::addColumn<QByteArray>("present");
    QTest::addColumn<QByteArray>("arrived");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<QByteArray>("afterwards");
    QTest::addColumn<int>("unread");
    const auto row = [](const char *name, const QByteArray &present, const QByteArray &arrived,
                        quint64 size, const QByteArray &afterwards, int unread) {
        QTest::newRow(name) << present << arrived << size << afterwards << unread;
    };
    row("fresh", QByteArray(), "abc", 6, "abc", 0);
    row("appended", "abc", "def", 6, "abcdef", 0);
    row("beyond its size", "abc", "defghi", 4, "abcdefghi", 0);
    row("complete", "abc", "def", 3, "abc", 3);
    row("too large", "abc", "def", 2, "abc", 3);
    row("size unknown", QByteArray(), "abc", 0, "", 3);
    row("nothing arrived", "abc", "", 6, "abc", 0);
    row("nothing arrived yet", QByteArray(), "", 6, "", 0);
    // As a signed number it is negative, and no file is smaller.
    row("size beyond signed numbers", "abc", "def", ~quint64(0), "abc", 3);
}

void tst_TarvisNetInstaller::saves()
{
    QFETCH(const QByteArray, present);
    QFETCH(const QByteArray, arrived);
    QFETCH(const quint64, size);
    QFETCH(const QByteArray, afterwards);
    QFETCH(const int, unread);

    InstallerBench bench;
    if (!present.isNull())
        files::write(bench.setup(), present);
    bench.client->setInstallerFileSize(size);
    bench.forget();
    FakeReply reply(QUrl("http://127.0.0.1/setup"));
    reply.setStatus(200);
    reply.appendBody(arrived);
    bench.call("saveInstaller", &reply);

    QVERIFY(QFileInfo::exists(bench.setup()));
    QCOMPARE(files::read(bench.setup()), afterwards);
    QVERIFY(!QFileInfo::exists(bench.setup() + ".vtxdownload"));
    QCOMPARE(reply.bytesAvailable(), qint64(unread));
    QCOMPARE(bench.log.texts(), QStringList());
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_TarvisNetInstaller::savesNothing_data()
{
    QTest::addColumn<bool>("hasReply");
    QTest::newRow("without a name") << true;
    QTest::newRow("without a reply") << false;
}

void tst_TarvisNetInstaller::savesNothing()
{
    QFETCH(const bool, hasReply);
    InstallerBench bench;
    if (hasReply)
        bench.client->setInstallerFileName(QString());
    bench.forget();
    FakeReply reply(QUrl("http://127.0.0.1/setup"));
    reply.appendBody("abc");
    bench.call("saveInstaller", hasReply ? &reply : nullptr);
    QCOMPARE(reply.bytesAvailable(), qint64(3));
    QCOMPARE(bench.log.texts(), QStringList());
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_TarvisNetInstaller::cannotOpen()
{
    InstallerBench bench;
    bench.client->setInstallerFileName(bench.path("missing/setup"));
    bench.forget();
    FakeReply reply(QUrl("http://127.0.0.1/set%20up"));
    reply.appendBody("abc");
    const QStringList text("<TarvisNet::saveInstaller> Error opening file to write.");
    bench.call("saveInstaller", &reply);
    QCOMPARE(bench.log.texts(QtWarningMsg), text);
    QCOMPARE(bench.recorder.names(), QStringList("s_errorChanged"));
    QCOMPARE(bench.error(), failure(-210, reply.url().toString()));
    bench.call("saveInstaller", &reply);
    QCOMPARE(bench.log.texts(), text + text);
    QCOMPARE(bench.recorder.names(), QStringList({"s_errorChanged", "s_errorChanged"}));
    QCOMPARE(reply.bytesAvailable(), qint64(3));
    QVERIFY(!QFileInfo::exists(bench.path("missing")));
    QCOMPARE(bench.log.entries().first().function,
             QByteArray("void TarvisNet::saveInstaller(QNetworkReply*)"));
    QCOMPARE(bench.log.originFault(sourceFile), QString());
}

// What a full disk has cut short is over with its reply.
void tst_TarvisNetInstaller::startsAfreshWithAnotherReply()
{
    const InstallerBench bench;
    FakeReply cut(QUrl("http://127.0.0.1/setup"));
    cut.appendBody("abc");
    bench.client->setInstallerFileName("/dev/full");
    bench.call("saveInstaller", &cut);
    bench.client->setInstallerFileName(bench.setup());
    cut.appendBody("abc");
    bench.call("saveInstaller", &cut);
    QVERIFY(!QFileInfo::exists(bench.setup()));

    FakeReply next(cut.url());
    next.appendBody("def");
    bench.call("saveInstaller", &next);
    QCOMPARE(files::read(bench.setup()), QByteArray("def"));
}

const TestClass<tst_TarvisNetInstaller> testClass("tst_tarvisnet_installer");

} // namespace tst_tarvisnet_installer

#include "tst_tarvisnet_installer.moc"
