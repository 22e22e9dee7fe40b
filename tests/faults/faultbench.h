#ifndef TARVISNET_TESTS_FAULTBENCH_H
#define TARVISNET_TESTS_FAULTBENCH_H

#include "clientbench.h"
#include "endings.h"
#include "requestkinds.h"

#include <QtNetwork/QNetworkReply>

/// One request of a client to a server that fails.
struct FaultBench : ClientBench {
    explicit FaultBench(ScriptedServer::Mode mode = ScriptedServer::Mode::Http);

    /// Sends a request for \a url; without one, for "/fault" of the server.
    void start(const RequestKind &kind, qulonglong size = 1000, const QUrl &url = QUrl());
    /// The reply of the request while it lives.
    QNetworkReply *reply() const { return m_reply; }
    /// Of the request, once it has ended.
    QNetworkReply::NetworkError error() const { return m_error; }
    /// Runs the event loop until the reply is deleted.
    bool waitUntilGone();

    /// All signals but progress, in order, with what they carry.
    QStringList seen() const { return endings::seen(recorder); }
    /// The client's messages, without those of an upload's progress, and repetitions once.
    QStringList said() const;
    /// What seen() and said() are to be after such an ending.
    QStringList expectedSignals(const RequestKind &kind, const Ending &ending) const;
    QStringList expectedMessages(const RequestKind &kind, const Ending &ending) const;

    QString destination() const { return path("file"); }
    QString temporary() const { return path("temporary/file.vtxdownload"); }

private:
    QStringList failureMessages(const Ending &ending) const;

    QPointer<QNetworkReply> m_reply;
    QString m_url;
    QString m_errorText;
    QNetworkReply::NetworkError m_error = QNetworkReply::NoError;
    Awaiter m_awaiter;
};

#endif // TARVISNET_TESTS_FAULTBENCH_H
