#ifndef TARVISNET_TESTS_STRICTRUN_H
#define TARVISNET_TESTS_STRICTRUN_H

#include "download.h"
#include "program.h"

#include <QtCore/QTemporaryDir>
#include <QtCore/QTimer>

#include <vector>

/// What came of one run, or of many.
struct StrictFigures {
    qint64 downloads = 0;
    qint64 requests = 0;
    qint64 kills = 0;
    /// Longest one of the event loop of a program that was not killed.
    qint64 pauseMsec = 0;
    /// How often a request ended so; errors with their code.
    QMap<QString, qint64> outcomes;

    void add(const StrictFigures &other);
};

/// One run of what "never a wrong file" means: a program fetches some files, while the server lies
/// and the program is killed, until the server tells the truth.
class StrictRun {
public:
    static constexpr int downloadsOfOne = 20;

    explicit StrictRun(quint64 seed);

    /// What did not hold; empty when all is well.
    QStringList run();
    /// What was done, in order.
    QStringList diary() const { return m_diary; }
    const StrictFigures &figures() const { return m_figures; }

private:
    enum class Ending { Quit, QuitEarly, Kill };

    /// What the user does to the program between two starts.
    struct Life {
        Ending ending = Ending::Quit;
        /// After so many events, unless it has ended by then; an event is a request or an outcome.
        int length = 0;
        int delayMsec = 0;
        int idleTimeout = 0;
        QVector<int> asked;
        /// Which download is aborted, by the event after which it is.
        QMap<int, int> aborts;
    };

    Life drawLife();
    void makeDownloads();
    void serve(ScriptedServer &server);
    void answer(const HttpRequest &request, HttpResponse &response);
    QString url(const Download &download) const;

    void play(const Life &life);
    void ask(Program &program, const Life &life);
    void hear(const QStringList &words);
    void passEvent();
    void endEarly();
    void checkLife(const Program &program);
    void playLastLife();
    void checkFiles();
    void fault(const QString &text) { m_faults.append(text); }

    Dice m_dice;
    QTemporaryDir m_directory;
    /// On another file system, where there is one.
    QTemporaryDir m_otherDisk;
    QDir m_home;
    QDir m_temporary;
    ScriptedServer m_plain{ScriptedServer::Mode::Http};
    ScriptedServer m_secure{ScriptedServer::Mode::Https};
    /// Its certificate is for another name, and its files are wrong.
    ScriptedServer m_impostor{ScriptedServer::Mode::Https};
    std::vector<Download> m_downloads;
    QVector<Life> m_lives;

    Program *m_program = nullptr;
    QTimer m_killer;
    Life m_life;
    int m_events = 0;
    Awaiter m_awaiter;
    StrictFigures m_figures;
    QStringList m_diary;
    QStringList m_faults;
};

#endif // TARVISNET_TESTS_STRICTRUN_H
