#ifndef TARVISNET_TRANSFERPOLICY_H
#define TARVISNET_TRANSFERPOLICY_H

#include "tarvisnet_global.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMetaType>
#include <QtCore/QSharedDataPointer>
#include <QtNetwork/QSslCertificate>

QT_BEGIN_NAMESPACE
class QDebug;
QT_END_NAMESPACE

class TransferPolicyPrivate;

/// \brief What a client does beyond what it has always done.
///
/// A value that is given to the constructor of TarvisNet and holds for the client's life:
///
///     TarvisNet client(TransferPolicy::strict());
///
/// A default-constructed policy asks for nothing: a client made with it is the same in everything
/// as one that is made without. No property changes a signal, its arguments or their order;
/// failures that a property finds are reported by TarvisNet::s_errorChanged() with a code of
/// errorcodes.
///
/// Implicitly shared: copies are cheap.
///
/// \since 1.15
class TARVISNET_EXPORT TransferPolicy {
public:
    /// Asks for nothing.
    TransferPolicy();
    /// Copies every property.
    TransferPolicy(const TransferPolicy &other);
    /// Takes every property over; what is left may only be assigned to or destroyed.
    TransferPolicy(TransferPolicy &&other) noexcept;
    /// Copies every property.
    TransferPolicy &operator=(const TransferPolicy &other);
    /// Takes every property over; what is left may only be assigned to or destroyed.
    TransferPolicy &operator=(TransferPolicy &&other) noexcept;
    ~TransferPolicy();

    /// What is good for most applications: peersVerified(), redirectsChecked(), filesChecked(),
    /// failuresIsolated(), errorsExplained() and connectionsKept(), an idleTimeout() of 30 seconds,
    /// three retries, and a maximumBodySize() of 64 MiB.
    static TransferPolicy strict();

    /// strict(), with http2Allowed() and five downloadThreads(): for who fetches many files or
    /// small documents.
    static TransferPolicy fast();

    /// Whether all requests of the client, those of its probe included, verify the server's
    /// certificate; false at first. They then speak TLS 1.2 or later, and a certificate that does
    /// not verify ends a request with errorcodes::ssl_handshake_failed before anything of it is
    /// sent. The process's default SSL configuration is left alone.
    bool peersVerified() const;
    void setPeersVerified(bool on); ///< See peersVerified().

    /// The certificates of the authorities that peers are verified against; empty, as at first, for
    /// those of the system. Counts only with peersVerified().
    QList<QSslCertificate> caCertificates() const;
    void setCaCertificates(const QList<QSslCertificate> &certificates); ///< See caCertificates().

    /// The keys that a server may have, each the SHA-256 (32 bytes) of the SubjectPublicKeyInfo of
    /// its certificate; empty, as at first, for any. A server with another key ends a request with
    /// errorcodes::ssl_handshake_failed before anything of it is sent. RSA, DSA and EC keys are
    /// known; a server with a key of another kind is refused. Counts with peersVerified() and
    /// without.
    ///
    ///     openssl x509 -in server.crt -pubkey -noout | openssl pkey -pubin -outform der |
    ///         openssl dgst -sha256
    QList<QByteArray> pinnedKeys() const;
    void setPinnedKeys(const QList<QByteArray> &sha256); ///< See pinnedKeys().

    /// Whether redirects are followed as HTTP means them; false at first. Each target is resolved
    /// against the URL that it came from. 301 and 302 make a GET of a POST, 303 of anything; 307
    /// and 308 keep method and body. Headers are kept, but "Authorization", "Cookie" and
    /// "Proxy-Authorization" go only to the same scheme, host and port. Downloads are redirected
    /// like anything else. A target that is neither http nor https, one that leads from https to
    /// http, and one hop more than maximumRedirects() end the request with
    /// errorcodes::redirect_refused; a redirect that names no target, and a status 300, 304 or 305,
    /// with errorcodes::network_error. Results and errors carry the URL that was asked for.
    bool redirectsChecked() const;
    void setRedirectsChecked(bool on); ///< See redirectsChecked().

    /// How many redirects one request may take; 10 at first. Counts only with redirectsChecked().
    int maximumRedirects() const;
    void setMaximumRedirects(int count); ///< See maximumRedirects().

    /// Whether TarvisNet::fetchBinary() and TarvisNet::fetchInstaller() write only files that are
    /// right; false at first. The destination is replaced in one step, by a file that has its size
    /// and, if a hash was given, its content; until then, and after every failure, what was there
    /// stays. A download is continued only where the server confirms that the file is still the
    /// same, and starts afresh otherwise. A size of 0 stands for an unknown one. The hash is the
    /// hex text of a SHA-256, SHA-512, SHA-1 or MD5, told apart by its length or by "sha256:" and
    /// so on before it. An installer is saved to TarvisNet::getInstallerFileName(). While no
    /// TarvisNet::getTemporaryDirectory() is set, a file grows beside its destination.
    ///
    /// Codes: errorcodes::file_corrupted for a wrong size, content, status or hash text,
    /// errorcodes::file_write_failed when the disk does not take the file,
    /// errorcodes::already_pending while the same destination is being fetched, and
    /// errorcodes::invalid_url without a destination.
    bool filesChecked() const;
    void setFilesChecked(bool on); ///< See filesChecked().

    /// Whether a failure ends the request that failed, and no other; false at first, and then most
    /// failures also abort the first request that is running. Every accepted request then ends
    /// exactly once: by its result, by TarvisNet::s_errorChanged() or by TarvisNet::s_aborted(), a
    /// pending one that is dropped too. When the probe gets no answer, the requests to the server
    /// that it asked end with errorcodes::timed_out; any answer of that server counts, and so does
    /// any byte that arrives from it.
    bool failuresIsolated() const;
    void setFailuresIsolated(bool on); ///< See failuresIsolated().

    /// After how many milliseconds without a byte in either direction a request ends with
    /// errorcodes::timed_out; 0, as at first, for never. The headers of an answer count once they
    /// are complete.
    int idleTimeout() const;
    void setIdleTimeout(int msec); ///< See idleTimeout().

    /// How many milliseconds after it was first sent a request ends with errorcodes::timed_out, its
    /// retries and the waits between them included; 0, as at first, for never.
    int totalTimeout() const;
    void setTotalTimeout(int msec); ///< See totalTimeout().

    /// How many times a GET is tried again after a failed connection, a time-out without a byte, or
    /// a status 408, 425, 429, 500, 502, 503 or 504; 0 at first. A download goes on where it
    /// stopped. Only the last failure is reported. While a request waits it takes no place among
    /// those that run. POST, PATCH and DELETE are tried again by the client only when a server says
    /// by HTTP/2 that it has left them aside, because it ends the connection (GOAWAY) or refuses
    /// them (REFUSED_STREAM); such a request is sent again at least once. But Qt itself repeats any
    /// request by HTTP/1.1 whose connection is reset before an answer.
    int maximumRetries() const;
    void setMaximumRetries(int count); ///< See maximumRetries().

    /// Milliseconds before the first retry; 500 at first. Each further wait is twice as long, at
    /// most 30 seconds, and up to half of each is left to chance. A server that asks for another
    /// wait (Retry-After) gets it; one that asks for more than five minutes is not asked again.
    int retryDelay() const;
    void setRetryDelay(int msec); ///< See retryDelay().

    /// How many bytes a body may have that is held in memory, after decoding; 0, as at first, for
    /// any number. A longer one ends its request with errorcodes::body_too_large.
    qint64 maximumBodySize() const;
    void setMaximumBodySize(qint64 bytes); ///< See maximumBodySize().

    /// Whether the third argument of every TarvisNet::s_errorChanged() tells what happened; false
    /// at first. It is then an object with these members, each where it applies:
    ///
    /// - "reason": a sentence for a log; always there
    /// - "httpStatus": the status of the answer
    /// - "networkError": the name of Qt's error, "HostNotFoundError" for example
    /// - "retryAfter": seconds that the server asks to wait
    /// - "attempts": how many times the request was sent, when that was more than once
    /// - "expected", "received": bytes of a download, those on disk included
    /// - "url": where it failed, if that is not the URL that was asked for
    /// - "body": what the server said, if that was JSON
    ///
    /// Without it that argument is the "body", or a null document.
    bool errorsExplained() const;
    void setErrorsExplained(bool on); ///< See errorsExplained().

    /// Whether the connection of a file may serve the next request; false at first, and then each
    /// file has a connection of its own, which is closed after it.
    bool connectionsKept() const;
    void setConnectionsKept(bool on); ///< See connectionsKept().

    /// Whether requests over HTTPS use HTTP/2 where the server speaks it; false at first. Those of
    /// one network thread to one server then share one connection. Downloads of 16 MiB and more,
    /// and those of unknown size, always use HTTP/1.1: only there is the memory that they take
    /// bounded. So does the probe, which asks whether the server answers a new connection, too. Set
    /// an idleTimeout() with it: Qt 5.15 may forget a request that it is given while a connection
    /// ends, and nothing else ends that one.
    bool http2Allowed() const;
    void setHttp2Allowed(bool on); ///< See http2Allowed().

    /// How many network threads the file downloads over HTTPS that are running are spread over,
    /// from 1, as at first, to 5; what lies outside is taken for the nearer of these. One of the
    /// threads also serves all other requests, those over plain HTTP included: these do not keep a
    /// thread busy. The others, with connections of their own, are started when a download finds
    /// all threads busy with one, and end when they have been idle for some seconds. No more are
    /// used than TarvisNet::getParallelRequestsCount() lets run.
    int downloadThreads() const;
    void setDownloadThreads(int count); ///< See downloadThreads().

    /// True when every property of the two policies is equal.
    friend TARVISNET_EXPORT bool operator==(const TransferPolicy &left,
                                            const TransferPolicy &right);

private:
    QSharedDataPointer<TransferPolicyPrivate> d;
};

/// True when a property of the two policies differs.
inline bool operator!=(const TransferPolicy &left, const TransferPolicy &right)
{
    return !(left == right);
}

/// Writes every property, of the certificates and keys their number.
TARVISNET_EXPORT QDebug operator<<(QDebug debug, const TransferPolicy &policy);

Q_DECLARE_TYPEINFO(TransferPolicy, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(TransferPolicy)

#endif // TARVISNET_TRANSFERPOLICY_H
