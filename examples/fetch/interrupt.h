#ifndef INTERRUPT_H
#define INTERRUPT_H

#include <QtCore/QObject>

/// Turns the first Ctrl-C or SIGTERM into a Qt signal; the second one ends the program as usual.
class Interrupt : public QObject {
    Q_OBJECT

public:
    explicit Interrupt(QObject *parent = nullptr);

Q_SIGNALS:
    void interrupted();
};

#endif // INTERRUPT_H
