#ifndef TARVISNET_TESTS_PROCESSORBENCH_H
#define TARVISNET_TESTS_PROCESSORBENCH_H

#include "awaiter.h"
#include "fakereply.h"
#include "logcapture.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/networkprocessor.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtCore/QPointer>

#include <algorithm>

/// What the tests of the stand-alone processor share.
namespace processorbench {

/// The source file that its messages name.
inline constexpr const char *sourceFile = "../../source/appl/networkprocessor";

inline ReplyData record(const QString &replyType, const QUrl &url)
{
    ReplyData data;
    data.replyType = replyType;
    data.request.setUrl(url);
    return data;
}

inline ReplyData fileRecord(const QString &replyType, const QUrl &url, const QString &path,
                            quint64 size = 0)
{
    ReplyData data = record(replyType, url);
    data.fileData.filePath = path;
    data.fileData.size = size;
    return data;
}

/// What was emitted besides progress reports.
inline QList<SignalCall> outcomes(const SignalRecorder &recorder)
{
    QList<SignalCall> found;
    for (const SignalCall &call : recorder.calls()) {
        if (!call.name.endsWith(QLatin1String("Progress")))
            found.append(call);
    }
    return found;
}

inline QStringList outcomeNames(const SignalRecorder &recorder)
{
    QStringList names;
    for (const SignalCall &call : outcomes(recorder))
        names.append(call.name);
    return names;
}

/// Arguments of s_errorChanged.
inline QVariantList error(short code, const QString &url)
{
    return {QVariant::fromValue(code), url};
}

/// The processor's own messages of one level that contain \a part.
inline QStringList texts(const LogCapture &log, const QString &part = QString(),
                         QtMsgType type = QtDebugMsg)
{
    QStringList found;
    for (const LogEntry &entry : log.from(sourceFile)) {
        if (entry.type == type && entry.text.contains(part))
            found.append(entry.text);
    }
    return found;
}

/// Has the processor follow a reply that the test drives. It has no record.
inline QPointer<FakeReply> follow(NetworkProcessor &processor, const QUrl &url = QUrl())
{
    auto *reply = new FakeReply(url, &processor);
    QMetaObject::invokeMethod(&processor, "createReplyConnections", Qt::DirectConnection,
                              Q_ARG(QNetworkReply *, reply));
    return reply;
}

/// Runs the deletion that the processor has asked for.
inline void deleteNow(QObject *object)
{
    QCoreApplication::sendPostedEvents(object, QEvent::DeferredDelete);
}

/// Finds the replies that a processor keeps to itself, by the events that they get.
class ReplyCatcher : public QObject {
public:
    ReplyCatcher() { QCoreApplication::instance()->installEventFilter(this); }

    /// The reply number \a index since the start; null when it is deleted.
    QNetworkReply *at(int index = 0) const { return m_replies.value(index); }

    bool waitFor(int count = 1, int msec = 10000)
    {
        return m_awaiter.wait([this, count] { return m_replies.size() >= count; }, msec);
    }
    bool allGone() const
    {
        return std::all_of(m_replies.begin(), m_replies.end(),
                           [](const auto &reply) { return reply.isNull(); });
    }
    /// Waits until there was a reply and every one is deleted.
    bool waitUntilGone(int msec = 10000)
    {
        return m_awaiter.wait([this] { return !m_replies.isEmpty() && allGone(); }, msec);
    }

    bool eventFilter(QObject *watched, QEvent * /*event*/) override
    {
        auto *reply = qobject_cast<QNetworkReply *>(watched);
        if (reply && !m_replies.contains(reply)) {
            m_replies.append(reply);
            connect(reply, &QObject::destroyed, this, [this] { m_awaiter.changed(); });
            m_awaiter.changed();
        }
        return false;
    }

private:
    QList<QPointer<QNetworkReply>> m_replies;
    Awaiter m_awaiter;
};

} // namespace processorbench

#endif // TARVISNET_TESTS_PROCESSORBENCH_H
