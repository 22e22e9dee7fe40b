#include "errortext.h"

#include <tarvisnet/errorcodes.h>

#include <algorithm>
#include <iterator>

namespace {

struct ErrorRow {
    short code;
    bool endsRequest;
    const char *text;
};

constexpr ErrorRow errors[] = {
    {errorcodes::ssl_error_list_empty, false, "TLS failed without naming a reason"},
    {errorcodes::network_error, true, "the server refused, or the connection failed"},
    {errorcodes::invalid_url, true, "refused, the URL or path is empty or not valid"},
    {errorcodes::file_open_failed, true, "the download file cannot be opened for writing"},
    {errorcodes::authentication_required, true, "the server asks for credentials (HTTP 401)"},
    {errorcodes::unknown_reply, true, "an answer arrived that belongs to no request"},
    {errorcodes::unknown_network_error, true,
     "unknown network error, perhaps the server demands a client certificate"},
    {errorcodes::content_not_found, true, "the server does not have it (HTTP 404)"},
    {errorcodes::file_not_completed, true, "the downloaded file could not be put in its place"},
    {errorcodes::queue_locked, true, "the request queue is busy"},
    {errorcodes::protocol_invalid_operation, true, "the server does not accept the request"},
    {errorcodes::already_pending, true, "the same request is waiting already"},
    {errorcodes::ssl_handshake_failed, true, "no secure connection, the TLS handshake failed"},
    {errorcodes::timed_out, true, "nothing arrived for too long, or it all took too long"},
    {errorcodes::redirect_refused, true, "the server redirects too often, or to where it may not"},
    {errorcodes::file_write_failed, true, "the disk does not take the file"},
    {errorcodes::file_corrupted, true, "what arrived is not the file, or the hash text is none"},
    {errorcodes::body_too_large, true, "the answer is longer than the client may hold"},
};

const ErrorRow *find(short code)
{
    const auto row = std::find_if(std::begin(errors), std::end(errors),
                                  [code](const ErrorRow &each) { return each.code == code; });
    return row == std::end(errors) ? nullptr : row;
}

} // namespace

QString errorText(short code)
{
    const ErrorRow *row = find(code);
    return QString::fromLatin1(row ? row->text : "unknown error");
}

bool endsRequest(short code)
{
    const ErrorRow *row = find(code);
    return !row || row->endsRequest;
}
