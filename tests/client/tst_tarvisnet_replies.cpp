#include "clientbench.h"
#include "fakereply.h"
#include "files.h"
#include "operations.h"
#include "testclass.h"

#include <QtTest/QTest>

namespace tst_tarvisnet_replies {

using namespace clientaccess;

using Headers = QList<QNetworkReply::RawHeaderPair>;

namespace {

const QByteArray jsonBody = "{\"answer\":42}";
const QString removed = "s_repliesCountChanged";
const QString unknownType = "warning: <TarvisNet::handleReply> Uknown reply type";
const QUrl strangeUrl("http://127.0.0.1/unknown?a=1");

/// Starts a request that is never answered, for a test that speaks in its place.
QNetworkReply *startWithheld(ClientBench &bench, const QString &kind)
{
    bench.server.on("/withheld", answers::withhold());
    QNetworkReply *reply =
        bench.start(record(kind, bench.server.url("/withheld"), bench.file("file", 10)));
    bench.forget();
    return reply;
}

/// Lets a test put a state on a reply that came from Qt.
struct ReplyState : QNetworkReply {
    static void setStatus(QNetworkReply *reply, int status)
    {
        (reply->*&ReplyState::setAttribute)(QNetworkRequest::HttpStatusCodeAttribute, status);
    }
};

} // namespace

/// What becomes of the bytes of an answer, and which signal ends a request.
class tst_TarvisNetReplies : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void logsWithTheClientsOrigin();
    void readsStatusOfFiles_data();
    void readsStatusOfFiles();
    void leavesBytesOfRefusedFilesUnread_data();
    void leavesBytesOfRefusedFilesUnread();
    void collectsOtherKindsWhateverTheStatus_data();
    void collectsOtherKindsWhateverTheStatus();
    void savesTheInstallerOfARecord();
    void readsNothing_data();
    void readsNothing();
    void delivers_data();
    void delivers();
    void deliversWhatIsNotJson_data();
    void deliversWhatIsNotJson();
    void handlesReplyWithoutRecord_data();
    void handlesReplyWithoutRecord();
    void reportsUnknownReply_data();
    void reportsUnknownReply();
    void dropsRepliesOfTheProbe_data();
    void dropsRepliesOfTheProbe();
    void stopsTheProbeAfterADownload();
};

void tst_TarvisNetReplies::logsWithTheClientsOrigin()
{
    ClientBench bench;
    bench.server.on("/missing", answers::status(404));
    bench.server.on("/from", answers::redirect(302, bench.url("/missing").toUtf8()));
    bench.get({"/from"});
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    QVERIFY(bench.messages().size() > 5);
    QCOMPARE(bench.log.originFault(sourceFile), QString());
}

void tst_TarvisNetReplies::readsStatusOfFiles_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");

    const auto rows = [](const QList<int> &statuses, const QString &text) {
        for (const char *kind : {"remoteBinary", "remoteInstaller"}) {
            for (const int status : statuses) {
                const QString message = text.endsWith(' ') ? text + QString::number(status) : text;
                QTest::addRow("%s %d", kind, status) << QString(kind) << status << message;
            }
        }
    };
    rows({0, 100, 199}, QString());
    // A reply without bytes makes the writer complain: that is how a row sees that it was called.
    rows({200, 206, 299}, "warning: No bytes available!");
    rows({300, 302, 399}, "debug: <TarvisNet::replyReadyRead> Redircet attribuie:  ");
    rows({400, 404, 499}, "debug: <TarvisNet::replyReadyRead> Client or network error:  ");
    rows({500, 503, 600}, "debug: <TarvisNet::replyReadyRead> Server error:  ");
}

void tst_TarvisNetReplies::readsStatusOfFiles()
{
    QFETCH(const QString, kind);
    QFETCH(const int, status);
    QFETCH(const QString, message);

    ClientBench bench;
    QNetworkReply *reply = startWithheld(bench, kind);
    if (status != 0)
        ReplyState::setStatus(reply, status);
    Q_EMIT reply->readyRead();

    QCOMPARE(bench.messages(), message.isEmpty() ? QStringList() : QStringList(message));
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_TarvisNetReplies::leavesBytesOfRefusedFilesUnread_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("status");
    for (const char *kind : {"remoteBinary", "remoteInstaller"}) {
        for (const int status : {300, 404, 503})
            QTest::addRow("%s %d", kind, status) << QString(kind) << status;
    }
}

void tst_TarvisNetReplies::leavesBytesOfRefusedFilesUnread()
{
    QFETCH(const QString, kind);
    QFETCH(const int, status);

    ClientBench bench;
    bench.server.on("/file", answers::bytes("refused", status));
    const FileData file = bench.file("file", 7);
    const QNetworkReply *reply = bench.start(record(kind, bench.server.url("/file"), file));
    bench.recorder.clear();
    // When the client first says what became of it.
    QList<qint64> unread;
    QObject receiver;
    const auto keep = [&unread, reply] { unread.append(reply->bytesAvailable()); };
    connect(bench.client, &TarvisNet::s_errorChanged, &receiver, keep);
    connect(bench.client, &TarvisNet::s_repliesCountChanged, &receiver, keep);
    QVERIFY(bench.recorder.waitFor(removed));

    QVERIFY(bench.log.containsPart(QtDebugMsg, "<TarvisNet::replyReadyRead> "));
    QCOMPARE(unread.first(), qint64(7));
    QVERIFY(files::read(file.tempFilePath).isNull());
}

void tst_TarvisNetReplies::collectsOtherKindsWhateverTheStatus_data()
{
    QTest::addColumn<int>("status");
    for (const int status : {200, 204, 206, 300})
        QTest::addRow("%d", status) << status;
}

void tst_TarvisNetReplies::collectsOtherKindsWhateverTheStatus()
{
    QFETCH(const int, status);

    ClientBench bench;
    const QByteArray body = status == 204 ? QByteArray() : jsonBody;
    bench.server.on("/bytes", answers::bytes(body, status));
    bench.client->fetchInstallerChangeLog(bench.server.url("/bytes"));
    QVERIFY(bench.recorder.waitFor("s_fetchInstallerChangeLogData"));

    QCOMPARE(bench.recorder.last("s_fetchInstallerChangeLogData").at(0).toByteArray(), body);
    QCOMPARE(bench.messages(), QStringList());
}

void tst_TarvisNetReplies::savesTheInstallerOfARecord()
{
    const QByteArray body = HttpResponse::generated(0, 3000);
    ClientBench bench;
    bench.server.on("/file", answers::bytes(body));
    const FileData file = bench.file("file", quint64(body.size()));
    bench.add(record(replies::remote_installer, bench.server.url("/file"), file));
    QVERIFY(bench.recorder.waitFor("s_finished"));

    QVERIFY(files::read(file.tempFilePath) == body);
    QVERIFY(files::read(file.filePath).isNull());
}

void tst_TarvisNetReplies::readsNothing_data()
{
    QTest::addColumn<QNetworkReply::NetworkError>("error");
    QTest::addColumn<QString>("message");
    QTest::newRow("after an error")
        << QNetworkReply::ContentNotFoundError
        << line({"warning: <TarvisNet::replyReadyRead> some error: ", quoted("no such thing")});
    QTest::newRow("of an unknown reply")
        << QNetworkReply::NoError << "warning: <TarvisNet::replyReadyRead> Unrecognized reply";
}

void tst_TarvisNetReplies::readsNothing()
{
    QFETCH(const QNetworkReply::NetworkError, error);
    QFETCH(const QString, message);

    const ClientBench bench;
    FakeReply reply(strangeUrl);
    bench.follow(reply);
    reply.appendBody("unread");
    reply.setError(error, "no such thing");
    Q_EMIT reply.readyRead();

    QCOMPARE(bench.messages(), QStringList(message));
    QCOMPARE(reply.bytesAvailable(), qint64(6));
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_TarvisNetReplies::delivers_data()
{
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<QStringList>("messages");
    const QString handled = "debug: <TarvisNet::handleReply> ";
    const QMap<QByteArray, QString> texts = {
        {"remoteInstaller", handled + "Installer finished"},
        {"remoteInstallerCheckSum", handled + "Installer check summ finished"},
        {"redirectReply", handled + "Redirect finished"},
        {"something else", unknownType},
        {"RAWGET", unknownType},
    };
    const auto row = [&texts](const RequestKind &kind) {
        const QString text = texts.value(kind.name);
        QTest::newRow(kind.name) << kind << (text.isEmpty() ? QStringList() : QStringList(text));
    };
    for (const RequestKind &kind : requestkinds::all())
        row(kind);
    row({"redirectReply"});
    row({"something else", "GET", "", "s_errorChanged"});
    row({"RAWGET", "GET", "", "s_errorChanged"});
}

void tst_TarvisNetReplies::delivers()
{
    QFETCH(const RequestKind, kind);
    QFETCH(const QStringList, messages);

    ClientBench bench;
    bench.server.on("/answer", answers::bytes(jsonBody, 200, {{"X-Own", "yes"}}));
    const QString url = bench.url("/answer?query=1");
    const QNetworkReply *reply =
        bench.start(record(kind.name, QUrl(url), bench.file("file", quint64(jsonBody.size()))));
    Headers headers;
    connect(reply, &QNetworkReply::metaDataChanged, this,
            [&headers, reply] { headers = reply->rawHeaderPairs(); });
    bench.recorder.clear();
    QVERIFY(bench.recorder.waitFor(removed));

    const QString name = kind.signal;
    QStringList emitted = bench.emitted();
    emitted.removeAll("s_stopPing");
    QCOMPARE(emitted, (name.isEmpty() ? QStringList() : QStringList(name)) << removed);
    QCOMPARE(bench.messagesOfAnswer(), messages);
    QVariantList result = bench.recorder.last(name);
    if (result.size() == 3 && QByteArray(kind.name).endsWith("File")) {
        QVERIFY(headers.contains({"X-Own", "yes"}));
        QCOMPARE(result.takeLast().value<Headers>(), headers);
    }
    QVariantList expected;
    if (!name.isEmpty())
        expected = name == "s_errorChanged" ? failure(-215, url) : QVariantList{url};
    if (kind.result == Result::Document)
        expected.prepend(QJsonDocument::fromJson(jsonBody));
    if (kind.result == Result::Bytes)
        expected.prepend(jsonBody);
    QCOMPARE(result, expected);
}

void tst_TarvisNetReplies::deliversWhatIsNotJson_data()
{
    QTest::addColumn<RequestKind>("kind");
    QTest::addColumn<QByteArray>("body");
    const QMap<const char *, QByteArray> bodies = {
        {"nothing", ""},
        {"a text", "not JSON"},
        {"a broken document", "{\"answer\":"},
        {"bytes", QByteArray("\xff\xfe\x00\x01", 4)},
    };
    for (const RequestKind &kind : requestkinds::all()) {
        if (kind.result != Result::Document)
            continue;
        for (auto body = bodies.begin(); body != bodies.end(); ++body)
            QTest::addRow("%s, %s", kind.name, body.key()) << kind << *body;
    }
}

void tst_TarvisNetReplies::deliversWhatIsNotJson()
{
    QFETCH(const RequestKind, kind);
    QFETCH(const QByteArray, body);

    ClientBench bench;
    bench.server.on("/answer", answers::bytes(body));
    bench.add(record(kind.name, bench.server.url("/answer")));
    QVERIFY(bench.recorder.waitFor(kind.signal));

    QCOMPARE(bench.recorder.last(kind.signal),
             QVariantList({QJsonDocument(), bench.url("/answer")}));
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.messagesOfAnswer(), QStringList());
}

void tst_TarvisNetReplies::handlesReplyWithoutRecord_data()
{
    QTest::addColumn<QNetworkReply::NetworkError>("error");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QVariantList>("reported");
    QTest::newRow("answered") << QNetworkReply::NoError << unknownType
                              << failure(-215, strangeUrl.toString());
    QTest::newRow("failed") << QNetworkReply::HostNotFoundError
                            << line({"warning: <TarvisNet::handleReply> Network error: \n",
                                     " code: ", "QNetworkReply::HostNotFoundError", "\n",
                                     " text: ", quoted("nobody there"), "\n"})
                            << QVariantList();
}

void tst_TarvisNetReplies::handlesReplyWithoutRecord()
{
    QFETCH(const QNetworkReply::NetworkError, error);
    QFETCH(const QString, message);
    QFETCH(const QVariantList, reported);

    const ClientBench bench;
    FakeReply reply(strangeUrl);
    reply.setError(error, "nobody there");
    bench.call("handleReply", &reply);

    QCOMPARE(bench.messages(),
             QStringList({line({"warning: NO reply!", quoted(strangeUrl.toString())}), message}));
    QCOMPARE(bench.recorder.names().size(), reported.isEmpty() ? 0 : 1);
    QCOMPARE(bench.error(), reported);
}

void tst_TarvisNetReplies::reportsUnknownReply_data()
{
    QTest::addColumn<bool>("hasProbe");
    QTest::addColumn<QStringList>("names");
    QTest::newRow("without a probe") << false << QStringList("s_errorChanged");
    QTest::newRow("with a probe") << true << QStringList({"s_errorChanged", "s_stopPing"});
}

void tst_TarvisNetReplies::reportsUnknownReply()
{
    QFETCH(const bool, hasProbe);
    QFETCH(const QStringList, names);

    ClientBench bench;
    if (hasProbe)
        startWithheld(bench, "remoteBinary");
    QPointer<FakeReply> reply = new FakeReply(strangeUrl);
    bench.follow(*reply);
    // The error comes first: a receiver that runs what is due still finds the reply.
    bool isThere = false;
    connect(bench.client, &TarvisNet::s_errorChanged, this, [&isThere, reply] {
        QCoreApplication::sendPostedEvents(reply, QEvent::DeferredDelete);
        isThere = !reply.isNull();
    });
    reply->finish();

    QVERIFY(isThere);
    QCOMPARE(bench.messages(), QStringList("warning: <TarvisNet::replyFinished> Uknown reply."));
    QCOMPARE(bench.recorder.names(), names);
    QCOMPARE(bench.error(), failure(-215, strangeUrl.toString()));
    QCoreApplication::sendPostedEvents(reply, QEvent::DeferredDelete);
    QVERIFY(reply.isNull());
}

void tst_TarvisNetReplies::dropsRepliesOfTheProbe_data()
{
    QTest::addColumn<bool>("isProbeSet");
    QTest::newRow("with the address of a download") << true;
    QTest::newRow("before any, with an empty address") << false;
}

void tst_TarvisNetReplies::dropsRepliesOfTheProbe()
{
    QFETCH(const bool, isProbeSet);

    ClientBench bench;
    if (isProbeSet)
        startWithheld(bench, "remoteBinary");
    const QUrl url = isProbeSet ? bench.server.url(QString()) : QUrl();
    const QPointer<FakeReply> reply = new FakeReply(url, bench.client);
    bench.follow(*reply);
    reply->finish();

    QCOMPARE(bench.messages(), QStringList());
    QCOMPARE(bench.recorder.names(), QStringList());
    QCoreApplication::sendPostedEvents(reply, QEvent::DeferredDelete);
    QVERIFY(reply);
}

void tst_TarvisNetReplies::stopsTheProbeAfterADownload()
{
    ClientBench bench;
    bench.server.on("/file", answers::bytes("0123456789"));
    bench.add(record("remoteBinary", bench.server.url("/file"), bench.file("file", 10)));
    QVERIFY(bench.recorder.waitFor("s_stopPing"));

    // The client starts the request before the recorder sees the emission that made it do so.
    QCOMPARE(bench.emitted(),
             QStringList({"s_startPing", removed, "s_finished", removed, "s_stopPing"}));
}

const TestClass<tst_TarvisNetReplies> testClass("tst_tarvisnet_replies");

} // namespace tst_tarvisnet_replies

#include "tst_tarvisnet_replies.moc"
