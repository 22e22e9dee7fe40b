#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

namespace {

/// The probe's port is a number of 16 bits with a sign: who has always been asked at a port beyond
/// 32767 is nobody.
void setTraditionalTarget(RemotePing &ping, const QUrl &url)
{
    ping.setScheme(url.scheme());
    ping.setHost(url.host(QUrl::FullyDecoded));
    ping.setPort(short(url.port(-1)));
}

} // namespace

void TarvisNet::pingTimeout()
{
    const ActiveCall call(this, d->managers);
    if (d->rules->isolatesFailures()) {
        d->expireProbed();
        return;
    }
    abortDownload(QString());
    if (call.ownerGone())
        return;
    d->stopPing();
    if (call.ownerGone())
        return;
    d->report({errorcodes::network_error, d->remotePing->getUrl().toString()});
}

void TarvisNetPrivate::guardProbe()
{
    if (!rules->checksPeerOfProbe())
        return;
    const QNetworkAccessManager *const manager = managers->primary().data();
    const auto isProbes = [this](QNetworkReply *reply) { return !transfers.contains(reply); };
    const auto check = [this, isProbes](QNetworkReply *reply) {
        if (isProbes(reply) && rules->faultOfPeer(reply->sslConfiguration().peerCertificate()))
            reply->abort();
    };
    QObject::connect(manager, &QNetworkAccessManager::encrypted, q, check);
    const auto mind = [this, isProbes](QNetworkReply *reply) {
        if (isProbes(reply)
            && rules->nextStep(Transfer(), *reply).kind == NextStep::Kind::DropConnections)
            dropConnections(reply);
    };
    QObject::connect(manager, &QNetworkAccessManager::finished, q, mind);
    const auto listen = [this, isProbes](QNetworkReply *reply) {
        if (isProbes(reply) && replyinfo::httpStatus(reply) != 0
            && replyinfo::serverOf(reply->url()) == remotePing->getUrl()) {
            remotePing->timeoutRestart();
        }
    };
    if (rules->isolatesFailures())
        QObject::connect(manager, &QNetworkAccessManager::finished, q, listen);
}

void TarvisNetPrivate::expireProbed()
{
    const ActiveCall call(q, managers);
    QList<QPointer<QNetworkReply>> probed;
    for (auto transfer = transfers.cbegin(); transfer != transfers.cend(); ++transfer) {
        if (transfer.key()->isRunning() && transfer->server == remotePing->getUrl())
            probed.append(transfer.key());
    }
    stopPing();
    for (const QPointer<QNetworkReply> &reply : qAsConst(probed)) {
        if (call.ownerGone())
            return;
        if (reply && transfers.contains(reply))
            expire(reply);
    }
}

void TarvisNetPrivate::probeServer(const Transfer &transfer)
{
    const bool wanted = pingAlwaysOn || replyinfo::isFileKind(transfer.record.replyType);
    if (!wanted || remotePing->isRunnig())
        return;
    if (rules->isolatesFailures())
        remotePing->setUrl(transfer.server);
    else
        setTraditionalTarget(*remotePing, transfer.request.url());
    Q_EMIT q->s_startPing(-1);
}

void TarvisNetPrivate::stopPing() const
{
    if (remotePing->isRunnig())
        Q_EMIT q->s_stopPing();
}
