#ifndef FETCHER_H
#define FETCHER_H

#include "engine.h"
#include "exitcode.h"
#include "options.h"
#include "progress.h"
#include "target.h"

#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <memory>

class Console;

/// Asks for everything that the command line names, delivers what arrives and keeps count of how
/// each request ended.
///
/// The library reports by URL, so that is how requests are told apart here: every one ends in its
/// result signal, or in an error or an abort that carries its URL. Behind a redirect the errors
/// carry a URL that we never asked for. Then nobody can say which request failed, and all of them
/// are given up.
class Fetcher : public QObject {
    Q_OBJECT

public:
    Fetcher(const Options &options, Console &console, QObject *parent = nullptr);

    void start();
    /// Aborts what is under way. What has arrived of a binary download stays to be resumed.
    void interrupt();

Q_SIGNALS:
    void finished(ExitCode exitCode);

private:
    void connectEngine();
    void makeTargets();
    bool makeDirectories();
    void startTarget(const Target &target);

    void documentArrived(const QJsonDocument &document, const QString &url);
    void bytesArrived(const QByteArray &bytes, const QString &url);
    void fileArrived(const QByteArray &bytes, const QString &url);
    void requestConcluded(const QString &url);
    void requestFailed(short code, const QString &url, const QJsonDocument &answer);
    void requestAborted(const QString &url);
    void bytesProgressed(qint64 bytes, qint64 total, const QString &url);
    void percentProgressed(double percent, const QString &url);

    bool isUnderWay(const QString &url) const;
    QString reason(short code, const QString &url) const;
    void tellError(short code, const QString &url);
    void tellAnswer(const QJsonDocument &answer);
    void tellDocument(const QJsonDocument &document);
    void tellFullOutput(const QString &url);
    void deliverSpooled(const QString &url);
    void settle(const QString &url, ExitCode end);
    void giveUp();
    void noteCause(ExitCode cause);
    void finish();
    void tellWhatIsKept();

    const Options m_options;
    Console &m_console;
    Progress m_progress;
    const std::unique_ptr<Engine> m_engine;
    /// By URL text.
    QHash<QString, Target> m_targets;
    /// URL texts of the requests that have not ended.
    QStringList m_open;
    /// The request that is being handed to the library: a refusal need not carry its URL.
    const Target *m_starting = nullptr;
    int m_failures = 0;
    /// Of the first failure that has one of its own.
    ExitCode m_cause = Failed;
    bool m_interrupted = false;
};

#endif // FETCHER_H
