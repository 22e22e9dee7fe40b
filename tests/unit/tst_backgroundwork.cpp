#include "backgroundwork_p.h"
#include "testclass.h"

#include <QtCore/QDir>
#include <QtCore/QEventLoop>
#include <QtCore/QScopedPointer>
#include <QtCore/QSemaphore>
#include <QtCore/QThread>
#include <QtTest/QTest>

#include <utility>

namespace tst_backgroundwork {

namespace {

void doNothing(const std::atomic_bool & /*isCancelled*/) {}

void waitUntilCancelled(const std::atomic_bool &isCancelled)
{
    while (!isCancelled)
        QThread::yieldCurrentThread();
}

/// Runs the event loop until all that \a work has been given so far is done.
void waitForAll(BackgroundWork &work)
{
    QEventLoop loop;
    work.run(&doNothing, [&] { loop.quit(); });
    loop.exec();
}

int threadCount()
{
    return QDir(QStringLiteral("/proc/self/task"))
        .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
        .size();
}

} // namespace

class tst_BackgroundWork : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void runsElsewhereAndReportsHere();
    void needsNoThreadOfTheApplication();
    void mayReportToNobody();
    void reportsNothingThatIsCancelled();
    void destroysElsewhereWhatAJobHolds();
    void endsWithWhoeverItCalls();
    void cancelsAllWhenItEnds();
    void letsGoOfIdleThreads();
};

void tst_BackgroundWork::runsElsewhereAndReportsHere()
{
    BackgroundWork work;
    const QThread *const here = QThread::currentThread();
    const QThread *ranIn = nullptr;
    const QThread *reportedIn = nullptr;
    const BackgroundWork::Ticket ticket =
        work.run([&](const std::atomic_bool &) { ranIn = QThread::currentThread(); },
                 [&] { reportedIn = QThread::currentThread(); });
    QVERIFY(reportedIn == nullptr);
    QTRY_VERIFY(reportedIn != nullptr);
    QVERIFY(reportedIn == here);
    QVERIFY(ranIn != nullptr);
    QVERIFY(ranIn != here);
    QVERIFY(!*ticket);
}

void tst_BackgroundWork::needsNoThreadOfTheApplication()
{
    QThreadPool *const pool = QThreadPool::globalInstance();
    const int before = pool->maxThreadCount();
    QSemaphore gate;
    pool->setMaxThreadCount(1);
    pool->start([&] { gate.acquire(); });
    BackgroundWork work;
    waitForAll(work);
    gate.release();
    pool->waitForDone();
    pool->setMaxThreadCount(before);
}

void tst_BackgroundWork::mayReportToNobody()
{
    BackgroundWork work;
    std::atomic_bool hasRun{false};
    work.run([&](const std::atomic_bool &) { hasRun = true; }, nullptr);
    QTRY_VERIFY(hasRun);
}

void tst_BackgroundWork::reportsNothingThatIsCancelled()
{
    BackgroundWork work;
    int reports = 0;
    const auto count = [&] { ++reports; };
    // While it runs, and when it has ended but nobody was told.
    const BackgroundWork::Ticket running = work.run(&waitUntilCancelled, count);
    *running = true;
    QSemaphore ended;
    const BackgroundWork::Ticket done =
        work.run([&](const std::atomic_bool &) { ended.release(); }, count);
    ended.acquire();
    *done = true;
    waitForAll(work);
    QCOMPARE(reports, 0);
}

void tst_BackgroundWork::destroysElsewhereWhatAJobHolds()
{
    QThread *destroyedIn = nullptr;
    const auto note = [&](const int *number) {
        destroyedIn = QThread::currentThread();
        delete number;
    };
    {
        QSharedPointer<int> held(new int(0), note);
        BackgroundWork work;
        work.run([held = std::move(held)](const std::atomic_bool &) {}, nullptr);
    }
    QVERIFY(destroyedIn != nullptr);
    QVERIFY(destroyedIn != QThread::currentThread());
}

void tst_BackgroundWork::endsWithWhoeverItCalls()
{
    QScopedPointer<BackgroundWork> work(new BackgroundWork);
    int reports = 0;
    for (int job = 0; job < 10; ++job) {
        work->run(&doNothing, [&] {
            ++reports;
            work.reset();
        });
    }
    QTRY_VERIFY(work.isNull());
    QCoreApplication::processEvents();
    QCOMPARE(reports, 1);
}

// Those that run, those that wait for a thread, and those that nobody was told of yet.
void tst_BackgroundWork::cancelsAllWhenItEnds()
{
    constexpr int jobs = 100;
    QVector<BackgroundWork::Ticket> tickets;
    int reports = 0;
    std::atomic_int running{0};
    {
        BackgroundWork work;
        for (int job = 0; job < jobs; ++job) {
            tickets += work.run(
                [&](const std::atomic_bool &isCancelled) {
                    ++running;
                    waitUntilCancelled(isCancelled);
                    --running;
                },
                [&] { ++reports; });
        }
        while (running == 0)
            QThread::yieldCurrentThread();
    }
    QCOMPARE(running.load(), 0);
    for (const BackgroundWork::Ticket &ticket : std::as_const(tickets))
        QVERIFY(*ticket);
    QCoreApplication::processEvents();
    QCOMPARE(reports, 0);
}

void tst_BackgroundWork::letsGoOfIdleThreads()
{
    const int before = threadCount();
    BackgroundWork work;
    QVERIFY(threadCount() <= before);
    waitForAll(work);
    QTRY_VERIFY_WITH_TIMEOUT(threadCount() <= before, 20000);
}

const TestClass<tst_BackgroundWork> testClass("tst_backgroundwork");

} // namespace tst_backgroundwork

#include "tst_backgroundwork.moc"
