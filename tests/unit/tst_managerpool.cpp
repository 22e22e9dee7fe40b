#include "managerpool_p.h"
#include "traditionalrules_p.h"

#include <QtCore/QPointer>
#include <QtCore/QScopedPointer>
#include <QtNetwork/QNetworkCookieJar>
#include <QtTest/QTest>

#include <algorithm>

namespace {

// Generous: what is idle stays for some seconds.
constexpr int patience = 60000;

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
        m_made.append(TraditionalRules::newManager());
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

/// A pool, and the downloads that it was asked to place.
struct Stage {
    explicit Stage(int threads)
        : rules(threads)
        , pool(new ManagerPool(rules))
    {
    }

    Manager primary() const { return pool->primary().data(); }
    /// Starts a download.
    Manager download()
    {
        running.append(pool->forDownload(running));
        return running.last();
    }
    void download(int count)
    {
        for (int i = 0; i < count; ++i)
            download();
    }
    QSet<Manager> used() const { return {running.begin(), running.end()}; }

    CountingRules rules;
    QScopedPointer<ManagerPool> pool;
    QList<Manager> running;
};

/// Whose jar a client has.
enum class Owner { Client, Nobody, Application };

} // namespace

Q_DECLARE_METATYPE(Owner)

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
    QCOMPARE(stage.used().size(), expected);
    QCOMPARE(stage.rules.made(), expected);
    QVERIFY(stage.used().contains(stage.primary()));
    const QSet<Manager> used = stage.used();
    for (Manager manager : used) {
        const int load = stage.running.count(manager);
        QVERIFY(load == downloads / expected || load == downloads / expected + 1);
        QCOMPARE(manager->cookieJar(), stage.pool->cookieJar());
    }
}

void tst_ManagerPool::takesTheLeastBusy()
{
    Stage stage(3);
    stage.download(9);
    Manager leaving = stage.running.at(1);
    stage.running.removeOne(leaving);
    QCOMPARE(stage.download(), leaving);
}

void tst_ManagerPool::reusesTheIdle()
{
    Stage stage(5);
    stage.download(2);
    const Manager second = stage.running.last();
    stage.running.removeLast();
    QCOMPARE(stage.download(), second);
    stage.running.removeFirst();
    QCOMPARE(stage.download(), stage.primary());
    QCOMPARE(stage.rules.made(), 2);
}

void tst_ManagerPool::avoidsTheDistrusted()
{
    Stage stage(3);
    stage.download(3);
    const Manager distrusted = stage.running.takeAt(1);
    stage.pool->distrust(distrusted);
    QVERIFY(!stage.pool->isPrimaryDistrusted());
    stage.download(10);
    QVERIFY(!stage.used().contains(distrusted));
    // It has a thread as long as it is there.
    QCOMPARE(stage.rules.made(), 3);

    stage.pool->dropUnused(stage.used());
    stage.download();
    QCOMPARE(stage.rules.made(), 4);
}

void tst_ManagerPool::countsTheReplaced()
{
    Stage stage(2);
    const Manager replaced = stage.download();
    stage.pool->replacePrimary();
    stage.download(3);
    QCOMPARE(stage.running.count(stage.primary()), 3);
    QCOMPARE(stage.rules.made(), 2);

    stage.running.removeOne(replaced);
    stage.pool->dropUnused(stage.used());
    stage.download();
    QCOMPARE(stage.used().size(), 2);
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
    stage.pool->dropUnused({});
    QTRY_COMPARE(stage.rules.alive(), 3);
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
        const QSet<Manager> used = stage.used();
        for (const Manager manager : used)
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
    stage.pool->distrust(stage.running.last());
    stage.pool->replacePrimary();
    stage.pool->dropUnused(stage.used());
    QCoreApplication::processEvents();
    QCOMPARE(stage.rules.alive(), 6);
}

// But not while one of its replies may be on the call stack.
void tst_ManagerPool::dropsTheDistrusted()
{
    Stage stage(2);
    stage.download(2);
    const QPointer<QNetworkAccessManager> distrusted = stage.running.last();
    stage.pool->distrust(distrusted);
    stage.pool->dropUnused({});
    QVERIFY(distrusted);
    QTRY_VERIFY(!distrusted);
    QVERIFY(stage.primary());

    stage.pool->distrust(stage.primary());
    stage.pool->dropUnused({});
    QCOMPARE(stage.rules.alive(), 1);
    QVERIFY(stage.pool->isPrimaryDistrusted());
}

void tst_ManagerPool::dropsTheIdle()
{
    Stage stage(3);
    stage.download(3);
    const Manager kept = stage.running.last();
    QTRY_VERIFY_WITH_TIMEOUT(stage.pool->nextDrop().hasExpired(), patience);
    stage.pool->dropUnused({kept});
    QTRY_COMPARE(stage.rules.alive(), 2);
    stage.running = {stage.primary()};
    QCOMPARE(stage.download(), kept);
    QTRY_VERIFY_WITH_TIMEOUT(stage.pool->nextDrop().hasExpired(), patience);
    stage.pool->dropUnused({});
    QTRY_COMPARE(stage.rules.alive(), 1);
    QVERIFY(stage.primary());
}

void tst_ManagerPool::tellsTheNextDrop()
{
    Stage stage(2);
    QVERIFY(stage.pool->nextDrop().isForever());
    stage.download(2);
    QVERIFY(!stage.pool->nextDrop().isForever());
    stage.pool->distrust(stage.running.last());
    stage.pool->dropUnused({});
    QVERIFY(stage.pool->nextDrop().isForever());
    // The replaced one may go at once.
    stage.pool->replacePrimary();
    QVERIFY(stage.pool->nextDrop().hasExpired());
}

QTEST_GUILESS_MAIN(tst_ManagerPool)

#include "tst_managerpool.moc"
