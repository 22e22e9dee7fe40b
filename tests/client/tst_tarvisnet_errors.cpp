#include "clientbench.h"
#include "distrustedserver.h"
#include "fakereply.h"
#include "lockedqueue.h"
#include "testclass.h"

#include <QtCore/QMetaEnum>
#include <QtTest/QTest>

#include <functional>

Q_DECLARE_METATYPE(std::function<void(FakeReply &)>)

namespace tst_tarvisnet_errors {

using namespace clientaccess;

using NetworkError = QNetworkReply::NetworkError;
using Call = std::function<void(const ClientBench &)>;
using Failure = std::function<void(ClientBench &)>;
using FakeFailure = std::function<void(FakeReply &)>;

} // namespace tst_tarvisnet_errors

Q_DECLARE_METATYPE(tst_tarvisnet_errors::Call)

namespace tst_tarvisnet_errors {

namespace {

QString errorLine(NetworkError code)
{
    const char *const name = QMetaEnum::fromType<NetworkError>().valueToKey(code);
    return line({"debug: <TarvisNet::replyError> Network error: \n",
                 " code: ", QString("QNetworkReply::") + name, "\n"});
}

QString tlsLine(const QSslError &error)
{
    return line({"debug: <TarvisNet::replySslErrors> \n", " text: ", quoted(error.errorString())});
}

} // namespace

/// A failure of a reply that did not come from the client's manager.
Failure ofReply(const FakeFailure &fail)
{
    return [fail](const ClientBench &bench) {
        FakeReply reply(QUrl("https://127.0.0.1/failing"));
        bench.follow(reply);
        fail(reply);
    };
}

/// A failure of a request that the server answers.
Failure ofRequest(const QString &kind, const QString &file)
{
    return [kind, file](ClientBench &bench) {
        bench.server.onRequest(answers::bytes("body"));
        bench.add(record(kind, bench.server.url("/"), bench.file(file, 1000)));
        QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    };
}

/// Network errors, TLS errors, certificates, and slots that nobody sent to. What servers do wrong
/// is in the tests of faults.
class tst_TarvisNetErrors : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void mapsErrors_data();
    void mapsErrors();
    void passesOnWhatTheServerSaid_data();
    void passesOnWhatTheServerSaid();
    void hearsOfTlsErrors_data();
    void hearsOfTlsErrors();
    void refusesMissingCertificates();
    void refusesDistrustedCertificates();
    void survivesSlotsWithoutSender_data();
    void survivesSlotsWithoutSender();
    void logsBeforeItReports_data();
    void logsBeforeItReports();
    void keepsTheReplyThatEmits_data();
    void keepsTheReplyThatEmits();
};

void tst_TarvisNetErrors::mapsErrors_data()
{
    QTest::addColumn<NetworkError>("error");
    QTest::addColumn<int>("code");
    QTest::addColumn<bool>("aborts");

    using Rule = QPair<int, bool>;
    const QMap<int, Rule> rules = {
        {QNetworkReply::OperationCanceledError, {0, false}},
        {QNetworkReply::SslHandshakeFailedError, {-222, true}},
        {QNetworkReply::UnknownNetworkError, {-216, true}},
        {QNetworkReply::ContentNotFoundError, {-217, true}},
        {QNetworkReply::AuthenticationRequiredError, {-213, false}},
        {QNetworkReply::ProtocolInvalidOperationError, {-220, false}},
    };
    const auto errors = QMetaEnum::fromType<NetworkError>();
    for (int i = 0; i < errors.keyCount(); ++i) {
        const Rule rule = rules.value(errors.value(i), {-203, true});
        if (errors.value(i) != QNetworkReply::NoError)
            QTest::newRow(errors.key(i))
                << NetworkError(errors.value(i)) << rule.first << rule.second;
    }
}

void tst_TarvisNetErrors::mapsErrors()
{
    QFETCH(const NetworkError, error);
    QFETCH(const int, code);
    QFETCH(const bool, aborts);

    WaitingBench bench;
    bench.get({"/withheld"});
    bench.forget();
    const QString url = "http://127.0.0.1/failing?a=1";
    FakeReply reply((QUrl(url)));
    bench.follow(reply);
    reply.setStatus(555);
    reply.fail(error, "something is wrong");

    QStringList names;
    if (code != 0)
        names << "s_errorChanged";
    // What is aborted is not the failing reply, but the first one that runs.
    if (aborts)
        names << "s_repliesCountChanged"
              << "s_aborted";
    QCOMPARE(bench.recorder.names(), names);
    QCOMPARE(bench.messages().mid(0, 2),
             QStringList({errorLine(error),
                          line({"debug: Error on: ", quoted(url), " \n", " text: ",
                                quoted("something is wrong"), " \n", " http status: ", "555"})}));
    QCOMPARE(bench.error(), code == 0 ? QVariantList() : failure(code, url));
    QCOMPARE(bench.abortedUrls(), aborts ? bench.urls({"/withheld"}) : QStringList());
    QCOMPARE(reply.abortCalls(), 0);
}

void tst_TarvisNetErrors::passesOnWhatTheServerSaid_data()
{
    QTest::addColumn<ScriptedServer::Handler>("answer");
    QTest::addColumn<int>("code");
    QTest::addColumn<QByteArray>("document");

    const QByteArray json = "{\"error\":\"gone\"}";
    QTest::newRow("400") << answers::bytes(json, 400) << -220 << json;
    QTest::newRow("409") << answers::bytes(json, 409) << -203 << json;
    QTest::newRow("a document, then the connection is cut")
        << answers::cutShort(json) << -203 << json;
    QTest::newRow("half a document, then the connection is cut")
        << answers::cutShort(json.left(5)) << -203 << QByteArray();
}

void tst_TarvisNetErrors::passesOnWhatTheServerSaid()
{
    QFETCH(const ScriptedServer::Handler, answer);
    QFETCH(const int, code);
    QFETCH(const QByteArray, document);

    ClientBench bench;
    bench.server.on("/failing", answer);
    bench.get({"/failing"});
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));
    QCOMPARE(bench.error(),
             failure(code, bench.url("/failing"), QJsonDocument::fromJson(document)));
    QCOMPARE(bench.errors().size(), 1);
}

void tst_TarvisNetErrors::hearsOfTlsErrors_data()
{
    QTest::addColumn<QList<QSslError>>("errors");

    const QSslError selfSigned(QSslError::SelfSignedCertificate);
    const QSslError wrongName(QSslError::HostNameMismatch);
    QTest::newRow("none") << QList<QSslError>();
    QTest::newRow("one") << QList<QSslError>{selfSigned};
    QTest::newRow("several, in order") << QList<QSslError>{wrongName, selfSigned, wrongName};
}

// They are accepted, whatever they are; that there are none is an error.
void tst_TarvisNetErrors::hearsOfTlsErrors()
{
    QFETCH(const QList<QSslError>, errors);

    const ClientBench bench;
    FakeReply reply(QUrl("https://127.0.0.1/"));
    bench.follow(reply);
    Q_EMIT reply.sslErrors(errors);

    QStringList messages;
    for (const QSslError &error : errors)
        messages.append(tlsLine(error));
    if (errors.isEmpty())
        messages.append("warning: <TarvisNet::replySslErrors> Uknown error.");
    QCOMPARE(bench.messages(), messages);
    QCOMPARE(bench.recorder.names(),
             errors.isEmpty() ? QStringList("s_errorChanged") : QStringList());
    QCOMPARE(bench.error(), errors.isEmpty() ? failure(-201, QString()) : QVariantList());
    QCOMPARE(reply.ignoreSslErrorsCalls(), errors.isEmpty() ? 0 : 1);
    QCOMPARE(reply.abortCalls(), 0);
}

void tst_TarvisNetErrors::refusesMissingCertificates()
{
    const ClientBench bench;
    const QString url = "https://127.0.0.1/file?a=1";
    FakeReply reply((QUrl(url)));
    bench.follow(reply);
    disconnect(&reply, &FakeReply::finished, nullptr, nullptr);
    disconnect(&reply, &FakeReply::errorOccurred, nullptr, nullptr);
    Q_EMIT reply.encrypted();

    const QString none = quoted(QString());
    QCOMPARE(bench.messages(),
             QStringList(line({"warning: Null cert", none, none, "abort", quoted(url)})));
    QCOMPARE(bench.recorder.names(), QStringList({"s_errorChanged", "s_aborted"}));
    QCOMPARE(bench.error(), failure(-222, url));
    QCOMPARE(bench.abortedUrls(), QStringList(url));
    QCOMPARE(reply.abortCalls(), 1);
}

void tst_TarvisNetErrors::refusesDistrustedCertificates()
{
    const DistrustedServer server;
    QVERIFY(server.certificate().isBlacklisted());
    ClientBench bench;
    bench.client->rawGet(server.url());
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    const QString name = quoted(server.certificate().subjectDisplayName());
    const QString url = server.url().toString();
    QVERIFY(bench.messages().contains(
        line({"warning: Blacklist cert (untrust)", name, name, "abort", quoted(url)})));
    const QString removed = "s_repliesCountChanged";
    QCOMPARE(bench.recorder.names(),
             QStringList({removed, "s_errorChanged", removed, "s_aborted"}));
    QCOMPARE(bench.error(), failure(-222, url));
    QCOMPARE(bench.abortedUrls(), QStringList(url));
}

void tst_TarvisNetErrors::survivesSlotsWithoutSender_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QStringList>("messages");
    // 0 when there is no error.
    QTest::addColumn<int>("code");

    const auto row = [](const char *name, const Call &call, const QStringList &messages,
                        int code = 0) { QTest::newRow(name) << call << messages << code; };
    const auto failing = [row](const char *name, NetworkError error, int code) {
        const Call call = [error](const ClientBench &bench) {
            bench.call("replyError", Q_ARG(QNetworkReply::NetworkError, error));
        };
        row(name, call, {errorLine(error), "warning: Unable ot get sender request!"}, code);
    };
    const auto tls = [](const QList<QSslError> &errors) {
        return [errors](const ClientBench &bench) {
            bench.call("replySslErrors", Q_ARG(QList<QSslError>, errors));
        };
    };
    const QSslError selfSigned(QSslError::SelfSignedCertificate);

    const auto nobody = [row](const char *slot, const char *member, const QString &message) {
        row(slot, [slot](const ClientBench &bench) { bench.call(slot); }, {message});
        const Call sentByAnotherObject = [member](const ClientBench &bench) {
            QObject sender;
            QVERIFY(connect(&sender, SIGNAL(objectNameChanged(QString)), bench.client, member));
            sender.setObjectName("sent");
        };
        row(QByteArray(slot) + ", sent by another object", sentByAnotherObject, {message});
    };
    const QString noReply = "warning: QNetworkReply sender nullptr!";
    nobody("replyReadyRead", SLOT(replyReadyRead()), "warning: Reply sender uknown");
    nobody("replyFinished", SLOT(replyFinished()), noReply);
    nobody("replyEncrypted", SLOT(replyEncrypted()), noReply);
    failing("replyError, cancelled", QNetworkReply::OperationCanceledError, 0);
    failing("replyError, authentication", QNetworkReply::AuthenticationRequiredError, -213);
    failing("replyError, any other", QNetworkReply::TimeoutError, -203);
    row("replySslErrors, none", tls({}), {"warning: <TarvisNet::replySslErrors> Uknown error."},
        -201);
    row("replySslErrors, one", tls({selfSigned}), {tlsLine(selfSigned)});
}

void tst_TarvisNetErrors::survivesSlotsWithoutSender()
{
    QFETCH(const Call, call);
    QFETCH(const QStringList, messages);
    QFETCH(const int, code);

    const ClientBench bench;
    call(bench);

    QCOMPARE(bench.messages(), messages);
    QCOMPARE(bench.recorder.names(), code == 0 ? QStringList() : QStringList("s_errorChanged"));
    QCOMPARE(bench.error(), code == 0 ? QVariantList() : failure(code, QString()));
}

void tst_TarvisNetErrors::logsBeforeItReports_data()
{
    QTest::addColumn<Failure>("fail");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");
    const auto row = [](int code, const char *name, const QString &message, const Failure &fail) {
        QTest::addRow("%d, %s", code, name) << fail << code << message;
    };

    const ReplyData some = record(replies::raw_get, QUrl("http://127.0.0.1:9/some"));
    row(-207, "invalid URL", "<TarvisNet::rawGet> Invalid url",
        [](const ClientBench &bench) { bench.client->rawGet(QUrl("http://:x")); });
    row(-221, "pending already", "Contains request:", [some](ClientBench &bench) {
        bench.hold();
        bench.add(some);
        bench.add(some);
    });
    row(-219, "queue locked", "Unable to lock mutex!", [some](ClientBench &bench) {
        bench.hold();
        const LockedQueue locked(bench, some);
        bench.forceAdd(some);
    });
    row(-210, "download not opened", "<TarvisNet::saveBinary> Error opening file to write!",
        ofRequest(replies::remote_binary, "missing/file"));
    row(-210, "installer not opened", "<TarvisNet::saveInstaller> Error opening file to write.",
        [](const ClientBench &bench) {
            bench.client->setInstallerFileSize(1000);
            bench.client->setInstallerFileName(bench.path("missing/setup"));
            FakeReply reply;
            bench.call("saveInstaller", &reply);
        });
    row(-215, "unknown kind", "<TarvisNet::handleReply> Uknown reply type",
        ofRequest("neverHeardOf", "file"));
    row(-215, "unknown reply", "<TarvisNet::replyFinished> Uknown reply.",
        ofReply([](FakeReply &reply) { reply.finish(); }));
    row(-203, "network error",
        "Error on:", ofReply([](FakeReply &reply) { reply.fail(QNetworkReply::TimeoutError); }));
    row(-201, "no TLS errors", "<TarvisNet::replySslErrors> Uknown error.",
        ofReply([](FakeReply &reply) { Q_EMIT reply.sslErrors({}); }));
    row(-222, "no certificate", "Null cert",
        ofReply([](FakeReply &reply) { Q_EMIT reply.encrypted(); }));
}

// Whoever reads the log from a receiver finds the reason there, as its latest line.
void tst_TarvisNetErrors::logsBeforeItReports()
{
    QFETCH(const Failure, fail);
    QFETCH(const int, code);
    QFETCH(const QString, message);

    ClientBench bench;
    QHash<int, QString> lastMessages;
    connect(bench.client, &TarvisNet::s_errorChanged, this, [&](short reported) {
        if (!lastMessages.contains(reported))
            lastMessages.insert(reported, bench.log.texts().value(bench.log.texts().size() - 1));
    });
    fail(bench);
    QVERIFY2(lastMessages.value(code).startsWith(message), qPrintable(lastMessages.value(code)));
}

void tst_TarvisNetErrors::keepsTheReplyThatEmits_data()
{
    QTest::addColumn<FakeFailure>("fail");
    QTest::newRow("finished") << FakeFailure([](FakeReply &reply) { reply.finish(); });
    QTest::newRow("error") << FakeFailure(
        [](FakeReply &reply) { reply.fail(QNetworkReply::TimeoutError); });
    QTest::newRow("no TLS errors")
        << FakeFailure([](FakeReply &reply) { Q_EMIT reply.sslErrors({}); });
    QTest::newRow("no certificate")
        << FakeFailure([](FakeReply &reply) { Q_EMIT reply.encrypted(); });
}

// A receiver may delete the client, and with it the last that holds the manager of the reply.
void tst_TarvisNetErrors::keepsTheReplyThatEmits()
{
    QFETCH(const FakeFailure, fail);
    const ClientBench bench;
    const QPointer<FakeReply> reply =
        new FakeReply(QUrl("https://127.0.0.1/failing"), managerOf(*bench.client));
    bench.follow(*reply);
    connect(bench.client, &TarvisNet::s_errorChanged, this, [&bench] { delete bench.client; });
    fail(*reply);
    QVERIFY(!bench.client);
    QVERIFY(reply);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!reply);
}

const TestClass<tst_TarvisNetErrors> testClass("tst_tarvisnet_errors");

} // namespace tst_tarvisnet_errors

#include "tst_tarvisnet_errors.moc"
