#ifndef TARVISNET_FAILURE_P_H
#define TARVISNET_FAILURE_P_H

#include "records.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QString>

/// What the client reports by TarvisNet::s_errorChanged().
struct Failure {
    short code;
    /// The text of the URL that it concerns.
    QString url;
    /// The reply that failed; null when it is none of a reply, or when there is none any more.
    const QNetworkReply *reply = nullptr;
    /// What the server said about it, if that was JSON.
    QJsonDocument body = QJsonDocument();
    /// The file that the request was to write.
    FileData file = FileData();
    /// Bytes of the file that are there; negative when the disk knows.
    qint64 received = -1;
    /// How many times the request was sent.
    int attempts = 1;
    /// A sentence; empty where Qt or the code tells it.
    QString reason = QString();
};

#endif // TARVISNET_FAILURE_P_H
