#include "fakereply.h"
#include "records.h"
#include "replyinfo_p.h"
#include "testclass.h"

#include <QtTest/QTest>

namespace tst_replyinfo {

namespace {

const qint64 MiB = 1024 * 1024;

struct Row {
    QLatin1String replyType;
    int value;
};

} // namespace

class tst_ReplyInfo : public QObject {
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
};

void tst_ReplyInfo::httpStatus_data()
{
    QTest::addColumn<QVariant>("attribute");
    QTest::addColumn<int>("status");
    QTest::newRow("200") << QVariant(200) << 200;
    QTest::newRow("599") << QVariant(599) << 599;
    QTest::newRow("none") << QVariant() << 0;
}

void tst_ReplyInfo::httpStatus()
{
    QFETCH(QVariant, attribute);
    QFETCH(int, status);
    FakeReply reply;
    reply.setAttribute(QNetworkRequest::HttpStatusCodeAttribute, attribute);
    QCOMPARE(replyinfo::httpStatus(&reply), status);
}

void tst_ReplyInfo::urlText_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::addColumn<QString>("text");
    QTest::newRow("plain") << QUrl("http://127.0.0.1:80/a?b#c") << "http://127.0.0.1:80/a?b#c";
    QTest::newRow("blanks are decoded") << QUrl("http://127.0.0.1/a%20b") << "http://127.0.0.1/a b";
    QTest::newRow("password") << QUrl("http://u:p@127.0.0.1/") << "http://u:p@127.0.0.1/";
    QTest::newRow("empty") << QUrl() << "";
    QTest::newRow("invalid") << QUrl("http://[") << "";
}

void tst_ReplyInfo::urlText()
{
    QFETCH(QUrl, url);
    QFETCH(QString, text);
    const FakeReply reply(url);
    QCOMPARE(replyinfo::urlText(&reply), text);
}

void tst_ReplyInfo::urlTextOfNoReply()
{
    QCOMPARE(replyinfo::urlText(nullptr), QString());
}

void tst_ReplyInfo::findRow_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<int>("value");
    QTest::newRow("first") << "rawGet" << 1;
    QTest::newRow("last") << "rawPost" << 2;
    QTest::newRow("missing") << "rawPatch" << 0;
    QTest::newRow("other case") << "RAWGET" << 0;
    QTest::newRow("empty") << "" << 0;
}

void tst_ReplyInfo::findRow()
{
    QFETCH(QString, replyType);
    QFETCH(int, value);
    const Row rows[] = {{replies::raw_get, 1}, {replies::raw_post, 2}, {replies::raw_get, 3}};
    const Row *found = replyinfo::findRow(rows, replyType);
    QCOMPARE(found ? found->value : 0, value);
}

void tst_ReplyInfo::isFileKind_data()
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

void tst_ReplyInfo::isFileKind()
{
    QFETCH(QString, replyType);
    QFETCH(bool, isFile);
    QCOMPARE(replyinfo::isFileKind(replyType), isFile);
}

void tst_ReplyInfo::percentage_data()
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

void tst_ReplyInfo::percentage()
{
    QFETCH(qint64, part);
    QFETCH(qint64, whole);
    QFETCH(double, percent);
    // As texts, because QCOMPARE takes numbers that are nearly alike for equal.
    QCOMPARE(QByteArray::number(replyinfo::percentage(part, whole), 'g', 17),
             QByteArray::number(percent, 'g', 17));
}

void tst_ReplyInfo::redirectTarget_data()
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

void tst_ReplyInfo::redirectTarget()
{
    QFETCH(QVariant, attribute);
    QFETCH(bool, redirects);
    QFETCH(QUrl, target);
    FakeReply reply(QUrl("http://127.0.0.1/a"));
    reply.setAttribute(QNetworkRequest::RedirectionTargetAttribute, attribute);
    const std::optional<QUrl> found = replyinfo::redirectTarget(&reply);
    QCOMPARE(found.has_value(), redirects);
    QCOMPARE(found.value_or(QUrl()), target);
}

void tst_ReplyInfo::redirectTargetOfNoReply()
{
    QVERIFY(!replyinfo::redirectTarget(nullptr).has_value());
}

const TestClass<tst_ReplyInfo> testClass("tst_replyinfo");

} // namespace tst_replyinfo

#include "tst_replyinfo.moc"
