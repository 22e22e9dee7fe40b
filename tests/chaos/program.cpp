#include "program.h"

#include "worker.h"

#include <QtCore/QCoreApplication>

Program::Program(const QStringList &arguments, const Callbacks &callbacks)
    : m_callbacks(callbacks)
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &m_process,
                     [this] { readLines(); });
    QObject::connect(&m_process, &QProcess::stateChanged, &m_process, [this] {
        if (!isRunning())
            m_callbacks.ended();
    });
    m_process.start(QCoreApplication::applicationFilePath(),
                    QStringList{QString::fromLatin1(worker::option)} + arguments);
}

// What it still has to say is of no interest any more.
Program::~Program()
{
    m_process.disconnect();
    m_process.kill();
    m_process.waitForFinished();
}

void Program::tell(const QStringList &words)
{
    m_process.write(words.join(QLatin1Char(' ')).toLocal8Bit() + '\n');
}

void Program::quit()
{
    if (!m_isQuitting && isRunning())
        tell({QStringLiteral("quit")});
    m_isQuitting = true;
}

void Program::kill()
{
    m_wasKilled = true;
    m_process.kill();
}

void Program::readLines()
{
    while (m_process.canReadLine()) {
        const QByteArray line = m_process.readLine().trimmed();
        m_callbacks.said(QString::fromLocal8Bit(line).split(QLatin1Char(' ')));
    }
}

QString Program::fault() const
{
    const bool isGood = m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
    if (m_wasKilled || isGood)
        return QString();
    return QStringLiteral("the program ended with %1").arg(m_process.exitCode());
}
