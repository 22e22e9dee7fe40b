#include "fakereply.h"
#include "lifetime_p.h"
#include "logcapture.h"
#include "testclass.h"

#include <QtCore/QEventLoop>
#include <QtCore/QScopedPointer>
#include <QtCore/QSemaphore>
#include <QtCore/QTimer>
#include <QtCore/QWeakPointer>
#include <QtTest/QTest>

#include <functional>
#include <thread>

namespace tst_lifetime {

namespace {

using Manager = QSharedPointer<QNetworkAccessManager>;

/// Owns a manager as the client and the probe do.
class Owner : public QObject {
public:
    Manager manager = Manager::create();
};

/// Runs \a body below an event loop, as everything in an application is.
void runInLoop(const std::function<void()> &body)
{
    QEventLoop loop;
    QTimer::singleShot(0, &loop, [&body, &loop] {
        body();
        loop.quit();
    });
    loop.exec();
}

/// Lets the running or a new event loop handle what is waiting.
void passALoop()
{
    QEventLoop loop;
    QTimer::singleShot(0, &loop, &QEventLoop::quit);
    loop.exec();
}

/// As a receiver does that deletes the object whose signal it hears.
void dieInACall(Owner *owner)
{
    const ActiveCall call(owner, owner->manager);
    delete owner;
    QVERIFY(call.ownerGone());
}

QSharedPointer<QRecursiveMutex> newMutex()
{
    return QSharedPointer<QRecursiveMutex>::create();
}

bool isFreeElsewhere(QRecursiveMutex &mutex)
{
    bool taken = false;
    std::thread([&mutex, &taken] {
        taken = mutex.tryLock();
        if (taken)
            mutex.unlock();
    }).join();
    return taken;
}

} // namespace

class tst_Lifetime : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void tellsThatTheOwnerLives();
    void livingOwnerReleasesItsManager();
    void everyCallOfANestTells();
    void keepsTheManagerUntilTheEventLoop();
    void keepsTheManagerWithoutAnEventLoop();
    void keepsTheManagerThroughANestedLoop();
    void keepsTheManagerWhenTheOwnerDiesInANestedLoop();
    void keepsTheReplyThatIsEmitting();
    void aSharedManagerGoesOn();
    void needsNoManager();

    void locksAsOftenAsTheThreadWants();
    void failsWhenAnotherThreadHoldsTheLock();
    void waitsForTheLock();
    void mutexOutlivesItsOwner();
};

void tst_Lifetime::tellsThatTheOwnerLives()
{
    Owner owner;
    const ActiveCall call(&owner, owner.manager);
    QVERIFY(!call.ownerGone());
    passALoop();
    QVERIFY(!call.ownerGone());
}

void tst_Lifetime::livingOwnerReleasesItsManager()
{
    Owner owner;
    const QWeakPointer<QNetworkAccessManager> manager = owner.manager;
    {
        const ActiveCall call(&owner, owner.manager);
        owner.manager.reset();
        QVERIFY(manager);
    }
    QVERIFY(!manager);
}

void tst_Lifetime::everyCallOfANestTells()
{
    auto *owner = new Owner;
    const QWeakPointer<QNetworkAccessManager> manager = owner->manager;
    runInLoop([owner, &manager] {
        const ActiveCall outer(owner, owner->manager);
        {
            const ActiveCall inner(owner, owner->manager);
            delete owner;
            QVERIFY(inner.ownerGone());
        }
        QVERIFY(outer.ownerGone());
        QVERIFY(manager);
    });
    passALoop();
    QVERIFY(!manager);
}

void tst_Lifetime::keepsTheManagerUntilTheEventLoop()
{
    auto *owner = new Owner;
    const QWeakPointer<QNetworkAccessManager> manager = owner->manager;
    bool keptAfterTheCall = false;
    QEventLoop loop;
    connect(owner->manager.data(), &QObject::destroyed, &loop, &QEventLoop::quit);
    QTimer::singleShot(0, &loop, [owner, &manager, &keptAfterTheCall] {
        dieInACall(owner);
        keptAfterTheCall = !manager.isNull();
    });
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    loop.exec();

    QVERIFY(keptAfterTheCall);
    QVERIFY(!manager);
}

// Before the application's own event loop runs there is none to wait for but the next.
void tst_Lifetime::keepsTheManagerWithoutAnEventLoop()
{
    auto *owner = new Owner;
    const QWeakPointer<QNetworkAccessManager> manager = owner->manager;
    dieInACall(owner);
    QVERIFY(manager);
    passALoop();
    QVERIFY(!manager);
}

// Whoever is on the call stack below us may run an event loop of its own before it is done.
void tst_Lifetime::keepsTheManagerThroughANestedLoop()
{
    auto *owner = new Owner;
    const QWeakPointer<QNetworkAccessManager> manager = owner->manager;
    bool keptBehindTheNestedLoop = false;
    runInLoop([owner, &manager, &keptBehindTheNestedLoop] {
        dieInACall(owner);
        passALoop();
        keptBehindTheNestedLoop = !manager.isNull();
    });
    passALoop();

    QVERIFY(keptBehindTheNestedLoop);
    QVERIFY(!manager);
}

void tst_Lifetime::keepsTheManagerWhenTheOwnerDiesInANestedLoop()
{
    auto *owner = new Owner;
    const QWeakPointer<QNetworkAccessManager> manager = owner->manager;
    bool keptInTheOuterCall = false;
    bool keptBehindTheOuterCall = false;
    runInLoop([&] {
        {
            const ActiveCall outer(owner, owner->manager);
            runInLoop([owner] { dieInACall(owner); });
            passALoop();
            keptInTheOuterCall = outer.ownerGone() && manager;
        }
        keptBehindTheOuterCall = !manager.isNull();
    });
    passALoop();

    QVERIFY(keptInTheOuterCall);
    QVERIFY(keptBehindTheOuterCall);
    QVERIFY(!manager);
}

// A reply dies with its manager, and here it is still emitting.
void tst_Lifetime::keepsTheReplyThatIsEmitting()
{
    auto *owner = new Owner;
    auto *reply = new FakeReply(QUrl(), owner->manager.data());
    const QPointer<FakeReply> watched = reply;
    connect(reply, &QNetworkReply::finished, this, [owner] { dieInACall(owner); });
    runInLoop([reply, &watched] {
        reply->finish();
        QVERIFY(watched);
    });
    passALoop();
    QVERIFY(!watched);
}

void tst_Lifetime::aSharedManagerGoesOn()
{
    const Manager manager = Manager::create();
    const QPointer<QNetworkAccessManager> watched = manager.data();
    auto *owner = new Owner;
    owner->manager = manager;
    runInLoop([owner] { dieInACall(owner); });
    passALoop();
    QVERIFY(watched);
}

void tst_Lifetime::needsNoManager()
{
    auto *owner = new QObject;
    runInLoop([owner] {
        const ActiveCall call(owner, Manager());
        QVERIFY(!call.ownerGone());
        delete owner;
        QVERIFY(call.ownerGone());
    });
    passALoop();
}

void tst_Lifetime::locksAsOftenAsTheThreadWants()
{
    const auto mutex = newMutex();
    {
        const QueueLock outer(mutex, 0);
        QVERIFY(outer.isLocked());
        {
            const QueueLock inner(mutex, 0);
            QVERIFY(inner.isLocked());
        }
        QVERIFY(!isFreeElsewhere(*mutex));
    }
    QVERIFY(isFreeElsewhere(*mutex));
}

void tst_Lifetime::failsWhenAnotherThreadHoldsTheLock()
{
    const auto mutex = newMutex();
    QSemaphore locked;
    QSemaphore mayUnlock;
    std::thread holder([&] {
        mutex->lock();
        locked.release();
        mayUnlock.acquire();
        mutex->unlock();
    });
    locked.acquire();
    bool wasLocked = true;
    {
        const QueueLock lock(mutex, 1);
        wasLocked = lock.isLocked();
    }
    // A lock that failed must not take the other one away at its end.
    const bool freeBehindIt = isFreeElsewhere(*mutex);
    mayUnlock.release();
    holder.join();

    QVERIFY(!wasLocked);
    QVERIFY(!freeBehindIt);
    QVERIFY(isFreeElsewhere(*mutex));
}

void tst_Lifetime::waitsForTheLock()
{
    const auto mutex = newMutex();
    QSemaphore locked;
    std::thread holder([&] {
        mutex->lock();
        locked.release();
        mutex->unlock();
    });
    locked.acquire();
    const QueueLock lock(mutex, 10000);
    holder.join();
    QVERIFY(lock.isLocked());
}

// Qt takes the deletion of a locked mutex for a fatal mistake.
void tst_Lifetime::mutexOutlivesItsOwner()
{
    LogCapture log;
    auto mutex = newMutex();
    const QWeakPointer<QRecursiveMutex> watched = mutex;
    {
        const QueueLock outer(mutex, 0);
        {
            const QueueLock inner(mutex, 0);
            mutex.reset();
        }
        QVERIFY(watched);
        QVERIFY(!isFreeElsewhere(*watched.toStrongRef()));
    }
    QVERIFY(!watched);
    QCOMPARE(log.texts(), QStringList());
}

const TestClass<tst_Lifetime> testClass("tst_lifetime");

} // namespace tst_lifetime

#include "tst_lifetime.moc"
