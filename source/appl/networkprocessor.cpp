#include "networkprocessor.h"

#include "errorcodes.h"
#include "lifetime_p.h"
#include "networkprocessor_p.h"
#include "qtversion_p.h"
#include "readbuffer_p.h"
#include "replyinfo_p.h"

#include <QtCore/QPointer>

#include <utility>

NetworkProcessor::NetworkProcessor(QObject *parent)
    : QObject(parent)
    , d(new NetworkProcessorPrivate)
{
    d->manager.reset(new QNetworkAccessManager);
    processorLog.debug(Q_FUNC_INFO) << "NetworkProcessor ctor";
}

NetworkProcessor::~NetworkProcessor()
{
    processorLog.debug(Q_FUNC_INFO) << "NetworkProcessor dtor";
}

void NetworkProcessor::startGet(ReplyData _data)
{
    d->file(get(_data.request), _data);
}

void NetworkProcessor::startPost(ReplyData _data, QByteArray _ba)
{
    d->file(post(_data.request, _ba), _data);
}

QNetworkReply *NetworkProcessor::get(QNetworkRequest request)
{
    QNetworkReply *reply = d->manager->get(qtversion::settled(request));
    createReplyConnections(reply);
    return reply;
}

QNetworkReply *NetworkProcessor::post(QNetworkRequest request, QByteArray data)
{
    QNetworkReply *reply = d->manager->post(qtversion::settled(request), data);
    createReplyConnections(reply);
    return reply;
}

void NetworkProcessor::createReplyConnections(QNetworkReply *reply)
{
    if (!reply)
        return;
    const auto follow = [this, reply](auto signal, auto slot) {
        connect(reply, signal, this, slot, Qt::DirectConnection);
    };
    follow(&QNetworkReply::finished, &NetworkProcessor::replyFinished);
    follow(&QIODevice::readyRead, &NetworkProcessor::replyReadyRead);
    follow(&QNetworkReply::sslErrors, &NetworkProcessor::replySslErrors);
    // By name, because the signal of Qt 5 shares its name with the getter.
    connect(reply, qtversion::errorSignal(), this, SLOT(replyError(QNetworkReply::NetworkError)),
            Qt::DirectConnection);
    follow(&QNetworkReply::downloadProgress, &NetworkProcessor::replyDownloadProgress);
    follow(&QNetworkReply::uploadProgress, &NetworkProcessor::replyUploadProgress);
}

void NetworkProcessor::replyReadyRead()
{
    const QPointer<QNetworkReply> reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply)
        return;
    const ActiveCall call(this, d->manager);
    const auto found = d->activeReplies.find(reply);
    Transfer *transfer = found == d->activeReplies.end() ? nullptr : &*found;
    if (collectArrived(processorEngine, Q_FUNC_INFO, d->rules, reply, transfer))
        saveBinary(reply);
    if (reply)
        readbuffer::releaseUnread(reply);
}

void NetworkProcessor::saveBinary(QNetworkReply *_reply)
{
    if (!d->activeReplies.contains(_reply)) {
        processorLog.debug(Q_FUNC_INFO) << "<NetworkProcessor::saveBinary> Unrecognized reply";
        return;
    }
    Transfer &active = d->activeReplies[_reply];
    if (active.record.fileData.filePath.isEmpty())
        return;
    if (active.file.append(_reply) == DownloadFile::Append::OpenFailed) {
        processorLog.debug(Q_FUNC_INFO)
            << "<NetworkProcessor::saveBinary> Error opening file to write.";
        Q_EMIT s_errorChanged(errorcodes::file_open_failed, replyinfo::urlText(_reply));
    }
}

void NetworkProcessor::replyFinished()
{
    processorLog.debug(Q_FUNC_INFO) << "<NetworkProcessor::replyFinished>";
    const QPointer<QNetworkReply> reply = qobject_cast<QNetworkReply *>(sender());
    if (redirectReply(reply))
        return;
    const ActiveCall call(this, d->manager);
    if (d->activeReplies.contains(reply)) {
        handleReply(reply);
        if (!call.ownerGone())
            d->activeReplies.remove(reply);
    } else {
        processorLog.debug(Q_FUNC_INFO) << "<NetworkProcessor::replyFinished> Uknown reply.";
        Q_EMIT s_errorChanged(errorcodes::unknown_reply, QString());
    }
    if (reply) {
        reply->abort();
        reply->deleteLater();
    }
}

bool NetworkProcessor::redirectReply(QNetworkReply *_reply)
{
    const std::optional<QUrl> target = replyinfo::redirectTarget(_reply);
    if (!target)
        return false;
    processorLog.debug(Q_FUNC_INFO)
        << "<NetworkProcessor::redirectReply> redirect reply: " << target->toString();
    if (d->activeReplies.contains(_reply)) {
        processorLog.debug(Q_FUNC_INFO) << "<NetworkProcessor::redirectReply> Find previos target, "
                                           "set to redirect attribute";
    }
    const Transfer transfer = d->activeReplies.value(_reply);
    d->file(get(d->rules.redirectRequest(*target, d->sslConfiguration)), transfer);
    processorLog.debug(Q_FUNC_INFO) << "<NetworkProcessor::redirectReply> redirect send.";
    return true;
}

void NetworkProcessor::handleReply(QNetworkReply *_reply)
{
    if (!_reply || _reply->error() != QNetworkReply::NoError)
        return;
    NetworkProcessorPrivate::deliver(*this, Q_FUNC_INFO, replyinfo::urlText(_reply),
                                     d->activeReplies.value(_reply));
}

void NetworkProcessor::replyError(QNetworkReply::NetworkError code)
{
    processorLog.debug(Q_FUNC_INFO) << "<NetworkProcessor::replyError> Network error: \n"
                                    << " code: " << code << "\n";
    const QString url = replyinfo::urlText(qobject_cast<QNetworkReply *>(sender()));
    const short errorCode = d->rules.errorRule(code).processorCode;
    const ActiveCall call(this, d->manager);
    if (errorCode != 0)
        Q_EMIT s_errorChanged(errorCode, url);
}

void NetworkProcessor::replySslErrors(QList<QSslError> listErr)
{
    const ActiveCall call(this, d->manager);
    if (!replylog::logSslErrors(processorEngine, Q_FUNC_INFO, listErr))
        Q_EMIT s_errorChanged(errorcodes::ssl_error_list_empty, QString());
    else if (auto *reply = qobject_cast<QNetworkReply *>(sender()))
        reply->ignoreSslErrors();
}

void NetworkProcessor::replyDownloadProgress(qlonglong _received, qlonglong _total)
{
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    const QString url = replyinfo::urlText(reply);
    const FileData file = d->activeReplies.value(reply).record.fileData;
    const qlonglong loaded = _received + file.resumeOffset;
    const quint64 full = file.size;
    // Unguarded on purpose: without a size the percentage is infinite, and receivers know that.
    const double percentage = replyinfo::percentage(loaded, full);
    processorLog.debug(Q_FUNC_INFO)
        << "DownloadProgress "
        << " received: " << _received << " total: " << _total << " loaded: " << loaded
        << " full: " << full << " complete: " << percentage << " % ";
    const ActiveCall call(this, d->manager);
    Q_EMIT s_downloadFileBytesProgress(loaded, qlonglong(full), url);
    if (!call.ownerGone())
        Q_EMIT s_downloadFileProgress(percentage, url);
}

void NetworkProcessor::replyUploadProgress(qlonglong _sent, qlonglong _total)
{
    constexpr replylog::UploadTexts texts = {
        "<NetworkProcessor::replyUploadProgress> Upload complete",
        "<NetworkProcessor::replyUploadProgress> No bytes avalible"};
    const QString url = replyinfo::urlText(qobject_cast<QNetworkReply *>(sender()));
    const ActiveCall call(this, d->manager);
    if (const std::optional<double> percentage =
            replylog::uploadPercentage(processorEngine, Q_FUNC_INFO, texts, _sent, _total))
        Q_EMIT s_uploadFileProgress(*percentage, url);
}

void NetworkProcessor::debugHeader(QNetworkReply *_reply)
{
    constexpr replylog::HeaderTexts texts = {"<NetworkProcessor::debugHeader> Header: ",
                                             "<NetworkProcessor::debugHeader> Content-Length: "};
    if (_reply)
        replylog::logHeaders(processorEngine, Q_FUNC_INFO, texts, _reply);
}

void NetworkProcessorPrivate::file(QNetworkReply *reply, Transfer transfer)
{
    if (activeReplies.contains(reply))
        return;
    const FileData &file = transfer.record.fileData;
    if (replyinfo::isFileKind(transfer.record.replyType))
        readbuffer::limit(reply, file.size);
    transfer.file = DownloadFile(file.filePath, file.size);
    activeReplies.insert(reply, transfer);
}

void NetworkProcessorPrivate::file(QNetworkReply *reply, const ReplyData &record)
{
    Transfer transfer;
    transfer.record = record;
    transfer.answer = std::exchange(transfer.record.data, QByteArray());
    file(reply, transfer);
}

#include "moc_networkprocessor.cpp" // NOLINT(bugprone-suspicious-include): that is what moc makes it for.
