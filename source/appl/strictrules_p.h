#ifndef TARVISNET_STRICTRULES_P_H
#define TARVISNET_STRICTRULES_P_H

#include "traditionalrules_p.h"
#include "transferpolicy.h"

#include <optional>

/// The rules of a client with a policy: the traditional ones where the policy asks for nothing
/// else.
class StrictRules : public TraditionalRules {
public:
    explicit StrictRules(TransferPolicy policy);

    QSslConfiguration tlsConfiguration() const override;
    QNetworkAccessManager *newManager() const override;
    int downloadThreads() const override;
    bool isSpread(const Transfer &transfer) const override;
    bool allowsHttp2(const Transfer &transfer) const override;
    bool checksPeerOfProbe() const override;
    bool acceptsTlsErrors() const override;
    const char *faultOfPeer(const QSslCertificate &certificate) const override;
    void prepareFileRequest(QNetworkRequest &request, const QString &replyType, AddressForm form,
                            const QByteArray &userAgent) const override;
    QString temporaryPath(const QString &directory, const QString &filePath) const override;
    bool checksFiles() const override;
    Limits limits() const override;
    bool isolatesFailures() const override;
    bool guardsAnswers() const override;
    NextStep nextStep(const Transfer &transfer, const QNetworkReply &reply) const override;
    NextStep stepAfterSilence(const Transfer &transfer) const override;
    NextStep stepAfterBreak(const Transfer &transfer) const override;
    NextStep stepAfterDrop(const Transfer &transfer) const override;
    QJsonDocument documentOf(const Failure &failure) const override;

private:
    static bool mayRepeat(const Transfer &transfer, int maximum);
    /// How often a request may be sent again that did not fail by its own or its server's fault.
    int maximumReconnects() const;
    /// Milliseconds before the next retry where the server asks for none.
    int growingWait(const Transfer &transfer) const;
    NextStep retryOrFail(const Transfer &transfer, short code, const char *reason) const;
    /// Nothing when the failure is final.
    std::optional<int> waitBeforeRetry(const Transfer &transfer, const QNetworkReply &reply) const;
    NextStep redirectStep(const Transfer &transfer, const QNetworkReply &reply) const;

    const TransferPolicy m_policy;
    /// Of peers that are verified. Made once: reading the system's authorities takes its time.
    const QSslConfiguration m_verifying;
};

#endif // TARVISNET_STRICTRULES_P_H
