#include "answers.h"
#include "files.h"
#include "logcapture.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/tarvisnet.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <functional>

/// A file operation with the URL in one of its forms.
using FileRequest = std::function<void(TarvisNet &, const QString &url, const QString &savePath)>;

Q_DECLARE_METATYPE(FileRequest)

namespace {

struct NamedRequest {
    const char *name;
    FileRequest send;
    const char *result;
};

QList<NamedRequest> fileRequests()
{
    using T = TarvisNet;
    return {
        {"rawGetFile(QUrl)",
         [](T &t, const QString &url, const QString &path) { t.rawGetFile(QUrl(url), path); },
         "s_rawGetFileFinished"},
        {"rawGetFile(QString)",
         [](T &t, const QString &url, const QString &path) { t.rawGetFile(url, path); },
         "s_rawGetFileFinished"},
        {"rawPostFile(QUrl)",
         [](T &t, const QString &url, const QString &path) { t.rawPostFile(QUrl(url), path, "x"); },
         "s_rawPostFileFinished"},
        {"rawPostFile(QString)",
         [](T &t, const QString &url, const QString &path) { t.rawPostFile(url, path, "x"); },
         "s_rawPostFileFinished"},
    };
}

void addRequests()
{
    QTest::addColumn<FileRequest>("send");
    QTest::addColumn<QString>("result");
    for (const NamedRequest &request : fileRequests())
        QTest::newRow(request.name) << request.send << QString(request.result);
}

} // namespace

/// Every file request writes to the path that was given last, whoever gave it.
class tst_TarvisNetRawFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void savesAtPath_data() { addRequests(); }
    void savesAtPath();
    void keepsPathForNextRequest_data() { addRequests(); }
    void keepsPathForNextRequest();
    void savesRequestsInFlightAtLastPath_data() { addRequests(); }
    void savesRequestsInFlightAtLastPath();
    void sharesPathAmongOperations();
    void keepsPathOnRefusal_data();
    void keepsPathOnRefusal();

private:
    QString path(const char *name) const { return m_directory->filePath(name); }
    QString url(const char *path) const { return m_server->url(path).toString(); }

    QScopedPointer<LogCapture> m_log;
    QScopedPointer<QTemporaryDir> m_directory;
    QScopedPointer<ScriptedServer> m_server;
    QScopedPointer<TarvisNet> m_client;
};

void tst_TarvisNetRawFiles::init()
{
    m_log.reset(new LogCapture);
    m_directory.reset(new QTemporaryDir);
    m_server.reset(new ScriptedServer);
    m_server->on("/first", answers::bytes("first body"));
    m_server->on("/second", answers::bytes("the second body"));
    m_client.reset(new TarvisNet);
}

void tst_TarvisNetRawFiles::cleanup()
{
    m_client.reset();
    m_server.reset();
    m_directory.reset();
    m_log.reset();
}

void tst_TarvisNetRawFiles::savesAtPath()
{
    QFETCH(const FileRequest, send);
    QFETCH(const QString, result);
    SignalRecorder recorder(m_client.data());
    send(*m_client, url("/first"), path("A"));
    QVERIFY(recorder.waitFor(result));
    QCOMPARE(files::read(path("A")), QByteArray("first body"));
    QCOMPARE(recorder.last(result).value(0).toByteArray(), QByteArray("first body"));
}

void tst_TarvisNetRawFiles::keepsPathForNextRequest()
{
    QFETCH(const FileRequest, send);
    QFETCH(const QString, result);
    SignalRecorder recorder(m_client.data());
    send(*m_client, url("/first"), path("A"));
    QVERIFY(recorder.waitFor(result));
    QCOMPARE(files::read(path("A")), QByteArray("first body"));
    send(*m_client, url("/second"), QString());
    QVERIFY(recorder.waitFor(result, 2));
    QCOMPARE(files::read(path("A")), QByteArray("the second body"));
}

void tst_TarvisNetRawFiles::savesRequestsInFlightAtLastPath()
{
    QFETCH(const FileRequest, send);
    QFETCH(const QString, result);
    QList<HttpResponse> held;
    m_server->onRequest(
        [&held](const HttpRequest &, HttpResponse &response) { held.append(response); });
    SignalRecorder recorder(m_client.data());
    send(*m_client, url("/held/1"), path("A"));
    QVERIFY(m_server->waitForRequests(1));
    send(*m_client, url("/held/2"), path("B"));
    QVERIFY(m_server->waitForRequests(2));

    held[0].send(200, {}, "first body");
    QVERIFY(recorder.waitFor(result));
    QCOMPARE(files::read(path("B")), QByteArray("first body"));
    held[1].send(200, {}, "the second body");
    QVERIFY(recorder.waitFor(result, 2));
    QCOMPARE(files::read(path("B")), QByteArray("the second body"));
    QVERIFY(!QFile::exists(path("A")));
}

void tst_TarvisNetRawFiles::sharesPathAmongOperations()
{
    SignalRecorder recorder(m_client.data());
    m_client->rawPostFile(m_server->url("/first"), path("A"));
    QVERIFY(recorder.waitFor("s_rawPostFileFinished"));
    m_client->rawGetFile(m_server->url("/second"));
    QVERIFY(recorder.waitFor("s_rawGetFileFinished"));
    QCOMPARE(files::read(path("A")), QByteArray("the second body"));
}

void tst_TarvisNetRawFiles::keepsPathOnRefusal_data()
{
    QTest::addColumn<FileRequest>("send");
    QTest::addColumn<QString>("url");
    for (const NamedRequest &request : fileRequests()) {
        QTest::addRow("%s, empty", request.name) << request.send << QString();
        QTest::addRow("%s, not valid", request.name) << request.send << "http://[bad/";
    }
}

void tst_TarvisNetRawFiles::keepsPathOnRefusal()
{
    QFETCH(const FileRequest, send);
    QFETCH(const QString, url);
    SignalRecorder recorder(m_client.data());
    m_client->rawGetFile(m_server->url("/first"), path("A"));
    QVERIFY(recorder.waitFor("s_rawGetFileFinished"));

    send(*m_client, url, path("B"));
    QCOMPARE(recorder.count("s_errorChanged"), 1);
    m_client->rawGetFile(m_server->url("/second"));
    QVERIFY(recorder.waitFor("s_rawGetFileFinished", 2));
    QCOMPARE(files::read(path("A")), QByteArray("the second body"));
    QVERIFY(!QFile::exists(path("B")));
}

QTEST_GUILESS_MAIN(tst_TarvisNetRawFiles)

#include "tst_tarvisnet_raw_files.moc"
