#ifndef TARVISNET_TESTS_PROGRAM_H
#define TARVISNET_TESTS_PROGRAM_H

#include "boundprocess.h"
#include "filesizelimit.h"

#include <QtCore/QDir>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <functional>

/// A document's program at work in a directory of its own, which is its temporary directory too.
/// The event loop runs meanwhile, for the server lives in it.
class Program {
public:
    using Watch = std::function<void()>;

    Program(const QString &path, const QStringList &arguments)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("TMPDIR"), m_directory.path());
        m_process.setProcessEnvironment(environment);
        m_process.setWorkingDirectory(m_directory.path());
        m_process.setProgram(path);
        m_process.setArguments(arguments);
    }

    QString path(const QString &name) const { return m_directory.filePath(name); }

    QStringList files() const { return QDir(m_directory.path()).entryList(QDir::Files); }

    /// From now on no file that it writes grows beyond so many bytes, as if the disk were full.
    void limitFiles(rlim_t bytes) { m_mostBytes = bytes; }

    /// The exit code; -1 when the program does not end by itself. \a watch is called all the time.
    int run(const Watch &watch = [] {})
    {
        const bool ended = runUntil([this, &watch] {
            watch();
            return m_process.state() == QProcess::NotRunning;
        });
        return ended && m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }

    /// Kills it as soon as \a condition is met; false when that takes too long.
    bool killWhen(const std::function<bool()> &condition)
    {
        const bool met = runUntil(condition);
        m_process.kill();
        return m_process.waitForFinished() && met;
    }

    /// What it said on standard error.
    QByteArray output() const { return m_output; }

private:
    bool runUntil(const std::function<bool()> &condition)
    {
        {
            const FileSizeLimit limit(m_mostBytes);
            m_process.start(QIODevice::ReadOnly);
        }
        const bool met = QTest::qWaitFor(condition, 60000);
        m_output = m_process.readAllStandardError();
        if (!met)
            qWarning("It took too long. It said: %s", m_output.constData());
        return met;
    }

    QTemporaryDir m_directory;
    BoundProcess m_process;
    rlim_t m_mostBytes = RLIM_INFINITY;
    QByteArray m_output;
};

#endif // TARVISNET_TESTS_PROGRAM_H
