#include "clientbench.h"
#include "files.h"
#include "realservers.h"
#include "testclass.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QJsonObject>
#include <QtCore/QScopedPointer>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

namespace tst_servers {

namespace {

const QString lost = QString::number(errorcodes::network_error);
const QString path(QStringLiteral("/book.txt"));

/// Text of 460 KB. All versions have the same length.
QByteArray book(int version)
{
    QByteArray text;
    for (int line = 0; line < 20000; ++line)
        text += "line " + QByteArray::number(line) + " of version " + QByteArray::number(version)
            + '\n';
    return text;
}

QString sha256(const QByteArray &content)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex());
}

/// Every second one is answered with an early hint first.
QStringList hintedPaths()
{
    QStringList paths;
    for (int i = 0; i < 12; ++i)
        paths << QStringLiteral("/plain/%1").arg(i) << QStringLiteral("/hinted/%1").arg(i);
    return paths;
}

QString pathOf(const QVariant &url)
{
    return QUrl(url.toString()).path();
}

TransferPolicy policy()
{
    TransferPolicy strict = TransferPolicy::strict();
    strict.setCaCertificates(
        QSslCertificate::fromPath(QStringLiteral(TARVISNET_TEST_CERTIFICATES "/server.crt")));
    return strict;
}

/// A request as it was sent and answered.
struct Exchange {
    bool isConditional = false;
    int status = 0;
};

bool operator==(const Exchange &left, const Exchange &right)
{
    return left.isConditional == right.isConditional && left.status == right.status;
}

/// A client of its own, as each start of an application makes one.
struct Visit {
    Visit()
    {
        QObject::connect(
            clientaccess::managerOf(client), &QNetworkAccessManager::finished, &client,
            [this](const QNetworkReply *reply) {
                exchanges.append(
                    {reply->request().hasRawHeader("If-Range"),
                     reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt()});
            });
    }

    /// Aborts a download when a piece of it has arrived. It is a small one, because Qt may hold no
    /// more.
    bool interrupt(const QUrl &url, const QString &destination, quint64 size = 0,
                   const QString &hash = QString())
    {
        client.fetchBinary(url, destination, size, hash);
        QNetworkReply *reply = clientaccess::repliesOf(client).last();
        reply->setReadBufferSize(64 * 1024);
        QObject::connect(reply, &QNetworkReply::readyRead, &client,
                         [this, url] { client.abortDownload(url.path()); });
        return recorder.waitFor("s_aborted");
    }
    /// What each request ended in, by the path that was asked for: the path that it got
    /// the answer of, or the code of its error.
    QMultiMap<QString, QString> outcomes() const
    {
        QMultiMap<QString, QString> all;
        for (const QVariantList &arguments : recorder.of("s_rawGet"))
            all.insert(pathOf(arguments.at(1)),
                       arguments.at(0).toJsonDocument().object().value("path").toString());
        for (const QVariantList &arguments : recorder.of("s_finished"))
            all.insert(pathOf(arguments.at(0)), pathOf(arguments.at(0)));
        for (const QVariantList &arguments : recorder.of("s_errorChanged"))
            all.insert(pathOf(arguments.at(1)), arguments.at(0).toString());
        return all;
    }
    bool waitForOutcomes(int count) const
    {
        return QTest::qWaitFor([this, count] { return outcomes().size() >= count; }, 30000);
    }
    /// Whether \a path has got one outcome, which is its own answer or that a hint took its place.
    bool isAnsweredOrLost(const QString &path) const
    {
        const QStringList found = outcomes().values(path);
        return found == QStringList(path)
            || (path.startsWith("/hinted/") && found == QStringList(lost));
    }
    QList<int> errors() const
    {
        QList<int> codes;
        for (const QVariantList &arguments : recorder.of("s_errorChanged"))
            codes.append(arguments.at(0).toInt());
        return codes;
    }

    LogCapture log;
    TarvisNet client{policy()};
    SignalRecorder recorder{&client};
    QList<Exchange> exchanges;
};

} // namespace

/// A strict client and the servers that it will meet.
class tst_Servers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void serversCompress_data() { addServers(); }
    void serversCompress();
    void fetches_data() { addServersAndKnowledge(); }
    void fetches();
    void resumes_data() { addServersAndKnowledge(); }
    void resumes();
    void startsAfreshWhenFileHasChanged_data() { addServers(); }
    void startsAfreshWhenFileHasChanged();
    void startsAfreshWhenChangeDoesNotShow_data() { addServers(); }
    void startsAfreshWhenChangeDoesNotShow();
    void refusesWrongContent_data() { addServers(); }
    void refusesWrongContent();
    void takesOnlyItsOwnAnswer_data();
    void takesOnlyItsOwnAnswer();
    void savesOnlyItsOwnAnswer();
    void failsPostThatIsHintedAt();

private:
    void addServers() const;
    /// Once with size and hash of the file, once without.
    void addServersAndKnowledge() const;
    void publish(const QByteArray &content, const QDateTime &changed) const;
    QByteArray saved() const { return files::read(m_destination); }

    const RealServers m_servers;
    const QDateTime m_earlier = QDateTime::currentDateTime().addSecs(-3600);
    const QDateTime m_later = m_earlier.addSecs(60);
    const QByteArray m_book = book(1);
    const QByteArray m_newBook = book(2);
    QScopedPointer<QTemporaryDir> m_directory;
    QString m_destination;
};

void tst_Servers::init()
{
    publish(m_book, m_earlier);
    m_directory.reset(new QTemporaryDir);
    m_destination = m_directory->filePath(QStringLiteral("book"));
}

void tst_Servers::addServers() const
{
    QTest::addColumn<QUrl>("url");
    for (const QByteArray &name : m_servers.names())
        QTest::newRow(name) << m_servers.url(name, path);
}

void tst_Servers::addServersAndKnowledge() const
{
    QTest::addColumn<QUrl>("url");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<QString>("hash");
    for (const QByteArray &name : m_servers.names()) {
        const QUrl url = m_servers.url(name, path);
        QTest::addRow("%s, known file", name.constData())
            << url << quint64(m_book.size()) << sha256(m_book);
        QTest::addRow("%s, unknown file", name.constData()) << url << quint64(0) << QString();
    }
}

void tst_Servers::publish(const QByteArray &content, const QDateTime &changed) const
{
    const QString file = m_servers.root() + path;
    files::write(file, content);
    QFile published(file);
    if (!published.open(QIODevice::ReadWrite)
        || !published.setFileTime(changed, QFileDevice::FileModificationTime))
        qFatal("cannot date %s", qPrintable(file));
}

// Or the other tests would not show that what is compressed on the way is no file.
void tst_Servers::serversCompress()
{
    QFETCH(const QUrl, url);

    QNetworkAccessManager manager;
    QNetworkRequest request(url);
    request.setRawHeader("Accept-Encoding", "gzip");
    QSslConfiguration unverified = request.sslConfiguration();
    unverified.setPeerVerifyMode(QSslSocket::VerifyNone);
    request.setSslConfiguration(unverified);
    const QScopedPointer<QNetworkReply> reply(manager.get(request));
    QTRY_VERIFY(reply->isFinished());
    QCOMPARE(reply->rawHeader("Content-Encoding"), QByteArray("gzip"));
}

void tst_Servers::fetches()
{
    QFETCH(const QUrl, url);
    QFETCH(const quint64, size);
    QFETCH(const QString, hash);

    Visit visit;
    visit.client.fetchBinary(url, m_destination, size, hash);
    QVERIFY(visit.recorder.waitFor("s_finished"));
    QVERIFY(saved() == m_book);
    QCOMPARE(visit.exchanges, QList<Exchange>({{false, 200}}));
    QCOMPARE(visit.errors(), QList<int>());
}

void tst_Servers::resumes()
{
    QFETCH(const QUrl, url);
    QFETCH(const quint64, size);
    QFETCH(const QString, hash);

    QVERIFY(Visit().interrupt(url, m_destination, size, hash));
    Visit visit;
    visit.client.fetchBinary(url, m_destination, size, hash);
    QVERIFY(visit.recorder.waitFor("s_finished"));
    QVERIFY(saved() == m_book);
    QCOMPARE(visit.exchanges, QList<Exchange>({{true, 206}}));
    QCOMPARE(visit.errors(), QList<int>());
}

void tst_Servers::startsAfreshWhenFileHasChanged()
{
    QFETCH(const QUrl, url);

    QVERIFY(Visit().interrupt(url, m_destination));
    publish(m_newBook, m_later);
    Visit visit;
    visit.client.fetchBinary(url, m_destination);
    QVERIFY(visit.recorder.waitFor("s_finished"));
    QVERIFY(saved() == m_newBook);
    QCOMPARE(visit.exchanges, QList<Exchange>({{true, 200}}));
    QCOMPARE(visit.errors(), QList<int>());
}

// No server can tell a file from another of the same length and date; the hash can.
void tst_Servers::startsAfreshWhenChangeDoesNotShow()
{
    QFETCH(const QUrl, url);

    const quint64 size = quint64(m_newBook.size());
    const QString hash = sha256(m_newBook);
    QVERIFY(Visit().interrupt(url, m_destination, size, hash));
    publish(m_newBook, m_earlier);
    Visit visit;
    visit.client.fetchBinary(url, m_destination, size, hash);
    QVERIFY(visit.recorder.waitFor("s_finished"));
    QVERIFY(saved() == m_newBook);
    QCOMPARE(visit.exchanges, QList<Exchange>({{true, 206}, {false, 200}}));
    QCOMPARE(visit.errors(), QList<int>());
}

void tst_Servers::refusesWrongContent()
{
    QFETCH(const QUrl, url);

    files::write(m_destination, "what was there");
    Visit visit;
    visit.client.fetchBinary(url, m_destination, quint64(m_book.size()), sha256(m_newBook));
    QVERIFY(visit.recorder.waitFor("s_errorChanged"));
    QCOMPARE(visit.errors(), QList<int>{errorcodes::file_corrupted});
    QCOMPARE(saved(), QByteArray("what was there"));
    QCOMPARE(QDir(m_directory->path()).entryList(QDir::Files), QStringList("book"));
}

void tst_Servers::takesOnlyItsOwnAnswer_data()
{
    QTest::addColumn<int>("atOnce");
    QTest::newRow("one after the other") << 1;
    QTest::newRow("all at once") << hintedPaths().size();
}

// A hint goes ahead of every second answer, and is all that there is for Qt.
void tst_Servers::takesOnlyItsOwnAnswer()
{
    QFETCH(const int, atOnce);

    Visit visit;
    const QStringList paths = hintedPaths();
    for (int i = 0; i < paths.size(); ++i) {
        visit.client.rawGet(m_servers.url("haproxy", paths.at(i)));
        QVERIFY(visit.waitForOutcomes(i + 2 - atOnce));
    }
    QVERIFY(visit.waitForOutcomes(paths.size()));
    for (const QString &path : paths)
        QVERIFY2(visit.isAnsweredOrLost(path), qPrintable(path));
}

void tst_Servers::savesOnlyItsOwnAnswer()
{
    Visit visit;
    const QStringList paths = hintedPaths();
    const auto destination = [this](const QString &path) {
        return m_directory->filePath(path.mid(1).replace('/', '-'));
    };
    for (const QString &path : paths)
        visit.client.fetchBinary(m_servers.url("haproxy", path), destination(path));
    QVERIFY(visit.waitForOutcomes(paths.size()));
    for (const QString &path : paths) {
        QVERIFY2(visit.isAnsweredOrLost(path), qPrintable(path));
        const bool isSaved = visit.outcomes().contains(path, path);
        QCOMPARE(files::read(destination(path)),
                 isSaved ? "{\"path\":\"" + path.toUtf8() + "\"}" : QByteArray());
    }
}

void tst_Servers::failsPostThatIsHintedAt()
{
    Visit visit;
    visit.client.rawPost(m_servers.url("haproxy", "/hinted/post"), QByteArray("a=1"));
    QVERIFY(visit.recorder.waitFor("s_errorChanged"));
    QCOMPARE(visit.errors(), QList<int>{errorcodes::network_error});
    QCOMPARE(visit.recorder.count("s_rawPost"), 0);
}

const TestClass<tst_Servers> testClass("tst_servers");

} // namespace tst_servers

#include "tst_servers.moc"
