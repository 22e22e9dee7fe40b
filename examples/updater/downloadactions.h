#ifndef DOWNLOADACTIONS_H
#define DOWNLOADACTIONS_H

#include "downloadmodel.h"

#include <QtCore/QObject>
#include <QtCore/QVector>

QT_BEGIN_NAMESPACE
class QAction;
QT_END_NAMESPACE

/// What can be done with many downloads at once: download all, try again what failed, and clear
/// what ended. An action is enabled while there is a row that it concerns.
class DownloadActions : public QObject {
    Q_OBJECT

public:
    explicit DownloadActions(DownloadModel *model, QObject *parent = nullptr);

    const QVector<QAction *> &all() const { return m_actions; }

Q_SIGNALS:
    void startRequested(int row);

private:
    using Concerns = bool (*)(DownloadModel::State);

    QAction *add(const char *name, const char *text, const char *menuText, Concerns concerns);
    QVector<int> rowsFor(Concerns concerns) const;
    void start(Concerns concerns);

    DownloadModel *const m_model;
    QVector<QAction *> m_actions;
};

#endif // DOWNLOADACTIONS_H
