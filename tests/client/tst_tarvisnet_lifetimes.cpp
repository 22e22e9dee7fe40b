#include "testclass.h"
#include "threadsbench.h"

#include <QtTest/QTest>

#include <functional>

namespace tst_tarvisnet_lifetimes {

using namespace clientaccess;
using namespace threadsbench;

using Mode = ScriptedServer::Mode;

namespace {

using Act = std::function<void()>;

template <auto signal>
void onSignal(TarvisNet &client, const Act &act)
{
    QObject::connect(&client, signal, &client, act, Qt::DirectConnection);
}

struct NamedSignal {
    const char *name;
    void (*connect)(TarvisNet &client, const Act &act);
};

constexpr NamedSignal signalsOfDownloads[] = {
    {"s_repliesCountChanged", onSignal<&TarvisNet::s_repliesCountChanged>},
    {"s_downloadFileProgress", onSignal<&TarvisNet::s_downloadFileProgress>},
    {"s_downloadFileBytesProgress", onSignal<&TarvisNet::s_downloadFileBytesProgress>},
    {"s_finished", onSignal<&TarvisNet::s_finished>},
    {"s_errorChanged", onSignal<&TarvisNet::s_errorChanged>},
    {"s_aborted", onSignal<&TarvisNet::s_aborted>},
};

} // namespace

} // namespace tst_tarvisnet_lifetimes

Q_DECLARE_METATYPE(tst_tarvisnet_lifetimes::NamedSignal)

namespace tst_tarvisnet_lifetimes {

/// What is still used outlives a manager that is replaced, and a client that is deleted.
class tst_TarvisNetLifetimes : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void replyOutlivesADialog_data();
    void replyOutlivesADialog();
    void deletedInASignal_data();
    void deletedInASignal();
    void deletedBehindAReplacedManager_data();
    void deletedBehindAReplacedManager();
};

void tst_TarvisNetLifetimes::replyOutlivesADialog_data()
{
    QTest::addColumn<int>("threads");
    QTest::addColumn<bool>("isHinted");
    for (const int threads : {1, mostThreads}) {
        QTest::addRow("aborted, %d", threads) << threads << false;
        QTest::addRow("interim answer, %d", threads) << threads << true;
    }
}

// The loop that a receiver runs goes on with all that is due. The manager of the reply is used no
// more, but Qt uses the reply when the receiver is done.
void tst_TarvisNetLifetimes::replyOutlivesADialog()
{
    QFETCH(const int, threads);
    QFETCH(const bool, isHinted);
    ThreadsBench bench(threaded(threads));
    bench.client->setParallelRequestsCount(1);
    bench.withhold();
    bench.download(0);
    QVERIFY(bench.server.waitForRequests(1));
    bench.download(1);
    const QPointer<QNetworkReply> reply = bench.replies().constFirst();
    bool hasLived = false;
    onSignal<&TarvisNet::s_repliesCountChanged>(*bench.client, [&] {
        if (bench.server.requests().size() == 1)
            hasLived = bench.server.waitForRequests(2) && reply;
    });
    if (isHinted)
        bench.withheld.first().writeRaw("HTTP/1.1 103 Early Hints\r\n\r\n");
    else
        bench.client->abortDownload();
    QVERIFY(bench.server.waitForRequests(2));
    QVERIFY(hasLived);
}

void tst_TarvisNetLifetimes::deletedInASignal_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<NamedSignal>("signal");
    QTest::addColumn<int>("emission");
    for (const NamedSignal &signal : signalsOfDownloads) {
        for (const int emission : {0, 1}) {
            QTest::addRow("%s %d, HTTP", signal.name, emission) << Mode::Http << signal << emission;
            QTest::addRow("%s %d, HTTPS", signal.name, emission)
                << Mode::Https << signal << emission;
        }
    }
}

// Of five, two arrive, two fail, and others are aborted in the end.
void tst_TarvisNetLifetimes::deletedInASignal()
{
    QFETCH(const Mode, mode);
    QFETCH(const NamedSignal, signal);
    QFETCH(int, emission);
    ThreadsBench bench(threaded(mostThreads), mode);
    bench.server.onRequest(answers::withhold());
    bench.server.on("/file0", answers::bytes(body));
    bench.server.on("/file1", answers::status(404));
    bench.server.on("/file2", answers::redirect(302, "/file0"));
    bench.server.on("/file3", answers::redirect(302, "/file1"));
    signal.connect(*bench.client, [&] {
        if (emission-- == 0)
            delete bench.client;
    });
    bench.client->setParallelRequestsCount(mostThreads);
    for (int number = 0; bench.client && number < mostThreads; ++number)
        bench.download(number);
    if (bench.client)
        bench.download(5, "/file5");
    QTRY_VERIFY(!bench.client || bench.outcomes() == 4);
    for (int i = 0; bench.client && i < 2; ++i)
        bench.client->abortDownload();
    QTRY_VERIFY(!bench.client);
    QVERIFY(bench.server.waitForConnections(0, patience));
}

void tst_TarvisNetLifetimes::deletedBehindAReplacedManager_data()
{
    QTest::addColumn<int>("threads");
    QTest::addColumn<QByteArray>("kind");
    for (const int threads : {1, mostThreads}) {
        for (const char *kind : {"rawGet", "remoteBinary", "rawPost"})
            QTest::addRow("%s, %d", kind, threads) << threads << QByteArray(kind);
    }
}

// Its reply lives with the manager that was replaced, and is on the call stack.
void tst_TarvisNetLifetimes::deletedBehindAReplacedManager()
{
    QFETCH(const int, threads);
    QFETCH(const QByteArray, kind);
    ScriptedServer other(Mode::Https);
    HttpResponse held;
    other.onRequest([&held](const HttpRequest &, HttpResponse &response) { held = response; });
    ThreadsBench bench(threaded(threads));
    const RequestKind asked = requestkinds::of(kind);
    requestkinds::start(*bench.client, asked, other.url("/a"), bench.saved(0),
                        qulonglong(body.size()));
    QVERIFY(other.waitForRequests(1));
    bench.server.onRequest(onceBefore(
        [](const HttpRequest &, HttpResponse &response) {
            response.writeRaw("HTTP/1.1 103 Early Hints\r\n\r\n");
        },
        answers::withhold()));
    const QPointer<QNetworkAccessManager> first = managerOf(*bench.client);
    bench.get({"/b"});
    QVERIFY(bench.server.waitForRequests(2));
    QVERIFY(first);
    QVERIFY(managerOf(*bench.client) != first);

    const auto act = [&bench] { delete bench.client; };
    onSignal<&TarvisNet::s_rawGet>(*bench.client, act);
    onSignal<&TarvisNet::s_rawPost>(*bench.client, act);
    onSignal<&TarvisNet::s_finished>(*bench.client, act);
    held.send(200, {}, body);
    QTRY_VERIFY(!bench.client);
    QTRY_VERIFY(!first);
    QCOMPARE(bench.recorder.count(asked.signal), 1);
    QVERIFY(other.waitForConnections(0));
    QVERIFY(bench.server.waitForConnections(0));
}

const TestClass<tst_TarvisNetLifetimes> testClass("tst_tarvisnet_lifetimes");

} // namespace tst_tarvisnet_lifetimes

#include "tst_tarvisnet_lifetimes.moc"
