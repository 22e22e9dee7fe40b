#include "tarvisnet.h"

#include "bodydecoder_p.h"
#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <algorithm>

/// \file
/// What a policy makes of a request whose reply has ended, or that nothing comes of.

NextStep TarvisNetPrivate::nextStep(QNetworkReply *reply) const
{
    const auto transfer = transfers.constFind(reply);
    const bool isOver = transfer == transfers.cend() || aborting.contains(reply);
    return isOver ? NextStep() : rules->nextStep(*transfer, *reply);
}

bool TarvisNetPrivate::goesOn(QNetworkReply *reply)
{
    if (rules->guardsAnswers() && aborting.contains(reply)) {
        // Whatever was answered before: that it was aborted is all that is told of it.
        forget(reply);
        return true;
    }
    const NextStep step = nextStep(reply);
    perform(step, reply);
    return step.kind != NextStep::Kind::AsEver;
}

void TarvisNetPrivate::forget(QNetworkReply *reply)
{
    const ActiveCall call(q, managers);
    q->removeReply(reply);
    if (!call.ownerGone())
        stopPing();
}

void TarvisNetPrivate::perform(const NextStep &step, QNetworkReply *reply)
{
    switch (step.kind) {
    case NextStep::Kind::AsEver:
        return;
    case NextStep::Kind::Redirect:
        redirect(reply, step);
        return;
    case NextStep::Kind::Retry:
        retry(reply, step.waitMsec);
        return;
    case NextStep::Kind::Reconnect:
        reconnect(reply);
        return;
    case NextStep::Kind::FinishFile:
        finishFile(reply);
        return;
    case NextStep::Kind::DropConnections:
        dropConnections(reply);
        return;
    case NextStep::Kind::Fail:
        fail(reply, step.code, step.reason);
        return;
    }
}

Transfer TarvisNetPrivate::withdraw(QNetworkReply *reply)
{
    const Transfer transfer = transfers.take(reply);
    reply->disconnect(q);
    abort(reply);
    release(reply);
    return transfer;
}

Transfer TarvisNetPrivate::withdrawAll(QNetworkReply *reply)
{
    return withdrawSources(withdraw(reply));
}

Transfer TarvisNetPrivate::withdrawSources(Transfer hop)
{
    while (hop.redirectSource && transfers.contains(hop.redirectSource))
        hop = withdraw(hop.redirectSource);
    return hop;
}

void TarvisNetPrivate::sendAgain(QNetworkReply *reply)
{
    attempt(withdraw(reply));
}

void TarvisNetPrivate::redirect(QNetworkReply *reply, const NextStep &step)
{
    Transfer next = withdraw(reply);
    next.request = *step.request;
    if (step.becomesGet) {
        next.isGet = true;
        next.body.clear();
    }
    ++next.redirects;
    --next.attempts; // The same one goes on.
    attempt(next);
}

void TarvisNetPrivate::reconnect(QNetworkReply *reply)
{
    managers->distrust(reply->manager());
    ++transfers[reply].retries;
    sendAgain(reply);
}

/// From its first URL, because where that leads may be what fails.
void TarvisNetPrivate::retry(QNetworkReply *reply, int waitMsec)
{
    const ActiveCall call(q, managers);
    leaveHttp2ConnectionOf(reply);
    Transfer next = withdrawAll(reply);
    next.request = next.record.request;
    next.isAnswered = false;
    next.redirects = 0;
    ++next.retries;
    const QDeadlineTimer due = std::min(QDeadlineTimer(waitMsec), next.end);
    waiting.emplace(due, next);
    wakeAt(due);
    placeFreed();
}

void TarvisNetPrivate::placeFreed()
{
    const ActiveCall call(q, managers);
    Q_EMIT q->s_repliesCountChanged();
    if (!call.ownerGone())
        stopPing();
}

void TarvisNetPrivate::fail(QNetworkReply *reply, short code, const char *reason)
{
    const ActiveCall call(q, managers);
    const Failure failure = failureOf(transfers.value(reply), reply, code, reason);
    // Told before the reply is aborted, which makes another error of it.
    const QJsonDocument document = rules->documentOf(failure);
    leaveHttp2ConnectionOf(reply);
    withdrawAll(reply);
    report(failure, document);
    if (!call.ownerGone())
        placeFreed();
}

void TarvisNetPrivate::fail(const Transfer &transfer, short code, const char *reason)
{
    const ActiveCall call(q, managers);
    report(failureOf(transfer, nullptr, code, reason));
    if (call.ownerGone())
        return;
    // Later: it may be one of many that cannot be sent at all, and the next one starts within.
    QMetaObject::invokeMethod(
        q, [this] { placeFreed(); }, Qt::QueuedConnection);
}

Failure TarvisNetPrivate::failureOf(const Transfer &transfer, const QNetworkReply *reply,
                                    short code, const char *reason) const
{
    Failure failure;
    failure.code = code;
    failure.url = transfer.record.request.url().toString();
    failure.reply = reply;
    failure.body = QJsonDocument::fromJson(transfer.answer);
    failure.file = transfer.record.fileData;
    failure.attempts = transfer.attempts;
    failure.reason = reason ? QString::fromLatin1(reason) : transfer.tlsFault;
    if (transfer.checkedFile)
        failure.received = qint64(transfer.checkedFile->receivedSize());
    return failure;
}

void TarvisNetPrivate::expire(QNetworkReply *reply)
{
    const Transfer transfer = transfers.value(reply);
    if (transfer.end.hasExpired())
        fail(reply, errorcodes::timed_out, tookTooLong);
    else
        perform(rules->stepAfterSilence(transfer), reply);
}

void TarvisNetPrivate::judgeBody(QNetworkReply *reply)
{
    const auto transfer = transfers.constFind(reply);
    if (transfer == transfers.cend() || !transfer->decoder)
        return;
    const QSharedPointer<BodyDecoder> decoder = transfer->decoder;
    if (decoder->state() == BodyDecoder::State::TooLong)
        fail(reply, errorcodes::body_too_large);
    else if (decoder->state() == BodyDecoder::State::Faulty)
        fail(reply, errorcodes::network_error, "The body is not compressed as the server says.");
}
