#include "logcapture.h"
#include "messagelog_p.h"
#include "testclass.h"

#include <QtTest/QTest>

Q_DECLARE_METATYPE(QtMsgType)

namespace tst_messagelog {

namespace {

// Like those of the library, so that a log costs nothing at start-up.
constexpr MessageLog unitLog("../../source/unit");
constexpr MessageLog otherLog("../../source/other");

using Level = QDebug (MessageLog::*)(const char *, int) const;

// Stands for a helper that several operations share: it logs on behalf of its caller.
void sharedHelper(const char *function)
{
    unitLog.debug(function) << "shared";
}

} // namespace

} // namespace tst_messagelog

Q_DECLARE_METATYPE(tst_messagelog::Level)

namespace tst_messagelog {

class tst_MessageLog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void levels_data();
    void levels();
    void composition_data();
    void composition();
    void carriesTheCallersLine();
    void carriesTheCallersSignature();
    void isHeardAtTheEndOfTheStatement();
};

void tst_MessageLog::levels_data()
{
    QTest::addColumn<Level>("level");
    QTest::addColumn<QtMsgType>("type");
    QTest::newRow("debug") << Level(&MessageLog::debug) << QtDebugMsg;
    QTest::newRow("warning") << Level(&MessageLog::warning) << QtWarningMsg;
}

void tst_MessageLog::levels()
{
    QFETCH(Level, level);
    QFETCH(QtMsgType, type);

    LogCapture log;
    (unitLog.*level)("void Unit::run()", 42) << "text";

    QCOMPARE(log.entries().size(), 1);
    const LogEntry entry = log.entries().first();
    QCOMPARE(entry.type, type);
    QCOMPARE(entry.text, QString("text"));
    QCOMPARE(entry.file, QByteArray("../../source/unit"));
    QCOMPARE(entry.function, QByteArray("void Unit::run()"));
    QCOMPARE(entry.line, 42);
    QCOMPARE(entry.category, QByteArray("default"));
    QCOMPARE(log.originFault("../../source/unit"), QString());
}

void tst_MessageLog::composition_data()
{
    QTest::addColumn<QVariantList>("items");
    QTest::addColumn<QString>("text");
    QTest::newRow("numbers") << QVariantList{1, -7} << "<Unit> 1 -7";
    QTest::newRow("text is quoted") << QVariantList{"a \"b\""} << "<Unit> \"a \\\"b\\\"\"";
    QTest::newRow("bytes are quoted") << QVariantList{QByteArray("ab")} << "<Unit> \"ab\"";
    QTest::newRow("nothing more") << QVariantList() << "<Unit>";
}

void tst_MessageLog::composition()
{
    QFETCH(QVariantList, items);
    QFETCH(QString, text);

    LogCapture log;
    {
        QDebug stream = unitLog.debug(Q_FUNC_INFO) << "<Unit>";
        for (const QVariant &item : items) {
            switch (item.type()) {
            case QVariant::Int:
                stream << item.toInt();
                break;
            case QVariant::ByteArray:
                stream << item.toByteArray();
                break;
            default:
                stream << item.toString();
            }
        }
    }
    QCOMPARE(log.texts(), QStringList(text));
}

void tst_MessageLog::carriesTheCallersLine()
{
    LogCapture log;
    unitLog.debug(Q_FUNC_INFO) << "one";
    unitLog.warning(Q_FUNC_INFO) << "two";
    const int thisLine = __LINE__;

    QCOMPARE(log.entries().at(0).line, thisLine - 2);
    QCOMPARE(log.entries().at(1).line, thisLine - 1);
}

void tst_MessageLog::carriesTheCallersSignature()
{
    LogCapture log;
    unitLog.debug(Q_FUNC_INFO) << "own";
    sharedHelper(Q_FUNC_INFO);

    for (const LogEntry &entry : log.entries())
        QCOMPARE(entry.function,
                 QByteArray("void tst_messagelog::tst_MessageLog::carriesTheCallersSignature()"));
    QCOMPARE(log.texts(), QStringList({"own", "shared"}));
}

// The order of log lines and signals is part of what applications see.
void tst_MessageLog::isHeardAtTheEndOfTheStatement()
{
    LogCapture log;
    unitLog.debug(Q_FUNC_INFO) << "one";
    QCOMPARE(log.texts(), QStringList("one"));
    otherLog.warning(Q_FUNC_INFO) << "two";
    QCOMPARE(log.texts(), QStringList({"one", "two"}));
    QCOMPARE(log.entries().last().file, QByteArray("../../source/other"));
}

const TestClass<tst_MessageLog> testClass("tst_messagelog");

} // namespace tst_messagelog

#include "tst_messagelog.moc"
