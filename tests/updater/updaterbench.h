#ifndef TARVISNET_TESTS_UPDATERBENCH_H
#define TARVISNET_TESTS_UPDATERBENCH_H

#include "scriptedserver.h"

#include <QtCore/QJsonArray>
#include <QtCore/QScopedPointer>
#include <QtCore/QSettings>
#include <QtCore/QTemporaryDir>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QTableView>
#include <QtWidgets/QToolButton>
#include <QtWidgets/QTreeWidget>

class UpdaterWindow;

/// A file that the bench's server offers: HttpResponse::generated() bytes.
struct OfferedFile {
    QString name;
    qint64 size = 0;

    QByteArray path() const { return "/files/" + name.toUtf8(); }
    QByteArray content() const;
    QByteArray sha256() const;
};

/// An updater's window in front of a server that has a definition, a change log and an index of
/// three files, the last of which arrives only half until it is resumed. The window knows the
/// server from its settings, and is on the screen and active.
class UpdaterBench {
public:
    UpdaterBench();
    ~UpdaterBench();

    QWidget *window() const;
    /// Closes the window, if there is one, and opens another with the same settings.
    void openWindow();
    void closeWindow();

    /// Presses "Check" and waits for the end of the check.
    bool check();
    void offer(const QJsonArray &files);
    QJsonObject entry(const OfferedFile &file) const;

    /// \name What the window shows
    /// @{
    template <typename Widget>
    Widget *widget(const char *name) const
    {
        Widget *const found = window()->findChild<Widget *>(QLatin1String(name));
        if (!found)
            qFatal("the window has no %s", name);
        return found;
    }
    QTableView *downloads() const { return widget<QTableView>("downloads"); }
    QTreeWidget *errors() const { return widget<QTreeWidget>("errors"); }
    /// Value in the tree of documents under names on the way to it.
    QString value(const QStringList &names) const;
    /// The text that the row of \a file has in \a column.
    QString cell(const OfferedFile &file, int column) const;
    QString toolTip(const OfferedFile &file, int column) const;
    QString state(const OfferedFile &file) const;
    /// In percent.
    int progress(const OfferedFile &file) const;
    QPushButton *button(const OfferedFile &file) const;
    /// Whether there is an error that has these words in it, about a place that ends in \a place.
    bool hasError(const QString &words, const QString &place) const;
    QString lightWords() const;
    QString statusText() const;
    /// @}

    void click(QAbstractButton *button) const;
    void select(const OfferedFile &file) const;
    /// Keys for the widget that has the focus.
    void key(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) const;
    void type(const QString &text) const;

    QString folder() const { return m_directory.filePath(QStringLiteral("files")); }
    QString savePath(const OfferedFile &file) const;
    /// How much there is of what has not arrived completely.
    qint64 partialSize(const OfferedFile &file) const;
    /// A test server's certificate, which is its own authority.
    static QString certificate(const QString &name);
    QString settingsFile() const { return m_directory.filePath(QStringLiteral("updater.ini")); }
    /// Saves the window as it looks where TARVISNET_PICTURES says, if it says so.
    void takePicture(const QString &name) const;
    static QString programPath();

    ScriptedServer server{ScriptedServer::Mode::Https};
    const OfferedFile manual{QStringLiteral("manual.pdf"), 300 * 1024};
    const OfferedFile translations{QStringLiteral("translations.zip"), 1200 * 1024};
    const OfferedFile dataset{QStringLiteral("dataset-2026.bin"), 6 * 1024 * 1024};

private:
    Q_DISABLE_COPY(UpdaterBench)

    int row(const OfferedFile &file) const;
    void serveDocuments();
    void serveFiles();

    QTemporaryDir m_directory;
    QScopedPointer<QSettings> m_settings;
    QScopedPointer<UpdaterWindow> m_window;
};

#endif // TARVISNET_TESTS_UPDATERBENCH_H
