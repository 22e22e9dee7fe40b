#include "answers.h"
#include "downloadmodel.h"
#include "files.h"
#include "updaterbench.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>
#include <QtWidgets/QLabel>

Q_DECLARE_METATYPE(ScriptedServer::Handler)

/// Checking and downloading, the way a user does it, against a server that can be stopped.
class tst_updater : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void checkShowsDocuments();
    void checkFails_data();
    void checkFails();
    void checkGivesUpAnEarlierOne();
    void downloads();
    void abortsAndResumes();
    void abortsOnlyOne();
    void findsPartsOfAnEarlierRun();
    void downloadFails_data();
    void downloadFails();
    void replacesWhatIsInTheWay();
    void reportsBadEntries();
    void newIndexDropsDownloads();
    void failureMayStopAnother();
    void serverGone();

private:
    bool startHalf(UpdaterBench &bench) const;
};

bool tst_updater::startHalf(UpdaterBench &bench) const
{
    bench.click(bench.button(bench.dataset));
    return QTest::qWaitFor([&] { return bench.progress(bench.dataset) >= 45; });
}

void tst_updater::checkShowsDocuments()
{
    UpdaterBench bench;
    QCOMPARE(bench.lightWords(), QString("Not asked yet"));
    QVERIFY(bench.check());
    QTRY_COMPARE(bench.value({"Definition", "channel"}), QString("stable"));
    QCOMPARE(bench.value({"Definition", "installer", "size"}), QString("2097152"));
    QCOMPARE(bench.value({"Definition", "mandatory"}), QString("false"));
    QCOMPARE(bench.value({"Index", "files"}), QString("3 entries"));
    QCOMPARE(bench.value({"Index", "files", "1", "name"}), bench.manual.name);
    QCOMPARE(bench.downloads()->model()->rowCount(), 3);
    QCOMPARE(bench.cell(bench.manual, DownloadModel::Size), QString("300.0 KiB"));
    QCOMPARE(bench.state(bench.manual), QString("Not downloaded"));
    QCOMPARE(bench.button(bench.manual)->text(), QString("Download"));
    const QStringList titles = {"File", "Size", "Progress", "State", "Speed", "Action"};
    for (int column = 0; column < titles.size(); ++column) {
        const QAbstractItemModel *model = bench.downloads()->model();
        QCOMPARE(model->headerData(column, Qt::Horizontal).toString(), titles.at(column));
    }
    QTRY_COMPARE(bench.lightWords(), QString("Server answers"));
    QVERIFY(bench.widget<QLabel>("lightTime")->text().startsWith("Last answer "));
    QCOMPARE(bench.errors()->topLevelItemCount(), 0);
    QTRY_VERIFY(bench.widget<QPlainTextEdit>("log")->toPlainText().contains("debug: PING:"));
}

void tst_updater::checkFails_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<ScriptedServer::Handler>("handler");
    QTest::addColumn<QString>("words");

    const QByteArray definition = "/definition.json";
    const QByteArray index = "/index.json";
    QTest::newRow("definition missing")
        << definition << answers::status(404) << "The server does not have it (HTTP 404)";
    QTest::newRow("index refused")
        << index << answers::status(500) << "The server refused, or the connection failed";
    QTest::newRow("change log needs a password")
        << QByteArray("/changes.txt") << answers::status(401)
        << "The server asks for credentials (HTTP 401)";
    QTest::newRow("definition is no JSON")
        << definition << answers::bytes("<html>") << "The definition is not JSON";
    QTest::newRow("index is no JSON")
        << index << answers::bytes("<html>") << "The index is not JSON";
}

void tst_updater::checkFails()
{
    QFETCH(QByteArray, path);
    QFETCH(ScriptedServer::Handler, handler);
    QFETCH(QString, words);

    UpdaterBench bench;
    bench.server.on(path, handler);
    bench.click(bench.widget<QPushButton>("check"));
    QTRY_VERIFY(bench.hasError(words, path));
    // Whichever request the failing one took with it, the others arrive.
    const auto arrived = [&bench, &path] {
        return (path == "/index.json" || bench.downloads()->model()->rowCount() == 3)
            && (path == "/definition.json"
                || bench.value({"Definition", "channel"}) == QLatin1String("stable"))
            && (path == "/changes.txt"
                || !bench.widget<QPlainTextEdit>("changeLog")->toPlainText().isEmpty());
    };
    QTRY_VERIFY(arrived());
    QCOMPARE(bench.errors()->topLevelItemCount(), 1);
}

void tst_updater::checkGivesUpAnEarlierOne()
{
    UpdaterBench bench;
    bench.server.on("/definition.json", answers::withhold());
    bench.click(bench.widget<QPushButton>("check"));
    QTRY_COMPARE(bench.downloads()->model()->rowCount(), 3);
    QCOMPARE(bench.statusText(), QString("Checking..."));
    bench.server.on("/definition.json", answers::json({{"channel", "beta"}}));
    QVERIFY(bench.check());
    QTRY_COMPARE(bench.value({"Definition", "channel"}), QString("beta"));
    QCOMPARE(bench.errors()->topLevelItemCount(), 0);
}

void tst_updater::downloads()
{
    UpdaterBench bench;
    QVERIFY(bench.check());
    bench.click(bench.button(bench.manual));
    bench.click(bench.button(bench.translations));
    for (const OfferedFile &file : {bench.manual, bench.translations}) {
        QTRY_COMPARE(bench.state(file), QString("Complete"));
        QCOMPARE(bench.progress(file), 100);
        QCOMPARE(bench.button(file)->text(), QString("Download again"));
        QCOMPARE(files::read(bench.savePath(file)), file.content());
        QVERIFY(!QFileInfo::exists(bench.partialPath(file)));
    }

    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.server.requests(bench.manual.path()).size(), 2);
    QTRY_COMPARE(bench.state(bench.manual), QString("Complete"));
    QCOMPARE(files::read(bench.savePath(bench.manual)), bench.manual.content());
    QCOMPARE(bench.errors()->topLevelItemCount(), 0);
}

void tst_updater::abortsAndResumes()
{
    UpdaterBench bench;
    QVERIFY(bench.check());
    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.state(bench.manual), QString("Complete"));
    QVERIFY(startHalf(bench));
    QCOMPARE(bench.state(bench.dataset), QString("Downloading"));
    QVERIFY(bench.cell(bench.dataset, DownloadModel::Speed).endsWith("iB/s"));
    QCOMPARE(bench.button(bench.dataset)->text(), QString("Abort"));
    QTRY_COMPARE(bench.lightWords(), QString("Server answers"));
    bench.takePicture("updater.png");

    bench.click(bench.button(bench.dataset));
    QCOMPARE(bench.state(bench.dataset), QString("Stopped"));
    QCOMPARE(bench.cell(bench.dataset, DownloadModel::Speed), QString());
    QCOMPARE(bench.button(bench.dataset)->text(), QString("Resume"));
    const qint64 kept = QFileInfo(bench.partialPath(bench.dataset)).size();
    QVERIFY(kept >= bench.dataset.size * 45 / 100);
    QVERIFY(kept <= bench.dataset.size / 2);

    bench.click(bench.button(bench.dataset));
    QTRY_COMPARE(bench.state(bench.dataset), QString("Complete"));
    const QList<HttpRequest> requests = bench.server.requests(bench.dataset.path());
    QCOMPARE(requests.size(), 2);
    QCOMPARE(requests.at(1).header("range"), "bytes=" + QByteArray::number(kept) + '-');
    QCOMPARE(files::read(bench.savePath(bench.dataset)), bench.dataset.content());
    QCOMPARE(bench.errors()->topLevelItemCount(), 0);
}

void tst_updater::abortsOnlyOne()
{
    UpdaterBench bench;
    bench.server.on(bench.manual.path(), answers::withhold());
    QVERIFY(bench.check());
    bench.click(bench.button(bench.manual));
    QVERIFY(startHalf(bench));
    QCOMPARE(bench.state(bench.manual), QString("Waiting"));
    bench.click(bench.button(bench.manual));
    QCOMPARE(bench.state(bench.manual), QString("Not downloaded"));
    QCOMPARE(bench.state(bench.dataset), QString("Downloading"));
    QCOMPARE(bench.errors()->topLevelItemCount(), 0);
}

void tst_updater::findsPartsOfAnEarlierRun()
{
    UpdaterBench bench;
    QVERIFY(bench.check());
    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.state(bench.manual), QString("Complete"));
    QVERIFY(startHalf(bench));

    bench.openWindow();
    QVERIFY(bench.check());
    QCOMPARE(bench.state(bench.manual), QString("Complete"));
    QCOMPARE(bench.state(bench.translations), QString("Not downloaded"));
    QCOMPARE(bench.state(bench.dataset), QString("Stopped"));
    QVERIFY(bench.progress(bench.dataset) >= 45);
    bench.click(bench.button(bench.dataset));
    QTRY_COMPARE(bench.state(bench.dataset), QString("Complete"));
    QCOMPARE(files::read(bench.savePath(bench.dataset)), bench.dataset.content());
}

void tst_updater::downloadFails_data()
{
    QTest::addColumn<ScriptedServer::Handler>("handler");
    QTest::addColumn<QString>("words");

    const OfferedFile file = UpdaterBench().manual;
    QTest::newRow("missing") << answers::status(404) << "The server does not have it (HTTP 404)";
    QTest::newRow("refused") << answers::status(403)
                             << "The server refused, or the connection failed";
    QTest::newRow("short") << answers::generatedFile(1000)
                           << "manual.pdf arrived with 1000 bytes instead of 307200";
    QTest::newRow("damaged") << answers::file(QByteArray(int(file.size), 'x'))
                             << "manual.pdf arrived damaged: its SHA-256 is wrong";
}

void tst_updater::downloadFails()
{
    QFETCH(ScriptedServer::Handler, handler);
    QFETCH(QString, words);

    UpdaterBench bench;
    bench.server.on(bench.manual.path(), handler);
    QVERIFY(bench.check());
    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.state(bench.manual), QString("Failed"));
    QVERIFY(bench.hasError(words, bench.manual.path()));
    QCOMPARE(bench.errors()->topLevelItemCount(), 1);
    QCOMPARE(bench.progress(bench.manual), 0);
    QVERIFY(!QFileInfo::exists(bench.savePath(bench.manual)));

    bench.server.on(bench.manual.path(), answers::generatedFile(bench.manual.size));
    QCOMPARE(bench.button(bench.manual)->text(), QString("Try again"));
    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.state(bench.manual), QString("Complete"));
    QCOMPARE(files::read(bench.savePath(bench.manual)), bench.manual.content());
}

void tst_updater::replacesWhatIsInTheWay()
{
    UpdaterBench bench;
    files::write(bench.savePath(bench.manual), "an older manual");
    files::write(bench.partialPath(bench.manual), QByteArray(int(bench.manual.size), 'x'));
    QVERIFY(bench.check());
    QCOMPARE(bench.state(bench.manual), QString("Not downloaded"));
    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.state(bench.manual), QString("Complete"));
    QCOMPARE(files::read(bench.savePath(bench.manual)), bench.manual.content());
}

void tst_updater::reportsBadEntries()
{
    UpdaterBench bench;
    bench.offer({bench.entry(bench.manual), QJsonObject()});
    QVERIFY(bench.check());
    QVERIFY(
        bench.hasError("File 2 of the index is left out: it has no absolute path", "/index.json"));
    QCOMPARE(bench.downloads()->model()->rowCount(), 1);
    QCOMPARE(bench.state(bench.manual), QString("Not downloaded"));
}

void tst_updater::newIndexDropsDownloads()
{
    UpdaterBench bench;
    QVERIFY(bench.check());
    bench.select(bench.dataset);
    QVERIFY(startHalf(bench));
    QVERIFY(bench.check());
    QCOMPARE(bench.state(bench.dataset), QString("Downloading"));
    QCOMPARE(bench.downloads()->currentIndex().row(), 2);

    bench.offer({bench.entry(bench.manual)});
    QVERIFY(bench.check());
    QCOMPARE(bench.downloads()->model()->rowCount(), 1);
    QCOMPARE(bench.errors()->topLevelItemCount(), 0);

    // The request is gone: the same download can be begun anew.
    bench.offer({bench.entry(bench.dataset)});
    QVERIFY(bench.check());
    QCOMPARE(bench.state(bench.dataset), QString("Stopped"));
    bench.click(bench.button(bench.dataset));
    QTRY_COMPARE(bench.state(bench.dataset), QString("Complete"));
}

void tst_updater::failureMayStopAnother()
{
    UpdaterBench bench;
    bench.server.on(bench.manual.path(), answers::status(404));
    QVERIFY(bench.check());
    QVERIFY(startHalf(bench));
    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.state(bench.manual), QString("Failed"));

    // Whether the client aborts the failing request or the other one is its own choice.
    const bool isStopped = bench.state(bench.dataset) == QLatin1String("Stopped");
    QCOMPARE(bench.hasError("Stopped because another request failed", bench.dataset.path()),
             isStopped);
    if (!isStopped) {
        QCOMPARE(bench.state(bench.dataset), QString("Downloading"));
        bench.click(bench.button(bench.dataset));
    }
    bench.click(bench.button(bench.dataset));
    QTRY_COMPARE(bench.state(bench.dataset), QString("Complete"));
    QCOMPARE(files::read(bench.savePath(bench.dataset)), bench.dataset.content());
}

void tst_updater::serverGone()
{
    UpdaterBench bench;
    QVERIFY(bench.check());
    QVERIFY(startHalf(bench));
    QTRY_COMPARE(bench.lightWords(), QString("Server answers"));

    const QString refused = "The server refused, or the connection failed";
    bench.server.stop();
    QTRY_COMPARE(bench.state(bench.dataset), QString("Failed"));
    QVERIFY(bench.hasError(refused, bench.dataset.path()));
    QTRY_COMPARE(bench.lightWords(), QString("Not reachable"));
    QVERIFY(bench.widget<QLabel>("lightTime")->text().startsWith("Last answer "));

    // The window goes on answering its user.
    bench.click(bench.widget<QPushButton>("check"));
    for (const char *path : {"/definition.json", "/index.json", "/changes.txt"})
        QTRY_VERIFY(bench.hasError(refused, path));
    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.state(bench.manual), QString("Failed"));
    QCOMPARE(bench.value({"Definition", "channel"}), QString("stable"));
    QCOMPARE(bench.statusText(), QString("The check failed, see the errors"));
    bench.takePicture("updater-errors.png");

    bench.server.restart();
    QTRY_COMPARE(bench.lightWords(), QString("Server answers"));
    for (const OfferedFile &file : {bench.dataset, bench.manual}) {
        bench.click(bench.button(file));
        QTRY_COMPARE(bench.state(file), QString("Complete"));
        QCOMPARE(files::read(bench.savePath(file)), file.content());
    }
}

QTEST_MAIN(tst_updater)
#include "tst_updater.moc"
