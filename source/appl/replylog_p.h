#ifndef TARVISNET_REPLYLOG_P_H
#define TARVISNET_REPLYLOG_P_H

#include "messagelog_p.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtNetwork/QNetworkReply>
#include <QtNetwork/QSslError>

#include <optional>

/// What both request engines log of a reply. Where they differ, the difference is an argument.
namespace replylog {

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

/// Why the bytes of a download with this status are not saved.
void logUnsavedStatus(const Engine &engine, const char *function, int status);

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

} // namespace replylog

#endif // TARVISNET_REPLYLOG_P_H
