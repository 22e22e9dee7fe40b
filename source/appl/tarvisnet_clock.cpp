#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <algorithm>
#include <limits>

/// \file
/// What happens to requests by the clock: time-outs, and sending again after a wait.

namespace {

QDeadlineTimer deadlineOf(const Transfer &transfer)
{
    return transfer.isAnswered ? QDeadlineTimer(QDeadlineTimer::Forever)
                               : std::min(transfer.idleEnd, transfer.end);
}

bool isUncheckedBinary(const Transfer &transfer)
{
    return transfer.record.replyType == replies::remote_binary && !transfer.checkedFile
        && !transfer.record.fileData.filePath.isEmpty();
}

bool hasPath(const Transfer &transfer, const QString &path)
{
    return transfer.record.request.url().path(QUrl::FullyDecoded) == path;
}

} // namespace

void TarvisNetPrivate::noteActivity(QNetworkReply *reply)
{
    const int idleMsec = rules->limits().idleMsec;
    if (idleMsec <= 0 && !rules->isolatesFailures())
        return;
    const auto transfer = transfers.find(reply);
    if (transfer == transfers.end())
        return;
    if (rules->isolatesFailures() && transfer->server == remotePing->getUrl())
        remotePing->timeoutRestart();
    // While a file is checked nothing arrives any more.
    if (idleMsec > 0 && !isBeingChecked(reply))
        transfer->idleEnd.setRemainingTime(idleMsec);
}

void TarvisNetPrivate::watch(QNetworkReply *reply)
{
    noteActivity(reply);
    wakeAt(deadlineOf(*transfers.constFind(reply)));
}

void TarvisNetPrivate::wakeAt(const QDeadlineTimer &deadline)
{
    if (deadline.isForever())
        return;
    const int msec =
        int(std::min<qint64>(deadline.remainingTime(), std::numeric_limits<int>::max()));
    if (!clock.isActive() || clock.remainingTime() > msec)
        clock.start(msec);
}

void TarvisNetPrivate::tick()
{
    const ActiveCall call(q, managers);
    const QList<QPointer<QNetworkReply>> expired = expiredReplies();
    for (const QPointer<QNetworkReply> &reply : expired) {
        if (reply && transfers.contains(reply))
            expire(reply);
        if (call.ownerGone())
            return;
    }
    while (failOverdue()) {
        if (call.ownerGone())
            return;
    }
    while (isRetryDue() && hasPlace()) {
        startDue();
        if (call.ownerGone())
            return;
    }
    dropUnusedManagers();
    for (const Transfer &transfer : qAsConst(transfers))
        wakeAt(deadlineOf(transfer));
    // What is due and finds no place is sent when one becomes free, and may run out of time before.
    // Where there is a place it has only just fallen due.
    const bool isFull = !hasPlace();
    for (const auto &[due, transfer] : waiting) {
        const bool isDue = due.hasExpired();
        wakeAt(isDue && isFull ? transfer.end : due);
        if (!isDue)
            break;
    }
}

QList<QPointer<QNetworkReply>> TarvisNetPrivate::expiredReplies() const
{
    QList<QPointer<QNetworkReply>> expired;
    for (auto transfer = transfers.cbegin(); transfer != transfers.cend(); ++transfer) {
        if (deadlineOf(*transfer).hasExpired())
            expired.append(transfer.key());
    }
    return expired;
}

bool TarvisNetPrivate::failOverdue()
{
    // Nobody waits beyond his end, so it is among those that are due.
    const auto firstNotDue = waiting.upper_bound(QDeadlineTimer::current());
    const auto overdue = std::find_if(waiting.begin(), firstNotDue, [](const auto &entry) {
        return entry.second.end.hasExpired();
    });
    if (overdue == firstNotDue)
        return false;
    const Transfer transfer = overdue->second;
    waiting.erase(overdue);
    fail(transfer, errorcodes::timed_out, tookTooLong);
    return true;
}

bool TarvisNetPrivate::isRetryDue() const
{
    return !waiting.empty() && waiting.begin()->first.hasExpired();
}

bool TarvisNetPrivate::startDue()
{
    if (!isRetryDue())
        return false;
    if (failOverdue())
        return true;
    Transfer transfer = waiting.begin()->second;
    waiting.erase(waiting.begin());
    if (isUncheckedBinary(transfer))
        askForRest(transfer.request, transfer.record.fileData);
    attempt(transfer);
    return true;
}

QStringList TarvisNetPrivate::takeAllWaiting()
{
    QStringList urls;
    while (!waiting.empty())
        urls += takeFirstWaiting();
    return urls;
}

QStringList TarvisNetPrivate::takeFirstWaiting()
{
    if (waiting.empty())
        return {};
    const QString url = waiting.begin()->second.record.request.url().toString();
    waiting.erase(waiting.begin());
    return {url};
}

QStringList TarvisNetPrivate::takeWaiting(const QString &urlPath)
{
    QStringList urls;
    for (auto next = waiting.begin(); next != waiting.end();) {
        if (hasPath(next->second, urlPath)) {
            urls.append(next->second.record.request.url().toString());
            next = waiting.erase(next);
        } else {
            ++next;
        }
    }
    return urls;
}
