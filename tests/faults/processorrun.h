#ifndef TARVISNET_TESTS_PROCESSORRUN_H
#define TARVISNET_TESTS_PROCESSORRUN_H

#include "endings.h"
#include "operations.h"
#include "processorbench.h"

#include <QtCore/QTemporaryDir>
#include <QtNetwork/QSslError>

/// One request of a processor, from its start to the deletion of its reply.
struct ProcessorRun {
    /// A file is saved in \a folder; without one, in a directory of the run's own.
    ProcessorRun(const RequestKind &kind, const QUrl &url, qulonglong size,
                 const QString &folder = QString());

    QString path() const { return (folder.isEmpty() ? directory.path() : folder) + "/file"; }

    /// What was logged besides progress, repetitions once.
    QStringList said() const;
    /// What the signals but progress and said() are to be after such an ending. Before it, Qt found
    /// \a tlsErrors in the certificate.
    QStringList expectedSignals(const Ending &ending) const;
    QStringList expectedMessages(const Ending &ending,
                                 const QList<QSslError::SslError> &tlsErrors) const;

    const RequestKind kind;
    const QString url;
    const QString folder;
    QTemporaryDir directory;
    LogCapture log;
    processorbench::ReplyCatcher replies;
    NetworkProcessor processor;
    SignalRecorder recorder{&processor};
};

#endif // TARVISNET_TESTS_PROCESSORRUN_H
