#ifndef TARVISNET_TESTS_STAGE_H
#define TARVISNET_TESTS_STAGE_H

#include "behaviours.h"
#include "dice.h"
#include "ledger.h"
#include "scriptedserver.h"

#include <tarvisnet/networkprocessor.h>
#include <tarvisnet/tarvisnet.h>

#include <QtCore/QPointer>
#include <QtCore/QScopedPointer>
#include <QtCore/QSet>
#include <QtCore/QTemporaryDir>
#include <QtNetwork/QNetworkAccessManager>
#include <QtNetwork/QNetworkCookieJar>

#include <functional>
#include <memory>
#include <vector>

/// What an operation asks for.
struct Draft {
    const char *operation;
    const char *result;
    bool isFile = false;
    /// Whether the operation itself completes the URL of the TLS server.
    bool byPath = false;
};

/// A drawn request: where it goes to, and what to do when it succeeds.
struct DrawnRequest {
    int number = 0;
    QUrl url;
    QString file;
    int size = 0;
};

/// Everything that a run plays with: servers, a client, a processor, directories, and the account
/// of it all.
class Stage : public QObject {
    Q_OBJECT

public:
    explicit Stage(Dice &dice);
    ~Stage() override;

    TarvisNet *client() const { return m_client.data(); }
    NetworkProcessor *processor() const { return m_processor.data(); }
    Ledger &ledger() { return m_ledger; }
    int clientNumber() const { return m_clientNumber; }

    /// Draws the answer of request \a number, enters it into the account, and tells the servers.
    DrawnRequest draw(int number, Dice &dice, const Draft &draft);
    /// The same for the processor.
    DrawnRequest drawForProcessor(int number, Dice &dice, const Draft &draft);
    /// The latest rawGet() that was not redirected.
    const DrawnRequest &latest() const { return m_latest; }
    QStringList paths() const { return m_paths; }

    /// Deletes the client, now or in the next turn of the event loop, and makes another.
    void replaceClient(bool later);
    void replaceProcessor();
    /// Replies that the client's manager holds.
    QList<QNetworkReply *> replies() const;
    /// The client's own manager, also after its cookie jar was replaced.
    QPointer<QObject> manager() const { return m_manager; }
    QNetworkCookieJar *newJar();

    /// \name Directories
    /// @{
    QString directory(int number) const;
    /// A path that operations may write to.
    QString named(const QString &name);
    /// What was written that nobody named; empty when all is well.
    QStringList strayFiles() const;
    /// @}

    ScriptedServer &secureServer() const { return *m_servers.at(1); }
    ScriptedServer &honestServer() { return m_honest; }
    void closeConnections();
    /// Deletes the client for good.
    void deleteClient();
    void deleteProcessor();
    /// Requests of the processor that have not ended.
    QStringList openOfProcessor() const { return m_ledger.open(m_processorNumber); }

    /// Called in every emission, after it was entered.
    std::function<void()> onSignal;

private:
    void makeDirectories();
    void makeClient();
    void makeProcessor();
    void followClient(int owner);
    void followProcessor(int owner);
    DrawnRequest answerWith(int number, Dice &dice, Asked asked, const Draft &draft);
    ScriptedServer *redirect(int number, int hop, Dice &dice, const Asked &asked,
                             ScriptedServer *server);
    QUrl urlOf(Dice &dice, const QString &path, ScriptedServer **server);
    void entered();

    QTemporaryDir m_directory;
    QSet<QString> m_named;
    std::vector<std::unique_ptr<QNetworkCookieJar>> m_jars;
    std::vector<std::unique_ptr<ScriptedServer>> m_servers;
    ScriptedServer m_honest;
    quint16 m_closedPort;
    Ledger m_ledger;
    DrawnRequest m_latest;
    QStringList m_paths;
    QPointer<TarvisNet> m_client;
    QPointer<QObject> m_manager;
    bool m_isReplacing = false;
    int m_clientNumber = 0;
    QPointer<NetworkProcessor> m_processor;
    int m_processorNumber = 0;
    int m_owners = 0;
};

#endif // TARVISNET_TESTS_STAGE_H
