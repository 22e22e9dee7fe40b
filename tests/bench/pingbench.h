#ifndef TARVISNET_TESTS_PINGBENCH_H
#define TARVISNET_TESTS_PINGBENCH_H

#include "fakemanager.h"
#include "logcapture.h"
#include "remoteping.h"
#include "signalrecorder.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtCore/QScopedPointer>
#include <QtCore/QSharedPointer>
#include <QtCore/QTimer>
#include <QtCore/QUrl>

#include <functional>

/// A RemotePing on a manager that sends nothing, driven step by step, so that what depends on its
/// ticks does not depend on time. Its own timer is too slow to get in between. The messages of its
/// construction are forgotten.
struct PingBench {
    PingBench()
    {
        ping->setUrl(QUrl(QStringLiteral("http://127.0.0.1:8080")));
        ping->setPeriod(3600 * 1000);
        log.clear();
    }

    static QTimer *timerOf(const RemotePing &ping)
    {
        return ping.findChild<QTimer *>(QString(), Qt::FindDirectChildrenOnly);
    }

    QTimer *timer() const { return timerOf(*ping); }

    /// Makes the timer emit, whether it runs or not. The probe may die of it.
    void tick(int times = 1) const
    {
        for (int i = 0; i < times; ++i)
            QMetaObject::invokeMethod(timer(), "timeout", Qt::DirectConnection);
    }

    /// Calls a slot, private ones included, by its name.
    template <typename... Arguments>
    void call(const char *slot, Arguments... arguments) const
    {
        if (!QMetaObject::invokeMethod(ping.data(), slot, Qt::DirectConnection, arguments...))
            qFatal("RemotePing has no slot %s", slot);
    }

    /// Sends a ping and returns its reply.
    FakeReply *send() const
    {
        call("sendPing");
        return manager->last().reply;
    }

    /// How often each reply was aborted, in the order of sending; -1 for one that is deleted.
    QList<int> aborts() const
    {
        QList<int> calls;
        for (int i = 0; i < manager->count(); ++i) {
            const FakeReply *reply = manager->at(i).reply;
            calls.append(reply ? reply->abortCalls() : -1);
        }
        return calls;
    }

    /// Runs the deletions that were asked for.
    static void releaseDeleted()
    {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    LogCapture log;
    QSharedPointer<FakeManager> manager{new FakeManager};
    QScopedPointer<RemotePing> ping{new RemotePing(manager)};
    SignalRecorder signals{ping.data()};
};

/// A RemotePing that is pinging a real server without end.
struct RealPing {
    explicit RealPing(const QUrl &url, int periodMsec = 5, int timeoutMsec = 10000)
    {
        ping.setUrl(url);
        ping.setPeriod(periodMsec);
        ping.setTimeout(timeoutMsec);
        ping.start();
        log.clear();
        signals.clear();
    }

    LogCapture log;
    QSharedPointer<QNetworkAccessManager> manager{new QNetworkAccessManager};
    RemotePing ping{manager};
    SignalRecorder signals{&ping};
};

Q_DECLARE_METATYPE(std::function<void(RemotePing &)>)

#endif // TARVISNET_TESTS_PINGBENCH_H
