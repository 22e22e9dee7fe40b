#ifndef CONSOLE_H
#define CONSOLE_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

/// The two streams of the program: results go to standard output, everything else to standard
/// error.
///
/// On a terminal the last line of standard error is a status that is redrawn in place. Everything
/// else that is written takes its turn above that status.
class Console {
public:
    explicit Console(bool quiet);
    ~Console();

    /// Whether standard error is a terminal, and hence whether setStatus() shows anything.
    bool isTerminal() const { return m_terminal; }
    /// Width of that terminal.
    int columns() const;

    /// Writes a result. False when standard output does not take it.
    bool result(const QByteArray &bytes);
    /// Says what the user should know in any case.
    void error(const QString &text);
    /// Says what is left out with --quiet.
    void note(const QString &text);
    /// Redraws the status line.
    void setStatus(const QString &text);
    /// Leaves the status line where it is; the next one is a new one.
    void keepStatus();

private:
    Q_DISABLE_COPY(Console)

    void eraseStatus();

    const bool m_quiet;
    const bool m_terminal;
    bool m_statusShown = false;
};

#endif // CONSOLE_H
