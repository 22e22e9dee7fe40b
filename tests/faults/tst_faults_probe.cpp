#include "clientbench.h"
#include "endings.h"
#include "files.h"
#include "strictbench.h"
#include "testclass.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QTimer>
#include <QtNetwork/QTcpServer>
#include <QtTest/QTest>

#include <memory>
#include <vector>

namespace tst_faults_probe {

using Mode = ScriptedServer::Mode;
using endings::signalText;

namespace {

// Between the second and the third ping, so that an answer to the first has had its time.
constexpr int timeoutMsec = 1500;
constexpr int slowMsec = 300;
const QByteArray content = "abcdef";
const QByteArray old = "old";
const char probeFile[] = "../../source/appl/remoteping";

/// How the root answers the probe while a download stands still.
struct RootAnswer {
    QByteArray name;
    Mode mode;
    ScriptedServer::Handler answer;
    /// Whether it counts as a sign of life.
    bool isAlive;
    /// The same for a strict client.
    bool isAliveStrictly;
    /// Whether the server takes no further connections once it has the download's.
    bool refuses = false;
};

/// A strict client's, for which nobody but the probe tells that a server is silent.
TransferPolicy strict()
{
    TransferPolicy policy = StrictBench::waitingFor(0);
    policy.setMaximumRetries(0);
    return policy;
}

/// A client whose probe gives up after \a timeout.
struct ProbingBench : ClientBench {
    ProbingBench(Mode mode, int timeout, const TransferPolicy &policy = TransferPolicy())
        : ClientBench(mode, policy)
    {
        client->setTemporaryDirectory(directory.path());
        client->setPingTimeout(timeout);
        recorder.clear();
    }

    void download(const QUrl &url)
    {
        client->fetchBinary(url, path("file"), qulonglong(content.size()));
    }
};

/// A download that a server withholds, so that only the probe tells whether the server lives.
struct Download : ProbingBench {
    explicit Download(const RootAnswer &root, const TransferPolicy &policy = TransferPolicy())
        : ProbingBench(root.mode, timeoutMsec, policy)
    {
        server.on("/", root.answer);
        const bool refuses = root.refuses;
        server.on("/file", [this, refuses](const HttpRequest &, HttpResponse &response) {
            response.sendHead(200, {}, content.size());
            held = response;
            if (refuses)
                server.refuse();
        });
        download(server.url("/file"));
    }

    HttpResponse held;
};

/// The same for a strict client, which also waits for another server, and is not to give that up.
struct StrictDownload : Download {
    explicit StrictDownload(const RootAnswer &root)
        : Download(root, strict())
    {
        files::write(path("file"), old);
        other.onRequest(
            [this](const HttpRequest &, HttpResponse &response) { heldElsewhere = response; });
        client->rawGet(other.url("/elsewhere"));
    }

    ScriptedServer other;
    HttpResponse heldElsewhere;
};

QList<RootAnswer> rootAnswers()
{
    const auto slow = [](const HttpRequest &, HttpResponse &response) {
        QTimer::singleShot(slowMsec, qApp, [response]() mutable { response.send(200); });
    };
    const auto cut = [](const HttpRequest &, HttpResponse &response) { response.cut(); };
    QList<RootAnswer> answers;
    for (const Mode mode : {Mode::Http, Mode::Https}) {
        const QByteArray scheme = mode == Mode::Http ? ", HTTP" : ", HTTPS";
        answers.append({"mute" + scheme, mode, answers::withhold(), false, false});
        answers.append({"refusing" + scheme, mode, answers::withhold(), false, false, true});
        answers.append({"closing" + scheme, mode, cut, false, false});
        answers.append({"404" + scheme, mode, answers::status(404), false, true});
        answers.append({"500" + scheme, mode, answers::status(500), false, true});
        answers.append({"403" + scheme, mode, answers::status(403), true, true});
        answers.append({"405" + scheme, mode, answers::status(405), true, true});
        answers.append({"200" + scheme, mode, answers::status(200), true, true});
        answers.append({"slow" + scheme, mode, slow, true, true});
    }
    return answers;
}

void listenAbove32767(QTcpServer &server)
{
    quint16 port = 32768;
    while (!server.listen(QHostAddress::LocalHost, port))
        ++port;
}

} // namespace

/// What the probe makes of a server decides over the download. The probe has its pace, so all
/// downloads run at once.
class tst_FaultsProbe : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void rootAnswersTheProbe_data();
    void rootAnswersTheProbe();
    void rootAnswersStrictly_data();
    void rootAnswersStrictly();
    void portAbove32767_data() { addSchemes(); }
    void portAbove32767();
    void portAbove32767Strictly_data() { addSchemes(); }
    void portAbove32767Strictly();
    void refusedConnection_data() { addSchemes(); }
    void refusedConnection();
    void refusedConnectionStrictly_data() { addSchemes(); }
    void refusedConnectionStrictly();

private:
    static void addSchemes();

    std::vector<std::unique_ptr<Download>> m_downloads;
    std::vector<std::unique_ptr<StrictDownload>> m_strictDownloads;
};

void tst_FaultsProbe::initTestCase()
{
    for (const RootAnswer &root : rootAnswers()) {
        m_downloads.push_back(std::make_unique<Download>(root));
        m_strictDownloads.push_back(std::make_unique<StrictDownload>(root));
    }
}

void tst_FaultsProbe::cleanupTestCase()
{
    m_downloads.clear();
    m_strictDownloads.clear();
}

void tst_FaultsProbe::addSchemes()
{
    QTest::addColumn<QString>("scheme");
    QTest::newRow("HTTP") << "http";
    QTest::newRow("HTTPS") << "https";
}

void tst_FaultsProbe::rootAnswersTheProbe_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<bool>("isAlive");
    int index = 0;
    for (const RootAnswer &root : rootAnswers())
        QTest::newRow(root.name) << index++ << root.isAlive;
}

void tst_FaultsProbe::rootAnswersTheProbe()
{
    QFETCH(int, index);
    QFETCH(bool, isAlive);

    Download &download = *m_downloads.at(size_t(index));
    const QString url = download.url("/file");
    QStringList expected = {"s_startPing|-1", "s_repliesCountChanged"};
    if (isAlive) {
        // More pings than the time-out would have allowed.
        QTRY_VERIFY(download.server.requests("/").size() >= 3);
        download.held.write(content);
        QVERIFY(download.recorder.waitFor("s_stopPing"));
        expected << signalText("s_finished", {url}) << "s_repliesCountChanged"
                 << "s_stopPing";
    } else {
        QVERIFY(download.recorder.waitFor("s_errorChanged"));
        expected << "s_repliesCountChanged"
                 << "s_stopPing" << signalText("s_aborted", {url})
                 << signalText("s_errorChanged", {-203, download.url(""), QJsonDocument()});
    }
    QCOMPARE(endings::seen(download.recorder), expected);
    // What was held back until then is the whole file, or none of it.
    QCOMPARE(files::read(download.path("file")), isAlive ? content : QByteArray());
    QVERIFY(!QFileInfo::exists(download.path("file.vtxdownload")));
}

void tst_FaultsProbe::rootAnswersStrictly_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<bool>("isAlive");
    int index = 0;
    for (const RootAnswer &root : rootAnswers())
        QTest::newRow(root.name) << index++ << root.isAliveStrictly;
}

// Whatever it answers is an answer, and only what was asked of this server ends.
void tst_FaultsProbe::rootAnswersStrictly()
{
    QFETCH(int, index);
    QFETCH(bool, isAlive);

    StrictDownload &download = *m_strictDownloads.at(size_t(index));
    if (isAlive) {
        QTRY_VERIFY(download.server.requests("/").size() >= 3);
        download.held.write(content);
        QVERIFY(download.recorder.waitFor("s_finished"));
    } else {
        QVERIFY(download.recorder.waitFor("s_errorChanged"));
        QCOMPARE(download.error().at(1).toString(), download.url("/file"));
    }
    download.heldElsewhere.send(200, {}, "{}");
    QVERIFY(download.recorder.waitFor("s_rawGet"));

    QCOMPARE(download.errors(), isAlive ? QList<int>() : QList<int>{-223});
    QCOMPARE(download.recorder.count("s_finished"), isAlive ? 1 : 0);
    QCOMPARE(download.abortedUrls(), QStringList());
    QCOMPARE(download.recorder.count("s_rawGet"), 1);
    QCOMPARE(files::read(download.path("file")), isAlive ? content : old);
    QCOMPARE(QDir(download.path()).entryList(QDir::Files | QDir::Hidden), QStringList("file"));
}

// The probe keeps its port in a signed number of 16 bits. It cannot ask such a server, and so takes
// it for dead.
void tst_FaultsProbe::portAbove32767()
{
    QFETCH(QString, scheme);

    QTcpServer server;
    listenAbove32767(server);
    ProbingBench bench(Mode::Http, 500);
    const QString url = QString("%1://127.0.0.1:%2/file").arg(scheme).arg(server.serverPort());
    bench.download(QUrl(url));
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    QCOMPARE(endings::seen(bench.recorder),
             QStringList({"s_startPing|-1", "s_repliesCountChanged", "s_repliesCountChanged",
                          "s_stopPing", signalText("s_aborted", {url}),
                          signalText("s_errorChanged", {-203, QString(), QJsonDocument()})}));
    QCOMPARE(bench.log.texts(QtWarningMsg).filter("Incorrect URL:"),
             QStringList("Incorrect URL: \"\""));
    QCOMPARE(bench.log.originFault(probeFile), QString());
}

// The probe of a strict client asks there too. This server is dead because it says nothing.
void tst_FaultsProbe::portAbove32767Strictly()
{
    QFETCH(QString, scheme);

    QTcpServer server;
    listenAbove32767(server);
    int connections = 0;
    connect(&server, &QTcpServer::newConnection, this, [&connections] { ++connections; });
    ProbingBench bench(Mode::Http, timeoutMsec, strict());
    const QString url = QString("%1://127.0.0.1:%2/file").arg(scheme).arg(server.serverPort());
    bench.download(QUrl(url));
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    QCOMPARE(bench.errors(), QList<int>{-223});
    QCOMPARE(bench.error().at(1).toString(), url);
    QCOMPARE(bench.abortedUrls(), QStringList());
    QVERIFY(connections > 1);
    QCOMPARE(bench.log.texts(QtWarningMsg).filter("Incorrect URL:"), QStringList());
}

// The download of a server that is gone fails by itself, before the first ping.
void tst_FaultsProbe::refusedConnection()
{
    QFETCH(QString, scheme);

    ProbingBench bench(Mode::Http, timeoutMsec);
    const QString url =
        QString("%1://127.0.0.1:%2/file").arg(scheme).arg(ScriptedServer::freePort());
    bench.download(QUrl(url));
    QVERIFY(bench.recorder.waitFor("s_aborted"));

    QCOMPARE(endings::seen(bench.recorder),
             QStringList({"s_startPing|-1", "s_repliesCountChanged",
                          signalText("s_errorChanged", {-203, url, QJsonDocument()}),
                          "s_repliesCountChanged", "s_stopPing", signalText("s_aborted", {url})}));
}

// Nothing else is aborted.
void tst_FaultsProbe::refusedConnectionStrictly()
{
    QFETCH(QString, scheme);

    ProbingBench bench(Mode::Http, timeoutMsec, strict());
    const QString url =
        QString("%1://127.0.0.1:%2/file").arg(scheme).arg(ScriptedServer::freePort());
    bench.download(QUrl(url));
    QVERIFY(bench.recorder.waitFor("s_stopPing"));

    QCOMPARE(bench.errors(), QList<int>{-203});
    QCOMPARE(bench.error().at(1).toString(), url);
    QCOMPARE(bench.emitted(),
             QStringList({"s_startPing", "s_repliesCountChanged", "s_errorChanged",
                          "s_repliesCountChanged", "s_stopPing"}));
}

const TestClass<tst_FaultsProbe> testClass("tst_faults_probe");

} // namespace tst_faults_probe

#include "tst_faults_probe.moc"
