#include "answers.h"
#include "files.h"
#include "program.h"
#include "scriptedserver.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QFileInfo>
#include <QtCore/QScopedPointer>

namespace {

const QString gettingStarted(QStringLiteral(SNIPPET_GETTING_STARTED));
const QString readme(QStringLiteral(SNIPPET_README));
const QString authority(QStringLiteral(TARVISNET_TEST_CERTIFICATES "/server.crt"));

QByteArray content()
{
    return QByteArray(300 * 1000, 'x');
}

QStringList serverArguments(const ScriptedServer &server)
{
    return {QStringLiteral("127.0.0.1"), QString::number(server.port()), authority};
}

QStringList downloadArguments(const ScriptedServer &server)
{
    return {server.url(QStringLiteral("/atlas.bin")).toString(), QStringLiteral("atlas.bin"),
            QString::number(content().size()),
            QString::fromLatin1(
                QCryptographicHash::hash(content(), QCryptographicHash::Sha256).toHex())};
}

} // namespace

class tst_Snippets : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void gettingStartedDownloadsWhatTheIndexNames();
    void gettingStartedFails_data();
    void gettingStartedFails();
    void gettingStartedVerifiesItsServer();
    void gettingStartedTellsItsUsage();
    void readmeDownloads();
    void readmeGoesOn();
    void readmeFails();
    void readmeFailsBeforeTheEventLoop();

private:
    QScopedPointer<ScriptedServer> m_server;
};

void tst_Snippets::init()
{
    m_server.reset(new ScriptedServer(ScriptedServer::Mode::Https));
    m_server->on("/atlas.bin", answers::file(content()));
}

void tst_Snippets::gettingStartedDownloadsWhatTheIndexNames()
{
    m_server->on("/index.json",
                 answers::json({{"path", "/atlas.bin"}, {"size", content().size()}}));
    Program program(gettingStarted, serverArguments(*m_server));
    QCOMPARE(program.run(), 0);
    QCOMPARE(files::read(program.path(QStringLiteral("atlas.bin"))), content());
    QVERIFY2(program.output().contains("100 %"), program.output());
    QVERIFY2(program.output().contains("/atlas.bin\""), program.output());
}

void tst_Snippets::gettingStartedFails_data()
{
    QTest::addColumn<QByteArray>("index");
    QTest::addColumn<QByteArray>("error");

    QTest::newRow("no index") << QByteArray() << QByteArray("Error -217");
    QTest::newRow("index is not JSON") << QByteArray("hello") << QByteArray("Error -207");
    QTest::newRow("file is not there")
        << QByteArray(R"({"path": "/none", "size": 5})") << QByteArray("Error -217");
    QTest::newRow("path without a slash")
        << QByteArray(R"({"path": "atlas.bin", "size": 5})") << QByteArray("Error -207");
}

void tst_Snippets::gettingStartedFails()
{
    QFETCH(QByteArray, index);
    QFETCH(QByteArray, error);
    m_server->on("/", answers::bytes("welcome"));
    if (!index.isEmpty())
        m_server->on("/index.json", answers::bytes(index));
    Program program(gettingStarted, serverArguments(*m_server));
    QCOMPARE(program.run(), 1);
    QVERIFY2(program.output().contains(error), program.output());
}

void tst_Snippets::gettingStartedVerifiesItsServer()
{
    Program program(gettingStarted, serverArguments(*m_server).mid(0, 2));
    QCOMPARE(program.run(), 1);
    QVERIFY2(program.output().contains("Error -222"), program.output());
    QCOMPARE(m_server->requests().size(), 0);
}

void tst_Snippets::gettingStartedTellsItsUsage()
{
    Program program(gettingStarted, {});
    QCOMPARE(program.run(), 2);
    QVERIFY2(program.output().contains("Usage: getting_started HOST PORT"), program.output());
}

void tst_Snippets::readmeDownloads()
{
    ScriptedServer server;
    server.on("/atlas.bin", answers::file(content()));
    Program program(readme, downloadArguments(server));
    QCOMPARE(program.run(), 0);
    QCOMPARE(files::read(program.path(QStringLiteral("atlas.bin"))), content());
}

void tst_Snippets::readmeGoesOn()
{
    ScriptedServer server;
    server.on("/atlas.bin", [&server](const HttpRequest &request, HttpResponse &response) {
        answers::cutShort(content().left(1000), content().size())(request, response);
        server.on("/atlas.bin", answers::file(content()));
    });
    Program program(readme, downloadArguments(server));
    QCOMPARE(program.run(), 0);
    QCOMPARE(program.files(), QStringList("atlas.bin"));
    QCOMPARE(files::read(program.path(QStringLiteral("atlas.bin"))), content());
    QCOMPARE(server.requests("/atlas.bin").constLast().header("range"), QByteArray("bytes=1000-"));
}

void tst_Snippets::readmeFails()
{
    const QStringList arguments = downloadArguments(*m_server);
    m_server->stop();
    Program program(readme, arguments);
    QCOMPARE(program.run(), 1);
    QVERIFY(!QFileInfo::exists(program.path(QStringLiteral("atlas.bin"))));
}

void tst_Snippets::readmeFailsBeforeTheEventLoop()
{
    Program program(readme, {QString(), QStringLiteral("atlas.bin"), QStringLiteral("5")});
    QCOMPARE(program.run(), 1);
}

QTEST_GUILESS_MAIN(tst_Snippets)

#include "tst_snippets.moc"
