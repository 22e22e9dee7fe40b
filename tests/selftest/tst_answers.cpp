#include "answers.h"
#include "modes.h"
#include "rawclient.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QScopedPointer>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>
#include <QtTest/QTest>

class tst_Answers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_manager.reset(new QNetworkAccessManager); }

    void answersJson();
    void redirects_data();
    void redirects();
    void servesRanges_data();
    void servesRanges();
    void servesLargeBodiesInPieces_data() { addModes(); }
    void servesLargeBodiesInPieces();
    void generatedBytesDependOnTheirPlace();

private:
    QNetworkReply *finished(const QNetworkRequest &request);

    QScopedPointer<QNetworkAccessManager> m_manager;
};

QNetworkReply *tst_Answers::finished(const QNetworkRequest &request)
{
    QNetworkReply *const reply = m_manager->get(request);
    SignalRecorder recorder(reply, {"finished"});
    if (!recorder.waitFor("finished"))
        qFatal("no answer from %s", qPrintable(request.url().toString()));
    return reply;
}

void tst_Answers::answersJson()
{
    const QJsonObject object{{"key", 3}};
    ScriptedServer server;
    server.onRequest(answers::json(object, 410));
    QNetworkReply *const reply = finished(QNetworkRequest(server.url()));

    QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 410);
    QCOMPARE(reply->rawHeader("Content-Type"), QByteArray("application/json"));
    QCOMPARE(QJsonDocument::fromJson(reply->readAll()), QJsonDocument(object));
}

void tst_Answers::redirects_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("location");
    QTest::newRow("301") << 301 << QByteArray("/elsewhere");
    QTest::newRow("308, absolute") << 308 << QByteArray("http://127.0.0.1:1/");
    QTest::newRow("302 without location") << 302 << QByteArray();
}

void tst_Answers::redirects()
{
    QFETCH(int, status);
    QFETCH(QByteArray, location);

    ScriptedServer server;
    server.onRequest(answers::redirect(status, location));
    QNetworkReply *const reply = finished(QNetworkRequest(server.url()));

    QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), status);
    QCOMPARE(reply->hasRawHeader("Location"), !location.isNull());
    QCOMPARE(reply->rawHeader("Location"), location);
}

void tst_Answers::servesRanges_data()
{
    QTest::addColumn<QByteArray>("range");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("contentRange");
    QTest::addColumn<int>("from");
    QTest::newRow("none") << QByteArray() << 200 << QByteArray() << 0;
    QTest::newRow("from the start")
        << QByteArray("bytes=0-") << 206 << QByteArray("bytes 0-999/1000") << 0;
    QTest::newRow("from within") << QByteArray("bytes=400-") << 206
                                 << QByteArray("bytes 400-999/1000") << 400;
    QTest::newRow("last byte") << QByteArray("bytes=999-") << 206
                               << QByteArray("bytes 999-999/1000") << 999;
    QTest::newRow("at the end") << QByteArray("bytes=1000-") << 416 << QByteArray("bytes */1000")
                                << 1000;
    QTest::newRow("beyond") << QByteArray("bytes=1001-") << 416 << QByteArray("bytes */1000")
                            << 1000;
}

void tst_Answers::servesRanges()
{
    QFETCH(QByteArray, range);
    QFETCH(int, status);
    QFETCH(QByteArray, contentRange);
    QFETCH(int, from);

    const QByteArray content = HttpResponse::generated(0, 1000);
    ScriptedServer server;
    server.on("/file", answers::file(content));
    server.on("/generated", answers::generatedFile(content.size()));
    for (const char *path : {"/file", "/generated"}) {
        QNetworkRequest request(server.url(path));
        if (!range.isNull())
            request.setRawHeader("Range", range);
        QNetworkReply *const reply = finished(request);
        QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), status);
        QCOMPARE(reply->rawHeader("Content-Range"), contentRange);
        QCOMPARE(reply->readAll(), content.mid(from));
    }
}

void tst_Answers::servesLargeBodiesInPieces()
{
    QFETCH(ScriptedServer::Mode, mode);

    const qint64 size = Q_INT64_C(256) * 1024 * 1024;
    ScriptedServer server(mode);
    server.onRequest(answers::generatedFile(size));
    QNetworkRequest request(server.url());
    request.setSslConfiguration(RawClient::trusting());
    QScopedPointer<QNetworkReply> reply(m_manager->get(request));
    // Without it a fast server fills the memory of the client.
    reply->setReadBufferSize(1024 * 1024);
    qint64 received = 0;
    bool isSound = true;
    connect(reply.data(), &QNetworkReply::readyRead, this, [&] {
        const QByteArray piece = reply->readAll();
        isSound = isSound && piece == HttpResponse::generated(received, piece.size());
        received += piece.size();
    });
    SignalRecorder recorder(reply.data(), {"finished"});

    QVERIFY(recorder.waitFor("finished", 1, 100000));
    QCOMPARE(reply->error(), QNetworkReply::NoError);
    QCOMPARE(received + reply->bytesAvailable(), size);
    QVERIFY(isSound);
}

void tst_Answers::generatedBytesDependOnTheirPlace()
{
    const QByteArray whole = HttpResponse::generated(0, 200000);

    QCOMPARE(whole.mid(1234, 500), HttpResponse::generated(1234, 500));
    QVERIFY(whole.left(65536) != whole.mid(65536, 65536));
    QVERIFY(whole.left(4096) != whole.mid(4096, 4096));
}

QTEST_GUILESS_MAIN(tst_Answers)
#include "tst_answers.moc"
