#include "replylog_p.h"

#include "replyinfo_p.h"

#include <algorithm>
#include <iterator>

namespace {

struct UnsavedStatus {
    int from;
    const char *text;
};

constexpr UnsavedStatus unsavedStatuses[] = {
    {500, "Server error: "},
    {400, "Client or network error: "},
    {300, "Redircet attribuie: "},
};

} // namespace

namespace replylog {

void logUnsavedStatus(const Engine &engine, const char *function, int status)
{
    const auto unsaved = std::find_if(std::begin(unsavedStatuses), std::end(unsavedStatuses),
                                      [status](const auto &row) { return status >= row.from; });
    if (unsaved != std::end(unsavedStatuses)) {
        engine.log.debug(function)
            << engine.text("replyReadyRead", unsaved->text).constData() << status;
    }
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
        // The integer quotient is always 0: kept, because logs are compared across versions.
        engine.log.debug(function) << "UploadProgress "
                                   << " received: " << sent << " total: " << total
                                   << " complete: " << sent / total * 100 << " % ";
        return replyinfo::percentage(sent, total);
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

} // namespace replylog
