#include "downloadactions.h"

// Qt 5 has it in QtWidgets, Qt 6 in QtGui.
#include <QAction>

namespace {

using State = DownloadModel::State;

bool isUnfinished(State state)
{
    return state == State::Absent || state == State::Stopped || state == State::Failed;
}

bool hasFailed(State state)
{
    return state == State::Failed;
}

} // namespace

DownloadActions::DownloadActions(DownloadModel *model, QObject *parent)
    : QObject(parent)
    , m_model(model)
{
    const QAction *downloadAll =
        add("downloadAll", QT_TR_NOOP("Download all"), QT_TR_NOOP("&Download All"), isUnfinished);
    const QAction *tryAgain = add("tryAgain", QT_TR_NOOP("Try again"),
                                  QT_TR_NOOP("&Try Again All That Failed"), hasFailed);
    const QAction *clear = add("clear", QT_TR_NOOP("Clear"), QT_TR_NOOP("&Clear All That Ended"),
                               DownloadModel::hasEnded);
    connect(downloadAll, &QAction::triggered, this, [this] { start(isUnfinished); });
    connect(tryAgain, &QAction::triggered, this, [this] { start(hasFailed); });
    connect(clear, &QAction::triggered, model, &DownloadModel::clearEnded);
}

QAction *DownloadActions::add(const char *name, const char *text, const char *menuText,
                              Concerns concerns)
{
    auto *action = new QAction(tr(menuText), this);
    action->setObjectName(QLatin1String(name));
    action->setIconText(tr(text));
    const auto update = [=] { action->setEnabled(!rowsFor(concerns).isEmpty()); };
    connect(m_model, &DownloadModel::modelReset, action, update);
    connect(m_model, &DownloadModel::dataChanged, action, update);
    update();
    m_actions.append(action);
    return action;
}

QVector<int> DownloadActions::rowsFor(Concerns concerns) const
{
    QVector<int> rows;
    for (int row = 0; row < m_model->rowCount(); ++row) {
        if (concerns(m_model->state(row)))
            rows.append(row);
    }
    return rows;
}

void DownloadActions::start(Concerns concerns)
{
    const QVector<int> rows = rowsFor(concerns);
    for (const int row : rows)
        Q_EMIT startRequested(row);
}
