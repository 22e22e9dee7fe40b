#include "answers.h"
#include "files.h"
#include "program.h"
#include "scriptedserver.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDirIterator>
#include <QtCore/QJsonArray>
#include <QtCore/QScopedPointer>

#include <memory>

/// The updater of the documents against servers, disks and fates that are not kind to it. Of its
/// three files the second is the one that suffers.
class tst_snippet_updater : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void fetches_data();
    void fetches();
    void followsTheIndex();
    void goesOnAfterKill_data();
    void goesOnAfterKill();
    void fullDiskBefore();
    void fullDiskMeanwhile();
    void trustsNobodyElse_data();
    void trustsNobodyElse();
    void badIndex_data();
    void badIndex();
    void usage_data();
    void usage();

private:
    void offer(const QJsonObject &change = QJsonObject()) const;
    QStringList arguments(const QString &authority = "server", int silenceMsec = 30000) const;

    QScopedPointer<ScriptedServer> m_server;
};

namespace {

using Handler = ScriptedServer::Handler;

constexpr int size = 300 * 1000;
const QByteArray oldContent = "what was there before";
const QStringList names = {"a.bin", "b.bin", "c.bin"};
const int sufferer = 1;

QByteArray content(int number)
{
    return HttpResponse::generated(number * 7919, size);
}

QByteArray wanted()
{
    return content(sufferer);
}

QString certificate(const QString &name)
{
    return QStringLiteral(TARVISNET_TEST_CERTIFICATES) + '/' + name + ".crt";
}

/// \a first answers the first request, \a then all others.
Handler firstThen(const Handler &first, const Handler &then)
{
    const auto isAsked = std::make_shared<bool>(false);
    return [=](const HttpRequest &request, HttpResponse &response) {
        (*isAsked ? then : first)(request, response);
        *isAsked = true;
    };
}

/// Half of the file, and then silence.
void stall(const HttpRequest &, HttpResponse &response)
{
    response.sendHead(200, {{"Accept-Ranges", "bytes"}, {"ETag", "\"1\""}}, size);
    response.write(wanted().left(size / 2));
}

void tearDown(const HttpRequest &, HttpResponse &response)
{
    response.reset();
}

/// To the same port of a host of another name.
void redirectElsewhere(const HttpRequest &request, HttpResponse &response)
{
    QByteArray server = request.header("host");
    server.replace("127.0.0.1", "localhost");
    answers::redirect(302, "https://" + server + "/moved/b.bin")(request, response);
}

/// The file as it should be, or as it was.
class Destination {
public:
    Destination(const Program &program, int number, bool isOld)
        : m_path(program.path("files/" + names.at(number)))
        , m_before(isOld ? oldContent : QByteArray())
        , m_after(content(number))
    {
        if (isOld)
            files::write(m_path, m_before);
    }

    bool isUntouched() const { return files::read(m_path) == m_before; }
    bool isRight() const { return files::read(m_path) == m_after; }
    bool isSound() const { return isUntouched() || isRight(); }

private:
    QString m_path;
    QByteArray m_before;
    QByteArray m_after;
};

/// The updater with the places for its three files.
struct Updater : Program {
    explicit Updater(const QStringList &arguments, bool isOld = true)
        : Program(QStringLiteral(SNIPPET_UPDATER), arguments)
        , destinations{{*this, 0, isOld}, {*this, 1, isOld}, {*this, 2, isOld}}
    {
    }

    /// The exit code of a run in which no destination is ever anything but sound; -2 if one was.
    int runSoundly()
    {
        bool isSound = true;
        const int exitCode = run([&] {
            for (const Destination &destination : destinations)
                isSound = isSound && destination.isSound();
        });
        return isSound ? exitCode : -2;
    }

    bool isAll(bool (Destination::*state)() const) const
    {
        return std::all_of(std::begin(destinations), std::end(destinations),
                           [state](const Destination &each) { return (each.*state)(); });
    }

    /// How many bytes of the sufferer are on disk.
    qint64 partialSize() const
    {
        QDirIterator parts(path("files"), {"b.bin.*.vtxdownload"}, QDir::Files);
        parts.next();
        return parts.fileInfo().size();
    }

    const Destination destinations[3];
};

} // namespace

void tst_snippet_updater::init()
{
    m_server.reset(new ScriptedServer(ScriptedServer::Mode::Https));
    for (int i = 0; i < names.size(); ++i)
        m_server->on("/files/" + names.at(i).toUtf8(), answers::file(content(i)));
    m_server->on("/moved/b.bin", answers::file(wanted()));
    m_server->on("/", answers::status(200));
    offer();
}

/// The index, with a change of what it says about the sufferer.
void tst_snippet_updater::offer(const QJsonObject &change) const
{
    // One of each kind of reference.
    const QStringList paths = {"files/a.bin", "/files/b.bin",
                               m_server->url("/files/c.bin").toString()};
    QJsonArray entries;
    for (int i = 0; i < names.size(); ++i) {
        const QByteArray sha256 = QCryptographicHash::hash(content(i), QCryptographicHash::Sha256);
        QJsonObject entry{
            {"path", paths.at(i)}, {"size", size}, {"sha256", QString(sha256.toHex())}};
        for (auto field = change.begin(); i == sufferer && field != change.end(); ++field)
            entry.insert(field.key(), field.value());
        entries.append(entry);
    }
    for (const char *path : {"/index.json", "/moved/index.json"})
        m_server->on(path, answers::json({{"files", entries}}));
}

QStringList tst_snippet_updater::arguments(const QString &authority, int silenceMsec) const
{
    return {m_server->url().toString(), "files", certificate(authority),
            QString::number(silenceMsec)};
}

void tst_snippet_updater::fetches_data()
{
    QTest::addColumn<Handler>("handler");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<bool>("isOld");

    const auto add = [](const QByteArray &name, const Handler &handler, int exitCode) {
        QTest::newRow(name) << handler << exitCode << false;
        QTest::newRow(name + ", over an old file") << handler << exitCode << true;
    };
    const Handler good = answers::file(wanted());
    const Handler cut = answers::cutShort(wanted().left(size / 2), size);
    add("good server", good, 0);
    add("absolute redirect to another host", redirectElsewhere, 0);
    add("relative redirect", answers::redirect(307, "../moved/b.bin"), 0);
    add("redirect to http", answers::redirect(301, "http://127.0.0.1/b.bin"), 1);
    add("redirect to itself", answers::redirect(302, "b.bin"), 1);
    add("redirect to nowhere", answers::redirect(302), 1);
    add("short body, then good", firstThen(cut, good), 0);
    add("short body, always", cut, 1);
    add("short body, and the server says so", answers::bytes(wanted().left(1000)), 1);
    add("empty body", answers::status(200), 1);
    add("surplus", answers::bytes(wanted() + "x"), 1);
    add("wrong body", answers::bytes(QByteArray(size, 'x')), 1);
    add("error page", answers::bytes("<html>Busy</html>"), 1);
    add("not there", answers::status(404), 1);
    add("unavailable, then good", firstThen(answers::status(503), good), 0);
    add("connection reset, then good", firstThen(tearDown, good), 0);
    add("stall in the middle, then good", firstThen(stall, good), 0);
    add("silence, then good", firstThen(answers::withhold(), good), 0);
    add("silence, always", answers::withhold(), 1);
}

void tst_snippet_updater::fetches()
{
    QFETCH(Handler, handler);
    QFETCH(int, exitCode);
    QFETCH(bool, isOld);

    m_server->on("/files/b.bin", handler);
    Updater updater(arguments("server", 1000), isOld);
    const int ended = updater.runSoundly();
    QVERIFY2(ended == exitCode, QByteArray::number(ended) + ": " + updater.output());
    QVERIFY(updater.destinations[0].isRight());
    QVERIFY(updater.destinations[2].isRight());
    if (exitCode == 0) {
        QVERIFY(updater.destinations[sufferer].isRight());
        QVERIFY2(updater.output().contains("100 % "), updater.output());
    } else {
        QVERIFY(updater.destinations[sufferer].isUntouched());
        const QByteArray place = m_server->url("/files/b.bin").toString().toUtf8() + ' ';
        QVERIFY2(updater.output().contains(place), updater.output());
    }
}

void tst_snippet_updater::followsTheIndex()
{
    m_server->on("/index.json", answers::redirect(302, "moved/index.json"));
    Updater updater(arguments());
    QCOMPARE(updater.runSoundly(), 0);
    QVERIFY(updater.isAll(&Destination::isRight));
}

void tst_snippet_updater::goesOnAfterKill_data()
{
    QTest::addColumn<Handler>("handler");

    const Handler good = answers::file(wanted());
    const QByteArray whole = "bytes 0-299999/300000";
    QTest::newRow("good server") << good;
    QTest::newRow("ignored Range") << answers::bytes(wanted());
    QTest::newRow("another range")
        << firstThen(answers::bytes(wanted(), 206, {{"Content-Range", whole}}), good);
    QTest::newRow("rest of another file") << firstThen(answers::file(QByteArray(size, 'x')), good);
    QTest::newRow("range not satisfiable") << firstThen(answers::status(416), good);
    QTest::newRow("absolute redirect") << Handler(redirectElsewhere);
    QTest::newRow("relative redirect") << answers::redirect(308, "/moved/b.bin");
    QTest::newRow("unavailable, then good") << firstThen(answers::status(503), good);
}

void tst_snippet_updater::goesOnAfterKill()
{
    QFETCH(Handler, handler);
    m_server->on("/files/b.bin", stall);
    Updater updater(arguments());
    QVERIFY(updater.killWhen([&] {
        return updater.partialSize() == size / 2 && updater.destinations[0].isRight()
            && updater.destinations[2].isRight();
    }));
    QVERIFY(updater.destinations[sufferer].isUntouched());

    m_server->clear();
    m_server->on("/files/b.bin", handler);
    QCOMPARE(updater.runSoundly(), 0);
    QVERIFY(updater.isAll(&Destination::isRight));
    QCOMPARE(m_server->requests("/files/b.bin").constFirst().header("range"),
             "bytes=" + QByteArray::number(size / 2) + '-');
}

/// Who has too little room for a file does not even ask for it.
void tst_snippet_updater::fullDiskBefore()
{
    offer({{"size", 9e15}});
    Updater updater(arguments());
    QCOMPARE(updater.runSoundly(), 1);
    QVERIFY(updater.destinations[sufferer].isUntouched());
    QVERIFY(updater.destinations[0].isRight());
    QVERIFY(updater.destinations[2].isRight());
    QVERIFY(m_server->requests("/files/b.bin").isEmpty());
    QVERIFY2(updater.output().contains("The disk does not take the file."), updater.output());
}

void tst_snippet_updater::fullDiskMeanwhile()
{
    Updater updater(arguments());
    updater.limitFiles(size / 2);
    QCOMPARE(updater.runSoundly(), 1);
    QVERIFY(updater.isAll(&Destination::isUntouched));
    QVERIFY2(updater.output().contains("The disk does not take the file."), updater.output());

    updater.limitFiles(RLIM_INFINITY);
    m_server->clear();
    QCOMPARE(updater.runSoundly(), 0);
    QVERIFY(updater.isAll(&Destination::isRight));
    QCOMPARE(m_server->requests("/files/b.bin").constFirst().header("range"),
             "bytes=" + QByteArray::number(size / 2) + '-');
}

void tst_snippet_updater::trustsNobodyElse_data()
{
    QTest::addColumn<QString>("authority");
    QTest::addColumn<ScriptedServer::Certificate>("own");
    QTest::addColumn<QByteArray>("reason");

    const QByteArray selfSigned = "The certificate is self-signed, and untrusted";
    QTest::newRow("nobody's certificate")
        << QString() << ScriptedServer::Certificate::Good << selfSigned;
    QTest::newRow("another authority's")
        << "wrongname" << ScriptedServer::Certificate::Good << selfSigned;
    QTest::newRow("another host's")
        << "wrongname" << ScriptedServer::Certificate::WrongName
        << QByteArray("The host name did not match any of the valid hosts for this certificate");
}

void tst_snippet_updater::trustsNobodyElse()
{
    QFETCH(QString, authority);
    QFETCH(ScriptedServer::Certificate, own);
    m_server->setCertificate(own);
    Updater updater(authority.isEmpty() ? arguments().mid(0, 2) : arguments(authority));
    QCOMPARE(updater.runSoundly(), 1);
    QVERIFY(updater.isAll(&Destination::isUntouched));
    QVERIFY(m_server->requests().isEmpty());
    QFETCH(QByteArray, reason);
    QVERIFY2(updater.output().contains("/index.json " + reason), updater.output());
}

void tst_snippet_updater::badIndex_data()
{
    QTest::addColumn<Handler>("handler");
    QTest::addColumn<QByteArray>("reason");

    const QByteArray noFiles = "/index.json There are no files in it.";
    QTest::newRow("not there") << answers::status(404) << QByteArray("/index.json Error ");
    QTest::newRow("no JSON") << answers::bytes("<html>") << noFiles;
    QTest::newRow("no files") << answers::json({{"files", QJsonArray()}}) << noFiles;
    QTest::newRow("another document") << answers::json({{"version", 3}}) << noFiles;
}

void tst_snippet_updater::badIndex()
{
    QFETCH(Handler, handler);
    QFETCH(QByteArray, reason);
    m_server->on("/index.json", handler);
    Updater updater(arguments());
    QCOMPARE(updater.runSoundly(), 1);
    QVERIFY(updater.isAll(&Destination::isUntouched));
    QVERIFY2(updater.output().contains(reason), updater.output());
}

void tst_snippet_updater::usage_data()
{
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("nothing") << QStringList();
    QTest::newRow("no directory") << QStringList{"https://127.0.0.1"};
    QTest::newRow("a CA file that is not there")
        << QStringList{"https://127.0.0.1", "files", "nothing.crt"};
}

void tst_snippet_updater::usage()
{
    QFETCH(QStringList, arguments);
    Updater updater(arguments);
    QCOMPARE(updater.run(), 1);
    QVERIFY2(updater.output().contains("Usage: updater URL DIRECTORY"), updater.output());
}

QTEST_GUILESS_MAIN(tst_snippet_updater)
#include "tst_snippet_updater.moc"
