#include "updaterwindow.h"

#include "downloadactions.h"
#include "downloadtable.h"
#include "errorlist.h"
#include "jsontree.h"
#include "light.h"
#include "serverpanel.h"

#include <QtCore/QSettings>
#include <QtGui/QFontDatabase>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QMenuBar>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QSplitter>
#include <QtWidgets/QStatusBar>
#include <QtWidgets/QToolButton>
#include <QtWidgets/QVBoxLayout>

namespace {

constexpr QSize defaultSize(1100, 720);
constexpr char geometryKey[] = "window/geometry";
constexpr char showPingsKey[] = "window/showPings";
enum Place : int { DefinitionPlace, IndexPlace };

QString splitterKey(const QSplitter *splitter)
{
    return QLatin1String("window/") + splitter->objectName();
}

QPlainTextEdit *makeText()
{
    auto *text = new QPlainTextEdit;
    text->setReadOnly(true);
    text->setTabChangesFocus(true);
    return text;
}

} // namespace

UpdaterWindow::UpdaterWindow(QSettings *settings, QWidget *parent)
    : QMainWindow(parent)
    , m_settings(settings)
    , m_panel(new ServerPanel)
    , m_content(new JsonTree({tr("Definition"), tr("Index")}))
    , m_changeLog(makeText())
    , m_downloads(new DownloadTable(m_updater.downloads()))
    , m_downloadActions(new DownloadActions(m_updater.downloads(), this))
    , m_errors(new ErrorList)
    , m_log(makeText())
    , m_showPings(new QCheckBox(tr("Show pings")))
{
    setWindowTitle(tr("Updater"));
    nameWidgets();
    m_log->setMaximumBlockCount(LogRelay::mostMessages);
    m_log->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_changeLog->setPlaceholderText(tr("The change log of the server"));
    setCentralWidget(makeCentre());
    makeMenus();
    connectPanel();
    connectUpdater();
    restore();
    takeSettings();
    statusBar()->showMessage(tr("Ready"));
}

UpdaterWindow::~UpdaterWindow()
{
    // A visible window loses the focus while it dies, and a field that does reports what was
    // edited.
    m_panel->disconnect(this);
}

void UpdaterWindow::closeEvent(QCloseEvent *event)
{
    save();
    QMainWindow::closeEvent(event);
}

void UpdaterWindow::nameWidgets()
{
    m_content->setObjectName(QStringLiteral("content"));
    m_changeLog->setObjectName(QStringLiteral("changeLog"));
    m_downloads->setObjectName(QStringLiteral("downloads"));
    m_errors->setObjectName(QStringLiteral("errors"));
    m_log->setObjectName(QStringLiteral("log"));
    m_showPings->setObjectName(QStringLiteral("showPings"));
}

QWidget *UpdaterWindow::makeCentre()
{
    QSplitter *documents = makeSplitter(Qt::Horizontal, "documents",
                                        {makePane(tr("Co&ntent of the server"), m_content),
                                         makePane(tr("&What is new"), m_changeLog)},
                                        {550, 550});
    QSplitter *messages = makeSplitter(
        Qt::Horizontal, "messages",
        {makePane(tr("&Errors"), m_errors), makePane(tr("Lo&g"), m_log, {m_showPings})},
        {660, 430});
    QWidget *downloads = makePane(tr("Down&loads"), m_downloads, makeDownloadButtons());
    QSplitter *rows =
        makeSplitter(Qt::Vertical, "rows", {documents, downloads, messages}, {170, 250, 150});
    auto *centre = new QWidget;
    auto *layout = new QVBoxLayout(centre);
    layout->addWidget(m_panel);
    layout->addWidget(rows, 1);
    return centre;
}

QSplitter *UpdaterWindow::makeSplitter(Qt::Orientation orientation, const char *name,
                                       const QVector<QWidget *> &parts, const QVector<int> &sizes)
{
    auto *splitter = new QSplitter(orientation);
    splitter->setObjectName(QLatin1String(name));
    splitter->setChildrenCollapsible(false);
    for (QWidget *part : parts)
        splitter->addWidget(part);
    splitter->setSizes(sizes.toList());
    return splitter;
}

QWidget *UpdaterWindow::makePane(const QString &title, QWidget *content,
                                 const QVector<QWidget *> &extras)
{
    auto *pane = new QWidget;
    auto *caption = new QLabel(title);
    caption->setBuddy(content);
    // The same in all panes, so that those side by side begin at one height.
    caption->setMinimumHeight(m_showPings->sizeHint().height());
    auto *top = new QHBoxLayout;
    top->addWidget(caption, 1);
    for (QWidget *extra : extras)
        top->addWidget(extra);
    auto *layout = new QVBoxLayout(pane);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(3);
    layout->addLayout(top);
    layout->addWidget(content, 1);
    return pane;
}

QVector<QWidget *> UpdaterWindow::makeDownloadButtons() const
{
    QVector<QWidget *> buttons;
    for (QAction *action : m_downloadActions->all()) {
        auto *button = new QToolButton;
        button->setObjectName(action->objectName());
        button->setDefaultAction(action);
        buttons.append(button);
    }
    return buttons;
}

void UpdaterWindow::makeMenus()
{
    QMenu *file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&Check"), this, &UpdaterWindow::check)->setShortcut(Qt::Key_F5);
    file->addAction(tr("Clear &Errors"), m_errors, &ErrorList::clear);
    file->addSeparator();
    file->addAction(tr("&Quit"), this, &QWidget::close)->setShortcut(tr("Ctrl+Q"));
    QMenu *download = menuBar()->addMenu(tr("D&ownload"));
    download->addAction(tr("&Start or Abort Selected"), m_downloads, &DownloadTable::doCurrent)
        ->setShortcut(tr("Ctrl+D"));
    download->addActions(m_downloadActions->all().toList());
}

void UpdaterWindow::connectPanel()
{
    connect(m_panel, &ServerPanel::edited, this, &UpdaterWindow::takeSettings);
    connect(m_panel, &ServerPanel::checkRequested, this, &UpdaterWindow::check);
    connect(&m_reachability, &Reachability::changed, this, [this] {
        m_panel->light()->show(m_reachability.state(), m_reachability.lastAnswer());
    });
    connect(m_showPings, &QCheckBox::toggled, &m_relay, &LogRelay::setPingsShown);
    connect(&m_relay, &LogRelay::arrived, m_log, &QPlainTextEdit::appendPlainText);
}

void UpdaterWindow::connectUpdater()
{
    connect(&m_updater, &Updater::checkingChanged, this, &UpdaterWindow::showProgressOfCheck);
    connect(&m_updater, &Updater::failed, m_errors, &ErrorList::add);
    connect(&m_updater, &Updater::changeLogArrived, m_changeLog, &QPlainTextEdit::setPlainText);
    connect(&m_updater, &Updater::definitionArrived, this, [this](const QJsonDocument &document) {
        m_content->setDocument(DefinitionPlace, document);
    });
    connect(&m_updater, &Updater::indexArrived, this, [this](const QJsonDocument &document) {
        m_content->setDocument(IndexPlace, document);
    });
    connect(m_downloads, &DownloadTable::startRequested, &m_updater, &Updater::startDownload);
    connect(m_downloadActions, &DownloadActions::startRequested, &m_updater,
            &Updater::startDownload);
    connect(m_downloads, &DownloadTable::abortRequested, &m_updater, &Updater::abortDownload);
}

void UpdaterWindow::check()
{
    takeSettings();
    m_panel->settings().save(m_settings);
    m_updater.check();
}

void UpdaterWindow::takeSettings()
{
    const ServerSettings settings = m_panel->settings();
    m_updater.setServer(settings);
    // The definition, because every server has it: a probe counts a missing page as a failure.
    m_reachability.watch(settings.host.isEmpty() ? QUrl() : settings.url(settings.definitionPath));
}

void UpdaterWindow::showProgressOfCheck()
{
    const int files = m_updater.downloads()->rowCount();
    if (m_updater.isChecking())
        statusBar()->showMessage(tr("Checking..."));
    else if (m_updater.hasCheckSucceeded())
        statusBar()->showMessage(tr("Checked, files on offer: %1").arg(files));
    else
        statusBar()->showMessage(tr("The check failed, see the errors"));
}

void UpdaterWindow::restore()
{
    resize(defaultSize);
    restoreGeometry(m_settings->value(QLatin1String(geometryKey)).toByteArray());
    const QList<QSplitter *> splitters = findChildren<QSplitter *>();
    for (QSplitter *splitter : splitters)
        splitter->restoreState(m_settings->value(splitterKey(splitter)).toByteArray());
    m_showPings->setChecked(m_settings->value(QLatin1String(showPingsKey)).toBool());
    m_panel->setSettings(ServerSettings::load(*m_settings));
}

void UpdaterWindow::save()
{
    m_settings->setValue(QLatin1String(geometryKey), saveGeometry());
    m_settings->setValue(QLatin1String(showPingsKey), m_showPings->isChecked());
    const QList<QSplitter *> splitters = findChildren<QSplitter *>();
    for (const QSplitter *splitter : splitters)
        m_settings->setValue(splitterKey(splitter), splitter->saveState());
    m_panel->settings().save(m_settings);
}
