#include "downloadtable.h"

#include "downloadmodel.h"
#include "progressdelegate.h"

#include <QtGui/QKeyEvent>
#include <QtWidgets/QHeaderView>
#include <QtWidgets/QPushButton>

DownloadTable::DownloadTable(DownloadModel *model, QWidget *parent)
    : QTableView(parent)
    , m_model(model)
{
    setModel(model);
    setItemDelegateForColumn(DownloadModel::Progress, new ProgressDelegate(this));
    setSelectionBehavior(SelectRows);
    setSelectionMode(SingleSelection);
    // The keys belong to the rows, and Tab leads out of the table.
    setTabKeyNavigation(false);
    setShowGrid(false);
    setWordWrap(false);
    makeColumns();
    connect(model, &DownloadModel::modelReset, this, &DownloadTable::makeButtons);
    connect(model, &DownloadModel::dataChanged, this, &DownloadTable::updateButtons);
}

void DownloadTable::doCurrent()
{
    if (currentIndex().isValid())
        doRow(currentIndex().row());
}

void DownloadTable::keyPressEvent(QKeyEvent *event)
{
    const bool isDeed = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter
        || event->key() == Qt::Key_Space;
    if (isDeed)
        doCurrent();
    else
        QTableView::keyPressEvent(event);
}

void DownloadTable::makeColumns()
{
    // Measured by the widest text that the column is to hold.
    struct Width {
        int column;
        const char *widest;
    };
    constexpr Width widths[] = {
        {DownloadModel::Size, "1,000.0 MiB_"},
        {DownloadModel::Speed, "1,000.0 MiB/s_"},
        {DownloadModel::Status, "Not downloaded___"},
        {DownloadModel::Action, "Download again______"},
    };
    for (const Width &width : widths)
        setColumnWidth(width.column, fontMetrics().horizontalAdvance(QLatin1String(width.widest)));
    constexpr int rowPadding = 14;
    verticalHeader()->hide();
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + rowPadding);
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setSectionResizeMode(DownloadModel::Name, QHeaderView::Stretch);
    horizontalHeader()->setSectionResizeMode(DownloadModel::Progress, QHeaderView::Stretch);
}

void DownloadTable::makeButtons()
{
    for (int row = 0; row < m_model->rowCount(); ++row) {
        auto *button = new QPushButton;
        // The row takes the keys.
        button->setFocusPolicy(Qt::NoFocus);
        connect(button, &QPushButton::clicked, this, [this, row] {
            selectRow(row);
            doRow(row);
        });
        setIndexWidget(m_model->index(row, DownloadModel::Action), button);
    }
    if (m_model->rowCount() > 0) {
        updateButtons(m_model->index(0, 0), m_model->index(m_model->rowCount() - 1, 0));
        selectRow(0);
    }
}

void DownloadTable::updateButtons(const QModelIndex &first, const QModelIndex &last)
{
    for (int row = first.row(); row <= last.row(); ++row) {
        auto *button =
            qobject_cast<QPushButton *>(indexWidget(m_model->index(row, DownloadModel::Action)));
        if (!button)
            continue;
        button->setText(m_model->deedText(row));
        button->setAccessibleName(button->text() + QLatin1Char(' ') + m_model->file(row).name);
    }
}

void DownloadTable::doRow(int row)
{
    if (m_model->deed(row) == DownloadModel::Deed::Start)
        Q_EMIT startRequested(row);
    else
        Q_EMIT abortRequested(row);
}
