#ifndef TARVISNET_TESTS_ROBUSTNESSSCENARIOS_H
#define TARVISNET_TESTS_ROBUSTNESSSCENARIOS_H

#include "robustnessstage.h"

/// Every signal of the client with all the ways that it comes about.
inline QList<Scenario> robustnessScenarios()
{
    using Stage = RobustnessStage;
    // A setter emits without any network.
    const auto setter = [](const char *signal, const std::function<void(TarvisNet &)> &set) {
        return Scenario{signal, "set", [set](Stage &stage) { set(*stage.client); }, false};
    };
    const auto local = [](const char *signal, const char *name,
                          const std::function<void(Stage &)> &run) {
        return Scenario{signal, name, run, false};
    };
    const auto fetch = [](const char *signal, const char *name,
                          const std::function<void(TarvisNet &, const QUrl &)> &run) {
        return Scenario{signal, name,
                        [run](Stage &stage) { run(*stage.client, stage.address("/json")); }};
    };
    const auto invoke = [](const char *slot) {
        return [slot](Stage &stage) {
            QMetaObject::invokeMethod(stage.client, slot, Qt::DirectConnection);
        };
    };
    const auto rawGet = [](const char *path) {
        return [path](Stage &stage) { stage.client->rawGet(stage.address(path)); };
    };
    const auto binary = [](Stage &stage) { stage.fetchBinary(); };

    return {
        setter("s_serverHostChanged", [](TarvisNet &c) { c.setServerHost("localhost"); }),
        setter("s_serverPortChanged", [](TarvisNet &c) { c.setServerPort("1"); }),
        setter("s_userNameChanged", [](TarvisNet &c) { c.setUserName("name"); }),
        setter("s_userPasswordChanged", [](TarvisNet &c) { c.setUserPassword("secret"); }),
        setter("s_urlChanged", [](TarvisNet &c) { c.setUrl("url"); }),
        setter("s_installerFileNameChanged", [](TarvisNet &c) { c.setInstallerFileName("f"); }),
        setter("s_installerFileSizeChanged", [](TarvisNet &c) { c.setInstallerFileSize(7); }),
        setter("s_vtxIdChanged", [](TarvisNet &c) { c.setVtxId(c.generateVtxId()); }),
        setter("s_vtxVersionChanged", [](TarvisNet &c) { c.setVtxVersion("2"); }),
        setter("s_vtxNameChanged", [](TarvisNet &c) { c.setVtxName("name"); }),
        setter("s_definitionPathChanged", [](TarvisNet &c) { c.setDefinitionPath("/d"); }),
        setter("s_indexPathChaged", [](TarvisNet &c) { c.setIndexPath("/i"); }),
        setter("s_installerPathChanged", [](TarvisNet &c) { c.setInstallerPath("/p"); }),
        setter("s_installerChangeLogPathChanged",
               [](TarvisNet &c) { c.setInstallerChangeLogPath("/l"); }),
        setter("s_installerCheckSumPathChanged",
               [](TarvisNet &c) { c.setInstallerCheckSumPath("/s"); }),
        setter("s_parallelRequestCountChanged",
               [](TarvisNet &c) { c.setParallelRequestsCount(3); }),
        setter("s_outputDirChanged", [](TarvisNet &c) { c.setOutputDirectory("/tmp/out"); }),
        setter("s_temporaryDirChange", [](TarvisNet &c) { c.setTemporaryDirectory("/tmp/t"); }),
        setter("s_pingAlwaysOnChanged", [](TarvisNet &c) { c.setPingAlwaysOn(true); }),
        setter("s_stopProcessChanged", [](TarvisNet &c) { c.setStopProcess(true); }),
        local("s_stopProcessChanged", "abort a list",
              [](Stage &stage) { stage.client->abortDownload(QStringList("/x")); }),

        fetch("s_fetchDefinition", "fetch",
              [](TarvisNet &c, const QUrl &url) { c.fetchDefinition(url); }),
        fetch("s_fetchIndex", "fetch", [](TarvisNet &c, const QUrl &url) { c.fetchIndex(url); }),
        fetch("s_fetchInstallerChangeLogData", "fetch",
              [](TarvisNet &c, const QUrl &url) { c.fetchInstallerChangeLog(url); }),
        fetch("s_rawGet", "raw", [](TarvisNet &c, const QUrl &url) { c.rawGet(url); }),
        fetch("s_rawGet", "forced", [](TarvisNet &c, const QUrl &url) { c.forceRawGet(url); }),
        fetch("s_rawPost", "raw", [](TarvisNet &c, const QUrl &url) { c.rawPost(url, "body"); }),
        fetch("s_rawPathFinished", "raw",
              [](TarvisNet &c, const QUrl &url) { c.rawPath(url, "body"); }),
        fetch("s_rawDeleteFinished", "raw",
              [](TarvisNet &c, const QUrl &url) { c.rawDelete(url, "body"); }),
        fetch("s_rawGetFileFinished", "raw",
              [](TarvisNet &c, const QUrl &url) { c.rawGetFile(url); }),
        fetch("s_rawPostFileFinished", "raw",
              [](TarvisNet &c, const QUrl &url) { c.rawPostFile(url); }),
        fetch("s_downloadFileProgress", "raw",
              [](TarvisNet &c, const QUrl &url) { c.rawGet(url); }),
        fetch("s_downloadFileBytesProgress", "raw",
              [](TarvisNet &c, const QUrl &url) { c.rawGet(url); }),
        {"s_downloadFileProgress", "binary", binary},
        {"s_downloadFileBytesProgress", "binary", binary},
        fetch("s_uploadFileProgress", "raw",
              [](TarvisNet &c, const QUrl &url) { c.rawPost(url, QByteArray(8 << 20, 'x')); }),
        fetch("s_finished", "installer",
              [](TarvisNet &c, const QUrl &url) { c.fetchInstaller(url); }),
        {"s_finished", "binary", binary},
        {"s_startPing", "binary", binary},
        {"s_stopPing", "binary", binary},
        {"s_stopPing", "aborted binary",
         [](Stage &stage) {
             stage.client->fetchBinary(stage.address("/withheld"), stage.path("file"), 10);
             stage.client->abortDownload();
         }},
        {"s_repliesCountChanged", "added", rawGet("/json")},
        {"s_repliesCountChanged", "added by force",
         [](Stage &stage) { stage.client->forceRawGet(stage.address("/json")); }},
        {"s_repliesCountChanged", "removed", rawGet("/json"), true, 1},
        {"s_repliesCountChanged", "removed after a failure", rawGet("/missing"), true, 1},

        {"s_aborted", "abort",
         [](Stage &stage) {
             stage.client->rawGet(stage.address("/withheld"));
             stage.server.waitForRequests(stage.isRedirected ? 2 : 1);
             stage.client->abortDownload();
         }},
        {"s_aborted", "abort a list",
         [](Stage &stage) {
             stage.client->rawGet(stage.address("/withheld"));
             stage.client->rawGet(stage.address("/withheld"));
             const QString path = stage.address("/withheld").path();
             stage.client->abortDownload(QStringList({path, "/other", path}));
         }},
        {"s_aborted", "clear",
         [invoke](Stage &stage) {
             for (int i = 0; i < 3; ++i)
                 stage.client->forceRawGet(stage.address("/withheld"));
             invoke("clearReplies")(stage);
         }},
        {"s_aborted", "after a failure", rawGet("/missing")},
        local("s_aborted", "missing certificate",
              [](Stage &stage) { Q_EMIT stage.stranger()->encrypted(); }),

        {"s_errorChanged", "not found", rawGet("/missing")},
        {"s_errorChanged", "authentication", rawGet("/locked")},
        {"s_errorChanged", "cut", rawGet("/cut")},
        {"s_errorChanged", "download not found",
         [](Stage &stage) {
             stage.client->fetchBinary(stage.address("/missing"), stage.path("file"), 10);
         }},
        {"s_errorChanged", "unknown kind",
         [](Stage &stage) { stage.add("something else", "/json"); }},
        {"s_errorChanged", "file not completed",
         [](Stage &stage) {
             stage.client->fetchBinary(stage.address("/bytes"), stage.path("missing/file"), 10);
         }},
        local("s_errorChanged", "file not writable",
              [](Stage &stage) {
                  FileData file = stage.file("file", 10);
                  file.tempFilePath = stage.directory.path();
                  stage.add("remoteBinary", "/bytes", file);
              }),
        local("s_errorChanged", "connection refused",
              [](Stage &stage) {
                  stage.client->rawGet(
                      QUrl(QString("http://127.0.0.1:%1/").arg(ScriptedServer::freePort())));
              }),
        local("s_errorChanged", "no url", [](Stage &stage) { stage.client->rawGet(QUrl()); }),
        local("s_errorChanged", "duplicate",
              [](Stage &stage) {
                  stage.client->setStopProcess(true);
                  stage.client->rawGet(stage.address("/json"));
                  stage.client->rawGet(stage.address("/json"));
              }),
        local("s_errorChanged", "probe time-out", invoke("pingTimeout")),
        local("s_errorChanged", "unknown reply", [](Stage &stage) { stage.stranger()->finish(); }),
        local("s_errorChanged", "unknown reply fails",
              [](Stage &stage) { stage.stranger()->fail(QNetworkReply::TimeoutError); }),
        local("s_errorChanged", "no TLS errors",
              [](Stage &stage) { Q_EMIT stage.stranger()->sslErrors({}); }),
        local("s_errorChanged", "missing certificate",
              [](Stage &stage) { Q_EMIT stage.stranger()->encrypted(); }),
    };
}

#endif // TARVISNET_TESTS_ROBUSTNESSSCENARIOS_H
