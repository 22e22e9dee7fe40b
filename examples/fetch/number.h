#ifndef NUMBER_H
#define NUMBER_H

#include <QtCore/QString>

/// Reads a number from \a minimum to \a maximum. Gives back what is wrong with the text, as what an
/// option "takes"; nothing when it is such a number.
QString readNumber(const QString &text, quint64 minimum, quint64 maximum, quint64 *number);

#endif // NUMBER_H
