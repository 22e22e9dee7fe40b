#include "tarvisnet.h"

#include "qtversion_p.h"
#include "tarvisnet_p.h"

/// \file
/// The verbs, and the connections of a reply.

namespace {

struct Verb {
    QLatin1String replyType;
    QNetworkReply *(TarvisNetPrivate::*send)(const QNetworkRequest &, const QByteArray &);
};

constexpr Verb verbsWithBody[] = {
    {replies::raw_post, &TarvisNetPrivate::post},
    {replies::raw_post_file, &TarvisNetPrivate::post},
    {replies::raw_patch, &TarvisNetPrivate::path},
    {replies::raw_delete, &TarvisNetPrivate::deleteResource},
};

/// Null for a GET.
const Verb *verbWithBody(const QString &replyType)
{
    return replyinfo::findRow(verbsWithBody, replyType);
}

} // namespace

bool TarvisNetPrivate::isSentByGet(const QString &replyType)
{
    return !verbWithBody(replyType);
}

/// What a GET was given as its body has always been the beginning of its answer. Only a GET may
/// have another manager than the primary one.
QNetworkReply *TarvisNetPrivate::send(Transfer &transfer)
{
    transfer.answer = transfer.isGet ? transfer.body : QByteArray();
    const QNetworkRequest request = requestToSend(transfer);
    QNetworkAccessManager &manager = managerFor(transfer);
    if (transfer.isGet)
        return get(manager, request);
    const Verb *verb = verbWithBody(transfer.record.replyType);
    return (this->*verb->send)(request, transfer.body);
}

QNetworkAccessManager &TarvisNetPrivate::managerFor(const Transfer &transfer)
{
    leaveDistrustedManager();
    QNetworkAccessManager &manager =
        rules->isSpread(transfer) ? managerForDownload() : *managers->primary();
    if (rules->allowsHttp2(transfer))
        managers->countHttp2(&manager);
    return manager;
}

QNetworkAccessManager &TarvisNetPrivate::managerForDownload()
{
    QList<QNetworkAccessManager *> running;
    for (auto other = transfers.cbegin(); other != transfers.cend(); ++other) {
        if (rules->isSpread(*other))
            running.append(other.key()->manager());
    }
    QNetworkAccessManager *const manager = managers->forDownload(running);
    wakeAt(managers->nextDrop());
    return *manager;
}

/// Qt decodes at once whatever has arrived, however long that becomes. It leaves the coding alone
/// where somebody else asks for it, so the client asks for the codings that Qt would ask for.
QNetworkRequest TarvisNetPrivate::requestToSend(Transfer &transfer) const
{
    QNetworkRequest request = transfer.request;
    if (rules->allowsHttp2(transfer))
        request.setAttribute(QNetworkRequest::Http2AllowedAttribute, true);
    const char header[] = "Accept-Encoding";
    transfer.decoder.reset();
    transfer.isBroken = false;
    transfer.maximumAnswer = rules->limits().bodySize;
    transfer.isCodingOurs = transfer.maximumAnswer > 0
        && !replyinfo::isFileKind(transfer.record.replyType) && request.rawHeader(header).isEmpty();
    if (transfer.isCodingOurs)
        request.setRawHeader(header, "gzip, deflate");
    return qtversion::settled(request);
}

QNetworkReply *TarvisNetPrivate::get(QNetworkAccessManager &manager, const QNetworkRequest &request)
{
    return connected(manager.get(request));
}

QNetworkReply *TarvisNetPrivate::post(const QNetworkRequest &request, const QByteArray &data)
{
    return connected(managers->primary()->post(request, data));
}

QNetworkReply *TarvisNetPrivate::path(const QNetworkRequest &request, const QByteArray &data)
{
    return connected(managers->primary()->sendCustomRequest(request, "PATCH", data));
}

QNetworkReply *TarvisNetPrivate::deleteResource(const QNetworkRequest &request,
                                                const QByteArray &data)
{
    return connected(managers->primary()->sendCustomRequest(request, "DELETE", data));
}

QNetworkReply *TarvisNetPrivate::connected(QNetworkReply *reply) const
{
    createReplyConnections(reply);
    return reply;
}

void TarvisNetPrivate::createReplyConnections(QNetworkReply *reply) const
{
    if (!reply)
        return;
    const auto toClient = [this, reply](auto signal, auto slot) {
        QObject::connect(reply, signal, q, slot, Qt::DirectConnection);
    };
    toClient(&QNetworkReply::finished, &TarvisNet::replyFinished);
    toClient(&QIODevice::readyRead, &TarvisNet::replyReadyRead);
    toClient(&QNetworkReply::sslErrors, &TarvisNet::replySslErrors);
    toClient(&QNetworkReply::errorOccurred, &TarvisNet::replyError);
    toClient(&QNetworkReply::downloadProgress, &TarvisNet::replyDownloadProgress);
    toClient(&QNetworkReply::uploadProgress, &TarvisNet::replyUploadProgress);
    toClient(&QNetworkReply::encrypted, &TarvisNet::replyEncrypted);
}
