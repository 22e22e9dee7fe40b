#ifndef TARVISNET_TESTS_STRICTBENCH_H
#define TARVISNET_TESTS_STRICTBENCH_H

#include "clientbench.h"
#include "files.h"
#include "operations.h"
#include "policies.h"

#include <QtCore/QDir>
#include <QtCore/QJsonObject>
#include <QtNetwork/QSslCertificate>

/// How a request of a strict client ends: 0 stands for its result.
using Code = int;

/// One request of a strict client, whose waits are short, to a server that fails.
struct StrictBench : ClientBench {
    explicit StrictBench(ScriptedServer::Mode mode = ScriptedServer::Mode::Http,
                         const TransferPolicy &policy = impatient())
        : ClientBench(mode, policy)
        , destination(path("file"))
    {
        QDir(path()).mkdir("temporary");
        client->setTemporaryDirectory(path("temporary"));
        client->setInstallerFileName(destination);
        forget();
    }

    static QSslCertificate certificate(const char *name)
    {
        return QSslCertificate::fromPath(QString(TARVISNET_TEST_CERTIFICATES "/%1.crt").arg(name))
            .value(0);
    }
    static TransferPolicy impatient()
    {
        TransferPolicy policy = policies::strict();
        policy.setCaCertificates({certificate("server"), certificate("wrongname")});
        policy.setRetryDelay(1);
        policy.setIdleTimeout(5000);
        return policy;
    }
    static TransferPolicy waitingFor(int idleMsec)
    {
        TransferPolicy policy = impatient();
        policy.setIdleTimeout(idleMsec);
        return policy;
    }

    /// Sends a request for \a url, and sees it to its end.
    bool run(const RequestKind &kind, qulonglong size, const QUrl &url)
    {
        asked = kind;
        client->setInstallerFileSize(size);
        client->setInstallerFileName(destination);
        forget();
        requestkinds::start(*client, kind, url, destination, size);
        // Also when the request is tried again; behind the last of them there is nothing more.
        for (int changes = 1; outcomes() == 0; ++changes) {
            if (!recorder.waitFor("s_repliesCountChanged", changes, 20000))
                return false;
        }
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
        return outcomes() == 1;
    }
    /// How it has ended.
    Code code() const { return errors().value(0); }
    bool hasFailed() const { return !errors().isEmpty(); }
    QUrl urlOfError() const { return error().at(1).toUrl(); }
    /// Whether the destination is what it is to be: \a content when a file was fetched, and
    /// otherwise what it was. A raw request for a file saves whatever comes.
    bool isPlaced(const QByteArray &old, const QByteArray &content = QByteArray()) const
    {
        const bool isRaw = QByteArray(asked.signal).contains("File");
        const QByteArray expected = asked.isFile() && !hasFailed() ? content : old;
        return (isRaw && !hasFailed()) || files::read(destination) == expected;
    }
    /// What is said of the error.
    QString reason() const
    {
        return error().value(2).toJsonDocument().object().value("reason").toString();
    }
    /// What lies in the only temporary file; null when there is none.
    QByteArray kept() const
    {
        const QDir folder(path("temporary"));
        const QStringList names = folder.entryList({"*.vtxdownload"}, QDir::Files);
        return names.size() == 1 ? files::read(folder.filePath(names.first())) : QByteArray();
    }

    QString destination;
    RequestKind asked;

private:
    int outcomes() const
    {
        int count = 0;
        for (const char *end : {asked.signal, "s_errorChanged", "s_aborted"})
            count += recorder.count(end);
        return count;
    }
};

#endif // TARVISNET_TESTS_STRICTBENCH_H
