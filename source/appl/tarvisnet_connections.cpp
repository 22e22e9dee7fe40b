#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <algorithm>

/// \file
/// Getting rid of connections that may carry the answer to somebody else's request: after an
/// interim answer, which Qt takes for the final one, the final one is taken for the next request's.

namespace {

bool isSameServer(const QUrl &left, const QUrl &right)
{
    return left.scheme() == right.scheme() && left.authority() == right.authority();
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
    for (auto other = transfers.keyBegin(); other != transfers.keyEnd(); ++other) {
        const QNetworkReply &candidate = **other;
        if (candidate.isRunning() && candidate.manager() == reply->manager()
            && replyinfo::httpStatus(&candidate) == 0
            && isSameServer(candidate.url(), reply->url())) {
            suspects.append(*other);
        }
    }
    return suspects;
}

void TarvisNetPrivate::renewManager()
{
    const QSharedPointer<QNetworkAccessManager> old = manager;
    retiredManagers.append(old);
    manager.reset(rules->newManager());
    manager->setCookieJar(old->cookieJar());
    remotePing->setManager(manager);
    guardProbe();
    wakeAt(QDeadlineTimer(0));
}

/// Not at once: it may be one of their replies that is being handled.
void TarvisNetPrivate::dropUnusedManagers()
{
    const auto isUnused = [this](const QSharedPointer<QNetworkAccessManager> &candidate) {
        return std::none_of(
            transfers.keyBegin(), transfers.keyEnd(),
            [&candidate](const QNetworkReply *reply) { return reply->manager() == candidate; });
    };
    for (const QSharedPointer<QNetworkAccessManager> &candidate : qAsConst(retiredManagers)) {
        if (isUnused(candidate))
            releaseOnceUnwound(candidate);
    }
    retiredManagers.erase(std::remove_if(retiredManagers.begin(), retiredManagers.end(), isUnused),
                          retiredManagers.end());
}
