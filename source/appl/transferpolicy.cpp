#include "transferpolicy.h"

#include <QtCore/QDebug>
#include <QtCore/QSharedData>

#include <tuple>

class TransferPolicyPrivate : public QSharedData {
public:
    bool peersVerified = false;
    QList<QSslCertificate> caCertificates;
    QList<QByteArray> pinnedKeys;
    bool errorsExplained = false;

    auto properties() const
    {
        return std::tie(peersVerified, caCertificates, pinnedKeys, errorsExplained);
    }
};

TransferPolicy::TransferPolicy()
    : d(new TransferPolicyPrivate)
{
}

TransferPolicy::TransferPolicy(const TransferPolicy &other) = default;
TransferPolicy::TransferPolicy(TransferPolicy &&other) noexcept = default;
TransferPolicy &TransferPolicy::operator=(const TransferPolicy &other) = default;
TransferPolicy &TransferPolicy::operator=(TransferPolicy &&other) noexcept = default;
TransferPolicy::~TransferPolicy() = default;

TransferPolicy TransferPolicy::strict()
{
    TransferPolicy policy;
    policy.setPeersVerified(true);
    policy.setErrorsExplained(true);
    return policy;
}

bool TransferPolicy::peersVerified() const
{
    return d->peersVerified;
}

void TransferPolicy::setPeersVerified(bool on)
{
    d->peersVerified = on;
}

QList<QSslCertificate> TransferPolicy::caCertificates() const
{
    return d->caCertificates;
}

void TransferPolicy::setCaCertificates(const QList<QSslCertificate> &certificates)
{
    d->caCertificates = certificates;
}

QList<QByteArray> TransferPolicy::pinnedKeys() const
{
    return d->pinnedKeys;
}

void TransferPolicy::setPinnedKeys(const QList<QByteArray> &sha256)
{
    d->pinnedKeys = sha256;
}

bool TransferPolicy::errorsExplained() const
{
    return d->errorsExplained;
}

void TransferPolicy::setErrorsExplained(bool on)
{
    d->errorsExplained = on;
}

bool operator==(const TransferPolicy &left, const TransferPolicy &right)
{
    return left.d == right.d || left.d->properties() == right.d->properties();
}

QDebug operator<<(QDebug debug, const TransferPolicy &policy)
{
    const QDebugStateSaver saver(debug);
    debug.nospace() << "TransferPolicy(peersVerified " << policy.peersVerified()
                    << ", caCertificates " << policy.caCertificates().size() << ", pinnedKeys "
                    << policy.pinnedKeys().size() << ", errorsExplained "
                    << policy.errorsExplained() << ')';
    return debug;
}
