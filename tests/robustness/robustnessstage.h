#ifndef TARVISNET_TESTS_ROBUSTNESSSTAGE_H
#define TARVISNET_TESTS_ROBUSTNESSSTAGE_H

#include "clientbench.h"
#include "distrustedserver.h"
#include "fakereply.h"
#include "files.h"
#include "policies.h"

#include <QtCore/QEventLoop>
#include <QtCore/QList>
#include <QtCore/QMetaMethod>
#include <QtCore/QTimer>
#include <QtNetwork/QSslCertificate>

#include <functional>

/// How a request reaches its answer.
struct Road {
    const char *name = "";
    ScriptedServer::Mode mode = ScriptedServer::Mode::Http;
    bool isRedirected = false;
    bool isStrict = false;

    bool isPlain() const { return mode == ScriptedServer::Mode::Http && !isRedirected; }
    TransferPolicy policy() const
    {
        if (!isStrict)
            return TransferPolicy();
        TransferPolicy policy = policies::strict();
        policy.setCaCertificates(
            QSslCertificate::fromPath(QStringLiteral(TARVISNET_TEST_CERTIFICATES "/server.crt")));
        policy.setRetryDelay(1);
        return policy;
    }
};

/// A bench on which a scenario makes the client emit a signal.
struct RobustnessStage : ClientBench {
    explicit RobustnessStage(const Road &road)
        : ClientBench(road.mode, road.policy())
        , isRedirected(road.isRedirected)
    {
        server.on("/json", answers::json({{"answer", 42}}));
        server.on("/bytes", answers::bytes("0123456789"));
        server.on("/missing", answers::json({{"error", "gone"}}, 404));
        server.on("/locked", answers::status(401));
        server.on("/withheld", answers::withhold());
        server.on("/cut", answers::cutShort("a little"));
        server.on("/busy", answers::bytes(QByteArray(), 503, {{"Retry-After", "300"}}));
        server.on("/failing", answers::status(503));
        server.on("/astray", answers::redirect(302, "ftp://127.0.0.1/"));
        server.onRequest([this](const HttpRequest &request, HttpResponse &response) {
            const QByteArray prefix("/to");
            if (!request.path().startsWith(prefix + '/'))
                return response.send(404);
            const QUrl target = server.url(request.path().mid(prefix.size()));
            response.send(302, {{"Location", target.toEncoded()}});
        });
        if (!road.isStrict)
            return;
        // Checked installers are saved there.
        client->setInstallerFileName(path("installer"));
        forget();
    }

    /// The address of \a path, by way of a redirect if the road has one.
    QUrl address(const QString &path) const
    {
        return server.url(isRedirected ? QStringLiteral("/to") + path : path);
    }
    void add(const QString &replyType, const QString &path, const FileData &file = FileData()) const
    {
        ClientBench::add(clientaccess::record(replyType, address(path), file));
    }
    /// A redirected download finds its file in place, because it collects none itself.
    void fetchBinary()
    {
        if (isRedirected)
            files::write(path("file.vtxdownload"), "0123456789");
        client->fetchBinary(address("/bytes"), path("file"), 10);
    }
    /// A reply that follows the client's rules without being one of its own; it lives as long as
    /// the stage.
    FakeReply *stranger()
    {
        auto *reply = new FakeReply(QUrl("https://127.0.0.1/stranger"), &strangers);
        follow(*reply);
        return reply;
    }

    const bool isRedirected;
    QObject strangers;
};

/// What makes the client emit a signal.
struct Scenario {
    QByteArray signal;
    QByteArray name;
    std::function<void(RobustnessStage &)> run;
    /// Whether there is a difference between the roads.
    bool usesNetwork = true;
    /// Which emission of the signal is meant.
    int emission = 0;
    enum Clients { All, Traditional, Strict } clients = All;

    bool suits(const Road &road) const
    {
        return (usesNetwork || road.isPlain())
            && (clients == All || (clients == Strict) == road.isStrict);
    }
};

#endif // TARVISNET_TESTS_ROBUSTNESSSTAGE_H
