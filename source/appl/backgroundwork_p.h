#ifndef TARVISNET_BACKGROUNDWORK_P_H
#define TARVISNET_BACKGROUNDWORK_P_H

#include <QtCore/QObject>
#include <QtCore/QSharedPointer>
#include <QtCore/QThreadPool>
#include <QtCore/QVector>
#include <QtCore/QWeakPointer>

#include <atomic>
#include <functional>

/// Does what would hold the event loop, in threads of its own: those of the application may all be
/// taken.
class BackgroundWork : public QObject {
public:
    /// True once the job that it belongs to is cancelled. Whoever holds it may set it.
    using Ticket = QSharedPointer<std::atomic_bool>;
    /// Looks at the flag often: at least after every MiB of a file.
    using Job = std::function<void(const std::atomic_bool &isCancelled)>;
    using Done = std::function<void()>;

    BackgroundWork();
    /// Cancels every job and waits for those that run. Calls nobody.
    ~BackgroundWork() override;

    /// Runs \a job in another thread and then calls \a done, which may be empty, in this object's
    /// thread; always later, and never once the ticket is cancelled. What \a job holds is destroyed
    /// in the other thread.
    Ticket run(Job job, Done done);

private:
    Q_DISABLE_COPY(BackgroundWork)

    Ticket newTicket();

    QThreadPool m_pool;
    QVector<QWeakPointer<std::atomic_bool>> m_tickets;
};

#endif // TARVISNET_BACKGROUNDWORK_P_H
