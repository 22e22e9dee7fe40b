#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

namespace {

constexpr int patientWaitMsec = 5000;
// For callers that must not be kept waiting.
constexpr int shortWaitMsec = 50;

} // namespace

void TarvisNet::addRequest(const ReplyData &data)
{
    d->enqueue(data, {Q_FUNC_INFO, patientWaitMsec, true});
}

void TarvisNet::forceAddRequest(const ReplyData &data)
{
    d->enqueue(data, {Q_FUNC_INFO, shortWaitMsec, false});
}

void TarvisNetPrivate::enqueue(const ReplyData &record, const Admission &admission)
{
    const ActiveCall call(q, manager);
    const QString url = record.request.url().toString();
    const QueueLock lock(queueMutex, admission.waitMsec);
    if (!lock.isLocked()) {
        reportLockFailure(admission.function, url);
        return;
    }
    if (admission.refusesEqual && !pending.appendNew(record)) {
        clientLog.warning(admission.function)
            << "Contains request:" << url << "active count:" << transfers.size()
            << "added count:" << pending.size();
        report({errorcodes::already_pending, url});
        return;
    }
    if (!admission.refusesEqual)
        pending.append(record);
    Q_EMIT q->s_repliesCountChanged();
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
    if (record.replyType.isEmpty())
        clientLog.warning(Q_FUNC_INFO) << "Unable to get reply data";
    else
        d->start(record);
}

bool TarvisNetPrivate::mayStart() const
{
    return !pending.isEmpty() && !stopProcess && startBlocks == 0
        && parallelRequestsCount > transfers.size();
}

bool TarvisNetPrivate::dropPending(const char *function, const QString &urlPath)
{
    const ActiveCall call(q, manager);
    if (const QueueLock lock(queueMutex, patientWaitMsec); lock.isLocked())
        pending.removePath(urlPath);
    else
        reportLockFailure(function, urlPath);
    return !call.ownerGone();
}

void TarvisNet::removeReply(QNetworkReply *reply)
{
    if (!reply) {
        clientLog.warning(Q_FUNC_INFO) << "Nothing to remove - reply is null";
        return;
    }
    if (!d->transfers.contains(reply)) {
        clientLog.warning(Q_FUNC_INFO) << "Reply is removed erlier";
        return;
    }
    if (d->transfers.remove(reply) == 0)
        clientLog.warning(Q_FUNC_INFO) << "Not active reply";
    d->release(reply);
    Q_EMIT s_repliesCountChanged();
}

void TarvisNetPrivate::release(QNetworkReply *reply)
{
    const auto underWay = aborting.find(reply);
    if (underWay == aborting.end())
        reply->deleteLater();
    else
        *underWay = true;
}

void TarvisNetPrivate::reportLockFailure(const char *function, const QString &url) const
{
    clientLog.warning(function) << "Unable to lock mutex!";
    report({errorcodes::queue_locked, url});
}
