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

    /// What is good for most applications: peersVerified() and errorsExplained().
    static TransferPolicy strict();

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

    /// Whether the third argument of every TarvisNet::s_errorChanged() tells what happened; false
    /// at first. It is then an object with these members, each where it applies:
    ///
    /// - "reason": a sentence for a log; always there
    /// - "httpStatus": the status of the answer
    /// - "networkError": the name of Qt's error, "HostNotFoundError" for example
    /// - "retryAfter": seconds that the server asks to wait
    /// - "expected", "received": bytes of a download, those on disk included
    /// - "body": what the server said, if that was JSON
    ///
    /// Without it that argument is the "body", or a null document.
    bool errorsExplained() const;
    void setErrorsExplained(bool on); ///< See errorsExplained().

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
