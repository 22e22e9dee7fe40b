#ifndef TARVISNET_REPLYTOOLS_P_H
#define TARVISNET_REPLYTOOLS_P_H

#include "messagelog_p.h"
#include "records.h"

#include <QtCore/QList>
#include <QtCore/QUrl>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QSslError>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>

/// What both request engines, the client and the stand-alone processor, need of a reply. Where the
/// engines differ, the difference is an argument.
namespace replytools {

/// What tells the logs of the engines apart.
struct Engine {
    MessageLog log;
    /// Stands before the operation's name in the texts.
    const char *className;
    /// Level of the failures that the application need not know of.
    QtMsgType failureLevel;

    QDebug failure(const char *function, int line = __builtin_LINE()) const
    {
        return failureLevel == QtWarningMsg ? log.warning(function, line)
                                            : log.debug(function, line);
    }
    /// "<Class::operation> " and \a text.
    QByteArray text(const char *operation, const char *text) const
    {
        return QByteArray("<") + className + "::" + operation + "> " + text;
    }
};

/// The HTTP status; 0 when there is none.
int httpStatus(const QNetworkReply *reply);

/// The URL as results and errors carry it; empty for a null reply.
QString urlText(const QNetworkReply *reply);

/// The row of a table for \a replyType; null when there is none.
template <typename Row, std::size_t size>
const Row *findRow(const Row (&rows)[size], const QString &replyType)
{
    const auto row = std::find_if(std::begin(rows), std::end(rows), [&](const Row &candidate) {
        return replyType == candidate.replyType;
    });
    return row == std::end(rows) ? nullptr : row;
}

/// True for the kinds whose body goes to disk while it arrives.
bool isFileKind(const QString &replyType);

/// \a part of \a whole in percent, in single precision as the progress signals have always had it.
template <typename Part, typename Whole>
double percentage(Part part, Whole whole)
{
    return double(float(part) / float(whole) * 100.0F);
}

/// Where the server sends us instead, if it does. A redirect without a target gives an empty URL.
std::optional<QUrl> redirectTarget(const QNetworkReply *reply);

/// The request that follows a redirect: nothing of the first request is carried over.
QNetworkRequest redirectRequest(const QUrl &target, const QSslConfiguration &sslConfiguration);

/// What a network error means to the application.
struct ErrorRule {
    QNetworkReply::NetworkError error;
    /// Code that the client reports; 0 for none.
    short clientCode;
    /// Code that the stand-alone processor reports; 0 for none.
    short processorCode;
    /// Whether the client then aborts a running download.
    bool aborts;
};
ErrorRule errorRule(QNetworkReply::NetworkError error);

/// Bounds what Qt buffers of a download of \a expectedSize bytes.
void limitReadBuffer(QNetworkReply *reply, quint64 expectedSize);

/// Lifts that bound when bytes were left unread: with it the reply would wait for ever for somebody
/// to read them.
void releaseUnreadBytes(QNetworkReply *reply);

/// Reads what has arrived of an answer into its record, which is null when there is none. True when
/// the bytes are those of a download and are to be saved instead; the other bytes of a download are
/// left unread.
bool collect(const Engine &engine, const char *function, QNetworkReply *reply, ReplyData *record);

/// Logs every error of the list, or that it is empty, and then returns false.
bool logSslErrors(const Engine &engine, const char *function, const QList<QSslError> &errors);

struct UploadTexts {
    const char *complete;
    const char *nothing;
};
/// Logs a progress report of an upload. Returns the percentage to tell, if it is to be told.
std::optional<double> uploadPercentage(const Engine &engine, const char *function,
                                       const UploadTexts &texts, qint64 sent, qint64 total);

struct HeaderTexts {
    const char *header;
    const char *contentLength;
};
/// Logs the headers of an answer.
void logHeaders(const Engine &engine, const char *function, const HeaderTexts &texts,
                const QNetworkReply *reply);

} // namespace replytools

#endif // TARVISNET_REPLYTOOLS_P_H
