#include "lifetime_p.h"

#include <utility>

namespace {

/// Releases an object when the event loop that is running now gets control back.
class Keeper : public QObject {
public:
    explicit Keeper(QSharedPointer<QObject> object)
        : m_kept(std::move(object))
    {
        deleteLater();
    }

private:
    QSharedPointer<QObject> m_kept;
};

} // namespace

ActiveCall::ActiveCall(QObject *owner, const QSharedPointer<QObject> &managers)
    : m_owner(owner)
    , m_managers(managers)
{
}

ActiveCall::~ActiveCall()
{
    if (ownerGone() && m_managers)
        new Keeper(std::move(m_managers)); // deletes itself
}

QueueLock::QueueLock(QSharedPointer<QRecursiveMutex> mutex, int waitMsec)
    : m_mutex(std::move(mutex))
    , m_locked(m_mutex->tryLock(waitMsec))
{
}

QueueLock::~QueueLock()
{
    if (m_locked)
        m_mutex->unlock();
}
