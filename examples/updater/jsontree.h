#ifndef JSONTREE_H
#define JSONTREE_H

#include <QtWidgets/QTreeWidget>

QT_BEGIN_NAMESPACE
class QJsonDocument;
QT_END_NAMESPACE

/// Shows JSON documents as a tree. Branches are made when they are opened, so that a large document
/// costs no more than what is looked at.
class JsonTree : public QTreeWidget {
    Q_OBJECT

public:
    /// Has room for one document under each of \a titles.
    explicit JsonTree(const QStringList &titles, QWidget *parent = nullptr);

    /// Shows \a document under the title with the number \a place.
    void setDocument(int place, const QJsonDocument &document);

private:
    void openSmall(QTreeWidgetItem *item, int levels);
};

#endif // JSONTREE_H
