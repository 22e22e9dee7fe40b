#include "files.h"
#include "http2bench.h"
#include "operations.h"
#include "testclass.h"

#include <QtCore/QTimer>
#include <QtTest/QTest>

#include <algorithm>
#include <functional>

Q_DECLARE_METATYPE(std::function<void(Http2Server &)>)

namespace tst_faults_http2 {

using Handler = Http2Server::Handler;
using Spoil = std::function<void(Http2Server &)>;

/// Something that a server does to the stream of a request.
struct StreamFault {
    QByteArray name;
    Handler serve;
    /// What the client reports when it goes on so.
    int code = -203;
    /// Whether it may pass, so that a GET is tried again.
    bool mayPass = true;
    /// Whether the server says that it has done nothing with the request. Then it is sent again
    /// whatever its verb, and once in any case.
    bool isUntaken = false;

    /// How often a request arrives that meets it each time.
    int arrivals(const RequestKind &kind, int retries) const
    {
        if (isUntaken)
            return 1 + std::max(1, retries);
        return mayPass && qstrcmp(kind.verb, "GET") == 0 ? 1 + retries : 1;
    }
};

} // namespace tst_faults_http2

Q_DECLARE_METATYPE(tst_faults_http2::StreamFault)

namespace tst_faults_http2 {

namespace {

// Long enough for a handshake on a busy machine.
constexpr int shortIdleMsec = 500;

const QByteArray document = R"({"answer":42})";
const QByteArray content = HttpResponse::generated(0, 1000);
const HttpHeaders tag = {{"etag", "\"1\""}};

void nothing(Http2Response & /*response*/) {}

void head(Http2Response &response)
{
    response.sendHead(200, tag, content.size());
}

void halfBody(Http2Response &response)
{
    head(response);
    response.write(content.left(400));
}

void openBody(Http2Response &response)
{
    response.sendHead(200);
    response.write(content.left(400));
}

template <quint32 code>
void reset(Http2Response &response)
{
    response.reset(Http2Response::Code(code));
}

using Part = void (*)(Http2Response &);

/// What comes of an answer before it breaks off.
struct Beginning {
    const char *name;
    Part send;
};

constexpr Beginning beginnings[] = {
    {"before the head", nothing},
    {"after the head", head},
    {"within the body", halfBody},
    {"within a body of no length", openBody},
};

/// How it breaks off.
struct Break {
    const char *name;
    Part send;
    int code = -203;
    bool mayPass = true;
    /// Whether it says that the request was not taken, which is so only before the head.
    bool saysUntaken = false;
};

const Break breaks[] = {
    {"reset, no error", reset<0>},
    {"reset, protocol error", reset<1>},
    {"reset, internal error", reset<2>},
    {"reset, flow control", reset<3>},
    {"reset, settings time-out", reset<4>},
    {"reset, closed", reset<5>},
    {"reset, frame size", reset<6>},
    {"reset, refused", reset<7>, -203, true, true},
    {"reset, cancelled", reset<8>},
    {"reset, compression", reset<9>},
    {"reset, connect", reset<10>, -216},
    {"reset, calm down", reset<11>},
    {"reset, insecure", reset<12>, -203, false},
    {"reset, use HTTP/1.1", reset<13>},
    {"go away before it", [](Http2Response &r) { r.goAwayBefore(); }, -203, true, true},
    {"go away before it, cut",
     [](Http2Response &r) {
         r.goAwayBefore();
         r.cut();
     },
     -203, true, true},
    {"go away before it, internal error",
     [](Http2Response &r) { r.goAwayBefore(Http2Response::InternalError); }},
    {"go away after it, cut",
     [](Http2Response &r) {
         r.goAwayAfter();
         r.cut();
     }},
    {"go away after it, silence", [](Http2Response &r) { r.goAwayAfter(); }, -223},
    {"silence", nothing, -223},
    {"cut", [](Http2Response &r) { r.cut(); }},
    {"torn down", [](Http2Response &r) { r.tearDown(); }},
};

/// Every break after every beginning, and an end that comes too soon.
QList<StreamFault> faults()
{
    QList<StreamFault> all;
    for (const Break &fault : breaks) {
        for (const Beginning &beginning : beginnings) {
            const auto serve = [=](const HttpRequest &, Http2Response &response) {
                beginning.send(response);
                fault.send(response);
            };
            const bool isUntaken = fault.saysUntaken && beginning.send == nothing;
            all.append(StreamFault{QByteArray(fault.name) + ", " + beginning.name, serve,
                                   fault.code, fault.mayPass, isUntaken});
        }
    }
    const auto add = [&all](const char *name, const Handler &serve) {
        all.append(StreamFault{name, serve});
    };
    add("ended, before the head",
        [](const HttpRequest &, Http2Response &response) { response.finishWithoutHead(); });
    for (const Part send : {head, halfBody}) {
        add(send == head ? "ended, after the head" : "ended, within the body",
            [send](const HttpRequest &, Http2Response &response) {
                send(response);
                response.finish();
            });
    }
    return all;
}

/// A document, a request with a body, and a file.
QList<RequestKind> kinds()
{
    return {requestkinds::of(replies::raw_get), requestkinds::of(replies::raw_post),
            requestkinds::of(replies::remote_binary)};
}

TransferPolicy retrying(int retries, const StreamFault &fault)
{
    TransferPolicy policy = Http2Bench::fast();
    policy.setMaximumRetries(retries);
    // The others must not be taken for silence, however busy the machine is.
    if (fault.code == -223)
        policy.setIdleTimeout(shortIdleMsec);
    return policy;
}

/// A server with answers of its own at "/other/...", and one request of its client.
struct FaultyHttp2 : Http2Bench {
    explicit FaultyHttp2(const TransferPolicy &policy = fast())
        : Http2Bench(policy)
    {
        http2.onRequest([](const HttpRequest &request, Http2Response &response) {
            response.send(200, {}, own(request.path()));
        });
    }

    static QByteArray own(const QByteArray &path) { return "{\"path\":\"" + path + "\"}"; }

    void start(const RequestKind &kind, const char *path = "/fault")
    {
        requestkinds::start(*client, kind, http2.url(path), this->path("file"),
                            qulonglong(content.size()));
    }
    /// What is right for all three kinds.
    static Handler right(const RequestKind &kind)
    {
        return Http2Server::file(kind.isFile() ? content : document, tag);
    }
    /// As ends() tells it.
    static QString resultOf(const RequestKind &kind, const QString &path = "/fault")
    {
        const QString text = kind.isFile() ? QString() : ' ' + QString(document);
        return path + ' ' + kind.signal + text;
    }
    static QString failureOf(const QString &path, int code)
    {
        return path + ' ' + QString::number(code);
    }
    int arrivals(const QByteArray &path = "/fault") const { return http2.requests(path).size(); }
};

} // namespace

/// What a server does by HTTP/2 that it should not, or that costs its connection: each request ends
/// once, with what is right or with an error.
class tst_FaultsHttp2 : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void persists_data();
    void persists();
    void passes_data();
    void passes();
    void costsNothing_data();
    void costsNothing();
    void closesBetweenRequests_data();
    void closesBetweenRequests();
    void closesBetweenRequestsByHttp1_data();
    void closesBetweenRequestsByHttp1();
    void takesNoUpload_data();
    void takesNoUpload();
    void losesOneOfMany_data();
    void losesOneOfMany();
    void refusesAHop_data();
    void refusesAHop();
    void takesOneAtATime();
    void losesTheConnectionOfMany_data();
    void losesTheConnectionOfMany();
    void goesAwayWhileItAnswers_data();
    void goesAwayWhileItAnswers();
};

void tst_FaultsHttp2::persists_data()
{
    QTest::addColumn<StreamFault>("fault");
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<int>("retries");
    for (const StreamFault &fault : faults()) {
        for (const char *type : {"rawGet", "rawPost"}) {
            for (const int retries : {0, 2}) {
                QTest::addRow("%s, %s, %d", fault.name.constData(), type, retries)
                    << fault << requestkinds::of(type) << retries;
            }
        }
    }
}

void tst_FaultsHttp2::persists()
{
    QFETCH(const StreamFault, fault);
    QFETCH(const RequestKind, kind);
    QFETCH(const int, retries);
    FaultyHttp2 bench(retrying(retries, fault));
    bench.http2.on("/fault", fault.serve);
    bench.start(kind);
    QVERIFY(bench.waitForEnds());
    const QString failure = FaultyHttp2::failureOf("/fault", fault.code);
    QCOMPARE(bench.ends(), QStringList{failure});
    QCOMPARE(bench.arrivals(), fault.arrivals(kind, retries));
    QCOMPARE(bench.error().at(1).toString(), bench.http2.url("/fault").toString());

    bench.client->rawGet(bench.http2.url("/other"));
    QVERIFY(bench.waitForEnds(2));
    QCOMPARE(bench.ends(), QStringList({failure, R"(/other s_rawGet {"path":"/other"})"}));
}

void tst_FaultsHttp2::passes_data()
{
    QTest::addColumn<StreamFault>("fault");
    QTest::addColumn<RequestKind>("kind");
    for (const StreamFault &fault : faults()) {
        for (const RequestKind &kind : kinds())
            QTest::addRow("%s, %s", fault.name.constData(), kind.name) << fault << kind;
    }
}

void tst_FaultsHttp2::passes()
{
    QFETCH(const StreamFault, fault);
    QFETCH(const RequestKind, kind);
    const int retries = 2;
    FaultyHttp2 bench(retrying(retries, fault));
    bench.http2.on("/fault", {fault.serve, FaultyHttp2::right(kind)});
    bench.start(kind);
    QVERIFY(bench.waitForEnds());
    const bool isRepeated = fault.arrivals(kind, retries) > 1;
    QCOMPARE(bench.ends(),
             QStringList{isRepeated ? FaultyHttp2::resultOf(kind)
                                    : FaultyHttp2::failureOf("/fault", fault.code)});
    QCOMPARE(bench.arrivals(), isRepeated ? 2 : 1);
    if (kind.isFile())
        QCOMPARE(files::read(bench.path("file")), isRepeated ? content : QByteArray());
}

void tst_FaultsHttp2::costsNothing_data()
{
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<Handler>("serve");
    QTest::addColumn<bool>("isKept");
    for (const RequestKind &kind : kinds()) {
        const Handler right = FaultyHttp2::right(kind);
        const auto row = [&kind](const char *name, const Handler &serve, bool isKept) {
            QTest::addRow("%s, %s", name, kind.name) << kind << serve << isKept;
        };
        row(
            "a hint before",
            [right](const HttpRequest &request, Http2Response &response) {
                response.sendInterim(103, {{"link", "</a.css>; rel=preload"}});
                right(request, response);
            },
            true);
        row(
            "three of them",
            [right](const HttpRequest &request, Http2Response &response) {
                for (const int status : {100, 102, 103})
                    response.sendInterim(status);
                right(request, response);
            },
            true);
        row(
            "reset behind it",
            [right](const HttpRequest &request, Http2Response &response) {
                right(request, response);
                response.reset(Http2Response::NoError);
            },
            true);
        row(
            "go away before it, cut",
            [right](const HttpRequest &request, Http2Response &response) {
                response.goAwayAfter();
                right(request, response);
                response.cut();
            },
            false);
        row(
            "go away behind it",
            [right](const HttpRequest &request, Http2Response &response) {
                right(request, response);
                response.goAwayAfter();
            },
            false);
        row(
            "go away and cut",
            [right](const HttpRequest &request, Http2Response &response) {
                right(request, response);
                response.goAwayAfter();
                response.cut();
            },
            false);
        row(
            "cut behind it",
            [right](const HttpRequest &request, Http2Response &response) {
                right(request, response);
                response.cut();
            },
            false);
        row(
            "torn down behind it",
            [right](const HttpRequest &request, Http2Response &response) {
                right(request, response);
                response.tearDown();
            },
            false);
        if (kind.isFile())
            continue;
        row(
            "more than announced",
            [](const HttpRequest &, Http2Response &response) {
                response.sendHead(200, {}, 4);
                response.write(document);
                response.finish();
            },
            true);
    }
}

void tst_FaultsHttp2::costsNothing()
{
    QFETCH(const RequestKind, kind);
    QFETCH(const Handler, serve);
    QFETCH(const bool, isKept);
    // Now and then Qt forgets what it is given while a connection ends.
    TransferPolicy policy = Http2Bench::fast();
    policy.setIdleTimeout(shortIdleMsec);
    FaultyHttp2 bench(policy);
    bench.http2.on("/fault", serve);
    bench.start(kind);
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.ends(), QStringList{FaultyHttp2::resultOf(kind)});
    if (kind.isFile())
        QCOMPARE(files::read(bench.path("file")), content);
    QVERIFY(bench.http2.waitForConnections(isKept ? 1 : 0));

    bench.client->rawGet(bench.http2.url("/other"));
    QVERIFY(bench.waitForEnds(2));
    QCOMPARE(bench.errors(), QList<int>());
    const QString first = QString("h2: %1 /fault").arg(kind.verb);
    QCOMPARE(bench.http2.seen(),
             isKept ? QStringList{first + ", GET /other"} : QStringList({first, "h2: GET /other"}));
}

void tst_FaultsHttp2::closesBetweenRequests_data()
{
    QTest::addColumn<Spoil>("spoil");
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : kinds()) {
        const auto row = [&kind](const char *name, const Spoil &spoil) {
            QTest::addRow("%s, %s", name, kind.name) << spoil << kind;
        };
        row("closed", [](Http2Server &server) { server.closeAll(); });
        row("go away", [](Http2Server &server) { server.goAway(); });
        row("go away soon", [](Http2Server &server) { server.announceGoAway(); });
    }
}

void tst_FaultsHttp2::closesBetweenRequests()
{
    QFETCH(const Spoil, spoil);
    QFETCH(const RequestKind, kind);
    TransferPolicy policy = Http2Bench::fast();
    policy.setMaximumRetries(0);
    FaultyHttp2 bench(policy);
    bench.http2.on("/fault", FaultyHttp2::right(kind));
    bench.client->rawGet(bench.http2.url("/a"));
    QVERIFY(bench.waitForEnds());
    spoil(bench.http2);
    QVERIFY(bench.http2.waitForConnections(0));

    bench.start(kind);
    QVERIFY(bench.waitForEnds(2));
    QCOMPARE(bench.ends(),
             QStringList({R"(/a s_rawGet {"path":"/a"})", FaultyHttp2::resultOf(kind)}));
    QCOMPARE(bench.http2.seen(),
             QStringList({"h2: GET /a", QString("h2: %1 /fault").arg(kind.verb)}));
}

void tst_FaultsHttp2::closesBetweenRequestsByHttp1_data()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<RequestKind>("kind");
    for (const RequestKind &kind : kinds()) {
        QTest::addRow("HTTP, %s", kind.name) << ScriptedServer::Mode::Http << kind;
        QTest::addRow("HTTPS, %s", kind.name) << ScriptedServer::Mode::Https << kind;
    }
}

void tst_FaultsHttp2::closesBetweenRequestsByHttp1()
{
    QFETCH(const ScriptedServer::Mode, mode);
    QFETCH(const RequestKind, kind);
    TransferPolicy policy = Http2Bench::fast();
    policy.setMaximumRetries(0);
    Http2Bench bench(policy, mode);
    bench.server.onRequest(answers::bytes(kind.isFile() ? content : document));
    const auto start = [&](const QString &path) {
        requestkinds::start(*bench.client, kind, bench.server.url(path), bench.path(path.mid(1)),
                            qulonglong(content.size()));
    };
    start("/a");
    QVERIFY(bench.waitForEnds());
    QVERIFY(bench.server.waitForConnections(1));
    bench.server.closeAll();

    start("/b");
    QVERIFY(bench.waitForEnds(2));
    QCOMPARE(bench.ends(),
             QStringList({FaultyHttp2::resultOf(kind, "/a"), FaultyHttp2::resultOf(kind, "/b")}));
    QCOMPARE(bench.server.requests().size(), 2);
    QVERIFY(bench.server.waitForConnections(1));
}

void tst_FaultsHttp2::takesNoUpload_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("a byte") << 1;
    QTest::newRow("more than a window") << 200000;
}

// The window is closed once the settings have arrived, with the first answer.
void tst_FaultsHttp2::takesNoUpload()
{
    QFETCH(const int, size);
    TransferPolicy policy = Http2Bench::fast();
    policy.setIdleTimeout(shortIdleMsec);
    FaultyHttp2 bench(policy);
    Http2Settings closed;
    closed.window = 0;
    bench.http2.setSettings(closed);
    bench.client->rawGet(bench.http2.url("/a"));
    QVERIFY(bench.waitForEnds());

    bench.client->rawPost(bench.http2.url("/fault"), QByteArray(size, 'x'));
    bench.client->rawGet(bench.http2.url("/b"));
    QVERIFY(bench.waitForEnds(3));
    bench.client->rawGet(bench.http2.url("/c"));
    QVERIFY(bench.waitForEnds(4));
    QCOMPARE(bench.ends(),
             QStringList({R"(/a s_rawGet {"path":"/a"})", R"(/b s_rawGet {"path":"/b"})",
                          R"(/c s_rawGet {"path":"/c"})", "/fault -223"}));
    // Nobody trusts the connection after it.
    QCOMPARE(bench.http2.seen(), QStringList({"h2: GET /a, GET /b", "h2: GET /c"}));
}

void tst_FaultsHttp2::losesOneOfMany_data()
{
    QTest::addColumn<StreamFault>("fault");
    QTest::addColumn<bool>("isGet");
    for (const StreamFault &fault : faults()) {
        if (!fault.name.startsWith("reset") && !fault.name.startsWith("ended"))
            continue;
        QTest::addRow("%s, GET", fault.name.constData()) << fault << true;
        QTest::addRow("%s, POST", fault.name.constData()) << fault << false;
    }
}

// As many as run at once are there before the first one is answered.
void tst_FaultsHttp2::losesOneOfMany()
{
    QFETCH(const StreamFault, fault);
    QFETCH(const bool, isGet);
    const int count = 20;
    FaultyHttp2 bench;
    const int atOnce = bench.client->getParallelRequestsCount();
    QList<std::function<void()>> answers;
    bench.http2.onRequest([&](const HttpRequest &request, Http2Response &response) {
        const bool isFaulty = request.path() == "/2" && bench.arrivals("/2") == 1;
        answers.append([=]() mutable {
            if (isFaulty)
                fault.serve(request, response);
            else
                response.send(200, {}, FaultyHttp2::own(request.path()));
        });
        while (bench.http2.requestCount() >= atOnce && !answers.isEmpty())
            answers.takeFirst()();
    });
    const bool isRepeated = fault.isUntaken || (isGet && fault.mayPass);
    QStringList expected;
    for (int i = 0; i < count; ++i) {
        const QString path = QString("/%1").arg(i);
        const bool isSentByGet = isGet || i != 2;
        if (isSentByGet)
            bench.client->rawGet(bench.http2.url(path));
        else
            bench.client->rawPost(bench.http2.url(path), "{}");
        const bool isLost = i == 2 && !isRepeated;
        expected.append(isLost ? FaultyHttp2::failureOf(path, fault.code)
                               : QString("%1 %2 {\"path\":\"%1\"}")
                                     .arg(path, isSentByGet ? "s_rawGet" : "s_rawPost"));
    }
    expected.sort();
    QVERIFY(bench.waitForEnds(count));
    QCOMPARE(bench.ends(), expected);
    QCOMPARE(bench.http2.seen().size(), 2);
    QCOMPARE(bench.arrivals("/2"), isRepeated ? 2 : 1);
}

void tst_FaultsHttp2::refusesAHop_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("verb");
    QTest::newRow("303") << 303 << "GET";
    QTest::newRow("307") << 307 << "POST";
}

// The one that was redirected has been taken, and is not sent again.
void tst_FaultsHttp2::refusesAHop()
{
    QFETCH(const int, status);
    QFETCH(const QString, verb);
    FaultyHttp2 bench;
    const RequestKind kind = requestkinds::of(replies::raw_post);
    bench.http2.on("/fault",
                   Http2Server::bytes(QByteArray(), status, {{"location", "/elsewhere"}}));
    const Handler refuse = [](const HttpRequest &, Http2Response &response) {
        response.reset(Http2Response::RefusedStream);
    };
    bench.http2.on("/elsewhere", {refuse, FaultyHttp2::right(kind)});
    bench.start(kind);
    QVERIFY(bench.waitForEnds());
    QCOMPARE(bench.ends(), QStringList{FaultyHttp2::resultOf(kind)});
    QCOMPARE(bench.http2.seen(),
             QStringList({QString("h2: POST /fault, %1 /elsewhere").arg(verb),
                          QString("h2: %1 /elsewhere").arg(verb)}));
    const QList<HttpRequest> hops = bench.http2.requests("/elsewhere");
    QCOMPARE(hops.last().body, verb == "GET" ? QByteArray() : operations::body);
}

void tst_FaultsHttp2::takesOneAtATime()
{
    const int count = 20;
    FaultyHttp2 bench;
    Http2Settings narrow;
    narrow.maximumStreams = 1;
    bench.http2.setSettings(narrow);
    QStringList expected;
    // The settings arrive with the first answer.
    for (int i = 0; i < count; ++i) {
        bench.client->rawGet(bench.http2.url(QString("/%1").arg(i)));
        expected.append(QString("/%1 s_rawGet {\"path\":\"/%1\"}").arg(i));
        if (i == 0)
            QVERIFY(bench.waitForEnds());
    }
    expected.sort();
    QVERIFY(bench.waitForEnds(count));
    QCOMPARE(bench.ends(), expected);
    QCOMPARE(bench.http2.seen().size(), 1);
}

void tst_FaultsHttp2::losesTheConnectionOfMany_data()
{
    QTest::addColumn<Handler>("serve");
    QTest::addColumn<int>("streams");
    const auto row = [](const char *name, const Handler &serve) {
        for (const int streams : {1, 100})
            QTest::addRow("%s, %d at once", name, streams) << serve << streams;
    };
    row("cut", [](const HttpRequest &, Http2Response &response) { response.cut(); });
    row("torn down", [](const HttpRequest &, Http2Response &response) { response.tearDown(); });
    row("go away before one",
        [](const HttpRequest &, Http2Response &response) { response.goAwayBefore(); });
    row("go away after one", [](const HttpRequest &request, Http2Response &response) {
        response.goAwayAfter();
        response.send(200, {}, FaultyHttp2::own(request.path()));
    });
}

// Now and then Qt forgets a request that it was to send over a connection which has just ended.
// Then it is idle for too long, and tried again.
void tst_FaultsHttp2::losesTheConnectionOfMany()
{
    QFETCH(const Handler, serve);
    QFETCH(const int, streams);
    const int count = 20;
    TransferPolicy policy = Http2Bench::fast();
    policy.setIdleTimeout(shortIdleMsec);
    policy.setMaximumRetries(20);
    FaultyHttp2 bench(policy);
    Http2Settings settings;
    settings.maximumStreams = quint32(streams);
    bench.http2.setSettings(settings);
    int arrived = 0;
    bench.http2.onRequest([&](const HttpRequest &request, Http2Response &response) {
        if (++arrived == 5)
            serve(request, response);
        else
            response.send(200, {}, FaultyHttp2::own(request.path()));
    });
    QStringList expected;
    for (int i = 0; i < count; ++i) {
        bench.client->rawGet(bench.http2.url(QString("/%1").arg(i)));
        expected.append(QString("/%1 s_rawGet {\"path\":\"/%1\"}").arg(i));
    }
    expected.sort();
    QVERIFY(bench.waitForEnds(count));
    QCOMPARE(bench.ends(), expected);
}

void tst_FaultsHttp2::goesAwayWhileItAnswers_data()
{
    QTest::addColumn<Spoil>("goAway");
    QTest::addColumn<bool>("isGet");
    for (const bool isGet : {true, false}) {
        const char *verb = isGet ? "GET" : "POST";
        QTest::addRow("at once, %s", verb)
            << Spoil([](Http2Server &server) { server.goAway(); }) << isGet;
        QTest::addRow("soon, %s", verb)
            << Spoil([](Http2Server &server) { server.announceGoAway(); }) << isGet;
    }
}

// Qt forgets whatever is to be sent over a connection that still answers, but takes no requests.
void tst_FaultsHttp2::goesAwayWhileItAnswers()
{
    QFETCH(const Spoil, goAway);
    QFETCH(const bool, isGet);
    // What is slow must not be taken for silence.
    const int idleMsec = 4 * shortIdleMsec;
    TransferPolicy policy = Http2Bench::fast();
    policy.setIdleTimeout(idleMsec);
    FaultyHttp2 bench(policy);
    Http2Response slow;
    QTimer pace;
    bench.http2.on("/slow", [&](const HttpRequest &, Http2Response &response) {
        slow = response;
        goAway(bench.http2);
        slow.sendHead(200);
        pace.start(idleMsec / 20);
    });
    connect(&pace, &QTimer::timeout, this, [&slow] { slow.write(" "); });
    bench.client->rawGet(bench.http2.url("/slow"));
    // What came before it has arrived too.
    const QPointer<QNetworkReply> reply = bench.replies().value(0);
    QTRY_VERIFY(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid());
    if (isGet)
        bench.client->rawGet(bench.http2.url("/new"));
    else
        bench.client->rawPost(bench.http2.url("/new"), "{}");
    QVERIFY(bench.waitForEnds());
    slow.write(document);
    slow.finish();
    QVERIFY(bench.waitForEnds(2));

    // A GET is sent again over another connection, and a POST is lost. Under load either may reach
    // the server over the old one.
    const QString lost = "/new -223";
    const bool isLost = !isGet && bench.ends().contains(lost);
    const QString answer =
        QString(R"(/new %1 {"path":"/new"})").arg(isGet ? "s_rawGet" : "s_rawPost");
    QCOMPARE(bench.ends(),
             QStringList({isLost ? lost : answer, R"(/slow s_rawGet {"answer":42})"}));
    const QString verb = isGet ? "GET" : "POST";
    const QStringList ways = isLost ? QStringList{"h2: GET /slow"}
                                    : QStringList{QString("h2: GET /slow | h2: %1 /new").arg(verb),
                                                  QString("h2: GET /slow, %1 /new").arg(verb)};
    const QString seen = bench.http2.seen().join(" | ");
    QVERIFY2(ways.contains(seen), qPrintable(seen));
}

const TestClass<tst_FaultsHttp2> testClass("tst_faults_http2");

} // namespace tst_faults_http2

#include "tst_faults_http2.moc"
