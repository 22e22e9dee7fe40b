#include "awaiter.h"
#include "robustnessscenarios.h"

#include <QtCore/QScopedPointer>
#include <QtCore/QSet>
#include <QtTest/QTest>

#include <algorithm>
#include <iterator>

using Mode = ScriptedServer::Mode;

/// Does something to the client when it emits a signal for the n-th time.
class Receiver : public QObject {
    Q_OBJECT

public:
    using Action = std::function<void(RobustnessStage &)>;

    Receiver(RobustnessStage &stage, const char *signal, int emission, Action action)
        : m_stage(stage)
        , m_action(std::move(action))
        , m_wait(emission)
    {
        const QMetaObject &type = TarvisNet::staticMetaObject;
        for (int i = type.methodOffset(); i < type.methodCount(); ++i) {
            const QMetaMethod method = type.method(i);
            if (method.name() == signal && !(method.attributes() & QMetaMethod::Cloned)) {
                const int act = staticMetaObject.indexOfSlot("act()");
                connect(stage.client, method, this, staticMetaObject.method(act),
                        Qt::DirectConnection);
                return;
            }
        }
        qFatal("no signal %s", signal);
    }

    /// Runs the event loop until the receiver has acted.
    bool waitForAction(int msec)
    {
        return m_awaiter.wait([this] { return m_hasActed; }, msec);
    }

private Q_SLOTS:
    void act()
    {
        if (m_wait-- != 0)
            return;
        m_action(m_stage);
        m_hasActed = true;
        m_awaiter.changed();
    }

private:
    RobustnessStage &m_stage;
    Action m_action;
    int m_wait;
    bool m_hasActed = false;
    Awaiter m_awaiter;
};

Q_DECLARE_METATYPE(Road)
Q_DECLARE_METATYPE(Scenario)
Q_DECLARE_METATYPE(Receiver::Action)

namespace {

// Generous for runs under memory checkers; nothing here waits for time to pass.
constexpr int patience = 20000;

/// Declared for the application's sake: a probe's time-out arrives as s_errorChanged instead.
const QStringList neverEmitted = {"s_timeout"};

const Road roads[] = {
    {"HTTP", Mode::Http, false},
    {"HTTPS", Mode::Https, false},
    {"redirected", Mode::Http, true},
    {"strict HTTP", Mode::Http, false, true},
    {"strict HTTPS", Mode::Https, false, true},
    {"strict redirected", Mode::Http, true, true},
};

/// Traditional clients are none that could be fast.
QList<Road> roadsToTake()
{
    QList<Road> taken;
    std::copy_if(std::begin(roads), std::end(roads), std::back_inserter(taken),
                 [](const Road &road) { return road.isStrict || !policies::areFast(); });
    return taken;
}

struct NamedAction {
    const char *name;
    Receiver::Action act;
};

const NamedAction deletions[] = {
    {"delete", [](RobustnessStage &stage) { delete stage.client; }},
    {"nested loop that deletes",
     [](RobustnessStage &stage) {
         QEventLoop loop;
         QObject::connect(stage.client, &QObject::destroyed, &loop, &QEventLoop::quit);
         QTimer::singleShot(0, &loop, [&stage] { delete stage.client; });
         loop.exec();
     }},
};

const NamedAction otherActions[] = {
    {"abort", [](RobustnessStage &stage) { stage.client->abortDownload(); }},
    {"abort a list",
     [](RobustnessStage &stage) {
         stage.client->abortDownload(QStringList({"/json", QString(), "/to/json", "/bytes"}));
     }},
    {"queue",
     [](RobustnessStage &stage) {
         for (int i = 0; i < 10; ++i)
             stage.client->forceRawGet(stage.server.url("/more"));
     }},
    {"clear", [](RobustnessStage &stage) { stage.call("clearReplies"); }},
};

/// Waits for the answer to a raw GET of \a url among others.
bool waitForAnswer(RobustnessStage &stage, const QString &url)
{
    const auto isUrl = [&url](const QVariantList &arguments) { return arguments.at(1) == url; };
    while (true) {
        const QList<QVariantList> answers = stage.recorder.of("s_rawGet");
        if (std::any_of(answers.begin(), answers.end(), isUrl))
            return true;
        if (!stage.recorder.waitFor("s_rawGet", answers.size() + 1, patience))
            return false;
    }
}

void addScenarioRows(const NamedAction *begin, const NamedAction *end)
{
    QTest::addColumn<Road>("road");
    QTest::addColumn<Scenario>("scenario");
    QTest::addColumn<Receiver::Action>("action");
    const QList<Road> taken = roadsToTake();
    for (const Scenario &scenario : robustnessScenarios()) {
        for (const Road &road : taken) {
            if (!scenario.suits(road))
                continue;
            for (const NamedAction *action = begin; action != end; ++action)
                QTest::addRow("%s in %s, %s, %s", action->name, scenario.signal.constData(),
                              scenario.name.constData(), road.name)
                    << road << scenario << action->act;
        }
    }
}

} // namespace

/// Receivers may do anything to the client, and the client may die at any time.
class tst_Robustness : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void forgetsNoSignal();
    void receiverDeletes_data();
    void receiverDeletes();
    void receiverDeletesBeforeTheLoop_data();
    void receiverDeletesBeforeTheLoop();
    void receiverActs_data();
    void receiverActs();
    void receiverRefusesDistrustedServer_data();
    void receiverRefusesDistrustedServer();
    void receiverActsInTheDestructor_data();
    void receiverActsInTheDestructor();
    void diesWhileRequestsRun_data();
    void diesWhileRequestsRun();
    void diesInATlsHandshake();

private:
    DistrustedServer m_distrusted;
};

void tst_Robustness::forgetsNoSignal()
{
    QSet<QString> covered;
    for (const Scenario &scenario : robustnessScenarios())
        covered.insert(scenario.signal);
    const QMetaObject &type = TarvisNet::staticMetaObject;
    QSet<QString> declared;
    for (int i = type.methodOffset(); i < type.methodCount(); ++i) {
        if (type.method(i).methodType() == QMetaMethod::Signal)
            declared.insert(type.method(i).name());
    }
    for (const QString &name : neverEmitted)
        QVERIFY2(declared.remove(name), qPrintable(name));
    QCOMPARE(covered, declared);
}

void tst_Robustness::receiverDeletes_data()
{
    addScenarioRows(std::begin(deletions), std::end(deletions));
}

void tst_Robustness::receiverDeletes()
{
    QFETCH(Road, road);
    QFETCH(Scenario, scenario);
    QFETCH(Receiver::Action, action);

    RobustnessStage stage(road);
    Receiver receiver(stage, scenario.signal, scenario.emission, action);
    QTimer::singleShot(0, &receiver, [&] { scenario.run(stage); });
    QVERIFY(receiver.waitForAction(patience));

    QVERIFY(stage.client.isNull());
    // Nothing of the client is left behind.
    QVERIFY(stage.server.waitForConnections(0, patience));
}

void tst_Robustness::receiverDeletesBeforeTheLoop_data()
{
    receiverDeletes_data();
}

// Outside of any event loop deleteLater() means the next loop to come, be it a nested one.
void tst_Robustness::receiverDeletesBeforeTheLoop()
{
    QFETCH(Road, road);
    QFETCH(Scenario, scenario);
    QFETCH(Receiver::Action, action);

    RobustnessStage stage(road);
    Receiver receiver(stage, scenario.signal, scenario.emission, action);
    scenario.run(stage);
    QVERIFY(receiver.waitForAction(patience));
    QVERIFY(stage.client.isNull());
}

void tst_Robustness::receiverActs_data()
{
    addScenarioRows(std::begin(otherActions), std::end(otherActions));
}

void tst_Robustness::receiverActs()
{
    QFETCH(Road, road);
    QFETCH(Scenario, scenario);
    QFETCH(Receiver::Action, action);

    RobustnessStage stage(road);
    stage.server.on("/more", answers::json({}));
    stage.server.on("/marker", answers::json({}));
    Receiver receiver(stage, scenario.signal, scenario.emission, action);
    QTimer::singleShot(0, &receiver, [&] { scenario.run(stage); });
    QVERIFY(receiver.waitForAction(patience));

    // The client still works.
    stage.client->setStopProcess(false);
    const QString marker = stage.url("/marker");
    stage.client->rawGet(QUrl(marker));
    QVERIFY(waitForAnswer(stage, marker));
}

void tst_Robustness::receiverRefusesDistrustedServer_data()
{
    QTest::addColumn<QString>("signal");
    QTest::addColumn<Receiver::Action>("action");
    for (const char *signal : {"s_errorChanged", "s_aborted"}) {
        for (const NamedAction &action : deletions)
            QTest::addRow("%s in %s", action.name, signal) << QString(signal) << action.act;
        for (const NamedAction &action : otherActions)
            QTest::addRow("%s in %s", action.name, signal) << QString(signal) << action.act;
    }
}

void tst_Robustness::receiverRefusesDistrustedServer()
{
    QFETCH(QString, signal);
    QFETCH(Receiver::Action, action);

    RobustnessStage stage(roads[0]);
    Receiver receiver(stage, signal.toLatin1().constData(), 0, action);
    stage.client->rawGet(m_distrusted.url());
    QVERIFY(receiver.waitForAction(patience));
    QCOMPARE(stage.recorder.of("s_errorChanged").value(0).value(0).value<short>(), short(-222));
}

void tst_Robustness::receiverActsInTheDestructor_data()
{
    QTest::addColumn<Receiver::Action>("action");
    for (const NamedAction &action : otherActions)
        QTest::newRow(action.name) << action.act;
}

void tst_Robustness::receiverActsInTheDestructor()
{
    QFETCH(Receiver::Action, action);

    RobustnessStage stage(roads[0]);
    TarvisNet *const client = stage.client;
    const auto act = [&] {
        // The guarded pointer is cleared before the destructor runs.
        stage.client = client;
        action(stage);
    };
    connect(client, &TarvisNet::s_aborted, client, act);
    for (int i = 0; i < 3; ++i)
        client->forceRawGet(stage.server.url("/withheld"));
    QVERIFY(stage.server.waitForRequests(3));
    delete client;
    stage.client.clear();

    QVERIFY(stage.recorder.count("s_aborted") >= 3);
    QCOMPARE(stage.recorder.count("s_errorChanged"), 0);
    QVERIFY(stage.server.waitForConnections(0, patience));
    QVERIFY(stage.server.requests("/more").isEmpty());
}

void tst_Robustness::diesWhileRequestsRun_data()
{
    QTest::addColumn<Road>("road");
    QTest::addColumn<QString>("state");
    const QList<Road> taken = roadsToTake();
    for (const Road &road : taken) {
        for (const char *state :
             {"not even connected", "waiting", "half answered", "uploading", "downloading a file"})
            QTest::addRow("%s, %s", state, road.name) << road << QString(state);
    }
}

void tst_Robustness::diesWhileRequestsRun()
{
    QFETCH(Road, road);
    QFETCH(QString, state);

    RobustnessStage stage(road);
    const int requests = road.isRedirected ? 2 : 1;
    stage.server.on("/half", [](const HttpRequest &, HttpResponse &response) {
        // Progress is told at intervals only, so something has to arrive later on too.
        response.sendHead(200, {}, 1000);
        response.dribble(QByteArray(999, 'x'), 1, 10);
    });
    stage.client->setParallelRequestsCount(requests);
    if (state == "uploading")
        stage.client->rawPost(stage.address("/json"), QByteArray(32 << 20, 'x'));
    else if (state == "downloading a file")
        stage.client->fetchBinary(stage.address("/half"), stage.path("file"), 1000);
    else
        stage.client->rawGet(stage.address(state == "half answered" ? "/half" : "/withheld"));
    // Without a place it is never sent.
    if (!road.isRedirected)
        stage.client->rawGet(stage.address("/json"));

    if (state == "uploading")
        QVERIFY(stage.recorder.waitFor("s_uploadFileProgress", 1, patience));
    else if (state == "waiting")
        QVERIFY(stage.server.waitForRequests(requests, patience));
    else if (state != "not even connected")
        QVERIFY(stage.recorder.waitFor("s_downloadFileProgress", 1, patience));
    stage.recorder.clear();
    const int active = stage.replies().size();
    delete stage.client;

    // What is pending counts only where every request has its end.
    const int pending = road.isStrict && !road.isRedirected ? 1 : 0;
    QCOMPARE(stage.recorder.count("s_aborted"), active + pending);
    QStringList names = stage.emitted();
    names.removeAll("s_aborted");
    names.removeAll("s_repliesCountChanged");
    names.removeAll("s_stopPing");
    QCOMPARE(names, QStringList());
    QVERIFY(stage.server.waitForConnections(0, patience));
    if (!road.isRedirected)
        QVERIFY(stage.server.requests("/json").size() <= (state == "uploading" ? 1 : 0));
}

void tst_Robustness::diesInATlsHandshake()
{
    ClientBench bench(Mode::MuteTls);
    bench.client->rawGet(bench.server.url("/json"));
    QVERIFY(bench.server.waitForAccepted(1, patience));
    bench.recorder.clear();
    delete bench.client;

    QCOMPARE(bench.recorder.names(), QStringList({"s_repliesCountChanged", "s_aborted"}));
    QVERIFY(bench.server.waitForConnections(0, patience));
}

QTEST_GUILESS_MAIN(tst_Robustness)
#include "tst_robustness.moc"
