#ifndef TARVISNET_TRADITIONALRULES_P_H
#define TARVISNET_TRADITIONALRULES_P_H

#include "transferrules_p.h"

/// The rules that the library has always had. Applications rely on every one of them.
class TraditionalRules : public TransferRules {
public:
    QSslConfiguration tlsConfiguration() const override;
    QNetworkAccessManager *newManager() const override;
    int downloadThreads() const override;
    bool isSpread(const Transfer &transfer) const override;
    bool allowsHttp2(const Transfer &transfer) const override;
    bool checksPeerOfProbe() const override;
    void prepareFileRequest(QNetworkRequest &request, const QString &replyType, AddressForm form,
                            const QByteArray &userAgent) const override;
    bool acceptsTlsErrors() const override;
    const char *faultOfPeer(const QSslCertificate &certificate) const override;
    QNetworkRequest redirectRequest(const QUrl &target,
                                    const QSslConfiguration &tls) const override;
    Arrival arrival(const QString &replyType, int status) const override;
    quint64 sizeToAppendTo(const FileData &file) const override;
    QString temporaryPath(const QString &directory, const QString &filePath) const override;
    bool checksFiles() const override;
    Limits limits() const override;
    bool isolatesFailures() const override;
    bool guardsAnswers() const override;
    NextStep nextStep(const Transfer &transfer, const QNetworkReply &reply) const override;
    NextStep stepAfterSilence(const Transfer &transfer) const override;
    NextStep stepAfterBreak(const Transfer &transfer) const override;
    NextStep stepAfterDrop(const Transfer &transfer) const override;
    ErrorRule errorRule(QNetworkReply::NetworkError error) const override;
    QJsonDocument documentOf(const Failure &failure) const override;
    bool putsInPlace(const QString &replyType) const override;
};

#endif // TARVISNET_TRADITIONALRULES_P_H
