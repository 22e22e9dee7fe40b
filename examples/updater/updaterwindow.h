#ifndef UPDATERWINDOW_H
#define UPDATERWINDOW_H

#include "logrelay.h"
#include "reachability.h"
#include "updater.h"

#include <QtWidgets/QMainWindow>

QT_BEGIN_NAMESPACE
class QCheckBox;
class QPlainTextEdit;
class QSettings;
class QSplitter;
QT_END_NAMESPACE

class DownloadActions;
class DownloadTable;
class ErrorList;
class JsonTree;
class ServerPanel;

/// The window: shows what the Updater has found and what became of the downloads, and hands it what
/// the user wants.
class UpdaterWindow : public QMainWindow {
    Q_OBJECT

public:
    /// Takes its fields and its layout from \a settings, which must outlive it, and leaves them
    /// there.
    explicit UpdaterWindow(QSettings *settings, QWidget *parent = nullptr);
    ~UpdaterWindow() override;

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void nameWidgets();
    QWidget *makeCentre();
    QSplitter *makeSplitter(Qt::Orientation orientation, const char *name,
                            const QVector<QWidget *> &parts, const QVector<int> &sizes);
    /// \a extras lie to the right of the title.
    QWidget *makePane(const QString &title, QWidget *content,
                      const QVector<QWidget *> &extras = {});
    QVector<QWidget *> makeDownloadButtons() const;
    void makeMenus();
    void connectPanel();
    void connectUpdater();

    void check();
    void takeSettings();
    void showProgressOfCheck();
    void restore();
    void save();

    QSettings *const m_settings;
    // First, and so last to die: the others log until their end.
    LogRelay m_relay;
    Updater m_updater;
    Reachability m_reachability;

    ServerPanel *const m_panel;
    JsonTree *const m_content;
    QPlainTextEdit *const m_changeLog;
    DownloadTable *const m_downloads;
    DownloadActions *const m_downloadActions;
    ErrorList *const m_errors;
    QPlainTextEdit *const m_log;
    QCheckBox *const m_showPings;
};

#endif // UPDATERWINDOW_H
