#ifndef TARVISNET_TESTS_CLIENTBENCH_H
#define TARVISNET_TESTS_CLIENTBENCH_H

#include "answers.h"
#include "logcapture.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/errorcodes.h>
#include <tarvisnet/tarvisnet.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QMetaObject>
#include <QtCore/QMetaType>
#include <QtCore/QPointer>
#include <QtCore/QTemporaryDir>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkReply>

#include <functional>

/// What tests need of a client beyond its public interface, and the texts that it makes.
namespace clientaccess {

/// Every message of the client carries it.
inline constexpr char sourceFile[] = "../../source/appl/tarvisnet";

/// The manager that a client sends through. It owns the cookie jar, as long as that was not
/// replaced.
QNetworkAccessManager *managerOf(const TarvisNet &client);

/// The replies that the client's manager holds, oldest first.
QList<QNetworkReply *> repliesOf(const TarvisNet &client);

/// Data rows for a test that is to run over HTTP and over HTTPS, in the column "mode".
void addModes();

ReplyData record(const QString &kind, const QUrl &url, const FileData &file = FileData());

/// The arguments of s_errorChanged.
QVariantList failure(int code, const QString &url, const QJsonDocument &document = QJsonDocument());

/// What a debug stream makes of its items: a blank between them.
QString line(const QStringList &items);

/// What a debug stream makes of a text that is a QString or a QByteArray.
QString quoted(const QString &text);

} // namespace clientaccess

/// A client with a server to talk to and a directory of its own, and everything that it says. The
/// messages of its construction are forgotten; what its destructor emits is recorded by a recorder
/// of the test's own.
struct ClientBench {
    explicit ClientBench(ScriptedServer::Mode mode = ScriptedServer::Mode::Http,
                         const TransferPolicy &policy = TransferPolicy());
    ~ClientBench();

    /// \name Addresses and files
    /// @{

    QString url(const QString &path) const;
    QStringList urls(const QStringList &paths) const;
    /// A file in the directory; without a name, that directory.
    QString path(const QString &name = QString()) const;
    /// A file record as a download has it: the file \a name of the directory, its temporary file
    /// beside it.
    FileData file(const QString &name, quint64 size) const;

    /// @}
    /// \name Requests
    /// @{

    /// Makes the path forms of the fetches ask \a host at \a port.
    void ask(quint16 port, const QString &host = QStringLiteral("127.0.0.1"));
    /// From now on what is queued stays pending.
    void hold();
    void get(const QStringList &paths) const;
    /// Calls a slot that only the meta-object shows. A name that is none would test nothing.
    void call(const char *slot, const QGenericArgument &first = QGenericArgument(),
              const QGenericArgument &second = QGenericArgument()) const;
    void call(const char *slot, QNetworkReply *reply) const;
    void add(const ReplyData &record) const;
    void forceAdd(const ReplyData &record) const;
    /// Queues a request and returns its reply, provided that a place was free.
    QNetworkReply *start(const ReplyData &record) const;
    /// Whether a record that equals \a record in every field is pending: the queue refuses such a
    /// one. If there is none, it is pending afterwards.
    bool isPending(const ReplyData &record) const;

    /// @}
    /// \name Replies
    /// @{

    QList<QNetworkReply *> replies() const;
    /// The running replies in the order in which the client walks through its table. Pings, which
    /// have no path, are left out.
    QList<QNetworkReply *> running() const;
    QStringList runningUrls() const;
    /// In alphabetical order.
    QStringList runningPaths() const;
    /// Connects a reply that did not come from the client's manager as the client connects its own.
    void follow(QNetworkReply &reply) const;

    /// @}
    /// \name What the client says
    /// @{

    void forget();
    /// Each message behind its level.
    QStringList messages() const;
    /// The same without the upload progress that requests with a body have.
    QStringList messagesOfAnswer() const;
    /// The names of what was emitted, without the progress that depends on timing.
    QStringList emitted() const;
    /// The arguments of the latest error.
    QVariantList error() const;
    /// The codes of all errors.
    QList<int> errors() const;
    /// What every s_aborted carried.
    QStringList abortedUrls() const;

    /// @}

    QTemporaryDir directory;
    ScriptedServer server;
    LogCapture log;
    QPointer<TarvisNet> client;
    SignalRecorder recorder;

private:
    Q_DISABLE_COPY(ClientBench)
};

/// A bench whose server leaves every request unanswered that it has no handler for.
struct WaitingBench : ClientBench {
    WaitingBench() { server.onRequest(answers::withhold()); }
};

Q_DECLARE_METATYPE(std::function<void(ClientBench &)>)
Q_DECLARE_METATYPE(std::function<void(TarvisNet &)>)

#endif // TARVISNET_TESTS_CLIENTBENCH_H
