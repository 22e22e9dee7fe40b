#ifndef TARVISNET_TESTS_LOCKEDQUEUE_H
#define TARVISNET_TESTS_LOCKEDQUEUE_H

#include "clientbench.h"

#include <QtCore/QSemaphore>
#include <QtCore/QThread>

#include <thread>

/// Keeps the queue of a client locked from another thread: that one is held in the middle of adding
/// a request, which stays pending. What the bench has heard of that is forgotten.
class LockedQueue {
public:
    LockedQueue(ClientBench &bench, const ReplyData &pending)
        : LockedQueue(bench.client, pending)
    {
        bench.forget();
    }

    LockedQueue(TarvisNet *client, const ReplyData &pending)
    {
        const auto hold = [this, client] {
            if (QThread::currentThread() == client->thread())
                return;
            m_locked.release();
            m_released.acquire();
        };
        m_connection = QObject::connect(client, &TarvisNet::s_repliesCountChanged, hold);
        m_thread = std::thread([client, pending] {
            QMetaObject::invokeMethod(client, "addRequest", Qt::DirectConnection,
                                      Q_ARG(ReplyData, pending));
        });
        m_locked.acquire();
    }

    ~LockedQueue()
    {
        QObject::disconnect(m_connection);
        m_released.release();
        m_thread.join();
    }

private:
    Q_DISABLE_COPY(LockedQueue)

    QSemaphore m_locked;
    QSemaphore m_released;
    QMetaObject::Connection m_connection;
    std::thread m_thread;
};

#endif // TARVISNET_TESTS_LOCKEDQUEUE_H
