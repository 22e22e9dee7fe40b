#include "clientbench.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QThread>
#include <QtTest/QTest>

#include <limits>

namespace {

constexpr qint64 noStall = std::numeric_limits<int>::max();
// Timers tick earlier than they should, but not by so much.
constexpr qint64 leastStallNsec = 100 * 1000 * 1000;
// How many questions of this thread are still answered without a stall.
thread_local qint64 questionsBeforeStall = noStall;

} // namespace

// As if the processor was taken away after the answer: what was not due yet is due when the next
// question is asked. The client asks Qt, and this answer comes first in the order of symbols.
bool QDeadlineTimer::hasExpired() const noexcept
{
    const qint64 leftNsec = remainingTimeNSecs();
    if (leftNsec > leastStallNsec && questionsBeforeStall-- == 0)
        QThread::usleep(static_cast<unsigned long>(leftNsec / 1000 + 1));
    return leftNsec == 0;
}

class tst_TarvisNetClock : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { questionsBeforeStall = noStall; }

    void sendsWhatFallsDueWhileItLooks_data();
    void sendsWhatFallsDueWhileItLooks();
};

void tst_TarvisNetClock::sendsWhatFallsDueWhileItLooks_data()
{
    QTest::addColumn<int>("question");
    for (int question = 1; question <= 2; ++question)
        QTest::addRow("at question %d", question) << question;
}

/// The one request falls due while the client looks after the other.
void tst_TarvisNetClock::sendsWhatFallsDueWhileItLooks()
{
    QFETCH(const int, question);
    TransferPolicy policy;
    policy.setMaximumRetries(1);
    // A second at least to get ready in, and another between the two.
    policy.setRetryDelay(2000);
    ClientBench bench(ScriptedServer::Mode::Http, policy);
    bench.server.on("/early", answers::status(503));
    bench.server.on("/late", answers::bytes("", 503, {{"Retry-After", "3"}}));
    bench.get({"/early", "/late"});
    // Two are added, and two have failed.
    QVERIFY(bench.recorder.waitFor("s_repliesCountChanged", 4));

    // Its end would have the client look once more.
    bench.server.on("/early", answers::withhold());
    bench.server.on("/late", answers::json({}));
    questionsBeforeStall = question - 1;
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QVERIFY(questionsBeforeStall < 0);
}

QTEST_GUILESS_MAIN(tst_TarvisNetClock)
#include "tst_tarvisnet_clock.moc"
