#include "updaterbench.h"

#include "answers.h"
#include "downloadmodel.h"
#include "updaterwindow.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QLabel>
#include <QtWidgets/QStatusBar>

namespace {

const char changes[] = R"(Updater 1.16.0
  * Interrupted downloads go on where they stopped, also after a
    restart of the program.
  * The index names the SHA-256 of every file, and what does not
    fit is thrown away.

Updater 1.15.2
  * The translations are a file of their own.
  * New manual, with pictures.

Updater 1.15.1
  * The window remembers its size.
)";

// Qt reports progress at most every 100 ms, so the last piece before a pause may go unreported. The
// pieces are small enough for that not to matter.
constexpr int lastPieces = 30;
constexpr int lastPieceSize = 4 * 1024;
constexpr int lastPieceMsec = 10;

/// Half of a file, after which the server says no more.
void sendHalf(const OfferedFile &file, HttpResponse &response)
{
    const qint64 slowSize = lastPieces * lastPieceSize;
    const qint64 quickSize = file.size / 2 - slowSize;
    response.sendHead(200, {{"Accept-Ranges", "bytes"}}, file.size);
    response.writeGenerated(quickSize);
    response.dribble(HttpResponse::generated(quickSize, slowSize), lastPieceSize, lastPieceMsec);
}

QTreeWidgetItem *childNamed(QTreeWidgetItem *parent, const QString &name)
{
    for (int i = 0; i < parent->childCount(); ++i) {
        if (parent->child(i)->text(0) == name)
            return parent->child(i);
    }
    return nullptr;
}

} // namespace

QByteArray OfferedFile::content() const
{
    return HttpResponse::generated(0, size);
}

QByteArray OfferedFile::sha256() const
{
    return QCryptographicHash::hash(content(), QCryptographicHash::Sha256).toHex();
}

UpdaterBench::UpdaterBench()
    : m_settings(new QSettings(settingsFile(), QSettings::IniFormat))
{
    serveDocuments();
    serveFiles();
    QFile::copy(certificate("server"), m_directory.filePath("authority.pem"));
    m_settings->setValue("server/host", "localhost");
    m_settings->setValue("server/port", server.port());
    m_settings->setValue("server/caFile", m_directory.filePath("authority.pem"));
    m_settings->setValue("downloads/folder", folder());
    openWindow();
}

UpdaterBench::~UpdaterBench() = default;

void UpdaterBench::openWindow()
{
    closeWindow();
    m_settings->sync();
    m_settings.reset(new QSettings(settingsFile(), QSettings::IniFormat));
    m_window.reset(new UpdaterWindow(m_settings.data()));
    m_window->show();
    // Without a window manager nobody activates it, and before it is on the screen it cannot be.
    const bool isExposed = QTest::qWaitForWindowExposed(m_window.data());
    m_window->activateWindow();
    if (!isExposed || !QTest::qWaitForWindowActive(m_window.data()))
        qFatal("the window does not become active");
}

void UpdaterBench::closeWindow()
{
    if (m_window)
        m_window->close();
    m_window.reset();
}

bool UpdaterBench::check()
{
    server.clear();
    click(widget<QPushButton>("check"));
    return QTest::qWaitFor([this] { return statusText().startsWith("Checked, "); });
}

void UpdaterBench::offer(const QJsonArray &files)
{
    server.on("/index.json", answers::json({{"version", "1.16.0"}, {"files", files}}));
}

QJsonObject UpdaterBench::entry(const OfferedFile &file) const
{
    return {{"name", file.name},
            {"path", QString::fromUtf8(file.path())},
            {"size", file.size},
            {"sha256", QString::fromUtf8(file.sha256())}};
}

QString UpdaterBench::value(const QStringList &names) const
{
    QTreeWidgetItem *item = widget<QTreeWidget>("content")->invisibleRootItem();
    for (const QString &name : names) {
        item = childNamed(item, name);
        if (!item)
            return QStringLiteral("no ") + name;
    }
    return item->text(1);
}

QString UpdaterBench::cell(const OfferedFile &file, int column) const
{
    return downloads()->model()->index(row(file), column).data().toString();
}

QString UpdaterBench::toolTip(const OfferedFile &file, int column) const
{
    return downloads()->model()->index(row(file), column).data(Qt::ToolTipRole).toString();
}

QString UpdaterBench::state(const OfferedFile &file) const
{
    return cell(file, DownloadModel::Status);
}

int UpdaterBench::progress(const OfferedFile &file) const
{
    const QModelIndex index = downloads()->model()->index(row(file), DownloadModel::Progress);
    return index.data(DownloadModel::ProgressRole).toInt() * 100 / DownloadModel::wholeProgress;
}

QPushButton *UpdaterBench::button(const OfferedFile &file) const
{
    const QModelIndex index = downloads()->model()->index(row(file), DownloadModel::Action);
    return qobject_cast<QPushButton *>(downloads()->indexWidget(index));
}

bool UpdaterBench::hasError(const QString &words, const QString &place) const
{
    for (int i = 0; i < errors()->topLevelItemCount(); ++i) {
        const QTreeWidgetItem *item = errors()->topLevelItem(i);
        if (item->text(1).contains(words) && item->text(2).endsWith(place))
            return true;
    }
    return false;
}

QString UpdaterBench::lightWords() const
{
    return widget<QLabel>("lightWords")->text();
}

QString UpdaterBench::statusText() const
{
    return m_window->statusBar()->currentMessage();
}

void UpdaterBench::click(QAbstractButton *button) const
{
    QTest::mouseClick(button, Qt::LeftButton);
}

void UpdaterBench::select(const OfferedFile &file) const
{
    downloads()->selectRow(row(file));
}

void UpdaterBench::key(int key, Qt::KeyboardModifiers modifiers) const
{
    QWidget *const focus = QApplication::focusWidget();
    QTest::keyClick(focus ? focus : window(), Qt::Key(key), modifiers);
}

void UpdaterBench::type(const QString &text) const
{
    key(Qt::Key_A, Qt::ControlModifier);
    key(Qt::Key_Delete);
    QTest::keyClicks(QApplication::focusWidget(), text);
}

QString UpdaterBench::savePath(const OfferedFile &file) const
{
    return folder() + '/' + file.name;
}

qint64 UpdaterBench::partialSize(const OfferedFile &file) const
{
    QDirIterator growing(folder(), {file.name + ".*.vtxdownload"}, QDir::Files);
    growing.next();
    return growing.fileInfo().size();
}

QString UpdaterBench::certificate(const QString &name)
{
    return QStringLiteral(TARVISNET_TEST_CERTIFICATES) + '/' + name + ".crt";
}

void UpdaterBench::takePicture(const QString &name) const
{
    const QString folder = qEnvironmentVariable("TARVISNET_PICTURES");
    if (folder.isEmpty())
        return;
    QDir().mkpath(folder);
    const QString path = QDir(folder).filePath(name);
    if (!m_window->grab().save(path))
        qFatal("cannot write %s", qPrintable(path));
}

QString UpdaterBench::programPath()
{
    return QStringLiteral(TARVISNET_UPDATER_PROGRAM);
}

QWidget *UpdaterBench::window() const
{
    return m_window.data();
}

int UpdaterBench::row(const OfferedFile &file) const
{
    const QAbstractItemModel *model = downloads()->model();
    for (int row = 0; row < model->rowCount(); ++row) {
        if (model->index(row, DownloadModel::Name).data().toString() == file.name)
            return row;
    }
    return -1;
}

void UpdaterBench::serveDocuments()
{
    server.on(
        "/definition.json",
        answers::json({{"channel", "stable"},
                       {"installer", QJsonObject{{"path", "/installer.bin"}, {"size", 2097152}}},
                       {"index", "/index.json"},
                       {"mandatory", false}}));
    server.on("/changes.txt", answers::bytes(changes));
    // The client's own probe asks for the root.
    server.on("/", answers::status(200));
    offer({entry(manual), entry(translations), entry(dataset)});
}

void UpdaterBench::serveFiles()
{
    for (const OfferedFile &file : {manual, translations})
        server.on(file.path(), answers::generatedFile(file.size));
    server.on(dataset.path(), [this](const HttpRequest &request, HttpResponse &response) {
        if (request.header("range").isNull())
            sendHalf(dataset, response);
        else
            answers::generatedFile(dataset.size)(request, response);
    });
}
