#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <QtNetwork/QSslCertificate>

void TarvisNet::replyError(QNetworkReply::NetworkError code)
{
    clientLog.debug(Q_FUNC_INFO) << "<TarvisNet::replyError> Network error: \n"
                                 << " code: " << code << "\n";
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    const QString url = d->urlText(reply);
    QJsonDocument document;
    if (reply) {
        document = QJsonDocument::fromJson(d->transfers.value(reply).answer);
        clientLog.debug(Q_FUNC_INFO) << "Error on: " << url << " \n"
                                     << " text: " << reply->errorString() << " \n"
                                     << " http status: " << replyinfo::httpStatus(reply);
    } else {
        clientLog.warning(Q_FUNC_INFO) << "Unable ot get sender request!";
    }

    // A stream of HTTP/2 that the server resets without a reason; Qt does not tell it once more.
    const auto found = d->transfers.find(reply);
    if (code == QNetworkReply::NoError && found != d->transfers.end())
        found->isBroken = true;
    // What is not as ever is dealt with once the reply has finished.
    if (d->nextStep(reply).kind != NextStep::Kind::AsEver)
        return;
    const ActiveCall call(this, d->managers);
    const ErrorRule rule = d->rules->errorRule(code);
    if (rule.clientCode != 0) {
        const Transfer transfer = d->transfers.value(reply);
        Failure failure = {rule.clientCode, url, reply, document, transfer.record.fileData};
        failure.attempts = transfer.attempts;
        failure.reason = transfer.tlsFault;
        d->report(failure);
    }
    if (rule.abortsFirstRunning && !call.ownerGone())
        abortDownload(QString());
}

void TarvisNet::replySslErrors(QList<QSslError> listErr)
{
    const ActiveCall call(this, d->managers);
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    if (!replylog::logSslErrors(clientEngine, Q_FUNC_INFO, listErr))
        d->report({errorcodes::ssl_error_list_empty, QString()});
    else if (reply && d->rules->acceptsTlsErrors())
        reply->ignoreSslErrors();
    else
        d->keepTlsFault(reply, listErr.constFirst());
}

/// Qt's own error says no more than that the handshake failed.
void TarvisNetPrivate::keepTlsFault(QNetworkReply *reply, const QSslError &error)
{
    if (const auto transfer = transfers.find(reply); transfer != transfers.end())
        transfer->tlsFault = error.errorString();
}

void TarvisNet::replyEncrypted()
{
    const QPointer<QNetworkReply> reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply) {
        clientLog.warning(Q_FUNC_INFO) << "QNetworkReply sender nullptr!";
        return;
    }
    const QSslCertificate certificate = reply->sslConfiguration().peerCertificate();
    const char *fault = d->rules->faultOfPeer(certificate);
    if (!fault)
        return;
    clientLog.warning(Q_FUNC_INFO)
        << fault << certificate.issuerDisplayName() << certificate.subjectDisplayName() << "abort"
        << d->urlText(reply);
    const ActiveCall call(this, d->managers);
    // By HTTP/2 others share the connection, and Qt tells only one of them that it is there.
    QList<QPointer<QNetworkReply>> sharers;
    if (replyinfo::mayUseHttp2(*reply))
        sharers = d->suspectsOf(reply);
    d->refusePeer(reply, fault);
    for (const QPointer<QNetworkReply> &sharer : qAsConst(sharers)) {
        if (call.ownerGone())
            return;
        if (sharer && d->transfers.contains(sharer))
            d->refusePeer(sharer, fault);
    }
}

void TarvisNetPrivate::refusePeer(QNetworkReply *reply, const char *fault)
{
    const ActiveCall call(q, managers);
    if (rules->isolatesFailures() && transfers.contains(reply)) {
        fail(reply, errorcodes::ssl_handshake_failed, fault);
        return;
    }
    const QPointer<QNetworkReply> refused = reply;
    report({errorcodes::ssl_handshake_failed, urlText(reply), reply});
    if (!call.ownerGone())
        q->killReply(refused);
}

void TarvisNetPrivate::report(const Failure &failure) const
{
    report(failure, rules->documentOf(failure));
}

void TarvisNetPrivate::report(const Failure &failure, const QJsonDocument &document) const
{
    Q_EMIT q->s_errorChanged(failure.code, failure.url, document);
}
