#ifndef TARVISNET_MESSAGELOG_P_H
#define TARVISNET_MESSAGELOG_P_H

#include <QtCore/QDebug>
#include <QtCore/QMessageLogger>

/// The log of one unit. A message carries the unit's own source-file text, whichever file logs it,
/// the line that logs it and the signature of the slot or operation on whose behalf it is logged.
class MessageLog {
public:
    constexpr explicit MessageLog(const char *sourceFile)
        : m_sourceFile(sourceFile)
    {
    }

    // The compiler fills in the caller's line, so that logging needs no macro of our own.
    QDebug debug(const char *function, int line = __builtin_LINE()) const
    {
        return QMessageLogger(m_sourceFile, line, function).debug();
    }

    QDebug warning(const char *function, int line = __builtin_LINE()) const
    {
        return QMessageLogger(m_sourceFile, line, function).warning();
    }

private:
    const char *m_sourceFile;
};

#endif // TARVISNET_MESSAGELOG_P_H
