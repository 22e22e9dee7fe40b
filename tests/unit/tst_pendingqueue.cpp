#include "pendingqueue_p.h"
#include "recordfields.h"
#include "testclass.h"

#include <QtCore/QSet>
#include <QtNetwork/QSslConfiguration>
#include <QtTest/QTest>

#include <algorithm>
#include <functional>
#include <iterator>
#include <random>

Q_DECLARE_METATYPE(std::function<ReplyData(int)>)

namespace tst_pendingqueue {

namespace {

/// What the queue does, said in the plainest way.
class NaiveQueue {
public:
    bool isEmpty() const { return m_records.isEmpty(); }
    int size() const { return m_records.size(); }
    bool contains(const ReplyData &record) const { return m_records.contains(record); }
    void append(const ReplyData &record) { m_records.append(record); }
    ReplyData takeFirst() { return m_records.takeFirst(); }

    void removePath(const QString &path)
    {
        const auto hasPath = [&path](const ReplyData &record) {
            return record.request.url().path(QUrl::FullyDecoded) == path;
        };
        m_records.erase(std::remove_if(m_records.begin(), m_records.end(), hasPath),
                        m_records.end());
    }

private:
    QList<ReplyData> m_records;
};

ReplyData tagged(int tag, const QString &url = QString())
{
    ReplyData record;
    record.tag = tag;
    record.request = QNetworkRequest(QUrl(url));
    return record;
}

QList<int> drainedTags(PendingQueue &queue)
{
    QList<int> tags;
    while (!queue.isEmpty())
        tags.append(queue.takeFirst().tag);
    return tags;
}

// Few values, so that records often are equal and paths often meet.
ReplyData randomRecord(std::mt19937 &random)
{
    ReplyData record = tagged(int(random() % 4));
    recordfields::all[random() % std::size(recordfields::all)].set(record, int(random() % 4));
    return record;
}

using Build = std::function<ReplyData(int)>;

int largestBucket(const Build &build, int count, uint buckets)
{
    QVector<int> load(int(buckets), 0);
    for (int i = 1; i <= count; ++i)
        ++load[int(qHash(build(i)) % buckets)];
    return *std::max_element(load.begin(), load.end());
}

int differentHashes(const Build &build, int count)
{
    QSet<uint> hashes;
    for (int i = 1; i <= count; ++i)
        hashes.insert(qHash(build(i)));
    return hashes.size();
}

// A download as a client builds it: its texts have much in common.
ReplyData download(int number)
{
    const QString name = QStringLiteral("item-%1.bin").arg(number);
    ReplyData record;
    record.replyType = replies::remote_binary;
    record.fileData.filePath = "/data/" + name;
    record.fileData.tempFilePath = "/tmp/" + name + ".vtxdownload";
    record.fileData.size = quint64(number);
    record.request = QNetworkRequest(QUrl("https://127.0.0.1:8443/content/" + name));
    record.request.setRawHeader("Connection", "close");
    return record;
}

} // namespace

class tst_PendingQueue : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startsEmpty();
    void findsDuplicates_data();
    void findsDuplicates();
    void comparesWholeRecords();
    void keepsEqualRecords();
    void removePath_data();
    void removePath();
    void behavesLikeTheNaiveQueue_data();
    void behavesLikeTheNaiveQueue();
    void holdsManyRecords_data();
    void holdsManyRecords();
    void equalRecordsHaveEqualHashes_data();
    void equalRecordsHaveEqualHashes();
    void theSeedCounts();
    void hashLooksAtTheHeaders();
    void hashSpreads_data();
    void hashSpreads();
};

void tst_PendingQueue::startsEmpty()
{
    PendingQueue queue;
    QVERIFY(queue.isEmpty());
    QCOMPARE(queue.size(), 0);
    QVERIFY(!queue.contains(ReplyData()));
    queue.removePath("/nothing");
    queue.removePath(QString());
    QVERIFY(queue.isEmpty());
}

void tst_PendingQueue::findsDuplicates_data()
{
    QTest::addColumn<int>("field");
    for (int field = 0; field < int(std::size(recordfields::all)); ++field)
        QTest::newRow(recordfields::all[field].name) << field;
}

void tst_PendingQueue::findsDuplicates()
{
    QFETCH(int, field);
    PendingQueue queue;
    queue.append(recordfields::filled(1));

    ReplyData record = recordfields::filled(1);
    QVERIFY(queue.contains(record));
    recordfields::all[field].set(record, 2);
    QVERIFY(!queue.contains(record));
    queue.append(record);
    QVERIFY(queue.contains(record));
    recordfields::all[field].set(record, 0);
    QVERIFY(!queue.contains(record));
}

// The hash leaves out the attributes; what it leaves out, the comparison still sees.
void tst_PendingQueue::comparesWholeRecords()
{
    PendingQueue queue;
    ReplyData record = tagged(1, "http://127.0.0.1/a");
    queue.append(record);
    record.request.setAttribute(QNetworkRequest::User, 7);
    QCOMPARE(qHash(record), qHash(tagged(1, "http://127.0.0.1/a")));
    QVERIFY(!queue.contains(record));
    queue.append(record);
    QVERIFY(queue.contains(record));
    QVERIFY(queue.contains(tagged(1, "http://127.0.0.1/a")));
}

void tst_PendingQueue::keepsEqualRecords()
{
    PendingQueue queue;
    for (const int tag : {1, 2, 1, 1})
        queue.append(tagged(tag));
    QCOMPARE(queue.size(), 4);
    queue.takeFirst();
    QVERIFY(queue.contains(tagged(1)));
    QCOMPARE(drainedTags(queue), QList<int>({2, 1, 1}));
    QVERIFY(!queue.contains(tagged(1)));
}

void tst_PendingQueue::removePath_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QList<int>>("left");
    QTest::newRow("one") << "/b" << QList<int>({0, 1, 3, 4, 5, 6});
    QTest::newRow("several, whatever the host and query") << "/a" << QList<int>({2, 4, 5, 6});
    QTest::newRow("decoded") << "/d e" << QList<int>({0, 1, 2, 3, 5, 6});
    QTest::newRow("not encoded") << "/d%20e" << QList<int>({0, 1, 2, 3, 4, 5, 6});
    QTest::newRow("case matters") << "/A" << QList<int>({0, 1, 2, 3, 4, 5, 6});
    QTest::newRow("not a part") << "/" << QList<int>({0, 1, 2, 3, 4, 5, 6});
    QTest::newRow("unknown") << "/x" << QList<int>({0, 1, 2, 3, 4, 5, 6});
    QTest::newRow("deeper") << "/a/b" << QList<int>({0, 1, 2, 3, 4, 6});
    QTest::newRow("empty") << QString() << QList<int>({0, 1, 2, 3, 4, 5});
}

void tst_PendingQueue::removePath()
{
    QFETCH(QString, path);
    QFETCH(QList<int>, left);

    PendingQueue queue;
    const char *const urls[] = {
        "http://127.0.0.1/a",
        "https://127.0.0.2/a?query",
        "http://127.0.0.1/b",
        "http://127.0.0.1/a#fragment",
        "http://127.0.0.1/d%20e",
        "http://127.0.0.1/a/b",
        "",
    };
    for (int tag = 0; tag < int(std::size(urls)); ++tag)
        queue.append(tagged(tag, urls[tag]));

    queue.removePath(path);
    QCOMPARE(queue.size(), left.size());
    QCOMPARE(drainedTags(queue), left);
}

void tst_PendingQueue::behavesLikeTheNaiveQueue_data()
{
    QTest::addColumn<uint>("seed");
    for (uint seed = 1; seed <= 20; ++seed)
        QTest::addRow("seed %u", seed) << seed;
}

void tst_PendingQueue::behavesLikeTheNaiveQueue()
{
    QFETCH(uint, seed);
    std::mt19937 random(seed);
    PendingQueue queue;
    NaiveQueue model;

    int drained = 0;
    for (int step = 0; step < 1500; ++step) {
        const ReplyData record = randomRecord(random);
        QCOMPARE(queue.contains(record), model.contains(record));
        const uint choice = random() % 20;
        if (choice < 6) {
            queue.append(record);
            model.append(record);
        } else if (choice < 11) {
            const bool isNew = !model.contains(record);
            QCOMPARE(queue.appendNew(record), isNew);
            if (isNew)
                model.append(record);
        } else if (choice < 19 && !model.isEmpty()) {
            QVERIFY(queue.takeFirst() == model.takeFirst());
        } else {
            const QString path = record.request.url().path();
            queue.removePath(path);
            model.removePath(path);
        }
        QCOMPARE(queue.size(), model.size());
        QCOMPARE(queue.isEmpty(), model.isEmpty());
        drained += model.isEmpty() ? 1 : 0;
    }
    QVERIFY(drained > 0);
    while (!model.isEmpty())
        QVERIFY(queue.takeFirst() == model.takeFirst());
    QVERIFY(queue.isEmpty());
}

void tst_PendingQueue::holdsManyRecords_data()
{
    QTest::addColumn<Build>("build");
    QTest::addColumn<int>("count");
    QTest::newRow("different") << Build(&download) << 100000;
    QTest::newRow("of one path") << Build([](int i) { return tagged(i, "http://127.0.0.1/a"); })
                                 << 20000;
    QTest::newRow("equal") << Build([](int) { return tagged(1, "http://127.0.0.1/a"); }) << 20000;
}

// A cost that grew with the square of the length would keep this from ever ending.
void tst_PendingQueue::holdsManyRecords()
{
    QFETCH(Build, build);
    QFETCH(int, count);
    PendingQueue queue;
    QStringList paths;
    int known = 0;
    for (int i = 0; i < count; ++i) {
        const ReplyData record = build(i);
        known += queue.contains(record) ? 1 : 0;
        queue.append(record);
        paths.append(record.request.url().path());
    }
    QCOMPARE(queue.size(), count);
    QCOMPARE(known, build(1) == build(2) ? count - 1 : 0);

    for (int i = 0; i < count / 2; ++i)
        QCOMPARE(queue.takeFirst().request.url().path(), paths.takeFirst());
    for (const QString &path : qAsConst(paths))
        queue.removePath(path);
    QVERIFY(queue.isEmpty());
}

void tst_PendingQueue::equalRecordsHaveEqualHashes_data()
{
    QTest::addColumn<ReplyData>("left");
    QTest::addColumn<ReplyData>("right");
    QTest::newRow("new") << ReplyData() << ReplyData();
    QTest::newRow("filled") << recordfields::filled(1) << recordfields::filled(1);

    ReplyData null;
    ReplyData empty;
    empty.data = QByteArray("");
    empty.replyType = QLatin1String("");
    empty.fileData.filePath = QLatin1String("");
    QTest::newRow("null and empty texts") << null << empty;

    ReplyData secured = recordfields::filled(1);
    QSslConfiguration configuration;
    configuration.setPeerVerifyDepth(7);
    secured.request.setSslConfiguration(configuration);
    QTest::newRow("SSL configuration") << recordfields::filled(1) << secured;
    QTest::newRow("case of the host")
        << tagged(1, "http://LOCALHOST/a") << tagged(1, "HTTP://localhost/a");
    QTest::newRow("encoding of the path")
        << tagged(1, "http://localhost/%61") << tagged(1, "http://localhost/a");
}

void tst_PendingQueue::equalRecordsHaveEqualHashes()
{
    QFETCH(ReplyData, left);
    QFETCH(ReplyData, right);
    QVERIFY(left == right);
    QCOMPARE(qHash(left), qHash(right));
    QCOMPARE(qHash(left, 5), qHash(right, 5));
}

void tst_PendingQueue::theSeedCounts()
{
    QVERIFY(qHash(ReplyData()) != 0);
    QVERIFY(qHash(recordfields::filled(1), 1) != qHash(recordfields::filled(1), 2));
    QCOMPARE(qHash(recordfields::filled(1)), qHash(recordfields::filled(1), 0));
}

void tst_PendingQueue::hashLooksAtTheHeaders()
{
    ReplyData record = recordfields::filled(1);
    record.request.setRawHeader("Range", "bytes=1-");
    const uint first = qHash(record);
    QVERIFY(first != qHash(recordfields::filled(1)));
    record.request.setRawHeader("Range", "bytes=2-");
    QVERIFY(first != qHash(record));
}

void tst_PendingQueue::hashSpreads_data()
{
    QTest::addColumn<Build>("build");
    for (const recordfields::Field &field : recordfields::all) {
        QTest::newRow(field.name) << Build([set = field.set](int number) {
            ReplyData record;
            set(record, number);
            return record;
        });
    }
    QTest::newRow("every field") << Build(&recordfields::filled);
    QTest::newRow("downloads") << Build(&download);
}

// Ten thousand balls thrown at random into sixteen thousand buckets leave at most seven or so in
// one of them; a hash that ignores something puts all of them there.
void tst_PendingQueue::hashSpreads()
{
    QFETCH(Build, build);
    const int count = 10000;
    QVERIFY(differentHashes(build, count) > count - 10);
    QVERIFY(largestBucket(build, count, 16411) <= 12);
    QVERIFY(largestBucket(build, count, 16384) <= 12);
}

const TestClass<tst_PendingQueue> testClass("tst_pendingqueue");

} // namespace tst_pendingqueue

#include "tst_pendingqueue.moc"
