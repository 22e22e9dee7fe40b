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
        next.record = d->record(_reply);
        next.record.replyType = replies::redirect_reply;
        next.isRedirected = true;
        next.redirectSource = _reply;
    }
    d->file(d->get(d->rules->redirectRequest(*target, d->sslConfiguration)), next);
    clientLog.debug(Q_FUNC_INFO) << "<TarvisNet::redirectReply> redirect send.";
    return true;
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
