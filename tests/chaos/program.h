#ifndef TARVISNET_TESTS_PROGRAM_H
#define TARVISNET_TESTS_PROGRAM_H

#include "boundprocess.h"

#include <functional>

/// One life of the worker, as seen by the one who started it.
class Program {
public:
    /// Both are called from the event loop.
    struct Callbacks {
        /// The words of a line that it wrote.
        std::function<void(const QStringList &)> said;
        std::function<void()> ended;
    };

    Program(const QStringList &arguments, const Callbacks &callbacks);
    ~Program();

    void tell(const QStringList &words);
    void quit();
    void kill();
    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }
    bool wasKilled() const { return m_wasKilled; }
    /// Why it cannot have ended in this way by our doing; empty if it can.
    QString fault() const;

private:
    Q_DISABLE_COPY(Program)

    void readLines();

    const Callbacks m_callbacks;
    BoundProcess m_process;
    bool m_isQuitting = false;
    bool m_wasKilled = false;
};

#endif // TARVISNET_TESTS_PROGRAM_H
