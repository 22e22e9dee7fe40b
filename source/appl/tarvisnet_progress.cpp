#include "tarvisnet.h"

#include "tarvisnet_p.h"

namespace {

/// What the \a received bytes of a body have become.
qlonglong decodedSize(const Transfers &transfers, QNetworkReply *reply, qlonglong received)
{
    const auto transfer = transfers.constFind(reply);
    const bool isDecoded = transfer != transfers.cend() && isDecodedHere(*transfer, *reply);
    return isDecoded ? transfer->answer.size() : received;
}

} // namespace

void TarvisNet::replyDownloadProgress(qlonglong _received, qlonglong _total)
{
    if (_received <= 0)
        return;
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    d->noteActivity(reply);
    const QString url = d->urlText(reply);
    const FileData file = d->record(reply).fileData;
    const qlonglong bytes = file.resumeOffset + decodedSize(d->transfers, reply, _received);
    double percentage = 0;
    if (file.size != 0)
        percentage = replyinfo::percentage(bytes, file.size);
    else if (_total > 0)
        percentage = replyinfo::percentage(_received, _total);

    const ActiveCall call(this, d->managers);
    Q_EMIT s_downloadFileBytesProgress(bytes, qlonglong(file.size), url);
    if (!call.ownerGone())
        Q_EMIT s_downloadFileProgress(percentage, url);
}

void TarvisNet::replyUploadProgress(qlonglong _sent, qlonglong _total)
{
    constexpr replylog::UploadTexts texts = {"<TarvisNet::UploadProgress> Upload complete",
                                             "<TarvisNet::UploadProgress> no bytes avalible"};
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    d->noteActivity(reply);
    const std::optional<double> percentage =
        replylog::uploadPercentage(clientEngine, Q_FUNC_INFO, texts, _sent, _total);
    const ActiveCall call(this, d->managers);
    if (percentage)
        Q_EMIT s_uploadFileProgress(*percentage, d->urlText(reply));
}

void TarvisNet::debugHeader(QNetworkReply *_reply)
{
    constexpr replylog::HeaderTexts texts = {"<TarvisNet::debugHeader> Header:",
                                             "<TarvisNet::debugHeader> Content-Length:"};
    if (_reply && !_reply->rawHeaderList().isEmpty())
        replylog::logHeaders(clientEngine, Q_FUNC_INFO, texts, _reply);
}
