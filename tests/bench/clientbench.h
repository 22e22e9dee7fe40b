#ifndef TARVISNET_TESTS_CLIENTBENCH_H
#define TARVISNET_TESTS_CLIENTBENCH_H

#include "answers.h"
#include "logcapture.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/errorcodes.h>
#include <tarvisnet/tarvisnet.h>

#include <QtCore/QDebug>
#include <QtCore/QJsonDocument>
#include <QtCore/QMetaObject>
#include <QtCore/QPointer>
#include <QtCore/QTemporaryDir>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkCookieJar>
#include <QtNetwork/QNetworkReply>
#include <QtTest/QTest>

#include <algorithm>

/// What tests need of a client beyond its public interface, and the texts that it makes.
namespace clientaccess {

/// Every message of the client carries it.
inline constexpr char sourceFile[] = "../../source/appl/tarvisnet";

/// The manager that a client sends through. It owns the cookie jar, as long as that was not
/// replaced.
inline QNetworkAccessManager *managerOf(const TarvisNet &client)
{
    return qobject_cast<QNetworkAccessManager *>(client.getCoockies()->parent());
}

/// The replies that the client's manager holds, oldest first.
inline QList<QNetworkReply *> repliesOf(const TarvisNet &client)
{
    return managerOf(client)->findChildren<QNetworkReply *>();
}

/// Data rows for a test that is to run over HTTP and over HTTPS, in the column "mode".
inline void addModes()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::newRow("HTTP") << ScriptedServer::Mode::Http;
    QTest::newRow("HTTPS") << ScriptedServer::Mode::Https;
}

inline ReplyData record(const QString &kind, const QUrl &url, const FileData &file = FileData())
{
    ReplyData record;
    record.replyType = kind;
    record.request.setUrl(url);
    record.request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("text/plain"));
    record.fileData = file;
    return record;
}

/// The arguments of s_errorChanged.
inline QVariantList failure(int code, const QString &url,
                            const QJsonDocument &document = QJsonDocument())
{
    return {QVariant::fromValue(short(code)), url, document};
}

/// What a debug stream makes of its items: a blank between them.
inline QString line(const QStringList &items)
{
    return items.join(QLatin1Char(' '));
}

/// What a debug stream makes of a text that is a QString or a QByteArray.
inline QString quoted(const QString &text)
{
    QString made;
    QDebug(&made).nospace() << text;
    return made;
}

} // namespace clientaccess

/// A client with a server to talk to and a directory of its own, and everything that it says. The
/// messages of its construction are forgotten; what its destructor emits is recorded by a recorder
/// of the test's own.
struct ClientBench {
    explicit ClientBench(ScriptedServer::Mode mode = ScriptedServer::Mode::Http,
                         const TransferPolicy &policy = TransferPolicy())
        : server(mode)
        , client(new TarvisNet(policy))
        , recorder(client)
    {
        client->setTemporaryDirectory(path());
        forget();
    }
    ~ClientBench() { delete client; }

    /// \name Addresses and files
    /// @{

    QString url(const QString &path) const { return server.url(path).toString(); }
    QStringList urls(const QStringList &paths) const
    {
        QStringList texts;
        for (const QString &path : paths)
            texts.append(url(path));
        return texts;
    }
    /// A file in the directory; without a name, that directory.
    QString path(const QString &name = QString()) const
    {
        return name.isEmpty() ? directory.path() : directory.filePath(name);
    }
    /// A file record as a download has it: the file \a name of the directory, its temporary file
    /// beside it.
    FileData file(const QString &name, quint64 size) const
    {
        FileData file;
        file.filePath = path(name);
        file.tempFilePath = path(name + QLatin1String(".vtxdownload"));
        file.size = size;
        return file;
    }

    /// @}
    /// \name Requests
    /// @{

    /// Makes the path forms of the fetches ask \a host at \a port.
    void ask(quint16 port, const QString &host = QStringLiteral("127.0.0.1"))
    {
        client->setServerHost(host);
        client->setServerPort(QString::number(port));
        recorder.clear();
    }
    /// From now on what is queued stays pending.
    void hold()
    {
        client->setStopProcess(true);
        recorder.clear();
    }
    void get(const QStringList &paths) const
    {
        for (const QString &path : paths)
            client->rawGet(server.url(path));
    }
    /// Calls a slot that only the meta-object shows. A name that is none would test nothing.
    void call(const char *slot, const QGenericArgument &first = QGenericArgument(),
              const QGenericArgument &second = QGenericArgument()) const
    {
        if (!QMetaObject::invokeMethod(client, slot, Qt::DirectConnection, first, second))
            qFatal("the client has no slot %s", slot);
    }
    void call(const char *slot, QNetworkReply *reply) const
    {
        call(slot, Q_ARG(QNetworkReply *, reply));
    }
    void add(const ReplyData &record) const { call("addRequest", Q_ARG(ReplyData, record)); }
    void forceAdd(const ReplyData &record) const
    {
        call("forceAddRequest", Q_ARG(ReplyData, record));
    }
    /// Queues a request and returns its reply, provided that a place was free.
    QNetworkReply *start(const ReplyData &record) const
    {
        add(record);
        const QList<QNetworkReply *> all = replies();
        return all.isEmpty() ? nullptr : all.last();
    }
    /// Whether a record that equals \a record in every field is pending: the queue refuses such a
    /// one. If there is none, it is pending afterwards.
    bool isPending(const ReplyData &record) const
    {
        const int before = errors().size();
        add(record);
        return errors().mid(before) == QList<int>{errorcodes::already_pending};
    }

    /// @}
    /// \name Replies
    /// @{

    QList<QNetworkReply *> replies() const { return clientaccess::repliesOf(*client); }
    /// The running replies in the order in which the client walks through its table. Pings, which
    /// have no path, are left out.
    QList<QNetworkReply *> running() const
    {
        QList<QNetworkReply *> found = replies();
        const auto isNone = [](QNetworkReply *reply) {
            return !reply->isRunning() || reply->url().path().isEmpty();
        };
        found.erase(std::remove_if(found.begin(), found.end(), isNone), found.end());
        std::sort(found.begin(), found.end(), std::less<>());
        return found;
    }
    QStringList runningUrls() const
    {
        QStringList urls;
        for (const QNetworkReply *reply : running())
            urls.append(reply->url().toString());
        return urls;
    }
    /// In alphabetical order.
    QStringList runningPaths() const
    {
        QStringList paths;
        for (const QNetworkReply *reply : running())
            paths.append(reply->url().path());
        paths.sort();
        return paths;
    }
    /// Connects a reply that did not come from the client's manager as the client connects its own.
    void follow(QNetworkReply &reply) const
    {
        const auto connect = [&](const char *signal, const char *slot) {
            if (!QObject::connect(&reply, signal, client, slot, Qt::DirectConnection))
                qFatal("cannot connect %s to %s", signal, slot);
        };
        connect(SIGNAL(finished()), SLOT(replyFinished()));
        connect(SIGNAL(readyRead()), SLOT(replyReadyRead()));
        connect(SIGNAL(sslErrors(QList<QSslError>)), SLOT(replySslErrors(QList<QSslError>)));
        connect(SIGNAL(errorOccurred(QNetworkReply::NetworkError)),
                SLOT(replyError(QNetworkReply::NetworkError)));
        connect(SIGNAL(downloadProgress(qint64, qint64)),
                SLOT(replyDownloadProgress(qlonglong, qlonglong)));
        connect(SIGNAL(uploadProgress(qint64, qint64)),
                SLOT(replyUploadProgress(qlonglong, qlonglong)));
        connect(SIGNAL(encrypted()), SLOT(replyEncrypted()));
    }

    /// @}
    /// \name What the client says
    /// @{

    void forget()
    {
        recorder.clear();
        log.clear();
    }
    /// Each message behind its level.
    QStringList messages() const
    {
        QStringList texts;
        for (const LogEntry &entry : log.from(clientaccess::sourceFile)) {
            const bool isDebug = entry.type == QtDebugMsg;
            texts.append(QLatin1String(isDebug ? "debug: " : "warning: ") + entry.text);
        }
        return texts;
    }
    /// The same without the upload progress that requests with a body have.
    QStringList messagesOfAnswer() const
    {
        QStringList texts = messages();
        for (const char *text : {"Upload complete", "no bytes avalible"})
            texts.removeAll(QLatin1String("debug: <TarvisNet::UploadProgress> ") + text);
        return texts;
    }
    /// The names of what was emitted, without the progress that depends on timing.
    QStringList emitted() const
    {
        QStringList names = recorder.names();
        for (const char *progress :
             {"s_downloadFileProgress", "s_downloadFileBytesProgress", "s_uploadFileProgress"})
            names.removeAll(QString::fromLatin1(progress));
        return names;
    }
    /// The arguments of the latest error.
    QVariantList error() const { return recorder.last(QStringLiteral("s_errorChanged")); }
    /// The codes of all errors.
    QList<int> errors() const
    {
        QList<int> codes;
        for (const QVariantList &arguments : recorder.of(QStringLiteral("s_errorChanged")))
            codes.append(arguments.at(0).toInt());
        return codes;
    }
    /// What every s_aborted carried.
    QStringList abortedUrls() const
    {
        QStringList urls;
        for (const QVariantList &arguments : recorder.of(QStringLiteral("s_aborted")))
            urls.append(arguments.value(0).toString());
        return urls;
    }

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

#endif // TARVISNET_TESTS_CLIENTBENCH_H
