#include "exitcode.h"

#include <tarvisnet/errorcodes.h>

#include <algorithm>
#include <iterator>

namespace {

struct CodeRow {
    short code;
    ExitCode exitCode;
};

constexpr CodeRow codes[] = {
    {errorcodes::ssl_error_list_empty, TlsError},
    {errorcodes::network_error, NotReached},
    {errorcodes::invalid_url, Refused},
    {errorcodes::file_open_failed, NotWritten},
    {errorcodes::authentication_required, HttpError},
    {errorcodes::unknown_reply, Failed},
    {errorcodes::unknown_network_error, NotReached},
    {errorcodes::content_not_found, HttpError},
    {errorcodes::file_not_completed, NotWritten},
    {errorcodes::queue_locked, NotReached},
    {errorcodes::protocol_invalid_operation, HttpError},
    {errorcodes::already_pending, Refused},
    {errorcodes::ssl_handshake_failed, TlsError},
    {errorcodes::timed_out, TimedOut},
    {errorcodes::redirect_refused, RedirectRefused},
    {errorcodes::file_write_failed, NotWritten},
    {errorcodes::file_corrupted, WrongContent},
    {errorcodes::body_too_large, WrongContent},
};

struct HelpRow {
    ExitCode exitCode;
    const char *text;
};

constexpr HelpRow help[] = {
    {Succeeded, "everything asked for succeeded"},
    {Failed, "something failed for a reason without a status of its own"},
    {WrongUsage, "wrong usage"},
    {Refused, "a request was refused: no valid URL, or asked for twice"},
    {NotReached, "the server was not reached, or the connection broke"},
    {HttpError, "the server refused (HTTP 401, 404, 400; any, with one of the options above *)"},
    {TlsError, "no secure connection, or not to a server to trust"},
    {TimedOut, "it took too long"},
    {NotWritten, "the disk or standard output does not take what arrived"},
    {WrongContent, "what arrived is not what was asked for"},
    {RedirectRefused, "the server redirects too often, or to where it may not"},
    {Interrupted, "interrupted"},
};

bool isRefusal(int httpStatus)
{
    return httpStatus >= 300;
}

} // namespace

ExitCode exitCodeOf(short code, int httpStatus)
{
    const auto row = std::find_if(std::begin(codes), std::end(codes),
                                  [code](const CodeRow &each) { return each.code == code; });
    const ExitCode exitCode = row == std::end(codes) ? Failed : row->exitCode;
    // The library has one code for broken connections and for most of what servers refuse.
    return exitCode == NotReached && isRefusal(httpStatus) ? HttpError : exitCode;
}

QString exitCodesHelp()
{
    QString text = QStringLiteral("Exit status:\n");
    for (const HelpRow &row : help)
        text += QStringLiteral("  %1  %2\n").arg(row.exitCode, 3).arg(QLatin1String(row.text));
    return text;
}
