#ifndef PROGRESSDELEGATE_H
#define PROGRESSDELEGATE_H

#include <QtWidgets/QStyledItemDelegate>

/// Draws how far a download has got as a bar.
class ProgressDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
};

#endif // PROGRESSDELEGATE_H
