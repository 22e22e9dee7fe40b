#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

void TarvisNet::pingTimeout()
{
    const ActiveCall call(this, d->manager);
    abortDownload(QString());
    if (call.ownerGone())
        return;
    d->stopPing();
    if (call.ownerGone())
        return;
    d->report({errorcodes::network_error, d->remotePing->getUrl().toString()});
}

void TarvisNetPrivate::guardProbe() const
{
    if (!rules->checksPeerOfProbe())
        return;
    const auto check = [this](QNetworkReply *reply) {
        const bool isProbes = !transfers.contains(reply);
        if (isProbes && rules->faultOfPeer(reply->sslConfiguration().peerCertificate()))
            reply->abort();
    };
    QObject::connect(manager.data(), &QNetworkAccessManager::encrypted, q, check);
}

void TarvisNetPrivate::probeServer(const ReplyData &record)
{
    const bool wanted = pingAlwaysOn || replyinfo::isFileKind(record.replyType);
    if (!wanted || remotePing->isRunnig())
        return;
    const QUrl url = record.request.url();
    remotePing->setScheme(url.scheme());
    remotePing->setHost(url.host(QUrl::FullyDecoded));
    remotePing->setPort(short(url.port(-1)));
    Q_EMIT q->s_startPing(-1);
}

void TarvisNetPrivate::stopPing() const
{
    if (remotePing->isRunnig())
        Q_EMIT q->s_stopPing();
}
