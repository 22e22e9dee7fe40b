#ifndef TARVISNET_ERRORCODES_H
#define TARVISNET_ERRORCODES_H

/// \file
/// Every code that the error signals carry.

/// The negative codes of TarvisNet::s_errorChanged, NetworkProcessor::s_errorChanged and
/// RemotePing::s_error. Each failure has the code that names its cause; a cause without a code of
/// its own is reported as #errorcodes::network_error.
///
/// TarvisNet knows them all. NetworkProcessor has no queue and tells fewer causes apart: it uses
/// ssl_error_list_empty, network_error, file_open_failed, unknown_reply, unknown_network_error and
/// content_not_found, and reports every other failure of the network as network_error. RemotePing
/// uses network_error alone.
namespace errorcodes {

/// Qt reported SSL errors for a reply, but the list of them was empty. The URL text is empty.
inline constexpr short ssl_error_list_empty = -201;

/// A network error without a code of its own (connection refused, host not found, HTTP 403 or 500,
/// ...), a failed ping, or a probe that got no answer in time.
inline constexpr short network_error = -203;

/// The URL or path given to a request operation is empty or not valid. Nothing was queued.
inline constexpr short invalid_url = -207;

/// The file that a download is written to cannot be opened. Reported once for each arriving chunk;
/// the request itself goes on. With TransferPolicy::failuresIsolated() it ends with this instead.
inline constexpr short file_open_failed = -210;

/// The server asks for credentials (HTTP 401). Other requests are left alone.
inline constexpr short authentication_required = -213;

/// A reply finished that no record describes, or whose record has a kind that is not handled.
inline constexpr short unknown_reply = -215;

/// QNetworkReply::UnknownNetworkError, for instance a server that demands a client certificate.
inline constexpr short unknown_network_error = -216;

/// The server does not have the content (HTTP 404).
inline constexpr short content_not_found = -217;

/// A download finished, but its temporary file could not be made the destination file.
inline constexpr short file_not_completed = -218;

/// The request queue was locked by another thread for longer than the operation waits: 5 seconds,
/// or 50 ms in TarvisNet::forceRawGet(). The request was dropped.
inline constexpr short queue_locked = -219;

/// The request is not valid for this protocol (HTTP 400 and 418). Other requests are left alone.
inline constexpr short protocol_invalid_operation = -220;

/// An equal request already waits in the queue, or, with TransferPolicy::filesChecked(), a download
/// to the same destination has not ended yet. The new one was dropped.
inline constexpr short already_pending = -221;

/// The TLS handshake failed, or the peer's certificate is missing, blacklisted, or none that the
/// client's TransferPolicy accepts.
inline constexpr short ssl_handshake_failed = -222;

/// Nothing arrived for too long, or the request took too long, or the probe got no answer. Only
/// with TransferPolicy::idleTimeout(), TransferPolicy::totalTimeout() or
/// TransferPolicy::failuresIsolated().
inline constexpr short timed_out = -223;

/// The server redirects to where no request may go, or too often. Only with
/// TransferPolicy::redirectsChecked().
inline constexpr short redirect_refused = -224;

/// The disk does not take the file: it is full, or a write, the opening or the replacing failed.
/// What is on disk stays a clean beginning. Only with TransferPolicy::filesChecked().
inline constexpr short file_write_failed = -225;

/// What was fetched is not the file: its size, its hash or the server's status is wrong, or the
/// hash text is none. Only with TransferPolicy::filesChecked().
inline constexpr short file_corrupted = -226;

/// The body is longer than the client may hold. Only with TransferPolicy::maximumBodySize().
inline constexpr short body_too_large = -227;

} // namespace errorcodes

#endif // TARVISNET_ERRORCODES_H
