#include "engines.h"
#include "fakereply.h"
#include "logcapture.h"
#include "testclass.h"
#include "traditionalrules_p.h"
#include "transfer_p.h"

#include <QtTest/QTest>

namespace tst_transfer {

using namespace engines;

namespace {

bool collect(const Engine &engine, QNetworkReply *reply, Transfer *transfer)
{
    return collectArrived(engine, function, TraditionalRules(), reply, transfer);
}

} // namespace

class tst_Transfer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void collectsBodies_data();
    void collectsBodies();
    void collectChecksTheStatusOfDownloads_data();
    void collectChecksTheStatusOfDownloads();
    void collectLeavesTheBytesOfFailures();
    void collectLeavesTheBytesOfStrangers();
    void failuresBeforeStrangers();
};

void tst_Transfer::collectsBodies_data()
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

void tst_Transfer::collectsBodies()
{
    QFETCH(QString, replyType);
    QFETCH(int, status);
    LogCapture log;
    Transfer transfer;
    transfer.record.replyType = replyType;
    FakeReply reply;
    reply.setStatus(status);
    for (const char *chunk : {"one ", "two"}) {
        reply.appendBody(chunk);
        QVERIFY(!collect(client, &reply, &transfer));
    }
    QCOMPARE(transfer.answer, QByteArray("one two"));
    QCOMPARE(reply.bytesAvailable(), qint64(0));
    QCOMPARE(log.texts(), QStringList());
}

void tst_Transfer::collectChecksTheStatusOfDownloads_data()
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

void tst_Transfer::collectChecksTheStatusOfDownloads()
{
    QFETCH(QString, replyType);
    QFETCH(int, status);
    QFETCH(bool, saved);
    QFETCH(QString, text);
    Transfer transfer;
    transfer.record.replyType = replyType;
    FakeReply reply;
    reply.setStatus(status);
    reply.appendBody("bytes");

    for (const Engine &engine : {client, processor}) {
        LogCapture log;
        QCOMPARE(collect(engine, &reply, &transfer), saved);
        QCOMPARE(transfer.answer, QByteArray());
        QCOMPARE(reply.bytesAvailable(), qint64(5));
        const QString line = textOf(engine, "replyReadyRead", text);
        QCOMPARE(log.texts(QtDebugMsg), text.isEmpty() ? QStringList() : QStringList(line));
        QCOMPARE(log.texts(QtWarningMsg), QStringList());
    }
}

void tst_Transfer::collectLeavesTheBytesOfFailures()
{
    for (const Engine &engine : {client, processor}) {
        LogCapture log;
        for (const char *kind : {"rawGet", "remoteBinary"}) {
            Transfer transfer;
            transfer.record.replyType = kind;
            FakeReply reply;
            reply.setStatus(200);
            reply.setError(QNetworkReply::ContentNotFoundError, "not there");
            reply.appendBody("bytes");
            QVERIFY(!collect(engine, &reply, &transfer));
            QCOMPARE(transfer.answer, QByteArray());
            QCOMPARE(reply.bytesAvailable(), qint64(5));
        }
        const QString text = textOf(engine, "replyReadyRead", "some error:  \"not there\"");
        QCOMPARE(log.texts(engine.failureLevel), QStringList({text, text}));
        QCOMPARE(log.entries().size(), 2);
        QCOMPARE(log.entries().first().function, QByteArray(function));
        QCOMPARE(log.originFault(sourceFile), QString());
    }
}

void tst_Transfer::collectLeavesTheBytesOfStrangers()
{
    for (const Engine &engine : {client, processor}) {
        LogCapture log;
        FakeReply reply;
        reply.setStatus(200);
        reply.appendBody("bytes");
        QVERIFY(!collect(engine, &reply, nullptr));
        QCOMPARE(reply.bytesAvailable(), qint64(5));
        QCOMPARE(log.texts(QtWarningMsg),
                 QStringList(textOf(engine, "replyReadyRead", "Unrecognized reply")));
        QCOMPARE(log.entries().size(), 1);
        QCOMPARE(log.originFault(sourceFile), QString());
    }
}

void tst_Transfer::failuresBeforeStrangers()
{
    LogCapture log;
    FakeReply reply;
    reply.setError(QNetworkReply::TimeoutError, "late");
    QVERIFY(!collect(client, &reply, nullptr));
    QCOMPARE(log.texts(), QStringList("<TarvisNet::replyReadyRead> some error:  \"late\""));
}

const TestClass<tst_Transfer> testClass("tst_transfer");

} // namespace tst_transfer

#include "tst_transfer.moc"
