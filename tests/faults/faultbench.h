#ifndef TARVISNET_TESTS_FAULTBENCH_H
#define TARVISNET_TESTS_FAULTBENCH_H

#include "clientbench.h"
#include "endings.h"
#include "operations.h"

#include <QtNetwork/QNetworkReply>

/// What the client says of files that are in the way.
inline const QString openFailed = "warning: <TarvisNet::saveBinary> Error opening file to write!";
/// The number is that of QFileDevice::CopyError; Qt's own text follows.
inline const QString copyFailed = "warning: Error: 14  text: ";

/// One request of a client to a server that fails.
struct FaultBench : ClientBench {
    explicit FaultBench(ScriptedServer::Mode mode = ScriptedServer::Mode::Http);
    // While what its replies call when they die is still there.
    ~FaultBench() { delete client; }

    /// Where a download goes, if not to the bench's own directory.
    void setDestination(const QString &path) { m_destination = path; }
    void setTemporaryDirectory(const QString &path);
    QString destination() const { return m_destination; }
    QString temporary() const { return m_temporaryDirectory + "/file.vtxdownload"; }

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
    /// The same, each line no longer than its counterpart in \a beginnings: the rest is the
    /// system's.
    QStringList saidAs(const QStringList &beginnings) const;
    /// What seen() and said() are to be after such an ending.
    QStringList expectedSignals(const RequestKind &kind, const Ending &ending) const;
    QStringList expectedMessages(const RequestKind &kind, const Ending &ending) const;
    /// The part of the messages that is about the failure of the request for \a url, of which Qt
    /// says \a text.
    static QStringList failureMessages(const Ending &ending, const QString &url,
                                       const QString &text);
    /// What seen() is to be after a download with these errors and, if it is finished, a result.
    QStringList downloadSignals(const QList<int> &errors, bool isFinished) const;

private:
    QString m_destination;
    QString m_temporaryDirectory;
    QPointer<QNetworkReply> m_reply;
    QString m_url;
    QString m_errorText;
    QNetworkReply::NetworkError m_error = QNetworkReply::NoError;
    Awaiter m_awaiter;
};

#endif // TARVISNET_TESTS_FAULTBENCH_H
