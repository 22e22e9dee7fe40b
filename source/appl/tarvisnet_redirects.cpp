#include "tarvisnet.h"

#include "tarvisnet_p.h"

bool TarvisNet::redirectReply(QNetworkReply *_reply)
{
    const std::optional<QUrl> target = replyinfo::redirectTarget(_reply);
    if (!target)
        return false;
    clientLog.debug(Q_FUNC_INFO) << "<TarvisNet::redirectReply> redirect reply:"
                                 << target->toString();
    Transfer next;
    if (d->transfers.contains(_reply)) {
        clientLog.debug(Q_FUNC_INFO) << " Find previos target, set to redirect attribute";
        next = d->hopFrom(_reply);
    }
    next.request = d->rules->redirectRequest(*target, d->sslConfiguration);
    QNetworkReply *hop = d->get(d->managerFor(next), d->requestToSend(next));
    if (d->file(hop, next))
        d->watch(hop);
    clientLog.debug(Q_FUNC_INFO) << "<TarvisNet::redirectReply> redirect send.";
    return true;
}

Transfer TarvisNetPrivate::hopFrom(QNetworkReply *source)
{
    Transfer hop = transfers.value(source);
    hop.record.replyType = replies::redirect_reply;
    hop.isGet = true;
    hop.answer.clear();
    hop.isRedirected = true;
    hop.redirectSource = source;
    transfers[source].isAnswered = true;
    return hop;
}

QNetworkReply *TarvisNetPrivate::handBack(const char *function, const Transfer &hop)
{
    clientLog.debug(function) << "<TarvisNet::handleReply> Redirect finished";
    if (!hop.isRedirected)
        return nullptr;
    QNetworkReply *source = hop.redirectSource;
    const auto redirected = transfers.find(source);
    if (!source || redirected == transfers.end()) {
        clientLog.warning(function) << "<TarvisNet::handleReply> Direct reply NOT found";
        return nullptr;
    }
    clientLog.debug(function) << "<TarvisNet::handleReply> Found direct reply";
    redirected->answer = hop.answer;
    return source;
}
