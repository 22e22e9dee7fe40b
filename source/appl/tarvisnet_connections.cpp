#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <QtNetwork/QNetworkCookieJar>

#include <algorithm>

/// \file
/// Getting rid of connections that may carry the answer to somebody else's request: after an
/// interim answer, which Qt takes for the final one, the final one is taken for the next request's.

namespace {

/// A manager makes itself the parent of its jar, but an application's jar stays without one.
void shareJar(const QNetworkAccessManager &source, QNetworkAccessManager &target)
{
    QNetworkCookieJar *jar = source.cookieJar();
    const bool isApplications = !jar->parent();
    target.setCookieJar(jar);
    if (isApplications)
        jar->setParent(nullptr);
}

} // namespace

void TarvisNetPrivate::dropConnections(QNetworkReply *reply)
{
    const ActiveCall call(q, manager);
    const QList<QPointer<QNetworkReply>> suspects = suspectsOf(reply);
    if (reply->manager() == manager)
        renewManager();
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
    if (rules->guardsAnswers() && isUnanswered && reply->manager() == manager)
        mustRenewManager = true;
}

void TarvisNetPrivate::renewManager()
{
    mustRenewManager = false;
    const QSharedPointer<QNetworkAccessManager> old = manager;
    retiredManagers.append(old);
    manager.reset(rules->newManager());
    shareJar(*old, *manager);
    remotePing->setManager(manager);
    guardProbe();
    wakeAt(QDeadlineTimer(0));
}

/// Not at once: it may be one of their replies that is being handled.
void TarvisNetPrivate::dropUnusedManagers()
{
    const auto isUsed = [this](const QSharedPointer<QNetworkAccessManager> &candidate) {
        return std::any_of(
            transfers.keyBegin(), transfers.keyEnd(),
            [&candidate](const QNetworkReply *reply) { return reply->manager() == candidate; });
    };
    const auto firstUnused = std::partition(retiredManagers.begin(), retiredManagers.end(), isUsed);
    std::for_each(firstUnused, retiredManagers.end(), releaseOnceUnwound);
    retiredManagers.erase(firstUnused, retiredManagers.end());
}
