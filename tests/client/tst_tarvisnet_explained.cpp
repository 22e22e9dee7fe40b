#include "fakereply.h"
#include "files.h"
#include "lockedqueue.h"
#include "testclass.h"

#include <QtCore/QDateTime>
#include <QtCore/QJsonArray>
#include <QtCore/QLocale>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <functional>

namespace tst_tarvisnet_explained {

namespace {

/// A client whose errors are explained, and a server.
struct Bench {
    explicit Bench(bool isExplained = true)
    {
        TransferPolicy policy;
        policy.setErrorsExplained(isExplained);
        makeClient(policy);
    }

    /// Calls a slot that only the meta-object shows.
    void call(const char *slot, const QGenericArgument &argument = QGenericArgument()) const
    {
        if (!QMetaObject::invokeMethod(client.data(), slot, Qt::DirectConnection, argument))
            qFatal("the client has no slot %s", slot);
    }

    void makeClient(const TransferPolicy &policy)
    {
        client.reset(new TarvisNet(policy));
        client->setTemporaryDirectory(directory.path());
        recorder.reset(new SignalRecorder(client.data(), {"s_errorChanged"}));
    }

    /// What came with the error \a code, which must be the last one.
    QJsonDocument told(int code) const
    {
        const QVariantList error = recorder->last("s_errorChanged");
        return error.value(0).toInt() == code ? error.value(2).toJsonDocument() : QJsonDocument();
    }

    LogCapture log;
    QTemporaryDir directory;
    ScriptedServer server;
    ScriptedServer tlsServer{ScriptedServer::Mode::Https};
    QScopedPointer<TarvisNet> client;
    QScopedPointer<SignalRecorder> recorder;
};

using Failing = std::function<void(Bench &)>;

HttpHeaders waiting(const QByteArray &text)
{
    return {{"Retry-After", text}};
}

} // namespace

} // namespace tst_tarvisnet_explained

Q_DECLARE_METATYPE(tst_tarvisnet_explained::Failing)

namespace tst_tarvisnet_explained {

/// What the third argument of an error is with a policy that asks for explanations.
class tst_TarvisNetExplained : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void tells_data();
    void tells();
    void tellsNothingUnlessAsked();
    void tellsADateInSeconds();
};

void tst_TarvisNetExplained::tells_data()
{
    QTest::addColumn<Failing>("fail");
    QTest::addColumn<int>("code");
    QTest::addColumn<QJsonObject>("expected");
    const auto row = [](const char *name, int code, const QJsonObject &expected,
                        const Failing &fail) { QTest::newRow(name) << fail << code << expected; };
    // "REASON" stands for a sentence of Qt's.
    const auto answered = [&row](const char *name, int code, int status, const char *error) {
        row(name, code, {{"reason", "REASON"}, {"httpStatus", status}, {"networkError", error}},
            [status](Bench &bench) {
                bench.server.on("/a", answers::status(status));
                bench.client->rawGet(bench.server.url("/a"));
            });
    };
    answered("403", -203, 403, "ContentAccessDenied");
    answered("503", -203, 503, "ServiceUnavailableError");
    answered("401", -213, 401, "AuthenticationRequiredError");
    answered("404", -217, 404, "ContentNotFoundError");
    answered("400", -220, 400, "ProtocolInvalidOperationError");

    row("nobody there", -203, {{"reason", "REASON"}, {"networkError", "ConnectionRefusedError"}},
        [](Bench &bench) {
            bench.server.stop();
            bench.client->rawGet(bench.server.url("/a"));
        });
    row("nobody signed it", -222,
        {{"reason", "REASON"}, {"networkError", "SslHandshakeFailedError"}}, [](Bench &bench) {
            bench.makeClient(TransferPolicy::strict());
            bench.client->rawGet(bench.tlsServer.url("/a"));
        });
    row("wait some seconds", -203,
        {{"reason", "REASON"},
         {"httpStatus", 503},
         {"networkError", "ServiceUnavailableError"},
         {"retryAfter", 7}},
        [](Bench &bench) {
            bench.server.on("/a", answers::bytes("", 503, waiting("7")));
            bench.client->rawGet(bench.server.url("/a"));
        });
    row("wait for nonsense", -203,
        {{"reason", "REASON"}, {"httpStatus", 503}, {"networkError", "ServiceUnavailableError"}},
        [](Bench &bench) {
            bench.server.on("/a", answers::bytes("", 503, waiting("soon")));
            bench.client->rawGet(bench.server.url("/a"));
        });
    row("wait until the past", -203,
        {{"reason", "REASON"},
         {"httpStatus", 503},
         {"networkError", "ServiceUnavailableError"},
         {"retryAfter", 0}},
        [](Bench &bench) {
            bench.server.on("/a",
                            answers::bytes("", 503, waiting("Fri, 31 Dec 1999 23:59:59 GMT")));
            bench.client->rawGet(bench.server.url("/a"));
        });
    row("what the server says", -217,
        {{"reason", "REASON"},
         {"httpStatus", 404},
         {"networkError", "ContentNotFoundError"},
         {"body", QJsonObject{{"why", "gone"}}}},
        [](Bench &bench) {
            bench.server.on("/a", answers::json({{"why", "gone"}}, 404));
            bench.client->rawGet(bench.server.url("/a"));
        });
    row("what the server lists", -217,
        {{"reason", "REASON"},
         {"httpStatus", 404},
         {"networkError", "ContentNotFoundError"},
         {"body", QJsonArray{1, 2}}},
        [](Bench &bench) {
            bench.server.on("/a", answers::bytes("[1,2]", 404));
            bench.client->rawGet(bench.server.url("/a"));
        });
    row("half a download", -203,
        {{"reason", "REASON"},
         {"httpStatus", 200},
         {"networkError", "RemoteHostClosedError"},
         {"expected", 1000},
         {"received", 4}},
        [](Bench &bench) {
            bench.server.on("/a", answers::cutShort("half", 1000));
            bench.client->fetchBinary(bench.server.url("/a"), bench.directory.filePath("a"), 1000);
        });
    row("another file in the way", -218,
        {{"reason", "The finished file could not be put in place."},
         {"httpStatus", 200},
         {"expected", 3},
         {"received", 0}},
        [](Bench &bench) {
            files::write(bench.directory.filePath("a"), "in the way");
            bench.server.on("/a", answers::file("abc"));
            bench.client->fetchBinary(bench.server.url("/a"), bench.directory.filePath("a"), 3);
        });
    row("invalid URL", -207, {{"reason", "The URL or path is empty or not valid."}},
        [](Bench &bench) { bench.client->rawGet(QUrl()); });
    row("equal request", -221, {{"reason", "An equal request is waiting already."}},
        [](Bench &bench) {
            bench.client->setStopProcess(true);
            bench.client->rawGet(bench.server.url("/a"));
            bench.client->rawGet(bench.server.url("/a"));
        });
    row("queue locked", -219, {{"reason", "Another thread held the queue for too long."}},
        [](Bench &bench) {
            bench.client->setStopProcess(true);
            const QUrl url = bench.server.url("/a");
            const LockedQueue locked(bench.client.data(),
                                     clientaccess::record(replies::raw_get, url));
            bench.client->forceRawGet(url);
        });
    row("probe", -203, {{"reason", "The server does not answer."}},
        [](const Bench &bench) { bench.call("pingTimeout"); });
    row("key not pinned", -222,
        {{"reason", "The server is not one to trust, or the handshake failed."}}, [](Bench &bench) {
            TransferPolicy policy;
            policy.setPinnedKeys({QByteArray(32, 'x')});
            policy.setErrorsExplained(true);
            bench.makeClient(policy);
            bench.client->rawGet(bench.tlsServer.url("/a"));
        });
    row("TLS errors without one", -201, {{"reason", "Qt reported TLS errors, but named none."}},
        [](const Bench &bench) {
            bench.call("replySslErrors", Q_ARG(QList<QSslError>, QList<QSslError>()));
        });
    row("file not opened", -210, {{"reason", "The file of the download cannot be opened."}},
        [](const Bench &bench) {
            bench.client->setInstallerFileSize(1000);
            bench.client->setInstallerFileName(bench.directory.filePath("missing/setup"));
            FakeReply reply;
            bench.call("saveInstaller", Q_ARG(QNetworkReply *, &reply));
        });
    // Without a reply there is no sentence of Qt's.
    const auto ofNoReply = [&row](const char *name, int code, QNetworkReply::NetworkError error,
                                  const char *sentence) {
        row(name, code, {{"reason", sentence}}, [error](const Bench &bench) {
            bench.call("replyError", Q_ARG(QNetworkReply::NetworkError, error));
        });
    };
    ofNoReply("no reply, credentials", -213, QNetworkReply::AuthenticationRequiredError,
              "The server asks for credentials.");
    ofNoReply("no reply, unknown", -216, QNetworkReply::UnknownNetworkError,
              "Qt knows of a failure, but not of which.");
    ofNoReply("no reply, no content", -217, QNetworkReply::ContentNotFoundError,
              "The server does not have the content.");
    ofNoReply("no reply, faulty request", -220, QNetworkReply::ProtocolInvalidOperationError,
              "The server finds the request faulty.");
    ofNoReply("no reply, handshake", -222, QNetworkReply::SslHandshakeFailedError,
              "The server is not one to trust, or the handshake failed.");
    row("unknown kind", -215,
        {{"reason", "An answer came that belongs to no request that is handled."},
         {"httpStatus", 200}},
        [](Bench &bench) {
            bench.server.on("/a", answers::status(200));
            const QUrl url = bench.server.url("/a");
            bench.call("addRequest", Q_ARG(ReplyData, clientaccess::record("neverHeardOf", url)));
        });
}

void tst_TarvisNetExplained::tells()
{
    QFETCH(const Failing, fail);
    QFETCH(const int, code);
    QFETCH(const QJsonObject, expected);
    Bench bench;
    fail(bench);
    QVERIFY(bench.recorder->count("s_errorChanged") > 0
            || bench.recorder->waitFor("s_errorChanged"));
    QJsonObject told = bench.told(code).object();
    QVERIFY(!told.value("reason").toString().isEmpty());
    if (expected.value("reason") == "REASON")
        told.insert("reason", "REASON");
    QCOMPARE(told, expected);
}

void tst_TarvisNetExplained::tellsNothingUnlessAsked()
{
    Bench bench(false);
    bench.client->rawGet(QUrl());
    QVERIFY(bench.told(-207).isNull());
    bench.server.on("/a", answers::json({{"why", "gone"}}, 404));
    bench.client->rawGet(bench.server.url("/a"));
    QVERIFY(bench.recorder->waitFor("s_errorChanged", 2));
    QCOMPARE(bench.told(-217), QJsonDocument(QJsonObject{{"why", "gone"}}));
}

void tst_TarvisNetExplained::tellsADateInSeconds()
{
    Bench bench;
    const QDateTime then = QDateTime::currentDateTimeUtc().addDays(1);
    const QString text = QLocale::c().toString(then, "ddd, dd MMM yyyy hh:mm:ss 'GMT'");
    bench.server.on("/a", answers::bytes("", 503, waiting(text.toLatin1())));
    bench.client->rawGet(bench.server.url("/a"));
    QVERIFY(bench.recorder->waitFor("s_errorChanged"));
    const qint64 seconds = bench.told(-203).object().value("retryAfter").toInt();
    QVERIFY(seconds > 80000);
    QVERIFY(seconds <= 86400);
}

const TestClass<tst_TarvisNetExplained> testClass("tst_tarvisnet_explained");

} // namespace tst_tarvisnet_explained

#include "tst_tarvisnet_explained.moc"
