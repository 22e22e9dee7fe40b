#include "tarvisnet.h"

#include "readbuffer_p.h"
#include "tarvisnet_p.h"

#include <utility>

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

void TarvisNetPrivate::start(ReplyData record)
{
    Transfer transfer;
    transfer.request = record.request;
    transfer.body = std::exchange(record.data, QByteArray());
    transfer.isGet = !verbWithBody(record.replyType);
    transfer.isRepeatable = transfer.isGet;
    if (QNetworkReply *source = std::exchange(record.directReply, nullptr)) {
        transfer.isRedirected = true;
        // Only a reply in flight may be pointed to: this one may be gone.
        transfer.redirectSource = transfers.contains(source) ? source : nullptr;
    }
    transfer.record = record;
    transfer.checkedFile = checkedFile(record);
    if (const int msec = rules->limits().totalMsec)
        transfer.end.setRemainingTime(msec);
    attempt(transfer);
}

void TarvisNetPrivate::attempt(Transfer transfer)
{
    if (!prepareFile(transfer))
        return;
    ++transfer.attempts;
    const ReplyData record = transfer.record;
    QNetworkReply *reply = send(transfer);
    if (!file(reply, transfer))
        return;
    if (replyinfo::isFileKind(record.replyType))
        readbuffer::limit(reply, record.fileData.size);
    if (transfer.checkedFile) {
        const auto judge = [this, reply] { takeFile(reply); };
        QObject::connect(reply, &QNetworkReply::metaDataChanged, q, judge);
    }
    watch(reply);
    probeServer(transfer.request.url(), record.replyType);
}

bool TarvisNetPrivate::file(QNetworkReply *reply, Transfer transfer)
{
    if (transfers.contains(reply))
        return false;
    const FileData &file = transfer.record.fileData;
    transfer.file = DownloadFile(file.tempFilePath, rules->sizeToAppendTo(file));
    transfers.insert(reply, transfer);
    return true;
}

/// What a GET was given as its body has always been the beginning of its answer.
QNetworkReply *TarvisNetPrivate::send(Transfer &transfer)
{
    transfer.answer = transfer.isGet ? transfer.body : QByteArray();
    if (transfer.isGet)
        return get(transfer.request);
    const Verb *verb = verbWithBody(transfer.record.replyType);
    return (this->*verb->send)(transfer.request, transfer.body);
}

QNetworkReply *TarvisNetPrivate::get(const QNetworkRequest &request)
{
    return connected(manager->get(request));
}

QNetworkReply *TarvisNetPrivate::post(const QNetworkRequest &request, const QByteArray &data)
{
    return connected(manager->post(request, data));
}

QNetworkReply *TarvisNetPrivate::path(const QNetworkRequest &request, const QByteArray &data)
{
    return connected(manager->sendCustomRequest(request, "PATCH", data));
}

QNetworkReply *TarvisNetPrivate::deleteResource(const QNetworkRequest &request,
                                                const QByteArray &data)
{
    return connected(manager->sendCustomRequest(request, "DELETE", data));
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
