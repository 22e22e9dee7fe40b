#include "operations.h"

#include <QtTest/QTest>

namespace {

const char form[] = "application/x-www-form-urlencoded";
const char json[] = "application/json";

} // namespace

namespace requestkinds {

QList<RequestKind> all()
{
    using R = Result;
    return {
        {"remoteDefinition", "GET", json, "s_fetchDefinition", R::Document, {"s_fetchDefinition"}},
        {"remoteIndex", "GET", json, "s_fetchIndex", R::Document, {"s_fetchIndex"}},
        {"remoteInstaller", "GET", "application/zip", "s_finished", R::Address, {"s_finished"}},
        {"remoteInstallerChangeLog",
         "GET",
         form,
         "s_fetchInstallerChangeLogData",
         R::Bytes,
         {"s_fetchInstallerChangeLog", "s_fetchInstallerChangeLogData"}},
        // There is no operation for it.
        {"remoteInstallerCheckSum", "GET", "", "", R::Nothing, {}},
        {"remoteBinary", "GET", form, "s_finished", R::Address, {"s_finished"}},
        {"rawGet", "GET", json, "s_rawGet", R::Document, {"s_rawGet"}},
        {"rawPost", "POST", form, "s_rawPost", R::Document, {"s_rawPost"}},
        {"rawPatch", "PATCH", json, "s_rawPathFinished", R::Document, {"s_errorChanged"}},
        {"rawDelete", "DELETE", json, "s_rawDeleteFinished", R::Address, {"s_errorChanged"}},
        {"rawGetFile", "GET", form, "s_rawGetFileFinished", R::Bytes, {"s_rawGetFileFinished"}},
        {"rawPostFile", "POST", form, "s_rawPostFileFinished", R::Bytes, {"s_errorChanged"}},
    };
}

RequestKind of(const QString &name)
{
    for (const RequestKind &kind : all()) {
        if (kind.name == name)
            return kind;
    }
    qFatal("no kind %s", qPrintable(name));
}

void start(TarvisNet &client, const RequestKind &kind, const QUrl &url, const QString &path,
           qulonglong size)
{
    FileData file;
    file.filePath = path;
    file.size = size;
    for (const Operation &operation : operations::all()) {
        if (operation.form == Operation::Url && qstrcmp(operation.kind, kind.name) == 0)
            return operation.call(client, QString::fromLatin1(url.toEncoded()), file);
    }
    ReplyData record;
    record.replyType = kind.name;
    record.request.setUrl(url);
    QMetaObject::invokeMethod(&client, "addRequest", Qt::DirectConnection,
                              Q_ARG(ReplyData, record));
}

} // namespace requestkinds

namespace operations {

QList<Operation> all()
{
    using T = TarvisNet;
    using A = const QString &;
    using F = const FileData &;
    return {
        {"fetchDefinition(QString)", "remoteDefinition", Operation::Path,
         [](T &t, A path, F) { t.fetchDefinition(path); }},
        {"fetchDefinition(QUrl)", "remoteDefinition", Operation::Url,
         [](T &t, A url, F) { t.fetchDefinition(QUrl(url)); }},
        {"fetchIndex(QString)", "remoteIndex", Operation::Path,
         [](T &t, A path, F) { t.fetchIndex(path); }},
        {"fetchIndex(QUrl)", "remoteIndex", Operation::Url,
         [](T &t, A url, F) { t.fetchIndex(QUrl(url)); }},
        {"fetchInstallerChangeLog(QString)", "remoteInstallerChangeLog", Operation::Path,
         [](T &t, A path, F) { t.fetchInstallerChangeLog(path); }},
        {"fetchInstallerChangeLog(QUrl)", "remoteInstallerChangeLog", Operation::Url,
         [](T &t, A url, F) { t.fetchInstallerChangeLog(QUrl(url)); }},
        {"fetchInstaller(QString)", "remoteInstaller", Operation::Path,
         [](T &t, A path, F) {
             // Without a configured path the argument does not count.
             if (t.getInstallerPath().isEmpty())
                 t.setInstallerPath("/elsewhere");
             t.fetchInstaller(path);
         }},
        {"fetchInstaller(QUrl)", "remoteInstaller", Operation::Url,
         [](T &t, A url, F) { t.fetchInstaller(QUrl(url)); }},
        {"fetchBinary(QString)", "remoteBinary", Operation::Path,
         [](T &t, A path, F f) { t.fetchBinary(path, f.filePath, f.size, f.hash); }},
        {"fetchBinary(QUrl)", "remoteBinary", Operation::Url,
         [](T &t, A url, F f) { t.fetchBinary(QUrl(url), f.filePath, f.size, f.hash); }},
        {"rawGet(QUrl)", "rawGet", Operation::Url, [](T &t, A url, F) { t.rawGet(QUrl(url)); }},
        {"rawGet(QString)", "rawGet", Operation::Text, [](T &t, A url, F) { t.rawGet(url); }},
        {"forceRawGet(QUrl)", "rawGet", Operation::Url,
         [](T &t, A url, F) { t.forceRawGet(QUrl(url)); }},
        {"forceRawGet(QString)", "rawGet", Operation::Text,
         [](T &t, A url, F) { t.forceRawGet(url); }},
        {"rawPost(QUrl)", "rawPost", Operation::Url,
         [](T &t, A url, F) { t.rawPost(QUrl(url), body); }, true},
        {"rawPost(QString)", "rawPost", Operation::Text,
         [](T &t, A url, F) { t.rawPost(url, QString::fromLatin1(body)); }, true},
        {"rawPath(QUrl)", "rawPatch", Operation::Url,
         [](T &t, A url, F) { t.rawPath(QUrl(url), body); }, true},
        {"rawDelete(QUrl)", "rawDelete", Operation::Url,
         [](T &t, A url, F) { t.rawDelete(QUrl(url), body); }, true},
        {"rawGetFile(QUrl)", "rawGetFile", Operation::Url,
         [](T &t, A url, F f) { t.rawGetFile(QUrl(url), f.filePath); }},
        {"rawGetFile(QString)", "rawGetFile", Operation::Text,
         [](T &t, A url, F f) { t.rawGetFile(url, f.filePath); }},
        {"rawPostFile(QUrl)", "rawPostFile", Operation::Url,
         [](T &t, A url, F f) { t.rawPostFile(QUrl(url), f.filePath, body); }, true},
        {"rawPostFile(QUrl), no body", "rawPostFile", Operation::Url,
         [](T &t, A url, F f) { t.rawPostFile(QUrl(url), f.filePath); }},
        {"rawPostFile(QString)", "rawPostFile", Operation::Text,
         [](T &t, A url, F f) { t.rawPostFile(url, f.filePath, body); }, true},
    };
}

Operation of(const QByteArray &name)
{
    for (const Operation &operation : all()) {
        if (operation.name == name)
            return operation;
    }
    qFatal("no operation %s", name.constData());
}

void addRows(bool (*chosen)(const Operation &))
{
    QTest::addColumn<Operation>("operation");
    for (const Operation &operation : all()) {
        if (chosen(operation))
            QTest::newRow(operation.name) << operation;
    }
}

ReplyData record(const TarvisNet &client, const Operation &operation, const QUrl &url,
                 const FileData &file, const QByteArray &range)
{
    const RequestKind kind = requestkinds::of(operation.kind);
    ReplyData record;
    record.replyType = kind.name;
    record.data = operation.hasBody ? body : QByteArray();
    record.request.setUrl(url);
    record.request.setHeader(QNetworkRequest::ContentTypeHeader, kind.contentType);
    record.request.setRawHeader("User-Agent", client.getUserAgent().toLocal8Bit());
    if (kind.isFile())
        record.request.setRawHeader("Connection", "close");
    if (!range.isNull())
        record.request.setRawHeader("Range", range);
    if (!kind.isBinary())
        return record;
    record.fileData = file;
    if (operation.form == Operation::Path)
        record.request.setAttribute(QNetworkRequest::HttpPipeliningAllowedAttribute, true);
    return record;
}

} // namespace operations
