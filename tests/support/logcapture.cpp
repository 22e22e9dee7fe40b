#include "logcapture.h"

#include <QtCore/QMutexLocker>
#include <QtCore/QVector>

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace {

struct Captures {
    QMutex mutex;
    QVector<LogCapture *> active;
    QtMessageHandler previous = nullptr;
};

// Never destroyed, so that a message from a static destructor still finds it.
Captures &captures()
{
    static auto *const instance = new Captures;
    return *instance;
}

bool isShown(QtMsgType type)
{
    static const bool wanted = qEnvironmentVariableIsSet("TARVISNET_TEST_SHOW_LOG");
    return wanted || type == QtFatalMsg;
}

QString faultOf(const LogEntry &entry)
{
    if (entry.category != "default")
        return QStringLiteral("category \"%1\"").arg(QString::fromUtf8(entry.category));
    if (entry.line <= 0)
        return QStringLiteral("line %1").arg(entry.line);
    if (!entry.function.contains('('))
        return QStringLiteral("function \"%1\"").arg(QString::fromUtf8(entry.function));
    return QString();
}

QStringList textsOf(const QList<LogEntry> &entries)
{
    QStringList texts;
    for (const LogEntry &entry : entries)
        texts.append(entry.text);
    return texts;
}

} // namespace

LogCapture::LogCapture()
{
    const QMutexLocker locker(&captures().mutex);
    captures().active.append(this);
    if (captures().active.size() == 1)
        captures().previous = qInstallMessageHandler(&LogCapture::handle);
}

LogCapture::~LogCapture()
{
    const QMutexLocker locker(&captures().mutex);
    captures().active.removeOne(this);
    if (captures().active.isEmpty())
        qInstallMessageHandler(captures().previous);
}

void LogCapture::handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (isShown(type))
        std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, text)));

    // Held while the entry is added, so that the capture cannot be destroyed in between.
    const QMutexLocker locker(&captures().mutex);
    if (!captures().active.isEmpty())
        captures().active.last()->add(
            {type, text, context.file, context.function, context.category, context.line});
}

void LogCapture::add(const LogEntry &entry)
{
    const QMutexLocker locker(&m_mutex);
    m_entries.append(entry);
}

QList<LogEntry> LogCapture::entries() const
{
    const QMutexLocker locker(&m_mutex);
    return m_entries;
}

QList<LogEntry> LogCapture::where(const std::function<bool(const LogEntry &)> &holds) const
{
    const QList<LogEntry> all = entries();
    QList<LogEntry> found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found), holds);
    return found;
}

QList<LogEntry> LogCapture::from(const char *file) const
{
    return where([file](const LogEntry &entry) { return entry.file == file; });
}

QStringList LogCapture::texts() const
{
    return textsOf(entries());
}

QStringList LogCapture::texts(QtMsgType type) const
{
    return textsOf(where([type](const LogEntry &entry) { return entry.type == type; }));
}

int LogCapture::count(QtMsgType type, const QString &text) const
{
    return texts(type).count(text);
}

bool LogCapture::contains(QtMsgType type, const QString &text) const
{
    return texts(type).contains(text);
}

bool LogCapture::containsPart(QtMsgType type, const QString &part) const
{
    const QStringList candidates = texts(type);
    return std::any_of(candidates.begin(), candidates.end(),
                       [&part](const QString &text) { return text.contains(part); });
}

QString LogCapture::originFault(const char *file) const
{
    const QList<LogEntry> found = from(file);
    if (found.isEmpty())
        return QStringLiteral("no message from %1").arg(QString::fromUtf8(file));
    for (const LogEntry &entry : found) {
        const QString fault = faultOf(entry);
        if (!fault.isEmpty())
            return QStringLiteral("%1 of the message: %2").arg(fault, entry.text);
    }
    return QString();
}

void LogCapture::clear()
{
    const QMutexLocker locker(&m_mutex);
    m_entries.clear();
}
