#ifndef TARVISNET_TESTS_FETCHBENCH_H
#define TARVISNET_TESTS_FETCHBENCH_H

#include "awaiter.h"
#include "boundprocess.h"

#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

/// The console client at work in a directory of its own, with another one for temporary files.
class FetchBench {
public:
    FetchBench();

    /// In the directory in which the client works.
    QString path(const QString &name) const { return m_directory.filePath(name); }
    /// What lies in its directory for temporary files.
    QStringList leftovers() const;

    /// Runs the client, and meanwhile the event loop, for the servers live in it.
    void run(const QStringList &arguments);
    /// The first half of run().
    void start(const QStringList &arguments);
    /// The second half. The exit code is -1 if the client did not end by itself.
    void finish();
    /// Where standard output goes instead of output().
    void setOutputFile(const QString &path) { m_process.setStandardOutputFile(path); }
    /// As Ctrl-C does.
    void interrupt() { m_process.terminate(); }

    int exitCode() const { return m_exitCode; }
    QByteArray output() const { return m_output; }
    QByteArray messages() const { return m_messages; }
    QList<QByteArray> messageLines() const;

private:
    QTemporaryDir m_directory;
    BoundProcess m_process;
    Awaiter m_awaiter;
    int m_exitCode = -1;
    QByteArray m_output;
    QByteArray m_messages;
};

#endif // TARVISNET_TESTS_FETCHBENCH_H
