#ifndef EXITCODE_H
#define EXITCODE_H

#include <QtCore/QString>

/// What the program tells its caller: whether it succeeded, and otherwise the kind of cause.
enum ExitCode : int {
    Succeeded = 0,
    Failed = 1,
    WrongUsage = 2,
    Refused = 3,
    NotReached = 4,
    HttpError = 5,
    TlsError = 6,
    TimedOut = 7,
    NotWritten = 8,
    WrongContent = 9,
    RedirectRefused = 10,
    Interrupted = 130,
};

/// For a code of errorcodes. \a httpStatus is that of the answer, or 0 when nobody knows it.
ExitCode exitCodeOf(short code, int httpStatus);

/// The table of exit codes for --help.
QString exitCodesHelp();

#endif // EXITCODE_H
