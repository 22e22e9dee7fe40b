#ifndef ERRORLIST_H
#define ERRORLIST_H

#include <QtWidgets/QTreeWidget>

/// What went wrong, in words, the latest first.
class ErrorList : public QTreeWidget {
    Q_OBJECT

public:
    explicit ErrorList(QWidget *parent = nullptr);

    void add(const QString &words, const QString &place);
};

#endif // ERRORLIST_H
