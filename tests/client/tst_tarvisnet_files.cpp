#include "clientbench.h"
#include "fakereply.h"
#include "files.h"
#include "testclass.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace tst_tarvisnet_files {

using namespace clientaccess;

namespace {

const QByteArray none;

/// A directory with something in it stands for a file that nobody can delete, not even root.
void makeUndeletable(const QString &path)
{
    files::write(path + "/inside", "content");
}

} // namespace

/// What the client does with files when no download is going on.
class tst_TarvisNetFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_bench.reset(new ClientBench); }
    void cleanup();

    void removesTemporaryFile_data();
    void removesTemporaryFile();
    void derivesFromTheSystemDirectory();

    void renames_data();
    void renames();
    void renameRefusesSilently_data();
    void renameRefusesSilently();
    void renameFindsUndeletableFiles_data();
    void renameFindsUndeletableFiles();
    void renameFailsToCopy();
    void logsItsOrigin();

    void savesNothingOfAnUnknownReply_data();
    void savesNothingOfAnUnknownReply();

private:
    QString path(const QString &name) const { return m_bench->path(name); }
    bool isKnown(const QString &name, const QByteArray &content) const;
    /// What renaming logs first when there is a destination.
    QString existsText() const
    {
        return line({"warning: Dest file allready exist", quoted(path("tool")),
                     quoted(path("tool.vtxdownload"))});
    }

    QScopedPointer<ClientBench> m_bench;
};

// None of this is anything that an application is told by a signal.
void tst_TarvisNetFiles::cleanup()
{
    QCOMPARE(m_bench->recorder.names(), QStringList());
    QCOMPARE(m_bench->log.texts().size(), m_bench->messages().size());
    if (!m_bench->messages().isEmpty())
        QCOMPARE(m_bench->log.originFault(sourceFile), QString());
    m_bench.reset();
}

/// Whether the file has the content; whether it is missing when that is null.
bool tst_TarvisNetFiles::isKnown(const QString &name, const QByteArray &content) const
{
    return QFileInfo::exists(path(name)) == !content.isNull() && files::read(path(name)) == content;
}

void tst_TarvisNetFiles::removesTemporaryFile_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("argument");
    QTest::addColumn<bool>("isRemoved");
    QTest::addColumn<QString>("message");
    // "@" is the temporary directory.
    const auto removed = [](const char *name, const char *file, const char *argument) {
        QTest::newRow(name) << QString(file) << QString(argument) << true << QString();
    };
    const auto kept = [](const char *name, const char *file, const char *argument,
                         const QString &message) {
        QTest::newRow(name) << QString(file) << QString(argument) << false << message;
    };
    removed("by destination", "@/tool.zip.vtxdownload", "/data/pkg/tool.zip");
    removed("by bare name", "@/tool.zip.vtxdownload", "tool.zip");
    removed("by temporary path", "@/tool.zip.vtxdownload", "@/tool.zip.vtxdownload");
    removed("temporary path elsewhere", "@/below/a.vtxdownload", "@/below/a.vtxdownload");
    removed("suffix only", "@/.vtxdownload", "@/.vtxdownload");
    removed("suffix in capitals is a destination", "@/tool.zip.VTXDOWNLOAD.vtxdownload",
            "/x/tool.zip.VTXDOWNLOAD");
    removed("suffix within the name is a destination", "@/a.vtxdownload.zip.vtxdownload",
            "/x/a.vtxdownload.zip");
    removed("name without a dot is a destination", "@/vtxdownload.vtxdownload", "/x/vtxdownload");
    removed("longer suffix is a destination", "@/a.xvtxdownload.vtxdownload", "/x/a.xvtxdownload");
    removed("percent sign in the name", "@/%1%2.vtxdownload", "/x/%1%2");
    // What an empty argument would be derived to.
    kept("no argument", "@.vtxdownload", "", QString());
    kept("missing destination", "@/a", "/x/tool", "debug: File: \"/x/tool\"  not exist");
    kept("missing temporary file", "@/a", "/tool.vtxdownload",
         "debug: File: \"/tool.vtxdownload\"  not exist");
    const char *const failed = "warning: Unable to remove temporary download file";
    kept("undeletable, by destination", "@/tool.vtxdownload/inside", "/data/tool", failed);
    kept("undeletable, by temporary path", "@/tool.vtxdownload/inside", "@/tool.vtxdownload",
         failed);
}

void tst_TarvisNetFiles::removesTemporaryFile()
{
    QFETCH(QString, file);
    QFETCH(QString, argument);
    QFETCH(const bool, isRemoved);
    QFETCH(const QString, message);

    m_bench->client->setTemporaryDirectory(path("temporary"));
    m_bench->forget();
    file.replace("@", path("temporary"));
    files::write(file, "some");
    files::write(path("temporary/other.vtxdownload"), "other");
    QCOMPARE(m_bench->client->removeTemporaryFile(argument.replace("@", path("temporary"))),
             isRemoved);
    QCOMPARE(QFileInfo::exists(file), !isRemoved);
    QVERIFY(isKnown("temporary/other.vtxdownload", "other"));
    QCOMPARE(m_bench->messages(), message.isEmpty() ? QStringList() : QStringList(message));
}

void tst_TarvisNetFiles::derivesFromTheSystemDirectory()
{
    const QByteArray before = qgetenv("TMPDIR");
    qputenv("TMPDIR", QFile::encodeName(path("system")));
    files::write(path("system/tool.zip.vtxdownload"), "some");
    m_bench->client->setTemporaryDirectory(QString());
    m_bench->forget();
    const bool removed = m_bench->client->removeTemporaryFile("/data/pkg/tool.zip");
    if (before.isNull())
        qunsetenv("TMPDIR");
    else
        qputenv("TMPDIR", before);
    QVERIFY(removed);
    QVERIFY(isKnown("system/tool.zip.vtxdownload", none));
}

void tst_TarvisNetFiles::renames_data()
{
    // What there is before and after; null when there is no such file.
    QTest::addColumn<QByteArray>("destination");
    QTest::addColumn<QByteArray>("temporary");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<bool>("isRenamed");
    QTest::addColumn<QByteArray>("renamed");
    QTest::addColumn<QString>("message");
    const auto moved = [](const char *name, const QByteArray &temporary, quint64 size) {
        QTest::newRow(name) << none << temporary << size << true << temporary << QString();
    };
    moved("complete", "content", 7);
    moved("short", "cont", 7);
    moved("too large", "content and more", 7);
    moved("empty", "", 7);
    moved("size unknown", "content", 0);
    QTest::newRow("no temporary file") << QByteArray("content") << none << quint64(7) << false
                                       << QByteArray("content") << "warning: Temp file not exist";
    QTest::newRow("destination of the size")
        << QByteArray("present") << QByteArray("content") << quint64(7) << true
        << QByteArray("present") << "debug: File already loaded. Remove temporary.";
    const auto discarded = [](const char *name, const QByteArray &destination, quint64 size) {
        QTest::addRow("destination, %s", name)
            << destination << QByteArray("content") << size << false << none << QString();
    };
    discarded("smaller", "old", 7);
    discarded("larger", "much older", 7);
    discarded("empty", "", 7);
    discarded("size unknown", "content", 0);
    discarded("of the temporary file's size", "present", 8);
}

void tst_TarvisNetFiles::renames()
{
    QFETCH(QByteArray, destination);
    QFETCH(QByteArray, temporary);
    QFETCH(quint64, size);
    QFETCH(bool, isRenamed);
    QFETCH(QByteArray, renamed);
    QFETCH(QString, message);

    if (!destination.isNull())
        files::write(path("tool"), destination);
    if (!temporary.isNull())
        files::write(path("tool.vtxdownload"), temporary);
    QCOMPARE(m_bench->client->renameTemporaryFile(m_bench->file("tool", size)), isRenamed);
    QVERIFY(isKnown("tool", renamed));
    QVERIFY(isKnown("tool.vtxdownload", none));
    QStringList messages;
    if (!destination.isNull() && !temporary.isNull())
        messages.append(existsText());
    if (!message.isEmpty())
        messages.append(message);
    QCOMPARE(m_bench->messages(), messages);
}

void tst_TarvisNetFiles::renameRefusesSilently_data()
{
    QTest::addColumn<QString>("destination");
    QTest::addColumn<QString>("temporary");
    const auto row = [](const char *name, const char *destination, const char *temporary) {
        QTest::newRow(name) << QString(destination) << QString(temporary);
    };
    row("no destination", "", "tool.vtxdownload");
    row("no temporary path", "tool", "");
    row("neither", "", "");
    row("another suffix", "tool", "tool.part");
    row("suffix in capitals", "tool", "tool.VTXDOWNLOAD");
    row("suffix before another", "tool", "tool.vtxdownload.1");
    row("no suffix", "tool", "vtxdownload");
}

void tst_TarvisNetFiles::renameRefusesSilently()
{
    QFETCH(QString, destination);
    QFETCH(QString, temporary);
    FileData file;
    file.size = 7;
    if (!destination.isEmpty())
        file.filePath = path(destination);
    if (!temporary.isEmpty()) {
        file.tempFilePath = path(temporary);
        files::write(file.tempFilePath, "content");
    }
    QVERIFY(!m_bench->client->renameTemporaryFile(file));
    QVERIFY(temporary.isEmpty() || isKnown(temporary, "content"));
    QVERIFY(isKnown("tool", none));
    QCOMPARE(m_bench->messages(), QStringList());
}

void tst_TarvisNetFiles::renameFindsUndeletableFiles_data()
{
    QTest::addColumn<QString>("undeletable");
    QTest::addColumn<QString>("other");
    QTest::addColumn<QByteArray>("left");
    QTest::addColumn<QStringList>("messages");
    // The result of removing it does not count.
    QTest::newRow("temporary file")
        << "tool.vtxdownload"
        << "tool" << QByteArray("present")
        << QStringList({"debug: File already loaded. Remove temporary.",
                        "warning: Unable to remove temporary download file"});
    QTest::newRow("destination") << "tool"
                                 << "tool.vtxdownload" << none
                                 << QStringList("warning: Unable to remove destination file");
}

void tst_TarvisNetFiles::renameFindsUndeletableFiles()
{
    QFETCH(QString, undeletable);
    QFETCH(QString, other);
    QFETCH(QByteArray, left);
    QFETCH(QStringList, messages);
    makeUndeletable(path(undeletable));
    files::write(path(other), "present");
    QCOMPARE(m_bench->client->renameTemporaryFile(m_bench->file("tool", 7)), !left.isNull());
    QVERIFY(isKnown(undeletable + "/inside", "content"));
    QVERIFY(isKnown(other, left));
    QCOMPARE(m_bench->messages(), QStringList(existsText()) + messages);
}

void tst_TarvisNetFiles::renameFailsToCopy()
{
    FileData file = m_bench->file("tool", 7);
    file.filePath = path("missing/tool");
    files::write(file.tempFilePath, "content");
    QFile same(file.tempFilePath);
    QVERIFY(!same.copy(file.filePath));
    QCOMPARE(same.error(), QFileDevice::CopyError);

    QVERIFY(!m_bench->client->renameTemporaryFile(file));
    QVERIFY(isKnown("tool.vtxdownload", "content"));
    QVERIFY(isKnown("missing", none));
    QCOMPARE(m_bench->messages(),
             QStringList(QString("warning: Error: %1  text: ").arg(int(same.error()))
                         + quoted(same.errorString())));
}

void tst_TarvisNetFiles::logsItsOrigin()
{
    m_bench->client->removeTemporaryFile("/missing/tool");
    m_bench->client->renameTemporaryFile(m_bench->file("tool", 7));
    m_bench->call("saveBinary", nullptr);
    QByteArrayList functions;
    for (const LogEntry &entry : m_bench->log.entries())
        functions.append(entry.function);
    QCOMPARE(functions,
             QByteArrayList({"bool TarvisNet::removeTemporaryFile(QString)",
                             "bool TarvisNet::renameTemporaryFile(FileData)",
                             "void TarvisNet::saveBinary(QNetworkReply*)"}));
}

void tst_TarvisNetFiles::savesNothingOfAnUnknownReply_data()
{
    QTest::addColumn<bool>("isNull");
    QTest::newRow("unknown reply") << false;
    QTest::newRow("no reply") << true;
}

void tst_TarvisNetFiles::savesNothingOfAnUnknownReply()
{
    QFETCH(bool, isNull);
    FakeReply reply(QUrl("http://127.0.0.1/tool"));
    reply.setStatus(200);
    reply.appendBody("content");
    m_bench->call("saveBinary", isNull ? nullptr : &reply);
    QCOMPARE(reply.bytesAvailable(), qint64(7));
    QCOMPARE(m_bench->messages(),
             QStringList("warning: <TarvisNet::saveBinary> Unrecognized reply!"));
}

const TestClass<tst_TarvisNetFiles> testClass("tst_tarvisnet_files");

} // namespace tst_tarvisnet_files

#include "tst_tarvisnet_files.moc"
