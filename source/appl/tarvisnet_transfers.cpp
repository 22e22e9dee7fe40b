#include "tarvisnet.h"

#include "errorcodes.h"
#include "readbuffer_p.h"
#include "tarvisnet_p.h"

#include <QtCore/QVector>

#include <algorithm>
#include <functional>
#include <limits>
#include <utility>

/// \file
/// A request from the moment it is sent until its result is delivered.

namespace {

/// A reply that finished without an error.
struct Answer {
    const char *function;
    const QNetworkReply *reply;
    QString url;
    Transfer transfer;
};

using Delivery = void (*)(TarvisNetPrivate &client, const Answer &answer);

template <void (TarvisNet::*signal)(QJsonDocument, QString)>
void deliverJson(TarvisNetPrivate &client, const Answer &answer)
{
    Q_EMIT std::invoke(signal, client.q, QJsonDocument::fromJson(answer.transfer.answer),
                       answer.url);
}

/// As Qt lists them: of a body that was decoded it leaves the length out, which does not hold.
QList<QNetworkReply::RawHeaderPair> headersOf(const Answer &answer)
{
    QList<QNetworkReply::RawHeaderPair> headers = answer.reply->rawHeaderPairs();
    const auto isLength = [](const QNetworkReply::RawHeaderPair &header) {
        return header.first.compare("Content-Length", Qt::CaseInsensitive) == 0;
    };
    if (isDecodedHere(answer.transfer, *answer.reply))
        headers.erase(std::remove_if(headers.begin(), headers.end(), isLength), headers.end());
    return headers;
}

template <void (TarvisNet::*signal)(QByteArray, QString, QList<QNetworkReply::RawHeaderPair>)>
void deliverFile(TarvisNetPrivate &client, const Answer &answer)
{
    const QByteArray &body = answer.transfer.answer;
    const QString path = client.rawFileSavePath;
    if (!body.isEmpty() && !path.isEmpty() && !savedfile::overwriteStart(path, body))
        clientLog.warning(answer.function) << "Error opening file to save" << path;
    Q_EMIT std::invoke(signal, client.q, body, answer.url, headersOf(answer));
}

void deliverDownload(TarvisNetPrivate &client, const Answer &answer)
{
    TarvisNet *const q = client.q;
    const ReplyData &record = answer.transfer.record;
    if (record.replyType == replies::remote_installer)
        clientLog.debug(answer.function) << "<TarvisNet::handleReply> Installer finished";
    const bool isToBePlaced =
        !answer.transfer.checkedFile && client.rules->putsInPlace(record.replyType);
    if (isToBePlaced && !q->renameTemporaryFile(record.fileData))
        client.report({errorcodes::file_not_completed, answer.url, answer.reply, QJsonDocument(),
                       record.fileData});
    else
        Q_EMIT q->s_finished(answer.url);
}

void deliverChangeLog(TarvisNetPrivate &client, const Answer &answer)
{
    Q_EMIT client.q->s_fetchInstallerChangeLogData(answer.transfer.answer, answer.url);
}

void deliverCheckSum(TarvisNetPrivate & /*client*/, const Answer &answer)
{
    clientLog.debug(answer.function) << "<TarvisNet::handleReply> Installer check summ finished";
}

void deliverDeleted(TarvisNetPrivate &client, const Answer &answer)
{
    Q_EMIT client.q->s_rawDeleteFinished(answer.url);
}

void deliverUnknown(TarvisNetPrivate &client, const Answer &answer)
{
    clientLog.warning(answer.function) << "<TarvisNet::handleReply> Uknown reply type";
    client.report({errorcodes::unknown_reply, answer.url, answer.reply});
}

struct Result {
    QLatin1String replyType;
    Delivery deliver;
};

constexpr Result results[] = {
    {replies::remote_index, deliverJson<&TarvisNet::s_fetchIndex>},
    {replies::remote_definition, deliverJson<&TarvisNet::s_fetchDefinition>},
    {replies::remote_binary, deliverDownload},
    {replies::remote_installer, deliverDownload},
    {replies::remote_installer_log, deliverChangeLog},
    {replies::remote_installer_sum, deliverCheckSum},
    {replies::raw_get, deliverJson<&TarvisNet::s_rawGet>},
    {replies::raw_post, deliverJson<&TarvisNet::s_rawPost>},
    {replies::raw_get_file, deliverFile<&TarvisNet::s_rawGetFileFinished>},
    {replies::raw_post_file, deliverFile<&TarvisNet::s_rawPostFileFinished>},
    {replies::raw_patch, deliverJson<&TarvisNet::s_rawPathFinished>},
    {replies::raw_delete, deliverDeleted},
};

/// How large the file may get. One that is checked is written also when nobody knows its size.
quint64 greatestSize(const Transfer &transfer)
{
    const quint64 size = transfer.record.fileData.size;
    return size == 0 && transfer.checkedFile ? std::numeric_limits<quint64>::max() : size;
}

} // namespace

void TarvisNetPrivate::start(ReplyData record)
{
    Transfer transfer;
    transfer.request = record.request;
    transfer.body = std::exchange(record.data, QByteArray());
    transfer.isGet = isSentByGet(record.replyType);
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
    // Nobody else asks for it.
    if (rules->isolatesFailures())
        transfer.server = replyinfo::serverOf(transfer.request.url());
    QNetworkReply *reply = send(transfer);
    if (!file(reply, transfer))
        return;
    if (replyinfo::isFileKind(transfer.record.replyType))
        readbuffer::limit(reply, greatestSize(transfer));
    if (transfer.checkedFile) {
        const auto judge = [this, reply] { takeFile(reply); };
        QObject::connect(reply, &QNetworkReply::metaDataChanged, q, judge);
    }
    watch(reply);
    probeServer(transfer);
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

void TarvisNet::replyReadyRead()
{
    const QPointer<QNetworkReply> reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply) {
        clientLog.warning(Q_FUNC_INFO) << "Reply sender uknown";
        return;
    }
    const ActiveCall call(this, d->managers);
    d->noteActivity(reply);
    const auto found = d->transfers.find(reply);
    Transfer *transfer = found == d->transfers.end() ? nullptr : &*found;
    if (collectArrived(clientEngine, Q_FUNC_INFO, *d->rules, reply, transfer))
        saveBinary(reply);
    else
        d->judgeBody(reply);
    if (reply)
        readbuffer::releaseUnread(reply);
}

void TarvisNet::replyFinished()
{
    const QPointer<QNetworkReply> reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply) {
        clientLog.warning(Q_FUNC_INFO) << "QNetworkReply sender nullptr!";
        return;
    }
    if (d->goesOn(reply) || redirectReply(reply))
        return;
    const ActiveCall call(this, d->managers);
    if (d->transfers.contains(reply)) {
        d->conclude(reply);
    } else {
        // The probe's replies are the probe's own business.
        if (reply->url() == d->remotePing->getUrl())
            return;
        clientLog.warning(Q_FUNC_INFO) << "<TarvisNet::replyFinished> Uknown reply.";
        d->report({errorcodes::unknown_reply, replyinfo::urlText(reply), reply});
        if (call.ownerGone())
            return;
        if (reply)
            d->release(reply);
        d->stopPing();
    }
}

QUrl TarvisNetPrivate::firstUrl(QNetworkReply *reply) const
{
    const auto transfer = transfers.constFind(reply);
    const bool isElsewhere = transfer != transfers.cend()
        && (transfer->redirects > 0 || (transfer->isRedirected && rules->isolatesFailures()));
    return isElsewhere ? transfer->record.request.url() : reply->url();
}

QString TarvisNetPrivate::urlText(QNetworkReply *reply) const
{
    return reply ? firstUrl(reply).toString() : QString();
}

void TarvisNetPrivate::conclude(QNetworkReply *finished)
{
    const ActiveCall call(q, managers);
    const QPointer<QNetworkReply> reply = finished;
    transfers[reply].isAnswered = true;
    q->handleReply(reply);
    if (!call.ownerGone() && reply)
        q->removeReply(reply);
    if (!call.ownerGone())
        stopPing();
}

void TarvisNet::handleReply(QNetworkReply *_reply)
{
    const ActiveCall call(this, d->managers);
    // A loop, not a recursion: a chain of redirects may be longer than the stack is deep.
    QVector<QPointer<QNetworkReply>> redirected;
    for (QNetworkReply *reply = d->settle(Q_FUNC_INFO, _reply); reply;
         reply = d->settle(Q_FUNC_INFO, reply)) {
        redirected.append(reply);
    }
    while (!redirected.isEmpty() && !call.ownerGone()) {
        const QPointer<QNetworkReply> reply = redirected.takeLast();
        if (reply)
            removeReply(reply);
        if (reply && !call.ownerGone())
            d->release(reply);
    }
}

QNetworkReply *TarvisNetPrivate::settle(const char *function, QNetworkReply *reply)
{
    const QString url = urlText(reply);
    if (!transfers.contains(reply))
        clientLog.warning(function) << "NO reply!" << url;
    if (reply && reply->error() != QNetworkReply::NoError) {
        clientLog.warning(function) << "<TarvisNet::handleReply> Network error: \n"
                                    << " code: " << reply->error() << "\n"
                                    << " text: " << reply->errorString() << "\n";
        return nullptr;
    }
    const Transfer transfer = transfers.value(reply);
    if (transfer.record.replyType == replies::redirect_reply)
        return handBack(function, transfer);
    const Result *result = replyinfo::findRow(results, transfer.record.replyType);
    const Delivery deliver = result ? result->deliver : deliverUnknown;
    deliver(*this, {function, reply, url, transfer});
    return nullptr;
}
