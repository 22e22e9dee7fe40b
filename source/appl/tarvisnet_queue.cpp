#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int patientWaitMsec = 5000;
// For callers that must not be kept waiting.
constexpr int shortWaitMsec = 50;

QString urlText(const ReplyData &record)
{
    return record.request.url().toString();
}

} // namespace

void TarvisNet::addRequest(const ReplyData &data)
{
    const ActiveCall call(this, d->manager);
    const QueueLock lock(d->queueMutex, patientWaitMsec);
    if (!lock.isLocked()) {
        d->reportLockFailure(Q_FUNC_INFO, urlText(data));
        return;
    }
    if (!d->pending.appendNew(data)) {
        const QString url = urlText(data);
        clientLog.warning(Q_FUNC_INFO)
            << "Contains request:" << url << "active count:" << d->replies.size()
            << "added count:" << d->pending.size();
        Q_EMIT s_errorChanged(errorcodes::already_pending, url, QJsonDocument());
        return;
    }
    Q_EMIT s_repliesCountChanged();
}

void TarvisNet::forceAddRequest(const ReplyData &data)
{
    const ActiveCall call(this, d->manager);
    const QueueLock lock(d->queueMutex, shortWaitMsec);
    if (!lock.isLocked()) {
        d->reportLockFailure(Q_FUNC_INFO, urlText(data));
        return;
    }
    d->pending.append(data);
    Q_EMIT s_repliesCountChanged();
}

void TarvisNet::processReplies()
{
    if (!d->mayStart())
        return;
    const ActiveCall call(this, d->manager);
    ReplyData record;
    {
        const QueueLock lock(d->queueMutex, shortWaitMsec);
        if (lock.isLocked() && !d->pending.isEmpty())
            record = d->pending.takeFirst();
    }
    if (record.replyType.isEmpty()) {
        clientLog.warning(Q_FUNC_INFO) << "Unable to get reply data";
        return;
    }
    QNetworkReply *reply = d->send(record);
    if (d->replies.contains(reply))
        return;
    if (replytools::isFileKind(record.replyType))
        replytools::limitReadBuffer(reply, record.fileData.size);
    // Only a reply in flight may be pointed to: the record's may be gone.
    const QPointer<QNetworkReply> redirected =
        d->replies.contains(record.directReply) ? record.directReply : nullptr;
    const FileData &file = record.fileData;
    d->replies.insert(reply,
                      {record, redirected, DownloadFile(file.tempFilePath, signedSize(file))});
    d->probeServer(record);
}

void TarvisNet::removeReply(QNetworkReply *reply)
{
    if (!reply) {
        clientLog.warning(Q_FUNC_INFO) << "Nothing to remove - reply is null";
        return;
    }
    if (!d->replies.contains(reply)) {
        clientLog.warning(Q_FUNC_INFO) << "Reply is removed erlier";
        return;
    }
    if (d->replies.remove(reply) == 0)
        clientLog.warning(Q_FUNC_INFO) << "Not active reply";
    d->release(reply);
    Q_EMIT s_repliesCountChanged();
}

void TarvisNet::killReply(QNetworkReply *reply)
{
    if (!reply)
        return;
    const ActiveCall call(this, d->manager);
    const QString url = replytools::urlText(reply);
    d->abort(reply);
    if (!call.ownerGone())
        Q_EMIT s_aborted(url);
}

void TarvisNet::clearReplies()
{
    const ActiveCall call(this, d->manager);
    ++d->startBlocks;
    const QList<QNetworkReply *> replies = d->replies.keys();
    for (QNetworkReply *reply : replies) {
        // A receiver of the signals below may have ended this one already.
        if (d->replies.contains(reply))
            killReply(reply);
        if (call.ownerGone())
            return;
    }
    d->replies.clear();
    --d->startBlocks;
}

void TarvisNet::abortDownload(QString _fileUrl)
{
    const ActiveCall call(this, d->manager);
    if (const QueueLock lock(d->queueMutex, patientWaitMsec); lock.isLocked())
        d->pending.removePath(_fileUrl);
    else
        d->reportLockFailure(Q_FUNC_INFO, _fileUrl);
    if (call.ownerGone())
        return;

    const QPointer<QNetworkReply> reply = d->firstRunningReply(_fileUrl);
    if (!reply)
        return;
    const QString url = replytools::urlText(reply);
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
    const ActiveCall call(this, d->manager);
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

bool TarvisNetPrivate::mayStart() const
{
    return !pending.isEmpty() && !stopProcess && startBlocks == 0
        && parallelRequestsCount > replies.size();
}

QNetworkReply *TarvisNetPrivate::send(ReplyData &record)
{
    struct Verb {
        QLatin1String replyType;
        QNetworkReply *(TarvisNetPrivate::*send)(const QNetworkRequest &, const QByteArray &);
    };
    static constexpr Verb verbsWithBody[] = {
        {replies::raw_post, &TarvisNetPrivate::post},
        {replies::raw_post_file, &TarvisNetPrivate::post},
        {replies::raw_patch, &TarvisNetPrivate::path},
        {replies::raw_delete, &TarvisNetPrivate::deleteResource},
    };
    const Verb *verb = replytools::findRow(verbsWithBody, record.replyType);
    return verb ? (this->*verb->send)(record.request, std::exchange(record.data, QByteArray()))
                : get(record.request);
}

QNetworkReply *TarvisNetPrivate::get(const QNetworkRequest &request)
{
    return follow(manager->get(request));
}

QNetworkReply *TarvisNetPrivate::post(const QNetworkRequest &request, const QByteArray &data)
{
    return follow(manager->post(request, data));
}

QNetworkReply *TarvisNetPrivate::path(const QNetworkRequest &request, const QByteArray &data)
{
    return follow(manager->sendCustomRequest(request, "PATCH", data));
}

QNetworkReply *TarvisNetPrivate::deleteResource(const QNetworkRequest &request,
                                                const QByteArray &data)
{
    return follow(manager->sendCustomRequest(request, "DELETE", data));
}

QNetworkReply *TarvisNetPrivate::follow(QNetworkReply *reply) const
{
    createReplyConnections(reply);
    return reply;
}

void TarvisNetPrivate::createReplyConnections(QNetworkReply *reply) const
{
    if (!reply)
        return;
    const auto follow = [this, reply](auto signal, auto slot) {
        QObject::connect(reply, signal, q, slot, Qt::DirectConnection);
    };
    follow(&QNetworkReply::finished, &TarvisNet::replyFinished);
    follow(&QIODevice::readyRead, &TarvisNet::replyReadyRead);
    follow(&QNetworkReply::sslErrors, &TarvisNet::replySslErrors);
    follow(&QNetworkReply::errorOccurred, &TarvisNet::replyError);
    follow(&QNetworkReply::downloadProgress, &TarvisNet::replyDownloadProgress);
    follow(&QNetworkReply::uploadProgress, &TarvisNet::replyUploadProgress);
    follow(&QNetworkReply::encrypted, &TarvisNet::replyEncrypted);
}

void TarvisNetPrivate::probeServer(const ReplyData &record)
{
    const bool wanted = pingAlwaysOn || replytools::isFileKind(record.replyType);
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

void TarvisNetPrivate::abort(QNetworkReply *reply)
{
    if (aborting.contains(reply))
        return;
    const ActiveCall call(q, manager);
    aborting.insert(reply, false);
    reply->abort();
    if (!call.ownerGone() && aborting.take(reply))
        reply->deleteLater();
}

void TarvisNetPrivate::release(QNetworkReply *reply)
{
    const auto underWay = aborting.find(reply);
    if (underWay == aborting.end())
        reply->deleteLater();
    else
        *underWay = true;
}

QNetworkReply *TarvisNetPrivate::firstRunningReply(const QString &urlPath) const
{
    const auto reply = std::find_if(replies.keyBegin(), replies.keyEnd(), [&](QNetworkReply *key) {
        return key->isRunning()
            && (urlPath.isEmpty() || key->url().path(QUrl::FullyDecoded) == urlPath);
    });
    return reply == replies.keyEnd() ? nullptr : *reply;
}

void TarvisNetPrivate::reportLockFailure(const char *function, const QString &url) const
{
    clientLog.warning(function) << "Unable to lock mutex!";
    Q_EMIT q->s_errorChanged(errorcodes::queue_locked, url, QJsonDocument());
}
