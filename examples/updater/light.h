#ifndef LIGHT_H
#define LIGHT_H

#include "reachability.h"

#include <QtWidgets/QWidget>

QT_BEGIN_NAMESPACE
class QLabel;
QT_END_NAMESPACE

/// Shows by a lamp and in words whether the server answers, and when it last did.
class Light : public QWidget {
    Q_OBJECT

public:
    explicit Light(QWidget *parent = nullptr);

    void show(Reachability::State state, const QTime &lastAnswer);

private:
    QLabel *const m_lamp;
    QLabel *const m_words;
    QLabel *const m_time;
};

#endif // LIGHT_H
