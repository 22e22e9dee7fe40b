#include "contenthash_p.h"
#include "files.h"
#include "httpresponse.h"
#include "temporaryfile_p.h"
#include "testclass.h"

#include <QtCore/QEventLoop>
#include <QtCore/QScopedPointer>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <unistd.h>

namespace tst_contenthash {

namespace {

using Algorithm = QCryptographicHash::Algorithm;

constexpr Algorithm sha256 = QCryptographicHash::Sha256;
constexpr qint64 MiB = qint64(1024) * 1024;

QByteArray digestOf(const QByteArray &content)
{
    return QCryptographicHash::hash(content, sha256);
}

/// A file that grows, and who follows it.
struct Bench {
    explicit Bench(const QByteArray &content = QByteArray())
    {
        files::write(path, content);
        file = TemporaryFile::open(path);
        hash.reset(new FollowingHash(sha256, file, work));
    }

    void append(const QByteArray &bytes)
    {
        file->write(file->size(), bytes);
        hash->follow(file->size());
    }
    QByteArray finish()
    {
        QEventLoop loop;
        QByteArray result;
        hash->finish(file->size(), [&](const QByteArray &digest) {
            result = digest;
            loop.quit();
        });
        loop.exec();
        return result;
    }

    const QTemporaryDir directory;
    const QString path = directory.filePath("file");
    QSharedPointer<BackgroundWork> work = QSharedPointer<BackgroundWork>::create();
    QSharedPointer<TemporaryFile> file;
    QScopedPointer<FollowingHash> hash;
};

} // namespace

class tst_ContentHash : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void parsed_data();
    void parsed();
    void refused_data();
    void refused();
    void finish_data();
    void finish();
    void followsAFileThatGrows();
    void beginsAgain();
    void finishesLater();
    void tellsWhatCannotBeRead();
    void mayBeDestroyedByWhomItCalls();
    void forgetsWhenItEnds();
};

void tst_ContentHash::parsed_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<Algorithm>("algorithm");
    const struct {
        const char *name;
        Algorithm algorithm;
    } kinds[] = {{"sha256", sha256},
                 {"sha512", QCryptographicHash::Sha512},
                 {"sha1", QCryptographicHash::Sha1},
                 {"md5", QCryptographicHash::Md5}};
    for (const auto &kind : kinds) {
        const QString name = kind.name;
        const QString hex = QCryptographicHash::hash("content", kind.algorithm).toHex();
        const auto row = [&](const char *what, const QString &text) {
            QTest::addRow("%s, %s", kind.name, what) << text << kind.algorithm;
        };
        row("by length", hex);
        row("in capitals", hex.toUpper());
        row("by name", name + ':' + hex);
        row("by name in capitals", name.toUpper() + ':' + hex.toUpper());
        row("between blanks", " \t" + hex + "\n ");
        row("by name between blanks", " " + name + ':' + hex + " ");
    }
}

void tst_ContentHash::parsed()
{
    QFETCH(const QString, text);
    QFETCH(const Algorithm, algorithm);
    const std::optional<ContentHash> hash = ContentHash::parsed(text);
    QVERIFY(hash.has_value());
    QCOMPARE(hash->algorithm, algorithm);
    QCOMPARE(hash->digest, QCryptographicHash::hash("content", algorithm));
}

void tst_ContentHash::refused_data()
{
    QTest::addColumn<QString>("text");
    const QString hex(64, 'a');
    QTest::newRow("empty") << QString();
    QTest::newRow("blank") << QString("  ");
    QTest::newRow("a word") << QString("nonsense");
    QTest::newRow("a digit short") << hex.mid(1);
    QTest::newRow("a digit more") << hex + 'a';
    QTest::newRow("no digit") << hex.mid(1) + 'g';
    QTest::newRow("a digit of another script") << hex.mid(1) + QChar(0x0663);
    QTest::newRow("a blank inside") << hex.left(32) + ' ' + hex.mid(33);
    QTest::newRow("length of another") << "sha1:" + hex;
    QTest::newRow("name of another") << "sha512:" + hex;
    QTest::newRow("unknown name") << "sha384:" + QString(96, 'a');
    QTest::newRow("unknown length") << QString(96, 'a');
    QTest::newRow("name alone") << QString("sha256:");
    QTest::newRow("name twice") << "sha256:sha256:" + hex;
    QTest::newRow("a blank behind the name") << "sha256: " + hex;
}

void tst_ContentHash::refused()
{
    QFETCH(const QString, text);
    QVERIFY(!ContentHash::parsed(text).has_value());
}

void tst_ContentHash::finish_data()
{
    QTest::addColumn<qint64>("size");
    const QList<qint64> sizes{0, 1, MiB - 1, MiB, MiB + 1, 5 * MiB + 7};
    for (const qint64 size : sizes)
        QTest::addRow("%lld bytes", size) << size;
}

void tst_ContentHash::finish()
{
    QFETCH(const qint64, size);
    const QByteArray content = HttpResponse::generated(0, size);
    Bench bench(content);
    QCOMPARE(bench.finish(), digestOf(content));
}

void tst_ContentHash::followsAFileThatGrows()
{
    Bench bench("old");
    QByteArray content("old");
    for (int piece = 0; piece < 50; ++piece) {
        const QByteArray bytes = HttpResponse::generated(content.size(), 100000);
        content += bytes;
        bench.append(bytes);
        QCoreApplication::processEvents();
    }
    QCOMPARE(bench.finish(), digestOf(content));
}

void tst_ContentHash::beginsAgain()
{
    Bench bench;
    for (int attempt = 0; attempt < 5; ++attempt) {
        bench.append(HttpResponse::generated(attempt, 4 * MiB));
        bench.file->truncate(0);
        bench.hash->restart();
    }
    bench.append("new");
    QCOMPARE(bench.finish(), digestOf("new"));
    bench.file->truncate(0);
    bench.hash->restart();
    bench.append("newer");
    QCOMPARE(bench.finish(), digestOf("newer"));
}

void tst_ContentHash::finishesLater()
{
    Bench bench("content");
    QCOMPARE(bench.finish(), digestOf("content"));
    // Nothing is left to be read, and still.
    int calls = 0;
    bench.hash->finish(7, [&](const QByteArray &) { ++calls; });
    QCOMPARE(calls, 0);
    QTRY_COMPARE(calls, 1);
}

void tst_ContentHash::tellsWhatCannotBeRead()
{
    Bench bench("content");
    bench.hash->follow(100);
    QCOMPARE(bench.finish(), QByteArray());
}

void tst_ContentHash::mayBeDestroyedByWhomItCalls()
{
    Bench bench("content");
    bench.hash->finish(7, [&](const QByteArray &) { bench.hash.reset(); });
    QTRY_VERIFY(bench.hash.isNull());
}

void tst_ContentHash::forgetsWhenItEnds()
{
    Bench bench(HttpResponse::generated(0, 16 * MiB));
    int calls = 0;
    bench.hash->finish(16 * MiB, [&](const QByteArray &) { ++calls; });
    bench.hash.reset();
    bench.work.reset();
    QCoreApplication::processEvents();
    QCOMPARE(calls, 0);
}

const TestClass<tst_ContentHash> testClass("tst_contenthash");

} // namespace tst_contenthash

#include "tst_contenthash.moc"
