#include "tarvisnet.h"

#include "errorcodes.h"
#include "tarvisnet_p.h"

#include <QtCore/QMetaMethod>
#include <QtCore/QVector>
#include <QtNetwork/QSslCertificate>

#include <algorithm>
#include <functional>
#include <iterator>

namespace {

/// A reply that finished without an error.
struct Answer {
    const char *function;
    const QNetworkReply *reply;
    QString url;
    ReplyData record;
};

using Delivery = void (*)(TarvisNetPrivate &client, const Answer &answer);

template <void (TarvisNet::*signal)(QJsonDocument, QString)>
void deliverJson(TarvisNetPrivate &client, const Answer &answer)
{
    Q_EMIT std::invoke(signal, client.q, QJsonDocument::fromJson(answer.record.data), answer.url);
}

template <void (TarvisNet::*signal)(QByteArray, QString, QList<QNetworkReply::RawHeaderPair>)>
void deliverFile(TarvisNetPrivate &client, const Answer &answer)
{
    const QByteArray &body = answer.record.data;
    const QString path = client.rawFileSavePath;
    if (!body.isEmpty() && !path.isEmpty() && !savedfile::overwriteStart(path, body))
        clientLog.warning(answer.function) << "Error opening file to save" << path;
    Q_EMIT std::invoke(signal, client.q, body, answer.url, answer.reply->rawHeaderPairs());
}

void deliverBinary(TarvisNetPrivate &client, const Answer &answer)
{
    TarvisNet *const q = client.q;
    if (q->renameTemporaryFile(answer.record.fileData))
        Q_EMIT q->s_finished(answer.url);
    else
        Q_EMIT q->s_errorChanged(errorcodes::file_not_completed, answer.url, QJsonDocument());
}

void deliverInstaller(TarvisNetPrivate &client, const Answer &answer)
{
    clientLog.debug(answer.function) << "<TarvisNet::handleReply> Installer finished";
    Q_EMIT client.q->s_finished(answer.url);
}

void deliverChangeLog(TarvisNetPrivate &client, const Answer &answer)
{
    Q_EMIT client.q->s_fetchInstallerChangeLogData(answer.record.data, answer.url);
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
    Q_EMIT client.q->s_errorChanged(errorcodes::unknown_reply, answer.url, QJsonDocument());
}

struct Route {
    QLatin1String replyType;
    Delivery deliver;
};

constexpr Route routes[] = {
    {replies::remote_index, deliverJson<&TarvisNet::s_fetchIndex>},
    {replies::remote_definition, deliverJson<&TarvisNet::s_fetchDefinition>},
    {replies::remote_binary, deliverBinary},
    {replies::remote_installer, deliverInstaller},
    {replies::remote_installer_log, deliverChangeLog},
    {replies::remote_installer_sum, deliverCheckSum},
    {replies::raw_get, deliverJson<&TarvisNet::s_rawGet>},
    {replies::raw_post, deliverJson<&TarvisNet::s_rawPost>},
    {replies::raw_get_file, deliverFile<&TarvisNet::s_rawGetFileFinished>},
    {replies::raw_post_file, deliverFile<&TarvisNet::s_rawPostFileFinished>},
    {replies::raw_patch, deliverJson<&TarvisNet::s_rawPathFinished>},
    {replies::raw_delete, deliverDeleted},
};

} // namespace

void TarvisNet::replyReadyRead()
{
    const QPointer<QNetworkReply> reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply) {
        clientLog.warning(Q_FUNC_INFO) << "Reply sender uknown";
        return;
    }
    const ActiveCall call(this, d->manager);
    const auto active = d->replies.find(reply);
    ReplyData *record = active == d->replies.end() ? nullptr : &active->record;
    if (replytools::collect(clientEngine, Q_FUNC_INFO, reply, record))
        saveBinary(reply);
    if (reply)
        replytools::releaseUnreadBytes(reply);
}

void TarvisNet::replyFinished()
{
    const QPointer<QNetworkReply> reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply) {
        clientLog.warning(Q_FUNC_INFO) << "QNetworkReply sender nullptr!";
        return;
    }
    if (redirectReply(reply))
        return;
    const ActiveCall call(this, d->manager);
    if (d->replies.contains(reply)) {
        handleReply(reply);
        if (!call.ownerGone() && reply)
            removeReply(reply);
    } else {
        // The probe's replies are the probe's own business.
        if (reply->url() == d->remotePing->getUrl())
            return;
        clientLog.warning(Q_FUNC_INFO) << "<TarvisNet::replyFinished> Uknown reply.";
        Q_EMIT s_errorChanged(errorcodes::unknown_reply, replytools::urlText(reply),
                              QJsonDocument());
        if (reply)
            reply->deleteLater();
    }
    if (!call.ownerGone())
        d->stopPing();
}

void TarvisNet::handleReply(QNetworkReply *_reply)
{
    const ActiveCall call(this, d->manager);
    // A loop, not a recursion: a chain of redirects may be longer than the stack is deep.
    QVector<QPointer<QNetworkReply>> redirected;
    for (QNetworkReply *reply = d->route(Q_FUNC_INFO, _reply); reply;
         reply = d->route(Q_FUNC_INFO, reply)) {
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

bool TarvisNet::redirectReply(QNetworkReply *_reply)
{
    const std::optional<QUrl> target = replytools::redirectTarget(_reply);
    if (!target)
        return false;
    clientLog.debug(Q_FUNC_INFO) << "<TarvisNet::redirectReply> redirect reply:"
                                 << target->toString();
    ActiveReply next;
    if (d->replies.contains(_reply)) {
        clientLog.debug(Q_FUNC_INFO) << " Find previos target, set to redirect attribute";
        next.record = d->record(_reply);
        next.record.data.clear();
        next.record.directReply = _reply;
        next.record.replyType = replies::redirect_reply;
        next.redirected = _reply;
    }
    QNetworkReply *reply = d->get(replytools::redirectRequest(*target, d->sslConfiguration));
    if (!d->replies.contains(reply))
        d->replies.insert(reply, next);
    clientLog.debug(Q_FUNC_INFO) << "<TarvisNet::redirectReply> redirect send.";
    return true;
}

void TarvisNet::replyError(QNetworkReply::NetworkError code)
{
    clientLog.debug(Q_FUNC_INFO) << "<TarvisNet::replyError> Network error: \n"
                                 << " code: " << code << "\n";
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    const QString url = replytools::urlText(reply);
    QJsonDocument document;
    if (reply) {
        document = QJsonDocument::fromJson(d->record(reply).data);
        clientLog.debug(Q_FUNC_INFO) << "Error on: " << url << " \n"
                                     << " text: " << reply->errorString() << " \n"
                                     << " http status: " << replytools::httpStatus(reply);
    } else {
        clientLog.warning(Q_FUNC_INFO) << "Unable ot get sender request!";
    }

    const ActiveCall call(this, d->manager);
    const replytools::ErrorRule rule = replytools::errorRule(code);
    if (rule.clientCode != 0)
        Q_EMIT s_errorChanged(rule.clientCode, url, document);
    if (rule.aborts && !call.ownerGone())
        abortDownload(QString());
}

void TarvisNet::replySslErrors(QList<QSslError> listErr)
{
    const ActiveCall call(this, d->manager);
    if (!replytools::logSslErrors(clientEngine, Q_FUNC_INFO, listErr))
        Q_EMIT s_errorChanged(errorcodes::ssl_error_list_empty, QString(), QJsonDocument());
    else if (auto *reply = qobject_cast<QNetworkReply *>(sender()))
        reply->ignoreSslErrors();
}

void TarvisNet::replyEncrypted()
{
    const QPointer<QNetworkReply> reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply) {
        clientLog.warning(Q_FUNC_INFO) << "QNetworkReply sender nullptr!";
        return;
    }
    const QSslCertificate certificate = reply->sslConfiguration().peerCertificate();
    if (!certificate.isNull() && !certificate.isBlacklisted())
        return;
    const QString url = replytools::urlText(reply);
    clientLog.warning(Q_FUNC_INFO)
        << (certificate.isNull() ? "Null cert" : "Blacklist cert (untrust)")
        << certificate.issuerDisplayName() << certificate.subjectDisplayName() << "abort" << url;
    const ActiveCall call(this, d->manager);
    Q_EMIT s_errorChanged(errorcodes::ssl_handshake_failed, url, QJsonDocument());
    if (!call.ownerGone())
        killReply(reply);
}

void TarvisNet::replyDownloadProgress(qlonglong _received, qlonglong _total)
{
    if (_received <= 0)
        return;
    // Every small answer has its progress too, which hardly anybody listens to.
    static const QMetaMethod signalsOfProgress[] = {
        QMetaMethod::fromSignal(&TarvisNet::s_downloadFileBytesProgress),
        QMetaMethod::fromSignal(&TarvisNet::s_downloadFileProgress),
    };
    const bool isHeard =
        std::any_of(std::begin(signalsOfProgress), std::end(signalsOfProgress),
                    [this](const QMetaMethod &signal) { return isSignalConnected(signal); });
    if (!isHeard)
        return;
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    const QString url = replytools::urlText(reply);
    const FileData file = d->record(reply).fileData;
    const qlonglong bytes = file.resumeOffset + _received;
    double percentage = 0;
    if (file.size != 0)
        percentage = replytools::percentage(bytes, file.size);
    else if (_total > 0)
        percentage = replytools::percentage(_received, _total);

    const ActiveCall call(this, d->manager);
    Q_EMIT s_downloadFileBytesProgress(bytes, qlonglong(file.size), url);
    if (!call.ownerGone())
        Q_EMIT s_downloadFileProgress(percentage, url);
}

void TarvisNet::replyUploadProgress(qlonglong _sent, qlonglong _total)
{
    constexpr replytools::UploadTexts texts = {"<TarvisNet::UploadProgress> Upload complete",
                                               "<TarvisNet::UploadProgress> no bytes avalible"};
    const auto *reply = qobject_cast<QNetworkReply *>(sender());
    const std::optional<double> percentage =
        replytools::uploadPercentage(clientEngine, Q_FUNC_INFO, texts, _sent, _total);
    const ActiveCall call(this, d->manager);
    if (percentage)
        Q_EMIT s_uploadFileProgress(*percentage, replytools::urlText(reply));
}

void TarvisNet::debugHeader(QNetworkReply *_reply)
{
    constexpr replytools::HeaderTexts texts = {"<TarvisNet::debugHeader> Header:",
                                               "<TarvisNet::debugHeader> Content-Length:"};
    if (_reply && !_reply->rawHeaderList().isEmpty())
        replytools::logHeaders(clientEngine, Q_FUNC_INFO, texts, _reply);
}

QNetworkReply *TarvisNetPrivate::route(const char *function, QNetworkReply *reply)
{
    const QString url = replytools::urlText(reply);
    if (!replies.contains(reply))
        clientLog.warning(function) << "NO reply!" << url;
    if (reply && reply->error() != QNetworkReply::NoError) {
        clientLog.warning(function) << "<TarvisNet::handleReply> Network error: \n"
                                    << " code: " << reply->error() << "\n"
                                    << " text: " << reply->errorString() << "\n";
        return nullptr;
    }
    const ActiveReply active = replies.value(reply);
    if (active.record.replyType == replies::redirect_reply)
        return handBack(function, active);
    const Route *route = replytools::findRow(routes, active.record.replyType);
    const Delivery deliver = route ? route->deliver : deliverUnknown;
    deliver(*this, {function, reply, url, active.record});
    return nullptr;
}

QNetworkReply *TarvisNetPrivate::handBack(const char *function, const ActiveReply &hop)
{
    clientLog.debug(function) << "<TarvisNet::handleReply> Redirect finished";
    if (!hop.record.directReply)
        return nullptr;
    if (!hop.redirected || !replies.contains(hop.redirected)) {
        clientLog.warning(function) << "<TarvisNet::handleReply> Direct reply NOT found";
        return nullptr;
    }
    clientLog.debug(function) << "<TarvisNet::handleReply> Found direct reply";
    replies[hop.redirected].record.data = hop.record.data;
    return hop.redirected;
}
