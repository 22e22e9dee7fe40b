#ifndef TARVISNET_TESTS_LOGCAPTURE_H
#define TARVISNET_TESTS_LOGCAPTURE_H

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QtGlobal>

#include <functional>

/// One message as it went through Qt's message handler.
struct LogEntry {
    QtMsgType type = QtDebugMsg;
    QString text;
    QByteArray file;
    QByteArray function;
    QByteArray category;
    int line = 0;
};

/// Captures everything that is logged, from any thread, as long as it lives:
///
///     LogCapture log;
///     client.fetchIndex(QUrl());
///     QVERIFY(log.contains(QtWarningMsg, "<TarvisNet::fetchIndex> Invalid url: "));
///
/// Captures may be nested; a message goes to the youngest one only. Captured messages do not reach
/// QTest, so QTest::ignoreMessage() does not see them. Nothing is printed, unless the environment
/// variable TARVISNET_TEST_SHOW_LOG is set or the message is fatal.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();

    /// All messages so far, in order.
    QList<LogEntry> entries() const;
    /// The messages of one source file, whose name must match exactly.
    QList<LogEntry> from(const char *file) const;

    QStringList texts() const;
    QStringList texts(QtMsgType type) const;
    /// How many messages of \a type read exactly \a text.
    int count(QtMsgType type, const QString &text) const;
    bool contains(QtMsgType type, const QString &text) const;
    /// Whether \a part occurs in the text of a message of \a type.
    bool containsPart(QtMsgType type, const QString &part) const;

    /// Empty when there are messages of the source file \a file and each of them has the category
    /// "default", a line and the signature of a function; otherwise what is wrong with the first
    /// that has not. To be compared with an empty string, so that a failing test shows it.
    QString originFault(const char *file) const;

    void clear();

private:
    Q_DISABLE_COPY(LogCapture)

    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text);
    void add(const LogEntry &entry);
    QList<LogEntry> where(const std::function<bool(const LogEntry &)> &holds) const;

    mutable QMutex m_mutex;
    QList<LogEntry> m_entries;
};

#endif // TARVISNET_TESTS_LOGCAPTURE_H
