#include "engines.h"
#include "fakereply.h"
#include "logcapture.h"
#include "replylog_p.h"
#include "testclass.h"

#include <QtTest/QTest>

namespace tst_replylog {

using namespace engines;

class tst_ReplyLog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sslErrors();
    void uploadPercentage_data();
    void uploadPercentage();
    void headers_data();
    void headers();
    void engineText();
};

void tst_ReplyLog::sslErrors()
{
    const QSslError first(QSslError::SelfSignedCertificate);
    const QSslError second(QSslError::HostNameMismatch);
    for (const Engine &engine : {client, processor}) {
        LogCapture log;
        QVERIFY(!replylog::logSslErrors(engine, function, {}));
        QCOMPARE(log.entries().size(), 1);
        QCOMPARE(log.texts(engine.failureLevel),
                 QStringList(textOf(engine, "replySslErrors", "Uknown error.")));

        log.clear();
        QVERIFY(replylog::logSslErrors(engine, function, {first, second}));
        const QString line = textOf(engine, "replySslErrors", "\n  text:  \"%1\"");
        QCOMPARE(log.texts(QtDebugMsg),
                 QStringList({line.arg(first.errorString()), line.arg(second.errorString())}));
        QCOMPARE(log.entries().size(), 2);
        QCOMPARE(log.originFault(sourceFile), QString());
    }
}

void tst_ReplyLog::uploadPercentage_data()
{
    QTest::addColumn<qint64>("sent");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<double>("percent");
    QTest::addColumn<QString>("text");
    const auto add = [](const char *name, qint64 sent, qint64 total, double percent,
                        const char *text) {
        QTest::newRow(name) << sent << total << percent << text;
    };
    const double none = -1;
    add("half", 50, 100, 50.0, "UploadProgress   received:  50  total:  100  complete:  0  % ");
    add("nearly all", 99, 100, double(99.0F / 100.0F * 100.0F),
        "UploadProgress   received:  99  total:  100  complete:  0  % ");
    add("third", 1, 3, double(1.0F / 3.0F * 100.0F),
        "UploadProgress   received:  1  total:  3  complete:  0  % ");
    add("all", 100, 100, none, "all there");
    add("no body", 0, 0, none, "nothing yet");
    add("first report", 0, 100, none, "nothing yet");
    add("unknown total", 50, -1, none, "nothing yet");
    add("more than all", 101, 100, none, "nothing yet");
}

void tst_ReplyLog::uploadPercentage()
{
    QFETCH(qint64, sent);
    QFETCH(qint64, total);
    QFETCH(double, percent);
    QFETCH(QString, text);
    LogCapture log;
    const replylog::UploadTexts texts = {"all there", "nothing yet"};
    const std::optional<double> told =
        replylog::uploadPercentage(client, function, texts, sent, total);
    QVERIFY(told.value_or(-1) == percent);
    QCOMPARE(log.texts(QtDebugMsg), QStringList(text));
    QCOMPARE(log.entries().size(), 1);
    QCOMPARE(log.originFault(sourceFile), QString());
}

void tst_ReplyLog::headers_data()
{
    QTest::addColumn<QList<QNetworkReply::RawHeaderPair>>("pairs");
    QTest::addColumn<QStringList>("texts");
    const QString noRanges = "<TarvisNet::debugHeader> Accept-Ranges NONE.";
    QTest::newRow("none") << QList<QNetworkReply::RawHeaderPair>() << QStringList(noRanges);
    QTest::newRow("in order") << QList<QNetworkReply::RawHeaderPair>{{"X-B", "1"}, {"X-A", "2"}}
                              << QStringList{"Header: \"X-B\"  value:  \"1\"",
                                             "Header: \"X-A\"  value:  \"2\"", noRanges};
    QTest::newRow("length") << QList<QNetworkReply::RawHeaderPair>{{"Content-Length", "12"}}
                            << QStringList{"Header: \"Content-Length\"  value:  \"12\"",
                                           "Length: \"12\"", noRanges};
    QTest::newRow("ranges") << QList<QNetworkReply::RawHeaderPair>{{"Accept-Ranges", "bytes"}}
                            << QStringList{"Header: \"Accept-Ranges\"  value:  \"bytes\""};
}

void tst_ReplyLog::headers()
{
    QFETCH(QList<QNetworkReply::RawHeaderPair>, pairs);
    QFETCH(QStringList, texts);
    FakeReply reply;
    for (const QNetworkReply::RawHeaderPair &pair : pairs)
        reply.setRawHeader(pair.first, pair.second);
    LogCapture log;
    replylog::logHeaders(client, function, {"Header:", "Length:"}, &reply);
    QCOMPARE(log.texts(QtDebugMsg), texts);
    QCOMPARE(log.texts(QtWarningMsg), QStringList());
    QCOMPARE(log.originFault(sourceFile), QString());
}

void tst_ReplyLog::engineText()
{
    const Engine engine = {MessageLog("unit"), "Engine", QtWarningMsg};
    QCOMPARE(engine.text("run", "It runs: "), QByteArray("<Engine::run> It runs: "));
}

const TestClass<tst_ReplyLog> testClass("tst_replylog");

} // namespace tst_replylog

#include "tst_replylog.moc"
