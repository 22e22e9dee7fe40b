#ifndef TARVISNET_TESTS_CLIENTBENCH_H
#define TARVISNET_TESTS_CLIENTBENCH_H

#include "answers.h"
#include "clientaccess.h"
#include "logcapture.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <QtCore/QPointer>
#include <QtCore/QTemporaryDir>

/// A client with a server to talk to, and everything that it says. The messages of its
/// construction are forgotten; what its destructor emits is recorded by a recorder of the test's
/// own.
struct ClientBench {
    explicit ClientBench(ScriptedServer::Mode mode = ScriptedServer::Mode::Http)
        : server(mode)
        , client(new TarvisNet)
        , recorder(client)
    {
        log.clear();
    }
    ~ClientBench() { delete client; }

    QString path(const QString &name) const { return directory.filePath(name); }
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
    /// What the client logged, each message behind its level.
    QStringList messages() const
    {
        QStringList texts;
        for (const LogEntry &entry : log.from(clientaccess::sourceFile)) {
            const bool isDebug = entry.type == QtDebugMsg;
            texts.append(QLatin1String(isDebug ? "debug: " : "warning: ") + entry.text);
        }
        return texts;
    }
    QString url(const QString &path) const { return server.url(path).toString(); }

    QTemporaryDir directory;
    ScriptedServer server;
    LogCapture log;
    QPointer<TarvisNet> client;
    SignalRecorder recorder;

private:
    Q_DISABLE_COPY(ClientBench)
};

#endif // TARVISNET_TESTS_CLIENTBENCH_H
