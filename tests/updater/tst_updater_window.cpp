#include "answers.h"
#include "files.h"
#include "light.h"
#include "reachability.h"
#include "updaterbench.h"

#include <QtCore/QProcess>
#include <QtTest/QTest>
#include <QtWidgets/QAbstractButton>
#include <QtWidgets/QApplication>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QMenu>
#include <QtWidgets/QMenuBar>
#include <QtWidgets/QSpinBox>
#include <QtWidgets/QSplitter>

#include <thread>

/// The window itself: its keys, its memory, its shape, its log; and the program around it.
class tst_updater_window : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void tabOrder();
    void mnemonics_data();
    void mnemonics();
    void mnemonicsAreUnique();
    void fieldsByKeyboard();
    void downloadsByKeyboard();
    void remembersSettings();
    void relativePathsBecomeAbsolute();
    void noHost();
    void folderTakesEffectAtOnce();
    void unwritableFolder();
    void scales();
    void largeDocumentOpensOnDemand();
    void lightTellsStates_data();
    void lightTellsStates();
    void silentServer();
    void logIsBounded();
    void program();
};

namespace {

QString focusName()
{
    const QWidget *focus = QApplication::focusWidget();
    return focus ? focus->objectName() : QString();
}

void write(const UpdaterBench &bench, const char *field, const QString &text)
{
    bench.widget<QLineEdit>(field)->setFocus();
    bench.type(text);
    bench.key(Qt::Key_Tab);
}

QString textOf(const UpdaterBench &bench, const char *field)
{
    return bench.widget<QLineEdit>(field)->text();
}

} // namespace

void tst_updater_window::tabOrder()
{
    UpdaterBench bench;
    bench.widget<QLineEdit>("host")->setFocus();
    const QStringList order = {"host",           "port",      "caFile",        "caFileBrowse",
                               "definitionPath", "indexPath", "changeLogPath", "folder",
                               "folderBrowse",   "check",     "content",       "changeLog",
                               "downloads",      "errors",    "showPings",     "log"};
    for (const QString &name : order) {
        QCOMPARE(focusName(), name);
        bench.key(Qt::Key_Tab);
    }
    QCOMPARE(focusName(), order.first());
    bench.key(Qt::Key_Backtab, Qt::ShiftModifier);
    QCOMPARE(focusName(), order.last());
}

void tst_updater_window::mnemonics_data()
{
    QTest::addColumn<Qt::Key>("key");
    QTest::newRow("host") << Qt::Key_H;
    QTest::newRow("port") << Qt::Key_P;
    QTest::newRow("caFile") << Qt::Key_M;
    QTest::newRow("definitionPath") << Qt::Key_D;
    QTest::newRow("indexPath") << Qt::Key_I;
    QTest::newRow("changeLogPath") << Qt::Key_A;
    QTest::newRow("folder") << Qt::Key_S;
    QTest::newRow("content") << Qt::Key_N;
    QTest::newRow("changeLog") << Qt::Key_W;
    QTest::newRow("downloads") << Qt::Key_L;
    QTest::newRow("errors") << Qt::Key_E;
    QTest::newRow("log") << Qt::Key_G;
}

void tst_updater_window::mnemonics()
{
    QFETCH(Qt::Key, key);
    UpdaterBench bench;
    bench.widget<QPushButton>("check")->setFocus();
    bench.key(key, Qt::AltModifier);
    QCOMPARE(focusName(), QString(QTest::currentDataTag()));
}

void tst_updater_window::mnemonicsAreUnique()
{
    UpdaterBench bench;
    QStringList texts;
    const QList<QLabel *> labels = bench.window()->findChildren<QLabel *>();
    for (const QLabel *label : labels) {
        if (label->buddy())
            texts.append(label->text());
    }
    for (const char *name : {"caFileBrowse", "folderBrowse", "check"})
        texts.append(bench.widget<QPushButton>(name)->text());
    const QList<QAction *> menus = bench.window()->findChild<QMenuBar *>()->actions();
    for (const QAction *menu : menus)
        texts.append(menu->text());
    QCOMPARE(texts.size(), 17);

    QStringList keys;
    for (const QString &text : texts) {
        const QString key = QKeySequence::mnemonic(text).toString();
        QVERIFY2(!key.isEmpty() && !keys.contains(key), qPrintable(text));
        keys.append(key);
    }
}

void tst_updater_window::fieldsByKeyboard()
{
    UpdaterBench bench;
    bench.server.on("/other/index.json", answers::json({{"files", QJsonArray()}}));
    bench.key(Qt::Key_I, Qt::AltModifier);
    bench.type("/other/index.json");
    bench.key(Qt::Key_Return);
    QTRY_COMPARE(bench.value({"Index", "files"}), QString("0 entries"));
    QCOMPARE(bench.server.requests("/other/index.json").size(), 1);

    bench.server.clear();
    bench.key(Qt::Key_F5);
    QTRY_COMPARE(bench.server.requests("/other/index.json").size(), 1);
    bench.server.clear();
    bench.key(Qt::Key_C, Qt::AltModifier);
    QTRY_COMPARE(bench.server.requests("/other/index.json").size(), 1);
    bench.key(Qt::Key_Q, Qt::ControlModifier);
    QVERIFY(!bench.window()->isVisible());
}

void tst_updater_window::downloadsByKeyboard()
{
    UpdaterBench bench;
    QVERIFY(bench.check());
    bench.key(Qt::Key_L, Qt::AltModifier);
    bench.key(Qt::Key_Space);
    QTRY_COMPARE(bench.state(bench.manual), QString("Complete"));
    bench.key(Qt::Key_Down);
    bench.key(Qt::Key_Return);
    QTRY_COMPARE(bench.state(bench.translations), QString("Complete"));

    bench.key(Qt::Key_Down);
    bench.key(Qt::Key_D, Qt::ControlModifier);
    QTRY_VERIFY(bench.progress(bench.dataset) >= 45);
    bench.key(Qt::Key_D, Qt::ControlModifier);
    QCOMPARE(bench.state(bench.dataset), QString("Stopped"));
    bench.key(Qt::Key_Enter);
    QTRY_COMPARE(bench.state(bench.dataset), QString("Complete"));
}

void tst_updater_window::remembersSettings()
{
    UpdaterBench bench;
    write(bench, "host", "127.0.0.1");
    write(bench, "caFile", "/etc/authority.pem");
    write(bench, "definitionPath", "/a.json");
    write(bench, "indexPath", "/b.json");
    write(bench, "changeLogPath", "/c.txt");
    write(bench, "folder", bench.folder() + "/deeper");
    bench.widget<QSpinBox>("port")->setFocus();
    bench.type("8443");
    bench.widget<QCheckBox>("showPings")->setChecked(true);
    bench.window()->resize(900, 640);
    bench.widget<QSplitter>("documents")->setSizes({300, 600});
    const QList<int> sizes = bench.widget<QSplitter>("documents")->sizes();

    bench.openWindow();
    QCOMPARE(textOf(bench, "host"), QString("127.0.0.1"));
    QCOMPARE(textOf(bench, "caFile"), QString("/etc/authority.pem"));
    QVERIFY(bench.widget<QCheckBox>("showPings")->isChecked());
    QCOMPARE(textOf(bench, "definitionPath"), QString("/a.json"));
    QCOMPARE(textOf(bench, "indexPath"), QString("/b.json"));
    QCOMPARE(textOf(bench, "changeLogPath"), QString("/c.txt"));
    QCOMPARE(textOf(bench, "folder"), bench.folder() + "/deeper");
    QCOMPARE(bench.widget<QSpinBox>("port")->value(), 8443);
    QCOMPARE(bench.window()->size(), QSize(900, 640));
    QCOMPARE(bench.widget<QSplitter>("documents")->sizes(), sizes);
}

void tst_updater_window::relativePathsBecomeAbsolute()
{
    UpdaterBench bench;
    write(bench, "indexPath", " index.json ");
    QVERIFY(bench.check());
    QCOMPARE(bench.server.requests("/index.json").size(), 1);
}

void tst_updater_window::noHost()
{
    UpdaterBench bench;
    write(bench, "host", "");
    bench.click(bench.widget<QPushButton>("check"));
    QVERIFY(bench.hasError("Tell the host of the server, for example localhost", ""));
    QCOMPARE(bench.lightWords(), QString("Not asked yet"));
    write(bench, "host", "localhost");
    QTRY_COMPARE(bench.lightWords(), QString("Server answers"));
}

void tst_updater_window::folderTakesEffectAtOnce()
{
    UpdaterBench bench;
    QVERIFY(bench.check());
    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.state(bench.manual), QString("Complete"));
    const QString deeper = bench.folder() + "/deeper";
    write(bench, "folder", deeper);
    QCOMPARE(bench.state(bench.manual), QString("Not downloaded"));
    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.state(bench.manual), QString("Complete"));
    QCOMPARE(files::read(deeper + "/manual.pdf"), bench.manual.content());
}

void tst_updater_window::unwritableFolder()
{
    UpdaterBench bench;
    QVERIFY(bench.check());
    files::write(bench.folder(), "a file, not a folder");
    bench.click(bench.button(bench.manual));
    QTRY_COMPARE(bench.state(bench.manual), QString("Failed"));
    QVERIFY(bench.hasError("The disk does not take the file.", bench.manual.path()));
}

void tst_updater_window::scales()
{
    UpdaterBench bench;
    const char *const parts[] = {"content", "changeLog", "downloads", "errors", "log"};
    for (const QSize &size : {QSize(1, 1), QSize(1250, 1000)}) {
        bench.window()->resize(size);
        QTRY_VERIFY(bench.window()->width() <= qMax(size.width(), 900));
        for (const char *part : parts) {
            const QRect area = bench.widget<QWidget>(part)->rect();
            QVERIFY2(area.width() > 100 && area.height() > 30, part);
        }
    }
    QTRY_VERIFY(bench.downloads()->width() > 1200);
    QVERIFY(bench.downloads()->height() > 250);
}

void tst_updater_window::largeDocumentOpensOnDemand()
{
    UpdaterBench bench;
    QJsonArray many;
    for (int i = 0; i < 2000; ++i)
        many.append(QJsonObject{{"number", i}});
    bench.server.on("/definition.json", answers::json({{"many", many}}));
    QVERIFY(bench.check());
    QCOMPARE(bench.value({"Definition", "many"}), QString("2000 entries"));
    const auto *content = bench.widget<QTreeWidget>("content");
    QTreeWidgetItem *item = content->topLevelItem(0)->child(0);
    QCOMPARE(item->childCount(), 0);
    item->setExpanded(true);
    QCOMPARE(item->childCount(), 2000);
    QCOMPARE(item->child(1999)->text(1), QString("1 entry"));
}

void tst_updater_window::lightTellsStates_data()
{
    QTest::addColumn<Reachability::State>("state");
    QTest::addColumn<QTime>("lastAnswer");
    QTest::addColumn<QString>("words");
    QTest::addColumn<QString>("time");

    const QTime time(9, 30, 5);
    const QString last = "Last answer 09:30:05";
    const QString never = "No answer so far";
    QTest::newRow("unknown") << Reachability::State::Unknown << QTime() << "Not asked yet" << never;
    QTest::newRow("answering") << Reachability::State::Answering << time << "Server answers"
                               << last;
    QTest::newRow("failing") << Reachability::State::Failing << time << "Not reachable" << last;
    QTest::newRow("silent") << Reachability::State::Silent << QTime() << "Server is silent"
                            << never;
}

void tst_updater_window::lightTellsStates()
{
    QFETCH(Reachability::State, state);
    QFETCH(QTime, lastAnswer);
    Light light;
    light.show(state, lastAnswer);
    QTEST(light.findChild<QLabel *>("lightWords")->text(), "words");
    QTEST(light.findChild<QLabel *>("lightTime")->text(), "time");
    QTEST(light.accessibleName(), "words");

    Light other;
    const auto colour = [](const Light &each) {
        const QImage image =
            each.findChild<QLabel *>("lightLamp")->pixmap(Qt::ReturnByValue).toImage();
        return image.pixelColor(image.rect().center());
    };
    QCOMPARE(colour(light) == colour(other), state == Reachability::State::Unknown);
}

void tst_updater_window::silentServer()
{
    const ScriptedServer server(ScriptedServer::Mode::MuteTls);
    Reachability reachability;
    reachability.setTimeout(500);
    reachability.watch(QUrl(QStringLiteral("https://localhost:%1/").arg(server.port())));
    QTRY_COMPARE(reachability.state(), Reachability::State::Silent);
    QVERIFY(reachability.lastAnswer().isNull());
    reachability.watch(QUrl());
    QCOMPARE(reachability.state(), Reachability::State::Unknown);
}

void tst_updater_window::logIsBounded()
{
    UpdaterBench bench;
    const auto *log = bench.widget<QPlainTextEdit>("log");
    for (int i = 0; i < 3000; ++i)
        qDebug("line %d", i);
    QTRY_VERIFY(log->toPlainText().contains("debug: line 2999"));
    QCOMPARE(log->blockCount(), 1000);
    std::thread([] { qInfo("from elsewhere"); }).join();
    QTRY_VERIFY(log->toPlainText().contains("info: from elsewhere"));
    QCOMPARE(log->blockCount(), 1000);
}

// The program takes its settings from the file that it is given, and watches the server.
void tst_updater_window::program()
{
    UpdaterBench bench;
    bench.closeWindow();
    bench.server.clear();
    QProcess program;
    program.setProcessChannelMode(QProcess::ForwardedChannels);
    program.start(UpdaterBench::programPath(), {"--settings", bench.settingsFile()});
    QVERIFY(bench.server.waitForRequests(1));
    QCOMPARE(bench.server.requests("/definition.json").size(), 1);
    program.terminate();
    QTRY_COMPARE(program.state(), QProcess::NotRunning);
}

QTEST_MAIN(tst_updater_window)
#include "tst_updater_window.moc"
