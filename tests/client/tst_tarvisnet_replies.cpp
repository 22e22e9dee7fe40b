#include "clientbench.h"
#include "fakereply.h"
#include "files.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtTest/QTest>

using namespace clientaccess;

namespace {

const QByteArray jsonBody = "{\"answer\":42}";

const char removed[] = "s_repliesCountChanged";

/// Starts a request that is never answered, for a test that speaks in its place.
QNetworkReply *startWithheld(ClientBench &bench, const QString &replyType,
                             const FileData &file = FileData())
{
    bench.server.on("/withheld", answers::withhold());
    QNetworkReply *reply =
        start(*bench.client, record(replyType, bench.server.url("/withheld"), file));
    bench.recorder.clear();
    bench.log.clear();
    return reply;
}

/// What the client logged apart from the upload progress that requests with a body have.
QStringList messagesOfAnswer(const ClientBench &bench)
{
    QStringList messages = bench.messages();
    messages.removeAll("debug: <TarvisNet::UploadProgress> no bytes avalible");
    messages.removeAll("debug: <TarvisNet::UploadProgress> Upload complete");
    return messages;
}

/// Keeps how many bytes a reply has unread when the client first says what became of it.
class UnreadBytes : public QObject {
public:
    UnreadBytes(TarvisNet &client, QNetworkReply *reply)
    {
        const auto keep = [this, reply] {
            if (m_count < 0)
                m_count = reply->bytesAvailable();
        };
        connect(&client, &TarvisNet::s_errorChanged, this, keep);
        connect(&client, &TarvisNet::s_repliesCountChanged, this, keep);
    }
    qint64 count() const { return m_count; }

private:
    qint64 m_count = -1;
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
    void collectsEveryPiece();
    void savesFileKindsWhileTheyArrive_data();
    void savesFileKindsWhileTheyArrive();
    void readsNothingAfterAnError();
    void readsNothingOfUnknownReplies();
    void delivers_data();
    void delivers();
    void deliversWhatIsNotJson_data();
    void deliversWhatIsNotJson();
    void savesRawFiles_data();
    void savesRawFiles();
    void deliversRawFilesThatCannotBeSaved();
    void handlesReplyWithoutRecord();
    void handlesFailedReplyWithoutRecord();
    void reportsUnknownReply();
    void reportsUnknownReplyAndStopsTheProbe();
    void dropsRepliesOfTheProbe_data();
    void dropsRepliesOfTheProbe();
    void stopsTheProbeAfterADownload();
};

void tst_TarvisNetReplies::logsWithTheClientsOrigin()
{
    ClientBench bench;
    bench.server.on("/missing", answers::status(404));
    bench.server.on("/from", answers::redirect(302, bench.url("/missing").toUtf8()));
    bench.client->rawGet(bench.server.url("/from"));
    QVERIFY(bench.recorder.waitFor("s_errorChanged"));

    QVERIFY(bench.messages().size() > 5);
    QCOMPARE(bench.log.originFault(sourceFile), QString());
}

void tst_TarvisNetReplies::readsStatusOfFiles_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("messages");

    struct Row {
        int status;
        QString message;
    };
    // A reply without bytes makes the writer complain: that is how a row sees that it was called.
    const QString saved = "warning: No bytes available!";
    const QString redirected = "debug: <TarvisNet::replyReadyRead> Redircet attribuie:  ";
    const QString clientError = "debug: <TarvisNet::replyReadyRead> Client or network error:  ";
    const QString serverError = "debug: <TarvisNet::replyReadyRead> Server error:  ";
    const QList<Row> rows = {
        {0, QString()},     {100, QString()},   {199, QString()},   {200, saved},
        {206, saved},       {299, saved},       {300, redirected},  {302, redirected},
        {399, redirected},  {400, clientError}, {404, clientError}, {499, clientError},
        {500, serverError}, {503, serverError}, {600, serverError},
    };
    for (const char *kind : {"remoteBinary", "remoteInstaller"}) {
        for (const Row &row : rows) {
            QStringList messages;
            if (row.message == saved)
                messages = QStringList{saved};
            else if (!row.message.isEmpty())
                messages = QStringList{row.message + QString::number(row.status)};
            QTest::addRow("%s %d", kind, row.status) << QString(kind) << row.status << messages;
        }
    }
}

void tst_TarvisNetReplies::readsStatusOfFiles()
{
    QFETCH(QString, replyType);
    QFETCH(int, status);
    QFETCH(QStringList, messages);

    ClientBench bench;
    QNetworkReply *reply = startWithheld(bench, replyType, bench.file("file", 10));
    if (status != 0)
        ReplyState::setStatus(reply, status);
    Q_EMIT reply->readyRead();

    QCOMPARE(bench.messages(), messages);
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_TarvisNetReplies::leavesBytesOfRefusedFilesUnread_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");

    for (const char *kind : {"remoteBinary", "remoteInstaller"}) {
        QTest::addRow("%s 300", kind)
            << QString(kind) << 300 << "<TarvisNet::replyReadyRead> Redircet attribuie:  300";
        QTest::addRow("%s 404", kind)
            << QString(kind) << 404 << "<TarvisNet::replyReadyRead> Client or network error:  404";
        QTest::addRow("%s 503", kind)
            << QString(kind) << 503 << "<TarvisNet::replyReadyRead> Server error:  503";
    }
}

void tst_TarvisNetReplies::leavesBytesOfRefusedFilesUnread()
{
    QFETCH(QString, replyType);
    QFETCH(int, status);
    QFETCH(QString, message);

    ClientBench bench;
    bench.server.on("/file", answers::bytes("refused", status));
    const FileData file = bench.file("file", 7);
    QNetworkReply *reply = start(*bench.client, record(replyType, bench.server.url("/file"), file));
    const UnreadBytes unread(*bench.client, reply);
    bench.recorder.clear();
    QVERIFY(bench.recorder.waitFor(removed));

    QVERIFY(bench.log.contains(QtDebugMsg, message));
    QCOMPARE(unread.count(), qint64(7));
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
    QFETCH(int, status);

    ClientBench bench;
    const QByteArray body = status == 204 ? QByteArray() : jsonBody;
    bench.server.on("/bytes", answers::bytes(body, status));
    bench.client->fetchInstallerChangeLog(bench.server.url("/bytes"));
    QVERIFY(bench.recorder.waitFor("s_fetchInstallerChangeLogData"));

    QCOMPARE(bench.recorder.last("s_fetchInstallerChangeLogData").at(0).toByteArray(), body);
    QCOMPARE(bench.messages(), QStringList());
}

void tst_TarvisNetReplies::collectsEveryPiece()
{
    const QByteArray body = HttpResponse::generated(0, 5000);
    ClientBench bench;
    bench.server.on("/bytes", [&body](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, body.size());
        response.dribble(body, 100);
        response.finish();
    });
    bench.client->fetchInstallerChangeLog(bench.server.url("/bytes"));
    QVERIFY(bench.recorder.waitFor("s_fetchInstallerChangeLogData"));

    QVERIFY(bench.recorder.last("s_fetchInstallerChangeLogData").at(0).toByteArray() == body);
}

void tst_TarvisNetReplies::savesFileKindsWhileTheyArrive_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("isMoved");

    QTest::newRow("binary 200") << "remoteBinary" << 200 << true;
    QTest::newRow("binary 206") << "remoteBinary" << 206 << true;
    QTest::newRow("installer 200") << "remoteInstaller" << 200 << false;
}

void tst_TarvisNetReplies::savesFileKindsWhileTheyArrive()
{
    QFETCH(QString, replyType);
    QFETCH(int, status);
    QFETCH(bool, isMoved);

    const QByteArray body = HttpResponse::generated(0, 3000);
    ClientBench bench;
    bench.server.on("/file", answers::bytes(body, status));
    const FileData file = bench.file("file", quint64(body.size()));
    add(*bench.client, record(replyType, bench.server.url("/file"), file));
    QVERIFY(bench.recorder.waitFor("s_finished"));

    QVERIFY(files::read(isMoved ? file.filePath : file.tempFilePath) == body);
    QVERIFY(files::read(isMoved ? file.tempFilePath : file.filePath).isNull());
}

void tst_TarvisNetReplies::readsNothingAfterAnError()
{
    ClientBench bench;
    FakeReply reply(QUrl("http://127.0.0.1/bytes"));
    follow(*bench.client, reply);
    reply.appendBody("unread");
    reply.setError(QNetworkReply::ContentNotFoundError, "no such thing");
    Q_EMIT reply.readyRead();

    QCOMPARE(bench.messages(),
             QStringList(line(
                 {"warning: <TarvisNet::replyReadyRead> some error: ", quoted("no such thing")})));
    QCOMPARE(reply.bytesAvailable(), qint64(6));
}

void tst_TarvisNetReplies::readsNothingOfUnknownReplies()
{
    ClientBench bench;
    FakeReply reply(QUrl("http://127.0.0.1/bytes"));
    follow(*bench.client, reply);
    reply.appendBody("unread");
    Q_EMIT reply.readyRead();

    QCOMPARE(bench.messages(),
             QStringList("warning: <TarvisNet::replyReadyRead> Unrecognized reply"));
    QCOMPARE(reply.bytesAvailable(), qint64(6));
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_TarvisNetReplies::delivers_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QVariantList>("arguments");
    QTest::addColumn<QStringList>("messages");

    const QVariant document = QVariant::fromValue(QJsonDocument::fromJson(jsonBody));
    // The arguments stand without the URL and what follows it.
    const auto row = [](const char *kind, const char *name, const QVariantList &arguments,
                        const QStringList &messages = QStringList()) {
        QTest::newRow(kind) << QString(kind) << QString(name) << arguments << messages;
    };
    row("remoteIndex", "s_fetchIndex", {document});
    row("remoteDefinition", "s_fetchDefinition", {document});
    row("remoteBinary", "s_finished", {});
    row("remoteInstaller", "s_finished", {},
        {"debug: <TarvisNet::handleReply> Installer finished"});
    row("remoteInstallerChangeLog", "s_fetchInstallerChangeLogData", {jsonBody});
    row("remoteInstallerCheckSum", "", {},
        {"debug: <TarvisNet::handleReply> Installer check summ finished"});
    row("rawGet", "s_rawGet", {document});
    row("rawPost", "s_rawPost", {document});
    row("rawGetFile", "s_rawGetFileFinished", {jsonBody});
    row("rawPostFile", "s_rawPostFileFinished", {jsonBody});
    row("rawPatch", "s_rawPathFinished", {document});
    row("rawDelete", "s_rawDeleteFinished", {});
    row("redirectReply", "", {}, {"debug: <TarvisNet::handleReply> Redirect finished"});
    const QStringList unknown = {"warning: <TarvisNet::handleReply> Uknown reply type"};
    row("something else", "s_errorChanged", {QVariant::fromValue(short(-215))}, unknown);
    row("RAWGET", "s_errorChanged", {QVariant::fromValue(short(-215))}, unknown);
}

void tst_TarvisNetReplies::delivers()
{
    QFETCH(QString, replyType);
    QFETCH(QString, name);
    QFETCH(QVariantList, arguments);
    QFETCH(QStringList, messages);

    ClientBench bench;
    bench.server.on("/answer", answers::bytes(jsonBody, 200, {{"X-Own", "yes"}}));
    const FileData file = bench.file("file", quint64(jsonBody.size()));
    const QString url = bench.url("/answer?query=1");
    QNetworkReply *reply = start(*bench.client, record(replyType, QUrl(url), file));
    QList<QNetworkReply::RawHeaderPair> headers;
    connect(reply, &QNetworkReply::metaDataChanged, this,
            [&headers, reply] { headers = reply->rawHeaderPairs(); });
    bench.recorder.clear();
    QVERIFY(bench.recorder.waitFor(removed));

    QStringList emitted = withoutProgress(bench.recorder);
    emitted.removeAll("s_stopPing");
    QCOMPARE(emitted, (name.isEmpty() ? QStringList() : QStringList(name)) << removed);
    QCOMPARE(messagesOfAnswer(bench), messages);
    if (name.isEmpty())
        return;
    arguments << url;
    if (name == "s_errorChanged")
        arguments << QVariant::fromValue(QJsonDocument());
    if (replyType.endsWith("File"))
        arguments << QVariant::fromValue(headers);
    const QVariantList seen = bench.recorder.last(name);
    QCOMPARE(seen.size(), arguments.size());
    if (replyType.endsWith("File")) {
        QVERIFY(headers.contains({"X-Own", "yes"}));
        QCOMPARE(seen.at(2).value<QList<QNetworkReply::RawHeaderPair>>(), headers);
    }
    QCOMPARE(seen.mid(0, 2), arguments.mid(0, 2));
    if (name == "s_errorChanged")
        QVERIFY(seen.at(2).toJsonDocument().isNull());
}

void tst_TarvisNetReplies::deliversWhatIsNotJson_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("body");

    const QList<QPair<const char *, const char *>> kinds = {
        {"remoteIndex", "s_fetchIndex"},
        {"remoteDefinition", "s_fetchDefinition"},
        {"rawGet", "s_rawGet"},
        {"rawPost", "s_rawPost"},
        {"rawPatch", "s_rawPathFinished"},
    };
    const QList<QPair<const char *, QByteArray>> bodies = {
        {"nothing", ""},
        {"a text", "not JSON"},
        {"a broken document", "{\"answer\":"},
        {"bytes", QByteArray("\xff\xfe\x00\x01", 4)},
    };
    for (const auto &kind : kinds) {
        for (const auto &body : bodies)
            QTest::addRow("%s, %s", kind.first, body.first)
                << QString(kind.first) << QString(kind.second) << body.second;
    }
}

void tst_TarvisNetReplies::deliversWhatIsNotJson()
{
    QFETCH(QString, replyType);
    QFETCH(QString, name);
    QFETCH(QByteArray, body);

    ClientBench bench;
    bench.server.on("/answer", answers::bytes(body));
    add(*bench.client, record(replyType, bench.server.url("/answer")));
    QVERIFY(bench.recorder.waitFor(name));

    QVERIFY(bench.recorder.last(name).at(0).toJsonDocument().isNull());
    QCOMPARE(bench.recorder.last(name).at(1).toString(), bench.url("/answer"));
    QCOMPARE(bench.recorder.count("s_errorChanged"), 0);
    QCOMPARE(messagesOfAnswer(bench), QStringList());
}

void tst_TarvisNetReplies::savesRawFiles_data()
{
    QTest::addColumn<bool>("isPost");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("after");

    for (const bool isPost : {false, true}) {
        const char *verb = isPost ? "POST" : "GET";
        QTest::addRow("%s, no file before", verb)
            << isPost << QByteArray() << QByteArray("body") << QByteArray("body");
        QTest::addRow("%s, a shorter file before", verb)
            << isPost << QByteArray("xy") << QByteArray("body") << QByteArray("body");
        QTest::addRow("%s, a longer file before keeps its tail", verb)
            << isPost << QByteArray("0123456789") << QByteArray("body") << QByteArray("body456789");
        QTest::addRow("%s, an empty body makes no file", verb)
            << isPost << QByteArray() << QByteArray("") << QByteArray();
        QTest::addRow("%s, an empty body touches no file", verb)
            << isPost << QByteArray("0123") << QByteArray("") << QByteArray("0123");
    }
}

void tst_TarvisNetReplies::savesRawFiles()
{
    QFETCH(bool, isPost);
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, after);

    ClientBench bench;
    const QString path = bench.path("saved");
    if (!before.isNull())
        files::write(path, before);
    bench.server.on("/answer", answers::bytes(body, 200, {{"X-Own", "yes"}}));
    const QUrl url = bench.server.url("/answer");
    const QString name = isPost ? "s_rawPostFileFinished" : "s_rawGetFileFinished";
    if (isPost)
        bench.client->rawPostFile(url, path, "request");
    else
        bench.client->rawGetFile(url, path);
    QVERIFY(bench.recorder.waitFor(name));

    const QVariantList arguments = bench.recorder.last(name);
    QCOMPARE(arguments.at(0).toByteArray(), body);
    QCOMPARE(arguments.at(1).toString(), url.toString());
    QVERIFY(
        arguments.at(2).value<QList<QNetworkReply::RawHeaderPair>>().contains({"X-Own", "yes"}));
    QCOMPARE(files::read(path).isNull(), after.isNull());
    QCOMPARE(files::read(path), after);
    QCOMPARE(messagesOfAnswer(bench), QStringList());
}

void tst_TarvisNetReplies::deliversRawFilesThatCannotBeSaved()
{
    ClientBench bench;
    bench.server.on("/answer", answers::bytes("body"));
    // A directory cannot be opened for writing, not even by root.
    const QString path = bench.directory.path();
    bench.client->rawGetFile(bench.server.url("/answer"), path);
    QVERIFY(bench.recorder.waitFor("s_rawGetFileFinished"));

    QCOMPARE(bench.recorder.last("s_rawGetFileFinished").at(0).toByteArray(), QByteArray("body"));
    QCOMPARE(bench.recorder.count("s_errorChanged"), 0);
    QCOMPARE(bench.messages(),
             QStringList(line({"warning: Error opening file to save", quoted(path)})));
}

void tst_TarvisNetReplies::handlesReplyWithoutRecord()
{
    ClientBench bench;
    FakeReply reply(QUrl("http://127.0.0.1/unknown?a=1"));
    callWithReply(*bench.client, "handleReply", &reply);

    QCOMPARE(bench.messages(),
             QStringList({line({"warning: NO reply!", quoted("http://127.0.0.1/unknown?a=1")}),
                          "warning: <TarvisNet::handleReply> Uknown reply type"}));
    QCOMPARE(bench.recorder.names(), QStringList("s_errorChanged"));
    const QVariantList arguments = bench.recorder.last("s_errorChanged");
    QCOMPARE(arguments.at(0).value<short>(), short(-215));
    QCOMPARE(arguments.at(1).toString(), reply.url().toString());
    QVERIFY(arguments.at(2).toJsonDocument().isNull());
}

void tst_TarvisNetReplies::handlesFailedReplyWithoutRecord()
{
    ClientBench bench;
    FakeReply reply(QUrl("http://127.0.0.1/unknown"));
    reply.setError(QNetworkReply::HostNotFoundError, "nobody there");
    callWithReply(*bench.client, "handleReply", &reply);

    QCOMPARE(bench.messages(),
             QStringList({line({"warning: NO reply!", quoted("http://127.0.0.1/unknown")}),
                          line({"warning: <TarvisNet::handleReply> Network error: \n",
                                " code: ", "QNetworkReply::HostNotFoundError", "\n",
                                " text: ", quoted("nobody there"), "\n"})}));
    QCOMPARE(bench.recorder.names(), QStringList());
}

void tst_TarvisNetReplies::reportsUnknownReply()
{
    ClientBench bench;
    QPointer<FakeReply> reply = new FakeReply(QUrl("http://127.0.0.1/unknown?a=1"));
    follow(*bench.client, *reply);
    // The error comes first: a receiver that runs what is due still finds the reply.
    bool isThere = false;
    connect(bench.client, &TarvisNet::s_errorChanged, this, [&isThere, reply] {
        QCoreApplication::sendPostedEvents(reply, QEvent::DeferredDelete);
        isThere = !reply.isNull();
    });
    reply->finish();

    QVERIFY(isThere);
    QCOMPARE(bench.messages(), QStringList("warning: <TarvisNet::replyFinished> Uknown reply."));
    QCOMPARE(bench.recorder.names(), QStringList("s_errorChanged"));
    const QVariantList arguments = bench.recorder.last("s_errorChanged");
    QCOMPARE(arguments.at(0).value<short>(), short(-215));
    QCOMPARE(arguments.at(1).toString(), QString("http://127.0.0.1/unknown?a=1"));
    QVERIFY(arguments.at(2).toJsonDocument().isNull());
    QCoreApplication::sendPostedEvents(reply, QEvent::DeferredDelete);
    QVERIFY(reply.isNull());
}

void tst_TarvisNetReplies::reportsUnknownReplyAndStopsTheProbe()
{
    ClientBench bench;
    startWithheld(bench, "remoteBinary", bench.file("file", 10));
    auto *reply = new FakeReply(QUrl("http://127.0.0.1/unknown"));
    follow(*bench.client, *reply);
    reply->finish();

    QCOMPARE(bench.recorder.names(), QStringList({"s_errorChanged", "s_stopPing"}));
}

void tst_TarvisNetReplies::dropsRepliesOfTheProbe_data()
{
    QTest::addColumn<bool>("isProbeSet");
    QTest::newRow("with the address of a download") << true;
    QTest::newRow("before any, with an empty address") << false;
}

void tst_TarvisNetReplies::dropsRepliesOfTheProbe()
{
    QFETCH(bool, isProbeSet);

    ClientBench bench;
    QUrl url;
    if (isProbeSet) {
        startWithheld(bench, "remoteBinary", bench.file("file", 10));
        url = bench.server.url(QString());
    }
    QPointer<FakeReply> reply = new FakeReply(url, bench.client);
    follow(*bench.client, *reply);
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
    add(*bench.client, record("remoteBinary", bench.server.url("/file"), bench.file("file", 10)));
    QVERIFY(bench.recorder.waitFor("s_stopPing"));

    // The client starts the request before the recorder sees the emission that made it do so.
    QCOMPARE(withoutProgress(bench.recorder),
             QStringList({"s_startPing", removed, "s_finished", removed, "s_stopPing"}));
}

QTEST_GUILESS_MAIN(tst_TarvisNetReplies)
#include "tst_tarvisnet_replies.moc"
