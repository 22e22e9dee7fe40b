#include "networkprocessor.h"

#include "downloadfile_p.h"
#include "errorcodes.h"
#include "lifetime_p.h"
#include "replytools_p.h"

#include <QtCore/QHash>
#include <QtCore/QPointer>
#include <QtCore/QSharedPointer>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QSslConfiguration>

#include <functional>

namespace {

constexpr MessageLog messages("../../source/appl/networkprocessor");
constexpr replytools::Engine engine = {messages, "NetworkProcessor", QtDebugMsg};

/// A reply that finished without an error.
struct Answer {
    const char *function;
    QString url;
    ReplyData record;
};

using Delivery = void (*)(NetworkProcessor &processor, const Answer &answer);

template <void (NetworkProcessor::*signal)(QJsonDocument, QString)>
void deliverJson(NetworkProcessor &processor, const Answer &answer)
{
    Q_EMIT std::invoke(signal, processor, QJsonDocument::fromJson(answer.record.data), answer.url);
}

void deliverDownload(NetworkProcessor &processor, const Answer &answer)
{
    Q_EMIT processor.s_finished(answer.url);
}

void deliverChangeLog(NetworkProcessor &processor, const Answer &answer)
{
    const QPointer<NetworkProcessor> guard(&processor);
    const QByteArray &body = answer.record.data;
    // As a C string: a NUL byte ends the text.
    Q_EMIT processor.s_fetchInstallerChangeLog(QString::fromUtf8(body.constData()), answer.url);
    if (guard)
        Q_EMIT processor.s_fetchInstallerChangeLogData(body, answer.url);
}

void deliverFile(NetworkProcessor &processor, const Answer &answer)
{
    const ReplyData &record = answer.record;
    if (!record.data.isEmpty()
        && !savedfile::overwriteStart(record.fileData.filePath, record.data)) {
        messages.debug(answer.function) << "<TarvisNet::handleReply> Error opening file to save.";
    }
    messages.debug(answer.function) << "<TarvisNet::handleReply> Raw file get finished";
    Q_EMIT processor.s_rawGetFileFinished(answer.url);
}

void deliverUnknown(NetworkProcessor &processor, const Answer &answer)
{
    Q_EMIT processor.s_errorChanged(errorcodes::unknown_reply, answer.url);
}

void deliverNothing(NetworkProcessor & /*processor*/, const Answer & /*answer*/) {}

struct Route {
    QLatin1String replyType;
    /// Logged first; null when the delivery has its own.
    const char *text;
    Delivery deliver;
};

// The texts have always named the client, whose answers these once were.
constexpr Route routes[] = {
    {replies::redirect_reply, "<TarvisNet::handleReply> Redirect finished", deliverNothing},
    {replies::remote_index, "<TarvisNet::handleReply> Index finished",
     deliverJson<&NetworkProcessor::s_fetchIndex>},
    {replies::remote_definition, "<TarvisNet::handleReply> Definition finished",
     deliverJson<&NetworkProcessor::s_fetchDefinition>},
    {replies::remote_binary, "<TarvisNet::handleReply> Binary finished", deliverDownload},
    {replies::remote_installer, "<TarvisNet::handleReply> Installer finished", deliverDownload},
    {replies::remote_installer_log, "<TarvisNet::handleReply> Installer change log finished",
     deliverChangeLog},
    {replies::remote_installer_sum, "<TarvisNet::handleReply> Installer check summ finished",
     deliverNothing},
    {replies::raw_get, "<TarvisNet::handleReply> Raw get finished",
     deliverJson<&NetworkProcessor::s_rawGet>},
    {replies::raw_post, "<TarvisNet::handleReply> Raw post finished",
     deliverJson<&NetworkProcessor::s_rawPost>},
    {replies::raw_get_file, nullptr, deliverFile},
};

constexpr Route unknownRoute = {QLatin1String(), "<TarvisNet::handleReply> Uknown reply",
                                deliverUnknown};

} // namespace

/// A request in flight.
struct ActiveRequest {
    ReplyData record;
    DownloadFile file;
};

struct NetworkProcessorPrivate {
    /// Files a reply that was just sent, unless it is known already.
    void file(QNetworkReply *reply, const ReplyData &record)
    {
        if (activeReplies.contains(reply))
            return;
        if (replytools::isFileKind(record.replyType))
            replytools::limitReadBuffer(reply, record.fileData.size);
        const FileData &file = record.fileData;
        activeReplies.insert(reply, {record, DownloadFile(file.filePath, file.size)});
    }

    QSharedPointer<QNetworkAccessManager> manager;
    QSslConfiguration sslConfiguration;
    QHash<QNetworkReply *, ActiveRequest> activeReplies;
};

NetworkProcessor::NetworkProcessor(QObject *parent)
    : QObject(parent)
    , d(new NetworkProcessorPrivate)
{
    d->manager.reset(new QNetworkAccessManager);
    messages.debug(Q_FUNC_INFO) << "NetworkProcessor ctor";
}

NetworkProcessor::~NetworkProcessor()
{
    messages.debug(Q_FUNC_INFO) << "NetworkProcessor dtor";
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
    QNetworkReply *reply = d->manager->get(request);
    createReplyConnections(reply);
    return reply;
}

QNetworkReply *NetworkProcessor::post(QNetworkRequest request, QByteArray data)
{
    QNetworkReply *reply = d->manager->post(request, data);
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
    // By name, because the signal shares its name with the getter.
    connect(reply, SIGNAL(error(QNetworkReply::NetworkError)), this,
            SLOT(replyError(QNetworkReply::NetworkError)), Qt::DirectConnection);
    follow(&QNetworkReply::downloadProgress, &NetworkProcessor::replyDownloadProgress);
    follow(&QNetworkReply::uploadProgress, &NetworkProcessor::replyUploadProgress);
}

void NetworkProcessor::replyReadyRead()
{
    const QPointer<QNetworkReply> reply = qobject_cast<QNetworkReply *>(sender());
    if (!reply)
        return;
    const ActiveCall call(this, d->manager);
    const auto active = d->activeReplies.find(reply);
    ReplyData *record = active == d->activeReplies.end() ? nullptr : &active->record;
    if (replytools::collect(engine, Q_FUNC_INFO, reply, record))
        saveBinary(reply);
    if (reply)
        replytools::releaseUnreadBytes(reply);
}

void NetworkProcessor::saveBinary(QNetworkReply *_reply)
{
    if (!d->activeReplies.contains(_reply)) {
        messages.debug(Q_FUNC_INFO) << "<NetworkProcessor::saveBinary> Unrecognized reply";
        return;
    }
    ActiveRequest &active = d->activeReplies[_reply];
    if (active.record.fileData.filePath.isEmpty())
        return;
    if (active.file.append(_reply) == DownloadFile::Append::OpenFailed) {
        messages.debug(Q_FUNC_INFO)
            << "<NetworkProcessor::saveBinary> Error opening file to write.";
        Q_EMIT s_errorChanged(errorcodes::file_open_failed, replytools::urlText(_reply));
    }
}

void NetworkProcessor::replyFinished()
{
    messages.debug(Q_FUNC_INFO) << "<NetworkProcessor::replyFinished>";
    const QPointer<QNetworkReply> reply = qobject_cast<QNetworkReply *>(sender());
    if (redirectReply(reply))
        return;
    const ActiveCall call(this, d->manager);
    if (d->activeReplies.contains(reply)) {
        handleReply(reply);
        if (!call.ownerGone())
            d->activeReplies.remove(reply);
    } else {
        messages.debug(Q_FUNC_INFO) << "<NetworkProcessor::replyFinished> Uknown reply.";
        Q_EMIT s_errorChanged(errorcodes::unknown_reply, QString());
    }
    if (reply) {
        reply->abort();
        reply->deleteLater();
    }
}

bool NetworkProcessor::redirectReply(QNetworkReply *_reply)
{
    const std::optional<QUrl> target = replytools::redirectTarget(_reply);
    if (!target)
        return false;
    messages.debug(Q_FUNC_INFO) << "<NetworkProcessor::redirectReply> redirect reply: "
                                << target->toString();
    if (d->activeReplies.contains(_reply)) {
        messages.debug(Q_FUNC_INFO) << "<NetworkProcessor::redirectReply> Find previos target, "
                                       "set to redirect attribute";
    }
    const ReplyData record = d->activeReplies.value(_reply).record;
    d->file(get(replytools::redirectRequest(*target, d->sslConfiguration)), record);
    messages.debug(Q_FUNC_INFO) << "<NetworkProcessor::redirectReply> redirect send.";
    return true;
}

void NetworkProcessor::handleReply(QNetworkReply *_reply)
{
    if (!_reply || _reply->error() != QNetworkReply::NoError)
        return;
    const Answer answer = {Q_FUNC_INFO, replytools::urlText(_reply),
                           d->activeReplies.value(_reply).record};
    const Route *known = replytools::findRow(routes, answer.record.replyType);
    const Route &route = known ? *known : unknownRoute;
    if (route.text)
        messages.debug(Q_FUNC_INFO) << route.text;
    route.deliver(*this, answer);
}

void NetworkProcessor::replyError(QNetworkReply::NetworkError code)
{
    messages.debug(Q_FUNC_INFO) << "<NetworkProcessor::replyError> Network error: \n"
                                << " code: " << code << "\n";
    const QString url = replytools::urlText(qobject_cast<QNetworkReply *>(sender()));
    const short errorCode = replytools::errorRule(code).processorCode;
    const ActiveCall call(this, d->manager);
    if (errorCode != 0)
        Q_EMIT s_errorChanged(errorCode, url);
}

void NetworkProcessor::replySslErrors(QList<QSslError> listErr)
{
    const ActiveCall call(this, d->manager);
    if (!replytools::logSslErrors(engine, Q_FUNC_INFO, listErr))
        Q_EMIT s_errorChanged(errorcodes::ssl_error_list_empty, QString());
    else if (auto *reply = qobject_cast<QNetworkReply *>(sender()))
        reply->ignoreSslErrors();
}

void NetworkProcessor::replyDownloadProgress(qlonglong _received, qlonglong _total)
{
    auto *reply = qobject_cast<QNetworkReply *>(sender());
    const QString url = replytools::urlText(reply);
    const FileData file = d->activeReplies.value(reply).record.fileData;
    const qlonglong loaded = _received + file.resumeOffset;
    const quint64 full = file.size;
    // Unguarded on purpose: without a size the percentage is infinite, and receivers know that.
    const double percentage = replytools::percentage(loaded, full);
    messages.debug(Q_FUNC_INFO) << "DownloadProgress "
                                << " received: " << _received << " total: " << _total
                                << " loaded: " << loaded << " full: " << full
                                << " complete: " << percentage << " % ";
    const ActiveCall call(this, d->manager);
    Q_EMIT s_downloadFileBytesProgress(loaded, qlonglong(full), url);
    if (!call.ownerGone())
        Q_EMIT s_downloadFileProgress(percentage, url);
}

void NetworkProcessor::replyUploadProgress(qlonglong _sent, qlonglong _total)
{
    constexpr replytools::UploadTexts texts = {
        "<NetworkProcessor::replyUploadProgress> Upload complete",
        "<NetworkProcessor::replyUploadProgress> No bytes avalible"};
    const QString url = replytools::urlText(qobject_cast<QNetworkReply *>(sender()));
    const ActiveCall call(this, d->manager);
    if (const std::optional<double> percentage =
            replytools::uploadPercentage(engine, Q_FUNC_INFO, texts, _sent, _total))
        Q_EMIT s_uploadFileProgress(*percentage, url);
}

void NetworkProcessor::debugHeader(QNetworkReply *_reply)
{
    constexpr replytools::HeaderTexts texts = {"<NetworkProcessor::debugHeader> Header: ",
                                               "<NetworkProcessor::debugHeader> Content-Length: "};
    if (_reply)
        replytools::logHeaders(engine, Q_FUNC_INFO, texts, _reply);
}
