#include "answers.h"
#include "pingbench.h"
#include "qtversion_p.h"
#include "scriptedserver.h"
#include "testclass.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QMetaEnum>
#include <QtCore/QRegularExpression>
#include <QtTest/QTest>

namespace tst_remoteping_answers {

using NetworkError = QNetworkReply::NetworkError;

namespace {

const QRegularExpression timedPing(R"(^PING: (\d+)  msec$)");

// The milliseconds that an answer was logged with.
qint64 loggedMsec(const QString &text)
{
    const QRegularExpressionMatch match = timedPing.match(text);
    return match.hasMatch() ? match.captured(1).toLongLong() : 0;
}

bool isPingText(const QString &text)
{
    return text == "PING: <1 msec" || timedPing.match(text).hasMatch();
}

QString errorName(NetworkError error)
{
    return QMetaEnum::fromType<NetworkError>().valueToKey(error);
}

QString errorText(NetworkError error, const QString &text)
{
    return QString("ERROR \n code: QNetworkReply::%1 \n text: \"%2\"").arg(errorName(error), text);
}

} // namespace

class tst_RemotePingAnswers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void request();
    void requestOnTheWire();
    void everyError_data();
    void everyError();
    void serverAnswers_data();
    void serverAnswers();
    void serverRefusesTheConnection();
    void goesOnAfterFailures();
    void shortTimes();
    void longTimes();
    void timeCountsFromTheLatestPing();
    void answersAreKept();
    void strangersRepliesCount();
    void sendersThatAreNoReplies();
    void replyErrorOnlyLogs_data() { everyError_data(); }
    void replyErrorOnlyLogs();
    void onlyTheEndIsConnected();
    void unwantedBodiesAreFreed_data();
    void unwantedBodiesAreFreed();
    void bodiesOfStrangersAreLeftAlone();
    void managersOwnerCanReadTheBody();
    void memoryStaysBounded();
    void endlessBodiesAreDropped();
};

void tst_RemotePingAnswers::request()
{
    PingBench bench;
    const QUrl url("http://127.0.0.1:8080/path?query");
    bench.ping->setUrl(url);
    bench.call("sendPing");

    const FakeManager::Sent &sent = bench.manager->last();
    QCOMPARE(sent.operation, QNetworkAccessManager::GetOperation);
    QVERIFY(!sent.hasBody);
    QNetworkRequest expected(url);
    expected.setHeader(QNetworkRequest::ContentTypeHeader, "application/x-www-form-urlencoded");
    QCOMPARE(sent.request, qtversion::settled(expected));
    QCOMPARE(sent.request.rawHeaderList(), QList<QByteArray>{"Content-Type"});
}

void tst_RemotePingAnswers::requestOnTheWire()
{
    ScriptedServer server;
    server.on("/", answers::status(200));
    RealPing real(server.url(QString()));
    QVERIFY(real.signals.waitFor("s_ping"));

    const HttpRequest request = server.requests().first();
    QCOMPARE(request.method, QByteArray("GET"));
    QCOMPARE(request.target, QByteArray("/"));
    QCOMPARE(request.header("content-type"), QByteArray("application/x-www-form-urlencoded"));
    QCOMPARE(request.body, QByteArray());
}

void tst_RemotePingAnswers::everyError_data()
{
    QTest::addColumn<NetworkError>("error");
    const QMetaEnum errors = QMetaEnum::fromType<NetworkError>();
    for (int i = 0; i < errors.keyCount(); ++i)
        QTest::newRow(errors.key(i)) << NetworkError(errors.value(i));
}

void tst_RemotePingAnswers::everyError()
{
    QFETCH(NetworkError, error);
    PingBench bench;
    FakeReply *reply = bench.send();
    reply->setError(error, "what went wrong");
    reply->finish();

    switch (error) {
    case QNetworkReply::NoError:
    case QNetworkReply::ContentAccessDenied:
    case QNetworkReply::ContentOperationNotPermittedError:
        QCOMPARE(bench.signals.names(), QStringList("s_ping"));
        QVERIFY(isPingText(bench.log.texts(QtDebugMsg).value(0)));
        QCOMPARE(bench.log.entries().size(), 1);
        break;
    case QNetworkReply::OperationCanceledError:
        QCOMPARE(bench.signals.names(), QStringList());
        QCOMPARE(bench.log.texts(), QStringList());
        break;
    default:
        QCOMPARE(bench.signals.names(), QStringList("s_error"));
        QCOMPARE(bench.signals.last("s_error"), QVariantList{QVariant::fromValue(short(-203))});
        QCOMPARE(bench.log.texts(QtDebugMsg), QStringList(errorText(error, "what went wrong")));
        QCOMPARE(bench.log.entries().size(), 1);
    }
}

void tst_RemotePingAnswers::serverAnswers_data()
{
    QTest::addColumn<ScriptedServer::Handler>("answer");
    QTest::addColumn<NetworkError>("error");
    const auto add = [](int status, NetworkError error) {
        QTest::addRow("%d", status) << answers::bytes("body", status) << error;
    };
    add(200, QNetworkReply::NoError);
    add(204, QNetworkReply::NoError);
    add(302, QNetworkReply::NoError);
    add(403, QNetworkReply::ContentAccessDenied);
    add(405, QNetworkReply::ContentOperationNotPermittedError);
    add(400, QNetworkReply::ProtocolInvalidOperationError);
    add(404, QNetworkReply::ContentNotFoundError);
    add(410, QNetworkReply::ContentGoneError);
    add(500, QNetworkReply::InternalServerError);
    add(503, QNetworkReply::ServiceUnavailableError);
    QTest::newRow("cut") << answers::cutShort("only a little")
                         << QNetworkReply::RemoteHostClosedError;
}

void tst_RemotePingAnswers::serverAnswers()
{
    QFETCH(ScriptedServer::Handler, answer);
    QFETCH(NetworkError, error);
    const bool isAnswer = error == QNetworkReply::NoError
        || error == QNetworkReply::ContentAccessDenied
        || error == QNetworkReply::ContentOperationNotPermittedError;

    ScriptedServer server;
    server.onRequest(answer);
    RealPing real(server.url("/"));
    QVERIFY(real.signals.waitFor(isAnswer ? "s_ping" : "s_error", 3));
    real.ping.stop();

    QCOMPARE(real.signals.count(isAnswer ? "s_error" : "s_ping"), 0);
    const QStringList texts = real.log.texts(QtDebugMsg);
    QCOMPARE(isPingText(texts.first()), isAnswer);
    const QString start =
        QString("ERROR \n code: QNetworkReply::%1 \n text: \"").arg(errorName(error));
    QCOMPARE(texts.first().startsWith(start), !isAnswer);
    QCOMPARE(real.log.texts(QtWarningMsg), QStringList());
    if (!isAnswer)
        QCOMPARE(real.signals.last("s_error").first().value<short>(), short(-203));
}

void tst_RemotePingAnswers::serverRefusesTheConnection()
{
    RealPing real(QUrl(QString("http://127.0.0.1:%1").arg(ScriptedServer::freePort())));
    QVERIFY(real.signals.waitFor("s_error", 2));
    real.ping.stop();
    QCOMPARE(real.signals.last("s_error").first().value<short>(), short(-203));
    QCOMPARE(real.log.texts(QtDebugMsg).first(),
             errorText(QNetworkReply::ConnectionRefusedError, "Connection refused"));
}

void tst_RemotePingAnswers::goesOnAfterFailures()
{
    ScriptedServer server;
    server.onRequest(answers::status(500));
    RealPing real(server.url("/"));
    QVERIFY(real.signals.waitFor("s_error"));
    server.onRequest(answers::status(200));
    QVERIFY(real.signals.waitFor("s_ping"));
    server.stop();
    const int errors = real.signals.count("s_error");
    QVERIFY(real.signals.waitFor("s_error", errors + 1));
    QVERIFY(real.ping.isRunnig());
    server.restart();
    const int pings = real.signals.count("s_ping");
    QVERIFY(real.signals.waitFor("s_ping", pings + 1));
    QCOMPARE(real.signals.count("s_stopped"), 0);
}

// Below a millisecond unless the machine stops right there: one in many tries is enough.
void tst_RemotePingAnswers::shortTimes()
{
    PingBench bench;
    for (int i = 0; i < 100 && !bench.log.contains(QtDebugMsg, "PING: <1 msec"); ++i)
        bench.send()->finish();
    QVERIFY(bench.log.contains(QtDebugMsg, "PING: <1 msec"));
}

void tst_RemotePingAnswers::longTimes()
{
    PingBench bench;
    FakeReply *reply = bench.send();
    QElapsedTimer clock;
    clock.start();
    QTRY_VERIFY(clock.hasExpired(20));
    reply->finish();
    QCOMPARE(bench.log.texts().size(), 1);
    const QString text = bench.log.texts(QtDebugMsg).first();
    QVERIFY2(timedPing.match(text).hasMatch(), qPrintable(text));
    QVERIFY(loggedMsec(text) >= 20);
}

void tst_RemotePingAnswers::timeCountsFromTheLatestPing()
{
    PingBench bench;
    FakeReply *first = bench.send();
    QElapsedTimer sinceFirst;
    sinceFirst.start();
    QTRY_VERIFY(sinceFirst.hasExpired(50));
    QElapsedTimer sinceSecond;
    sinceSecond.start();
    bench.send();
    bench.log.clear();
    first->finish();
    // The time since the first ping is at least 50 ms longer.
    QVERIFY(loggedMsec(bench.log.texts().first()) <= sinceSecond.elapsed());
}

void tst_RemotePingAnswers::answersAreKept()
{
    PingBench bench;
    bench.send()->finish();
    FakeReply *failed = bench.send();
    failed->setError(QNetworkReply::TimeoutError, "late");
    failed->finish();
    PingBench::releaseDeleted();
    QCOMPARE(bench.aborts(), QList<int>({0, 0}));

    bench.ping->stop();
    QCOMPARE(bench.aborts(), QList<int>({1, 1}));
}

void tst_RemotePingAnswers::strangersRepliesCount()
{
    PingBench bench;
    bench.ping->start();
    FakeReply stranger;
    QVERIFY(connect(&stranger, SIGNAL(finished()), bench.ping.data(), SLOT(replyFinished())));
    stranger.finish();
    QCOMPARE(bench.signals.names(), QStringList({"s_started", "s_ping"}));
}

void tst_RemotePingAnswers::sendersThatAreNoReplies()
{
    PingBench bench;
    bench.call("replyFinished");
    QObject sender;
    QVERIFY(connect(&sender, SIGNAL(objectNameChanged(QString)), bench.ping.data(),
                    SLOT(replyFinished())));
    sender.setObjectName("changed");
    QCOMPARE(bench.signals.names(), QStringList());
    QCOMPARE(bench.log.texts(), QStringList());
}

void tst_RemotePingAnswers::replyErrorOnlyLogs()
{
    QFETCH(NetworkError, error);
    PingBench bench;
    FakeReply reply;
    QVERIFY(connect(&reply, SIGNAL(errorOccurred(QNetworkReply::NetworkError)), bench.ping.data(),
                    SLOT(replyError(QNetworkReply::NetworkError))));
    reply.fail(error);
    QCOMPARE(bench.log.texts(QtDebugMsg),
             QStringList("RemotePing: Network error: QNetworkReply::" + errorName(error)));
    QCOMPARE(bench.log.entries().size(), 1);
    QCOMPARE(bench.signals.names(), QStringList());
}

// Whatever else is connected to a reply is somebody else's.
void tst_RemotePingAnswers::onlyTheEndIsConnected()
{
    struct Connections : FakeReply {
        static int of(const FakeReply *reply, const char *signal)
        {
            return (reply->*&Connections::receivers)(signal);
        }
    };
    PingBench bench;
    const FakeReply *pinged = bench.send();
    bench.manager->get(QNetworkRequest());
    const FakeReply *other = bench.manager->last().reply;
    for (const char *signal :
         {SIGNAL(readyRead()), SIGNAL(downloadProgress(qint64, qint64)), SIGNAL(encrypted()),
          SIGNAL(errorOccurred(QNetworkReply::NetworkError)), SIGNAL(metaDataChanged())})
        QCOMPARE(Connections::of(pinged, signal), Connections::of(other, signal));
    const char *end = SIGNAL(finished());
    QCOMPARE(Connections::of(pinged, end), Connections::of(other, end) + 1);
}

void tst_RemotePingAnswers::unwantedBodiesAreFreed_data()
{
    QTest::addColumn<NetworkError>("error");
    QTest::newRow("answer") << NetworkError::NoError;
    QTest::newRow("failure") << NetworkError::ContentNotFoundError;
}

void tst_RemotePingAnswers::unwantedBodiesAreFreed()
{
    QFETCH(NetworkError, error);
    PingBench bench;
    FakeReply *reply = bench.send();
    reply->appendBody(QByteArray(100000, 'x'));
    Q_EMIT reply->readyRead();
    QCOMPARE(reply->bytesAvailable(), qint64(100000));
    reply->setError(error, "what went wrong");
    reply->finish();
    QCOMPARE(reply->bytesAvailable(), qint64(0));
}

void tst_RemotePingAnswers::bodiesOfStrangersAreLeftAlone()
{
    PingBench bench;
    FakeReply reply;
    reply.appendBody("wanted");
    connect(&reply, SIGNAL(finished()), bench.ping.data(), SLOT(replyFinished()));
    reply.finish();
    QCOMPARE(reply.bytesAvailable(), qint64(6));
}

// An application that shares its manager sees the whole answer where Qt shows it.
void tst_RemotePingAnswers::managersOwnerCanReadTheBody()
{
    const QByteArray body(1024 * 1024, 'x');
    ScriptedServer server;
    server.on("/", answers::file(body));
    RealPing real(server.url("/"));
    QByteArray seen;
    connect(real.manager.data(), &QNetworkAccessManager::finished, this,
            [&seen](QNetworkReply *reply) { seen = reply->readAll(); });
    QVERIFY(real.signals.waitFor("s_ping"));
    QVERIFY(seen == body);
}

// Not one of a thousand large answers stays in memory.
void tst_RemotePingAnswers::memoryStaysBounded()
{
    PingBench bench;
    bench.ping->start();
    const QByteArray body(64 * 1024, 'x');
    QList<QPointer<FakeReply>> replies;
    for (int i = 0; i < 1000; ++i) {
        FakeReply *reply = bench.send();
        replies.append(reply);
        reply->appendBody(body);
        reply->finish();
    }
    qint64 unread = 0;
    for (const auto &reply : replies)
        unread += reply ? reply->bytesAvailable() : 0;
    QCOMPARE(unread, qint64(0));
}

// An answer without an end is never read by anybody, and has to be dropped before it.
void tst_RemotePingAnswers::endlessBodiesAreDropped()
{
    PingBench bench;
    FakeReply *modest = bench.send();
    FakeReply *endless = bench.send();
    modest->appendBody(QByteArray(2 * 1024 * 1024, 'x'));
    endless->appendBody(QByteArray(2 * 1024 * 1024 + 1, 'x'));
    bench.tick();
    QCOMPARE(modest->bytesAvailable(), qint64(2 * 1024 * 1024));
    QCOMPARE(endless->bytesAvailable(), qint64(0));
    QCOMPARE(bench.signals.names(), QStringList());
}

const TestClass<tst_RemotePingAnswers> testClass("tst_remoteping_answers");

} // namespace tst_remoteping_answers

#include "tst_remoteping_answers.moc"
