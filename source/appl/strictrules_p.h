#ifndef TARVISNET_STRICTRULES_P_H
#define TARVISNET_STRICTRULES_P_H

#include "traditionalrules_p.h"
#include "transferpolicy.h"

/// The rules of a client with a policy: the traditional ones where the policy asks for nothing
/// else.
class StrictRules : public TraditionalRules {
public:
    explicit StrictRules(TransferPolicy policy);

    QSslConfiguration tlsConfiguration() const override;
    QNetworkAccessManager *newManager() const override;
    bool checksPeerOfProbe() const override;
    bool acceptsTlsErrors() const override;
    const char *faultOfPeer(const QSslCertificate &certificate) const override;
    QJsonDocument documentOf(const Failure &failure) const override;

private:
    const TransferPolicy m_policy;
};

#endif // TARVISNET_STRICTRULES_P_H
