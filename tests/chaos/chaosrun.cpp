#include "chaosrun.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

namespace {

/// Operations inside signals inside operations: deeper than this the run does not go.
constexpr int deepest = 4;
constexpr int settlingLimit = 10000;

void runEventLoop(int msec)
{
    QEventLoop loop;
    QTimer::singleShot(msec, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace

ChaosRun::ChaosRun(quint64 seed)
    : m_dice(seed)
    , m_stage(m_dice)
{
    m_stage.onSignal = [this] { playInSignal(); };
    plan();
}

// Everything is drawn before anything is done, so that the same seed gives the same steps however
// fast the network is.
void ChaosRun::plan()
{
    const int count = m_dice.between(5, 40);
    // A probe asks once in a second; only some runs last that long.
    const int longPauses = m_dice.oneIn(25) ? 2 : 0;
    for (int number = 1; number <= count; ++number) {
        Step step;
        step.number = number;
        step.seed = m_dice.number();
        step.operation = &operations::draw(m_dice);
        step.moment = m_dice.pick({Moment::Now, Moment::Now, Moment::NextTurn, Moment::Later,
                                   Moment::InSignal, Moment::InSignal});
        step.delay = m_dice.below(15);
        if (number <= longPauses) {
            step.moment = Moment::Later;
            step.delay = 1200;
        }
        m_steps.append(step);
    }
}

QStringList ChaosRun::run()
{
    playSteps();
    settle();
    m_requests = m_stage.ledger().count();
    checkTable();
    checkMemory();
    const QStringList strays = m_stage.strayFiles();
    for (const QString &stray : strays)
        m_stage.ledger().fault(QStringLiteral("a file that nobody named: ") + stray);
    return m_stage.ledger().faults();
}

void ChaosRun::playSteps()
{
    for (const Step &step : qAsConst(m_steps)) {
        if (step.moment == Moment::InSignal) {
            m_armed.append(step);
            continue;
        }
        if (step.moment == Moment::NextTurn)
            runEventLoop(0);
        if (step.moment == Moment::Later)
            runEventLoop(step.delay);
        play(step);
    }
}

void ChaosRun::playInSignal()
{
    if (m_armed.isEmpty() || m_depth >= deepest || !m_stage.client() || !m_stage.processor())
        return;
    if (m_armed.first().delay-- <= 0)
        play(m_armed.takeFirst());
}

void ChaosRun::play(const Step &step)
{
    m_diary.append(QStringLiteral("%1%2. %3")
                       .arg(QString(m_depth * 2, QLatin1Char(' ')))
                       .arg(step.number)
                       .arg(QLatin1String(step.operation->name)));
    ++m_depth;
    Dice dice(step.seed);
    step.operation->run(m_stage, dice, step.number);
    --m_depth;
}

// Frees whatever hangs, until everything that was asked for has come to its end and a last request
// is answered, if there is a place left for one.
void ChaosRun::settle()
{
    m_armed.clear();
    TarvisNet &client = *m_stage.client();
    QObject::connect(&client, &TarvisNet::s_rawGet, &client,
                     [this](const QJsonDocument &, const QString &url) {
                         m_markerAnswered |= url.endsWith(QLatin1String("/marker"));
                     });
    QObject::connect(&client, &TarvisNet::s_aborted, &client, [this](const QString &url) {
        if (url.endsWith(QLatin1String("/marker")))
            m_markerAsked = false;
    });
    client.setStopProcess(false);
    client.setPingAlwaysOn(false);
    client.setParallelRequestsCount(5);
    runEventLoop(20);
    QElapsedTimer clock;
    clock.start();
    while (!isSettled() && clock.elapsed() < settlingLimit) {
        m_stage.closeConnections();
        askForMarker();
        Q_EMIT client.s_repliesCountChanged();
        runEventLoop(5);
    }
}

void ChaosRun::askForMarker()
{
    if (m_markerAsked || m_markerAnswered)
        return;
    m_markerAsked = true;
    m_stage.client()->forceRawGet(m_stage.honestServer().url(QStringLiteral("/marker")));
}

bool ChaosRun::isSettled()
{
    Ledger &ledger = m_stage.ledger();
    const int lost = ledger.placesLost(m_stage.clientNumber());
    const bool isFull = lost >= m_stage.client()->getParallelRequestsCount();
    return m_stage.openOfProcessor().isEmpty() && m_stage.replies().size() == lost
        && (isFull || m_markerAnswered)
        && (isFull || ledger.open(m_stage.clientNumber()).isEmpty());
}

// Only the places that failed redirects keep are left in the table, and the client tells of each of
// them when it dies.
void ChaosRun::checkTable()
{
    Ledger &ledger = m_stage.ledger();
    const int owner = m_stage.clientNumber();
    const int lost = ledger.placesLost(owner);
    const auto check = [&ledger](bool holds, const QString &text) {
        if (!holds)
            ledger.fault(text);
    };
    check(m_stage.replies().size() == lost,
          QStringLiteral("%1 replies left, %2 expected").arg(m_stage.replies().size()).arg(lost));
    if (lost < m_stage.client()->getParallelRequestsCount()) {
        check(m_markerAnswered, QStringLiteral("the marker was not answered"));
        const QStringList open = ledger.open(owner);
        check(open.isEmpty(), QStringLiteral("no end of ") + open.join(QStringLiteral(", ")));
    }
    const int before = ledger.aborts(owner);
    m_stage.deleteClient();
    check(ledger.aborts(owner) - before == lost,
          QStringLiteral("%1 aborts at the end, %2 expected")
              .arg(ledger.aborts(owner) - before)
              .arg(lost));
}

void ChaosRun::checkMemory()
{
    const QPointer<QObject> manager = m_stage.manager();
    const QStringList open = m_stage.openOfProcessor();
    if (!open.isEmpty())
        m_stage.ledger().fault(QStringLiteral("the processor did not end ")
                               + open.join(QStringLiteral(", ")));
    m_stage.deleteProcessor();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    if (manager)
        m_stage.ledger().fault(QStringLiteral("the manager outlives its client"));
}
