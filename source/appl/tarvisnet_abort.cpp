#include "tarvisnet.h"

#include "tarvisnet_p.h"

#include <algorithm>
#include <utility>

void TarvisNet::killReply(QNetworkReply *reply)
{
    if (!reply)
        return;
    const ActiveCall call(this, d->managers);
    const QString url = d->urlText(reply);
    d->abort(reply);
    if (!call.ownerGone())
        Q_EMIT s_aborted(url);
}

void TarvisNet::clearReplies()
{
    const ActiveCall call(this, d->managers);
    ++d->startBlocks;
    const QList<QNetworkReply *> replies = d->transfers.keys();
    for (QNetworkReply *reply : replies) {
        // A receiver of the signals below may have ended this one already.
        if (d->transfers.contains(reply))
            d->clear(reply);
        if (call.ownerGone())
            return;
    }
    d->transfers.clear();
    if (!d->reportAborted(d->takeAllWaiting()))
        return;
    --d->startBlocks;
}

void TarvisNet::abortDownload(QString _fileUrl)
{
    const ActiveCall call(this, d->managers);
    if (!d->dropPending(Q_FUNC_INFO, _fileUrl))
        return;
    const QPointer<QNetworkReply> reply = d->firstRunningReply(_fileUrl);
    if (!reply) {
        if (_fileUrl.isEmpty())
            d->reportAborted(d->takeFirstWaiting());
        return;
    }
    const QString url = d->urlText(reply);
    d->abort(reply);
    if (call.ownerGone())
        return;
    if (reply)
        removeReply(reply);
    if (call.ownerGone())
        return;
    d->stopPing();
    if (call.ownerGone())
        return;
    Q_EMIT s_aborted(url);
}

void TarvisNet::abortDownload(QStringList _fileUrls)
{
    const ActiveCall call(this, d->managers);
    // The flag keeps the places that are freed below from being taken by what is yet to be removed.
    setStopProcess(true);
    for (const QString &fileUrl : std::as_const(_fileUrls)) {
        if (call.ownerGone())
            return;
        abortDownload(fileUrl);
    }
    if (call.ownerGone())
        return;
    setStopProcess(false);
    if (!call.ownerGone())
        processReplies();
}

void TarvisNetPrivate::clear(QNetworkReply *reply)
{
    if (rules->isolatesFailures() && transfers.value(reply).isAnswered)
        q->removeReply(reply);
    else
        q->killReply(reply);
}

void TarvisNetPrivate::abort(QNetworkReply *reply)
{
    if (aborting.contains(reply))
        return;
    const ActiveCall call(q, managers);
    if (rules->isolatesFailures())
        withdrawSources(transfers.value(reply));
    if (isBeingChecked(reply)) {
        q->removeReply(reply);
        return;
    }
    distrustConnectionOf(reply);
    aborting.insert(reply, false);
    reply->abort();
    if (!call.ownerGone() && aborting.take(reply))
        reply->deleteLater();
}

QNetworkReply *TarvisNetPrivate::firstRunningReply(const QString &urlPath) const
{
    const auto reply =
        std::find_if(transfers.keyBegin(), transfers.keyEnd(), [&](QNetworkReply *key) {
            return (key->isRunning() || isBeingChecked(key))
                && (urlPath.isEmpty() || firstUrl(key).path(QUrl::FullyDecoded) == urlPath);
        });
    return reply == transfers.keyEnd() ? nullptr : *reply;
}
