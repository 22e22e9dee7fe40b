#ifndef TARVISNET_NETWORKPROCESSOR_P_H
#define TARVISNET_NETWORKPROCESSOR_P_H

#include "messagelog_p.h"
#include "networkprocessor.h"
#include "replylog_p.h"
#include "traditionalrules_p.h"
#include "transfer_p.h"

#include <QtCore/QHash>
#include <QtCore/QSharedPointer>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QSslConfiguration>

/// One log for the processor, whichever of its files a line comes from.
inline constexpr MessageLog processorLog("../../source/appl/networkprocessor");

inline constexpr replylog::Engine processorEngine = {processorLog, "NetworkProcessor", QtDebugMsg};

struct NetworkProcessorPrivate {
    /// Files a reply that was just sent, unless it is known already.
    void file(QNetworkReply *reply, Transfer transfer);
    /// Files the reply to \a record.
    void file(QNetworkReply *reply, const ReplyData &record);

    /// Emits what an answer without an error means.
    static void deliver(NetworkProcessor &processor, const char *function, const QString &url,
                        const Transfer &transfer);

    const TraditionalRules rules{};
    QSharedPointer<QNetworkAccessManager> manager;
    QSslConfiguration sslConfiguration;
    QHash<QNetworkReply *, Transfer> activeReplies;
};

#endif // TARVISNET_NETWORKPROCESSOR_P_H
