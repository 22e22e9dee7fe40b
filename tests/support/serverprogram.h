#ifndef TARVISNET_TESTS_SERVERPROGRAM_H
#define TARVISNET_TESTS_SERVERPROGRAM_H

#include <QtCore/QByteArray>
#include <QtCore/QMap>
#include <QtCore/QProcess>
#include <QtCore/QScopedPointer>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

/// How a server of Debian's is run. In arguments and configuration "@directory@" stands for the
/// directory in which it runs, "@file@" for the file with the configuration, and "@NAME@" for the
/// port of that name.
struct ServerSetup {
    QString program;
    QStringList arguments;
    QByteArray configuration;
    QList<QByteArray> ports = {"http"};
};

/// A server that somebody else wrote, with a private configuration in a temporary directory, on
/// free ports of 127.0.0.1 below 32768. It ends with this object, and is a process of its own: a
/// blocked event loop does not block it.
class ServerProgram {
public:
    /// Returns when every port can be connected to; it is fatal when the server is missing or does
    /// not start, because no test could go on.
    explicit ServerProgram(const ServerSetup &setup);
    ~ServerProgram();

    quint16 port(const QByteArray &name = "http") const { return m_ports.value(name); }
    /// A file in the directory of the server.
    QString path(const QString &name) const { return m_directory.filePath(name); }

private:
    Q_DISABLE_COPY(ServerProgram)

    bool start(const ServerSetup &setup);
    QByteArray filledIn(QByteArray text) const;
    bool waitUntilListening();
    void stop();

    QTemporaryDir m_directory;
    QMap<QByteArray, quint16> m_ports;
    QScopedPointer<QProcess> m_process;
};

#endif // TARVISNET_TESTS_SERVERPROGRAM_H
