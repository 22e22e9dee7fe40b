#include "logrelay.h"

#include <QtCore/QMutex>
#include <QtCore/QTime>

namespace {

// Qt calls the handler without an argument of ours. The mutex keeps the relay, and what it has
// gathered, while another thread logs.
QBasicMutex mutex;
LogRelay *relay = nullptr;
QtMessageHandler previousHandler = nullptr;

const char *nameOf(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return "debug";
    case QtInfoMsg:
        return "info";
    case QtWarningMsg:
        return "warning";
    case QtCriticalMsg:
        return "critical";
    case QtFatalMsg:
        return "fatal";
    }
    return "message";
}

// A probe says something every second.
bool isOfProbe(const QMessageLogContext &context)
{
    return QByteArray(context.file).endsWith("/remoteping");
}

} // namespace

LogRelay::LogRelay(QObject *parent)
    : QObject(parent)
{
    previousHandler = qInstallMessageHandler(nullptr);
    relay = this;
    qInstallMessageHandler(&LogRelay::handle);
}

LogRelay::~LogRelay()
{
    qInstallMessageHandler(previousHandler);
    const QMutexLocker lock(&mutex);
    relay = nullptr;
}

void LogRelay::handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    // What endangers the program is for the terminal, too.
    if (type != QtDebugMsg && type != QtInfoMsg)
        previousHandler(type, context, text);
    const QString time = QTime::currentTime().toString(Qt::ISODate);
    const QMutexLocker lock(&mutex);
    if (relay)
        relay->add(
            context,
            QStringLiteral("%1 %2: %3").arg(time, QLatin1String(nameOf(type)), text.trimmed()));
}

void LogRelay::setPingsShown(bool shown)
{
    const QMutexLocker lock(&mutex);
    m_arePingsShown = shown;
}

void LogRelay::add(const QMessageLogContext &context, const QString &message)
{
    if (isOfProbe(context) && !m_arePingsShown)
        return;
    if (m_messages.isEmpty())
        QMetaObject::invokeMethod(this, &LogRelay::flush, Qt::QueuedConnection);
    m_messages.append(message);
    if (m_messages.size() > mostMessages)
        m_messages.removeFirst();
}

void LogRelay::flush()
{
    QStringList messages;
    {
        const QMutexLocker lock(&mutex);
        messages.swap(m_messages);
    }
    Q_EMIT arrived(messages.join(QLatin1Char('\n')));
}
