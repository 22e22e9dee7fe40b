#ifndef TOOLTIP_H
#define TOOLTIP_H

#include <QtCore/QString>

/// A tool tip that shows \a text as it is, whatever is in it, on as many lines as it takes.
inline QString toolTipOf(const QString &text)
{
    return QStringLiteral("<qt>%1</qt>").arg(text.toHtmlEscaped());
}

#endif // TOOLTIP_H
