#include "number.h"

QString readNumber(const QString &text, quint64 minimum, quint64 maximum, quint64 *number)
{
    bool isNumber = false;
    const quint64 value = text.toULongLong(&isNumber);
    if (!isNumber || value < minimum || value > maximum)
        return QStringLiteral("takes a number from %1 to %2").arg(minimum).arg(maximum);
    *number = value;
    return QString();
}
