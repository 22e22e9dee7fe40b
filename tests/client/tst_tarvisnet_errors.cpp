#include "clientbench.h"
#include "distrustedserver.h"
#include "fakereply.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QMetaEnum>
#include <QtTest/QTest>

#include <functional>

using namespace clientaccess;

using NetworkError = QNetworkReply::NetworkError;
using Call = std::function<void(TarvisNet &)>;

Q_DECLARE_METATYPE(Call)

namespace {

const char removed[] = "s_repliesCountChanged";

QVariantList error(short code, const QString &url)
{
    return {QVariant::fromValue(code), url};
}

QString enumerator(NetworkError code)
{
    return QLatin1String("QNetworkReply::")
        + QLatin1String(QMetaEnum::fromType<NetworkError>().valueToKey(code));
}

QString errorLine(NetworkError code)
{
    return line(
        {"debug: <TarvisNet::replyError> Network error: \n", " code: ", enumerator(code), "\n"});
}

QString errorDetails(const QString &url, const QString &text, int status)
{
    return line({"debug: Error on: ", quoted(url), " \n", " text: ", quoted(text), " \n",
                 " http status: ", QString::number(status)});
}

} // namespace

/// Network errors, TLS errors, certificates, and slots that nobody sent to.
class tst_TarvisNetErrors : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void mapsErrors_data();
    void mapsErrors();
    void reportsFailuresOfServers_data();
    void reportsFailuresOfServers();
    void reportsFailuresOfConnections_data();
    void reportsFailuresOfConnections();
    void reportsTlsToAPlainPort();
    void passesOnWhatTheServerSaid_data();
    void passesOnWhatTheServerSaid();
    void acceptsTlsErrors_data();
    void acceptsTlsErrors();
    void reportsEmptyListOfTlsErrors();
    void acceptsCertificateOfAnotherHost();
    void acceptsGoodCertificatesSilently();
    void refusesMissingCertificates();
    void refusesDistrustedCertificates();
    void survivesSlotsWithoutSender_data();
    void survivesSlotsWithoutSender();
    void survivesSendersThatAreNoReplies_data();
    void survivesSendersThatAreNoReplies();
};

void tst_TarvisNetErrors::mapsErrors_data()
{
    QTest::addColumn<NetworkError>("error");
    QTest::addColumn<int>("code");
    QTest::addColumn<bool>("aborts");

    struct Rule {
        int code;
        bool aborts;
    };
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
        const int value = errors.value(i);
        if (value == QNetworkReply::NoError)
            continue;
        const Rule rule = rules.value(value, {-203, true});
        QTest::newRow(errors.key(i)) << NetworkError(value) << rule.code << rule.aborts;
    }
}

void tst_TarvisNetErrors::mapsErrors()
{
    QFETCH(NetworkError, error);
    QFETCH(int, code);
    QFETCH(bool, aborts);

    ClientBench bench;
    bench.server.on("/withheld", answers::withhold());
    bench.client->rawGet(bench.server.url("/withheld"));
    bench.recorder.clear();
    const QString url = "http://127.0.0.1/failing?a=1";
    FakeReply reply((QUrl(url)));
    follow(*bench.client, reply);
    reply.setStatus(555);
    reply.fail(error, "something is wrong");

    QStringList names;
    if (code != 0)
        names << "s_errorChanged";
    // What is aborted is not the failing reply, but the first one that runs.
    if (aborts)
        names << removed << "s_aborted";
    QCOMPARE(bench.recorder.names(), names);
    QCOMPARE(bench.messages().mid(0, 2),
             QStringList({errorLine(error), errorDetails(url, "something is wrong", 555)}));
    if (code != 0) {
        const QVariantList arguments = bench.recorder.last("s_errorChanged");
        QCOMPARE(arguments.mid(0, 2), ::error(short(code), url));
        QVERIFY(arguments.at(2).toJsonDocument().isNull());
    }
    if (aborts)
        QCOMPARE(bench.recorder.last("s_aborted"), QVariantList{bench.url("/withheld")});
    QCOMPARE(reply.abortCalls(), 0);
}

void tst_TarvisNetErrors::reportsFailuresOfServers_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<NetworkError>("error");
    QTest::addColumn<int>("code");
    QTest::addColumn<bool>("aborts");

    const auto row = [](int status, NetworkError error, int code, bool aborts) {
        QTest::addRow("%d", status) << status << error << code << aborts;
    };
    row(400, QNetworkReply::ProtocolInvalidOperationError, -220, false);
    row(401, QNetworkReply::AuthenticationRequiredError, -213, false);
    row(403, QNetworkReply::ContentAccessDenied, -203, true);
    row(404, QNetworkReply::ContentNotFoundError, -217, true);
    row(405, QNetworkReply::ContentOperationNotPermittedError, -203, true);
    row(409, QNetworkReply::ContentConflictError, -203, true);
    row(410, QNetworkReply::ContentGoneError, -203, true);
    row(418, QNetworkReply::ProtocolInvalidOperationError, -220, false);
    row(500, QNetworkReply::InternalServerError, -203, true);
    row(503, QNetworkReply::ServiceUnavailableError, -203, true);
}

void tst_TarvisNetErrors::reportsFailuresOfServers()
{
    QFETCH(int, status);
    QFETCH(NetworkError, error);
    QFETCH(int, code);
    QFETCH(bool, aborts);

    ClientBench bench;
    bench.server.on("/failing", answers::json({{"error", "gone"}}, status));
    QNetworkReply *reply = start(*bench.client, record("rawGet", bench.server.url("/failing")));
    QString text;
    connect(bench.client, &TarvisNet::s_errorChanged, this,
            [&text, reply] { text = reply->errorString(); });
    // The end of the reply may follow the error in a later turn of the event loop.
    QVERIFY(bench.recorder.waitFor(removed, 2));

    const QString url = bench.url("/failing");
    const QVariantList arguments = bench.recorder.last("s_errorChanged");
    QCOMPARE(arguments.mid(0, 2), ::error(short(code), url));
    QCOMPARE(arguments.at(2).toJsonDocument().object().value("error").toString(), QString("gone"));
    QCOMPARE(bench.recorder.count("s_errorChanged"), 1);
    QCOMPARE(bench.recorder.count("s_aborted"), aborts ? 1 : 0);
    QCOMPARE(bench.recorder.count("s_rawGet"), 0);
    QCOMPARE(bench.messages().mid(0, 2),
             QStringList({errorLine(error), errorDetails(url, text, status)}));
    if (aborts)
        return;
    QCOMPARE(bench.messages().mid(2),
             QStringList(line({"warning: <TarvisNet::handleReply> Network error: \n", " code: ",
                               enumerator(error), "\n", " text: ", quoted(text), "\n"})));
    QCOMPARE(withoutProgress(bench.recorder), QStringList({removed, "s_errorChanged", removed}));
}

void tst_TarvisNetErrors::reportsFailuresOfConnections_data()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::addColumn<bool>("needsCertificate");
    QTest::addColumn<QString>("scheme");
    QTest::addColumn<bool>("isListening");
    QTest::addColumn<int>("code");

    using Mode = ScriptedServer::Mode;
    QTest::newRow("nobody listens") << Mode::Http << false << "http" << false << -203;
    QTest::newRow("plain to a TLS port") << Mode::Https << false << "http" << true << -203;
    QTest::newRow("closed in the handshake")
        << Mode::CloseAfterClientHello << false << "https" << true << -203;
    QTest::newRow("a client certificate is demanded")
        << Mode::Https << true << "https" << true << -203;
}

void tst_TarvisNetErrors::reportsFailuresOfConnections()
{
    QFETCH(ScriptedServer::Mode, mode);
    QFETCH(bool, needsCertificate);
    QFETCH(QString, scheme);
    QFETCH(bool, isListening);
    QFETCH(int, code);

    ClientBench bench(mode);
    bench.server.setClientCertificateRequired(needsCertificate);
    QUrl url = bench.server.url("/any");
    url.setScheme(scheme);
    if (!isListening)
        bench.server.stop();
    bench.client->rawGet(url);
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    const QVariantList arguments = bench.recorder.last("s_errorChanged");
    QCOMPARE(arguments.mid(0, 2), error(short(code), url.toString()));
    QVERIFY(arguments.at(2).toJsonDocument().isNull());
    QCOMPARE(bench.recorder.count("s_errorChanged"), 1);
    QVERIFY(bench.recorder.count("s_aborted") <= 1);
    QCOMPARE(bench.recorder.count("s_rawGet"), 0);
}

void tst_TarvisNetErrors::reportsTlsToAPlainPort()
{
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    connect(&server, &QTcpServer::newConnection, this, [&server] {
        QTcpSocket *socket = server.nextPendingConnection();
        connect(socket, &QTcpSocket::readyRead, socket,
                [socket] { socket->write("HTTP/1.1 400 Bad Request\r\n\r\n"); });
    });
    ClientBench bench;
    const QString url = QString("https://127.0.0.1:%1/").arg(server.serverPort());
    bench.client->rawGet(QUrl(url));
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    QCOMPARE(bench.recorder.last("s_errorChanged").mid(0, 2), error(-222, url));
    QVERIFY(bench.recorder.last("s_errorChanged").at(2).toJsonDocument().isNull());
    QCOMPARE(bench.recorder.count("s_errorChanged"), 1);
}

void tst_TarvisNetErrors::passesOnWhatTheServerSaid_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("isCut");
    QTest::addColumn<int>("code");
    QTest::addColumn<QByteArray>("document");

    const QByteArray json = "{\"error\":\"gone\"}";
    QTest::newRow("a document") << "rawGet" << json << false << -217 << json;
    QTest::newRow("a document for a file request") << "rawGetFile" << json << false << -217 << json;
    QTest::newRow("a text") << "rawGet" << QByteArray("gone") << false << -217 << QByteArray();
    QTest::newRow("nothing") << "rawGet" << QByteArray() << false << -217 << QByteArray();
    QTest::newRow("a document that a download leaves unread")
        << "remoteBinary" << json << false << -217 << QByteArray();
    QTest::newRow("a document, then the connection is cut")
        << "rawGet" << json << true << -203 << json;
    QTest::newRow("half a document, then the connection is cut")
        << "rawGet" << json.left(5) << true << -203 << QByteArray();
}

void tst_TarvisNetErrors::passesOnWhatTheServerSaid()
{
    QFETCH(QString, replyType);
    QFETCH(QByteArray, body);
    QFETCH(bool, isCut);
    QFETCH(int, code);
    QFETCH(QByteArray, document);

    ClientBench bench;
    bench.server.on("/failing",
                    isCut ? answers::cutShort(body, body.size() + 100) : answers::bytes(body, 404));
    add(*bench.client, record(replyType, bench.server.url("/failing"), bench.file("file", 10)));
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    const QVariantList arguments = bench.recorder.last("s_errorChanged");
    QCOMPARE(arguments.mid(0, 2), error(short(code), bench.url("/failing")));
    QCOMPARE(arguments.at(2).toJsonDocument(), QJsonDocument::fromJson(document));
    QCOMPARE(bench.recorder.count("s_errorChanged"), 1);
}

void tst_TarvisNetErrors::acceptsTlsErrors_data()
{
    QTest::addColumn<QList<QSslError>>("errors");

    const QSslError selfSigned(QSslError::SelfSignedCertificate);
    const QSslError wrongName(QSslError::HostNameMismatch);
    QTest::newRow("one") << QList<QSslError>{selfSigned};
    QTest::newRow("several, in order") << QList<QSslError>{wrongName, selfSigned, wrongName};
}

void tst_TarvisNetErrors::acceptsTlsErrors()
{
    QFETCH(QList<QSslError>, errors);

    ClientBench bench;
    FakeReply reply(QUrl("https://127.0.0.1/"));
    follow(*bench.client, reply);
    Q_EMIT reply.sslErrors(errors);

    QStringList messages;
    for (const QSslError &error : errors) {
        messages.append(line(
            {"debug: <TarvisNet::replySslErrors> \n", " text: ", quoted(error.errorString())}));
    }
    QCOMPARE(bench.messages(), messages);
    QCOMPARE(bench.recorder.names(), QStringList());
    QCOMPARE(reply.ignoreSslErrorsCalls(), 1);
    QCOMPARE(reply.abortCalls(), 0);
}

void tst_TarvisNetErrors::reportsEmptyListOfTlsErrors()
{
    ClientBench bench;
    FakeReply reply(QUrl("https://127.0.0.1/"));
    follow(*bench.client, reply);
    Q_EMIT reply.sslErrors({});

    QCOMPARE(bench.messages(), QStringList("warning: <TarvisNet::replySslErrors> Uknown error."));
    QCOMPARE(bench.recorder.names(), QStringList("s_errorChanged"));
    QCOMPARE(bench.recorder.last("s_errorChanged").mid(0, 2), error(-201, QString()));
    QVERIFY(bench.recorder.last("s_errorChanged").at(2).toJsonDocument().isNull());
    QCOMPARE(reply.ignoreSslErrorsCalls(), 0);
}

void tst_TarvisNetErrors::acceptsCertificateOfAnotherHost()
{
    ClientBench bench(ScriptedServer::Mode::Https);
    bench.server.setCertificate(ScriptedServer::Certificate::WrongName);
    bench.server.on("/answer", answers::json({}));
    bench.client->rawGet(bench.server.url("/answer"));
    QVERIFY(bench.recorder.waitFor("s_rawGet"));

    const QString text = QSslError(QSslError::HostNameMismatch).errorString();
    QVERIFY(bench.messages().contains(
        line({"debug: <TarvisNet::replySslErrors> \n", " text: ", quoted(text)})));
    QCOMPARE(bench.recorder.count("s_errorChanged"), 0);
}

void tst_TarvisNetErrors::acceptsGoodCertificatesSilently()
{
    ClientBench bench(ScriptedServer::Mode::Https);
    bench.server.on("/answer", answers::json({}));
    bench.client->rawGet(bench.server.url("/answer"));
    QVERIFY(bench.recorder.waitFor("s_rawGet"));

    QCOMPARE(bench.messages(), QStringList());
    QCOMPARE(withoutProgress(bench.recorder), QStringList({removed, "s_rawGet", removed}));
}

void tst_TarvisNetErrors::refusesMissingCertificates()
{
    ClientBench bench;
    const QString url = "https://127.0.0.1/file?a=1";
    FakeReply reply((QUrl(url)));
    follow(*bench.client, reply);
    disconnect(&reply, &FakeReply::finished, nullptr, nullptr);
    disconnect(&reply, &FakeReply::errorOccurred, nullptr, nullptr);
    Q_EMIT reply.encrypted();

    QCOMPARE(bench.messages(),
             QStringList(line({"warning: Null cert", quoted(QString()), quoted(QString()), "abort",
                               quoted(url)})));
    QCOMPARE(bench.recorder.names(), QStringList({"s_errorChanged", "s_aborted"}));
    QCOMPARE(bench.recorder.last("s_errorChanged").mid(0, 2), error(-222, url));
    QVERIFY(bench.recorder.last("s_errorChanged").at(2).toJsonDocument().isNull());
    QCOMPARE(bench.recorder.last("s_aborted"), QVariantList{url});
    QCOMPARE(reply.abortCalls(), 1);
}

void tst_TarvisNetErrors::refusesDistrustedCertificates()
{
    DistrustedServer server;
    QVERIFY(server.certificate().isBlacklisted());
    ClientBench bench;
    bench.client->rawGet(server.url());
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    const QString name = quoted(server.certificate().subjectDisplayName());
    const QString url = server.url().toString();
    QVERIFY(bench.messages().contains(
        line({"warning: Blacklist cert (untrust)", name, name, "abort", quoted(url)})));
    QCOMPARE(bench.recorder.names(),
             QStringList({removed, "s_errorChanged", removed, "s_aborted"}));
    QCOMPARE(bench.recorder.last("s_errorChanged").mid(0, 2), error(-222, url));
    QVERIFY(bench.recorder.last("s_errorChanged").at(2).toJsonDocument().isNull());
    QCOMPARE(bench.recorder.last("s_aborted"), QVariantList{url});
}

void tst_TarvisNetErrors::survivesSlotsWithoutSender_data()
{
    QTest::addColumn<Call>("call");
    QTest::addColumn<QStringList>("messages");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<int>("code");

    const auto row = [](const char *name, const Call &call, const QStringList &messages,
                        const QStringList &names = QStringList(),
                        int code = 0) { QTest::newRow(name) << call << messages << names << code; };
    const auto bare = [](const char *slot) {
        return [slot](TarvisNet &client) {
            QVERIFY(QMetaObject::invokeMethod(&client, slot, Qt::DirectConnection));
        };
    };
    const auto failing = [](NetworkError code) {
        return [code](TarvisNet &client) {
            QVERIFY(QMetaObject::invokeMethod(&client, "replyError", Qt::DirectConnection,
                                              Q_ARG(QNetworkReply::NetworkError, code)));
        };
    };
    const auto tls = [](const QList<QSslError> &errors) {
        return [errors](TarvisNet &client) {
            QVERIFY(QMetaObject::invokeMethod(&client, "replySslErrors", Qt::DirectConnection,
                                              Q_ARG(QList<QSslError>, errors)));
        };
    };
    const QString noSender = "warning: Unable ot get sender request!";
    const QSslError selfSigned(QSslError::SelfSignedCertificate);

    row("replyReadyRead", bare("replyReadyRead"), {"warning: Reply sender uknown"});
    row("replyFinished", bare("replyFinished"), {"warning: QNetworkReply sender nullptr!"});
    row("replyEncrypted", bare("replyEncrypted"), {"warning: QNetworkReply sender nullptr!"});
    row("replyError, cancelled", failing(QNetworkReply::OperationCanceledError),
        {errorLine(QNetworkReply::OperationCanceledError), noSender});
    row("replyError, authentication", failing(QNetworkReply::AuthenticationRequiredError),
        {errorLine(QNetworkReply::AuthenticationRequiredError), noSender}, {"s_errorChanged"},
        -213);
    row("replyError, any other", failing(QNetworkReply::TimeoutError),
        {errorLine(QNetworkReply::TimeoutError), noSender}, {"s_errorChanged"}, -203);
    row("replySslErrors, none", tls({}), {"warning: <TarvisNet::replySslErrors> Uknown error."},
        {"s_errorChanged"}, -201);
    row("replySslErrors, one", tls({selfSigned}),
        {line({"debug: <TarvisNet::replySslErrors> \n",
               " text: ", quoted(selfSigned.errorString())})});
}

void tst_TarvisNetErrors::survivesSlotsWithoutSender()
{
    QFETCH(Call, call);
    QFETCH(QStringList, messages);
    QFETCH(QStringList, names);
    QFETCH(int, code);

    ClientBench bench;
    call(*bench.client);

    QCOMPARE(bench.messages(), messages);
    QCOMPARE(bench.recorder.names(), names);
    if (names.isEmpty())
        return;
    QCOMPARE(bench.recorder.last("s_errorChanged").mid(0, 2), error(short(code), QString()));
    QVERIFY(bench.recorder.last("s_errorChanged").at(2).toJsonDocument().isNull());
}

void tst_TarvisNetErrors::survivesSendersThatAreNoReplies_data()
{
    QTest::addColumn<QByteArray>("slot");
    QTest::addColumn<QString>("message");

    QTest::newRow("replyReadyRead")
        << QByteArray(SLOT(replyReadyRead())) << "warning: Reply sender uknown";
    QTest::newRow("replyFinished")
        << QByteArray(SLOT(replyFinished())) << "warning: QNetworkReply sender nullptr!";
    QTest::newRow("replyEncrypted")
        << QByteArray(SLOT(replyEncrypted())) << "warning: QNetworkReply sender nullptr!";
}

void tst_TarvisNetErrors::survivesSendersThatAreNoReplies()
{
    QFETCH(QByteArray, slot);
    QFETCH(QString, message);

    ClientBench bench;
    QObject sender;
    QVERIFY(connect(&sender, SIGNAL(objectNameChanged(QString)), bench.client, slot));
    sender.setObjectName("sent");

    QCOMPARE(bench.messages(), QStringList(message));
    QCOMPARE(bench.recorder.names(), QStringList());
}

QTEST_GUILESS_MAIN(tst_TarvisNetErrors)
#include "tst_tarvisnet_errors.moc"
