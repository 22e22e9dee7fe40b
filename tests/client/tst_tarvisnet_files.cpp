#include "fakereply.h"
#include "fetchbench.h"
#include "files.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtTest/QTest>

namespace {

constexpr char sourceFile[] = "../../source/appl/tarvisnet";

QString quoted(const QString &text)
{
    return '"' + text + '"';
}

FileData fileData(const QString &filePath, const QString &tempFilePath, quint64 size)
{
    FileData file;
    file.filePath = filePath;
    file.tempFilePath = tempFilePath;
    file.size = size;
    return file;
}

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
    void init();
    void cleanup();

    void removesTemporaryFile_data();
    void removesTemporaryFile();
    void derivesFromTheSystemDirectory();
    void removeNothing();
    void removeMissing_data();
    void removeMissing();
    void removeUndeletable_data();
    void removeUndeletable();

    void renames_data();
    void renames();
    void renameRefusesSilently_data();
    void renameRefusesSilently();
    void renameWithoutTemporaryFile();
    void renameKeepsACompleteDestination();
    void renameKeepsAnUndeletableTemporaryFile();
    void renameDiscardsAnotherDestination_data();
    void renameDiscardsAnotherDestination();
    void renameLeavesAnUndeletableDestination();
    void renameFailsToCopy();

    void savesNothingOfAnUnknownReply();

private:
    QString path(const QString &name) const { return m_bench->path(name); }
    bool isKnown(const QString &name, const QByteArray &content) const;

    QScopedPointer<FetchBench> m_bench;
};

void tst_TarvisNetFiles::init()
{
    m_bench.reset(new FetchBench);
    m_bench->log.clear();
}

// None of this is anything that an application is told by a signal.
void tst_TarvisNetFiles::cleanup()
{
    QCOMPARE(m_bench->recorder.names(), QStringList());
    if (!m_bench->log.entries().isEmpty())
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
    // "@" is the temporary directory.
    QTest::newRow("by destination") << "tool.zip.vtxdownload"
                                    << "/data/pkg/tool.zip";
    QTest::newRow("by bare name") << "tool.zip.vtxdownload"
                                  << "tool.zip";
    QTest::newRow("by temporary path") << "tool.zip.vtxdownload"
                                       << "@/tool.zip.vtxdownload";
    QTest::newRow("temporary path elsewhere") << "below/a.vtxdownload"
                                              << "@/below/a.vtxdownload";
    QTest::newRow("suffix only") << ".vtxdownload"
                                 << "@/.vtxdownload";
    QTest::newRow("suffix in capitals is a destination") << "tool.zip.VTXDOWNLOAD.vtxdownload"
                                                         << "/x/tool.zip.VTXDOWNLOAD";
    QTest::newRow("suffix within the name is a destination") << "a.vtxdownload.zip.vtxdownload"
                                                             << "/x/a.vtxdownload.zip";
    QTest::newRow("name without a dot is a destination") << "vtxdownload.vtxdownload"
                                                         << "/x/vtxdownload";
    QTest::newRow("longer suffix is a destination") << "a.xvtxdownload.vtxdownload"
                                                    << "/x/a.xvtxdownload";
    QTest::newRow("percent sign in the name") << "%1%2.vtxdownload"
                                              << "/x/%1%2";
}

void tst_TarvisNetFiles::removesTemporaryFile()
{
    QFETCH(QString, file);
    QFETCH(QString, argument);

    files::write(path(file), "some");
    files::write(path("other.vtxdownload"), "other");
    QVERIFY(m_bench->client.removeTemporaryFile(argument.replace('@', path(QString()))));
    QVERIFY(!QFileInfo::exists(path(file)));
    QVERIFY(isKnown("other.vtxdownload", "other"));
    QCOMPARE(m_bench->log.texts(), QStringList());
}

void tst_TarvisNetFiles::derivesFromTheSystemDirectory()
{
    const QByteArray before = qgetenv("TMPDIR");
    qputenv("TMPDIR", QFile::encodeName(path("system")));
    files::write(path("system/tool.zip.vtxdownload"), "some");
    m_bench->client.setTemporaryDirectory(QString());
    m_bench->recorder.clear();
    const bool removed = m_bench->client.removeTemporaryFile("/data/pkg/tool.zip");
    if (before.isNull())
        qunsetenv("TMPDIR");
    else
        qputenv("TMPDIR", before);
    QVERIFY(removed);
    QVERIFY(!QFileInfo::exists(path("system/tool.zip.vtxdownload")));
}

void tst_TarvisNetFiles::removeNothing()
{
    // What an empty argument would be derived to.
    m_bench->client.setTemporaryDirectory(path("below"));
    m_bench->recorder.clear();
    files::write(path("below.vtxdownload"), "some");
    QVERIFY(!m_bench->client.removeTemporaryFile(QString()));
    QVERIFY(isKnown("below.vtxdownload", "some"));
    QCOMPARE(m_bench->log.texts(), QStringList());
}

void tst_TarvisNetFiles::removeMissing_data()
{
    QTest::addColumn<QString>("argument");
    QTest::newRow("destination") << "/data/pkg/tool.zip";
    QTest::newRow("temporary path") << "/data/pkg/tool.zip.vtxdownload";
}

void tst_TarvisNetFiles::removeMissing()
{
    QFETCH(QString, argument);
    QVERIFY(!m_bench->client.removeTemporaryFile(argument));
    const QStringList lines{"File: " + quoted(argument) + "  not exist"};
    QCOMPARE(m_bench->log.texts(), lines);
    QCOMPARE(m_bench->log.texts(QtDebugMsg), lines);
    QCOMPARE(m_bench->log.entries().first().function,
             QByteArray("bool TarvisNet::removeTemporaryFile(QString)"));
}

void tst_TarvisNetFiles::removeUndeletable_data()
{
    QTest::addColumn<bool>("byDestination");
    QTest::newRow("destination") << true;
    QTest::newRow("temporary path") << false;
}

void tst_TarvisNetFiles::removeUndeletable()
{
    QFETCH(bool, byDestination);
    const QString temporary = path("tool.vtxdownload");
    makeUndeletable(temporary);
    QVERIFY(!m_bench->client.removeTemporaryFile(byDestination ? "/data/tool" : temporary));
    const QStringList lines{"Unable to remove temporary download file"};
    QCOMPARE(m_bench->log.texts(), lines);
    QCOMPARE(m_bench->log.texts(QtWarningMsg), lines);
    QVERIFY(isKnown("tool.vtxdownload/inside", "content"));
}

void tst_TarvisNetFiles::renames_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<quint64>("size");
    QTest::newRow("complete") << QByteArray("content") << quint64(7);
    QTest::newRow("short") << QByteArray("cont") << quint64(7);
    QTest::newRow("too large") << QByteArray("content and more") << quint64(7);
    QTest::newRow("empty") << QByteArray("") << quint64(7);
    QTest::newRow("size unknown") << QByteArray("content") << quint64(0);
}

void tst_TarvisNetFiles::renames()
{
    QFETCH(QByteArray, content);
    QFETCH(quint64, size);
    files::write(path("tool.vtxdownload"), content);
    QVERIFY(m_bench->client.renameTemporaryFile(
        fileData(path("tool"), path("tool.vtxdownload"), size)));
    QVERIFY(isKnown("tool", content));
    QVERIFY(isKnown("tool.vtxdownload", QByteArray()));
    QCOMPARE(m_bench->log.texts(), QStringList());
}

void tst_TarvisNetFiles::renameRefusesSilently_data()
{
    QTest::addColumn<QString>("destination");
    QTest::addColumn<QString>("temporary");
    QTest::newRow("no destination") << ""
                                    << "tool.vtxdownload";
    QTest::newRow("no temporary path") << "tool"
                                       << "";
    QTest::newRow("neither") << ""
                             << "";
    QTest::newRow("another suffix") << "tool"
                                    << "tool.part";
    QTest::newRow("suffix in capitals") << "tool"
                                        << "tool.VTXDOWNLOAD";
    QTest::newRow("suffix before another") << "tool"
                                           << "tool.vtxdownload.1";
    QTest::newRow("no suffix") << "tool"
                               << "vtxdownload";
}

void tst_TarvisNetFiles::renameRefusesSilently()
{
    QFETCH(QString, destination);
    QFETCH(QString, temporary);
    const auto full = [this](const QString &name) {
        return name.isEmpty() ? QString() : path(name);
    };
    if (!temporary.isEmpty())
        files::write(path(temporary), "content");
    QVERIFY(!m_bench->client.renameTemporaryFile(fileData(full(destination), full(temporary), 7)));
    QVERIFY(temporary.isEmpty() || isKnown(temporary, "content"));
    QVERIFY(isKnown("tool", QByteArray()));
    QCOMPARE(m_bench->log.texts(), QStringList());
}

void tst_TarvisNetFiles::renameWithoutTemporaryFile()
{
    files::write(path("tool"), "content");
    QVERIFY(
        !m_bench->client.renameTemporaryFile(fileData(path("tool"), path("tool.vtxdownload"), 7)));
    QVERIFY(isKnown("tool", "content"));
    QCOMPARE(m_bench->log.texts(), QStringList{"Temp file not exist"});
    QCOMPARE(m_bench->log.texts(QtWarningMsg), QStringList{"Temp file not exist"});
    QCOMPARE(m_bench->log.entries().first().function,
             QByteArray("bool TarvisNet::renameTemporaryFile(FileData)"));
}

void tst_TarvisNetFiles::renameKeepsACompleteDestination()
{
    files::write(path("tool"), "present");
    files::write(path("tool.vtxdownload"), "content");
    QVERIFY(
        m_bench->client.renameTemporaryFile(fileData(path("tool"), path("tool.vtxdownload"), 7)));
    QVERIFY(isKnown("tool", "present"));
    QVERIFY(isKnown("tool.vtxdownload", QByteArray()));

    const QString exists =
        "Dest file allready exist " + quoted(path("tool")) + ' ' + quoted(path("tool.vtxdownload"));
    const QString loaded = "File already loaded. Remove temporary.";
    QCOMPARE(m_bench->log.texts(), (QStringList{exists, loaded}));
    QCOMPARE(m_bench->log.texts(QtWarningMsg), QStringList{exists});
    QCOMPARE(m_bench->log.texts(QtDebugMsg), QStringList{loaded});
}

// The result of removing it does not count.
void tst_TarvisNetFiles::renameKeepsAnUndeletableTemporaryFile()
{
    files::write(path("tool"), "present");
    makeUndeletable(path("tool.vtxdownload"));
    QVERIFY(
        m_bench->client.renameTemporaryFile(fileData(path("tool"), path("tool.vtxdownload"), 7)));
    QVERIFY(isKnown("tool", "present"));
    QCOMPARE(m_bench->log.texts(QtWarningMsg).last(),
             QString("Unable to remove temporary download file"));
}

void tst_TarvisNetFiles::renameDiscardsAnotherDestination_data()
{
    QTest::addColumn<QByteArray>("present");
    QTest::addColumn<quint64>("size");
    QTest::newRow("smaller") << QByteArray("old") << quint64(7);
    QTest::newRow("larger") << QByteArray("much older") << quint64(7);
    QTest::newRow("empty") << QByteArray("") << quint64(7);
    QTest::newRow("size unknown") << QByteArray("content") << quint64(0);
    QTest::newRow("of the temporary file's size") << QByteArray("present") << quint64(8);
}

void tst_TarvisNetFiles::renameDiscardsAnotherDestination()
{
    QFETCH(QByteArray, present);
    QFETCH(quint64, size);
    files::write(path("tool"), present);
    files::write(path("tool.vtxdownload"), "content");
    QVERIFY(!m_bench->client.renameTemporaryFile(
        fileData(path("tool"), path("tool.vtxdownload"), size)));
    QVERIFY(isKnown("tool", QByteArray()));
    QVERIFY(isKnown("tool.vtxdownload", QByteArray()));
    const QStringList lines{"Dest file allready exist " + quoted(path("tool")) + ' '
                            + quoted(path("tool.vtxdownload"))};
    QCOMPARE(m_bench->log.texts(), lines);
    QCOMPARE(m_bench->log.texts(QtWarningMsg), lines);
}

void tst_TarvisNetFiles::renameLeavesAnUndeletableDestination()
{
    makeUndeletable(path("tool"));
    files::write(path("tool.vtxdownload"), "content");
    QVERIFY(
        !m_bench->client.renameTemporaryFile(fileData(path("tool"), path("tool.vtxdownload"), 7)));
    QVERIFY(isKnown("tool/inside", "content"));
    QVERIFY(isKnown("tool.vtxdownload", QByteArray()));
    const QStringList lines{"Dest file allready exist " + quoted(path("tool")) + ' '
                                + quoted(path("tool.vtxdownload")),
                            "Unable to remove destination file"};
    QCOMPARE(m_bench->log.texts(), lines);
    QCOMPARE(m_bench->log.texts(QtWarningMsg), lines);
}

void tst_TarvisNetFiles::renameFailsToCopy()
{
    const QString destination = path("missing/tool");
    files::write(path("tool.vtxdownload"), "content");
    QFile same(path("tool.vtxdownload"));
    QVERIFY(!same.copy(destination));
    QCOMPARE(same.error(), QFileDevice::CopyError);

    QVERIFY(
        !m_bench->client.renameTemporaryFile(fileData(destination, path("tool.vtxdownload"), 7)));
    QVERIFY(isKnown("tool.vtxdownload", "content"));
    QVERIFY(isKnown("missing", QByteArray()));
    const QStringList lines{QStringLiteral("Error: %1  text: ").arg(int(same.error()))
                            + quoted(same.errorString())};
    QCOMPARE(m_bench->log.texts(), lines);
    QCOMPARE(m_bench->log.texts(QtWarningMsg), lines);
}

void tst_TarvisNetFiles::savesNothingOfAnUnknownReply()
{
    FakeReply reply(QUrl("http://127.0.0.1/tool"));
    reply.setStatus(200);
    reply.appendBody("content");
    QMetaObject::invokeMethod(&m_bench->client, "saveBinary", Qt::DirectConnection,
                              Q_ARG(QNetworkReply *, &reply));
    QCOMPARE(reply.bytesAvailable(), qint64(7));
    const QStringList lines{"<TarvisNet::saveBinary> Unrecognized reply!"};
    QCOMPARE(m_bench->log.texts(), lines);
    QCOMPARE(m_bench->log.texts(QtWarningMsg), lines);
    QCOMPARE(m_bench->log.entries().first().function,
             QByteArray("void TarvisNet::saveBinary(QNetworkReply*)"));

    // Nor of none at all.
    m_bench->log.clear();
    QMetaObject::invokeMethod(&m_bench->client, "saveBinary", Qt::DirectConnection,
                              Q_ARG(QNetworkReply *, nullptr));
    QCOMPARE(m_bench->log.texts(QtWarningMsg), lines);
}

QTEST_GUILESS_MAIN(tst_TarvisNetFiles)

#include "tst_tarvisnet_files.moc"
