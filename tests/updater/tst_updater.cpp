#include "answers.h"
#include "downloadmodel.h"
#include "files.h"
#include "updaterbench.h"

#include <QtCore/QFileInfo>
#include <QtTest/QTest>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>

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
    void reportsBadEntries();
    void newIndexDropsDownloads();
    void badHash();
    void failureLeavesOthersAlone();
    void many();
    void trustsWhomTheUserTrusts_data();
    void trustsWhomTheUserTrusts();
    void otherAuthoritiesStopDownloads();
    void serverGone();

private:
    bool startHalf(UpdaterBench &bench) const;
    void trust(UpdaterBench &bench, const QString &caFile) const;
};

namespace {

// The client tries again before it gives a server up.
constexpr int retriesMsec = 30000;

} // namespace

bool tst_updater::startHalf(UpdaterBench &bench) const
{
    bench.click(bench.button(bench.dataset));
    return QTest::qWaitFor([&] { return bench.progress(bench.dataset) >= 45; });
}

void tst_updater::trust(UpdaterBench &bench, const QString &caFile) const
{
    auto *field = bench.widget<QLineEdit>("caFile");
    field->setText(caFile);
    Q_EMIT field->editingFinished();
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

    const auto isInLog = [&bench](const QString &words) {
        return bench.widget<QPlainTextEdit>("log")->toPlainText().contains(words);
    };
    QTRY_VERIFY(isInLog("debug: "));
    QVERIFY(!isInLog("PING:"));
    bench.click(bench.widget<QCheckBox>("showPings"));
    QTRY_VERIFY(isInLog("debug: PING:"));
}

void tst_updater::checkFails_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<ScriptedServer::Handler>("handler");
    QTest::addColumn<QString>("words");

    const QByteArray definition = "/definition.json";
    const QByteArray index = "/index.json";
    QTest::newRow("definition missing")
        << definition << answers::status(404) << "server replied: Not Found";
    QTest::newRow("index refused") << index << answers::status(403) << "server replied: Forbidden";
    QTest::newRow("change log needs a password")
        << QByteArray("/changes.txt") << answers::status(401) << "Host requires authentication";
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
        QCOMPARE(bench.partialSize(file), 0);
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
    const qint64 kept = bench.partialSize(bench.dataset);
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
    QTest::newRow("missing") << answers::status(404) << "server replied: Not Found";
    QTest::newRow("refused") << answers::status(403) << "server replied: Forbidden";
    QTest::newRow("short") << answers::generatedFile(1000) << "The file has another size.";
    QTest::newRow("damaged") << answers::file(QByteArray(int(file.size), 'x'))
                             << "The content does not match the hash.";
    QTest::newRow("redirected to http") << answers::redirect(302, "http://localhost/manual.pdf")
                                        << "The server redirects from https to http.";
    QTest::newRow("redirected to nowhere")
        << answers::redirect(302) << "The server redirects to nowhere.";
    QTest::newRow("redirected to what is missing")
        << answers::redirect(302, "missing.pdf") << "server replied: Not Found";
}

void tst_updater::downloadFails()
{
    QFETCH(ScriptedServer::Handler, handler);
    QFETCH(QString, words);

    UpdaterBench bench;
    files::write(bench.savePath(bench.manual), "an older manual");
    bench.server.on(bench.manual.path(), handler);
    QVERIFY(bench.check());
    QCOMPARE(bench.state(bench.manual), QString("Not downloaded"));
    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.state(bench.manual), QString("Failed"));
    QVERIFY(bench.hasError(words, bench.manual.path()));
    QCOMPARE(bench.errors()->topLevelItemCount(), 1);
    QCOMPARE(bench.progress(bench.manual), 0);
    QCOMPARE(files::read(bench.savePath(bench.manual)), QByteArray("an older manual"));

    // Nothing of it is shown without a tool tip that has it whole.
    const QTreeWidgetItem *error = bench.errors()->topLevelItem(0);
    QCOMPARE(error->toolTip(1), "<qt>" + error->text(1).toHtmlEscaped() + "</qt>");
    QCOMPARE(error->toolTip(2), "<qt>" + error->text(2).toHtmlEscaped() + "</qt>");
    QCOMPARE(bench.toolTip(bench.manual, DownloadModel::Status), error->toolTip(1));

    bench.server.on(bench.manual.path(), answers::generatedFile(bench.manual.size));
    QCOMPARE(bench.button(bench.manual)->text(), QString("Try again"));
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

void tst_updater::badHash()
{
    UpdaterBench bench;
    QJsonObject entry = bench.entry(bench.manual);
    entry.insert("sha256", "abc");
    bench.offer({entry});
    QVERIFY(bench.check());
    bench.click(bench.button(bench.manual));
    QCOMPARE(bench.state(bench.manual), QString("Failed"));
    QVERIFY(bench.hasError("The text of the hash is none.", bench.manual.path()));
    QVERIFY(bench.server.requests(bench.manual.path()).isEmpty());
}

void tst_updater::failureLeavesOthersAlone()
{
    UpdaterBench bench;
    bench.server.on(bench.manual.path(), answers::status(404));
    QVERIFY(bench.check());
    QVERIFY(startHalf(bench));
    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.state(bench.manual), QString("Failed"));
    bench.click(bench.button(bench.translations));
    QTRY_COMPARE(bench.state(bench.translations), QString("Complete"));
    QCOMPARE(bench.state(bench.dataset), QString("Downloading"));
    QCOMPARE(bench.errors()->topLevelItemCount(), 1);
}

void tst_updater::many()
{
    UpdaterBench bench;
    const OfferedFile all[] = {bench.manual, bench.translations, bench.dataset};
    auto *downloadAll = bench.widget<QToolButton>("downloadAll");
    auto *tryAgain = bench.widget<QToolButton>("tryAgain");
    auto *clear = bench.widget<QToolButton>("clear");
    QVERIFY(!downloadAll->isEnabled() && !tryAgain->isEnabled() && !clear->isEnabled());
    for (const OfferedFile &file : {bench.manual, bench.translations})
        bench.server.on(file.path(), answers::status(404));
    QVERIFY(bench.check());
    QVERIFY(downloadAll->isEnabled() && !tryAgain->isEnabled() && !clear->isEnabled());

    bench.click(downloadAll);
    QTRY_COMPARE(bench.state(bench.manual), QString("Failed"));
    QTRY_COMPARE(bench.state(bench.translations), QString("Failed"));
    QTRY_VERIFY(bench.progress(bench.dataset) >= 45);
    QVERIFY(tryAgain->isEnabled() && clear->isEnabled());

    // The one that is still at work stays as it is.
    bench.server.clear();
    for (const OfferedFile &file : {bench.manual, bench.translations})
        bench.server.on(file.path(), answers::generatedFile(file.size));
    bench.click(tryAgain);
    QTRY_COMPARE(bench.state(bench.manual), QString("Complete"));
    QTRY_COMPARE(bench.state(bench.translations), QString("Complete"));
    QVERIFY(bench.server.requests(bench.dataset.path()).isEmpty());
    QVERIFY(!downloadAll->isEnabled() && !tryAgain->isEnabled() && clear->isEnabled());
    bench.click(clear);
    QCOMPARE(bench.downloads()->model()->rowCount(), 1);
    QCOMPARE(bench.state(bench.dataset), QString("Downloading"));

    bench.click(bench.button(bench.dataset));
    bench.click(downloadAll);
    QTRY_COMPARE(bench.state(bench.dataset), QString("Complete"));
    bench.click(clear);
    QCOMPARE(bench.downloads()->model()->rowCount(), 0);
    QVERIFY(bench.check());
    for (const OfferedFile &file : all)
        QCOMPARE(bench.state(file), QString("Complete"));
    QVERIFY(!downloadAll->isEnabled());
}

void tst_updater::trustsWhomTheUserTrusts_data()
{
    QTest::addColumn<QString>("caFile");
    QTest::addColumn<QString>("words");

    const QString noCertificate = "The CA file has no certificate in it";
    QTest::newRow("the system's authorities") << QString() << "SSL handshake failed";
    QTest::newRow("another authority")
        << UpdaterBench::certificate("wrongname") << "SSL handshake failed";
    QTest::newRow("a file that is not there")
        << UpdaterBench::certificate("missing") << noCertificate;
}

void tst_updater::trustsWhomTheUserTrusts()
{
    QFETCH(QString, caFile);
    QFETCH(QString, words);

    UpdaterBench bench;
    trust(bench, caFile);
    bench.click(bench.widget<QPushButton>("check"));
    QTRY_VERIFY(bench.hasError(words, ""));
    QCOMPARE(bench.downloads()->model()->rowCount(), 0);
    QVERIFY(bench.server.requests("/index.json").isEmpty());

    trust(bench, UpdaterBench::certificate("server"));
    QVERIFY(bench.check());
    QCOMPARE(bench.downloads()->model()->rowCount(), 3);
}

void tst_updater::otherAuthoritiesStopDownloads()
{
    UpdaterBench bench;
    QVERIFY(bench.check());
    QVERIFY(startHalf(bench));
    trust(bench, UpdaterBench::certificate("missing"));
    QCOMPARE(bench.state(bench.dataset), QString("Stopped"));
    bench.click(bench.button(bench.dataset));
    QCOMPARE(bench.state(bench.dataset), QString("Stopped"));
    QVERIFY(bench.hasError("The CA file has no certificate in it", "missing.crt"));
    trust(bench, UpdaterBench::certificate("server"));
    bench.click(bench.button(bench.dataset));
    QTRY_COMPARE(bench.state(bench.dataset), QString("Complete"));
}

void tst_updater::serverGone()
{
    UpdaterBench bench;
    QVERIFY(bench.check());
    QVERIFY(startHalf(bench));
    QTRY_COMPARE(bench.lightWords(), QString("Server answers"));

    const QString refused = "Connection refused";
    bench.server.stop();
    QTRY_COMPARE_WITH_TIMEOUT(bench.state(bench.dataset), QString("Failed"), retriesMsec);
    QVERIFY(bench.hasError(refused, bench.dataset.path()));
    QTRY_COMPARE(bench.lightWords(), QString("Not reachable"));
    QVERIFY(bench.widget<QLabel>("lightTime")->text().startsWith("Last answer "));

    // The window goes on answering its user.
    bench.click(bench.widget<QPushButton>("check"));
    bench.click(bench.button(bench.manual));
    for (const char *path : {"/definition.json", "/index.json", "/changes.txt"})
        QTRY_VERIFY_WITH_TIMEOUT(bench.hasError(refused, path), retriesMsec);
    QTRY_COMPARE_WITH_TIMEOUT(bench.state(bench.manual), QString("Failed"), retriesMsec);
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
