#ifndef TARVISNET_TARVISNET_COMMON_P_H
#define TARVISNET_TARVISNET_COMMON_P_H

#include "messagelog_p.h"
#include "records.h"
#include "replylog_p.h"

#include <QtCore/QByteArray>
#include <QtCore/QUrl>
#include <QtNetwork/QNetworkRequest>

/// \file
/// What the files of the client share that needs no client.

/// One log for the client, whichever of its files a line comes from.
inline constexpr MessageLog clientLog("../../source/appl/tarvisnet");

inline constexpr replylog::Engine clientEngine = {clientLog, "TarvisNet", QtWarningMsg};

/// What is said of a request whose whole time is over.
inline constexpr char tookTooLong[] = "It took too long.";

// Refusing the URL forms of the change log, the installer and the binary has always been logged as
// the definition's; who reads the logs relies on it.
inline constexpr char invalidAnyUrl[] = "<TarvisNet::fetchDefinition> Invalid url";

/// \a url with the scheme "https" if it has none.
QUrl withScheme(QUrl url);
/// Has \a request ask for what is missing of \a file, and for all of it when nothing is there.
void askForRest(QNetworkRequest &request, FileData &file);
/// The record of a request that is to be queued.
ReplyData newRecord(QLatin1String replyType, const QNetworkRequest &request,
                    const QByteArray &data = QByteArray(), const FileData &file = FileData());

/// Stores a new value. False when it is the stored one already.
template <typename T>
bool assign(T &stored, const T &value)
{
    if (stored == value)
        return false;
    stored = value;
    return true;
}

#endif // TARVISNET_TARVISNET_COMMON_P_H
