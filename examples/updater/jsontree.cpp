#include "jsontree.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtWidgets/QHeaderView>

namespace {

constexpr int valueRole = Qt::UserRole;
constexpr int openedLevels = 3;
constexpr int mostOpenedEntries = 8;

bool isContainer(const QJsonValue &value)
{
    return value.isObject() || value.isArray();
}

int entriesOf(const QJsonValue &value)
{
    return value.isObject() ? value.toObject().size() : value.toArray().size();
}

QString textOf(const QJsonValue &value)
{
    if (value.isString())
        return value.toString();
    if (isContainer(value))
        return entriesOf(value) == 1 ? JsonTree::tr("1 entry")
                                     : JsonTree::tr("%1 entries").arg(entriesOf(value));
    // As JSON writes it, because it knows whole numbers from others.
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

void setItem(QTreeWidgetItem *item, const QString &name, const QJsonValue &value)
{
    item->setText(0, name);
    item->setText(1, textOf(value));
    item->setToolTip(1, item->text(1));
    item->setData(0, valueRole, value);
    if (isContainer(value) && entriesOf(value) > 0)
        item->setChildIndicatorPolicy(QTreeWidgetItem::ShowIndicator);
}

void makeBranches(QTreeWidgetItem *item)
{
    if (item->childCount() > 0)
        return;
    const QJsonValue value = item->data(0, valueRole).toJsonValue();
    const QJsonObject object = value.toObject();
    for (auto entry = object.begin(); entry != object.end(); ++entry)
        setItem(new QTreeWidgetItem(item), entry.key(), entry.value());
    const QJsonArray array = value.toArray();
    for (int i = 0; i < array.size(); ++i)
        setItem(new QTreeWidgetItem(item), QString::number(i + 1), array.at(i));
}

QJsonValue rootOf(const QJsonDocument &document)
{
    return document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
}

} // namespace

JsonTree::JsonTree(const QStringList &titles, QWidget *parent)
    : QTreeWidget(parent)
{
    setHeaderLabels({tr("Name"), tr("Value")});
    setUniformRowHeights(true);
    setAlternatingRowColors(true);
    header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    connect(this, &QTreeWidget::itemExpanded, this, makeBranches);
    for (const QString &title : titles)
        addTopLevelItem(new QTreeWidgetItem({title, tr("not fetched yet")}));
}

void JsonTree::setDocument(int place, const QJsonDocument &document)
{
    QTreeWidgetItem *item = topLevelItem(place);
    item->setExpanded(false);
    qDeleteAll(item->takeChildren());
    setItem(item, item->text(0), rootOf(document));
    openSmall(item, openedLevels);
}

void JsonTree::openSmall(QTreeWidgetItem *item, int levels)
{
    const QJsonValue value = item->data(0, valueRole).toJsonValue();
    if (levels == 0 || !isContainer(value) || entriesOf(value) > mostOpenedEntries)
        return;
    item->setExpanded(true);
    for (int i = 0; i < item->childCount(); ++i)
        openSmall(item->child(i), levels - 1);
}
