#include "fakemanager.h"
#include "managerpool_p.h"
#include "testclass.h"
#include "traditionalrules_p.h"

#include <QtCore/QPointer>
#include <QtCore/QScopedPointer>
#include <QtNetwork/QNetworkCookieJar>
#include <QtTest/QTest>

#include <algorithm>

namespace tst_managerpool {

namespace {

// Generous: what is idle stays for some seconds.
constexpr int patience = 60000;

// As many requests nginx serves on one connection.
constexpr int servedByConnection = 1000;

using Manager = QNetworkAccessManager *;

/// Keeps track of what a pool makes.
class CountingRules : public TraditionalRules {
public:
    explicit CountingRules(int threads)
        : m_threads(threads)
    {
    }

    int downloadThreads() const override { return m_threads; }
    QNetworkAccessManager *newManager() const override
    {
        m_made.append(new FakeManager);
        return m_made.last();
    }

    int made() const { return m_made.size(); }
    int alive() const
    {
        return int(std::count_if(m_made.begin(), m_made.end(),
                                 [](const auto &manager) { return !manager.isNull(); }));
    }

private:
    const int m_threads;
    mutable QList<QPointer<QNetworkAccessManager>> m_made;
};

/// A pool, and the downloads that it has placed.
struct Stage {
    explicit Stage(int threads)
        : rules(threads)
        , pool(new ManagerPool(rules))
    {
    }

    Manager primary() const { return pool->primary().data(); }
    Manager download()
    {
        const Manager manager = pool->forDownload(used);
        replies.append(manager->get(QNetworkRequest()));
        used.append(manager);
        return manager;
    }
    void download(int count)
    {
        for (int i = 0; i < count; ++i)
            download();
    }
    void end(int index)
    {
        used.removeAt(index);
        delete replies.takeAt(index);
    }
    void endAll()
    {
        while (!used.isEmpty())
            end(0);
    }
    int usedCount() const { return QSet<Manager>(used.begin(), used.end()).size(); }

    CountingRules rules;
    QScopedPointer<ManagerPool> pool;
    /// Of each download its manager, and its reply.
    QList<Manager> used;
    QList<QNetworkReply *> replies;
};

/// Whose jar a client has.
enum class Owner { Client, Nobody, Application };

} // namespace

} // namespace tst_managerpool

Q_DECLARE_METATYPE(tst_managerpool::Owner)

namespace tst_managerpool {

/// The managers of one client.
class tst_ManagerPool : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void beginsWithOne();
    void spreadsDownloads_data();
    void spreadsDownloads();
    void takesTheLeastBusy();
    void reusesTheIdle();
    void avoidsTheDistrusted();
    void countsTheReplaced();
    void replacesThePrimary();
    void replacesByWhatIsThere_data();
    void replacesByWhatIsThere();
    void replacesOnlyByTheTrusted();
    void toleratesStrangers();
    void givesUpHttp2BeforeTheServerDoes();
    void countsHttp2ForEachManager();
    void jarHasItsOwner_data();
    void jarHasItsOwner();
    void jarGoesWithItsPool_data() { jarHasItsOwner_data(); }
    void jarGoesWithItsPool();
    void takesAnotherJar();
    void keepsWhatIsUsed();
    void dropsTheDistrusted();
    void dropsTheIdle();
    void tellsTheNextDrop();
};

void tst_ManagerPool::beginsWithOne()
{
    const Stage stage(5);
    QVERIFY(stage.primary());
    QVERIFY(!stage.pool->isPrimaryDistrusted());
    QCOMPARE(stage.pool->cookieJar(), stage.primary()->cookieJar());
    QCOMPARE(stage.rules.made(), 1);
}

void tst_ManagerPool::spreadsDownloads_data()
{
    QTest::addColumn<int>("threads");
    QTest::addColumn<int>("downloads");
    for (const int threads : {1, 2, 3, 5}) {
        for (const int downloads : {1, 2, 3, 5, 20})
            QTest::addRow("%d downloads, %d threads", downloads, threads) << threads << downloads;
    }
}

void tst_ManagerPool::spreadsDownloads()
{
    QFETCH(const int, threads);
    QFETCH(const int, downloads);
    Stage stage(threads);
    stage.download(downloads);
    const int expected = std::min(threads, downloads);
    QCOMPARE(stage.usedCount(), expected);
    QCOMPARE(stage.rules.made(), expected);
    QVERIFY(stage.used.contains(stage.primary()));
    for (const Manager manager : qAsConst(stage.used)) {
        const int load = stage.used.count(manager);
        QVERIFY(load == downloads / expected || load == downloads / expected + 1);
        QCOMPARE(manager->cookieJar(), stage.pool->cookieJar());
    }
}

void tst_ManagerPool::takesTheLeastBusy()
{
    Stage stage(3);
    stage.download(9);
    const Manager relieved = stage.used.at(1);
    stage.end(1);
    QCOMPARE(stage.download(), relieved);
}

void tst_ManagerPool::reusesTheIdle()
{
    Stage stage(5);
    stage.download(2);
    const Manager second = stage.used.last();
    stage.end(1);
    QCOMPARE(stage.download(), second);
    stage.end(0);
    QCOMPARE(stage.download(), stage.primary());
    QCOMPARE(stage.rules.made(), 2);
}

void tst_ManagerPool::avoidsTheDistrusted()
{
    Stage stage(3);
    stage.download(3);
    const Manager distrusted = stage.used.at(1);
    stage.pool->distrust(distrusted);
    QVERIFY(!stage.pool->isPrimaryDistrusted());
    stage.download(10);
    QCOMPARE(stage.used.count(distrusted), 1);
    // It has a thread as long as that one is running.
    QCOMPARE(stage.rules.made(), 3);

    stage.end(1);
    stage.download();
    QCOMPARE(stage.rules.made(), 4);
    QCOMPARE(stage.rules.alive(), 3);
}

void tst_ManagerPool::countsTheReplaced()
{
    Stage stage(2);
    stage.download();
    stage.pool->replacePrimary();
    stage.download(3);
    QCOMPARE(stage.used.count(stage.primary()), 3);
    QCOMPARE(stage.rules.made(), 2);

    stage.end(0);
    stage.pool->dropUnused();
    stage.download();
    QCOMPARE(stage.usedCount(), 2);
}

void tst_ManagerPool::replacesThePrimary()
{
    Stage stage(1);
    const QPointer<QNetworkAccessManager> replaced = stage.primary();
    QNetworkCookieJar *const jar = stage.pool->cookieJar();
    stage.pool->distrust(replaced);
    QVERIFY(stage.pool->isPrimaryDistrusted());
    stage.pool->replacePrimary();
    QVERIFY(stage.primary() != replaced);
    QVERIFY(replaced);
    QVERIFY(!stage.pool->isPrimaryDistrusted());
    QCOMPARE(stage.pool->cookieJar(), jar);
    QCOMPARE(stage.download(), stage.primary());
}

void tst_ManagerPool::replacesByWhatIsThere_data()
{
    QTest::addColumn<int>("threads");
    QTest::addColumn<int>("made");
    QTest::newRow("nobody else") << 1 << 2;
    QTest::newRow("one more") << 2 << 2;
    QTest::newRow("four more") << 5 << 5;
}

// The downloads of the replaced one are still running.
void tst_ManagerPool::replacesByWhatIsThere()
{
    QFETCH(const int, threads);
    QFETCH(const int, made);
    Stage stage(threads);
    stage.download(2 * threads);
    const Manager replaced = stage.primary();
    stage.pool->replacePrimary();
    stage.download(2 * threads);
    QCOMPARE(stage.rules.made(), made);
    QCOMPARE(stage.used.count(replaced), 2);
    QVERIFY(stage.used.contains(stage.primary()));
}

void tst_ManagerPool::replacesOnlyByTheTrusted()
{
    Stage stage(3);
    stage.download(3);
    stage.pool->distrust(stage.used.at(1));
    stage.pool->replacePrimary();
    QCOMPARE(stage.primary(), stage.used.at(2));
    stage.pool->replacePrimary();
    QVERIFY(!stage.used.contains(stage.primary()));
    QVERIFY(!stage.pool->isPrimaryDistrusted());
}

void tst_ManagerPool::toleratesStrangers()
{
    Stage stage(2);
    stage.download(2);
    const FakeManager stranger;
    stage.pool->distrust(&stranger);
    stage.pool->countHttp2(&stranger);
    stage.pool->distrust(nullptr);
    stage.download(2);
    QCOMPARE(stage.usedCount(), 2);
    QVERIFY(!stage.pool->isPrimaryDistrusted());
}

void tst_ManagerPool::givesUpHttp2BeforeTheServerDoes()
{
    Stage stage(1);
    const Manager first = stage.primary();
    int count = 0;
    while (!stage.pool->isPrimaryDistrusted() && count < servedByConnection) {
        stage.pool->countHttp2(first);
        ++count;
    }
    // Rarely, because each costs a handshake; and those that run may be sent before it is replaced.
    QVERIFY(count > servedByConnection / 2);
    QVERIFY(count < servedByConnection - 10);

    stage.pool->replacePrimary();
    stage.pool->countHttp2(first);
    stage.pool->countHttp2(stage.primary());
    QVERIFY(!stage.pool->isPrimaryDistrusted());
}

void tst_ManagerPool::countsHttp2ForEachManager()
{
    Stage stage(1);
    const Manager replaced = stage.primary();
    stage.pool->replacePrimary();
    for (int i = 0; i < servedByConnection; ++i)
        stage.pool->countHttp2(replaced);
    QVERIFY(!stage.pool->isPrimaryDistrusted());
}

void tst_ManagerPool::jarHasItsOwner_data()
{
    QTest::addColumn<Owner>("owner");
    QTest::newRow("the client's") << Owner::Client;
    QTest::newRow("nobody's") << Owner::Nobody;
    QTest::newRow("the application's") << Owner::Application;
}

// One that the application has set is nobody's at first, and may then get another owner.
void tst_ManagerPool::jarHasItsOwner()
{
    QFETCH(const Owner, owner);
    Stage stage(3);
    QObject application;
    QNetworkCookieJar set;
    if (owner != Owner::Client)
        stage.pool->setCookieJar(&set);
    if (owner == Owner::Application)
        set.setParent(&application);
    QNetworkCookieJar *const jar = stage.pool->cookieJar();
    const auto isOwners = [&] {
        const QObject *const owners[] = {stage.primary(), nullptr, &application};
        return jar->parent() == owners[int(owner)];
    };
    QVERIFY(isOwners());
    stage.download(3);
    QVERIFY(isOwners());
    stage.pool->replacePrimary();
    QVERIFY(isOwners());
    stage.endAll();
    stage.pool->dropUnused();
    QCOMPARE(stage.rules.alive(), 2);
    QVERIFY(isOwners());
    QCOMPARE(stage.pool->cookieJar(), jar);
    set.setParent(nullptr);
}

void tst_ManagerPool::jarGoesWithItsPool()
{
    QFETCH(const Owner, owner);
    Stage stage(3);
    QObject application;
    const QPointer<QNetworkCookieJar> jar =
        owner == Owner::Client ? stage.pool->cookieJar() : new QNetworkCookieJar;
    if (owner != Owner::Client)
        stage.pool->setCookieJar(jar);
    if (owner == Owner::Application)
        jar->setParent(&application);
    stage.download(3);
    stage.pool->replacePrimary();
    stage.pool.reset();
    QCOMPARE(stage.rules.alive(), 0);
    QCOMPARE(jar.isNull(), owner == Owner::Client);
    delete jar;
}

void tst_ManagerPool::takesAnotherJar()
{
    Stage stage(3);
    stage.download(3);
    const QPointer<QNetworkCookieJar> own = stage.pool->cookieJar();
    QObject application;
    auto *const first = new QNetworkCookieJar(&application);
    auto *const second = new QNetworkCookieJar(&application);
    for (QNetworkCookieJar *jar : {first, second}) {
        stage.pool->setCookieJar(jar);
        QVERIFY(!jar->parent());
        for (const Manager manager : qAsConst(stage.used))
            QCOMPARE(manager->cookieJar(), jar);
    }
    QVERIFY(!own);
    // The one that was replaced is still there.
    first->setParent(&application);
    second->setParent(&application);
}

void tst_ManagerPool::keepsWhatIsUsed()
{
    Stage stage(5);
    stage.download(5);
    stage.pool->distrust(stage.used.last());
    stage.pool->replacePrimary();
    stage.pool->dropUnused();
    QCOMPARE(stage.rules.alive(), 5);
    // What was used just now is kept too, if it is trusted.
    stage.endAll();
    stage.pool->dropUnused();
    QCOMPARE(stage.rules.alive(), 3);
}

void tst_ManagerPool::dropsTheDistrusted()
{
    Stage stage(2);
    stage.download(2);
    const QPointer<QNetworkAccessManager> distrusted = stage.used.last();
    stage.pool->distrust(distrusted);
    stage.endAll();
    stage.pool->dropUnused();
    QVERIFY(!distrusted);

    stage.pool->distrust(stage.primary());
    stage.pool->dropUnused();
    QVERIFY(stage.primary());
    QVERIFY(stage.pool->isPrimaryDistrusted());
}

void tst_ManagerPool::dropsTheIdle()
{
    Stage stage(3);
    stage.download(3);
    const Manager kept = stage.used.last();
    stage.end(1);
    QTRY_VERIFY_WITH_TIMEOUT(stage.pool->nextDrop().hasExpired(), patience);
    stage.pool->dropUnused();
    QCOMPARE(stage.rules.alive(), 2);
    stage.end(1);
    QCOMPARE(stage.download(), kept);

    stage.endAll();
    QTRY_VERIFY_WITH_TIMEOUT(stage.pool->nextDrop().hasExpired(), patience);
    stage.pool->dropUnused();
    QCOMPARE(stage.rules.alive(), 1);
    QVERIFY(stage.primary());
}

void tst_ManagerPool::tellsTheNextDrop()
{
    Stage stage(2);
    QVERIFY(stage.pool->nextDrop().isForever());
    stage.download(2);
    QVERIFY(!stage.pool->nextDrop().isForever());
    stage.pool->distrust(stage.used.last());
    stage.endAll();
    stage.pool->dropUnused();
    QVERIFY(stage.pool->nextDrop().isForever());
    // The replaced one is to go too.
    stage.pool->replacePrimary();
    QVERIFY(!stage.pool->nextDrop().isForever());
}

const TestClass<tst_ManagerPool> testClass("tst_managerpool");

} // namespace tst_managerpool

#include "tst_managerpool.moc"
