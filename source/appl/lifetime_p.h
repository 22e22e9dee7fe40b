#ifndef TARVISNET_LIFETIME_P_H
#define TARVISNET_LIFETIME_P_H

#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QSharedPointer>

/// \file
/// Guards for one fact: whoever receives a signal may delete the object that emitted it.

/// Stands in every function that emits or calls what may emit. Tells whether the owner was deleted
/// meanwhile, and keeps its network access managers until the call stack has unwound if so: Qt goes
/// on using the reply below us, and the reply dies with its manager.
class ActiveCall {
public:
    ActiveCall(QObject *owner, const QSharedPointer<QObject> &managers);
    ~ActiveCall();

    /// True once the owner is deleted: none of its members may be touched any more.
    bool ownerGone() const { return m_owner.isNull(); }

private:
    Q_DISABLE_COPY(ActiveCall)

    QPointer<QObject> m_owner;
    QSharedPointer<QObject> m_managers;
};

/// Holds a mutex that may lose its owner while it is locked.
class QueueLock {
public:
    QueueLock(QSharedPointer<QRecursiveMutex> mutex, int waitMsec);
    ~QueueLock();

    bool isLocked() const { return m_locked; }

private:
    Q_DISABLE_COPY(QueueLock)

    QSharedPointer<QRecursiveMutex> m_mutex;
    bool m_locked;
};

#endif // TARVISNET_LIFETIME_P_H
