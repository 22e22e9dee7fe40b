#include "logcapture.h"
#include "testclass.h"

#include <QtTest/QTest>

#include <thread>
#include <vector>

namespace tst_logcapture {

namespace {

const char unitFile[] = "../../source/unit";

QStringList *outerTexts = nullptr;

void collectOutside(QtMsgType, const QMessageLogContext &, const QString &text)
{
    outerTexts->append(text);
}

} // namespace

class tst_LogCapture : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void keepsEveryDetail();
    void tellsTypesAndTextsApart();
    void filtersBySourceFile();
    void originFault_data();
    void originFault();
    void innermostGetsTheMessages();
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

void tst_LogCapture::tellsTypesAndTextsApart()
{
    LogCapture log;
    qDebug("one");
    qWarning("the whole text");
    qDebug("three");
    qDebug("one");

    QCOMPARE(log.texts(), QStringList({"one", "the whole text", "three", "one"}));
    QCOMPARE(log.texts(QtDebugMsg), QStringList({"one", "three", "one"}));
    QCOMPARE(log.count(QtDebugMsg, "one"), 2);
    QCOMPARE(log.count(QtWarningMsg, "one"), 0);
    QVERIFY(log.contains(QtWarningMsg, "the whole text"));
    QVERIFY(!log.contains(QtWarningMsg, "whole"));
    QVERIFY(!log.contains(QtDebugMsg, "the whole text"));
    QVERIFY(log.containsPart(QtWarningMsg, "whole"));
    QVERIFY(!log.containsPart(QtWarningMsg, "missing"));
    QVERIFY(!log.containsPart(QtDebugMsg, "whole"));

    log.clear();
    qDebug("after");
    QCOMPARE(log.texts(), QStringList("after"));
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
    const auto add = [](const char *name, const char *file, int line, const char *function,
                        const char *category, const QString &fault) {
        QTest::newRow(name) << QByteArray(file) << line << QByteArray(function)
                            << QByteArray(category) << fault;
    };

    const char *right = "void f()";
    add("right", unitFile, 1, right, "default", QString());
    add("category", unitFile, 1, right, "other", "category \"other\" of the message: text");
    add("line", unitFile, 0, right, "default", "line 0 of the message: text");
    add("bare function", unitFile, 1, "f", "default", "function \"f\" of the message: text");
    add("no function", unitFile, 1, "", "default", "function \"\" of the message: text");
    add("no message", "elsewhere", 1, right, "default", "no message from ../../source/unit");
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

// The last one gives back the handler that was there before.
void tst_LogCapture::innermostGetsTheMessages()
{
    QStringList outside;
    outerTexts = &outside;
    const QtMessageHandler original = qInstallMessageHandler(&collectOutside);
    qDebug("before");
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
    qDebug("after");
    qInstallMessageHandler(original);

    QCOMPARE(outside, QStringList({"before", "after"}));
}

void tst_LogCapture::hearsOtherThreads()
{
    const int messagesEach = 500;

    LogCapture log;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([messagesEach] {
            for (int message = 0; message < messagesEach; ++message)
                qDebug("hello");
        });
    }
    for (std::thread &thread : threads)
        thread.join();

    QCOMPARE(log.count(QtDebugMsg, "hello"), 4 * messagesEach);
}

const TestClass<tst_LogCapture> testClass("tst_logcapture");

} // namespace tst_logcapture

#include "tst_logcapture.moc"
