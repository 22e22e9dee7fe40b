#include "checkedbench.h"

#include <QtNetwork/QSslCertificate>
#include <QtNetwork/QSslKey>
#include <QtTest/QTest>

#include <functional>

using namespace clientaccess;

using Handler = ScriptedServer::Handler;
using Mode = ScriptedServer::Mode;

Q_DECLARE_METATYPE(Handler)
Q_DECLARE_METATYPE(ScriptedServer::Certificate)

namespace {

// Generous for runs under sanitizers: threads that are idle stay for some seconds.
constexpr int patience = 60000;
constexpr int mostThreads = 5;

const char removed[] = "s_repliesCountChanged";
const QByteArray body = R"({"answer":"the whole of it"})";

/// Network threads of this process. Qt names them, and Linux cuts the name.
int networkThreads()
{
    const QDir tasks("/proc/self/task");
    const QStringList names = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return int(std::count_if(names.begin(), names.end(), [&tasks](const QString &task) {
        return files::read(tasks.filePath(task + "/comm")).startsWith("QNetworkAccessM");
    }));
}

QSslCertificate certificate(const char *name)
{
    return QSslCertificate::fromPath(QString(TARVISNET_TEST_CERTIFICATES "/%1.crt").arg(name))
        .value(0);
}

QByteArray keyOf(const QSslCertificate &certificate)
{
    return QCryptographicHash::hash(certificate.publicKey().toDer(), QCryptographicHash::Sha256);
}

/// That policy, for a server of the tests and without a wait before a retry.
TransferPolicy local(TransferPolicy policy)
{
    policy.setCaCertificates({certificate("server")});
    policy.setRetryDelay(1);
    return policy;
}

TransferPolicy closing()
{
    TransferPolicy policy = local(TransferPolicy::strict());
    policy.setConnectionsKept(false);
    return policy;
}

TransferPolicy threaded(int threads)
{
    TransferPolicy policy = local(TransferPolicy::fast());
    policy.setDownloadThreads(threads);
    return policy;
}

TransferPolicy pinning(const QByteArray &key)
{
    TransferPolicy policy = threaded(mostThreads);
    policy.setPinnedKeys({key});
    return policy;
}

/// \a first once, and \a then from the second request on.
Handler onceBefore(const Handler &first, const Handler &then)
{
    // Shared, because handlers are copied.
    const auto isFirst = std::make_shared<bool>(true);
    return [=](const HttpRequest &request, HttpResponse &response) {
        const Handler &handler = std::exchange(*isFirst, false) ? first : then;
        handler(request, response);
    };
}

/// A client with downloads on several threads.
struct ThreadsBench : CheckedBench {
    explicit ThreadsBench(const TransferPolicy &policy = threaded(mostThreads),
                          Mode mode = Mode::Https)
        : CheckedBench(mode, policy)
    {
        // The probe would have connections of its own.
        client->disconnect(SIGNAL(s_startPing(int)));
        forget();
    }

    static QByteArray filePath(int number) { return "/file" + QByteArray::number(number); }
    QString saved(int number) const { return path(QString("saved/file%1").arg(number)); }
    void download(int number, const QString &from)
    {
        client->fetchBinary(server.url(from), saved(number), qulonglong(body.size()));
    }
    void download(int number) { download(number, filePath(number)); }
    void downloadAll()
    {
        for (int number = 0; number < mostThreads; ++number)
            download(number);
    }
    bool areAllSaved() const
    {
        for (int number = 0; number < mostThreads; ++number) {
            if (files::read(saved(number)) != body)
                return false;
        }
        return true;
    }
    /// Has the server keep its answers to what is asked for from now on.
    void withhold()
    {
        server.onRequest([this](const HttpRequest &request, HttpResponse &response) {
            withheld.insert(request.path(), response);
        });
    }
    void answerWithheld()
    {
        for (HttpResponse &response : withheld)
            response.send(200, {}, body);
        withheld.clear();
    }
    /// Whether so many connections were accepted, and no more.
    bool hasAccepted(int count)
    {
        return server.waitForAccepted(count) && !server.waitForAccepted(count + 1, 0);
    }
    int outcomes(const char *signal = "s_finished") const
    {
        return recorder.count(signal) + recorder.count("s_errorChanged")
            + recorder.count("s_aborted");
    }

    /// By their path.
    QMap<QByteArray, HttpResponse> withheld;
};

/// What becomes of the connection that a request before has left open.
struct Loss {
    const char *name = "";
    /// Whether Qt has got nothing of an answer yet, and asks again by itself.
    bool isBeforeAnswer = true;
    /// Whether it happens before the request is sent.
    bool isBeforeRequest = false;
    /// What happens when it has arrived.
    void (*lose)(HttpResponse &response) = nullptr;
};

void announceAndWriteHalf(HttpResponse &response)
{
    response.sendHead(200, {}, body.size());
    response.write(body.left(body.size() / 2));
}

const Loss losses[] = {
    {"between", true, true},
    {"closed before the answer", true, false, [](HttpResponse &response) { response.cut(); }},
    {"reset before the answer", true, false, [](HttpResponse &response) { response.reset(); }},
    {"closed amid the body", false, false,
     [](HttpResponse &response) {
         announceAndWriteHalf(response);
         response.cut();
     }},
    {"reset amid the body", false, false,
     [](HttpResponse &response) {
         announceAndWriteHalf(response);
         response.reset();
     }},
};

/// Something that may happen to each of several downloads, all of which arrive in the end.
struct Trouble {
    const char *name = "";
    Handler handler;
};

QList<Trouble> troubles()
{
    const Handler whole = answers::bytes(body);
    const auto before = [&whole](const Handler &first) { return onceBefore(first, whole); };
    return {
        {"none", whole},
        {"redirected", answers::redirect(302, "/elsewhere")},
        {"busy", before(answers::status(503))},
        {"closed", before([](const HttpRequest &, HttpResponse &response) { response.cut(); })},
        {"cut short", before(answers::cutShort(body.left(9), body.size()))},
        {"silent", before(answers::withhold())},
        {"interim answer", before([](const HttpRequest &, HttpResponse &response) {
             response.writeRaw("HTTP/1.1 103 Early Hints\r\n\r\n");
         })},
    };
}

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

Q_DECLARE_METATYPE(Loss)
Q_DECLARE_METATYPE(NamedSignal)

/// Which connections and network threads requests share, and that nothing else changes with them.
class tst_TarvisNetConnections : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void filesFollowEachOther_data();
    void filesFollowEachOther();
    void connectionIsLost_data();
    void connectionIsLost();
    void connectionsAreUsedAgain_data() { addModes(); }
    void connectionsAreUsedAgain();
    void uncheckedHopLeavesTheDistrusted_data() { addModes(); }
    void uncheckedHopLeavesTheDistrusted();

    void downloadsHaveThreads_data();
    void downloadsHaveThreads();
    void othersGoWithTheFirst();
    void plainDownloadsGoWithTheFirst();
    void idleThreadsGo();
    void cookiesAreShared();
    void jarIsReplaced();
    void peersAreChecked_data();
    void peersAreChecked();
    void allArrive_data();
    void allArrive();
    void oneIsAborted();
    void allAreAborted();
    void interimAnswerLeavesOthersAlone_data();
    void interimAnswerLeavesOthersAlone();
    void replyOutlivesADialog_data();
    void replyOutlivesADialog();
    void deletedInASignal_data();
    void deletedInASignal();
    void deletedBehindAReplacedManager_data();
    void deletedBehindAReplacedManager();
};

// The threads of a client may outlive it a little.
void tst_TarvisNetConnections::init()
{
    QTRY_COMPARE_WITH_TIMEOUT(networkThreads(), 0, patience);
}

void tst_TarvisNetConnections::filesFollowEachOther_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<bool>("isKept");
    const auto rows = [](const char *name, const TransferPolicy &policy, bool isKept) {
        for (const char *kind : {"remoteBinary", "remoteInstaller"}) {
            for (const Mode mode : {Mode::Http, Mode::Https})
                QTest::addRow("%s, %s, %s", name, kind, mode == Mode::Http ? "HTTP" : "HTTPS")
                    << policy << mode << requestkinds::of(kind) << isKept;
        }
    };
    TransferPolicy keeping;
    keeping.setConnectionsKept(true);
    rows("traditional", TransferPolicy(), false);
    rows("strict but for it", closing(), false);
    rows("nothing else", keeping, true);
    rows("strict", local(TransferPolicy::strict()), true);
    rows("fast", local(TransferPolicy::fast()), true);
}

void tst_TarvisNetConnections::filesFollowEachOther()
{
    QFETCH(const TransferPolicy, policy);
    QFETCH(const Mode, mode);
    QFETCH(const RequestKind, kind);
    QFETCH(const bool, isKept);
    const int count = 4;
    ThreadsBench bench(policy, mode);
    bench.server.onRequest(answers::bytes(body));
    for (int number = 0; number < count; ++number) {
        bench.client->setInstallerFileName(bench.saved(number));
        requestkinds::start(*bench.client, kind, bench.server.url(bench.filePath(number)),
                            bench.saved(number), qulonglong(body.size()));
        QVERIFY(bench.recorder.waitFor(kind.signal, number + 1));
    }
    QCOMPARE(bench.errors(), QList<int>());
    QVERIFY(bench.hasAccepted(isKept ? 1 : count));
    QCOMPARE(bench.server.requests().size(), count);
    for (const HttpRequest &request : bench.server.requests())
        QCOMPARE(request.wantsClose(), !isKept);
}

void tst_TarvisNetConnections::connectionIsLost_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<Loss>("loss");
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : requestkinds::all()) {
        if (kind.result == Result::Nothing)
            continue;
        for (const Loss &loss : losses) {
            QTest::addRow("%s, %s, HTTP", loss.name, kind.name) << Mode::Http << loss << kind;
            QTest::addRow("%s, %s, HTTPS", loss.name, kind.name) << Mode::Https << loss << kind;
        }
    }
}

void tst_TarvisNetConnections::connectionIsLost()
{
    QFETCH(const Mode, mode);
    QFETCH(const Loss, loss);
    QFETCH(const RequestKind, kind);
    ThreadsBench bench(threaded(mostThreads), mode);
    bench.client->setInstallerFileName(bench.destination());
    bench.client->setInstallerFileSize(quint64(body.size()));
    bench.server.onRequest(answers::bytes(body));
    bench.download(0);
    QVERIFY(bench.recorder.waitFor(removed, 2));
    QVERIFY(bench.hasAccepted(1));

    bench.forget();
    const auto lose = [&loss](const HttpRequest &, HttpResponse &response) { loss.lose(response); };
    if (loss.isBeforeRequest)
        bench.server.closeAll();
    else
        bench.server.on("/a", onceBefore(lose, answers::bytes(body)));
    requestkinds::start(*bench.client, kind, bench.server.url("/a"), bench.destination(),
                        qulonglong(body.size()));
    const bool isRepeated = loss.isBeforeAnswer || qstrcmp(kind.verb, "GET") == 0;
    QVERIFY(bench.recorder.waitFor(isRepeated ? kind.signal : "s_errorChanged"));
    QTRY_COMPARE(bench.replies().size(), 0);

    QCOMPARE(bench.outcomes(kind.signal), 1);
    QCOMPARE(bench.errors(), isRepeated ? QList<int>() : QList<int>({-203}));
    QCOMPARE(bench.server.requests("/a").size(), isRepeated && !loss.isBeforeRequest ? 2 : 1);
    const QVariant result = bench.recorder.last(kind.signal).value(0);
    if (isRepeated && kind.result == Result::Bytes)
        QCOMPARE(result.toByteArray(), body);
    if (isRepeated && kind.result == Result::Document)
        QCOMPARE(result.toJsonDocument(), QJsonDocument::fromJson(body));
    if (kind.isFile())
        QCOMPARE(files::read(bench.destination()), body);
}

void tst_TarvisNetConnections::connectionsAreUsedAgain()
{
    QFETCH(const Mode, mode);
    ThreadsBench bench(threaded(mostThreads), mode);
    for (int round = 1; round <= 3; ++round) {
        bench.withhold();
        bench.downloadAll();
        QVERIFY(bench.server.waitForRequests(round * mostThreads));
        bench.answerWithheld();
        QVERIFY(bench.recorder.waitFor("s_finished", round * mostThreads));
    }
    QVERIFY(bench.hasAccepted(mostThreads));
}

// The connection that the redirect came by is next to one that may still carry an answer.
void tst_TarvisNetConnections::uncheckedHopLeavesTheDistrusted()
{
    QFETCH(const Mode, mode);
    TransferPolicy policy;
    policy.setConnectionsKept(true);
    ThreadsBench bench(policy, mode);
    bench.server.on("/target", answers::bytes(body));
    bench.withhold();
    bench.get({"/slow", "/moved"});
    QVERIFY(bench.server.waitForRequests(2));
    bench.client->abortDownload(QString("/slow"));
    bench.withheld["/moved"].send(302, {{"Location", bench.server.url("/target").toEncoded()}});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.recorder.last("s_rawGet").value(0).toJsonDocument(),
             QJsonDocument::fromJson(body));
    QVERIFY(bench.hasAccepted(3));
}

void tst_TarvisNetConnections::downloadsHaveThreads_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<int>("threads");
    QTest::addColumn<int>("started");
    for (int threads = 1; threads <= mostThreads; ++threads) {
        QTest::addRow("%d, HTTP", threads) << Mode::Http << threads << 1;
        QTest::addRow("%d, HTTPS", threads) << Mode::Https << threads << threads;
    }
}

void tst_TarvisNetConnections::downloadsHaveThreads()
{
    QFETCH(const Mode, mode);
    QFETCH(const int, threads);
    QFETCH(const int, started);
    ThreadsBench bench(threaded(threads), mode);
    bench.withhold();
    for (int number = 0; number < mostThreads; ++number) {
        bench.download(number);
        QVERIFY(bench.server.waitForRequests(number + 1));
        QCOMPARE(networkThreads(), std::min(number + 1, started));
    }
    bench.answerWithheld();
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads));
    QVERIFY(bench.areAllSaved());
}

void tst_TarvisNetConnections::othersGoWithTheFirst()
{
    ThreadsBench bench;
    bench.withhold();
    for (const char *kind : {"rawGet", "rawPost", "remoteIndex", "rawDelete"})
        requestkinds::start(*bench.client, requestkinds::of(kind), bench.server.url("/a"), {}, 0);
    QVERIFY(bench.server.waitForRequests(4));
    QCOMPARE(networkThreads(), 1);
    // They are no load that a download would avoid.
    bench.download(0);
    QVERIFY(bench.server.waitForRequests(5));
    QCOMPARE(networkThreads(), 1);
}

// Nor are they any load.
void tst_TarvisNetConnections::plainDownloadsGoWithTheFirst()
{
    ScriptedServer plain;
    plain.onRequest(answers::withhold());
    ThreadsBench bench;
    bench.withhold();
    for (const int number : {0, 1}) {
        bench.client->fetchBinary(plain.url(QString(bench.filePath(number))), bench.saved(number),
                                  qulonglong(body.size()));
    }
    QVERIFY(plain.waitForRequests(2));
    bench.download(2);
    QVERIFY(bench.server.waitForRequests(1));
    QCOMPARE(networkThreads(), 1);
    bench.download(3);
    QVERIFY(bench.server.waitForRequests(2));
    QCOMPARE(networkThreads(), 2);
}

void tst_TarvisNetConnections::idleThreadsGo()
{
    ThreadsBench bench;
    bench.withhold();
    bench.downloadAll();
    QVERIFY(bench.server.waitForRequests(mostThreads));
    QCOMPARE(networkThreads(), mostThreads);
    bench.answerWithheld();
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads));
    QTRY_COMPARE_WITH_TIMEOUT(networkThreads(), 1, patience);

    bench.downloadAll();
    QVERIFY(bench.server.waitForRequests(2 * mostThreads));
    QCOMPARE(networkThreads(), mostThreads);
    bench.answerWithheld();
    QVERIFY(bench.recorder.waitFor("s_finished", 2 * mostThreads));
    QVERIFY(bench.areAllSaved());
}

// Whoever gets one, all send it.
void tst_TarvisNetConnections::cookiesAreShared()
{
    ThreadsBench bench;
    bench.withhold();
    bench.download(0);
    QVERIFY(bench.server.waitForRequests(1));
    const auto giving = [](const QByteArray &cookie) {
        return answers::bytes(body, 200, {{"Set-Cookie", cookie + "; path=/"}});
    };
    bench.server.on("/file1", giving("download=1"));
    bench.download(1);
    QVERIFY(bench.recorder.waitFor("s_finished"));
    bench.server.on("/a", giving("get=1"));
    bench.get({"/a"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    bench.server.on("/file2", answers::bytes(body));
    bench.download(2);
    QVERIFY(bench.recorder.waitFor("s_finished", 2));
    QCOMPARE(networkThreads(), 2);
    QCOMPARE(bench.server.requests("/a").constFirst().header("cookie"), QByteArray("download=1"));
    QCOMPARE(bench.server.requests("/file2").constFirst().header("cookie"),
             QByteArray("download=1; get=1"));
}

void tst_TarvisNetConnections::jarIsReplaced()
{
    QNetworkCookieJar first;
    QNetworkCookieJar second;
    ThreadsBench bench;
    const QPointer<QNetworkCookieJar> own = bench.client->getCoockies();
    bench.withhold();
    bench.downloadAll();
    QVERIFY(bench.server.waitForRequests(mostThreads));
    for (QNetworkCookieJar *jar : {&first, &second}) {
        bench.client->setCookies(jar);
        QVERIFY(!own);
        QVERIFY(!jar->parent());
    }
    for (int number = 0; number < mostThreads; ++number) {
        const QByteArray cookie = "number" + QByteArray::number(number) + "=1; path=/";
        bench.withheld[bench.filePath(number)].send(200, {{"Set-Cookie", cookie}}, body);
    }
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads));
    QCOMPARE(first.cookiesForUrl(bench.server.url()).size(), 0);
    QCOMPARE(second.cookiesForUrl(bench.server.url()).size(), mostThreads);
    QVERIFY(!second.parent());
}

void tst_TarvisNetConnections::peersAreChecked_data()
{
    QTest::addColumn<TransferPolicy>("policy");
    QTest::addColumn<ScriptedServer::Certificate>("shown");
    QTest::addColumn<bool>("isTrusted");
    const auto good = ScriptedServer::Certificate::Good;
    const QByteArray key = keyOf(certificate("server"));
    TransferPolicy unpinned = pinning("another");
    unpinned.setPeersVerified(false);
    QTest::newRow("its authority") << threaded(mostThreads) << good << true;
    QTest::newRow("nobody signed it") << TransferPolicy::fast() << good << false;
    QTest::newRow("another name") << threaded(mostThreads) << ScriptedServer::Certificate::WrongName
                                  << false;
    QTest::newRow("pinned") << pinning(key) << good << true;
    QTest::newRow("not pinned") << pinning("another") << good << false;
    QTest::newRow("not pinned, not verified") << unpinned << good << false;
}

void tst_TarvisNetConnections::peersAreChecked()
{
    QFETCH(const TransferPolicy, policy);
    QFETCH(const ScriptedServer::Certificate, shown);
    QFETCH(const bool, isTrusted);
    ThreadsBench bench(policy, Mode::Https);
    bench.server.setCertificate(shown);
    bench.server.onRequest(answers::bytes(body));
    bench.downloadAll();
    QTRY_COMPARE_WITH_TIMEOUT(bench.outcomes(), mostThreads, patience);
    QVERIFY(bench.hasAccepted(mostThreads));
    QCOMPARE(bench.recorder.count("s_finished"), isTrusted ? mostThreads : 0);
    QCOMPARE(bench.server.requests().size(), isTrusted ? mostThreads : 0);
    const QList<int> errors = bench.errors();
    QCOMPARE(errors.count(-222), isTrusted ? 0 : mostThreads);
}

void tst_TarvisNetConnections::allArrive_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<Handler>("handler");
    for (const Trouble &trouble : troubles()) {
        QTest::addRow("%s, HTTP", trouble.name) << Mode::Http << trouble.handler;
        QTest::addRow("%s, HTTPS", trouble.name) << Mode::Https << trouble.handler;
    }
}

// In the order in which they are asked for, whatever happens to every second one of them.
void tst_TarvisNetConnections::allArrive()
{
    QFETCH(const Mode, mode);
    QFETCH(const Handler, handler);
    TransferPolicy policy = threaded(mostThreads);
    policy.setIdleTimeout(500);
    policy.setMaximumRetries(10);
    ThreadsBench bench(policy, mode);
    bench.server.onRequest(answers::bytes(body));
    for (const int number : {0, 2, 4})
        bench.server.on(bench.filePath(number), handler);
    bench.downloadAll();
    QTRY_COMPARE_WITH_TIMEOUT(bench.recorder.count("s_finished"), mostThreads, patience);
    QCOMPARE(bench.errors(), QList<int>());
    QVERIFY(bench.areAllSaved());
    QCOMPARE(bench.namesIn("temporary"), QStringList());
    bench.get({"/after"});
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    QCOMPARE(bench.outcomes(), mostThreads);
}

void tst_TarvisNetConnections::oneIsAborted()
{
    ThreadsBench bench;
    bench.withhold();
    bench.downloadAll();
    QVERIFY(bench.server.waitForRequests(mostThreads));
    bench.client->abortDownload(bench.filePath(3));
    QCOMPARE(bench.abortedUrls(), bench.urls({bench.filePath(3)}));
    bench.answerWithheld();
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads - 1));
    // A thread whose connection may still carry an answer is used no more.
    bench.download(3, "/again");
    QVERIFY(bench.server.waitForRequests(mostThreads + 1));
    bench.answerWithheld();
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads));
    QVERIFY(bench.areAllSaved());
    QCOMPARE(bench.outcomes(), mostThreads + 1);
}

void tst_TarvisNetConnections::allAreAborted()
{
    ThreadsBench bench;
    bench.withhold();
    bench.downloadAll();
    QVERIFY(bench.server.waitForRequests(mostThreads));
    for (int count = 1; count <= mostThreads; ++count) {
        bench.client->abortDownload();
        QCOMPARE(bench.abortedUrls().size(), count);
    }
    QStringList aborted = bench.abortedUrls();
    QCOMPARE(aborted.removeDuplicates(), 0);
    QVERIFY(bench.server.waitForConnections(0));
    bench.server.onRequest(answers::bytes(body));
    bench.downloadAll();
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads));
    QVERIFY(bench.areAllSaved());
    QCOMPARE(bench.outcomes(), 2 * mostThreads);
}

void tst_TarvisNetConnections::interimAnswerLeavesOthersAlone_data()
{
    QTest::addColumn<int>("hinted");
    for (int number = 0; number < mostThreads; ++number)
        QTest::addRow("%d", number) << number;
}

// The first one goes with all that are no downloads.
void tst_TarvisNetConnections::interimAnswerLeavesOthersAlone()
{
    QFETCH(const int, hinted);
    ThreadsBench bench;
    bench.withhold();
    bench.downloadAll();
    QVERIFY(bench.server.waitForRequests(mostThreads));
    HttpResponse late = bench.withheld.take(bench.filePath(hinted));
    late.writeRaw("HTTP/1.1 103 Early Hints\r\n\r\n");
    QVERIFY(bench.server.waitForRequests(mostThreads + 1));
    late.writeRaw("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nlate");
    bench.answerWithheld();
    QVERIFY(bench.recorder.waitFor("s_finished", mostThreads));
    for (int number = 0; number < mostThreads; ++number)
        QCOMPARE(bench.server.requests(bench.filePath(number)).size(), number == hinted ? 2 : 1);
    QVERIFY(bench.areAllSaved());
    QCOMPARE(bench.outcomes(), mostThreads);
}

void tst_TarvisNetConnections::replyOutlivesADialog_data()
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
void tst_TarvisNetConnections::replyOutlivesADialog()
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

void tst_TarvisNetConnections::deletedInASignal_data()
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
void tst_TarvisNetConnections::deletedInASignal()
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

void tst_TarvisNetConnections::deletedBehindAReplacedManager_data()
{
    QTest::addColumn<int>("threads");
    QTest::addColumn<QByteArray>("kind");
    for (const int threads : {1, mostThreads}) {
        for (const char *kind : {"rawGet", "remoteBinary", "rawPost"})
            QTest::addRow("%s, %d", kind, threads) << threads << QByteArray(kind);
    }
}

// Its reply lives with the manager that was replaced, and is on the call stack.
void tst_TarvisNetConnections::deletedBehindAReplacedManager()
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

QTEST_GUILESS_MAIN(tst_TarvisNetConnections)

#include "tst_tarvisnet_connections.moc"
