#ifndef LOGRELAY_H
#define LOGRELAY_H

#include <QtCore/QObject>
#include <QtCore/QStringList>

/// Hands the messages that the library and Qt log to the window, as long as it lives. There is one
/// at a time. Messages may come from any thread and in floods: they are gathered, and of too many
/// only the latest are handed on.
class LogRelay : public QObject {
    Q_OBJECT

public:
    /// As many messages as are kept for the window, and as it should show.
    static constexpr int mostMessages = 1000;

    explicit LogRelay(QObject *parent = nullptr);
    ~LogRelay() override;

    /// Whether what the library's probes say is handed on, too; false at first.
    void setPingsShown(bool shown);

Q_SIGNALS:
    /// One message or more, each on lines of its own.
    void arrived(const QString &text);

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text);
    void add(const QMessageLogContext &context, const QString &message);
    void flush();

    QStringList m_messages;
    bool m_arePingsShown = false;
};

#endif // LOGRELAY_H
