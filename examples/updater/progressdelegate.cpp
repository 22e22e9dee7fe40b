#include "progressdelegate.h"

#include "downloadmodel.h"

#include <QtWidgets/QApplication>

void ProgressDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                             const QModelIndex &index) const
{
    QStyleOptionViewItem cell = option;
    initStyleOption(&cell, index);
    cell.text.clear();
    const QStyle *style = cell.widget ? cell.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &cell, painter, cell.widget);

    constexpr int margin = 3;
    QStyleOptionProgressBar bar;
    bar.rect = option.rect.adjusted(margin, margin, -margin, -margin);
    bar.state = (option.state & QStyle::State_Enabled) | QStyle::State_Horizontal;
    bar.palette = option.palette;
    bar.fontMetrics = option.fontMetrics;
    bar.direction = option.direction;
    bar.maximum = DownloadModel::wholeProgress;
    bar.progress = index.data(DownloadModel::ProgressRole).toInt();
    bar.text = index.data().toString();
    bar.textVisible = true;
    bar.textAlignment = Qt::AlignCenter;
    // Part by part, because of an empty bar some styles draw a sliver all the same.
    style->drawControl(QStyle::CE_ProgressBarGroove, &bar, painter, cell.widget);
    if (bar.progress > 0)
        style->drawControl(QStyle::CE_ProgressBarContents, &bar, painter, cell.widget);
    style->drawControl(QStyle::CE_ProgressBarLabel, &bar, painter, cell.widget);
}
