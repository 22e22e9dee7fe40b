#include "answers.h"
#include "fetchbench.h"
#include "files.h"
#include "testclass.h"

#include <QtCore/QJsonDocument>
#include <QtTest/QTest>

#include <algorithm>

namespace tst_fetch_output {

namespace {

const QJsonObject document{{"a", 1}};

} // namespace

/// What goes to standard output, and what to standard error.
class tst_FetchOutput : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void takesTheResult_data();
    void takesTheResult();
    void mayBeFull_data();
    void mayBeFull();
    void keepsNothingWhenInterrupted();
    void progressIsALineForATenth_data();
    void progressIsALineForATenth();
};

void tst_FetchOutput::takesTheResult_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("expected");
    const QByteArray json = QJsonDocument(document).toJson();
    const QByteArray bytes = HttpResponse::generated(0, 3'000'000);
    const QString size = QString::number(bytes.size());
    const QStringList processor{"--engine", "processor"};
    for (const QString command : {"definition", "index", "get", "post", "patch"})
        QTest::addRow("%s", qPrintable(command))
            << QStringList{command, "/json"} << QStringList() << json;
    for (const QString command : {"changelog", "get-file", "post-file"})
        QTest::addRow("%s", qPrintable(command))
            << QStringList{command, "/bytes"} << QStringList() << bytes;
    const QStringList binary{"binary", "/bytes"};
    QTest::newRow("binary") << binary << QStringList{"--size", size} << bytes;
    QTest::newRow("binary, directories")
        << binary << QStringList{"--size", size, "--temp-dir", "temporary", "--output-dir", "o"}
        << bytes;
    QTest::newRow("binary, strict") << binary << QStringList{"--size", size, "--strict"} << bytes;
    QTest::newRow("binary, processor")
        << binary << QStringList{"--size", size} + processor << bytes;
    QTest::newRow("get-file, processor") << QStringList{"get-file", "/bytes"} << processor << bytes;
    QTest::newRow("get, processor") << QStringList{"get", "/json"} << processor << json;
}

void tst_FetchOutput::takesTheResult()
{
    QFETCH(const QStringList, command);
    QFETCH(const QStringList, options);
    QFETCH(const QByteArray, expected);

    ScriptedServer server;
    server.on("/json", answers::json(document));
    server.on("/bytes", answers::bytes(HttpResponse::generated(0, 3'000'000)));
    FetchBench bench;
    const QString url = server.url(command.last()).toString();
    bench.run(QStringList{command.first(), url, "-o", "-"} + options);
    QVERIFY2(bench.exitCode() == 0, bench.messages().constData());
    QVERIFY(bench.output() == expected);
    QCOMPARE(bench.leftovers(), QStringList());
    QVERIFY(!QFile::exists(bench.path("-")));
}

void tst_FetchOutput::mayBeFull_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("a document") << QStringList{"get"};
    QTest::newRow("bytes") << QStringList{"get-file"};
    QTest::newRow("a download") << QStringList{"binary", "-o", "-", "--size", "7"};
}

void tst_FetchOutput::mayBeFull()
{
    QFETCH(const QStringList, arguments);

    ScriptedServer server;
    server.onRequest(answers::json(document));
    FetchBench bench;
    bench.setOutputFile("/dev/full");
    bench.run(arguments + QStringList{server.url("/a").toString()});
    QVERIFY(bench.messages().contains("standard output does not take the answer"));
    QCOMPARE(bench.exitCode(), 8);
    QCOMPARE(bench.leftovers(), QStringList());
}

void tst_FetchOutput::keepsNothingWhenInterrupted()
{
    ScriptedServer server;
    server.on("/a", [](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, 1000);
        response.write(QByteArray(500, 'x'));
    });
    FetchBench bench;
    bench.start({"binary", server.url("/a").toString(), "-o", "-", "--size", "1000"});
    QVERIFY(server.waitForRequests(1));
    bench.interrupt();
    bench.finish();
    QCOMPARE(bench.exitCode(), 130);
    QCOMPARE(bench.output(), QByteArray());
    QCOMPARE(bench.leftovers(), QStringList());
    QVERIFY(!bench.messages().contains("kept"));
}

void tst_FetchOutput::progressIsALineForATenth_data()
{
    QTest::addColumn<qint64>("length");
    QTest::addColumn<int>("mostLines");
    QTest::newRow("of so much") << qint64(4'000'000) << 10;
    QTest::newRow("of nobody knows what") << qint64(HttpResponse::Chunked) << 1;
}

void tst_FetchOutput::progressIsALineForATenth()
{
    QFETCH(const qint64, length);
    QFETCH(const int, mostLines);

    const QByteArray body = HttpResponse::generated(0, 4'000'000);
    ScriptedServer server;
    server.on("/a", [&](const HttpRequest &, HttpResponse &response) {
        response.sendHead(200, {}, length);
        response.dribble(body, 20'000, 2);
        response.finish();
    });
    FetchBench bench;
    bench.run({"get-file", server.url("/a").toString()});
    QCOMPARE(bench.exitCode(), 0);
    QVERIFY(bench.output() == body);

    QList<int> tenths;
    for (const QByteArray &line : bench.messageLines()) {
        if (line.contains("% "))
            tenths += int(line.trimmed().split('%').first().toDouble() / 10);
    }
    QVERIFY(!tenths.isEmpty());
    QVERIFY(tenths.size() <= mostLines);
    QVERIFY(!tenths.contains(0));
    QVERIFY(std::is_sorted(tenths.cbegin(), tenths.cend()));
    QCOMPARE(std::adjacent_find(tenths.cbegin(), tenths.cend()), tenths.cend());
}

const TestClass<tst_FetchOutput> testClass("tst_fetch_output");

} // namespace tst_fetch_output

#include "tst_fetch_output.moc"
