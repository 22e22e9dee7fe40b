#include "serverprogram.h"

#include "boundprocess.h"
#include "files.h"
#include "scriptedserver.h"

#include <QtNetwork/QHostAddress>
#include <QtNetwork/QTcpSocket>

ServerProgram::ServerProgram(const ServerSetup &setup)
{
    // Some servers, when root starts them, read what they serve as a user without rights.
    const QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner
        | QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;
    if (!m_directory.isValid() || !QFile::setPermissions(m_directory.path(), permissions))
        qFatal("cannot make a directory for %s", qPrintable(setup.program));
    // Somebody else may take a port between its choice and its use.
    constexpr int attempts = 5;
    for (int i = 0; i < attempts; ++i) {
        if (start(setup))
            return;
    }
    qFatal("%s does not start: %s %s%s", qPrintable(setup.program),
           qPrintable(m_process->errorString()), m_process->readAllStandardError().constData(),
           files::read(path(QStringLiteral("error.log"))).constData());
}

ServerProgram::~ServerProgram()
{
    stop();
}

bool ServerProgram::start(const ServerSetup &setup)
{
    for (const QByteArray &name : setup.ports)
        m_ports[name] = ScriptedServer::freePort();
    files::write(path(QStringLiteral("server.conf")), filledIn(setup.configuration));
    QStringList arguments;
    for (const QString &argument : setup.arguments)
        arguments.append(QString::fromUtf8(filledIn(argument.toUtf8())));

    // Nothing is to be kept in the home of whoever runs the test.
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("HOME"), m_directory.path());
    m_process.reset(new BoundProcess);
    m_process->setProcessEnvironment(environment);
    m_process->start(setup.program, arguments);
    return m_process->waitForStarted() && waitUntilListening();
}

QByteArray ServerProgram::filledIn(QByteArray text) const
{
    text.replace("@directory@", m_directory.path().toUtf8());
    text.replace("@file@", path(QStringLiteral("server.conf")).toUtf8());
    for (auto port = m_ports.begin(); port != m_ports.end(); ++port)
        text.replace('@' + port.key() + '@', QByteArray::number(port.value()));
    return text;
}

bool ServerProgram::waitUntilListening()
{
    for (const quint16 port : m_ports) {
        QTcpSocket socket;
        do {
            socket.abort();
            socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
            // Failing to connect means that the server is still starting, or has ended.
        } while (!socket.waitForConnected() && !m_process->waitForFinished(10));
        if (socket.state() != QAbstractSocket::ConnectedState)
            return false;
    }
    return m_process->state() == QProcess::Running;
}

void ServerProgram::stop()
{
    m_process->terminate();
    if (!m_process->waitForFinished())
        m_process->kill();
    m_process->waitForFinished();
}
