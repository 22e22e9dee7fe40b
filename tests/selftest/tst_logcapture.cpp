#include "logcapture.h"

#include <QtCore/QThread>
#include <QtTest/QTest>

namespace {

const char unitFile[] = "../../source/unit";

QStringList *outerTexts = nullptr;

void collectOutside(QtMsgType, const QMessageLogContext &, const QString &text)
{
    outerTexts->append(text);
}

} // namespace

Q_DECLARE_METATYPE(QtMsgType)

class tst_LogCapture : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void keepsEveryDetail();
    void levels_data();
    void levels();
    void tellsTypesApart();
    void comparesWholeTextsOrParts();
    void filtersBySourceFile();
    void originFault_data();
    void originFault();
    void clearForgets();
    void innermostGetsTheMessages();
    void givesBackThePreviousHandler();
    void hearsOtherThreads();
};

void tst_LogCapture::keepsEveryDetail()
{
    LogCapture log;
    QMessageLogger(unitFile, 12, "void Unit::run(int)", "special").warning("broken %d", 7);

    QCOMPARE(log.entries().size(), 1);
    const LogEntry entry = log.entries().first();
    QCOMPARE(entry.type, QtWarningMsg);
    QCOMPARE(entry.text, QString("broken 7"));
    QCOMPARE(entry.file, QByteArray(unitFile));
    QCOMPARE(entry.line, 12);
    QCOMPARE(entry.function, QByteArray("void Unit::run(int)"));
    QCOMPARE(entry.category, QByteArray("special"));
}

void tst_LogCapture::levels_data()
{
    QTest::addColumn<QtMsgType>("type");
    QTest::newRow("debug") << QtDebugMsg;
    QTest::newRow("info") << QtInfoMsg;
    QTest::newRow("warning") << QtWarningMsg;
    QTest::newRow("critical") << QtCriticalMsg;
}

void tst_LogCapture::levels()
{
    QFETCH(QtMsgType, type);

    LogCapture log;
    qt_message_output(type, QMessageLogContext(), "text");

    QCOMPARE(log.count(type, "text"), 1);
    QCOMPARE(log.texts(), QStringList("text"));
}

void tst_LogCapture::tellsTypesApart()
{
    LogCapture log;
    qDebug("one");
    qWarning("two");
    qDebug("three");
    qDebug("one");

    QCOMPARE(log.texts(), QStringList({"one", "two", "three", "one"}));
    QCOMPARE(log.texts(QtDebugMsg), QStringList({"one", "three", "one"}));
    QCOMPARE(log.texts(QtWarningMsg), QStringList("two"));
    QCOMPARE(log.count(QtDebugMsg, "one"), 2);
    QCOMPARE(log.count(QtWarningMsg, "one"), 0);
}

void tst_LogCapture::comparesWholeTextsOrParts()
{
    LogCapture log;
    qWarning("the whole text");

    QVERIFY(log.contains(QtWarningMsg, "the whole text"));
    QVERIFY(!log.contains(QtWarningMsg, "whole"));
    QVERIFY(!log.contains(QtDebugMsg, "the whole text"));
    QVERIFY(log.containsPart(QtWarningMsg, "whole"));
    QVERIFY(!log.containsPart(QtWarningMsg, "missing"));
    QVERIFY(!log.containsPart(QtDebugMsg, "whole"));
}

void tst_LogCapture::filtersBySourceFile()
{
    LogCapture log;
    QMessageLogger(unitFile, 1, "f()").debug("of the unit");
    QMessageLogger("../../source/unit.cpp", 1, "f()").debug("of a longer name");
    QMessageLogger().debug("of nobody");

    QCOMPARE(log.from(unitFile).size(), 1);
    QCOMPARE(log.from(unitFile).first().text, QString("of the unit"));
    QVERIFY(log.from("../../source").isEmpty());
}

void tst_LogCapture::originFault_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<int>("line");
    QTest::addColumn<QByteArray>("function");
    QTest::addColumn<QByteArray>("category");
    QTest::addColumn<QString>("fault");

    const QByteArray file(unitFile);
    QTest::newRow("right") << file << 1 << QByteArray("void f()") << QByteArray("default")
                           << QString();
    QTest::newRow("category") << file << 1 << QByteArray("void f()") << QByteArray("other")
                              << "category \"other\" of the message: text";
    QTest::newRow("line") << file << 0 << QByteArray("void f()") << QByteArray("default")
                          << "line 0 of the message: text";
    QTest::newRow("bare function") << file << 1 << QByteArray("f") << QByteArray("default")
                                   << "function \"f\" of the message: text";
    QTest::newRow("no function") << file << 1 << QByteArray() << QByteArray("default")
                                 << "function \"\" of the message: text";
    QTest::newRow("no message") << QByteArray("elsewhere") << 1 << QByteArray("void f()")
                                << QByteArray("default") << "no message from ../../source/unit";
}

void tst_LogCapture::originFault()
{
    QFETCH(QByteArray, file);
    QFETCH(int, line);
    QFETCH(QByteArray, function);
    QFETCH(QByteArray, category);
    QFETCH(QString, fault);

    LogCapture log;
    // A sound message before it must not hide the fault.
    if (file == unitFile)
        QMessageLogger(unitFile, 5, "void sound()").debug("sound");
    const QMessageLogContext context(file.constData(), line, function.constData(),
                                     category.constData());
    qt_message_output(QtWarningMsg, context, "text");

    QCOMPARE(log.originFault(unitFile), fault);
}

void tst_LogCapture::clearForgets()
{
    LogCapture log;
    qDebug("before");
    log.clear();
    qDebug("after");

    QCOMPARE(log.texts(), QStringList("after"));
}

void tst_LogCapture::innermostGetsTheMessages()
{
    LogCapture outer;
    qDebug("first");
    {
        LogCapture inner;
        qDebug("second");
        QCOMPARE(inner.texts(), QStringList("second"));
    }
    qDebug("third");

    QCOMPARE(outer.texts(), QStringList({"first", "third"}));
}

void tst_LogCapture::givesBackThePreviousHandler()
{
    QStringList outside;
    outerTexts = &outside;
    const QtMessageHandler original = qInstallMessageHandler(&collectOutside);
    qDebug("before");
    {
        LogCapture log;
        LogCapture nested;
        qDebug("captured");
    }
    qDebug("after");
    qInstallMessageHandler(original);

    QCOMPARE(outside, QStringList({"before", "after"}));
}

void tst_LogCapture::hearsOtherThreads()
{
    const int threadCount = 4;
    const int messagesEach = 500;

    LogCapture log;
    QVector<QThread *> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.append(QThread::create([messagesEach] {
            for (int message = 0; message < messagesEach; ++message)
                qDebug("hello");
        }));
        threads.last()->start();
    }
    for (QThread *thread : qAsConst(threads))
        QVERIFY(thread->wait());
    qDeleteAll(threads);

    QCOMPARE(log.count(QtDebugMsg, "hello"), threadCount * messagesEach);
}

QTEST_GUILESS_MAIN(tst_LogCapture)
#include "tst_logcapture.moc"
