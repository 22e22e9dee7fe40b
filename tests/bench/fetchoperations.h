#ifndef TARVISNET_TESTS_FETCHOPERATIONS_H
#define TARVISNET_TESTS_FETCHOPERATIONS_H

#include "fetchbench.h"

#include <QtCore/QVector>

#include <functional>

/// The five content fetches as a table, for what all of them do alike.
namespace fetches {

/// What servers answer.
inline const QByteArray answer = R"({"answer":42})";
inline const quint64 answerSize = quint64(answer.size());

using Fetch = std::function<void(FetchBench &bench, const QString &target)>;

/// What tells the five fetches apart.
struct Operation {
    const char *name;
    QLatin1String kind;
    QString contentType;
    bool isFile;
    QString resultSignal;
    Fetch byPath;
    Fetch byUrl;
    std::function<void(TarvisNet &client, const QString &path)> configure;

    /// Fetches \a url. The path form takes the server that \a bench was told to ask.
    void start(FetchBench &bench, bool isByPath, const QUrl &url) const
    {
        if (isByPath)
            byPath(bench, url.path());
        else
            byUrl(bench, url.toString());
    }
};

inline const QVector<Operation> operations = {
    {"definition", replies::remote_definition, "application/json", false, "s_fetchDefinition",
     [](FetchBench &bench, const QString &path) { bench.client.fetchDefinition(path); },
     [](FetchBench &bench, const QString &url) { bench.client.fetchDefinition(QUrl(url)); },
     [](TarvisNet &client, const QString &path) { client.setDefinitionPath(path); }},
    {"index", replies::remote_index, "application/json", false, "s_fetchIndex",
     [](FetchBench &bench, const QString &path) { bench.client.fetchIndex(path); },
     [](FetchBench &bench, const QString &url) { bench.client.fetchIndex(QUrl(url)); },
     [](TarvisNet &client, const QString &path) { client.setIndexPath(path); }},
    {"change log", replies::remote_installer_log, "application/x-www-form-urlencoded", false,
     "s_fetchInstallerChangeLogData",
     [](FetchBench &bench, const QString &path) { bench.client.fetchInstallerChangeLog(path); },
     [](FetchBench &bench, const QString &url) { bench.client.fetchInstallerChangeLog(QUrl(url)); },
     [](TarvisNet &client, const QString &path) { client.setInstallerChangeLogPath(path); }},
    {"installer", replies::remote_installer, "application/zip", true, "s_finished",
     [](FetchBench &bench, const QString &path) {
         // Without a configured path the argument does not count.
         if (bench.client.getInstallerPath().isEmpty())
             bench.client.setInstallerPath("/elsewhere");
         bench.client.fetchInstaller(path);
     },
     [](FetchBench &bench, const QString &url) { bench.client.fetchInstaller(QUrl(url)); },
     [](TarvisNet &client, const QString &path) { client.setInstallerPath(path); }},
    {"binary", replies::remote_binary, "application/x-www-form-urlencoded", true, "s_finished",
     [](FetchBench &bench, const QString &path) {
         bench.client.fetchBinary(path, bench.path("file"), answerSize, "hash");
     },
     [](FetchBench &bench, const QString &url) {
         bench.client.fetchBinary(QUrl(url), bench.path("file"), answerSize, "hash");
     },
     [](TarvisNet &, const QString &) {}},
};

/// The record that the operation queues for \a url.
inline ReplyData expectedRecord(const FetchBench &bench, const Operation &operation,
                                const QUrl &url, bool byPath)
{
    ReplyData record;
    record.replyType = operation.kind;
    record.request = operation.isFile ? bench.fileRequest(url, operation.contentType)
                                      : bench.request(url, operation.contentType);
    if (operation.kind != replies::remote_binary)
        return record;
    record.fileData.filePath = bench.path("file");
    record.fileData.tempFilePath = bench.path("file.vtxdownload");
    record.fileData.hash = "hash";
    record.fileData.size = answerSize;
    if (byPath)
        record.request.setAttribute(QNetworkRequest::HttpPipeliningAllowedAttribute, true);
    return record;
}

} // namespace fetches

#endif // TARVISNET_TESTS_FETCHOPERATIONS_H
