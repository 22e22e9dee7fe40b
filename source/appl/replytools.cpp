#include "replytools_p.h"

#include "errorcodes.h"

#include <QtNetwork/QSslConfiguration>

#include <algorithm>
#include <array>
#include <iterator>

namespace {

constexpr qint64 KiB = 1024;
constexpr qint64 MiB = 1024 * KiB;

// Below this size a bound costs more speed than the memory is worth.
constexpr quint64 boundedFromSize = 16 * MiB;
// Found by measurement: less slows plain HTTP down, more only takes memory.
constexpr qint64 plainReadBuffer = 4 * MiB;
// As much as Qt lets a TLS socket hold, which then goes on in one block. With any other bound it
// goes on in the 4 KiB that Qt decrypts at a time.
constexpr qint64 tlsReadBuffer = 64 * KiB;
// More than Qt ever takes in one block of a bounded reply.
constexpr int greatestBlock = 8 * MiB;

constexpr replytools::ErrorRule errorRules[] = {
    {QNetworkReply::OperationCanceledError, 0, 0, false},
    {QNetworkReply::SslHandshakeFailedError, errorcodes::ssl_handshake_failed,
     errorcodes::network_error, true},
    {QNetworkReply::UnknownNetworkError, errorcodes::unknown_network_error,
     errorcodes::unknown_network_error, true},
    {QNetworkReply::ContentNotFoundError, errorcodes::content_not_found,
     errorcodes::content_not_found, true},
    {QNetworkReply::AuthenticationRequiredError, errorcodes::authentication_required,
     errorcodes::network_error, false},
    {QNetworkReply::ProtocolInvalidOperationError, errorcodes::protocol_invalid_operation,
     errorcodes::network_error, false},
};

struct UnsavedStatus {
    int from;
    const char *text;
};

constexpr UnsavedStatus unsavedStatuses[] = {
    {500, "Server error: "},
    {400, "Client or network error: "},
    {300, "Redircet attribuie: "},
};

/// Appends what has arrived to \a body.
void readAvailable(QNetworkReply *reply, QByteArray &body)
{
    // To read less than this, QIODevice takes as much from the heap, which is the dearest part of
    // reading a small answer.
    std::array<char, 16 * KiB> bytes;
    const qint64 available = reply->bytesAvailable();
    if (available > qint64(bytes.size()))
        body += reply->read(available);
    else
        body.append(bytes.data(),
                    int(std::max<qint64>(0, reply->read(bytes.data(), bytes.size()))));
}

} // namespace

namespace replytools {

int httpStatus(const QNetworkReply *reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

QString urlText(const QNetworkReply *reply)
{
    return reply ? reply->url().toString() : QString();
}

bool isFileKind(const QString &replyType)
{
    return replyType == replies::remote_installer || replyType == replies::remote_binary;
}

std::optional<QUrl> redirectTarget(const QNetworkReply *reply)
{
    if (!reply)
        return std::nullopt;
    const QVariant target = reply->attribute(QNetworkRequest::RedirectionTargetAttribute);
    if (!target.isValid())
        return std::nullopt;
    return target.toUrl();
}

QNetworkRequest redirectRequest(const QUrl &target, const QSslConfiguration &sslConfiguration)
{
    QNetworkRequest request(target);
    request.setSslConfiguration(sslConfiguration);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QString(mime::wwwForm));
    return request;
}

ErrorRule errorRule(QNetworkReply::NetworkError error)
{
    const auto rule = std::find_if(std::begin(errorRules), std::end(errorRules),
                                   [error](const ErrorRule &row) { return row.error == error; });
    if (rule != std::end(errorRules))
        return *rule;
    return {error, errorcodes::network_error, errorcodes::network_error, true};
}

void limitReadBuffer(QNetworkReply *reply, quint64 expectedSize)
{
    if (expectedSize < boundedFromSize)
        return;
    // Taken only to be freed: until glibc has seen so large a block freed, it gives each block of
    // the download back to the system, and the system clears the pages each time.
    QByteArray().reserve(greatestBlock);
    const bool isTls = reply->url().scheme() == QLatin1String("https");
    reply->setReadBufferSize(isTls ? tlsReadBuffer : plainReadBuffer);
}

void releaseUnreadBytes(QNetworkReply *reply)
{
    if (reply->readBufferSize() > 0 && reply->bytesAvailable() > 0)
        reply->setReadBufferSize(0);
}

bool collect(const Engine &engine, const char *function, QNetworkReply *reply, ReplyData *record)
{
    if (reply->error() != QNetworkReply::NoError) {
        engine.failure(function) << engine.text("replyReadyRead", "some error: ").constData()
                                 << reply->errorString();
        return false;
    }
    if (!record) {
        engine.log.warning(function)
            << engine.text("replyReadyRead", "Unrecognized reply").constData();
        return false;
    }
    if (!isFileKind(record->replyType)) {
        // In place: a copy of the record would copy the whole body with every chunk.
        readAvailable(reply, record->data);
        return false;
    }
    const int status = httpStatus(reply);
    const auto unsaved = std::find_if(std::begin(unsavedStatuses), std::end(unsavedStatuses),
                                      [status](const auto &row) { return status >= row.from; });
    if (unsaved != std::end(unsavedStatuses)) {
        engine.log.debug(function)
            << engine.text("replyReadyRead", unsaved->text).constData() << status;
        return false;
    }
    return status >= 200;
}

bool logSslErrors(const Engine &engine, const char *function, const QList<QSslError> &errors)
{
    if (errors.isEmpty())
        engine.failure(function) << engine.text("replySslErrors", "Uknown error.").constData();
    const QByteArray text = engine.text("replySslErrors", "\n");
    for (const QSslError &error : errors)
        engine.log.debug(function) << text.constData() << " text: " << error.errorString();
    return !errors.isEmpty();
}

std::optional<double> uploadPercentage(const Engine &engine, const char *function,
                                       const UploadTexts &texts, qint64 sent, qint64 total)
{
    if (total > sent && sent != 0) {
        // Whole percents of a part are always 0: kept, because logs are compared across versions.
        engine.log.debug(function) << "UploadProgress "
                                   << " received: " << sent << " total: " << total
                                   << " complete: " << sent / total * 100 << " % ";
        return percentage(sent, total);
    }
    engine.log.debug(function) << (total > 0 && total == sent ? texts.complete : texts.nothing);
    return std::nullopt;
}

void logHeaders(const Engine &engine, const char *function, const HeaderTexts &texts,
                const QNetworkReply *reply)
{
    const QList<QByteArray> names = reply->rawHeaderList();
    for (const QByteArray &name : names)
        engine.log.debug(function) << texts.header << name << " value: " << reply->rawHeader(name);
    const QVariant contentLength = reply->header(QNetworkRequest::ContentLengthHeader);
    if (contentLength.isValid())
        engine.log.debug(function) << texts.contentLength << contentLength.toString();
    if (!reply->hasRawHeader("Accept-Ranges"))
        engine.log.debug(function) << "<TarvisNet::debugHeader> Accept-Ranges NONE.";
}

} // namespace replytools
