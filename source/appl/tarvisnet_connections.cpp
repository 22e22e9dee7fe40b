#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

/// \file
/// Getting rid of connections that may carry the answer to somebody else's request: after an
/// interim answer, which Qt takes for the final one, the final one is taken for the next request's.

void TarvisNetPrivate::dropConnections(QNetworkReply *reply)
{
    const ActiveCall call(q, managers);
    const QList<QPointer<QNetworkReply>> suspects = suspectsOf(reply);
    managers->distrust(reply->manager());
    leaveDistrustedManager();
    for (const QPointer<QNetworkReply> &suspect : suspects) {
        if (!suspect || !transfers.contains(suspect))
            continue;
        // Who only had the wrong neighbour has used up none of its retries.
        if (suspect != reply && transfers.value(suspect).isRepeatable)
            sendAgain(suspect);
        else
            perform(rules->stepAfterDrop(transfers.value(suspect)), suspect);
        if (call.ownerGone())
            return;
    }
}

/// \a reply, and those who may get its answer: they have none so far.
QList<QPointer<QNetworkReply>> TarvisNetPrivate::suspectsOf(QNetworkReply *reply) const
{
    QList<QPointer<QNetworkReply>> suspects = {reply};
    for (auto other = transfers.cbegin(); other != transfers.cend(); ++other) {
        const QNetworkReply &candidate = *other.key();
        if (candidate.isRunning() && candidate.manager() == reply->manager()
            && replyinfo::httpStatus(&candidate) == 0
            && replyinfo::isSameServer(candidate.url(), reply->url())) {
            suspects.append(other.key());
        }
    }
    return suspects;
}

/// Its answer may still come, if Qt has taken an interim one for it, and nobody is there to notice.
void TarvisNetPrivate::distrustConnectionOf(QNetworkReply *reply)
{
    const bool isUnanswered = reply->isRunning() && replyinfo::httpStatus(reply) < 200;
    if (rules->guardsAnswers() && isUnanswered)
        managers->distrust(reply->manager());
}

/// Qt goes on using it, and forgets what it is given for one that is about to end. Where there is
/// an error of HTTP the connection is all right.
void TarvisNetPrivate::leaveHttp2ConnectionOf(QNetworkReply *reply)
{
    if (replyinfo::mayUseHttp2(*reply) && replyinfo::httpStatus(reply) < 400)
        managers->distrust(reply->manager());
}

void TarvisNetPrivate::leaveDistrustedManager()
{
    if (!managers->isPrimaryDistrusted())
        return;
    managers->replacePrimary();
    remotePing->setManager(managers->primary());
    guardProbe();
    wakeAt(QDeadlineTimer(0));
}

void TarvisNetPrivate::dropUnusedManagers()
{
    managers->dropUnused();
    wakeAt(managers->nextDrop());
}
