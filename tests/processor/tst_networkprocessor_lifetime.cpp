#include "files.h"
#include "processorbench.h"
#include "testclass.h"

#include <QtCore/QMetaMethod>
#include <QtCore/QSet>
#include <QtTest/QTest>

#include <functional>

namespace tst_networkprocessor_lifetime {

using namespace processorbench;

/// Deletion at every moment, and bodies and redirects that do not end.
class tst_NetworkProcessorLifetime : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everySignalHasAScene();
    void deletionInsideSignals_data();
    void deletionInsideSignals();
    void deletionWithRequestsInFlight_data();
    void deletionWithRequestsInFlight();
    void endlessRedirects_data();
    void endlessRedirects();
    void largeBodies_data();
    void largeBodies();
};

// Deletes its prey when it is struck.
class Killer : public QObject {
    Q_OBJECT

public:
    explicit Killer(QObject *prey)
        : m_prey(prey)
    {
    }

    bool waitUntilDone()
    {
        return m_awaiter.wait([this] { return m_prey.isNull(); }, 10000);
    }

public Q_SLOTS:
    void strike()
    {
        delete m_prey;
        m_awaiter.changed();
    }

private:
    QPointer<QObject> m_prey;
    Awaiter m_awaiter;
};

namespace {

using Mode = ScriptedServer::Mode;

constexpr qint64 MiB = 1024 * 1024;

/// What makes a processor emit.
struct Scene {
    const char *name;
    const char *signal;
    std::function<void(NetworkProcessor &processor, const ScriptedServer &server)> play;
};

std::function<void(NetworkProcessor &, const ScriptedServer &)> get(const QString &replyType,
                                                                    const QString &path = "/json")
{
    return [=](NetworkProcessor &processor, const ScriptedServer &server) {
        // A directory cannot be opened as a file.
        processor.startGet(fileRecord(replyType, server.url(path), QDir::tempPath(), 100));
    };
}

void post(NetworkProcessor &processor, const ScriptedServer &server)
{
    processor.startPost(record(replies::raw_post, server.url("/json")),
                        QByteArray(int(4 * MiB), 'x'));
}

void refuse(NetworkProcessor &processor, const ScriptedServer & /*server*/)
{
    QUrl url("http://127.0.0.1/");
    url.setPort(ScriptedServer::freePort());
    processor.startGet(record(replies::raw_get, url));
}

void getWithoutARecord(NetworkProcessor &processor, const ScriptedServer &server)
{
    QMetaObject::invokeMethod(&processor, "get", Qt::DirectConnection,
                              Q_ARG(QNetworkRequest, QNetworkRequest(server.url("/json"))));
}

// The emission comes from a reply that dies with the processor.
void reportNoTlsErrors(NetworkProcessor &processor, const ScriptedServer &server)
{
    ReplyCatcher replies;
    processor.startGet(record(replies::raw_get, server.url("/never")));
    if (replies.waitFor())
        Q_EMIT replies.at()->sslErrors({});
}

const QList<Scene> &scenes()
{
    static const QList<Scene> all = {
        {"no TLS errors", "s_errorChanged", reportNoTlsErrors},
        {"refused", "s_errorChanged", refuse},
        {"not found", "s_errorChanged", get(replies::raw_get, "/missing")},
        {"not found, redirected", "s_errorChanged", get(replies::raw_get, "/redirect?missing")},
        {"file not opened", "s_errorChanged", get(replies::remote_binary)},
        {"no record", "s_errorChanged", getWithoutARecord},
        {"unknown kind", "s_errorChanged", get(replies::raw_patch)},
        {"percentage", "s_downloadFileProgress", get(replies::raw_get)},
        {"percentage of a download", "s_downloadFileProgress", get(replies::remote_binary)},
        {"bytes", "s_downloadFileBytesProgress", get(replies::raw_get)},
        {"bytes of a download", "s_downloadFileBytesProgress", get(replies::remote_binary)},
        {"bytes of a failure", "s_downloadFileBytesProgress", get(replies::raw_get, "/missing")},
        {"upload", "s_uploadFileProgress", post},
        {"binary", "s_finished", get(replies::remote_binary)},
        {"installer", "s_finished", get(replies::remote_installer)},
        {"definition", "s_fetchDefinition", get(replies::remote_definition)},
        {"index", "s_fetchIndex", get(replies::remote_index)},
        {"change log", "s_fetchInstallerChangeLog", get(replies::remote_installer_log)},
        {"change log data", "s_fetchInstallerChangeLogData", get(replies::remote_installer_log)},
        {"raw get", "s_rawGet", get(replies::raw_get)},
        {"raw get, redirected", "s_rawGet", get(replies::raw_get, "/redirect?json")},
        {"raw post", "s_rawPost", post},
        {"raw file", "s_rawGetFileFinished", get(replies::raw_get_file)},
    };
    return all;
}

QMetaMethod signalNamed(const QByteArray &name)
{
    const QMetaObject &meta = NetworkProcessor::staticMetaObject;
    for (int index = meta.methodOffset(); index < meta.methodCount(); ++index) {
        if (meta.method(index).name() == name)
            return meta.method(index);
    }
    return QMetaMethod();
}

void furnish(ScriptedServer &server)
{
    server.on("/json", answers::json({{"a", 1}}));
    server.on("/never", answers::withhold());
    const QByteArray root = server.url("/").toEncoded();
    server.on("/redirect", [root](const HttpRequest &request, HttpResponse &response) {
        const QByteArray target = request.target.mid(request.target.indexOf('?') + 1);
        response.send(302, {{"Location", root + target}});
    });
    server.on("/head", [](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, 1000);
    });
    server.on("/part", [](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, 1000);
        response.write("part");
    });
}

} // namespace

// The processor never emits s_aborted.
void tst_NetworkProcessorLifetime::everySignalHasAScene()
{
    QSet<QByteArray> expected;
    const QMetaObject &meta = NetworkProcessor::staticMetaObject;
    for (int index = meta.methodOffset(); index < meta.methodCount(); ++index) {
        if (meta.method(index).methodType() == QMetaMethod::Signal)
            expected.insert(meta.method(index).name());
    }
    expected.remove("s_aborted");

    QSet<QByteArray> found;
    for (const Scene &scene : scenes())
        found.insert(scene.signal);
    QCOMPARE(found, expected);
}

void tst_NetworkProcessorLifetime::deletionInsideSignals_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<int>("number");

    for (int number = 0; number < scenes().size(); ++number) {
        const Scene &scene = scenes().at(number);
        QTest::addRow("%s: %s http", scene.signal, scene.name) << Mode::Http << number;
        QTest::addRow("%s: %s https", scene.signal, scene.name) << Mode::Https << number;
    }
}

void tst_NetworkProcessorLifetime::deletionInsideSignals()
{
    QFETCH(Mode, mode);
    QFETCH(int, number);
    const Scene &scene = scenes().at(number);
    ProcessorBench bench(mode);
    furnish(bench.server);
    Killer killer(bench.processor);
    const QMetaMethod strike =
        killer.metaObject()->method(killer.metaObject()->indexOfSlot("strike()"));
    QVERIFY(connect(bench.processor, signalNamed(scene.signal), &killer, strike));
    // It comes after the killer, and therefore never hears of that signal.
    SignalRecorder late(bench.processor);

    bench.start(record(replies::raw_get, bench.server.url("/never")));
    scene.play(*bench.processor, bench.server);
    QVERIFY(killer.waitUntilDone());

    QCOMPARE(late.count(scene.signal), 0);
    QVERIFY(bench.server.waitForConnections(0));
    QVERIFY(bench.replies.waitUntilGone());
    QCOMPARE(bench.texts("dtor"), QStringList{"NetworkProcessor dtor"});
}

void tst_NetworkProcessorLifetime::deletionWithRequestsInFlight_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("isPost");

    for (const Mode mode : {Mode::Http, Mode::Https}) {
        for (const char *path : {"/never", "/head", "/part"}) {
            QTest::addRow("GET %s %d", path, int(mode)) << mode << path << false;
            QTest::addRow("POST %s %d", path, int(mode)) << mode << path << true;
        }
    }
}

// They end silently: none of them is aborted by itself.
void tst_NetworkProcessorLifetime::deletionWithRequestsInFlight()
{
    QFETCH(Mode, mode);
    QFETCH(QString, path);
    QFETCH(bool, isPost);
    ProcessorBench bench(mode);
    furnish(bench.server);
    const QStringList kinds{replies::raw_get, replies::remote_binary, replies::raw_get_file};
    for (int number = 0; number < 12; ++number)
        bench.start(record(kinds.at(number % kinds.size()), bench.server.url(path)), isPost);
    // Qt opens six connections to one host; the other requests wait.
    QVERIFY(bench.server.waitForRequests(6));
    // The download without a file leaves its bytes unread.
    QTRY_VERIFY(path != "/part" || bench.replies.at(1)->bytesAvailable() > 0);

    bench.log.clear();
    bench.recorder.clear();
    delete bench.processor;

    QVERIFY(bench.replies.allGone());
    QVERIFY(bench.server.waitForConnections(0));
    QCOMPARE(bench.texts(), QStringList{"NetworkProcessor dtor"});
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_NetworkProcessorLifetime::endlessRedirects_data()
{
    QTest::addColumn<Mode>("mode");

    QTest::newRow("http") << Mode::Http;
    QTest::newRow("https") << Mode::Https;
}

void tst_NetworkProcessorLifetime::endlessRedirects()
{
    QFETCH(Mode, mode);
    ProcessorBench bench(mode);
    furnish(bench.server);
    bench.server.on("/loop", answers::redirect(302, bench.server.url("/loop").toEncoded()));
    const ReplyData json = record(replies::raw_get, bench.server.url("/json"));

    bench.start(record(replies::remote_index, bench.server.url("/loop")));
    QVERIFY(bench.server.waitForRequests(500, 60000));
    bench.start(json);
    QVERIFY(bench.recorder.waitFor("s_rawGet"));
    const int sofar = bench.server.requests("/loop").size();
    QVERIFY(bench.server.waitForRequests(sofar + 100, 60000));
    QCOMPARE(bench.outcomes().size(), 1);

    delete bench.processor;
    QVERIFY(bench.replies.allGone());
    QVERIFY(bench.server.waitForConnections(0));
    const int atTheEnd = bench.server.requests().size();

    // Whatever was still under way would have arrived before this answer.
    NetworkProcessor other;
    SignalRecorder otherRecorder(&other);
    other.startGet(json);
    QVERIFY(otherRecorder.waitFor("s_rawGet"));
    QCOMPARE(bench.server.requests().size(), atTheEnd + 1);
}

void tst_NetworkProcessorLifetime::largeBodies_data()
{
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("canOpen");
    QTest::addColumn<qint64>("bodySize");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<qint64>("least");
    QTest::addColumn<qint64>("most");
    QTest::addColumn<QString>("last");

    const qint64 none = 0;
    const qint64 large = 20 * MiB;
    for (const Mode mode : {Mode::Http, Mode::Https}) {
        const auto row = [mode](const char *name) -> QTestData & {
            return QTest::addRow("%s %d", name, int(mode)) << mode;
        };
        row("saved") << 200 << true << large << large << large << large << "s_finished";
        row("not found") << 404 << true << large << large << none << none << "s_errorChanged";
        row("server error") << 500 << true << large << large << none << none << "s_errorChanged";
        row("no redirect") << 300 << true << large << large << none << none << "s_finished";
        row("no file") << 200 << false << large << large << none << none << "s_finished";
        // The chunk that reaches the size is written whole.
        row("surplus") << 200 << true << 36 * MiB << 17 * MiB << 17 * MiB << 19 * MiB
                       << "s_finished";
    }
}

// What is left unread must not stop the rest: bodies are larger than any buffer on the way.
void tst_NetworkProcessorLifetime::largeBodies()
{
    QFETCH(Mode, mode);
    QFETCH(int, status);
    QFETCH(bool, canOpen);
    QFETCH(qint64, bodySize);
    QFETCH(qint64, size);
    QFETCH(qint64, least);
    QFETCH(qint64, most);
    QFETCH(QString, last);
    ProcessorBench bench(mode);
    const QString path = bench.path(canOpen ? "file" : "missing/file");
    bench.server.onRequest([status, bodySize](const HttpRequest &, HttpResponse &response) {
        response.sendGenerated(status, {}, bodySize);
    });

    bench.start(fileRecord(replies::remote_binary, bench.server.url(), path, quint64(size)));
    QVERIFY(bench.replies.waitUntilGone(60000));

    const QByteArray content = files::read(path);
    QVERIFY2(content.size() >= least && content.size() <= most, QByteArray::number(content.size()));
    QVERIFY(content == HttpResponse::generated(0, content.size()));
    QCOMPARE(bench.outcomes().last().first().toString(), last);
}

const TestClass<tst_NetworkProcessorLifetime> testClass("tst_networkprocessor_lifetime");

} // namespace tst_networkprocessor_lifetime

#include "tst_networkprocessor_lifetime.moc"
