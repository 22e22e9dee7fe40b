#ifndef TARVISNET_TESTS_DOWNLOAD_H
#define TARVISNET_TESTS_DOWNLOAD_H

#include "lies.h"

#include <QtCore/QDir>
#include <QtCore/QMap>
#include <QtCore/QQueue>
#include <QtCore/QVector>

/// One file that is fetched, by as many requests and starts of the program as it takes: its
/// versions, what the server will say, and what may be at its destination.
class Download {
public:
    /// Everything is drawn at once, from a seed of its own.
    Download(int number, quint64 seed, const QDir &home);

    /// \name For the program
    /// @{

    QByteArray path() const { return m_path; }
    bool isSecure() const { return m_isSecure; }
    /// What fetchBinary() takes behind the URL, in words without blanks.
    QStringList arguments() const;

    /// @}
    /// \name For the server
    /// @{

    void setTargets(const QList<QByteArray> &targets) { m_targets = targets; }
    /// Returns the name of the lie.
    const char *answer(const HttpRequest &request, HttpResponse &response);
    /// From now on it tells nothing but the truth, about the last version.
    void behave();

    /// @}
    /// \name What came of it
    /// @{

    void ask();
    /// Takes down what the program says of it: the name of a signal, and its code if it is an
    /// error.
    void end(const QString &signal, int code);
    /// The program is gone.
    int takeOpen() { return std::exchange(m_open, 0); }
    int open() const { return m_open; }
    bool isDone() const { return m_isDone; }
    /// Whether the destination is as it was, or a version that was served.
    void checkDestination();
    QStringList faults() const { return m_faults; }

    /// @}

private:
    struct Step {
        const Lie *forWhole = nullptr;
        const Lie *forRest = nullptr;
        quint64 seed = 0;
    };

    void drawVersions(Dice &dice);
    void drawKnowledge(Dice &dice);
    void drawSteps(Dice &dice);
    const Lie *drawLie(Dice &dice, int Lie::*weight) const;
    void placeOldFile(Dice &dice);
    bool isEnough(Needs needs) const;
    /// How much of it is like which version.
    QString described(const QByteArray &content) const;
    bool isServed(const QByteArray &content) const;
    void fault(const QString &text);

    const QByteArray m_path;
    const QString m_destination;
    QVector<Version> m_versions;
    QList<QByteArray> m_targets;
    bool m_isSecure = false;
    qint64 m_size = 0;
    QByteArray m_hash = "-";

    QQueue<Step> m_steps;
    int m_current = 0;
    int m_open = 0;
    bool m_isDone = false;
    /// At the destination; null for no file.
    QByteArray m_content;
    QStringList m_faults;
};

#endif // TARVISNET_TESTS_DOWNLOAD_H
