#include "clientbench.h"
#include "files.h"
#include "operations.h"
#include "testclass.h"

#include <QtTest/QTest>

namespace tst_tarvisnet_raw_files {

using namespace clientaccess;

/// Every file request writes to the path that was given last, whoever gave it.
class tst_TarvisNetRawFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void savesOverTheStart_data();
    void savesOverTheStart();
    void deliversWhatCannotBeSaved();
    void keepsPathForNextRequest_data() { addForms(); }
    void keepsPathForNextRequest();
    void savesRequestsInFlightAtLastPath_data() { addForms(); }
    void savesRequestsInFlightAtLastPath();

private:
    static void addForms();
};

void tst_TarvisNetRawFiles::addForms()
{
    operations::addRows(
        [](const Operation &operation) { return QByteArray(operation.kind).endsWith("File"); });
}

void tst_TarvisNetRawFiles::savesOverTheStart_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("after");
    for (const char *name : {"rawGetFile(QUrl)", "rawPostFile(QUrl)"}) {
        const auto row = [name](const char *title, const QByteArray &before, const QByteArray &body,
                                const QByteArray &after) {
            QTest::addRow("%s, %s", name, title) << operations::of(name) << before << body << after;
        };
        row("no file before", QByteArray(), "body", "body");
        row("a shorter file before", "xy", "body", "body");
        row("a longer file before keeps its tail", "0123456789", "body", "body456789");
        row("an empty body makes no file", QByteArray(), "", QByteArray());
        row("an empty body touches no file", "0123", "", "0123");
    }
}

void tst_TarvisNetRawFiles::savesOverTheStart()
{
    QFETCH(const Operation, operation);
    QFETCH(const QByteArray, before);
    QFETCH(const QByteArray, body);
    QFETCH(const QByteArray, after);
    ClientBench bench;
    const FileData file = bench.file("saved", 0);
    if (!before.isNull())
        files::write(file.filePath, before);
    bench.server.on("/answer", answers::bytes(body));
    operation.call(*bench.client, bench.url("/answer"), file);
    const char *const result = requestkinds::of(operation.kind).signal;
    QVERIFY(bench.recorder.waitFor(result));

    QCOMPARE(bench.recorder.last(result).mid(0, 2), QVariantList({body, bench.url("/answer")}));
    QCOMPARE(files::read(file.filePath).isNull(), after.isNull());
    QCOMPARE(files::read(file.filePath), after);
    QCOMPARE(bench.messagesOfAnswer(), QStringList());
}

void tst_TarvisNetRawFiles::deliversWhatCannotBeSaved()
{
    ClientBench bench;
    bench.server.on("/answer", answers::bytes("body"));
    // A directory cannot be opened for writing, not even by root.
    bench.client->rawGetFile(bench.server.url("/answer"), bench.path());
    QVERIFY(bench.recorder.waitFor("s_rawGetFileFinished"));

    QCOMPARE(bench.recorder.last("s_rawGetFileFinished").at(0).toByteArray(), QByteArray("body"));
    QCOMPARE(bench.errors(), QList<int>());
    QCOMPARE(bench.messages(),
             QStringList(line({"warning: Error opening file to save", quoted(bench.path())})));
}

void tst_TarvisNetRawFiles::keepsPathForNextRequest()
{
    QFETCH(const Operation, operation);
    ClientBench bench;
    bench.server.on("/first", answers::bytes("first"));
    bench.server.on("/second", answers::bytes("second"));
    bench.server.on("/third", answers::bytes("the third"));
    const auto isSaved = [&bench](const RequestKind &kind, const QByteArray &body) {
        bench.recorder.clear();
        return bench.recorder.waitFor(kind.signal) && files::read(bench.path("A")) == body;
    };
    const RequestKind kind = requestkinds::of(operation.kind);
    operation.call(*bench.client, bench.url("/first"), bench.file("A", 0));
    QVERIFY(isSaved(kind, "first"));
    bench.client->rawGetFile(bench.server.url("/second"));
    QVERIFY(isSaved(requestkinds::of("rawGetFile"), "second"));
    operation.call(*bench.client, bench.url("/third"), FileData());
    QVERIFY(isSaved(kind, "the third"));
}

void tst_TarvisNetRawFiles::savesRequestsInFlightAtLastPath()
{
    QFETCH(const Operation, operation);
    QList<HttpResponse> held;
    ClientBench bench;
    bench.server.onRequest(
        [&held](const HttpRequest &, HttpResponse &response) { held.append(response); });
    operation.call(*bench.client, bench.url("/held/1"), bench.file("A", 0));
    QVERIFY(bench.server.waitForRequests(1));
    operation.call(*bench.client, bench.url("/held/2"), bench.file("B", 0));
    QVERIFY(bench.server.waitForRequests(2));

    const char *const result = requestkinds::of(operation.kind).signal;
    const QByteArrayList bodies = {"first body", "the second body"};
    for (int number = 0; number < 2; ++number) {
        held[number].send(200, {}, bodies.at(number));
        QVERIFY(bench.recorder.waitFor(result, number + 1));
        QCOMPARE(files::read(bench.path("B")), bodies.at(number));
    }
    QVERIFY(files::read(bench.path("A")).isNull());
}

const TestClass<tst_TarvisNetRawFiles> testClass("tst_tarvisnet_raw_files");

} // namespace tst_tarvisnet_raw_files

#include "tst_tarvisnet_raw_files.moc"
