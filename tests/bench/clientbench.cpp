#include "clientbench.h"

#include <QtCore/QDebug>
#include <QtNetwork/QNetworkCookieJar>
#include <QtTest/QTest>

#include <algorithm>

namespace clientaccess {

QNetworkAccessManager *managerOf(const TarvisNet &client)
{
    return qobject_cast<QNetworkAccessManager *>(client.getCoockies()->parent());
}

QList<QNetworkReply *> repliesOf(const TarvisNet &client)
{
    return managerOf(client)->findChildren<QNetworkReply *>();
}

void addModes()
{
    QTest::addColumn<ScriptedServer::Mode>("mode");
    QTest::newRow("HTTP") << ScriptedServer::Mode::Http;
    QTest::newRow("HTTPS") << ScriptedServer::Mode::Https;
}

ReplyData record(const QString &kind, const QUrl &url, const FileData &file)
{
    ReplyData record;
    record.replyType = kind;
    record.request.setUrl(url);
    record.request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("text/plain"));
    record.fileData = file;
    return record;
}

QVariantList failure(int code, const QString &url, const QJsonDocument &document)
{
    return {QVariant::fromValue(short(code)), url, document};
}

QString line(const QStringList &items)
{
    return items.join(QLatin1Char(' '));
}

QString quoted(const QString &text)
{
    QString made;
    QDebug(&made).nospace() << text;
    return made;
}

} // namespace clientaccess

ClientBench::ClientBench(ScriptedServer::Mode mode, const TransferPolicy &policy)
    : server(mode)
    , client(new TarvisNet(policy))
    , recorder(client)
{
    client->setTemporaryDirectory(path());
    forget();
}

ClientBench::~ClientBench()
{
    delete client;
}

QString ClientBench::url(const QString &path) const
{
    return server.url(path).toString();
}

QStringList ClientBench::urls(const QStringList &paths) const
{
    QStringList texts;
    for (const QString &path : paths)
        texts.append(url(path));
    return texts;
}

QString ClientBench::path(const QString &name) const
{
    return name.isEmpty() ? directory.path() : directory.filePath(name);
}

FileData ClientBench::file(const QString &name, quint64 size) const
{
    FileData file;
    file.filePath = path(name);
    file.tempFilePath = path(name + QLatin1String(".vtxdownload"));
    file.size = size;
    return file;
}

void ClientBench::ask(quint16 port, const QString &host)
{
    client->setServerHost(host);
    client->setServerPort(QString::number(port));
    recorder.clear();
}

void ClientBench::hold()
{
    client->setStopProcess(true);
    recorder.clear();
}

void ClientBench::get(const QStringList &paths) const
{
    for (const QString &path : paths)
        client->rawGet(server.url(path));
}

void ClientBench::call(const char *slot, const QGenericArgument &first,
                       const QGenericArgument &second) const
{
    if (!QMetaObject::invokeMethod(client, slot, Qt::DirectConnection, first, second))
        qFatal("the client has no slot %s", slot);
}

void ClientBench::call(const char *slot, QNetworkReply *reply) const
{
    call(slot, Q_ARG(QNetworkReply *, reply));
}

void ClientBench::add(const ReplyData &record) const
{
    call("addRequest", Q_ARG(ReplyData, record));
}

void ClientBench::forceAdd(const ReplyData &record) const
{
    call("forceAddRequest", Q_ARG(ReplyData, record));
}

QNetworkReply *ClientBench::start(const ReplyData &record) const
{
    add(record);
    const QList<QNetworkReply *> all = replies();
    return all.isEmpty() ? nullptr : all.last();
}

bool ClientBench::isPending(const ReplyData &record) const
{
    const int before = errors().size();
    add(record);
    return errors().mid(before) == QList<int>{errorcodes::already_pending};
}

QList<QNetworkReply *> ClientBench::replies() const
{
    return clientaccess::repliesOf(*client);
}

QList<QNetworkReply *> ClientBench::running() const
{
    QList<QNetworkReply *> found = replies();
    const auto isNone = [](QNetworkReply *reply) {
        return !reply->isRunning() || reply->url().path().isEmpty();
    };
    found.erase(std::remove_if(found.begin(), found.end(), isNone), found.end());
    std::sort(found.begin(), found.end(), std::less<>());
    return found;
}

QStringList ClientBench::runningUrls() const
{
    QStringList urls;
    for (const QNetworkReply *reply : running())
        urls.append(reply->url().toString());
    return urls;
}

QStringList ClientBench::runningPaths() const
{
    QStringList paths;
    for (const QNetworkReply *reply : running())
        paths.append(reply->url().path());
    paths.sort();
    return paths;
}

void ClientBench::follow(QNetworkReply &reply) const
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

void ClientBench::forget()
{
    recorder.clear();
    log.clear();
}

QStringList ClientBench::messages() const
{
    QStringList texts;
    for (const LogEntry &entry : log.from(clientaccess::sourceFile)) {
        const bool isDebug = entry.type == QtDebugMsg;
        texts.append(QLatin1String(isDebug ? "debug: " : "warning: ") + entry.text);
    }
    return texts;
}

QStringList ClientBench::messagesOfAnswer() const
{
    QStringList texts = messages();
    for (const char *text : {"Upload complete", "no bytes avalible"})
        texts.removeAll(QLatin1String("debug: <TarvisNet::UploadProgress> ") + text);
    return texts;
}

QStringList ClientBench::emitted() const
{
    QStringList names = recorder.names();
    for (const char *progress :
         {"s_downloadFileProgress", "s_downloadFileBytesProgress", "s_uploadFileProgress"})
        names.removeAll(QString::fromLatin1(progress));
    return names;
}

QVariantList ClientBench::error() const
{
    return recorder.last(QStringLiteral("s_errorChanged"));
}

QList<int> ClientBench::errors() const
{
    QList<int> codes;
    for (const QVariantList &arguments : recorder.of(QStringLiteral("s_errorChanged")))
        codes.append(arguments.at(0).toInt());
    return codes;
}

QStringList ClientBench::abortedUrls() const
{
    QStringList urls;
    for (const QVariantList &arguments : recorder.of(QStringLiteral("s_aborted")))
        urls.append(arguments.value(0).toString());
    return urls;
}
