#include "fetchbench.h"

#include <QtCore/QDir>

namespace {

constexpr int longestRun = 30000;

QString temporaryName()
{
    return QStringLiteral("temporary");
}

} // namespace

FetchBench::FetchBench()
{
    QDir(m_directory.path()).mkdir(temporaryName());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TMPDIR"), path(temporaryName()));
    m_process.setProcessEnvironment(environment);
    m_process.setWorkingDirectory(m_directory.path());
    m_process.setProgram(QStringLiteral(TARVISNET_FETCH_PROGRAM));
    QObject::connect(&m_process, &QProcess::stateChanged, &m_process,
                     [this] { m_awaiter.changed(); });
}

QStringList FetchBench::leftovers() const
{
    return QDir(path(temporaryName())).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
}

void FetchBench::run(const QStringList &arguments)
{
    start(arguments);
    finish();
}

void FetchBench::start(const QStringList &arguments)
{
    m_process.setArguments(arguments);
    m_process.start(QIODevice::ReadOnly);
}

void FetchBench::finish()
{
    const bool ended =
        m_awaiter.wait([this] { return m_process.state() == QProcess::NotRunning; }, longestRun);
    const bool byItself = ended && m_process.exitStatus() == QProcess::NormalExit;
    m_exitCode = byItself ? m_process.exitCode() : -1;
    m_output = m_process.readAllStandardOutput();
    m_messages = m_process.readAllStandardError();
}

QList<QByteArray> FetchBench::messageLines() const
{
    return m_messages.trimmed().split('\n');
}
