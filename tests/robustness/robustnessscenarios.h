#ifndef TARVISNET_TESTS_ROBUSTNESSSCENARIOS_H
#define TARVISNET_TESTS_ROBUSTNESSSCENARIOS_H

#include "operations.h"
#include "properties.h"
#include "robustnessstage.h"

/// Every signal of the client with all the ways that it comes about.
inline QList<Scenario> robustnessScenarios()
{
    using Stage = RobustnessStage;
    using properties::Property;
    const auto local = [](const QByteArray &signal, const QByteArray &name,
                          const std::function<void(Stage &)> &run) {
        return Scenario{signal, name, run, false};
    };
    const auto invoke = [](const char *slot) { return [slot](Stage &stage) { stage.call(slot); }; };
    const auto rawGet = [](const char *path) {
        return [path](Stage &stage) { stage.client->rawGet(stage.address(path)); };
    };
    const auto binary = [](Stage &stage) { stage.fetchBinary(); };
    const auto failingBinary = [](Stage &stage) {
        stage.client->fetchBinary(stage.address("/failing"), stage.path("file"), 10);
    };
    const auto traditional = [](Scenario scenario) {
        scenario.clients = Scenario::Traditional;
        return scenario;
    };
    const auto strict = [](Scenario scenario) {
        scenario.clients = Scenario::Strict;
        return scenario;
    };

    QList<Scenario> scenarios = {
        local("s_stopProcessChanged", "abort a list",
              [](Stage &stage) { stage.client->abortDownload(QStringList("/x")); }),

        {"s_rawGet", "forced",
         [](Stage &stage) { stage.client->forceRawGet(stage.address("/json")); }},
        {"s_downloadFileProgress", "raw", rawGet("/json")},
        {"s_downloadFileBytesProgress", "raw", rawGet("/json")},
        {"s_downloadFileProgress", "binary", binary},
        {"s_downloadFileBytesProgress", "binary", binary},
        {"s_uploadFileProgress", "raw",
         [](Stage &stage) {
             stage.client->rawPost(stage.address("/json"), QByteArray(8 << 20, 'x'));
         }},
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
        traditional({"s_aborted", "after a failure", rawGet("/missing")}),
        strict({"s_aborted", "abort a waiting one",
                [](Stage &stage) {
                    stage.recorder.clear();
                    stage.client->rawGet(stage.address("/busy"));
                    stage.recorder.waitFor("s_repliesCountChanged", 2);
                    stage.client->abortDownload();
                }}),
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
        traditional(local("s_errorChanged", "probe time-out", invoke("pingTimeout"))),
        strict(local("s_errorChanged", "probe time-out",
                     [](Stage &stage) {
                         stage.client->setPingAlwaysOn(true);
                         stage.client->rawPost(stage.address("/withheld"), QByteArray("{}"));
                         stage.call("pingTimeout");
                     })),
        strict({"s_errorChanged", "last of several failures", rawGet("/failing")}),
        strict({"s_errorChanged", "redirected astray", rawGet("/astray")}),
        strict({"s_errorChanged", "wrong size",
                [](Stage &stage) {
                    stage.client->fetchBinary(stage.address("/bytes"), stage.path("file"), 11);
                }}),
        strict({"s_repliesCountChanged", "waits", rawGet("/busy"), true, 1}),
        strict({"s_stopPing", "waits", failingBinary}),
        strict({"s_startPing", "sent again", failingBinary, true, 1}),
        local("s_errorChanged", "unknown reply", [](Stage &stage) { stage.stranger()->finish(); }),
        local("s_errorChanged", "unknown reply fails",
              [](Stage &stage) { stage.stranger()->fail(QNetworkReply::TimeoutError); }),
        local("s_errorChanged", "no TLS errors",
              [](Stage &stage) { Q_EMIT stage.stranger()->sslErrors({}); }),
        local("s_errorChanged", "missing certificate",
              [](Stage &stage) { Q_EMIT stage.stranger()->encrypted(); }),
    };
    for (const Property &property : properties::all()) {
        const auto set = [property](Stage &stage) { property.set(*stage.client, property.first); };
        if (property.changed)
            scenarios.append(local(property.signal(), property.name, set));
    }
    for (const RequestKind &kind : requestkinds::all()) {
        const auto ask = [kind](Stage &stage) {
            requestkinds::start(*stage.client, kind, stage.address("/json"), QString(), 0);
        };
        if (kind.result != Result::Nothing && !kind.isBinary())
            scenarios.append({kind.signal, kind.name, ask});
    }
    return scenarios;
}

#endif // TARVISNET_TESTS_ROBUSTNESSSCENARIOS_H
