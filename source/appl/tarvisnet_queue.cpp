#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <algorithm>

namespace {

constexpr int patientWaitMsec = 5000;
// For callers that must not be kept waiting.
constexpr int shortWaitMsec = 50;

QStringList urlTexts(const QVector<ReplyData> &records)
{
    QStringList texts;
    for (const ReplyData &record : records)
        texts.append(record.request.url().toString());
    return texts;
}

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
    const ActiveCall call(q, managers);
    const QString url = record.request.url().toString();
    const QueueLock lock(queueMutex, admission.waitMsec);
    if (!lock.isLocked() || isClosed) {
        reportLockFailure(admission.function, url);
        return;
    }
    if (!admit(record, admission.refusesEqual)) {
        clientLog.warning(admission.function)
            << "Contains request:" << url << "active count:" << transfers.size()
            << "added count:" << pending.size();
        report({errorcodes::already_pending, url});
        return;
    }
    Q_EMIT q->s_repliesCountChanged();
}

bool TarvisNetPrivate::admit(const ReplyData &record, bool refusesEqual)
{
    if (isFileTaken(record.fileData.filePath))
        return false;
    if (refusesEqual)
        return pending.appendNew(record);
    pending.append(record);
    return true;
}

void TarvisNet::processReplies()
{
    if (!d->mayStart())
        return;
    const ActiveCall call(this, d->managers);
    if (d->startDue())
        return;
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
    return (!pending.isEmpty() || isRetryDue()) && hasPlace();
}

bool TarvisNetPrivate::hasPlace() const
{
    return !isClosed && !stopProcess && startBlocks == 0
        && parallelRequestsCount > transfers.size();
}

bool TarvisNetPrivate::dropPending(const char *function, const QString &urlPath)
{
    const ActiveCall call(q, managers);
    QVector<ReplyData> dropped;
    if (const QueueLock lock(queueMutex, patientWaitMsec); lock.isLocked())
        dropped = pending.removePath(urlPath);
    else
        reportLockFailure(function, urlPath);
    if (call.ownerGone())
        return false;
    return reportDropped(dropped) && reportAborted(takeWaiting(urlPath));
}

bool TarvisNetPrivate::reportDropped(const QVector<ReplyData> &records) const
{
    return !rules->isolatesFailures() || reportAborted(urlTexts(records));
}

bool TarvisNetPrivate::reportAborted(const QStringList &urls) const
{
    const ActiveCall call(q, managers);
    return std::all_of(urls.cbegin(), urls.cend(), [&](const QString &url) {
        Q_EMIT q->s_aborted(url);
        return !call.ownerGone();
    });
}

void TarvisNetPrivate::dropQueue()
{
    if (!rules->isolatesFailures())
        return;
    isClosed = true;
    QVector<ReplyData> dropped;
    while (!pending.isEmpty())
        dropped.append(pending.takeFirst());
    reportDropped(dropped);
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
