#include "fakereply.h"
#include "records.h"
#include "replytools_p.h"

#include <QtCore/QMetaEnum>
#include <QtNetwork/QSslConfiguration>
#include <QtTest/QTest>

using NetworkError = QNetworkReply::NetworkError;

namespace {

const qint64 MiB = 1024 * 1024;

struct Row {
    QLatin1String replyType;
    int value;
};

} // namespace

class tst_ReplyTools : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void httpStatus_data();
    void httpStatus();
    void urlText_data();
    void urlText();
    void urlTextOfNoReply();
    void findRow_data();
    void findRow();
    void isFileKind_data();
    void isFileKind();
    void percentage_data();
    void percentage();
    void redirectTarget_data();
    void redirectTarget();
    void redirectTargetOfNoReply();
    void redirectRequest_data();
    void redirectRequest();
    void errorRule_data();
    void errorRule();
    void limitReadBuffer_data();
    void limitReadBuffer();
    void releaseUnreadBytes_data();
    void releaseUnreadBytes();
    void engineText();
};

void tst_ReplyTools::httpStatus_data()
{
    QTest::addColumn<QVariant>("attribute");
    QTest::addColumn<int>("status");
    QTest::newRow("200") << QVariant(200) << 200;
    QTest::newRow("599") << QVariant(599) << 599;
    QTest::newRow("none") << QVariant() << 0;
}

void tst_ReplyTools::httpStatus()
{
    QFETCH(QVariant, attribute);
    QFETCH(int, status);
    FakeReply reply;
    reply.setAttribute(QNetworkRequest::HttpStatusCodeAttribute, attribute);
    QCOMPARE(replytools::httpStatus(&reply), status);
}

void tst_ReplyTools::urlText_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::addColumn<QString>("text");
    QTest::newRow("plain") << QUrl("http://127.0.0.1:80/a?b#c") << "http://127.0.0.1:80/a?b#c";
    QTest::newRow("blanks are decoded") << QUrl("http://127.0.0.1/a%20b") << "http://127.0.0.1/a b";
    QTest::newRow("password") << QUrl("http://u:p@127.0.0.1/") << "http://u:p@127.0.0.1/";
    QTest::newRow("empty") << QUrl() << "";
    QTest::newRow("invalid") << QUrl("http://[") << "";
}

void tst_ReplyTools::urlText()
{
    QFETCH(QUrl, url);
    QFETCH(QString, text);
    const FakeReply reply(url);
    QCOMPARE(replytools::urlText(&reply), text);
}

void tst_ReplyTools::urlTextOfNoReply()
{
    QCOMPARE(replytools::urlText(nullptr), QString());
}

void tst_ReplyTools::findRow_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<int>("value");
    QTest::newRow("first") << "rawGet" << 1;
    QTest::newRow("last") << "rawPost" << 2;
    QTest::newRow("missing") << "rawPatch" << 0;
    QTest::newRow("other case") << "RAWGET" << 0;
    QTest::newRow("empty") << "" << 0;
}

void tst_ReplyTools::findRow()
{
    QFETCH(QString, replyType);
    QFETCH(int, value);
    const Row rows[] = {{replies::raw_get, 1}, {replies::raw_post, 2}, {replies::raw_get, 3}};
    const Row *found = replytools::findRow(rows, replyType);
    QCOMPARE(found ? found->value : 0, value);
}

void tst_ReplyTools::isFileKind_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<bool>("isFile");
    QTest::newRow("remoteInstaller") << "remoteInstaller" << true;
    QTest::newRow("remoteBinary") << "remoteBinary" << true;
    for (const char *other :
         {"remoteDefinition", "remoteIndex", "remoteInstallerChangeLog", "remoteInstallerCheckSum",
          "rawGet", "rawPost", "rawPatch", "rawDelete", "rawGetFile", "rawPostFile",
          "redirectReply", "remotebinary", ""})
        QTest::newRow(other) << other << false;
}

void tst_ReplyTools::isFileKind()
{
    QFETCH(QString, replyType);
    QFETCH(bool, isFile);
    QCOMPARE(replytools::isFileKind(replyType), isFile);
}

void tst_ReplyTools::percentage_data()
{
    QTest::addColumn<qint64>("part");
    QTest::addColumn<qint64>("whole");
    QTest::addColumn<double>("percent");
    QTest::newRow("half") << qint64(500) << qint64(1000) << 50.0;
    QTest::newRow("all") << qint64(7) << qint64(7) << 100.0;
    QTest::newRow("none") << qint64(0) << qint64(7) << 0.0;
    QTest::newRow("more than all") << qint64(3) << qint64(2) << 150.0;
    // The nearest numbers of single precision, which double precision does not hide.
    QTest::newRow("third") << qint64(1) << qint64(3) << 33.333335876464844;
    QTest::newRow("two thirds") << qint64(2) << qint64(3) << 66.666671752929688;
    QTest::newRow("large") << qint64(1) << qint64(1) * 4096 * MiB << 2.3283064365386963e-08;
}

void tst_ReplyTools::percentage()
{
    QFETCH(qint64, part);
    QFETCH(qint64, whole);
    QFETCH(double, percent);
    // As texts, because QCOMPARE takes numbers that are nearly alike for equal.
    QCOMPARE(QByteArray::number(replytools::percentage(part, whole), 'g', 17),
             QByteArray::number(percent, 'g', 17));
}

void tst_ReplyTools::redirectTarget_data()
{
    QTest::addColumn<QVariant>("attribute");
    QTest::addColumn<bool>("redirects");
    QTest::addColumn<QUrl>("target");
    QTest::newRow("none") << QVariant() << false << QUrl();
    QTest::newRow("absolute") << QVariant(QUrl("http://127.0.0.1/b")) << true
                              << QUrl("http://127.0.0.1/b");
    QTest::newRow("relative") << QVariant(QUrl("b/c?d")) << true << QUrl("b/c?d");
    QTest::newRow("without a location") << QVariant(QUrl()) << true << QUrl();
}

void tst_ReplyTools::redirectTarget()
{
    QFETCH(QVariant, attribute);
    QFETCH(bool, redirects);
    QFETCH(QUrl, target);
    FakeReply reply(QUrl("http://127.0.0.1/a"));
    reply.setAttribute(QNetworkRequest::RedirectionTargetAttribute, attribute);
    const std::optional<QUrl> found = replytools::redirectTarget(&reply);
    QCOMPARE(found.has_value(), redirects);
    QCOMPARE(found.value_or(QUrl()), target);
}

void tst_ReplyTools::redirectTargetOfNoReply()
{
    QVERIFY(!replytools::redirectTarget(nullptr).has_value());
}

void tst_ReplyTools::redirectRequest_data()
{
    QTest::addColumn<QUrl>("target");
    QTest::newRow("absolute") << QUrl("https://127.0.0.1/b?c");
    QTest::newRow("relative") << QUrl("b/c");
    QTest::newRow("empty") << QUrl();
}

void tst_ReplyTools::redirectRequest()
{
    QFETCH(QUrl, target);
    QSslConfiguration configuration;
    configuration.setPeerVerifyDepth(7);
    const QNetworkRequest request = replytools::redirectRequest(target, configuration);
    QCOMPARE(request.url(), target);
    QCOMPARE(request.rawHeaderList(), QList<QByteArray>{"Content-Type"});
    QCOMPARE(request.rawHeader("Content-Type"), QByteArray("application/x-www-form-urlencoded"));
    QCOMPARE(request.sslConfiguration(), configuration);
}

void tst_ReplyTools::errorRule_data()
{
    QTest::addColumn<NetworkError>("error");
    QTest::addColumn<int>("clientCode");
    QTest::addColumn<int>("processorCode");
    QTest::addColumn<bool>("aborts");
    const QMap<int, std::tuple<int, int, bool>> special = {
        {5, {0, 0, false}},        {6, {-222, -203, true}},    {99, {-216, -216, true}},
        {203, {-217, -217, true}}, {204, {-213, -203, false}}, {302, {-220, -203, false}},
    };
    const QMetaEnum errors = QMetaEnum::fromType<NetworkError>();
    for (int i = 0; i < errors.keyCount(); ++i) {
        const int error = errors.value(i);
        const auto [client, processor, aborts] = special.value(error, {-203, -203, true});
        QTest::newRow(errors.key(i)) << NetworkError(error) << client << processor << aborts;
    }
}

void tst_ReplyTools::errorRule()
{
    QFETCH(NetworkError, error);
    QFETCH(int, clientCode);
    QFETCH(int, processorCode);
    QFETCH(bool, aborts);
    const replytools::ErrorRule rule = replytools::errorRule(error);
    QCOMPARE(rule.error, error);
    QCOMPARE(int(rule.clientCode), clientCode);
    QCOMPARE(int(rule.processorCode), processorCode);
    QCOMPARE(rule.aborts, aborts);
}

void tst_ReplyTools::limitReadBuffer_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::addColumn<quint64>("size");
    QTest::addColumn<bool>("isLimited");
    for (const char *text : {"http://127.0.0.1/a", "https://127.0.0.1/a"}) {
        const QUrl url(text);
        const QByteArray scheme = url.scheme().toLatin1();
        QTest::addRow("%s, unknown", scheme.constData()) << url << quint64(0) << false;
        QTest::addRow("%s, small", scheme.constData()) << url << quint64(1000) << false;
        QTest::addRow("%s, 256 MiB", scheme.constData()) << url << quint64(256 * MiB) << true;
        QTest::addRow("%s, largest", scheme.constData()) << url << ~quint64(0) << true;
    }
}

// The bound itself is a matter of speed; that memory stays small is not.
void tst_ReplyTools::limitReadBuffer()
{
    QFETCH(QUrl, url);
    QFETCH(quint64, size);
    QFETCH(bool, isLimited);
    FakeReply reply(url);
    replytools::limitReadBuffer(&reply, size);
    QCOMPARE(reply.readBufferSize() > 0, isLimited);
    QVERIFY(reply.readBufferSize() <= 8 * MiB);
}

void tst_ReplyTools::releaseUnreadBytes_data()
{
    QTest::addColumn<qint64>("limit");
    QTest::addColumn<int>("unread");
    QTest::addColumn<qint64>("limitAfterwards");
    QTest::newRow("unread bytes lift it") << qint64(65536) << 1 << qint64(0);
    QTest::newRow("no unread bytes") << qint64(65536) << 0 << qint64(65536);
    QTest::newRow("no limit") << qint64(0) << 10 << qint64(0);
}

void tst_ReplyTools::releaseUnreadBytes()
{
    QFETCH(qint64, limit);
    QFETCH(int, unread);
    QFETCH(qint64, limitAfterwards);
    FakeReply reply;
    reply.setReadBufferSize(limit);
    reply.appendBody(QByteArray(unread, 'x'));
    replytools::releaseUnreadBytes(&reply);
    QCOMPARE(reply.readBufferSize(), limitAfterwards);
    QCOMPARE(reply.bytesAvailable(), qint64(unread));
}

void tst_ReplyTools::engineText()
{
    const replytools::Engine engine = {MessageLog("unit"), "Engine", QtWarningMsg};
    QCOMPARE(engine.text("run", "It runs: "), QByteArray("<Engine::run> It runs: "));
}

QTEST_GUILESS_MAIN(tst_ReplyTools)

#include "tst_replytools.moc"
