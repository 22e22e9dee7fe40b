#ifndef TARVISNET_TRANSFER_P_H
#define TARVISNET_TRANSFER_P_H

#include "downloadfile_p.h"
#include "records.h"
#include "replylog_p.h"
#include "transferrules_p.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QMap>
#include <QtCore/QPointer>
#include <QtCore/QSharedPointer>
#include <QtNetwork/QNetworkReply>

class BodyDecoder;
class CheckedFile;

/// A request in flight, or one that waits to be sent again.
struct Transfer {
    // Out of line: inlined everywhere, they mislead the static analyser about shared pointers.
    Transfer();
    Transfer(const Transfer &other);
    Transfer &operator=(const Transfer &other);
    ~Transfer();

    /// What was asked, without the fields that have a place of their own below.
    ReplyData record;
    /// What is sent: what was asked, until a redirect leads elsewhere.
    QNetworkRequest request;
    QByteArray body;
    /// Who is asked: the URL without its path. Empty where failures are not isolated.
    QUrl server;
    bool isGet = true;
    /// Whether sending it once more does no harm.
    bool isRepeatable = true;
    /// How many times it was sent, redirects aside.
    int attempts = 0;
    int redirects = 0;
    int retries = 0;
    /// What has arrived of the answer, unless it goes to the file.
    QByteArray answer;
    /// How many bytes that may be; 0 for any number.
    qint64 maximumAnswer = 0;
    /// Whether Qt leaves the answer's coding to the client.
    bool isCodingOurs = false;
    /// Undoes it. Null until something has arrived, and where the answer may have any size.
    QSharedPointer<BodyDecoder> decoder;
    DownloadFile file;
    /// The file instead, where files are checked; null elsewhere.
    QSharedPointer<CheckedFile> checkedFile;
    /// Whether its answer broke off without Qt making an error of it.
    bool isBroken = false;
    /// What is wrong with the peer; empty when nothing is.
    QString tlsFault;
    /// When it has been idle for too long, and when it has taken too long altogether.
    QDeadlineTimer idleEnd = QDeadlineTimer(QDeadlineTimer::Forever);
    QDeadlineTimer end = QDeadlineTimer(QDeadlineTimer::Forever);
    /// Whether its reply has ended for good: its result is being delivered, or it waits for that of
    /// the hop which follows it.
    bool isAnswered = false;
    /// Whether a redirect led here.
    bool isRedirected = false;
    /// The reply that it led away from. Null once that reply is gone: a new one may get its
    /// address.
    QPointer<QNetworkReply> redirectSource;
};

/// Reads what has arrived of an answer into its transfer, which is null when there is none. True
/// when the bytes are those of a download and are to be saved instead; the other bytes of a
/// download are left unread.
bool collectArrived(const replylog::Engine &engine, const char *function,
                    const TransferRules &rules, QNetworkReply *reply, Transfer *transfer);

/// Whether the answer in \a reply is decoded by the client, and not by Qt.
bool isDecodedHere(const Transfer &transfer, const QNetworkReply &reply);

/// The requests in flight by their replies, in the order of the replies' addresses.
using Transfers = QMap<QNetworkReply *, Transfer>;

#endif // TARVISNET_TRANSFER_P_H
