#include "transfer_p.h"

#include "bodydecoder_p.h"
#include "replyinfo_p.h"

namespace {

// How much is taken at a time: what is too long need not be read to its end.
constexpr qint64 decodedPiece = qint64(64) * 1024;

QByteArray codingOf(const Transfer &transfer, const QNetworkReply &reply)
{
    return transfer.isCodingOurs ? reply.rawHeader("Content-Encoding") : QByteArray();
}

void keepUpToMaximum(QNetworkReply &reply, Transfer &transfer)
{
    if (!transfer.decoder) {
        transfer.decoder =
            QSharedPointer<BodyDecoder>::create(codingOf(transfer, reply), transfer.maximumAnswer);
    }
    while (transfer.decoder->state() == BodyDecoder::State::Good && reply.bytesAvailable() > 0)
        transfer.decoder->take(reply.read(decodedPiece), transfer.answer);
}

/// In place: a copy of the transfer would copy the whole body with every chunk.
void keep(QNetworkReply &reply, Transfer &transfer)
{
    if (transfer.maximumAnswer > 0)
        keepUpToMaximum(reply, transfer);
    else
        transfer.answer += reply.readAll();
}

} // namespace

bool isDecodedHere(const Transfer &transfer, const QNetworkReply &reply)
{
    return BodyDecoder::decodes(codingOf(transfer, reply));
}

Transfer::Transfer() = default;
Transfer::Transfer(const Transfer &other) = default;
Transfer &Transfer::operator=(const Transfer &other) = default;
Transfer::~Transfer() = default;

bool collectArrived(const replylog::Engine &engine, const char *function,
                    const TransferRules &rules, QNetworkReply *reply, Transfer *transfer)
{
    if (reply->error() != QNetworkReply::NoError) {
        engine.failure(function) << engine.text("replyReadyRead", "some error: ").constData()
                                 << reply->errorString();
        return false;
    }
    if (!transfer) {
        engine.log.warning(function)
            << engine.text("replyReadyRead", "Unrecognized reply").constData();
        return false;
    }
    const int status = replyinfo::httpStatus(reply);
    switch (rules.arrival(transfer->record.replyType, status)) {
    case Arrival::Saved:
        return true;
    case Arrival::Kept:
        keep(*reply, *transfer);
        break;
    case Arrival::Unread:
        replylog::logUnsavedStatus(engine, function, status);
        break;
    }
    return false;
}
