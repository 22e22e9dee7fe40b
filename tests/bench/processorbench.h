#ifndef TARVISNET_TESTS_PROCESSORBENCH_H
#define TARVISNET_TESTS_PROCESSORBENCH_H

#include "answers.h"
#include "awaiter.h"
#include "fakereply.h"
#include "logcapture.h"
#include "scriptedserver.h"
#include "signalrecorder.h"

#include <tarvisnet/networkprocessor.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QEvent>
#include <QtCore/QPointer>
#include <QtCore/QTemporaryDir>

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

/// Emissions, each as the signal's name and its arguments.
using Emissions = QList<QVariantList>;

template <typename... Arguments>
QVariantList emission(const char *signal, const Arguments &...arguments)
{
    return {QString(signal), QVariant::fromValue(arguments)...};
}

inline QVariantList failure(short code, const QString &url)
{
    return emission("s_errorChanged", code, url);
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

/// A processor with a server to talk to, and everything that it says. The messages of its
/// construction are forgotten.
struct ProcessorBench {
    explicit ProcessorBench(ScriptedServer::Mode mode = ScriptedServer::Mode::Http)
        : server(mode)
    {
        log.clear();
    }
    ~ProcessorBench() { delete processor; }

    QString path(const QString &name = QStringLiteral("file")) const
    {
        return directory.filePath(name);
    }
    QString url(const QString &path = QStringLiteral("/")) const
    {
        return server.url(path).toString();
    }

    void start(const ReplyData &data, bool isPost = false, const QByteArray &body = "body") const
    {
        isPost ? processor->startPost(data, body) : processor->startGet(data);
    }
    /// Starts a request and waits until its reply is deleted.
    bool run(const ReplyData &data, bool isPost = false, const QByteArray &body = "body")
    {
        start(data, isPost, body);
        return replies.waitUntilGone();
    }
    /// Calls a private slot by its name.
    template <typename... Arguments>
    void call(const char *slot, Arguments... arguments) const
    {
        if (!QMetaObject::invokeMethod(processor, slot, Qt::DirectConnection, arguments...))
            qFatal("NetworkProcessor has no slot %s", slot);
    }
    /// Has the processor follow a reply that the test drives. It has no record.
    QPointer<FakeReply> follow(const QUrl &url = QUrl()) const
    {
        auto *reply = new FakeReply(url, processor);
        call("createReplyConnections", Q_ARG(QNetworkReply *, reply));
        return reply;
    }

    /// What was emitted besides progress reports.
    processorbench::Emissions outcomes() const
    {
        processorbench::Emissions found;
        for (const SignalCall &call : recorder.calls()) {
            if (!call.name.endsWith(QLatin1String("Progress")))
                found.append(QVariantList{call.name} + call.args);
        }
        return found;
    }
    /// The processor's own messages of one level that contain \a part.
    QStringList texts(const QString &part = QString(), QtMsgType type = QtDebugMsg) const
    {
        QStringList found;
        for (const LogEntry &entry : log.from(processorbench::sourceFile)) {
            if (entry.type == type && entry.text.contains(part))
                found.append(entry.text);
        }
        return found;
    }
    QStringList warnings() const { return texts(QString(), QtWarningMsg); }

    QTemporaryDir directory;
    ScriptedServer server;
    LogCapture log;
    processorbench::ReplyCatcher replies;
    QPointer<NetworkProcessor> processor{new NetworkProcessor};
    SignalRecorder recorder{processor};

private:
    Q_DISABLE_COPY(ProcessorBench)
};

#endif // TARVISNET_TESTS_PROCESSORBENCH_H
