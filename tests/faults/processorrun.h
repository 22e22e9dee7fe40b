#ifndef TARVISNET_TESTS_PROCESSORRUN_H
#define TARVISNET_TESTS_PROCESSORRUN_H

#include "endings.h"
#include "operations.h"
#include "processorbench.h"

#include <QtNetwork/QSslError>

/// One request of a processor, from its start to the deletion of its reply, to a server that fails.
struct ProcessorRun : ProcessorBench {
    ProcessorRun(ScriptedServer::Mode mode, const RequestKind &kind)
        : ProcessorBench(mode)
        , m_kind(kind)
    {
    }

    void ask(const QUrl &url, qulonglong size);

    /// What was logged besides progress, repetitions once.
    QStringList said() const;
    /// What the signals but progress and said() are to be after such an ending. Before it, Qt found
    /// \a tlsErrors in the certificate.
    QStringList expectedSignals(const Ending &ending) const;
    QStringList expectedMessages(const Ending &ending,
                                 const QList<QSslError::SslError> &tlsErrors) const;

private:
    const RequestKind m_kind;
    QString m_url;
};

#endif // TARVISNET_TESTS_PROCESSORRUN_H
