#include "lifetime_p.h"

#include <utility>

namespace {

/// Releases a manager when the event loop that is running now gets control back.
class ManagerKeeper : public QObject {
public:
    explicit ManagerKeeper(QSharedPointer<QNetworkAccessManager> manager)
        : m_manager(std::move(manager))
    {
        deleteLater();
    }

private:
    QSharedPointer<QNetworkAccessManager> m_manager;
};

} // namespace

ActiveCall::ActiveCall(QObject *owner, const QSharedPointer<QNetworkAccessManager> &manager)
    : m_owner(owner)
    , m_manager(manager)
{
}

ActiveCall::~ActiveCall()
{
    if (ownerGone() && m_manager)
        releaseOnceUnwound(std::move(m_manager));
}

void releaseOnceUnwound(QSharedPointer<QNetworkAccessManager> manager)
{
    new ManagerKeeper(std::move(manager)); // deletes itself
}

QueueLock::QueueLock(QSharedPointer<QMutex> mutex, int waitMsec)
    : m_mutex(std::move(mutex))
    , m_locked(m_mutex->tryLock(waitMsec))
{
}

QueueLock::~QueueLock()
{
    if (m_locked)
        m_mutex->unlock();
}
