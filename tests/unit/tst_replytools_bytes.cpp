#include "fakereply.h"
#include "logcapture.h"
#include "replytools_p.h"

#include <QtTest/QTest>

using replytools::Engine;

namespace {

const char sourceFile[] = "../../source/unit";
const char function[] = "void Unit::run()";

// The client warns of what the stand-alone processor only notes.
const Engine client = {MessageLog(sourceFile), "TarvisNet", QtWarningMsg};
const Engine processor = {MessageLog(sourceFile), "NetworkProcessor", QtDebugMsg};

QString textOf(const Engine &engine, const char *operation, const QString &text)
{
    return QString("<%1::%2> ").arg(engine.className, operation) + text;
}

} // namespace

class tst_ReplyToolsBytes : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void collectsBodies_data();
    void collectsBodies();
    void collectChecksTheStatusOfDownloads_data();
    void collectChecksTheStatusOfDownloads();
    void collectLeavesTheBytesOfFailures();
    void collectLeavesTheBytesOfStrangers();
    void failuresBeforeStrangers();
    void sslErrors();
    void uploadPercentage_data();
    void uploadPercentage();
    void headers_data();
    void headers();
};

void tst_ReplyToolsBytes::collectsBodies_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<int>("status");
    for (const char *kind : {"remoteDefinition", "remoteIndex", "remoteInstallerChangeLog",
                             "remoteInstallerCheckSum", "rawGet", "rawPost", "rawPatch",
                             "rawDelete", "rawGetFile", "rawPostFile", "redirectReply", ""})
        QTest::addRow("kind '%s'", kind) << kind << 200;
    for (const int status : {0, 199, 302, 404, 500})
        QTest::addRow("status %d", status) << "rawGet" << status;
}

void tst_ReplyToolsBytes::collectsBodies()
{
    QFETCH(QString, replyType);
    QFETCH(int, status);
    LogCapture log;
    ReplyData record;
    record.replyType = replyType;
    FakeReply reply;
    reply.setStatus(status);
    for (const char *chunk : {"one ", "two"}) {
        reply.appendBody(chunk);
        QVERIFY(!replytools::collect(client, function, &reply, &record));
    }
    QCOMPARE(record.data, QByteArray("one two"));
    QCOMPARE(reply.bytesAvailable(), qint64(0));
    QCOMPARE(log.texts(), QStringList());
}

void tst_ReplyToolsBytes::collectChecksTheStatusOfDownloads_data()
{
    QTest::addColumn<QString>("replyType");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("saved");
    QTest::addColumn<QString>("text");
    const auto add = [](int status, bool saved, const char *text) {
        for (const char *kind : {"remoteBinary", "remoteInstaller"})
            QTest::addRow("%s %d", kind, status) << kind << status << saved << text;
    };
    add(0, false, "");
    add(199, false, "");
    add(200, true, "");
    add(206, true, "");
    add(299, true, "");
    add(300, false, "Redircet attribuie:  300");
    add(399, false, "Redircet attribuie:  399");
    add(400, false, "Client or network error:  400");
    add(499, false, "Client or network error:  499");
    add(500, false, "Server error:  500");
    add(999, false, "Server error:  999");
}

void tst_ReplyToolsBytes::collectChecksTheStatusOfDownloads()
{
    QFETCH(QString, replyType);
    QFETCH(int, status);
    QFETCH(bool, saved);
    QFETCH(QString, text);
    ReplyData record;
    record.replyType = replyType;
    FakeReply reply;
    reply.setStatus(status);
    reply.appendBody("bytes");

    for (const Engine &engine : {client, processor}) {
        LogCapture log;
        QCOMPARE(replytools::collect(engine, function, &reply, &record), saved);
        QCOMPARE(record.data, QByteArray());
        QCOMPARE(reply.bytesAvailable(), qint64(5));
        const QString line = textOf(engine, "replyReadyRead", text);
        QCOMPARE(log.texts(QtDebugMsg), text.isEmpty() ? QStringList() : QStringList(line));
        QCOMPARE(log.texts(QtWarningMsg), QStringList());
    }
}

void tst_ReplyToolsBytes::collectLeavesTheBytesOfFailures()
{
    for (const Engine &engine : {client, processor}) {
        LogCapture log;
        for (const char *kind : {"rawGet", "remoteBinary"}) {
            ReplyData record;
            record.replyType = kind;
            FakeReply reply;
            reply.setStatus(200);
            reply.setError(QNetworkReply::ContentNotFoundError, "not there");
            reply.appendBody("bytes");
            QVERIFY(!replytools::collect(engine, function, &reply, &record));
            QCOMPARE(record.data, QByteArray());
            QCOMPARE(reply.bytesAvailable(), qint64(5));
        }
        const QString text = textOf(engine, "replyReadyRead", "some error:  \"not there\"");
        QCOMPARE(log.texts(engine.failureLevel), QStringList({text, text}));
        QCOMPARE(log.entries().size(), 2);
        QCOMPARE(log.entries().first().function, QByteArray(function));
        QCOMPARE(log.originFault(sourceFile), QString());
    }
}

// Both engines warn of a reply that nobody knows.
void tst_ReplyToolsBytes::collectLeavesTheBytesOfStrangers()
{
    for (const Engine &engine : {client, processor}) {
        LogCapture log;
        FakeReply reply;
        reply.setStatus(200);
        reply.appendBody("bytes");
        QVERIFY(!replytools::collect(engine, function, &reply, nullptr));
        QCOMPARE(reply.bytesAvailable(), qint64(5));
        QCOMPARE(log.texts(QtWarningMsg),
                 QStringList(textOf(engine, "replyReadyRead", "Unrecognized reply")));
        QCOMPARE(log.entries().size(), 1);
        QCOMPARE(log.originFault(sourceFile), QString());
    }
}

void tst_ReplyToolsBytes::failuresBeforeStrangers()
{
    LogCapture log;
    FakeReply reply;
    reply.setError(QNetworkReply::TimeoutError, "late");
    QVERIFY(!replytools::collect(client, function, &reply, nullptr));
    QCOMPARE(log.texts(), QStringList("<TarvisNet::replyReadyRead> some error:  \"late\""));
}

void tst_ReplyToolsBytes::sslErrors()
{
    const QSslError first(QSslError::SelfSignedCertificate);
    const QSslError second(QSslError::HostNameMismatch);
    for (const Engine &engine : {client, processor}) {
        LogCapture log;
        QVERIFY(!replytools::logSslErrors(engine, function, {}));
        QCOMPARE(log.entries().size(), 1);
        QCOMPARE(log.texts(engine.failureLevel),
                 QStringList(textOf(engine, "replySslErrors", "Uknown error.")));

        log.clear();
        QVERIFY(replytools::logSslErrors(engine, function, {first, second}));
        const QString line = textOf(engine, "replySslErrors", "\n  text:  \"%1\"");
        QCOMPARE(log.texts(QtDebugMsg),
                 QStringList({line.arg(first.errorString()), line.arg(second.errorString())}));
        QCOMPARE(log.entries().size(), 2);
        QCOMPARE(log.originFault(sourceFile), QString());
    }
}

void tst_ReplyToolsBytes::uploadPercentage_data()
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

void tst_ReplyToolsBytes::uploadPercentage()
{
    QFETCH(qint64, sent);
    QFETCH(qint64, total);
    QFETCH(double, percent);
    QFETCH(QString, text);
    LogCapture log;
    const replytools::UploadTexts texts = {"all there", "nothing yet"};
    const std::optional<double> told =
        replytools::uploadPercentage(client, function, texts, sent, total);
    QVERIFY(told.value_or(-1) == percent);
    QCOMPARE(log.texts(QtDebugMsg), QStringList(text));
    QCOMPARE(log.entries().size(), 1);
    QCOMPARE(log.originFault(sourceFile), QString());
}

void tst_ReplyToolsBytes::headers_data()
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

void tst_ReplyToolsBytes::headers()
{
    QFETCH(QList<QNetworkReply::RawHeaderPair>, pairs);
    QFETCH(QStringList, texts);
    FakeReply reply;
    for (const QNetworkReply::RawHeaderPair &pair : pairs)
        reply.setRawHeader(pair.first, pair.second);
    LogCapture log;
    replytools::logHeaders(client, function, {"Header:", "Length:"}, &reply);
    QCOMPARE(log.texts(QtDebugMsg), texts);
    QCOMPARE(log.texts(QtWarningMsg), QStringList());
    QCOMPARE(log.originFault(sourceFile), QString());
}

QTEST_GUILESS_MAIN(tst_ReplyToolsBytes)

#include "tst_replytools_bytes.moc"
