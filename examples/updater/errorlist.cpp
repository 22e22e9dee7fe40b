#include "errorlist.h"

#include "tooltip.h"

#include <QtCore/QTime>
#include <QtWidgets/QHeaderView>

namespace {

constexpr int mostErrors = 200;

} // namespace

ErrorList::ErrorList(QWidget *parent)
    : QTreeWidget(parent)
{
    setHeaderLabels({tr("Time"), tr("What happened"), tr("Where")});
    setRootIsDecorated(false);
    setAlternatingRowColors(true);
    setUniformRowHeights(true);
    setTextElideMode(Qt::ElideMiddle);
    header()->setStretchLastSection(false);
    header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    header()->setSectionResizeMode(1, QHeaderView::Stretch);
    header()->setSectionResizeMode(2, QHeaderView::Stretch);
}

void ErrorList::add(const QString &words, const QString &place)
{
    const QString time = QTime::currentTime().toString(Qt::ISODate);
    auto *item = new QTreeWidgetItem({time, words, place});
    item->setToolTip(1, toolTipOf(words));
    item->setToolTip(2, toolTipOf(place));
    insertTopLevelItem(0, item);
    delete topLevelItem(mostErrors);
}
