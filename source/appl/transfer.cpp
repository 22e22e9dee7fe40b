#include "transfer_p.h"

#include "replyinfo_p.h"

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
        // In place: a copy of the transfer would copy the whole body with every chunk.
        transfer->answer += reply->readAll();
        break;
    case Arrival::Unread:
        replylog::logUnsavedStatus(engine, function, status);
        break;
    }
    return false;
}
