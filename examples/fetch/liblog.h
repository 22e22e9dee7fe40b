#ifndef LIBLOG_H
#define LIBLOG_H

#include <QtCore/qlogging.h>

class Console;

/// Decides, as long as it lives, what becomes of the log messages of the library and of Qt: with
/// --verbose they are shown, otherwise only what ends or endangers the program is.
class LibraryLog {
public:
    LibraryLog(Console &target, bool verbose);
    ~LibraryLog();

private:
    Q_DISABLE_COPY(LibraryLog)

    QtMessageHandler m_previous;
};

#endif // LIBLOG_H
